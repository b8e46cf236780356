#pragma once
// FLAC metadata blocks: VORBIS_COMMENT (vendor string and comments) and PICTURE. Comments
// with a common meaning are named in the common key space ("comn/artist"), the others by
// their field name ("vorb/ENGINEER"). An ID3v2 tag in front of the stream is read as well.

#include "av/av_asset.h"

namespace tavrin::flacWalker {

// Throws AVContainerError: unterminatedBlockChain when the blocks run into the end of the file
// or into audio without a block marked last; chunkSizePastEnd for a block longer than the file.
void walk(const ByteSource& source, AVAssetMetadata& out);

}  // namespace tavrin::flacWalker
