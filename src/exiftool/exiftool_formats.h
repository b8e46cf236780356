#pragma once

#include <chrono>
#include <string>

#include "model/format_registry.h"

namespace tavrin {

// Puts the external tool's reader and writer under every type that no component in `registry`
// serves yet. It never opens the strict gate: the pipeline still refuses to clean every type that
// is not verified.
void registerExifToolFormats(FormatRegistry& registry, const std::string& exifToolPath,
                             std::chrono::seconds timeout);

}  // namespace tavrin
