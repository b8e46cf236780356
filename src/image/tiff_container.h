#pragma once
// TIFF files (TIFF 6.0), one frame per directory of the main chain. Rebuilding writes each page
// anew: the tags a decoder needs, the metadata tags that survived filtering, rebuilt XMP, IPTC
// and Photoshop blobs, and the strips or tiles copied unchanged behind them.

#include <vector>

#include "image/image_properties.h"

namespace tavrin::image::tiffContainer {

std::vector<Properties> readFrames(ByteSpan tiff);

// The first page's properties of a TIFF-based raw file (DNG, NEF, ARW, CR2, ORF, RW2).
Properties readRawProperties(ByteSpan raw);

Bytes rebuild(ByteSpan tiff, const std::vector<Properties>& filteredFrames);

}  // namespace tavrin::image::tiffContainer
