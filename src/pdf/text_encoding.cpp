#include "pdf/text_encoding.h"

namespace tavrin::pdfBytes {

namespace {

// PDFDocEncoding where it differs from ISO Latin-1: 0x18–0x1F and 0x80–0xA0. Zero marks a byte
// the encoding leaves undefined.
constexpr char32_t docEncodingLow[8] = {0x02D8, 0x02C7, 0x02C6, 0x02D9, 0x02DD, 0x02DB, 0x02DA, 0x02DC};
constexpr char32_t docEncodingHigh[33] = {
    0x2022, 0x2020, 0x2021, 0x2026, 0x2014, 0x2013, 0x0192, 0x2044, 0x2039, 0x203A, 0x2212,
    0x2030, 0x201E, 0x201C, 0x201D, 0x2018, 0x2019, 0x201A, 0x2122, 0xFB01, 0xFB02, 0x0141,
    0x0152, 0x0160, 0x0178, 0x017D, 0x0131, 0x0142, 0x0153, 0x0161, 0x017E, 0,      0x20AC,
};

}  // namespace

std::optional<std::vector<std::uint16_t>> utf16Units(std::string_view s) {
    std::vector<std::uint16_t> units;
    units.reserve(s.size());
    std::size_t i = 0;
    while (i < s.size()) {
        const auto b0 = static_cast<unsigned char>(s[i]);
        char32_t c = 0;
        std::size_t length = 0;
        if (b0 < 0x80) {
            c = b0;
            length = 1;
        } else if ((b0 & 0xE0) == 0xC0) {
            c = b0 & 0x1F;
            length = 2;
        } else if ((b0 & 0xF0) == 0xE0) {
            c = b0 & 0x0F;
            length = 3;
        } else if ((b0 & 0xF8) == 0xF0) {
            c = b0 & 0x07;
            length = 4;
        } else {
            return std::nullopt;
        }
        if (s.size() - i < length) return std::nullopt;
        for (std::size_t k = 1; k < length; ++k) {
            const auto b = static_cast<unsigned char>(s[i + k]);
            if ((b & 0xC0) != 0x80) return std::nullopt;
            c = (c << 6) | (b & 0x3F);
        }
        static constexpr char32_t minimum[5] = {0, 0, 0x80, 0x800, 0x10000};
        if (c < minimum[length] || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return std::nullopt;
        if (c >= 0x10000) {
            c -= 0x10000;
            units.push_back(static_cast<std::uint16_t>(0xD800 + (c >> 10)));
            units.push_back(static_cast<std::uint16_t>(0xDC00 + (c & 0x3FF)));
        } else {
            units.push_back(static_cast<std::uint16_t>(c));
        }
        i += length;
    }
    return units;
}

std::optional<std::string> utf8FromUTF16BE(std::span<const std::uint8_t> bytes) {
    return unicode::strictUTF8FromUTF16(bytes, true);
}

std::string utf8FromPDFDocEncoding(std::span<const std::uint8_t> bytes) {
    std::string out;
    out.reserve(bytes.size());
    for (std::uint8_t b : bytes) {
        char32_t c = b;
        if (b >= 0x18 && b <= 0x1F) {
            c = docEncodingLow[b - 0x18];
        } else if (b >= 0x80 && b <= 0xA0 && docEncodingHigh[b - 0x80] != 0) {
            c = docEncodingHigh[b - 0x80];
        }
        unicode::appendUTF8(out, c);
    }
    return out;
}

}  // namespace tavrin::pdfBytes
