#pragma once
// What `tavrin integrate install` writes: every file's path and content, built as pure functions
// so they can be checked without a desktop. Files reach Tavrin only as arguments expanded by the
// file manager (%F, "$@"); no file name is ever written into a command line here.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "handoff/finder_setup_model.h"

namespace tavrin {

// The per-user folders the integration writes into.
struct IntegrationLocations {
    std::filesystem::path dataHome;    // $XDG_DATA_HOME, default ~/.local/share
    std::filesystem::path configHome;  // $XDG_CONFIG_HOME, default ~/.config
    std::vector<std::filesystem::path> configDirs;  // $XDG_CONFIG_DIRS, default /etc/xdg

    // From the environment; none without a usable home folder.
    static std::optional<IntegrationLocations> fromEnvironment();
};

// The absolute paths of the two programs that the entries start.
struct IntegrationPrograms {
    std::filesystem::path tavrin;
    std::filesystem::path tavrinShare;
};

// A whole file that belongs to Tavrin alone.
struct IntegrationFile {
    std::filesystem::path path;
    std::string content;
    bool executable = false;
    std::optional<FinderSetupRoute> route;  // absent for shared pieces such as the icon
    std::string fileManager;                // "Nautilus", "Nemo", … for the right-click menu
};

namespace IntegrationFiles {

// Every file written and removed whole, holding `marker`, so that a file at one of these paths
// that lacks it was not written by Tavrin and is left alone.
inline constexpr std::string_view marker = "Written by tavrin integrate install";
inline constexpr std::string_view urlHandlerDesktopFile = "tavrin.desktop";
inline constexpr std::string_view openWithDesktopFile = "tavrin-share.desktop";
inline constexpr std::string_view schemeMimeType = "x-scheme-handler/tavrin";
inline constexpr std::string_view thunarIdPrefix = "tavrin-";

// None when the program paths are fine; otherwise why they cannot be written into an entry
// (relative, or holding control characters or "%", which the entry formats cannot carry).
std::optional<std::string> programPathProblem(const IntegrationPrograms& programs);

std::vector<IntegrationFile> wholeFiles(const IntegrationLocations& locations, const IntegrationPrograms& programs);
// The paths of the whole files alone, for removal and status; they do not depend on the programs.
std::vector<IntegrationFile> wholeFilePaths(const IntegrationLocations& locations);
// Folders that the whole files may have needed, deepest first: removed on uninstall when empty.
std::vector<std::filesystem::path> createdFolders(const IntegrationLocations& locations);

std::filesystem::path thunarActionsFile(const IntegrationLocations& locations);
std::filesystem::path mimeAppsFile(const IntegrationLocations& locations);

// The MIME types of the types that are cleaned and verified, for the "Open With" entry.
std::vector<std::string> supportedMimeTypes();

// Quoting. A word for /bin/sh and GLib's g_shell_parse_argv: '…' with ' as '\''.
std::string shellQuote(std::string_view word);
// An argument of a desktop entry's Exec key, double-quoted with \ " ` $ escaped when it holds a
// reserved character.
std::string desktopExecArgument(std::string_view word);
// A value of a desktop-entry or key-file string: \ becomes \\ (and line breaks \n).
std::string keyFileValue(std::string_view value);
std::string xmlEscape(std::string_view text);

// Thunar's custom actions: ours, each an <action> with a unique id that starts "tavrin-".
std::string thunarActions(const IntegrationPrograms& programs);
// The file with our actions put in before </actions>, after removing any earlier ones of ours;
// none when the text holds no </actions> to put them before.
std::optional<std::string> withThunarActions(std::string_view uca, std::string_view actions);
// The file without our actions; everything else stays byte for byte.
std::string withoutThunarActions(std::string_view uca);
bool hasThunarActions(std::string_view uca);

// mimeapps.list without the lines that name our handler for tavrin: links.
std::string withoutSchemeHandler(std::string_view mimeApps);
// The default handler recorded for tavrin: links in [Default Applications], if any.
std::optional<std::string> schemeHandler(std::string_view mimeApps);

}  // namespace IntegrationFiles

}  // namespace tavrin
