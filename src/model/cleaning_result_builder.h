#pragma once
// The one way a writer assembles its `CleaningResult`.

#include <cstdint>
#include <filesystem>
#include <utility>
#include <vector>

#include "model/cleaning_result.h"
#include "model/file_system.h"

namespace tavrin {

// The size of `file` in bytes, or zero when it cannot be measured: a clean that succeeded is
// still reported when a size cannot be read.
inline std::int64_t sizeOrZero(const std::filesystem::path& file) {
    try {
        return fs::fileSize(file);
    } catch (...) {
        return 0;
    }
}

// The result of a clean from `source` to `output`: the sizes both files have now, the items
// removed and kept, the profile, and the remaining classes of what was kept (`remainingClasses`).
// Warnings and the duration are the writer's to add.
inline CleaningResult buildCleaningResult(const std::filesystem::path& source, const std::filesystem::path& output,
                                          const CleaningProfile& profile, std::vector<MetadataItem> removed,
                                          std::vector<MetadataItem> retained, bool verifiedClean) {
    CleaningResult result;
    result.sourceURL = source;
    result.outputURL = output;
    result.originalSize = sizeOrZero(source);
    result.cleanedSize = sizeOrZero(output);
    result.removedItems = std::move(removed);
    result.retainedItems = std::move(retained);
    result.profileUsed = profile;
    result.verifiedClean = verifiedClean;
    result.remainingMetadataClasses = remainingClasses(result.retainedItems);
    return result;
}

}  // namespace tavrin
