#pragma once
// The words a user reads after dropping folders.

#include <cstdint>
#include <optional>
#include <string>

#include "intake/folder_expansion_service.h"

namespace tavrin {

namespace FolderIntakeSummary {

// What to tell the user after an intake: none when no folder was given; otherwise how many files
// the queue took (`importedCount`) from how many folders, how many were skipped, and whether the
// cap stopped the walk.
std::optional<std::string> message(const FolderExpansionSummary& expansion, std::int64_t importedCount);

}  // namespace FolderIntakeSummary

}  // namespace tavrin
