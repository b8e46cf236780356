#pragma once
// What a writer reports after a clean.

#include <algorithm>
#include <cstdint>
#include <set>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "model/cleaning_profile.h"
#include "model/metadata_model.h"

namespace tavrin {

struct CleaningWarning {
    std::string context;
    std::string message;
    bool operator==(const CleaningWarning&) const = default;
};

struct CleaningResult {
    std::filesystem::path sourceURL;
    std::filesystem::path outputURL;
    std::int64_t originalSize = 0;
    std::int64_t cleanedSize = 0;
    std::vector<MetadataItem> removedItems;
    std::vector<MetadataItem> retainedItems;
    double duration = 0;  // seconds spent in the writer
    std::vector<CleaningWarning> warnings;
    CleaningProfile profileUsed;
    bool verifiedClean = false;
    std::vector<MetadataCategory> remainingMetadataClasses;

    std::int64_t bytesSaved() const { return originalSize - cleanedSize; }
    double sizeReductionPercent() const {
        if (originalSize < 1) return 0;
        return static_cast<double>(originalSize - cleanedSize) / static_cast<double>(originalSize) * 100.0;
    }
    bool isClean() const { return warnings.empty() && verifiedClean && remainingMetadataClasses.empty(); }
};

// The categories of the items a clean kept, each once, ordered by their raw names: what a
// writer reports as its result's remaining metadata classes.
inline std::vector<MetadataCategory> remainingClasses(const std::vector<MetadataItem>& retained) {
    std::set<MetadataCategory> seen;
    for (const auto& item : retained) seen.insert(item.category);
    std::vector<MetadataCategory> classes(seen.begin(), seen.end());
    std::sort(classes.begin(), classes.end(),
              [](MetadataCategory a, MetadataCategory b) { return rawValue(a) < rawValue(b); });
    return classes;
}

struct BatchCleaningResult {
    std::filesystem::path sourceURL;
    std::variant<CleaningResult, std::exception_ptr> result;

    bool isSuccess() const { return result.index() == 0; }
    std::optional<CleaningResult> cleaningResult() const {
        if (auto* r = std::get_if<CleaningResult>(&result)) return *r;
        return std::nullopt;
    }
    std::exception_ptr error() const {
        if (auto* e = std::get_if<std::exception_ptr>(&result)) return *e;
        return nullptr;
    }
};

}  // namespace tavrin
