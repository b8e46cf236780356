// Decoding PDF string tokens (literal and hex) and the scan of every string outside stream bodies.
#include "pdf/pdf_byte_layer.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

#include "pdf/text_encoding.h"
#include "pdf/pdf_byte_scan.h"

namespace tavrin::pdfBytes {

using namespace detail;

// MARK: string decoding

std::size_t decodeOctalEscape(ByteView data, std::size_t backslash, std::vector<std::uint8_t>& into) {
    unsigned value = 0;
    std::size_t digits = 0;
    std::size_t i = backslash + 1;
    while (digits < 3 && i < data.size() && data[i] >= '0' && data[i] <= '7') {
        value = value * 8 + static_cast<unsigned>(data[i] - '0');
        ++digits;
        ++i;
    }
    into.push_back(static_cast<std::uint8_t>(value & 0xFF));
    return 1 + digits;
}

std::optional<std::size_t> decodeEscape(ByteView data, std::size_t backslash, std::vector<std::uint8_t>& into) {
    if (backslash + 1 >= data.size()) return std::nullopt;
    const std::uint8_t b = data[backslash + 1];
    if (auto mapped = simpleEscapeByte(b)) {
        into.push_back(*mapped);
        return 2;
    }
    if (b == 0x0A) return 2;
    if (b == 0x0D) return (backslash + 2 < data.size() && data[backslash + 2] == 0x0A) ? 3 : 2;
    if (b >= '0' && b <= '7') return decodeOctalEscape(data, backslash, into);
    // "(", ")", the backslash itself, and any other byte stand for themselves.
    into.push_back(b);
    return 2;
}

std::optional<DecodedString> decodeLiteralString(ByteView data, std::size_t openParen) {
    std::vector<std::uint8_t> bytes;
    std::size_t depth = 0;
    std::size_t i = openParen + 1;
    while (i < data.size()) {
        const std::uint8_t b = data[i];
        if (b == '(') {
            ++depth;
            bytes.push_back(b);
            ++i;
        } else if (b == ')') {
            if (depth == 0) return DecodedString{decodePDFStringBytes(bytes), i + 1};
            --depth;
            bytes.push_back(b);
            ++i;
        } else if (b == '\\') {
            auto consumed = decodeEscape(data, i, bytes);
            if (!consumed) return std::nullopt;
            i += *consumed;
        } else {
            bytes.push_back(b);
            ++i;
        }
    }
    return std::nullopt;
}

std::optional<DecodedString> decodeHexString(ByteView data, std::size_t openAngle) {
    std::vector<std::uint8_t> bytes;
    int pending = -1;
    for (std::size_t i = openAngle + 1; i < data.size(); ++i) {
        const std::uint8_t b = data[i];
        if (b == '>') {
            if (pending >= 0) bytes.push_back(static_cast<std::uint8_t>(pending << 4));
            return DecodedString{decodePDFStringBytes(bytes), i + 1};
        }
        const int nibble = hexNibble(b);
        if (nibble < 0) continue;
        if (pending < 0) {
            pending = nibble;
        } else {
            bytes.push_back(static_cast<std::uint8_t>((pending << 4) | nibble));
            pending = -1;
        }
    }
    return std::nullopt;
}

std::string decodePDFStringBytes(ByteView bytes) {
    if (bytes.size() >= 2 && bytes[0] == 0xFE && bytes[1] == 0xFF) {
        if (auto text = utf8FromUTF16BE(bytes.subspan(2))) return *text;
    }
    return utf8FromPDFDocEncoding(bytes);
}

bool forEachDecodedObjectString(ByteView data, const std::function<void(const std::string&)>& visit) {
    // A literal string that never closes is rescanned from every later parenthesis; this budget
    // keeps a file built of such openings from costing quadratic time. Well-formed files never
    // come near it.
    std::size_t rescanBudget = 4 * data.size() + (1u << 20);
    bool hexCanClose = true;  // once a hex string runs off the end, no later one can close
    std::size_t i = 0;
    while (i < data.size()) {
        const std::uint8_t b = data[i];
        if (b == '(') {
            if (auto s = decodeLiteralString(data, i)) {
                visit(s->value);
                i = s->after;
            } else {
                const std::size_t cost = data.size() - i;
                if (cost > rescanBudget) return false;
                rescanBudget -= cost;
                ++i;
            }
        } else if (b == '<') {
            if (i + 1 < data.size() && data[i + 1] == '<') {
                i += 2;
            } else if (hexCanClose) {
                if (auto s = decodeHexString(data, i)) {
                    visit(s->value);
                    i = s->after;
                } else {
                    hexCanClose = false;
                    ++i;
                }
            } else {
                ++i;
            }
        } else if (b == 's' && matches("stream", data, i)) {
            std::size_t from = i + 6;
            std::optional<std::size_t> end;
            while (auto at = findBytes(data, "endstream", from)) {
                if (matches("endstream", data, *at)) {
                    end = *at;
                    break;
                }
                from = *at + 1;
            }
            if (!end) return true;
            i = *end + 9;
        } else {
            ++i;
        }
    }
    return true;
}

std::optional<std::vector<std::string>> decodedObjectStrings(ByteView data) {
    std::vector<std::string> strings;
    if (!forEachDecodedObjectString(data, [&](const std::string& s) { strings.push_back(s); })) return std::nullopt;
    return strings;
}

}  // namespace tavrin::pdfBytes
