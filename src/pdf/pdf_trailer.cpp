// The last classic trailer of a file, read from at most its last 65,536 bytes.
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

#include "pdf/pdf_byte_scan.h"

namespace tavrin::pdfBytes {

using namespace detail;

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

}  // namespace tavrin::pdfBytes
