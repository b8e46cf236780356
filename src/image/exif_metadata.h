#pragma once
// Exif and TIFF tags as properties: the {TIFF}, {Exif} and {GPS} dictionaries with the key names
// of the image key tables, the maker note as an opaque entry, and the way back from a filtered
// property tree to the directories that keep exactly the entries that survived.

#include <cstdint>
#include <string>

#include "image/image_properties.h"
#include "image/tiff_structure.h"

namespace tavrin::image {

// Where the directories come from: an Exif block inside another container, or a TIFF file
// whose first directory also describes the pixels.
enum class ExifContext { embedded, tiffFile };

// Adds the dictionaries of page `page`, and the top-level facts it states (Orientation, DPI; for
// a TIFF file also size, depth, colour model, alpha and the ICC name), to `frame`.
void addExifProperties(const TiffStructure& tiff, std::size_t page, ExifContext context, Properties& frame);

// The entries of `page` whose keys survive in `filtered`, in the source byte order. For a TIFF
// file the tags a decoder needs are always kept; the XMP, IPTC and Photoshop blobs and the
// strips are left to the caller.
TiffOutPage filteredExifPage(const TiffStructure& tiff, std::size_t page, ExifContext context,
                             const Properties& filtered);

// A complete Exif block (TIFF header onward) of the surviving entries; empty when none survive.
Bytes filteredExifBlock(const TiffStructure& tiff, const Properties& filtered);

// An Exif block holding nothing but the orientation.
Bytes orientationOnlyExif(std::uint16_t orientation);

// The name of the dictionary that holds the maker note of a camera of this make.
std::string_view makerNoteDictionary(std::string_view make);

}  // namespace tavrin::image
