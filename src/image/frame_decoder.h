#pragma once
// Full decoding of every frame, used only to prove that an image still displays: libjpeg-turbo,
// libpng, libwebp, giflib, libtiff and libheif; BMP by our own code. Pixels are decoded and
// dropped frame by frame, so at most one decoded frame is held at a time.

#include <cstdint>
#include <vector>

#include "image/image_source.h"

namespace tavrin::image {

struct FrameSize {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    bool operator==(const FrameSize&) const = default;
};

// No frame larger than this many pixels is decoded; such an image cannot be verified.
inline constexpr std::uint64_t maxDecodedPixels = 256'000'000;
// Nor more pixels than this over all frames of one file together: a small file whose many pages
// share one coded strip would otherwise decode for hours.
inline constexpr std::uint64_t maxTotalDecodedPixels = 1'000'000'000;

// The size of every frame, each fully decoded. Throws `ImageFormatError` (`decodeFailed`,
// `limitExceeded`) when any frame does not decode completely, or before decoding a frame that
// would take the file past `maxTotalDecodedPixels`.
std::vector<FrameSize> decodeAllFrames(ImageFormat format, ByteSpan data);

}  // namespace tavrin::image
