#include "office/office_text_encoding.h"

#include <algorithm>
#include <cstring>

#include "model/unicode_text.h"

namespace tavrin {

namespace {

const std::string byteOrderMark = "\xEF\xBB\xBF";

std::string_view withoutLeadingBOM(std::string_view text) {
    return text.substr(0, 3) == byteOrderMark ? text.substr(3) : text;
}

bool looksLikeMarkup(std::string_view text) {
    return text.find('<') != std::string_view::npos && text.find('\0') == std::string_view::npos;
}

// The first `count` scalars of UTF-8 text, lower-cased in ASCII.
std::string lowerCasedPrefix(std::string_view text, std::size_t count) {
    std::size_t end = 0;
    for (std::size_t scalars = 0; end < text.size() && scalars < count; ++scalars) {
        ++end;
        while (end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) ++end;
    }
    std::string prefix(text.substr(0, end));
    std::transform(prefix.begin(), prefix.end(), prefix.begin(), [](unsigned char c) {
        return static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    });
    return prefix;
}

}  // namespace

std::optional<std::string> OfficeTextEncoding::decodeUTF8(std::span<const std::uint8_t> data) {
    if (!isValidUTF8(std::string_view(reinterpret_cast<const char*>(data.data()), data.size()))) return std::nullopt;
    return std::string(reinterpret_cast<const char*>(data.data()), data.size());
}

bool OfficeTextEncoding::isValidUTF8(std::string_view text) {
    const auto* data = reinterpret_cast<const std::uint8_t*>(text.data());
    std::size_t i = 0;
    const std::size_t n = text.size();
    while (i < n) {
        // Markup is mostly ASCII: eight bytes at a time while no byte has its high bit set.
        while (n - i >= 8) {
            std::uint64_t word;
            std::memcpy(&word, data + i, 8);
            if (word & 0x8080808080808080ull) break;
            i += 8;
        }
        if (i >= n) break;
        const std::uint8_t c = data[i];
        if (c < 0x80) {
            ++i;
            continue;
        }
        std::size_t length;
        std::uint32_t scalar;
        if ((c & 0xE0) == 0xC0) {
            length = 2;
            scalar = c & 0x1F;
        } else if ((c & 0xF0) == 0xE0) {
            length = 3;
            scalar = c & 0x0F;
        } else if ((c & 0xF8) == 0xF0) {
            length = 4;
            scalar = c & 0x07;
        } else {
            return false;
        }
        if (n - i < length) return false;
        for (std::size_t k = 1; k < length; ++k) {
            if ((data[i + k] & 0xC0) != 0x80) return false;
            scalar = (scalar << 6) | (data[i + k] & 0x3F);
        }
        static constexpr std::uint32_t smallest[5] = {0, 0, 0x80, 0x800, 0x10000};
        if (scalar < smallest[length] || scalar > 0x10FFFF || (scalar >= 0xD800 && scalar <= 0xDFFF)) return false;
        i += length;
    }
    return true;
}

std::optional<std::string> OfficeTextEncoding::decodeUTF16(std::span<const std::uint8_t> data, bool bigEndian) {
    return unicode::strictUTF8FromUTF16(data, bigEndian);
}

std::optional<std::string> OfficeTextEncoding::decodeUTF16WithoutBOM(std::span<const std::uint8_t> data) {
    for (bool bigEndian : {false, true}) {
        auto text = decodeUTF16(data, bigEndian);
        if (text && looksLikeMarkup(withoutLeadingBOM(*text))) return text;
    }
    return std::nullopt;
}

namespace {

// What decodeXML makes of some bytes: nothing, the bytes themselves as UTF-8 from `skip` on
// (a byte order mark left out), or a text decoded from UTF-16.
struct DecodedXML {
    bool decoded = false;
    std::size_t skip = 0;
    std::optional<std::string> transcoded;
};

DecodedXML decodeXMLText(std::span<const std::uint8_t> data) {
    using E = OfficeTextEncoding;
    const std::string_view bytes(reinterpret_cast<const char*>(data.data()), data.size());
    // The text as UTF-8, or as decoded from UTF-16; which one is known by `transcoded`.
    bool utf8 = false;
    std::optional<std::string> transcoded;
    // 1. A byte order mark decides, when its decoding works.
    if (data.size() >= 2) {
        if (data.size() >= 3 && data[0] == 0xEF && data[1] == 0xBB && data[2] == 0xBF) utf8 = E::isValidUTF8(bytes);
        else if (data[0] == 0xFE && data[1] == 0xFF) transcoded = E::decodeUTF16(data, true);
        else if (data[0] == 0xFF && data[1] == 0xFE) transcoded = E::decodeUTF16(data, false);
    }
    // 2. Without a mark, or with one whose decoding failed, the bytes themselves decide.
    if (!utf8 && !transcoded) {
        // 3. Many zero bytes near the start mean UTF-16 without a mark.
        const std::size_t taken = std::min<std::size_t>(data.size(), 256);
        const auto zeros = std::count(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(taken), 0);
        const bool looksUTF16 = taken >= 4 && static_cast<double>(zeros) / static_cast<double>(taken) > 0.2;
        if (looksUTF16) {
            transcoded = E::decodeUTF16WithoutBOM(data);
            if (!transcoded) utf8 = E::isValidUTF8(bytes);
        } else if ((utf8 = E::isValidUTF8(bytes))) {
            // 4. A declaration that claims UTF-16 is believed only if the bytes agree.
            const std::string head = lowerCasedPrefix(bytes, 120);
            if (head.find("encoding=\"utf-16\"") != std::string::npos || head.find("encoding='utf-16'") != std::string::npos)
                if ((transcoded = E::decodeUTF16WithoutBOM(data))) utf8 = false;
        } else {
            // 5. Bytes that are no UTF-8 get one try as UTF-16 without a mark.
            transcoded = E::decodeUTF16WithoutBOM(data);
        }
    }
    // 6. A leading mark is dropped; non-text data that happens to decode is refused.
    DecodedXML result;
    if (transcoded) {
        if (transcoded->compare(0, 3, byteOrderMark) == 0) transcoded->erase(0, 3);
        if (!looksLikeMarkup(*transcoded)) return result;
        result.decoded = true;
        result.transcoded = std::move(transcoded);
    } else if (utf8) {
        result.skip = bytes.substr(0, 3) == byteOrderMark ? 3 : 0;
        if (!looksLikeMarkup(bytes.substr(result.skip))) return result;
        result.decoded = true;
    }
    return result;
}

}  // namespace

std::optional<std::string> OfficeTextEncoding::decodeXML(std::span<const std::uint8_t> data) {
    auto decoded = decodeXMLText(data);
    if (!decoded.decoded) return std::nullopt;
    if (decoded.transcoded) return std::move(decoded.transcoded);
    return std::string(reinterpret_cast<const char*>(data.data()) + decoded.skip, data.size() - decoded.skip);
}

std::optional<std::string> OfficeTextEncoding::decodeXML(std::string&& data) {
    auto decoded = decodeXMLText(std::span(reinterpret_cast<const std::uint8_t*>(data.data()), data.size()));
    if (!decoded.decoded) return std::nullopt;
    if (decoded.transcoded) return std::move(decoded.transcoded);
    data.erase(0, decoded.skip);
    return std::move(data);
}

}  // namespace tavrin
