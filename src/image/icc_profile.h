#pragma once
// The description of an ICC profile (ICC.1), the name the image layer reports as ProfileName.

#include <optional>
#include <string>

#include "image/image_bytes.h"
#include "image/image_properties.h"

namespace tavrin::image {

// The text of the profile's 'desc' tag (a v2 textDescriptionType or a v4 multiLocalizedUnicode);
// absent when the bytes hold no readable description.
std::optional<std::string> iccProfileDescription(ByteSpan profile);

// Whether a rebuilt image carries `profile` on: a profile without a description or with a
// generic one always stays (it describes the pixels, not a person); one with any other name stays
// only while the filtered frame still holds its ProfileName, that is when the cleaning profile
// keeps it.
bool keepsICCProfile(ByteSpan profile, const Properties& filtered);

}  // namespace tavrin::image
