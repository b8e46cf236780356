#pragma once
// ID3 tags: version 2.2 to 2.4 (unsynchronisation of the whole tag or of single frames,
// extended headers, v2.2's three-letter frames) and the 128-byte ID3v1 tag at the end of a file.

#include "av/av_asset.h"

namespace tavrin::id3Walker {

// The size of the ID3v2 tag at `offset` (header, body and footer), or 0 when none starts there.
// Throws AVContainerError: invalidSyncsafeInteger, tagSizePastEnd.
std::uint64_t tagSize(const ByteSource& source, std::uint64_t offset);

// Appends the frames of the ID3v2 tag at `offset`; returns its size (0 when none is there).
std::uint64_t readTag(const ByteSource& source, std::uint64_t offset, AVAssetMetadata& out);

// Appends the fields of an ID3v1 tag in the file's last 128 bytes, if there is one.
void readVersion1Tag(const ByteSource& source, AVAssetMetadata& out);

}  // namespace tavrin::id3Walker
