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

// WebP: a still image encoded by libwebp (lossy, or lossless with alpha), an animation of
// `delaysMs.size()` frames with the given loop count, and the same with metadata chunks added
// by our own RIFF code: a VP8X header, an ICC profile, EXIF, XMP and an unknown chunk.
Bytes encodeWebP(int width, int height, bool lossless = false);
Bytes encodeAnimatedWebP(int width, int height, const std::vector<int>& delaysMs, int loopCount);
Bytes withWebPMetadata(const Bytes& webp, const Bytes& exif, const std::string& xmp, const Bytes& icc);

// GIF: frames encoded by giflib with graphic control extensions (delays in hundredths) and a
// NETSCAPE2.0 loop; a comment and an XMP application extension inserted by our own code.
Bytes encodeGIF(int width, int height, const std::vector<int>& delaysCs, int loopCount);
Bytes withGIFMetadata(const Bytes& gif, const std::string& comment, const std::string& xmp);

// HEIC encoded by libheif (x265) with a thumbnail, an Exif item and an XMP item; empty when
// this system's libheif cannot encode HEVC.
Bytes encodeHEIC(int width, int height, const Bytes& exif, const std::string& xmp);

// A bitmap written by our own code: 24-bit, with a version 5 header whose colour profile is
// linked to a file path, and a few bytes of trailing data.
Bytes encodeBMP(int width, int height);

Bytes toBytes(std::string_view s);

}  // namespace tavrin::testing::images
