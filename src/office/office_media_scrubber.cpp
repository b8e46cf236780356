#include "office/office_media_scrubber.h"

#include <algorithm>

#include "image/image_metadata_writer.h"
#include "image/image_source.h"
#include "office/office_package.h"

namespace tavrin {

namespace {


// Opens as an image within the decode limits. The cheap sniff first spares every XML part a
// copy into the image layer.
bool opensAsImage(std::span<const std::uint8_t> data) {
    return image::sniffImageFormat(data).has_value() && ImageMetadataWriter::isDecodableImageData(data);
}

}  // namespace

const std::vector<std::string>& OfficeMediaScrubber::officeMediaRoots() {
    static const std::vector<std::string> roots{"word/media/", "ppt/media/", "xl/media/"};
    return roots;
}

const std::set<std::string>& OfficeMediaScrubber::knownMediaExtensions() {
    static const std::set<std::string> extensions = [] {
        std::set<std::string> out = ImageMetadataWriter::supportedImageExtensions();
        out.insert({"wmf", "emf", "svg", "wdp", "hdp"});
        return out;
    }();
    return extensions;
}

const std::set<MetadataCategory>& OfficeMediaScrubber::imageMetadataCategories() {
    static const std::set<MetadataCategory> categories{
        MetadataCategory::location,   MetadataCategory::deviceInfo,   MetadataCategory::timestamps,
        MetadataCategory::authorIdentity, MetadataCategory::softwareInfo, MetadataCategory::colorTechnical,
    };
    return categories;
}

const std::vector<std::string>& OfficeMediaScrubber::imageMetadataSourcePrefixes() {
    static const std::vector<std::string> prefixes = [] {
        std::vector<std::string> out;
        for (const auto& descriptor : ImageMetadataWriter::dictionaryDescriptors())
            out.emplace_back(descriptor.prefix);
        return out;
    }();
    return prefixes;
}

bool OfficeMediaScrubber::hasKnownMediaExtension(std::string_view path) {
    const auto name = lastPathComponent(path);
    const auto dot = name.rfind('.');
    if (dot == std::string_view::npos || dot + 1 == name.size()) return false;
    return knownMediaExtensions().count(lowerCasedPath(name.substr(dot + 1))) > 0;
}

bool OfficeMediaScrubber::isEmbeddedMedia(std::string_view path, std::span<const std::uint8_t> data) {
    const std::string lower = lowerCasedPath(path);
    for (const auto& root : officeMediaRoots())
        if (lower.starts_with(root)) return true;
    if (opensAsImage(data)) return true;
    return hasKnownMediaExtension(path);
}

bool OfficeMediaScrubber::profileTargetsImageMetadata(const CleaningProfile& profile) {
    // Image keys are named as the writer's "imageio.GPS.Latitude" or bare, "GPS.Latitude".
    constexpr std::string_view imageIOPrefix = "imageio.";
    for (const auto& key : profile.specificKeysToRemove) {
        std::string_view rest = key;
        if (rest.starts_with(imageIOPrefix)) rest.remove_prefix(imageIOPrefix.size());
        for (const auto& prefix : imageMetadataSourcePrefixes())
            if (rest.starts_with(prefix) && (rest.size() == prefix.size() || rest[prefix.size()] == '.')) return true;
    }
    return false;
}

bool OfficeMediaScrubber::profileRemovesImageMetadata(const CleaningProfile& profile) {
    for (auto category : profile.categoriesToRemove)
        if (imageMetadataCategories().count(category)) return true;
    return profileTargetsImageMetadata(profile);
}

OfficeMediaScrubber::Outcome OfficeMediaScrubber::scrub(std::span<const std::uint8_t> data, std::string_view,
                                                        const CleaningProfile& profile) {
    if (!profileRemovesImageMetadata(profile)) return Outcome::unchanged();
    if (!opensAsImage(data)) return Outcome::unverifiable();
    auto cleaned = ImageMetadataWriter::cleanedImageData(data, profile);
    if (!cleaned) return Outcome::unverifiable();
    return Outcome::cleaned(std::move(*cleaned));
}

}  // namespace tavrin
