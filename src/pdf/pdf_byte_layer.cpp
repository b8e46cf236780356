// The byte layer's shared primitives: what counts as a delimiter, and a token match bounded by them.
// The trailer, the update, the blanking and the string decoding live in files of their own.
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

}  // namespace tavrin::pdfBytes
