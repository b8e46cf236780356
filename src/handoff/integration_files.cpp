#include "handoff/integration_files.h"

#include <cstdlib>
#include <fmt/core.h>
#include <pwd.h>
#include <unistd.h>

#include "handoff/finder_context_menu_model.h"
#include "model/file_type.h"

namespace tavrin {

namespace {

namespace fsys = std::filesystem;

std::string_view mimeType(FileType type) {
    switch (type) {
        case FileType::jpeg: return "image/jpeg";
        case FileType::png: return "image/png";
        case FileType::tiff: return "image/tiff";
        case FileType::heic: return "image/heic";
        case FileType::webp: return "image/webp";
        case FileType::gif: return "image/gif";
        case FileType::bmp: return "image/bmp";
        case FileType::raw: return "image/x-dcraw";
        case FileType::pdf: return "application/pdf";
        case FileType::docx: return "application/vnd.openxmlformats-officedocument.wordprocessingml.document";
        case FileType::xlsx: return "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet";
        case FileType::pptx: return "application/vnd.openxmlformats-officedocument.presentationml.presentation";
        case FileType::doc: return "application/msword";
        case FileType::xls: return "application/vnd.ms-excel";
        case FileType::ppt: return "application/vnd.ms-powerpoint";
        case FileType::mov: return "video/quicktime";
        case FileType::mp4: return "video/mp4";
        case FileType::avi: return "video/x-msvideo";
        case FileType::mp3: return "audio/mpeg";
        case FileType::m4a: return "audio/mp4";
        case FileType::wav: return "audio/x-wav";
        case FileType::aiff: return "audio/x-aiff";
        case FileType::flac: return "audio/flac";
    }
    return "application/octet-stream";
}

// One entry of the right-click menu as the static menus of file managers carry it: they cannot
// count the selection, so "Clean Everything" has the title for one file.
struct MenuEntry {
    std::string title;     // "Clean Everything", "Maximum Privacy", …
    std::string folder;    // "" for a top entry, "Clean with Preset" inside the submenu
    std::string slug;      // "clean-everything", "clean-maximum-privacy", …
    FinderMenuAction action;
};

std::vector<MenuEntry> menuEntries() {
    std::vector<MenuEntry> entries;
    for (const auto& item : FinderContextMenuModel::menuItems(1)) {
        if (item.action) {
            const bool clean = item.action->kind == FinderMenuAction::Kind::clean;
            entries.push_back({item.title, "", clean ? "clean-everything" : "open-in-tavrin", *item.action});
            continue;
        }
        for (const auto& sub : item.submenu)
            entries.push_back({sub.title, item.title, "clean-" + std::string(rawValue(sub.action->preset)), *sub.action});
    }
    return entries;
}

std::string tavrinMenuCommand(const MenuEntry& entry) { return "open-url --menu " + entry.action.token() + " --"; }

std::string description(const MenuEntry& entry) {
    if (entry.action.kind == FinderMenuAction::Kind::openInApp) return "Add the selected files to Tavrin";
    return fmt::format("Write cleaned copies of the selected files beside them ({})", title(entry.action.preset));
}

std::string scriptFile(const IntegrationPrograms& programs, const MenuEntry& entry) {
    return fmt::format(
        "#!/bin/sh\n# {}; `tavrin integrate uninstall` removes it.\n"
        "# The file manager passes the selected files as arguments, and they go on as arguments.\n"
        "exec {} {} \"$@\"\n",
        IntegrationFiles::marker, IntegrationFiles::shellQuote(programs.tavrin.string()), tavrinMenuCommand(entry));
}

std::string nemoAction(const IntegrationPrograms& programs, const MenuEntry& entry) {
    const std::string name = entry.folder.empty() ? entry.title : entry.folder + " ▸ " + entry.title;
    // Quote=single: Nemo puts each path in '…' with ' written as '\'' and splits the line as a
    // shell would, so every path arrives as one argument.
    const std::string exec = IntegrationFiles::shellQuote(programs.tavrin.string()) + " " + tavrinMenuCommand(entry) + " %F";
    return fmt::format("# {}; `tavrin integrate uninstall` removes it.\n[Nemo Action]\nName={}\nComment={}\n"
                       "Exec={}\nIcon-Name=tavrin\nSelection=notnone\nExtensions=nodirs;\nQuote=single\n",
                       IntegrationFiles::marker, IntegrationFiles::keyFileValue(name),
                       IntegrationFiles::keyFileValue(description(entry)), IntegrationFiles::keyFileValue(exec));
}

std::string actionId(const MenuEntry& entry) {
    std::string id;
    bool upper = false;
    for (char c : entry.slug) {
        if (c == '-') {
            upper = true;
            continue;
        }
        id += upper ? static_cast<char>(std::toupper(static_cast<unsigned char>(c))) : c;
        upper = false;
    }
    return id;
}

std::string dolphinMenu(const IntegrationPrograms& programs, const std::vector<MenuEntry>& entries,
                        std::string_view submenu) {
    std::string actions;
    for (const auto& entry : entries) actions += actionId(entry) + ";";
    std::string text = fmt::format(
        "# {}; `tavrin integrate uninstall` removes it.\n[Desktop Entry]\nType=Service\nMimeType=all/allfiles;\n"
        "X-KDE-ServiceTypes=KonqPopupMenu/Plugin\nX-KDE-Submenu={}\nIcon=tavrin\nActions={}\n",
        IntegrationFiles::marker, IntegrationFiles::keyFileValue(submenu), actions);
    for (const auto& entry : entries) {
        const std::string exec = IntegrationFiles::desktopExecArgument(programs.tavrin.string()) + " " +
                                 tavrinMenuCommand(entry) + " %F";
        text += fmt::format("\n[Desktop Action {}]\nName={}\nIcon=tavrin\nExec={}\n", actionId(entry),
                            IntegrationFiles::keyFileValue(entry.title), IntegrationFiles::keyFileValue(exec));
    }
    return text;
}

std::string urlHandlerEntry(const IntegrationPrograms& programs) {
    const std::string exec = IntegrationFiles::desktopExecArgument(programs.tavrin.string()) + " open-url %u";
    return fmt::format("[Desktop Entry]\n# {}; `tavrin integrate uninstall` removes it.\nType=Application\n"
                       "Name=Tavrin\nComment=Open tavrin: links\nExec={}\nIcon=tavrin\nTerminal=false\n"
                       "NoDisplay=true\nMimeType={};\n",
                       IntegrationFiles::marker, IntegrationFiles::keyFileValue(exec), IntegrationFiles::schemeMimeType);
}

std::string openWithEntry(const IntegrationPrograms& programs) {
    const std::string exec = IntegrationFiles::desktopExecArgument(programs.tavrinShare.string()) + " %F";
    std::string types;
    for (const auto& type : IntegrationFiles::supportedMimeTypes()) types += type + ";";
    return fmt::format("[Desktop Entry]\n# {}; `tavrin integrate uninstall` removes it.\nType=Application\n"
                       "Name=Tavrin\nGenericName=Metadata Cleaner\nComment=Remove metadata and keep a verified clean "
                       "copy\nExec={}\nIcon=tavrin\nTerminal=false\nCategories=Utility;\nMimeType={}\n",
                       IntegrationFiles::marker, IntegrationFiles::keyFileValue(exec), types);
}

std::string icon() {
    return fmt::format(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"64\" height=\"64\" viewBox=\"0 0 64 64\">\n"
        "  <!-- {}; `tavrin integrate uninstall` removes it. -->\n"
        "  <rect x=\"4\" y=\"4\" width=\"56\" height=\"56\" rx=\"12\" fill=\"#1f5f6b\"/>\n"
        "  <path d=\"M20 14h17l9 9v27a2 2 0 0 1-2 2H20a2 2 0 0 1-2-2V16a2 2 0 0 1 2-2z\" fill=\"#ffffff\"/>\n"
        "  <path d=\"M37 14v9h9\" fill=\"#cfe3e6\"/>\n"
        "  <path d=\"M24 36l6 6 11-13\" fill=\"none\" stroke=\"#1f5f6b\" stroke-width=\"4\" "
        "stroke-linecap=\"round\" stroke-linejoin=\"round\"/>\n"
        "</svg>\n",
        IntegrationFiles::marker);
}

fsys::path homeFolder() {
    if (const char* home = std::getenv("HOME"); home && *home == '/') return home;
    if (const passwd* entry = ::getpwuid(::getuid()); entry && entry->pw_dir && *entry->pw_dir == '/')
        return entry->pw_dir;
    return {};
}

std::optional<fsys::path> absoluteVariable(const char* name) {
    const char* value = std::getenv(name);
    if (value && *value == '/') return fsys::path(value);
    return std::nullopt;
}

std::vector<std::string_view> lines(std::string_view text) {
    std::vector<std::string_view> out;
    std::size_t start = 0;
    while (start < text.size()) {
        auto end = text.find('\n', start);
        end = end == std::string_view::npos ? text.size() : end + 1;
        out.push_back(text.substr(start, end - start));
        start = end;
    }
    return out;
}

std::string_view trimmed(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\n' || s.back() == '\r')) s.remove_suffix(1);
    return s;
}

// The [begin, end) ranges of <action>…</action> blocks that hold our unique id, each with the
// indentation before it and the line end after it.
std::vector<std::pair<std::size_t, std::size_t>> ourThunarBlocks(std::string_view uca) {
    std::vector<std::pair<std::size_t, std::size_t>> blocks;
    std::size_t from = 0;
    while (true) {
        const auto open = uca.find("<action>", from);
        if (open == std::string_view::npos) break;
        const auto close = uca.find("</action>", open);
        if (close == std::string_view::npos) break;
        std::size_t end = close + 9;
        const auto body = uca.substr(open, end - open);
        from = end;
        if (body.find(fmt::format("<unique-id>{}", IntegrationFiles::thunarIdPrefix)) == std::string_view::npos) continue;
        std::size_t begin = open;
        while (begin > 0 && (uca[begin - 1] == ' ' || uca[begin - 1] == '\t')) --begin;
        if (end < uca.size() && uca[end] == '\n') ++end;
        blocks.emplace_back(begin, end);
    }
    return blocks;
}

}  // namespace

std::optional<IntegrationLocations> IntegrationLocations::fromEnvironment() {
    const auto home = homeFolder();
    IntegrationLocations locations;
    if (auto data = absoluteVariable("XDG_DATA_HOME")) locations.dataHome = *data;
    else if (!home.empty()) locations.dataHome = home / ".local/share";
    if (auto config = absoluteVariable("XDG_CONFIG_HOME")) locations.configHome = *config;
    else if (!home.empty()) locations.configHome = home / ".config";
    if (locations.dataHome.empty() || locations.configHome.empty()) return std::nullopt;
    const char* dirs = std::getenv("XDG_CONFIG_DIRS");
    std::string_view list = dirs && *dirs ? dirs : "/etc/xdg";
    std::size_t start = 0;
    while (start <= list.size()) {
        const auto end = list.find(':', start);
        const auto dir = list.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start);
        if (!dir.empty() && dir.front() == '/') locations.configDirs.emplace_back(dir);
        if (end == std::string_view::npos) break;
        start = end + 1;
    }
    return locations;
}

