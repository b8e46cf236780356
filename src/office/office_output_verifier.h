#pragma once
// The second look at a written Office package, before anything is handed over: the package is
// whole, the metadata reader finds nothing the profile removes, no hidden content the profile
// removes is left, and every entry passes its check (comment and thumbnail parts gone, media
// proven clean, XML parts free of residue). The per-element residue tests are
// OfficeResidueVerifier's.

#include <filesystem>
#include <optional>
#include <string>

#include "model/cleaning_profile.h"

namespace tavrin {

// Nothing when the output is proven clean; else the first doubt, "<part>: <what was found>".
std::optional<std::string> outputVerificationFailure(const std::filesystem::path& output, const CleaningProfile& profile);

}  // namespace tavrin
