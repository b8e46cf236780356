#pragma once
// Cleaning of still and animated images. The profile filters the property tree; the container is
// rebuilt from what a decoder needs plus the filtered properties, without re-encoding pixels;
// then the output is reopened, every frame of both files decoded, and nothing the profile names
// may remain in any frame. An in-memory variant serves images embedded in other documents.

#include <array>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "model/metadata_reader.h"
#include "image/image_bytes.h"
#include "image/image_properties.h"
#include "image/image_source.h"

namespace tavrin {

class ImageMetadataWriter : public MetadataWriter {
public:
    struct Limits {
        static constexpr std::uint64_t maxPixelArea = 256'000'000;
        static constexpr std::size_t maxFrameCount = 10'000;
    };

    struct VerificationOutcome {
        bool passed = false;
        std::vector<MetadataCategory> residualCategories;  // sorted
        std::string reason;  // why it did not pass, naming the frame, part or key
    };

    struct FilteredProperties {
        image::Properties properties;
        std::vector<MetadataItem> removed;
        std::vector<MetadataItem> retained;
    };

    std::set<FileType> supportedTypes() const override;
    CleaningResult cleanMetadata(const std::filesystem::path& source, const std::filesystem::path& destination,
                                 const CleaningProfile& profile) const override;

    // Cleaned bytes, or absent when they cannot be proven clean or exceed the decode limits.
    static std::optional<image::Bytes> cleanedImageData(image::ByteSpan data, const CleaningProfile& profile);
    static bool imageDataIsClean(image::ByteSpan data, const CleaningProfile& profile);
    // Opens as an image within the decode limits; decodes no pixels.
    static bool isDecodableImageData(image::ByteSpan data);

    static const std::array<image::DictionaryDescriptor, 22>& dictionaryDescriptors();
    static const std::set<std::string>& supportedImageExtensions();
    static bool isStructuralKey(std::string_view key, const MetadataValue* value);
    static bool isGenericICCProfileName(const MetadataValue* value);

    // The steps, public for the tests that prove them one by one.
    static FilteredProperties buildFilteredProperties(const image::Properties& frame, const CleaningProfile& profile);
    static bool withinDecodeLimits(const image::ImageSource& source);
    // Why verifying `source` would decode too much (one frame over `maxDecodedPixels`, all frames
    // together over `maxTotalDecodedPixels`), read from the frame sizes alone; empty when it fits.
    static std::string decodeBudgetRefusal(const image::ImageSource& source);
    static std::set<MetadataCategory> residualRemovableCategories(const image::Properties& frame,
                                                                  const CleaningProfile& profile);
    // Decodes every frame of both images; counts and sizes must match, and no frame of the
    // output may hold a category the profile removes.
    static VerificationOutcome verifyOutput(const image::ImageSource& source, image::ByteSpan output,
                                            const CleaningProfile& profile);
};

}  // namespace tavrin
