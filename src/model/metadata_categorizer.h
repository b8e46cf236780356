#pragma once
// Classifies a raw key from a format when a reader has no better knowledge: the image key
// tables first, then word patterns.

#include <optional>
#include <string_view>

#include "model/metadata_model.h"

namespace tavrin {

namespace ExifKeyMap {
std::optional<MetadataCategory> lookup(std::string_view key);
std::size_t size();
}
namespace IPTCKeyMap {
std::optional<MetadataCategory> lookup(std::string_view key);
std::size_t size();
}
namespace XMPKeyMap {
// Exact match, then the key behind each of the common XMP namespace prefixes.
std::optional<MetadataCategory> lookup(std::string_view key);
std::size_t size();
}

namespace MetadataCategorizer {
// `source` is the dictionary or family the key came from ("GPS", "Exif", "IPTC", "XMP", …).
MetadataCategory categorize(std::string_view key, std::string_view source);
}

}  // namespace tavrin
