#include "handoff/finder_context_menu_model.h"

#include <algorithm>
#include <fmt/core.h>

#include "handoff/tavrin_url.h"

namespace tavrin {

std::string_view rawValue(FinderMenuPreset preset) {
    switch (preset) {
        case FinderMenuPreset::maximumPrivacy: return "maximum-privacy";
        case FinderMenuPreset::clientDeliverable: return "client-deliverable";
        case FinderMenuPreset::locationOnly: return "location-only";
    }
    return "maximum-privacy";
}

std::string_view title(FinderMenuPreset preset) {
    switch (preset) {
        case FinderMenuPreset::maximumPrivacy: return "Maximum Privacy";
        case FinderMenuPreset::clientDeliverable: return "Client Deliverable";
        case FinderMenuPreset::locationOnly: return "Location Only";
    }
    return "Maximum Privacy";
}

const std::array<FinderMenuPreset, 3>& allFinderMenuPresets() {
    static constexpr std::array<FinderMenuPreset, 3> all{FinderMenuPreset::maximumPrivacy,
                                                         FinderMenuPreset::clientDeliverable,
                                                         FinderMenuPreset::locationOnly};
    return all;
}

std::optional<FinderMenuPreset> finderMenuPresetFromRawValue(std::string_view raw) {
    for (auto preset : allFinderMenuPresets())
        if (rawValue(preset) == raw) return preset;
    return std::nullopt;
}

std::string FinderMenuAction::token() const {
    return kind == Kind::openInApp ? std::string("open") : "clean:" + std::string(rawValue(preset));
}

std::optional<FinderMenuAction> FinderMenuAction::fromToken(std::string_view token) {
    if (token == "open") return openInApp();
    if (token.substr(0, 6) != "clean:") return std::nullopt;
    if (auto preset = finderMenuPresetFromRawValue(token.substr(6))) return clean(*preset);
    return std::nullopt;
}

bool FinderMenuItem::operator==(const FinderMenuItem& other) const { return (*this <=> other) == 0; }

std::strong_ordering FinderMenuItem::operator<=>(const FinderMenuItem& other) const {
    if (auto c = title <=> other.title; c != 0) return c;
    if (auto c = action.has_value() <=> other.action.has_value(); c != 0) return c;
    if (action) {
        if (auto c = *action <=> *other.action; c != 0) return c;
    }
    if (auto c = isEnabled <=> other.isEnabled; c != 0) return c;
    return std::lexicographical_compare_three_way(submenu.begin(), submenu.end(), other.submenu.begin(),
                                                  other.submenu.end());
}

namespace FinderContextMenuModel {

std::string cleanEverythingTitle(int fileCount) {
    return fileCount < 2 ? std::string("Clean Everything") : fmt::format("Clean Everything ({} Files)", fileCount);
}

std::vector<FinderMenuItem> menuItems(int fileCount) {
    FinderMenuItem presets{std::string(cleanWithPresetTitle), std::nullopt, true, {}};
    for (auto preset : allFinderMenuPresets())
        presets.submenu.push_back({std::string(title(preset)), FinderMenuAction::clean(preset), true, {}});
    return {
        {cleanEverythingTitle(fileCount), FinderMenuAction::clean(FinderMenuPreset::maximumPrivacy), true, {}},
        std::move(presets),
        {std::string(openInAppTitle), FinderMenuAction::openInApp(), true, {}},
    };
}

std::vector<std::string> urls(const FinderMenuAction& action, const std::vector<std::filesystem::path>& fileURLs) {
    if (fileURLs.empty()) return {};
    if (action.kind == FinderMenuAction::Kind::openInApp) return TavrinURL::enqueueURLs(fileURLs);
    return TavrinURL::cleanURLs(fileURLs, std::string(rawValue(action.preset)), false);
}

}  // namespace FinderContextMenuModel

}  // namespace tavrin
