#pragma once
// Windows bitmaps: the file header, the info header in any of its versions (core, 3, 4, 5), the
// colour masks and palette, the pixel array, and a version 5 colour profile. A bitmap carries no
// descriptive metadata; rebuilding drops what lies outside those parts and a linked profile's
// file path, which names a place on someone's disk.

#include <vector>

#include "image/image_properties.h"

namespace tavrin::image::bmpContainer {

struct BMPLayout {
    std::uint32_t headerSize = 0;  // of the info header
    std::int32_t width = 0, height = 0;  // a negative height means top-down rows
    std::uint16_t bitCount = 0;
    std::uint32_t compression = 0;
    std::size_t masksSize = 0;  // bit masks that follow a version 3 header
    std::size_t paletteSize = 0;  // bytes
    std::uint32_t colorsUsed = 0;
    ByteSpan infoHeader, masks, palette, pixels;
    std::uint32_t profileKind = 0;  // the colour space type of a version 4/5 header
    ByteSpan profile;  // an embedded profile's bytes
    std::uint32_t xPelsPerMeter = 0, yPelsPerMeter = 0;
    bool alpha = false;
};

// Throws `ImageFormatError` for anything that is no complete bitmap.
BMPLayout parse(ByteSpan bmp);

Properties readProperties(ByteSpan bmp);

Bytes rebuild(ByteSpan bmp);

}  // namespace tavrin::image::bmpContainer
