#pragma once
// Images for the tests, made here: pixels encoded with the same libraries the decoders use, then
// metadata inserted with our own writer code.

#include <cstdint>
#include <string>
#include <vector>

#include "image/image_bytes.h"
#include "image/tiff_structure.h"

namespace tavrin::testing::images {

using image::Bytes;

// A gradient, so that decoded pixels can be compared.
Bytes encodeJPEG(int width, int height);
Bytes encodePNG(int width, int height, bool alpha = false);

struct ExifOptions {
    bool gps = true;
    std::uint16_t orientation = 6;
    bool littleEndian = false;
};
// IFD0 (Make, Model, Software, DateTime, Artist, Orientation, resolution), an Exif IFD
// (DateTimeOriginal, LensModel, ISOSpeedRatings, ExifVersion, ColorSpace, BodySerialNumber) and,
// when asked, a GPS IFD near the Eiffel Tower.
image::TiffOutPage exifPage(const ExifOptions& options = {});
Bytes exifBlock(const ExifOptions& options = {});

// An ICC profile with only a description tag.
Bytes iccProfile(const std::string& description);
std::string xmpPacket();
Bytes iptcRecords();  // By-line and City

struct JPEGMetadata {
    Bytes exif;
    std::string xmp;
    Bytes iptc;  // wrapped in a Photoshop resource
    Bytes icc;
    std::string comment;
    bool mpf = false;
    std::string trailer;  // bytes after EOI
};
// Inserts segments right behind SOI (and the JFIF header, when there is one).
Bytes withJPEGMetadata(const Bytes& jpeg, const JPEGMetadata& metadata);
// A photo as a phone leaves it: Exif with GPS, XMP, IPTC, an sRGB profile, a comment.
Bytes dirtyJPEG();

struct PNGChunk {
    std::string type;
    Bytes data;
};
Bytes pngChunk(const std::string& type, const Bytes& data);
// Inserts chunks right behind IHDR.
Bytes withPNGChunks(const Bytes& png, const std::vector<PNGChunk>& chunks);
Bytes textChunk(const std::string& keyword, const std::string& text);
// Author, Software and Creation Time text, XMP, eXIf with GPS and a tIME.
Bytes dirtyPNG();

// A TIFF of `pages` pages encoded by libtiff (written through `scratch`), then given Make,
// Artist and an Exif IFD on every page and a GPS IFD on page `gpsPage` by our own writer.
Bytes dirtyTIFF(const std::string& scratch, int pages, int gpsPage);

Bytes toBytes(std::string_view s);

}  // namespace tavrin::testing::images
