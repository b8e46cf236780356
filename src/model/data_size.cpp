#include "model/data_size.h"

#include <cmath>
#include <fmt/core.h>

#include "model/file_system.h"

namespace tavrin {

namespace {

std::string format(std::int64_t bytes, bool zeroAsWord) {
    if (bytes == 0) return zeroAsWord ? "Zero KB" : "0 bytes";
    const double magnitude = std::fabs(static_cast<double>(bytes));
    const char* sign = bytes < 0 ? "-" : "";
    if (magnitude < 1000) return fmt::format("{}{} {}", sign, static_cast<std::int64_t>(magnitude), magnitude == 1 ? "byte" : "bytes");
    static const char* units[] = {"KB", "MB", "GB", "TB", "PB"};
    double value = magnitude / 1000;
    int unit = 0;
    while (value >= 999.5 && unit < 4) {
        value /= 1000;
        ++unit;
    }
    // Kilobytes are shown whole, larger units with one decimal that is dropped when it is zero.
    if (unit == 0) return fmt::format("{}{} {}", sign, static_cast<std::int64_t>(std::lround(value)), units[unit]);
    const double rounded = std::round(value * 10) / 10;
    if (rounded == std::floor(rounded)) return fmt::format("{}{} {}", sign, static_cast<std::int64_t>(rounded), units[unit]);
    return fmt::format("{}{:.1f} {}", sign, rounded, units[unit]);
}

}  // namespace

DataSize DataSize::fileAt(const std::filesystem::path& file) { return DataSize{fs::fileSize(file)}; }
std::string DataSize::formatted() const { return format(bytes, true); }
std::string DataSize::compact() const { return format(bytes, false); }

std::string DataSize::difference(std::int64_t original, std::int64_t cleaned) {
    const std::int64_t diff = original - cleaned;
    if (diff > 0) return fmt::format("-{}", DataSize{diff}.formatted());
    if (diff < 0) return fmt::format("+{}", DataSize{-diff}.formatted());
    return "No change";
}

}  // namespace tavrin
