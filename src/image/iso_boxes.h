#pragma once
// The box structure of ISO base media files (HEIF, CR3): sibling boxes of one level, each with
// its type, whole extent and body. Callers descend by calling again on a body, so the depth is
// theirs to bound; the budget bounds the number of boxes over a whole walk.

#include <string>
#include <vector>

#include "image/image_bytes.h"

namespace tavrin::image::isoBoxes {

struct Box {
    std::string type;
    ByteSpan whole;
    ByteSpan body;  // after the header (a uuid box's identifier and a full box's version included)
};

// The boxes that follow one another in `d`; never descends. Throws ImageFormatError:
// invalidStructure for a box that runs past `d` or is shorter than its header, limitExceeded
// when `budget` runs out.
std::vector<Box> boxesIn(ByteSpan d, std::size_t& budget);

}  // namespace tavrin::image::isoBoxes
