#pragma once
// GIF files (GIF87a, GIF89a): the block stream with its animation (graphic control extensions,
// the NETSCAPE2.0 loop), comment and application extensions. Rebuilding copies every image's
// descriptor, colour table and LZW data unchanged, with the delays and the loop count.

#include <vector>

#include "image/image_properties.h"

namespace tavrin::image::gifContainer {

// One property tree per image of the stream; the file's comments and XMP belong to every frame.
// More than 65,536 images throw `ImageFormatError` (`limitExceeded`).
std::vector<Properties> readFrames(ByteSpan gif);

// Header, screen descriptor and global colour table, the loop extension, the colour profile,
// then each image with its graphic control extension. Comments and XMP come back only for what
// survives in `filteredFrames[0]`; plain-text and unknown application extensions are dropped.
Bytes rebuild(ByteSpan gif, const std::vector<Properties>& filteredFrames);

}  // namespace tavrin::image::gifContainer
