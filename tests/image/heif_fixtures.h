#pragma once
// HEIC files laid out as phones write them, assembled box by box around coded images that
// libheif (x265) encodes: the primary image a grid of hidden tiles whose grid description lies in
// the item data box, a thumbnail, Exif and XMP items describing the grid, and auxiliary alpha and
// depth images.

#include <cstdint>
#include <string>

#include "image/image_bytes.h"

namespace tavrin::testing::images {

struct PhoneHEICOptions {
    std::uint32_t tileSize = 32;          // the grid is 2 × 2 tiles
    std::uint32_t missingTile = 0;        // when not 0, the grid names this item id as its last tile
    bool xmpInItemData = true;            // the XMP item lies in idat, beside the grid description
    std::string profileName = "Display P3";  // description of the colour profile of the grid
    bool hiddenTiles = true;              // as most phones mark them; some leave them visible
};

// Empty when this system's libheif cannot encode HEVC.
image::Bytes phoneHEIC(const PhoneHEICOptions& options = {});

}  // namespace tavrin::testing::images
