#include "pdf/jpeg_metadata_segments.h"

#include <cstring>

#include "model/jpeg_markers.h"

namespace tavrin::jpegSegments {

namespace {

bool isMetadataMarker(std::uint8_t marker) { return (marker >= 0xE0 && marker <= 0xEF) || marker == 0xFE; }

// The fixed-size Adobe segment: "Adobe", version, two flag words, colour transform.
bool isAdobeColourSegment(std::span<const std::uint8_t> jpeg, std::size_t markerAt, std::size_t length) {
    return jpeg[markerAt + 1] == 0xEE && length == 14 && std::memcmp(jpeg.data() + markerAt + 4, "Adobe", 5) == 0;
}

void keep(std::vector<ByteRange>& ranges, std::size_t offset, std::size_t length) {
    if (length == 0) return;
    if (!ranges.empty() && ranges.back().offset + ranges.back().length == offset) {
        ranges.back().length += length;
    } else {
        ranges.push_back({offset, length});
    }
}

}  // namespace

std::optional<std::vector<ByteRange>> rangesWithoutMetadata(std::span<const std::uint8_t> jpeg) {
    const std::size_t n = jpeg.size();
    if (n < 4 || jpeg[0] != 0xFF || jpeg[1] != 0xD8) return std::nullopt;
    std::vector<ByteRange> ranges;
    keep(ranges, 0, 2);
    std::size_t i = 2;
    bool sawFrame = false;
    while (true) {
        if (i >= n) {
            // Data that ends inside entropy-coded data without EOI still decodes; a file that
            // ends before any scan does not.
            return sawFrame ? std::optional(ranges) : std::nullopt;
        }
        if (jpeg[i] != 0xFF) return std::nullopt;
        std::size_t markerAt = i;
        while (markerAt + 1 < n && jpeg[markerAt + 1] == 0xFF) ++markerAt;  // fill bytes
        if (markerAt + 1 >= n) return std::nullopt;
        const std::uint8_t marker = jpeg[markerAt + 1];
        if (marker == 0xD9) {
            keep(ranges, markerAt, 2);
            return sawFrame ? std::optional(ranges) : std::nullopt;
        }
        if (marker == 0xD8 || marker == 0x00) return std::nullopt;
        if (jpegMarkers::isStandalone(marker)) {
            keep(ranges, markerAt, 2);
            i = markerAt + 2;
            continue;
        }
        if (n - markerAt < 4) return std::nullopt;
        const std::size_t length = (static_cast<std::size_t>(jpeg[markerAt + 2]) << 8) | jpeg[markerAt + 3];
        if (length < 2 || n - (markerAt + 2) < length) return std::nullopt;
        const std::size_t segmentEnd = markerAt + 2 + length;
        if (!isMetadataMarker(marker) || isAdobeColourSegment(jpeg, markerAt, length))
            keep(ranges, markerAt, segmentEnd - markerAt);
        i = segmentEnd;
        if (marker == 0xDA) {
            sawFrame = true;
            const std::size_t next = jpegMarkers::skipEntropyCodedData(jpeg, i);
            keep(ranges, i, next - i);
            i = next;
        }
    }
}

bool mayCarryMetadata(std::span<const std::uint8_t> jpeg) {
    auto ranges = rangesWithoutMetadata(jpeg);
    if (!ranges) return true;
    std::size_t kept = 0;
    for (const auto& r : *ranges) kept += r.length;
    return kept != jpeg.size();
}

}  // namespace tavrin::jpegSegments
