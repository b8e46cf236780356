#pragma once
// The two places where the media library (libavformat) serves: the stream-level tags of AVI,
// which our walkers do not read, and the passthrough remux of the writer. Nothing else in the
// reader touches the library, so inspecting other formats never initialises it.

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "av/av_asset.h"

namespace tavrin::avformatSupport {

// Appends each stream's tags as "avfs/stream<Key><N>" ("avfs/streamTitle2"). Throws
// AVMetadataReaderError (propertyLoadFailed) when the library cannot open the file.
void appendStreamTags(const std::filesystem::path& path, AVAssetMetadata& out);

struct RemuxRequest {
    std::filesystem::path source;
    std::filesystem::path destination;
    std::string muxer;  // libavformat's short name: "mov", "mp4", "ipod", "wav", "aiff", "mp3"
    // The only tags the copy gets, in the library's key names; no stream or chapter carries any.
    std::vector<std::pair<std::string, std::string>> metadata;
    // QuickTime: write the tags as `mdta` keys ("com.apple.quicktime.make") instead of user data.
    bool writeMetadataKeys = false;
};

struct RemuxOutcome {
    int copiedStreams = 0;
    // Attached pictures, data and timecode tracks: metadata in stream form, left out of the copy.
    int droppedStreams = 0;
};

// Copies the audio, video and subtitle packets of `source` unchanged into a new file at
// `destination`, with the bit-exact flag so the muxer adds no version strings. Throws
// AVWriterError: cannotCreateExportSession when the source or the muxer cannot be opened,
// exportFailed when copying fails; no file is left at `destination` then.
RemuxOutcome remux(const RemuxRequest& request);

}  // namespace tavrin::avformatSupport
