#pragma once
// TIFF 6.0 image file directories: the chain of pages of a TIFF file and the IFDs inside an Exif
// block, read with every offset checked, and written back in the byte order they came in.

#include <cstdint>
#include <optional>
#include <vector>

#include "image/image_bytes.h"

namespace tavrin::image {

namespace tiffTag {
inline constexpr std::uint16_t exifIFD = 34665;
inline constexpr std::uint16_t gpsIFD = 34853;
inline constexpr std::uint16_t interopIFD = 40965;
inline constexpr std::uint16_t stripOffsets = 273;
inline constexpr std::uint16_t stripByteCounts = 279;
inline constexpr std::uint16_t tileOffsets = 324;
inline constexpr std::uint16_t tileByteCounts = 325;
inline constexpr std::uint16_t subIFDs = 330;
}  // namespace tiffTag

struct TiffEntry {
    std::uint16_t tag = 0;
    std::uint16_t type = 0;
    std::uint32_t count = 0;
    ByteSpan value;  // count × the type's size, in the structure's byte order
};

struct TiffDirectory {
    std::vector<TiffEntry> entries;
    const TiffEntry* find(std::uint16_t tag) const;
};

struct TiffPage {
    TiffDirectory main;
    std::optional<TiffDirectory> exif, gps, interop;
};

struct TiffStructure {
    Endian endian;
    ByteSpan data;  // from the byte-order mark on; offsets count from its start
    std::vector<TiffPage> pages;

    // Element `index` of a numeric entry as an unsigned integer; absent for other types.
    std::optional<std::uint64_t> unsignedValue(const TiffEntry& entry, std::size_t index = 0) const;
    // Element `index` of any numeric entry (rationals divided out); absent for others.
    std::optional<double> doubleValue(const TiffEntry& entry, std::size_t index = 0) const;
};

// Size of one value of a TIFF field type; 0 for a type TIFF 6.0 does not define.
std::size_t tiffTypeSize(std::uint16_t type);

// Reads the header and the IFD chain, at most `maxPages` directories, with their Exif, GPS and
// Interoperability directories. Loops, counts and offsets past the end throw `ImageFormatError`.
TiffStructure parseTiff(ByteSpan data, std::size_t maxPages);

// An entry to write; `value` is in the byte order of the output.
struct TiffOutEntry {
    std::uint16_t tag = 0;
    std::uint16_t type = 0;
    std::uint32_t count = 0;
    Bytes value;
};

struct TiffOutDirectory {
    std::vector<TiffOutEntry> entries;
    bool empty() const { return entries.empty(); }
};

struct TiffOutPage {
    TiffOutDirectory main;
    TiffOutDirectory exif, gps, interop;  // written, with their pointers, only when not empty
    // The strips or tiles, copied behind the directory; `offsetsTag` receives their new offsets.
    std::vector<ByteSpan> imageData;
    std::uint16_t offsetsTag = 0;
};

// A complete TIFF structure (header, directories, values, image data) in the given byte order.
Bytes writeTiff(Endian endian, const std::vector<TiffOutPage>& pages);

// Copies an entry as it stands; valid when input and output share the byte order.
TiffOutEntry copyEntry(const TiffEntry& entry);

}  // namespace tavrin::image
