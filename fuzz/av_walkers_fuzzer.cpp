// Feeds arbitrary bytes to the media container walkers: first through the loader, which sniffs
// the container as the product does, then through every walker directly, so that each one sees
// inputs the sniffing would have turned away.
#include <cstddef>
#include <cstdint>
#include <exception>
#include <span>

#include "av/aiff_walker.h"
#include "av/av_asset.h"
#include "av/byte_source.h"
#include "av/flac_walker.h"
#include "av/id3_walker.h"
#include "av/quicktime_walker.h"
#include "av/riff_walker.h"

namespace {

template <typename Walk>
void attempt(Walk&& walk) {
    try {
        walk();
    } catch (const std::exception&) {
        // Rejection is the expected outcome for most inputs; only crashes and hangs matter.
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tavrin;
    const MemoryByteSource source(std::span<const std::uint8_t>(data, size));
    attempt([&] { avAssetLoader::load(source); });
    attempt([&] { AVAssetMetadata out; quickTimeWalker::walk(source, out); });
    attempt([&] { AVAssetMetadata out; riffWalker::walk(source, out); });
    attempt([&] { AVAssetMetadata out; aiffWalker::walk(source, out); });
    attempt([&] { AVAssetMetadata out; flacWalker::walk(source, out); });
    attempt([&] { AVAssetMetadata out; id3Walker::readTag(source, 0, out); });
    attempt([&] { AVAssetMetadata out; id3Walker::readVersion1Tag(source, out); });
    return 0;
}