namespace IntegrationFiles {

std::optional<std::string> programPathProblem(const IntegrationPrograms& programs) {
    for (const auto* path : {&programs.tavrin, &programs.tavrinShare}) {
        const std::string text = path->string();
        if (!path->is_absolute()) return fmt::format("{} is not an absolute path", text);
        for (char c : text) {
            const auto u = static_cast<unsigned char>(c);
            if (u < 0x20 || u == 0x7F || c == '%')
                return fmt::format("the path {} holds characters that a menu entry cannot carry (control "
                                   "characters or %); move Tavrin to a plainer folder",
                                   path->filename().string());
        }
    }
    return std::nullopt;
}

std::vector<std::string> supportedMimeTypes() {
    std::vector<std::string> types;
    for (FileType type : fileTypes::allCases())
        if (FormatCapabilities::capabilities(type).allowsStrictVerifiedCleaning()) types.emplace_back(mimeType(type));
    return types;
}

std::string shellQuote(std::string_view word) {
    std::string out = "'";
    for (char c : word) {
        if (c == '\'') out += "'\\''";
        else out += c;
    }
    return out + "'";
}

std::string desktopExecArgument(std::string_view word) {
    static constexpr std::string_view reserved = " \t\n\"'\\><~|&;$*?#()`=";
    if (!word.empty() && word.find_first_of(reserved) == std::string_view::npos) return std::string(word);
    std::string out = "\"";
    for (char c : word) {
        if (c == '"' || c == '`' || c == '$' || c == '\\') out += '\\';
        out += c;
    }
    return out + "\"";
}

std::string keyFileValue(std::string_view value) {
    std::string out;
    for (char c : value) {
        if (c == '\\') out += "\\\\";
        else if (c == '\n') out += "\\n";
        else if (c == '\r') out += "\\r";
        else if (c == '\t') out += "\\t";
        else out += c;
    }
    return out;
}

std::string xmlEscape(std::string_view text) {
    std::string out;
    for (char c : text) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += "&quot;"; break;
            case '\'': out += "&apos;"; break;
            default: out += c;
        }
    }
    return out;
}

