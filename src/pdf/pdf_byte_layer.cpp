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

#include "model/pipeline_error.h"
#include "pdf/mapped_file.h"
#include "pdf/text_encoding.h"

namespace tavrin::pdfBytes {

namespace {

// Whitespace as the trailer patterns see it.
bool isPatternSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// The six whitespace bytes that may stand between "obj" and "<<".
bool isDictionaryWhitespace(std::uint8_t b) {
    return b == 0x00 || b == 0x09 || b == 0x0A || b == 0x0C || b == 0x0D || b == 0x20;
}

std::string_view asText(ByteView bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// Parses a run of at most 18 digits; longer runs cannot be a valid PDF number here.
std::optional<std::int64_t> parseDecimal(std::string_view digits) {
    if (digits.empty() || digits.size() > 18) return std::nullopt;
    std::int64_t value = 0;
    auto [ptr, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (ec != std::errc() || ptr != digits.data() + digits.size()) return std::nullopt;
    return value;
}

std::size_t skipDigits(std::string_view s, std::size_t i) {
    while (i < s.size() && isDigit(s[i])) ++i;
    return i;
}

std::size_t skipPatternSpace(std::string_view s, std::size_t i) {
    while (i < s.size() && isPatternSpace(s[i])) ++i;
    return i;
}

void append(std::vector<std::uint8_t>& out, std::string_view text) { out.insert(out.end(), text.begin(), text.end()); }

bool isAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

std::optional<std::size_t> findBytes(ByteView data, std::string_view needle, std::size_t from) {
    if (needle.empty() || from > data.size() || data.size() - from < needle.size()) return std::nullopt;
    const std::string_view hay = asText(data);
    const std::size_t pos = hay.find(needle, from);
    if (pos == std::string_view::npos) return std::nullopt;
    return pos;
}

int hexNibble(std::uint8_t b) {
    if (b >= '0' && b <= '9') return b - '0';
    if (b >= 'a' && b <= 'f') return b - 'a' + 10;
    if (b >= 'A' && b <= 'F') return b - 'A' + 10;
    return -1;
}

std::optional<std::uint8_t> simpleEscapeByte(std::uint8_t b) {
    switch (b) {
        case 'n': return 0x0A;
        case 'r': return 0x0D;
        case 't': return 0x09;
        case 'b': return 0x08;
        case 'f': return 0x0C;
        default: return std::nullopt;
    }
}

}  // namespace

bool isPDFDelimiterOrWhitespace(std::uint8_t b) {
    switch (b) {
        case 0x00: case 0x09: case 0x0A: case 0x0C: case 0x0D: case 0x20:
        case '<': case '>': case '[': case ']':
            return true;
        default:
            return false;
    }
}

bool matches(std::string_view needle, ByteView data, std::size_t at) {
    if (needle.empty() || at > data.size() || data.size() - at < needle.size()) return false;
    if (std::memcmp(data.data() + at, needle.data(), needle.size()) != 0) return false;
    if (at > 0 && !isPDFDelimiterOrWhitespace(data[at - 1])) return false;
    const std::size_t end = at + needle.size();
    return end == data.size() || isPDFDelimiterOrWhitespace(data[end]);
}

// MARK: trailer

std::optional<std::string> firstCapture(TrailerPattern pattern, std::string_view key, std::string_view text) {
    const std::size_t keyAt = text.rfind(key);
    if (key.empty() || keyAt == std::string_view::npos) return std::nullopt;
    const std::string_view rest = text.substr(keyAt + key.size());
    const std::size_t start = skipPatternSpace(rest, 0);
    std::size_t i = skipDigits(rest, start);
    if (i == start) return std::nullopt;
    if (pattern == TrailerPattern::integer) return std::string(rest.substr(start, i - start));

    std::size_t j = skipPatternSpace(rest, i);
    if (j == i) return std::nullopt;
    const std::size_t generationEnd = skipDigits(rest, j);
    if (generationEnd == j) return std::nullopt;
    std::size_t k = skipPatternSpace(rest, generationEnd);
    if (k == generationEnd || k >= rest.size() || rest[k] != 'R') return std::nullopt;
    if (pattern == TrailerPattern::reference) return std::string(rest.substr(start, k + 1 - start));
    return std::string(rest.substr(start, generationEnd - start));
}

std::optional<ParsedTrailer> parseTrailer(ByteView tail, std::int64_t fileSize) {
    if (fileSize <= 0 || tail.empty() || static_cast<std::uint64_t>(tail.size()) > static_cast<std::uint64_t>(fileSize))
        return std::nullopt;
    const std::string_view text = asText(tail);

    const std::size_t startxrefAt = text.rfind("startxref");
    if (startxrefAt == std::string_view::npos) return std::nullopt;
    std::string_view behind = text.substr(startxrefAt + 9);
    const std::size_t firstNonSpace = skipPatternSpace(behind, 0);
    behind.remove_prefix(firstNonSpace);
    const std::size_t digitsEnd = skipDigits(behind, 0);
    if (digitsEnd == 0 || digitsEnd > 18) return std::nullopt;

    const std::size_t trailerAt = text.rfind("trailer");
    if (trailerAt == std::string_view::npos || trailerAt + 7 > startxrefAt) return std::nullopt;
    const std::string_view trailerText = text.substr(trailerAt + 7, startxrefAt - (trailerAt + 7));

    ParsedTrailer trailer;
    trailer.prevStartxref = std::string(behind.substr(0, digitsEnd));
    auto root = firstCapture(TrailerPattern::reference, "/Root", trailerText);
    if (!root) return std::nullopt;
    trailer.rootRef = *root;

    auto sizeText = firstCapture(TrailerPattern::integer, "/Size", trailerText);
    if (!sizeText) return std::nullopt;
    auto size = parseDecimal(*sizeText);
    // Object numbers above 2^31 cannot be valid; refusing them keeps every sum below in range.
    if (!size || *size < 1 || *size > 0x7fffffff) return std::nullopt;
    trailer.size = *size;

    if (auto info = firstCapture(TrailerPattern::objectAndGeneration, "/Info", trailerText)) {
        std::vector<std::int64_t> numbers;
        std::size_t i = 0;
        while (i < info->size()) {
            const std::size_t end = skipDigits(*info, i);
            if (end > i) {
                auto n = parseDecimal(std::string_view(*info).substr(i, end - i));
                if (!n) {
                    numbers.clear();
                    break;
                }
                numbers.push_back(*n);
                i = end;
            } else {
                ++i;
            }
        }
        if (numbers.size() == 2) trailer.infoRef = ObjectReference{numbers[0], numbers[1]};
    }
    trailer.fileSize = fileSize;
    trailer.endsWithNewline = tail.back() == 0x0A;
    return trailer;
}

std::optional<ParsedTrailer> parseTrailer(const std::filesystem::path& fileAt) {
    const int fd = ::open(fileAt.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    std::optional<ParsedTrailer> result;
    const off_t end = ::lseek(fd, 0, SEEK_END);
    if (end > 0) {
        const std::size_t want = static_cast<std::size_t>(std::min<off_t>(end, trailerSearchWindow));
        std::vector<std::uint8_t> tail(want);
        std::size_t got = 0;
        const off_t start = end - static_cast<off_t>(want);
        while (got < want) {
            const ssize_t n = ::pread(fd, tail.data() + got, want - got, start + static_cast<off_t>(got));
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            got += static_cast<std::size_t>(n);
        }
        if (got == want) result = parseTrailer(tail, static_cast<std::int64_t>(end));
    }
    ::close(fd);
    return result;
}

// MARK: the update

std::optional<std::string> encodePDFInfoValue(const MetadataValue& value) {
    switch (value.kind()) {
        case MetadataValue::Kind::date: {
            const std::time_t t = std::chrono::system_clock::to_time_t(value.asDate());
            std::tm tm{};
            if (!::gmtime_r(&t, &tm)) return std::nullopt;
            const int year = tm.tm_year + 1900;
            if (year < 0 || year > 9999) return std::nullopt;
            char buffer[48];
            std::snprintf(buffer, sizeof buffer, "(D:%04d%02d%02d%02d%02d%02d+00'00')", year, tm.tm_mon + 1,
                          tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec);
            return std::string(buffer);
        }
        case MetadataValue::Kind::string: {
            auto units = utf16Units(value.asString());
            if (!units) return std::nullopt;
            std::string out = "<FEFF";
            char buffer[8];
            for (std::uint16_t unit : *units) {
                std::snprintf(buffer, sizeof buffer, "%04X", static_cast<unsigned>(unit));
                out += buffer;
            }
            out += '>';
            return out;
        }
        case MetadataValue::Kind::array: {
            std::string joined;
            bool first = true;
            for (const auto& element : value.asArray()) {
                if (element.kind() != MetadataValue::Kind::string) return std::nullopt;
                if (!first) joined += ", ";
                joined += element.asString();
                first = false;
            }
            return encodePDFInfoValue(MetadataValue::string(joined));
        }
        case MetadataValue::Kind::number:
        case MetadataValue::Kind::integer:
        case MetadataValue::Kind::boolean:
        case MetadataValue::Kind::data:
        case MetadataValue::Kind::dictionary:
        case MetadataValue::Kind::null:
            return std::nullopt;
    }
    return std::nullopt;
}

std::optional<std::vector<std::uint8_t>> makeInfoOverrideUpdate(const ParsedTrailer& trailer,
                                                                const std::vector<KeptInfoEntry>& keeping) {
    const std::int64_t objectNumber = trailer.size;
    std::string dictionary;
    if (keeping.empty()) {
        dictionary = "<< >>";
    } else {
        dictionary = "<< ";
        for (std::size_t i = 0; i < keeping.size(); ++i) {
            if (i > 0) dictionary += ' ';
            dictionary += '/' + keeping[i].pdfKey + ' ' + keeping[i].encoded;
        }
        dictionary += " >>";
    }
    const std::string object = std::to_string(objectNumber) + " 0 obj\n" + dictionary + "\nendobj\n";
    // The update is written as ISO Latin-1; everything we encode is ASCII, and anything else
    // would be a value we cannot write faithfully.
    if (!isAscii(object) || !isAscii(trailer.rootRef) || !isAscii(trailer.prevStartxref)) return std::nullopt;

    const std::int64_t objectOffset = trailer.fileSize + (trailer.endsWithNewline ? 0 : 1);
    // A cross-reference entry has room for ten digits of offset.
    if (objectOffset > 9999999999LL) return std::nullopt;
    const std::int64_t xrefOffset = objectOffset + static_cast<std::int64_t>(object.size());

    char entry[32];
    std::snprintf(entry, sizeof entry, "%010lld 00000 n \n", static_cast<long long>(objectOffset));
    std::string tail = "xref\n0 1\n0000000000 65535 f \n";
    tail += std::to_string(objectNumber) + " 1\n";
    tail += entry;
    tail += "trailer\n<< /Size " + std::to_string(objectNumber + 1) + " /Root " + trailer.rootRef + " /Info " +
            std::to_string(objectNumber) + " 0 R " + "/Prev " + trailer.prevStartxref + " >>\n";
    tail += "startxref\n" + std::to_string(xrefOffset) + "\n%%EOF\n";

    std::vector<std::uint8_t> update;
    update.reserve(object.size() + tail.size() + 1);
    if (!trailer.endsWithNewline) update.push_back(0x0A);
    append(update, object);
    append(update, tail);
    return update;
}

std::optional<std::vector<std::uint8_t>> makeInfoOverrideUpdate(const std::filesystem::path& fileAt,
                                                                const std::vector<KeptInfoEntry>& keeping) {
    auto trailer = parseTrailer(fileAt);
    if (!trailer) return std::nullopt;
    return makeInfoOverrideUpdate(*trailer, keeping);
}

void appendUpdate(std::span<const std::uint8_t> update, const std::filesystem::path& toFileAt) {
    const int fd = ::open(toFileAt.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    if (fd < 0) {
        const int err = errno;
        throw FileSystemError("Cannot write " + toFileAt.filename().string() + ": " + std::strerror(err), err);
    }
    std::size_t done = 0;
    while (done < update.size()) {
        const ssize_t n = ::write(fd, update.data() + done, update.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            const int err = n < 0 ? errno : EIO;
            ::close(fd);
            throw FileSystemError("Cannot write " + toFileAt.filename().string() + ": " + std::strerror(err), err);
        }
        done += static_cast<std::size_t>(n);
    }
    if (::close(fd) != 0) {
        const int err = errno;
        throw FileSystemError("Cannot write " + toFileAt.filename().string() + ": " + std::strerror(err), err);
    }
}

// MARK: blanking

std::optional<std::size_t> lastObjectHeaderOffset(std::int64_t objectNumber, std::int64_t generation, ByteView data) {
    if (objectNumber < 0 || generation < 0) return std::nullopt;
    const std::string needle = std::to_string(objectNumber) + ' ' + std::to_string(generation) + " obj";
    std::optional<std::size_t> last;
    std::size_t from = 0;
    while (auto at = findBytes(data, needle, from)) {
        if (matches(needle, data, *at)) last = *at;
        from = *at + 1;
    }
    return last;
}

std::optional<std::size_t> indexOfDictionaryOpen(ByteView data, std::size_t from) {
    if (from >= data.size()) return std::nullopt;
    const std::size_t limit = std::min(data.size(), from + 64);
    auto hit = findBytes(data.first(limit), "obj", from);
    if (!hit) return std::nullopt;
    std::size_t i = *hit + 3;
    while (i < data.size() && isDictionaryWhitespace(data[i])) ++i;
    if (data.size() - i >= 2 && data[i] == '<' && data[i + 1] == '<') return i;
    return std::nullopt;
}

std::optional<std::size_t> skipLiteralString(ByteView data, std::size_t openParen) {
    std::size_t depth = 1;
    std::size_t i = openParen + 1;
    while (i < data.size()) {
        const std::uint8_t b = data[i];
        if (b == '(') {
            ++depth;
            ++i;
        } else if (b == ')') {
            if (--depth == 0) return i + 1;
            ++i;
        } else if (b == '\\') {
            i += 2;
        } else {
            ++i;
        }
    }
    return std::nullopt;
}

std::optional<std::size_t> indexOfMatchingDictionaryClose(ByteView data, std::size_t interiorStart) {
    std::size_t level = 1;
    std::size_t i = interiorStart;
    while (i < data.size()) {
        const std::uint8_t b = data[i];
        if (b == '(') {
            auto next = skipLiteralString(data, i);
            if (!next) return std::nullopt;
            i = *next;
        } else if (b == '<') {
            if (i + 1 < data.size() && data[i + 1] == '<') {
                ++level;
                i += 2;
            } else {
                auto close = findBytes(data, ">", i + 1);
                if (!close) return std::nullopt;
                i = *close + 1;
            }
        } else if (b == '>') {
            if (i + 1 >= data.size() || data[i + 1] != '>') return std::nullopt;
            if (--level == 0) return i;
            i += 2;
        } else {
            ++i;
        }
    }
    return std::nullopt;
}

bool neutralizeSupersededInfoObject(const std::filesystem::path& atFileAt) {
    auto trailer = parseTrailer(atFileAt);
    if (!trailer) return false;
    if (!trailer->infoRef) return true;
    std::size_t interiorStart = 0;
    std::size_t close = 0;
    try {
        MappedFile file(atFileAt);
        const ByteView data = file.bytes();
        auto header = lastObjectHeaderOffset(trailer->infoRef->object, trailer->infoRef->generation, data);
        if (!header) return false;
        auto open = indexOfDictionaryOpen(data, *header);
        if (!open) return false;
        interiorStart = *open + 2;
        auto closeAt = indexOfMatchingDictionaryClose(data, interiorStart);
        if (!closeAt || *closeAt < interiorStart) return false;
        close = *closeAt;
    } catch (const std::exception&) {
        return false;
    }
    if (close == interiorStart) return true;

    const int fd = ::open(atFileAt.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0) return false;
    const std::vector<std::uint8_t> blanks(close - interiorStart, 0x20);
    std::size_t done = 0;
    bool ok = true;
    while (done < blanks.size()) {
        const ssize_t n = ::pwrite(fd, blanks.data() + done, blanks.size() - done,
                                   static_cast<off_t>(interiorStart + done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            ok = false;
            break;
        }
        done += static_cast<std::size_t>(n);
    }
    if (::close(fd) != 0) ok = false;
    return ok;
}

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
