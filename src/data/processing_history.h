#pragma once
// One record per file a queue run cleaned.

#include <filesystem>
#include <optional>
#include <string>

#include "data/store.h"

namespace tavrin {

struct ProcessingHistory {
    // Persistent fields, in schema order.
    Uuid id;
    std::string fileName;  // with extension
    Date processedAt{};
    std::int64_t originalSize = 0;
    std::int64_t cleanedSize = 0;
    std::int64_t removedItemCount = 0;
    std::string presetName;  // or "Custom"
    double duration = 0.0;   // seconds
    std::optional<std::string> cleanedFilePath;
    std::optional<std::string> originalFilePath;
    // Schema-level default true: records older than the field read as retained.
    bool outputRetained = true;

    static constexpr std::string_view customPresetName = "Custom";

    std::optional<std::filesystem::path> cleanedFileURL() const;
    // Can be negative: a cleaned file can be larger.
    std::int64_t bytesSaved() const { return originalSize - cleanedSize; }
    // 0.0 when `originalSize` is below 1.
    double sizeReductionPercent() const;

    static const TableSpec& table();
    StoreRow toRow() const;
    static ProcessingHistory fromRow(const StoreRow& row);
    void assignStored(ProcessingHistory other) { *this = std::move(other); }
};

}  // namespace tavrin
