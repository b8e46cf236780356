#pragma once
// HEIF and HEIC files (ISO/IEC 23008-12): the item boxes of the meta box (hdlr, pitm, iinf, iloc,
// iref, iprp with ipco and ipma, idat) and the Exif and XMP items that describe an image.
// Rebuilding writes a new meta box and a single mdat holding the kept items' data unchanged.

#include <cstdint>
#include <vector>

#include "image/image_properties.h"

namespace tavrin::image::heifContainer {

// One property tree per top-level image (the primary first): size, depth, alpha, the colour
// profile's name and the Exif and XMP items that describe it. An item whose location points
// outside the file, loops of boxes and excessive counts throw `ImageFormatError`.
std::vector<Properties> readFrames(ByteSpan heif);

// The item ids of the images `readFrames` reports, in the same order. Throws `ImageFormatError`.
std::vector<std::uint32_t> frameItemIDs(ByteSpan heif);

// True when both files hold the same coded images under the same ids: item types and data,
// decoding properties in order, derivation references, the same primary and top-level images.
// What surrounds them (metadata items, thumbnails, box layout) may differ. Never throws.
bool sameCodedImages(ByteSpan a, ByteSpan b);

// ftyp, then a meta box with the coded image items, their properties and references, and Exif
// and XMP items rebuilt from what survived in the frame they describe; thumbnails, other
// metadata items, entity groups and every other top-level box are dropped.
Bytes rebuild(ByteSpan heif, const std::vector<Properties>& filteredFrames);

}  // namespace tavrin::image::heifContainer
