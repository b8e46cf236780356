#pragma once
// Finds the parts of a JPEG stream (ITU T.81) that carry no metadata, so a photo inside a PDF
// can lose its APPn and COM segments without decoding a single pixel. The Adobe APP14 segment
// stays: it tells a decoder how to convert CMYK and YCCK colour and carries nothing personal.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace tavrin::jpegSegments {

struct ByteRange {
    std::size_t offset = 0;
    std::size_t length = 0;
    bool operator==(const ByteRange&) const = default;
};

// The ranges to keep, in order: everything from SOI to EOI except metadata segments; bytes after
// EOI are dropped. Empty when the data is no JPEG this parser can follow.
std::optional<std::vector<ByteRange>> rangesWithoutMetadata(std::span<const std::uint8_t> jpeg);

// True when the JPEG still holds a metadata segment, or cannot be parsed to prove it does not.
bool mayCarryMetadata(std::span<const std::uint8_t> jpeg);

}  // namespace tavrin::jpegSegments
