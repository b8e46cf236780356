#include "image/iso_boxes.h"

namespace tavrin::image::isoBoxes {

using Case = ImageFormatError::Case;

std::vector<Box> boxesIn(ByteSpan d, std::size_t& budget) {
    std::vector<Box> out;
    std::size_t at = 0;
    while (at + 8 <= d.size()) {
        enforce(budget > 0, Case::limitExceeded, "too many boxes");
        --budget;
        std::uint64_t size = be32(d, at);
        std::size_t header = 8;
        if (size == 1) {
            size = be64(d, at + 8);
            header = 16;
        } else if (size == 0) {
            size = d.size() - at;
        }
        enforce(size >= header && size <= d.size() - at, Case::invalidStructure, "a box runs past its parent");
        std::string type = text(d.subspan(at + 4, 4));
        if (type == "uuid") header += 16;
        enforce(header <= size, Case::invalidStructure, "a box is shorter than its header");
        out.push_back({std::move(type), d.subspan(at, static_cast<std::size_t>(size)),
                       d.subspan(at + header, static_cast<std::size_t>(size) - header)});
        at += static_cast<std::size_t>(size);
    }
    return out;
}

}  // namespace tavrin::image::isoBoxes
