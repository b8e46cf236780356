#pragma once
// The JPEG (ITU T.81) marker syntax that both the image layer and the PDF layer walk.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace tavrin::jpegMarkers {

// Markers that stand alone, without a length: TEM and the restart markers.
inline bool isStandalone(std::uint8_t marker) { return marker == 0x01 || (marker >= 0xD0 && marker <= 0xD7); }

// The index of the next marker behind entropy-coded data that starts at `i`, or the end of the
// data. Stuffed zero bytes, restart markers and fill bytes belong to the data.
inline std::size_t skipEntropyCodedData(std::span<const std::uint8_t> jpeg, std::size_t i) {
    const std::size_t n = jpeg.size();
    while (i < n) {
        const void* hit = std::memchr(jpeg.data() + i, 0xFF, n - i);
        if (!hit) return n;
        i = static_cast<std::size_t>(static_cast<const std::uint8_t*>(hit) - jpeg.data());
        if (i + 1 >= n) return n;
        const std::uint8_t next = jpeg[i + 1];
        if (next == 0x00 || (next >= 0xD0 && next <= 0xD7)) {
            i += 2;
        } else if (next == 0xFF) {
            i += 1;
        } else {
            return i;
        }
    }
    return n;
}

}  // namespace tavrin::jpegMarkers
