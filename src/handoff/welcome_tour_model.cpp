#include "handoff/welcome_tour_model.h"

namespace tavrin {

namespace WelcomeTourSteps {

int displayIndex(WelcomeTourStep step) { return static_cast<int>(step) + 1; }
bool isFirst(WelcomeTourStep step) { return step == ordered.front(); }
bool isLast(WelcomeTourStep step) { return step == ordered.back(); }

std::optional<WelcomeTourStep> next(WelcomeTourStep step) {
    if (isLast(step)) return std::nullopt;
    return ordered[static_cast<std::size_t>(step) + 1];
}

std::optional<WelcomeTourStep> previous(WelcomeTourStep step) {
    if (isFirst(step)) return std::nullopt;
    return ordered[static_cast<std::size_t>(step) - 1];
}

std::string_view eyebrow(WelcomeTourStep step) {
    switch (step) {
        case WelcomeTourStep::welcome: return "Welcome";
        case WelcomeTourStep::cleanAFile: return "Clean a file";
        case WelcomeTourStep::foldersAndPresets: return "Work faster";
        case WelcomeTourStep::finderSetup: return "Optional";
        case WelcomeTourStep::ready: return "You're set";
    }
    return {};
}

std::string_view title(WelcomeTourStep step) {
    switch (step) {
        case WelcomeTourStep::welcome: return "Clean metadata, protect your sources";
        case WelcomeTourStep::cleanAFile: return "Add a file, then Clean";
        case WelcomeTourStep::foldersAndPresets: return "Whole folders & reusable presets";
        case WelcomeTourStep::finderSetup: return "Set up your file manager & system menus";
        case WelcomeTourStep::ready: return "You're ready to go";
    }
    return {};
}

std::string_view subtitle(WelcomeTourStep step) {
    switch (step) {
        case WelcomeTourStep::welcome:
            return "Photos, PDFs, and documents quietly carry GPS coordinates, names, device IDs, and edit history. "
                   "Tavrin finds and removes them — entirely on this computer.";
        case WelcomeTourStep::cleanAFile:
            return "Drag files onto the window or click Add, then Clean. The Clean button's menu lets you choose how "
                   "the result is saved.";
        case WelcomeTourStep::foldersAndPresets:
            return "Drop an entire folder to batch-clean everything inside it, and save presets for the categories "
                   "you remove most.";
        case WelcomeTourStep::finderSetup:
            return "Clean files straight from your file manager's right-click menu — no need to open Tavrin first. "
                   "Turn on just the route(s) you want. You can always do this later in Settings.";
        case WelcomeTourStep::ready:
            return "That's the tour. Tavrin runs completely on-device, and everything here stays reachable whenever "
                   "you need it.";
    }
    return {};
}

}  // namespace WelcomeTourSteps

namespace WelcomeTourModel {

const std::vector<WelcomeTourCard>& welcomeCards() {
    static const std::vector<WelcomeTourCard> cards{
        {"person.crop.circle.badge.xmark", "Removes what identifies you",
         "GPS location, author & creator names, device IDs, edit and version history, hidden content."},
        {"lock.shield", "Private & offline",
         "Everything happens on this computer. Nothing is ever uploaded — no account, no cloud."},
        {"doc.on.doc", "Handles your files", "Images, PDFs, Office documents, video, and audio — all in one place."},
    };
    return cards;
}

const std::vector<WelcomeTourCard>& foldersCards() {
    static const std::vector<WelcomeTourCard> cards{
        {"folder", "Drop a whole folder",
         "Tavrin walks it — subfolders included — and queues every supported file to clean at once."},
        {"slider.horizontal.3", "Save reusable presets",
         "Pick the categories you usually strip, save them as a preset, and reuse it in one click."},
    };
    return cards;
}

const std::vector<WelcomeTourCard>& readyCards() {
    static const std::vector<WelcomeTourCard> cards{
        {"gearshape", "Everything's in Settings",
         "Output defaults, presets, your file manager integration, and this intro all live under Settings."},
        {"checkmark.seal", "Verified every time",
         "After each clean, files are re-scanned to confirm nothing identifying remains."},
    };
    return cards;
}

std::vector<WelcomeTourCard> cleanCards(bool inPlaceIsDefault) {
    return {
        {"arrow.down.doc.fill", "Clean in Place",
         inPlaceIsDefault ? "Overwrites the file where it sits. This is your current default."
                          : "Overwrites the file where it sits. Switch to this in the Clean menu when you want it."},
        {"doc.badge.plus", "Clean a Copy",
         inPlaceIsDefault ? "Writes a fresh clean copy and keeps your original untouched."
                          : "Writes a fresh clean copy and keeps your original. This is your current default."},
        {"square.and.arrow.up.on.square.fill", "Clean & Share",
         "Cleans to a temporary copy, shares it, then auto-deletes — nothing left behind."},
    };
}

bool shouldShow(int persistedVersion) { return persistedVersion < currentVersion; }

int migratedVersion(bool legacyOnboarded, int persistedVersion) {
    if (persistedVersion < currentVersion && legacyOnboarded) return currentVersion;
    return persistedVersion;
}

}  // namespace WelcomeTourModel

}  // namespace tavrin
