#include "image/bmp_container.h"

#include <cmath>
#include <cstdlib>

#include "image/icc_profile.h"

namespace tavrin::image::bmpContainer {

namespace {

using Case = ImageFormatError::Case;

constexpr std::uint32_t biRGB = 0, biRLE8 = 1, biRLE4 = 2, biBitfields = 3, biAlphaBitfields = 6;
constexpr std::uint32_t profileLinked = 0x4C494E4B, profileEmbedded = 0x4D424544;  // 'LINK', 'MBED'
constexpr std::uint32_t lcsSRGB = 0x73524742;  // 'sRGB'
constexpr std::int64_t maxDimension = 1 << 20;

std::uint64_t rowBytes(std::uint64_t width, std::uint16_t bitCount) { return (width * bitCount + 31) / 32 * 4; }

}  // namespace

BMPLayout parse(ByteSpan d) {
    enforce(d.size() >= 26 && startsWith(d, "BM"), Case::unknownFormat, "no bitmap file header");
    BMPLayout l;
    const std::uint32_t pixelOffset = le32(d, 10);
    l.headerSize = le32(d, 14);
    enforce(l.headerSize == 12 || l.headerSize == 40 || l.headerSize == 52 || l.headerSize == 56 ||
                l.headerSize == 64 || l.headerSize == 108 || l.headerSize == 124,
            Case::invalidStructure, "a bitmap info header has an unknown size");
    l.infoHeader = slice(d, 14, l.headerSize);
    const ByteSpan h = l.infoHeader;
    if (l.headerSize == 12) {
        l.width = le16(h, 4);
        l.height = le16(h, 6);
        l.bitCount = le16(h, 10);
    } else {
        l.width = static_cast<std::int32_t>(le32(h, 4));
        l.height = static_cast<std::int32_t>(le32(h, 8));
        l.bitCount = le16(h, 14);
        l.compression = le32(h, 16);
        l.xPelsPerMeter = le32(h, 24);
        l.yPelsPerMeter = le32(h, 28);
        l.colorsUsed = le32(h, 32);
    }
    enforce(le16(h, l.headerSize == 12 ? 8 : 12) == 1, Case::invalidStructure, "a bitmap has more than one plane");
    enforce(l.width > 0 && l.width <= maxDimension && l.height != 0 && std::llabs(l.height) <= maxDimension,
            Case::invalidStructure, "a bitmap has an impossible size");
    enforce(l.bitCount == 1 || l.bitCount == 4 || l.bitCount == 8 || l.bitCount == 16 || l.bitCount == 24 ||
                l.bitCount == 32,
            Case::invalidStructure, "a bitmap has an unknown bit depth");
    enforce(l.compression == biRGB || l.compression == biRLE8 || l.compression == biRLE4 ||
                l.compression == biBitfields || l.compression == biAlphaBitfields,
            Case::invalidStructure, "a bitmap uses a compression Tavrin cannot verify");
    enforce(l.compression != biRLE8 || l.bitCount == 8, Case::invalidStructure, "RLE8 needs 8 bits per pixel");
    enforce(l.compression != biRLE4 || l.bitCount == 4, Case::invalidStructure, "RLE4 needs 4 bits per pixel");
    if ((l.compression == biBitfields || l.compression == biAlphaBitfields) && l.headerSize == 40)
        l.masksSize = l.compression == biAlphaBitfields ? 16 : 12;
    l.masks = slice(d, 14 + l.headerSize, l.masksSize);
    if (l.bitCount <= 8) {
        const std::uint32_t entries = l.colorsUsed ? l.colorsUsed : (1u << l.bitCount);
        enforce(entries <= (1u << l.bitCount), Case::invalidStructure, "a bitmap palette is too large");
        l.paletteSize = std::size_t{entries} * (l.headerSize == 12 ? 3 : 4);
    }
    const std::size_t paletteAt = 14 + l.headerSize + l.masksSize;
    enforce(pixelOffset >= paletteAt, Case::invalidStructure, "bitmap pixels overlap the header");
    // A palette may be shorter than declared when the pixel array starts earlier.
    l.paletteSize = std::min<std::size_t>(l.paletteSize, pixelOffset - paletteAt);
    l.palette = slice(d, paletteAt, l.paletteSize);
    const std::uint64_t rows = static_cast<std::uint64_t>(std::llabs(l.height));
    if (l.compression == biRLE8 || l.compression == biRLE4) {
        enforce(l.height > 0, Case::invalidStructure, "a compressed bitmap cannot be top-down");
        const std::uint32_t size = le32(h, 20);
        l.pixels = slice(d, pixelOffset, size ? size : d.size() - std::min<std::size_t>(pixelOffset, d.size()));
    } else {
        const std::uint64_t size = rowBytes(static_cast<std::uint64_t>(l.width), l.bitCount) * rows;
        enforce(size <= d.size(), Case::truncated, "bitmap pixels run past the end of the file");
        l.pixels = slice(d, pixelOffset, static_cast<std::size_t>(size));
    }
    if (l.headerSize >= 108) {
        l.profileKind = le32(h, 56);
        if (l.headerSize == 124 && (l.profileKind == profileEmbedded || l.profileKind == profileLinked)) {
            const std::uint32_t at = le32(h, 112), size = le32(h, 116);
            if (l.profileKind == profileEmbedded) l.profile = slice(d, 14 + std::size_t{at}, size);
        }
    }
    if (l.bitCount == 32) {
        if (l.compression == biAlphaBitfields && l.masksSize == 16) l.alpha = le32(l.masks, 12) != 0;
        else if (l.headerSize >= 56) l.alpha = le32(h, 52) != 0;
    }
    return l;
}

Properties readProperties(ByteSpan d) {
    const BMPLayout l = parse(d);
    Properties frame;
    set(frame, key::pixelWidth, MetadataValue::integer(l.width));
    set(frame, key::pixelHeight, MetadataValue::integer(std::llabs(l.height)));
    set(frame, key::depth, MetadataValue::integer(l.bitCount <= 8 ? 8 : l.bitCount == 16 ? 5 : 8));
    set(frame, key::colorModel, MetadataValue::string("RGB"));
    set(frame, key::hasAlpha, MetadataValue::boolean(l.alpha));
    if (l.xPelsPerMeter > 0 && l.yPelsPerMeter > 0) {
        set(frame, key::dpiWidth, MetadataValue::integer(std::lround(l.xPelsPerMeter * 0.0254)));
        set(frame, key::dpiHeight, MetadataValue::integer(std::lround(l.yPelsPerMeter * 0.0254)));
    }
    if (!l.profile.empty())
        if (auto name = iccProfileDescription(l.profile)) set(frame, key::profileName, MetadataValue::string(*name));
    return frame;
}

Bytes rebuild(ByteSpan d) {
    const BMPLayout l = parse(d);
    Bytes header(l.infoHeader.begin(), l.infoHeader.end());
    const std::size_t pixelOffset = 14 + header.size() + l.masksSize + l.paletteSize;
    std::size_t profileAt = 0;
    if (l.headerSize == 124 && l.profileKind == profileLinked) {
        // A linked profile is a file name; sRGB stands in for it.
        for (int i = 0; i < 4; ++i) header[56 + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(lcsSRGB >> (8 * i));
        std::fill(header.begin() + 112, header.begin() + 120, 0);
    } else if (l.headerSize == 124 && l.profileKind == profileEmbedded) {
        profileAt = pixelOffset + l.pixels.size();
        const std::uint32_t relative = static_cast<std::uint32_t>(profileAt - 14);
        for (int i = 0; i < 4; ++i) header[112 + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(relative >> (8 * i));
    }
    if (l.headerSize >= 40 && (l.compression == biRLE8 || l.compression == biRLE4)) {
        const auto size = static_cast<std::uint32_t>(l.pixels.size());
        for (int i = 0; i < 4; ++i) header[20 + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(size >> (8 * i));
    }
    Bytes out = {'B', 'M'};
    const std::size_t total = pixelOffset + l.pixels.size() + l.profile.size();
    enforce(total <= 0xFFFFFFFFu, Case::limitExceeded, "a bitmap would exceed 4 GB");
    putLE32(out, static_cast<std::uint32_t>(total));
    putLE32(out, 0);  // the reserved fields, which some writers fill with their own marks
    putLE32(out, static_cast<std::uint32_t>(pixelOffset));
    append(out, header);
    append(out, l.masks);
    append(out, l.palette);
    append(out, l.pixels);
    if (profileAt) append(out, l.profile);
    return out;
}

}  // namespace tavrin::image::bmpContainer
