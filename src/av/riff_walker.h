#pragma once
// RIFF metadata of WAV and AVI files: the `LIST/INFO` chunk, the broadcast-wave `bext` chunk,
// `iXML`, and an embedded ID3 tag. Chunks that hold media (`data`, `LIST/movi`) are skipped.
// INFO fields with a common meaning are named in the common key space ("comn/artist"); the
// others keep their chunk id ("riff/IENG").

#include "av/av_asset.h"

namespace tavrin::riffWalker {

// Throws AVContainerError: chunkSizePastEnd for a RIFF or chunk size beyond its container.
void walk(const ByteSource& source, AVAssetMetadata& out);

}  // namespace tavrin::riffWalker
