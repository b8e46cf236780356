#pragma once
// Builders of "dirty" Office packages for the benchmarks and the demo: author and company
// properties, comments, tracked changes, rsids, hidden text and sheets, document variables, an
// attached template on a user's disk, printer settings, a thumbnail, and photos that carry
// Exif and GPS. Deterministic: the same call gives the same bytes.

#include <cstdint>

#include "corpus_builders.h"

namespace tavrin::corpus {

// A Word document of `paragraphs` paragraphs (one in five with a tracked change and one in
// seven with a comment) and `photos` embedded JPEGs of `photoWidth`×`photoHeight`.
Bytes dirtyDocx(int paragraphs, int photos, int photoWidth, int photoHeight, std::uint32_t variant);
// A workbook of `sheets` sheets of `rows` rows each; the second sheet is hidden and the third
// very hidden, and the first carries a comment.
Bytes dirtyXlsx(int sheets, int rows, std::uint32_t variant);
// A presentation of `slides` slides; the last is hidden and has notes, and one shape sits off
// the slide.
Bytes dirtyPptx(int slides, std::uint32_t variant);

}  // namespace tavrin::corpus
