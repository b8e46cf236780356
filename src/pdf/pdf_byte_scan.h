#pragma once
// Small scanning helpers shared by the byte layer's files (trailer, incremental update, blanking,
// string decoding). Internal to the PDF component.

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "pdf/pdf_byte_layer.h"

namespace tavrin::pdfBytes::detail {

// Whitespace as the trailer patterns see it.
inline bool isPatternSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

inline bool isDigit(char c) { return c >= '0' && c <= '9'; }

// The six whitespace bytes that may stand between "obj" and "<<".
inline bool isDictionaryWhitespace(std::uint8_t b) {
    return b == 0x00 || b == 0x09 || b == 0x0A || b == 0x0C || b == 0x0D || b == 0x20;
}

inline std::string_view asText(ByteView bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// Parses a run of at most 18 digits; longer runs cannot be a valid PDF number here.
inline std::optional<std::int64_t> parseDecimal(std::string_view digits) {
    if (digits.empty() || digits.size() > 18) return std::nullopt;
    std::int64_t value = 0;
    auto [ptr, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (ec != std::errc() || ptr != digits.data() + digits.size()) return std::nullopt;
    return value;
}

inline std::size_t skipDigits(std::string_view s, std::size_t i) {
    while (i < s.size() && isDigit(s[i])) ++i;
    return i;
}

inline std::size_t skipPatternSpace(std::string_view s, std::size_t i) {
    while (i < s.size() && isPatternSpace(s[i])) ++i;
    return i;
}

inline void append(std::vector<std::uint8_t>& out, std::string_view text) { out.insert(out.end(), text.begin(), text.end()); }

inline bool isAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

inline std::optional<std::size_t> findBytes(ByteView data, std::string_view needle, std::size_t from) {
    if (needle.empty() || from > data.size() || data.size() - from < needle.size()) return std::nullopt;
    const std::string_view hay = asText(data);
    const std::size_t pos = hay.find(needle, from);
    if (pos == std::string_view::npos) return std::nullopt;
    return pos;
}

inline int hexNibble(std::uint8_t b) {
    if (b >= '0' && b <= '9') return b - '0';
    if (b >= 'a' && b <= 'f') return b - 'a' + 10;
    if (b >= 'A' && b <= 'F') return b - 'A' + 10;
    return -1;
}

inline std::optional<std::uint8_t> simpleEscapeByte(std::uint8_t b) {
    switch (b) {
        case 'n': return 0x0A;
        case 'r': return 0x0D;
        case 't': return 0x09;
        case 'b': return 0x08;
        case 'f': return 0x0C;
        default: return std::nullopt;
    }
}


}  // namespace tavrin::pdfBytes::detail
