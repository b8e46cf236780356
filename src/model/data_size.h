#pragma once
// Byte counts as text, in decimal units (1 KB = 1000 bytes).

#include <cstdint>
#include <filesystem>
#include <string>

namespace tavrin {

struct DataSize {
    std::int64_t bytes = 0;

    static DataSize fileAt(const std::filesystem::path& file);  // throws FileSystemError
    std::string formatted() const;  // "Zero KB" for 0, "532 bytes", "1.2 MB"
    std::string compact() const;    // as formatted, but "0 bytes" for 0
    // "-1.2 MB" when the cleaned file is smaller, "+3 KB" when larger, "No change" when equal.
    static std::string difference(std::int64_t original, std::int64_t cleaned);
};

}  // namespace tavrin
