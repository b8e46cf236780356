#pragma once
// Which property keys describe the pixels and the animation rather than the person. Such keys
// are never removable: cleaning keeps them so that an image still displays, the right way up,
// and an animation still runs.

#include <string_view>

#include "model/metadata_value.h"

namespace tavrin::image {

// `key` is dot-separated ("EXIF.ColorSpace", "PNG.Software", "ProfileName"); `value` matters only
// for ProfileName, which is structural exactly when the name is a generic one.
bool isStructuralKey(std::string_view key, const MetadataValue* value);

// A missing value, or one that is no string, counts as generic.
bool isGenericICCProfileName(const MetadataValue* value);
inline bool isGenericICCProfileName(const MetadataValue& value) { return isGenericICCProfileName(&value); }

}  // namespace tavrin::image
