// Blanking the superseded Info dictionary in place: finding its object and the end of its dictionary.
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

#include "pdf/mapped_file.h"
#include "pdf/pdf_byte_scan.h"

namespace tavrin::pdfBytes {

using namespace detail;

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

}  // namespace tavrin::pdfBytes
