#pragma once
// The writer for QuickTime, MPEG-4, M4A, MP3, WAV and AIFF files: a passthrough remux that
// copies every audio and video packet unchanged and gives the copy only the metadata the
// profile keeps. The output is not re-read, so every result says `verifiedClean` false; the
// pipeline's strict gate refuses these types before this writer is reached.

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "av/av_asset.h"
#include "model/metadata_reader.h"

namespace tavrin {

class AVMetadataWriter : public MetadataWriter {
public:
    std::set<FileType> supportedTypes() const override;
    // Throws PipelineError: writeFailed around AVWriterError (an extension with no output type,
    // or a remux that fails; no file is left at `destination` then), readFailed when the
    // source's metadata cannot be read.
    CleaningResult cleanMetadata(const std::filesystem::path& source, const std::filesystem::path& destination,
                                 const CleaningProfile& profile) const override;

    // The muxer for the lower-cased extension: "mov", "mp4" (mp4, m4v), "ipod" (m4a), "wav",
    // "aiff" (aiff, aif), "mp3"; none for anything else.
    static std::optional<std::string> avFileType(const std::filesystem::path& url);
    // True when the profile removes the five identifying categories and names no key: then
    // the copy gets no metadata at all and every entry is reported removed.
    static bool isFullStrip(const CleaningProfile& profile);
    // (kept, removed): keep-keys win, then remove-keys and removed categories; the rest is kept.
    static std::pair<std::vector<AVMetadataEntry>, std::vector<AVMetadataEntry>> filterMetadata(
        const std::vector<AVMetadataEntry>& entries, const CleaningProfile& profile);
    static MetadataCategory categorize(const AVMetadataEntry& entry);
    // Key space name, ".", key ("AV.unknown" for an entry without identifier).
    static std::string metadataKey(const AVMetadataEntry& entry);
    // The item that reports an entry, with its value. Throws AVMetadataReaderError
    // (propertyLoadFailed) when the entry's value could not be read.
    static MetadataItem convertAVMetadataItem(const AVMetadataEntry& entry, MetadataCategory category);
    // The library tag (key, text) that carries a kept entry into a copy made by `muxer`; none
    // when the muxer has no place for it.
    static std::optional<std::pair<std::string, std::string>> libraryTag(const AVMetadataEntry& entry,
                                                                         const std::string& muxer);
};

}  // namespace tavrin
