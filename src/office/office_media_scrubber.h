#pragma once
// Decides which entries of a package are embedded images and cleans them through the image
// layer. An image the layer cannot open is never passed through as clean: when the profile
// removes image metadata, such an entry comes back `unverifiable`.

#include <cstdint>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "model/cleaning_profile.h"

namespace tavrin {

struct OfficeMediaScrubber {
    struct Outcome {
        enum class Kind { unchanged, cleaned, unverifiable };
        Kind kind = Kind::unchanged;
        std::vector<std::uint8_t> data;  // the new bytes of `cleaned`

        static Outcome unchanged() { return {Kind::unchanged, {}}; }
        static Outcome cleaned(std::vector<std::uint8_t> bytes) { return {Kind::cleaned, std::move(bytes)}; }
        static Outcome unverifiable() { return {Kind::unverifiable, {}}; }
    };

    // "word/media/", "ppt/media/", "xl/media/".
    static const std::vector<std::string>& officeMediaRoots();
    // What the image writer can write, plus the vector and HD Photo formats Office embeds.
    static const std::set<std::string>& knownMediaExtensions();
    // The categories an image can carry.
    static const std::set<MetadataCategory>& imageMetadataCategories();
    // The item prefixes of the image layer's dictionaries ("EXIF", "GPS", …).
    static const std::vector<std::string>& imageMetadataSourcePrefixes();

    // Under a media folder, or opens as an image, or named like one.
    static bool isEmbeddedMedia(std::string_view path, std::span<const std::uint8_t> data);
    static bool hasKnownMediaExtension(std::string_view path);
    // Some key of `specificKeysToRemove` is "imageio." followed by an image dictionary prefix.
    static bool profileTargetsImageMetadata(const CleaningProfile& profile);
    // Whether the profile touches image metadata at all, by category or by key.
    static bool profileRemovesImageMetadata(const CleaningProfile& profile);
    // `unchanged` when the profile removes nothing an image carries (the bytes are not opened);
    // otherwise `cleaned` with bytes the image layer proved clean, or `unverifiable`.
    static Outcome scrub(std::span<const std::uint8_t> data, std::string_view path, const CleaningProfile& profile);
};

}  // namespace tavrin