std::filesystem::path thunarActionsFile(const IntegrationLocations& locations) {
    return locations.configHome / "Thunar" / "uca.xml";
}

std::filesystem::path mimeAppsFile(const IntegrationLocations& locations) {
    return locations.configHome / "mimeapps.list";
}

std::vector<IntegrationFile> wholeFiles(const IntegrationLocations& locations, const IntegrationPrograms& programs) {
    std::vector<IntegrationFile> files;
    const auto entries = menuEntries();
    const auto menu = FinderSetupRoute::fileManagerMenu;
    for (const auto& [root, manager] : {std::pair{locations.dataHome / "nautilus/scripts/Tavrin", "Nautilus"},
                                        std::pair{locations.configHome / "caja/scripts/Tavrin", "Caja"}}) {
        for (const auto& entry : entries) {
            const auto folder = entry.folder.empty() ? root : root / entry.folder;
            files.push_back({folder / entry.title, scriptFile(programs, entry), true, menu, manager});
        }
    }
    for (const auto& entry : entries)
        files.push_back({locations.dataHome / "nemo/actions" / ("tavrin-" + entry.slug + ".nemo_action"),
                         nemoAction(programs, entry), false, menu, "Nemo"});
    std::vector<MenuEntry> top, presets;
    for (const auto& entry : entries) (entry.folder.empty() ? top : presets).push_back(entry);
    files.push_back({locations.dataHome / "kio/servicemenus/tavrin.desktop", dolphinMenu(programs, top, "Tavrin"), true,
                     menu, "Dolphin"});
    files.push_back({locations.dataHome / "kio/servicemenus/tavrin-presets.desktop",
                     dolphinMenu(programs, presets, FinderContextMenuModel::cleanWithPresetTitle), true, menu,
                     "Dolphin"});
    files.push_back({locations.dataHome / "applications" / openWithDesktopFile, openWithEntry(programs), false,
                     FinderSetupRoute::openWith, ""});
    files.push_back({locations.dataHome / "applications" / urlHandlerDesktopFile, urlHandlerEntry(programs), false,
                     FinderSetupRoute::urlScheme, ""});
    files.push_back({locations.dataHome / "icons/hicolor/scalable/apps/tavrin.svg", icon(), false, std::nullopt, ""});
    return files;
}

