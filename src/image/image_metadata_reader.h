#pragma once
// Inspection of still and animated images: the property tree of frame 0 as items grouped by
// category, and a whole-image scan that proves image bytes free of removable metadata.

#include <optional>
#include <vector>

#include "model/metadata_reader.h"
#include "image/image_bytes.h"
#include "image/image_properties.h"

namespace tavrin {

class ImageMetadataReader : public MetadataReader {
public:
    std::set<FileType> supportedTypes() const override;
    // An existing file whose extension names a supported type and whose bytes open as an image.
    bool canRead(const std::filesystem::path& url) const override;
    // Throws `PipelineError::fileTypeUnknown` when detection fails and `ImageMetadataReaderError`
    // when the image cannot be opened. Only frame 0 is read.
    MetadataTree readMetadata(const std::filesystem::path& url) const override;

    // The removable items of every frame; absent when the bytes cannot be read in full.
    static std::optional<std::vector<MetadataItem>> removableItems(image::ByteSpan imageData);

    // The items of one frame's properties: the sub-dictionaries in descriptor order, then the
    // top-level facts.
    static std::vector<MetadataItem> frameItems(const image::Properties& frame);

    // "DateTimeOriginal" → "Date Time Original"; a numeric key under 8BIM → "8BIM Entry 3".
    static std::string humanReadableName(std::string_view key, std::string_view prefix);
};

}  // namespace tavrin
