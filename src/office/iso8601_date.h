#pragma once
// The internet date-time form of ISO 8601 (RFC 3339) used by Office property parts:
// "2024-01-02T03:04:05Z", "2024-01-02T03:04:05.250+01:00".

#include <optional>
#include <string_view>

#include "model/metadata_value.h"

namespace tavrin {

enum class FractionalSeconds { required, refused };

// Nothing unless the whole text is one date-time with a time zone, and fractional seconds
// present or absent as asked.
std::optional<Date> parseInternetDateTime(std::string_view text, FractionalSeconds fraction);

}  // namespace tavrin