std::vector<IntegrationFile> wholeFilePaths(const IntegrationLocations& locations) {
    auto files = wholeFiles(locations, {"/tavrin", "/tavrin-share"});
    for (auto& file : files) file.content.clear();
    return files;
}

std::vector<std::filesystem::path> createdFolders(const IntegrationLocations& locations) {
    const auto& d = locations.dataHome;
    const auto& c = locations.configHome;
    return {d / "nautilus/scripts/Tavrin/Clean with Preset", d / "nautilus/scripts/Tavrin", d / "nautilus/scripts",
            d / "nautilus", c / "caja/scripts/Tavrin/Clean with Preset", c / "caja/scripts/Tavrin", c / "caja/scripts",
            c / "caja", d / "nemo/actions", d / "nemo", d / "kio/servicemenus", d / "kio", d / "applications",
            d / "icons/hicolor/scalable/apps", d / "icons/hicolor/scalable", d / "icons/hicolor", d / "icons",
            c / "Thunar"};
}

std::string thunarActions(const IntegrationPrograms& programs) {
    std::string text;
    for (const auto& entry : menuEntries()) {
        const std::string submenu = entry.folder.empty() ? "Tavrin" : "Tavrin/" + entry.folder;
        // Thunar puts each path through g_shell_quote where %F stands and splits the line as a
        // shell would; the program's own path is quoted the same way here.
        const std::string command = shellQuote(programs.tavrin.string()) + " " + tavrinMenuCommand(entry) + " %F";
        text += fmt::format(
            "<action>\n\t<icon>tavrin</icon>\n\t<name>{}</name>\n\t<submenu>{}</submenu>\n\t<unique-id>{}{}</unique-id>\n"
            "\t<command>{}</command>\n\t<description>{}</description>\n\t<range>*</range>\n\t<patterns>*</patterns>\n"
            "\t<audio-files/>\n\t<image-files/>\n\t<other-files/>\n\t<text-files/>\n\t<video-files/>\n</action>\n",
            xmlEscape(entry.title), xmlEscape(submenu), thunarIdPrefix, entry.slug, xmlEscape(command),
            xmlEscape(description(entry)));
    }
    return text;
}

