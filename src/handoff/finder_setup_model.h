#pragma once
// The ways a user can reach Tavrin from the file manager, with their texts and live state.

#include <array>
#include <optional>
#include <string_view>
#include <vector>

namespace tavrin {

enum class FinderSetupRoute { fileManagerMenu, openWith, urlScheme };

std::string_view rawValue(FinderSetupRoute route);
std::optional<FinderSetupRoute> finderSetupRouteFromRawValue(std::string_view raw);

enum class FinderSetupStatus { enabled, disabled, unknown };

std::string_view label(FinderSetupStatus status);

// What is installed for each route, read from the disk: true, false, or absent when it cannot be
// told (such as a link handler installed but another program registered as the default).
struct InstalledRoutes {
    std::optional<bool> fileManagerMenu;
    std::optional<bool> openWith;
    std::optional<bool> urlScheme;
};

namespace FinderSetupModel {

inline constexpr std::array<FinderSetupRoute, 3> routes{FinderSetupRoute::fileManagerMenu, FinderSetupRoute::openWith,
                                                        FinderSetupRoute::urlScheme};

std::string_view title(FinderSetupRoute route);
// A freedesktop icon-theme name.
std::string_view systemImage(FinderSetupRoute route);
std::string_view openSettingsButtonTitle(FinderSetupRoute route);
bool hasLiveStatus(FinderSetupRoute route);
bool worksInCloudFolders(FinderSetupRoute route);
std::string_view whereItAppears(FinderSetupRoute route);
std::string_view purpose(FinderSetupRoute route);
std::vector<std::string_view> activationSteps(FinderSetupRoute route);

inline constexpr std::string_view headline = "Set up Tavrin in your file manager";
inline constexpr std::string_view subtitle =
    "Clean files straight from the right-click menu — no need to open Tavrin first. Enable just the route(s) you "
    "want; you don't have to set up all three.";
inline constexpr std::string_view sectionIntro =
    "Clean files straight from your file manager's right-click menu. Turn on any of the three routes below in "
    "Settings — you only need the one(s) you'll use.";
inline constexpr std::string_view cloudFolderNote =
    "Files in Nextcloud, ownCloud, OneDrive or Dropbox folders show the right-click menu like any other folder. "
    "Online-only files download automatically when you clean them.";
inline constexpr std::array<std::string_view, 2> usageNotes{
    "Online-only (cloud placeholder) files download automatically when you clean them — Tavrin fetches the file "
    "from Nextcloud, OneDrive, or Dropbox first, so you don't have to download it manually.",
    "Cleaning a file in a shared cloud library syncs your change to everyone. Tavrin's default “Always create a "
    "clean copy” mode leaves the shared original untouched.",
};

FinderSetupStatus status(FinderSetupRoute route, const InstalledRoutes& installed);
// True exactly when setup was never completed and the right-click menu is not installed.
bool shouldAutoPresent(bool hasCompletedSetup, bool fileManagerMenuEnabled);

}  // namespace FinderSetupModel

}  // namespace tavrin
