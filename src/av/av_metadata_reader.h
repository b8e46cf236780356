#pragma once
// The reader for video and audio files. Each metadata entry of the file becomes an item whose
// id and key are the key space name, ".", and the key ("QuickTimeMetadata.com.apple.quicktime.
// make", "iTunes.©nam", "ID3.TPE1"); common items come first, each key appears once, and the
// asset's creation date closes the list as "AVAsset.creationDate".

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "av/av_asset.h"
#include "model/metadata_reader.h"

namespace tavrin {

class AVMetadataReader : public MetadataReader {
public:
    std::set<FileType> supportedTypes() const override;
    // Throws AVContainerError or AVMetadataReaderError (the pipeline wraps them in `readFailed`),
    // or PipelineError::fileTypeUnknown.
    MetadataTree readMetadata(const std::filesystem::path& url) const override;

    // The items of a file, read synchronously. Throws as readMetadata.
    static std::vector<MetadataItem> loadMetadataSync(const std::filesystem::path& url);
    // The items of loaded metadata: common entries (fallback key space "common"), then all
    // entries, skipping keys already seen, then the creation date.
    static std::vector<MetadataItem> items(const AVAssetMetadata& asset);

    static MetadataValue extractValue(const AVRawValue& value);
    static MetadataCategory categorizeAVMetadata(std::string_view keyName, std::string_view keySpace);
    static std::string humanReadableName(std::string_view key, std::string_view keySpace);
    static std::string resolveKeySpaceName(std::string_view identifier, std::optional<std::string_view> fallback);
    // The part of an identifier behind its first "/" (all of it when there is none).
    static std::string keyName(std::string_view identifier);
};

}  // namespace tavrin
