#pragma once
// The parts that leave a package when its hidden content is removed.

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "model/metadata_model.h"
#include "office/office_package.h"
#include "zip/archive.h"

namespace tavrin::OfficeHiddenContentDetector {

// Every entry that leaves the package when hidden content is removed: orphaned and inactive
// headers and footers, printer settings, latent data sources, hidden sheets and slides.
std::set<std::string> pathsToRemove(const Archive& archive);

}  // namespace tavrin::OfficeHiddenContentDetector
