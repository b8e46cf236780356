#pragma once
// What the file manager's right-click menu offers, and the "tavrin" URLs each entry opens.

#include <array>
#include <compare>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tavrin {

// The raw value is also the token that travels in the "preset" query item.
enum class FinderMenuPreset { maximumPrivacy, clientDeliverable, locationOnly };

std::string_view rawValue(FinderMenuPreset preset);
std::string_view title(FinderMenuPreset preset);
std::optional<FinderMenuPreset> finderMenuPresetFromRawValue(std::string_view raw);
const std::array<FinderMenuPreset, 3>& allFinderMenuPresets();

// `clean` with a preset, or `openInApp` (no preset).
struct FinderMenuAction {
    enum class Kind { clean, openInApp };
    Kind kind = Kind::openInApp;
    FinderMenuPreset preset = FinderMenuPreset::maximumPrivacy;  // meaningful for `clean` only

    static FinderMenuAction clean(FinderMenuPreset p) { return {Kind::clean, p}; }
    static FinderMenuAction openInApp() { return {Kind::openInApp, FinderMenuPreset::maximumPrivacy}; }
    bool operator==(const FinderMenuAction& other) const {
        return kind == other.kind && (kind == Kind::openInApp || preset == other.preset);
    }
    auto operator<=>(const FinderMenuAction& other) const {
        if (auto c = kind <=> other.kind; c != 0) return c;
        return kind == Kind::openInApp ? std::strong_ordering::equal : preset <=> other.preset;
    }
    // "clean:maximum-privacy" or "open": how a file-manager action names it on the command line.
    std::string token() const;
    static std::optional<FinderMenuAction> fromToken(std::string_view token);
};

struct FinderMenuItem {
    std::string title;
    std::optional<FinderMenuAction> action;  // absent on a submenu
    bool isEnabled = true;
    std::vector<FinderMenuItem> submenu;

    bool operator==(const FinderMenuItem& other) const;
    // By title, then action (none first), enabled, and submenu entry by entry.
    std::strong_ordering operator<=>(const FinderMenuItem& other) const;
};

namespace FinderContextMenuModel {

inline constexpr std::string_view cleanWithPresetTitle = "Clean with Preset";
inline constexpr std::string_view openInAppTitle = "Open in Tavrin";

// "Clean Everything", or "Clean Everything (3 Files)" from two files on.
std::string cleanEverythingTitle(int fileCount);
std::vector<FinderMenuItem> menuItems(int fileCount);
// The URLs the entry opens: the enqueue URLs for openInApp, the clean URLs with the preset's raw
// value otherwise; split at the default length. No files, no URLs.
std::vector<std::string> urls(const FinderMenuAction& action, const std::vector<std::filesystem::path>& fileURLs);

}  // namespace FinderContextMenuModel

}  // namespace tavrin
