#pragma once
// WebP RIFF files: the simple lossy and lossless forms and the extended form (VP8X) with alpha,
// ICC, EXIF and XMP chunks and animation frames (ANIM, ANMF). Rebuilding keeps the coded frames
// byte for byte and writes only the chunks a decoder needs plus the metadata that survived.

#include <vector>

#include "image/image_properties.h"

namespace tavrin::image::webpContainer {

// One property tree per frame (one for a still image); the file's EXIF and XMP belong to every
// frame. Throws `ImageFormatError`.
std::vector<Properties> readFrames(ByteSpan webp);

// VP8X (flags recomputed), ICCP, ANIM, the frames (ANMF rebuilt from their ALPH and VP8/VP8L
// sub-chunks), EXIF and XMP rebuilt from `filteredFrames[0]`; every other chunk is dropped.
Bytes rebuild(ByteSpan webp, const std::vector<Properties>& filteredFrames);

}  // namespace tavrin::image::webpContainer
