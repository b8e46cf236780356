#pragma once
// AIFF and AIFF-C metadata: the text chunks NAME, AUTH, "(c) " and ANNO, the COMT comments,
// and an embedded ID3 chunk. Sound data is skipped. Text chunks are named in the common key
// space ("comn/title"), the rest by chunk id ("aiff/ANNO").

#include "av/av_asset.h"

namespace tavrin::aiffWalker {

// Throws AVContainerError: chunkSizePastEnd for a FORM or chunk size beyond its container.
void walk(const ByteSource& source, AVAssetMetadata& out);

}  // namespace tavrin::aiffWalker
