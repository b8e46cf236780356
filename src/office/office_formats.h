#pragma once

#include "model/format_registry.h"

namespace tavrin {

// Puts this library's reader and writer into `registry`.
void registerOfficeFormats(FormatRegistry& registry);

}  // namespace tavrin
