#pragma once
// Metadata of ISO base media and QuickTime files: user data atoms (`moov/udta`, track
// `udta`), `meta` with `keys` and `ilst` (QuickTime metadata and iTunes lists), and the
// creation and modification times of `mvhd`, `tkhd` and `mdhd`. Only `moov` and its metadata
// boxes are read; the media data is skipped by its size.

#include "av/av_asset.h"

namespace tavrin::quickTimeWalker {

// Appends what the file holds to `out`. Throws AVContainerError on an atom whose size is
// invalid or larger than its parent, and on nesting deeper than `avLimits::maxDepth`.
void walk(const ByteSource& source, AVAssetMetadata& out);

// The value of an iTunes or QuickTime `data` atom from its type indicator.
AVRawValue dataAtomValue(std::uint32_t typeIndicator, std::span<const std::uint8_t> bytes);

}  // namespace tavrin::quickTimeWalker
