#pragma once
// Dates in PDF's string form (ISO 32000-1, 7.9.4): "D:YYYYMMDDHHmmSSOHH'mm'", every field after
// the year optional.

#include <optional>
#include <string_view>

#include "model/metadata_value.h"

namespace tavrin {

// The instant a PDF date names, or empty when the text is no valid date.
std::optional<Date> parsePDFDate(std::string_view text);

}  // namespace tavrin
