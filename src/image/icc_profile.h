#pragma once
// The description of an ICC profile (ICC.1), the name the image layer reports as ProfileName.

#include <optional>
#include <string>

#include "image/image_bytes.h"

namespace tavrin::image {

// The text of the profile's 'desc' tag (a v2 textDescriptionType or a v4 multiLocalizedUnicode);
// absent when the bytes hold no readable description.
std::optional<std::string> iccProfileDescription(ByteSpan profile);

}  // namespace tavrin::image
