#pragma once
// Builders of "dirty" sample files for the benchmarks and the demo: every privacy field carries
// something. Deterministic: the same call gives the same bytes.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace tavrin::corpus {

using Bytes = std::vector<std::uint8_t>;

// A JPEG of `width`×`height` with Exif (camera, dates, GPS, software, author, thumbnail), XMP,
// IPTC and a comment.
Bytes dirtyJPEG(int width, int height, std::uint32_t variant);
// A PNG with text chunks (author, software, comment, time), XMP and an eXIf chunk.
Bytes dirtyPNG(int width, int height, std::uint32_t variant);
// A two-page TIFF with camera, author, software, dates, XMP and IPTC tags.
void writeDirtyTIFF(const std::filesystem::path& path, int width, int height, std::uint32_t variant);
// A WebP with EXIF and XMP chunks.
Bytes dirtyWebP(int width, int height, std::uint32_t variant);
// An animated GIF (three frames) with comment extensions.
Bytes dirtyGIF(int width, int height, std::uint32_t variant);
// A HEIC with Exif and XMP; empty when this system's libheif has no HEVC encoder.
Bytes dirtyHEIC(int width, int height, std::uint32_t variant);
// A PDF with Info, XMP, an annotation with an author, and an incremental update whose first
// revision holds other Info values. `pages` pages of text.
Bytes dirtyPDF(int pages, std::uint32_t variant);

// The Exif block (TIFF structure, without the "Exif\0\0" header) the image builders insert.
Bytes dirtyExif(std::uint32_t variant, const Bytes& thumbnailJPEG);
// An XMP packet with creator, tool, dates, location and history.
std::string dirtyXMP(std::uint32_t variant);

void writeFile(const std::filesystem::path& path, const Bytes& bytes);

}  // namespace tavrin::corpus
