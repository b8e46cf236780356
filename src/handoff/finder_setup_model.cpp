#include "handoff/finder_setup_model.h"

namespace tavrin {

std::string_view rawValue(FinderSetupRoute route) {
    switch (route) {
        case FinderSetupRoute::fileManagerMenu: return "fileManagerMenu";
        case FinderSetupRoute::openWith: return "openWith";
        case FinderSetupRoute::urlScheme: return "urlScheme";
    }
    return "fileManagerMenu";
}

std::optional<FinderSetupRoute> finderSetupRouteFromRawValue(std::string_view raw) {
    for (auto route : FinderSetupModel::routes)
        if (rawValue(route) == raw) return route;
    return std::nullopt;
}

std::string_view label(FinderSetupStatus status) {
    switch (status) {
        case FinderSetupStatus::enabled: return "Enabled";
        case FinderSetupStatus::disabled: return "Not enabled";
        case FinderSetupStatus::unknown: return "Enable in Settings";
    }
    return "Enable in Settings";
}

namespace FinderSetupModel {

std::string_view title(FinderSetupRoute route) {
    switch (route) {
        case FinderSetupRoute::fileManagerMenu: return "Right-click menu";
        case FinderSetupRoute::openWith: return "Open With menu";
        case FinderSetupRoute::urlScheme: return "Links from other apps";
    }
    return {};
}

std::string_view systemImage(FinderSetupRoute route) {
    switch (route) {
        case FinderSetupRoute::fileManagerMenu: return "open-menu-symbolic";
        case FinderSetupRoute::openWith: return "document-open-symbolic";
        case FinderSetupRoute::urlScheme: return "insert-link-symbolic";
    }
    return {};
}

std::string_view openSettingsButtonTitle(FinderSetupRoute route) {
    switch (route) {
        case FinderSetupRoute::fileManagerMenu:
        case FinderSetupRoute::openWith:
        case FinderSetupRoute::urlScheme: return "Install for This User";
    }
    return {};
}

// Every route is read from the files it installs, and every route works wherever the file
// manager can list a file, synced cloud folders included.
bool hasLiveStatus(FinderSetupRoute) { return true; }
bool worksInCloudFolders(FinderSetupRoute) { return true; }

std::string_view whereItAppears(FinderSetupRoute route) {
    switch (route) {
        case FinderSetupRoute::fileManagerMenu:
            return "Right-click any file and Tavrin's clean options appear in the menu: under Scripts ▸ Tavrin in "
                   "Files (Nautilus) and Caja, and directly in the menu in Nemo, Dolphin and Thunar. Works in every "
                   "folder, including cloud folders.";
        case FinderSetupRoute::openWith:
            return "Right-click a file ▸ Open With ▸ “Tavrin”. Works everywhere, including cloud folders.";
        case FinderSetupRoute::urlScheme:
            return "Links that begin with tavrin:// — from Tavrin's share window or other apps — hand their files to "
                   "Tavrin.";
    }
    return {};
}

std::string_view purpose(FinderSetupRoute route) {
    switch (route) {
        case FinderSetupRoute::fileManagerMenu:
            return "Adds Tavrin's clean options straight to your file manager's right-click menu.";
        case FinderSetupRoute::openWith: return "Adds Tavrin to the right-click Open With menu — works everywhere.";
        case FinderSetupRoute::urlScheme: return "Lets other apps hand files to Tavrin through tavrin:// links.";
    }
    return {};
}

std::vector<std::string_view> activationSteps(FinderSetupRoute route) {
    switch (route) {
        case FinderSetupRoute::fileManagerMenu:
            return {"Open a terminal and run “tavrin integrate install”.",
                    "It adds the menu to Files (Nautilus), Nemo, Caja, Dolphin and Thunar, for your user only.",
                    "Close any open file manager window and open it again.",
                    "Come back here and click Recheck Status."};
        case FinderSetupRoute::openWith:
            return {"Open a terminal and run “tavrin integrate install”.",
                    "Right-click a supported file and choose Open With ▸ “Tavrin”.",
                    "Come back here and click Recheck Status."};
        case FinderSetupRoute::urlScheme:
            return {"Open a terminal and run “tavrin integrate install”.",
                    "It registers Tavrin as the handler of tavrin:// links (with xdg-mime, when installed).",
                    "Come back here and click Recheck Status."};
    }
    return {};
}

FinderSetupStatus status(FinderSetupRoute route, const InstalledRoutes& installed) {
    const std::optional<bool>& state = route == FinderSetupRoute::fileManagerMenu ? installed.fileManagerMenu
                                       : route == FinderSetupRoute::openWith      ? installed.openWith
                                                                                  : installed.urlScheme;
    if (!state) return FinderSetupStatus::unknown;
    return *state ? FinderSetupStatus::enabled : FinderSetupStatus::disabled;
}

bool shouldAutoPresent(bool hasCompletedSetup, bool fileManagerMenuEnabled) {
    return !hasCompletedSetup && !fileManagerMenuEnabled;
}

}  // namespace FinderSetupModel

}  // namespace tavrin
