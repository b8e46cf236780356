#pragma once
// Turns the bytes of an Office part into text, surviving the encodings found in the wild:
// byte order marks, UTF-16 without a mark, and declarations that lie about the encoding.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace tavrin {

struct OfficeTextEncoding {
    // The part as UTF-8 text, or nothing when it does not decode to text that holds a "<" and
    // no NUL. A leading byte order mark is dropped.
    static std::optional<std::string> decodeXML(std::span<const std::uint8_t> data);
    // The same on bytes held in a string, which is handed back as the text, without a copy,
    // when they are UTF-8.
    static std::optional<std::string> decodeXML(std::string&& data);
    // Little-endian first, then big-endian; a candidate counts when it decodes and holds a "<"
    // and no NUL.
    static std::optional<std::string> decodeUTF16WithoutBOM(std::span<const std::uint8_t> data);

    // Strict decoders: nothing for malformed input (overlong forms, lone surrogates, …).
    static std::optional<std::string> decodeUTF8(std::span<const std::uint8_t> data);
    // The test of decodeUTF8 alone, on text in place.
    static bool isValidUTF8(std::string_view text);
    static std::optional<std::string> decodeUTF16(std::span<const std::uint8_t> data, bool bigEndian);
};

}  // namespace tavrin
