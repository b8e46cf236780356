#pragma once

#include "model/format_registry.h"
#include "pipeline/cleaning_pipeline.h"

namespace tavrin {

// The one list of formats: every native reader and writer, in the system's order, then the
// external tool's for the types no native component serves, when `configuration` names it.
void registerNativeFormats(FormatRegistry& registry, const EngineConfiguration& configuration);

}  // namespace tavrin
