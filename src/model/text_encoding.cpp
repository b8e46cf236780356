#include "model/text_encoding.h"

#include <array>
#include <fmt/core.h>
#include <stdexcept>

namespace tavrin {

namespace {

// Length of the well-formed UTF-8 sequence at `i`, or 0 when the bytes there are ill-formed;
// `*bad` is then the length of the maximal ill-formed subpart (at least 1).
std::size_t sequenceAt(std::string_view s, std::size_t i, std::size_t* bad) {
    const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(s[k]); };
    const unsigned char c = byte(i);
    *bad = 1;
    if (c < 0x80) return 1;
    std::size_t need = 0;
    unsigned char lo = 0x80, hi = 0xBF;
    if (c >= 0xC2 && c <= 0xDF) need = 1;
    else if (c == 0xE0) need = 2, lo = 0xA0;
    else if (c >= 0xE1 && c <= 0xEC) need = 2;
    else if (c == 0xED) need = 2, hi = 0x9F;  // no surrogates
    else if (c >= 0xEE && c <= 0xEF) need = 2;
    else if (c == 0xF0) need = 3, lo = 0x90;
    else if (c >= 0xF1 && c <= 0xF3) need = 3;
    else if (c == 0xF4) need = 3, hi = 0x8F;  // nothing past U+10FFFF
    else return 0;
    for (std::size_t k = 1; k <= need; ++k) {
        if (i + k >= s.size()) return 0;
        const unsigned char t = byte(i + k);
        if (t < (k == 1 ? lo : 0x80) || t > (k == 1 ? hi : 0xBF)) return 0;
        *bad = k + 1;
    }
    return need + 1;
}

std::uint32_t codePoint(std::string_view s, std::size_t i, std::size_t n) {
    const auto c = static_cast<unsigned char>(s[i]);
    if (n == 1) return c;
    std::uint32_t cp = c & (0x7F >> n);
    for (std::size_t k = 1; k < n; ++k) cp = (cp << 6) | (static_cast<unsigned char>(s[i + k]) & 0x3F);
    return cp;
}

bool isBidiControl(std::uint32_t cp) {
    return (cp >= 0x202A && cp <= 0x202E) || (cp >= 0x2066 && cp <= 0x2069) || cp == 0x200E || cp == 0x200F ||
           cp == 0x061C;
}

constexpr std::string_view kBase64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

}  // namespace

bool isValidUTF8(std::string_view text) {
    for (std::size_t i = 0, bad = 0; i < text.size();) {
        const std::size_t n = sequenceAt(text, i, &bad);
        if (n == 0) return false;
        i += n;
    }
    return true;
}

std::string validUTF8(std::string_view text) {
    if (isValidUTF8(text)) return std::string(text);
    std::string out;
    out.reserve(text.size() + 8);
    for (std::size_t i = 0, bad = 0; i < text.size();) {
        const std::size_t n = sequenceAt(text, i, &bad);
        if (n == 0) {
            out += "\xEF\xBF\xBD";
            i += bad;
        } else {
            out.append(text.substr(i, n));
            i += n;
        }
    }
    return out;
}

std::string printableText(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0, bad = 0; i < text.size();) {
        const std::size_t n = sequenceAt(text, i, &bad);
        if (n == 0) {
            out += fmt::format("\\x{:02x}", static_cast<unsigned char>(text[i]));
            ++i;
            continue;
        }
        const std::uint32_t cp = codePoint(text, i, n);
        if (cp < 0x20 || cp == 0x7F) out += fmt::format("\\x{:02x}", cp);
        else if ((cp >= 0x80 && cp <= 0x9F) || isBidiControl(cp)) out += fmt::format("\\u{:04x}", cp);
        else out.append(text.substr(i, n));
        i += n;
    }
    return out;
}

std::optional<std::string> pathBytesBase64(const std::filesystem::path& path) {
    if (isValidUTF8(path.native())) return std::nullopt;
    return base64Encode(path.native());
}

std::string base64Encode(std::string_view in) {
    std::string out;
    out.reserve((in.size() + 2) / 3 * 4);
    std::size_t i = 0;
    for (; i + 2 < in.size(); i += 3) {
        const auto v = (std::uint32_t(std::uint8_t(in[i])) << 16) | (std::uint32_t(std::uint8_t(in[i + 1])) << 8) |
                       std::uint8_t(in[i + 2]);
        for (int shift : {18, 12, 6, 0}) out += kBase64[(v >> shift) & 63];
    }
    if (i < in.size()) {
        std::uint32_t v = std::uint32_t(std::uint8_t(in[i])) << 16;
        if (i + 1 < in.size()) v |= std::uint32_t(std::uint8_t(in[i + 1])) << 8;
        out += kBase64[(v >> 18) & 63];
        out += kBase64[(v >> 12) & 63];
        out += i + 1 < in.size() ? kBase64[(v >> 6) & 63] : '=';
        out += '=';
    }
    return out;
}

std::string base64Decode(std::string_view text) {
    if (text.size() % 4 != 0) throw std::invalid_argument("base64 text length is not a multiple of 4");
    std::string out;
    std::uint32_t acc = 0;
    int bits = 0;
    std::size_t padding = 0;
    for (char c : text) {
        if (c == '=') {
            ++padding;
            continue;
        }
        const auto pos = kBase64.find(c);
        if (pos == std::string_view::npos || padding) throw std::invalid_argument("not base64 text");
        acc = (acc << 6) | static_cast<std::uint32_t>(pos);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out += static_cast<char>((acc >> bits) & 0xFF);
        }
    }
    if (padding > 2) throw std::invalid_argument("not base64 text");
    return out;
}

}  // namespace tavrin
