#pragma once
// UTF-8 output and strict UTF-16 decoding, shared by every layer that meets UTF-16 in a file.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace tavrin::unicode {

// REQUIRES: `scalar` is at most U+10FFFF.
inline void appendUTF8(std::string& out, char32_t scalar) {
    if (scalar < 0x80) {
        out += static_cast<char>(scalar);
    } else if (scalar < 0x800) {
        out += static_cast<char>(0xC0 | (scalar >> 6));
        out += static_cast<char>(0x80 | (scalar & 0x3F));
    } else if (scalar < 0x10000) {
        out += static_cast<char>(0xE0 | (scalar >> 12));
        out += static_cast<char>(0x80 | ((scalar >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (scalar & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (scalar >> 18));
        out += static_cast<char>(0x80 | ((scalar >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((scalar >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (scalar & 0x3F));
    }
}

// UTF-8 of UTF-16 code units in the given byte order; nothing for an odd byte count or a lone
// surrogate. A byte order mark is decoded like any other character.
inline std::optional<std::string> strictUTF8FromUTF16(std::span<const std::uint8_t> bytes, bool bigEndian) {
    if (bytes.size() % 2 != 0) return std::nullopt;
    std::string out;
    out.reserve(bytes.size());
    const auto unitAt = [&](std::size_t i) -> char32_t {
        return bigEndian ? (static_cast<char32_t>(bytes[i]) << 8) | bytes[i + 1]
                         : bytes[i] | (static_cast<char32_t>(bytes[i + 1]) << 8);
    };
    for (std::size_t i = 0; i < bytes.size(); i += 2) {
        const char32_t unit = unitAt(i);
        if (unit >= 0xD800 && unit <= 0xDBFF) {
            if (i + 3 >= bytes.size()) return std::nullopt;
            const char32_t low = unitAt(i + 2);
            if (low < 0xDC00 || low > 0xDFFF) return std::nullopt;
            appendUTF8(out, 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00));
            i += 2;
        } else if (unit >= 0xDC00 && unit <= 0xDFFF) {
            return std::nullopt;
        } else {
            appendUTF8(out, unit);
        }
    }
    return out;
}

}  // namespace tavrin::unicode