std::optional<std::string> withThunarActions(std::string_view uca, std::string_view actions) {
    std::string base = withoutThunarActions(uca);
    const auto close = base.rfind("</actions>");
    if (close == std::string::npos) return std::nullopt;
    std::size_t at = close;
    while (at > 0 && (base[at - 1] == ' ' || base[at - 1] == '\t')) --at;
    if (at > 0 && base[at - 1] != '\n') {
        base.insert(at, "\n");
        ++at;
    }
    base.insert(at, actions);
    return base;
}

std::string withoutThunarActions(std::string_view uca) {
    std::string out;
    std::size_t at = 0;
    for (const auto& [begin, end] : ourThunarBlocks(uca)) {
        out.append(uca.substr(at, begin - at));
        at = end;
    }
    out.append(uca.substr(at));
    return out;
}

bool hasThunarActions(std::string_view uca) { return !ourThunarBlocks(uca).empty(); }

std::string withoutSchemeHandler(std::string_view mimeApps) {
    std::string out;
    for (auto line : lines(mimeApps)) {
        const auto content = trimmed(line);
        const auto equals = content.find('=');
        if (equals == std::string_view::npos || trimmed(content.substr(0, equals)) != schemeMimeType) {
            out.append(line);
            continue;
        }
        std::string kept;
        auto values = content.substr(equals + 1);
        std::size_t start = 0;
        while (start < values.size()) {
            auto end = values.find(';', start);
            if (end == std::string_view::npos) end = values.size();
            const auto value = trimmed(values.substr(start, end - start));
            if (!value.empty() && value != urlHandlerDesktopFile) kept += std::string(value) + ";";
            start = end + 1;
        }
        if (!kept.empty()) out += std::string(schemeMimeType) + "=" + kept + "\n";
    }
    return out;
}

std::optional<std::string> schemeHandler(std::string_view mimeApps) {
    bool inDefaults = false;
    for (auto line : lines(mimeApps)) {
        const auto content = trimmed(line);
        if (!content.empty() && content.front() == '[') {
            inDefaults = content == "[Default Applications]";
            continue;
        }
        const auto equals = content.find('=');
        if (!inDefaults || equals == std::string_view::npos || trimmed(content.substr(0, equals)) != schemeMimeType)
            continue;
        auto values = content.substr(equals + 1);
        const auto first = trimmed(values.substr(0, values.find(';')));
        if (!first.empty()) return std::string(first);
    }
    return std::nullopt;
}

}  // namespace IntegrationFiles

}  // namespace tavrin
