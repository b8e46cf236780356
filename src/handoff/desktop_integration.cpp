#include "handoff/desktop_integration.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

#include "model/uuid.h"

namespace tavrin {

namespace {

namespace fsys = std::filesystem;

constexpr std::uintmax_t kMaximumEditedFileSize = 8 << 20;

// The text of a file we may have written or must edit; none when absent, unreadable or too big.
std::optional<std::string> readText(const fsys::path& path) {
    std::error_code ec;
    if (!fsys::is_regular_file(fsys::symlink_status(path, ec)) || fsys::file_size(path, ec) > kMaximumEditedFileSize)
        return std::nullopt;
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

bool isOurs(const fsys::path& path) {
    const auto text = readText(path);
    return text && text->find(IntegrationFiles::marker) != std::string::npos;
}

bool existsAtAll(const fsys::path& path) {
    std::error_code ec;
    return fsys::exists(fsys::symlink_status(path, ec));
}

// Writes beside the target and renames over it, so a reader sees the old file or the new one.
void writeAtomically(const fsys::path& path, std::string_view content, bool executable) {
    fsys::create_directories(path.parent_path());
    const auto temporary = path.parent_path() / (".tavrin-" + Uuid::random().uuidString());
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, executable ? 0755 : 0644);
    if (fd < 0) throw std::runtime_error(fmt::format("cannot write {}", temporary.string()));
    std::size_t done = 0;
    bool ok = true;
    while (ok && done < content.size()) {
        const auto n = ::write(fd, content.data() + done, content.size() - done);
        if (n <= 0) ok = false;
        else done += static_cast<std::size_t>(n);
    }
    ok = ::fsync(fd) == 0 && ok;
    ::close(fd);
    if (ok) ok = ::rename(temporary.c_str(), path.c_str()) == 0;
    if (!ok) {
        ::unlink(temporary.c_str());
        throw std::runtime_error(fmt::format("cannot write {}", path.string()));
    }
}

bool onlyHeadersLeft(std::string_view text) {
    std::istringstream in{std::string(text)};
    std::string line;
    while (std::getline(in, line)) {
        const auto first = line.find_first_not_of(" \t\r");
        if (first != std::string::npos && line[first] != '[') return false;
    }
    return true;
}

}  // namespace

std::string DesktopIntegration::emptyThunarActions() const {
    // Thunar reads the user's file instead of the system's: a new one starts as a copy of the
    // system's, so its own actions stay in the menu.
    for (const auto& dir : locations_.configDirs)
        if (auto text = readText(dir / "Thunar/uca.xml"); text && text->find("</actions>") != std::string::npos)
            return *text;
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<actions>\n</actions>\n";
}

IntegrationReport DesktopIntegration::install(const IntegrationPrograms& programs) {
    IntegrationReport report;
    if (auto problem = IntegrationFiles::programPathProblem(programs)) {
        report.problems.push_back(*problem);
        return report;
    }
    for (const auto& file : IntegrationFiles::wholeFiles(locations_, programs)) {
        if (existsAtAll(file.path) && !isOurs(file.path)) {
            report.problems.push_back(
                fmt::format("{} exists and was not written by Tavrin; it was left as it is", file.path.string()));
            continue;
        }
        try {
            writeAtomically(file.path, file.content, file.executable);
            report.written.push_back(file.path.string());
        } catch (const std::exception& e) {
            report.problems.push_back(e.what());
        }
    }
    installThunarActions(programs, report);
    registerSchemeHandler(report);
    return report;
}

void DesktopIntegration::installThunarActions(const IntegrationPrograms& programs, IntegrationReport& report) {
    const auto path = IntegrationFiles::thunarActionsFile(locations_);
    std::optional<std::string> existing = readText(path);
    if (!existing) {
        if (existsAtAll(path)) {
            report.problems.push_back(fmt::format("{} cannot be read; Thunar's menu was not changed", path.string()));
            return;
        }
        if (!launcher_.isInstalled("thunar")) {
            report.notes.push_back("Thunar is not installed; its menu was not set up");
            return;
        }
        existing = emptyThunarActions();
    }
    const auto edited = IntegrationFiles::withThunarActions(*existing, IntegrationFiles::thunarActions(programs));
    if (!edited) {
        report.problems.push_back(
            fmt::format("{} holds no </actions> to add to; Thunar's menu was not changed", path.string()));
        return;
    }
    try {
        writeAtomically(path, *edited, false);
        report.written.push_back(path.string());
    } catch (const std::exception& e) {
        report.problems.push_back(e.what());
    }
}

void DesktopIntegration::registerSchemeHandler(IntegrationReport& report) {
    if (!launcher_.isInstalled("xdg-mime")) {
        report.notes.push_back(
            "xdg-mime was not found, so Tavrin is not yet the default handler of tavrin: links; install xdg-utils "
            "and run `tavrin integrate install` again, or choose Tavrin for them in your desktop's settings");
        return;
    }
    const auto status = launcher_.run({"xdg-mime", "default", std::string(IntegrationFiles::urlHandlerDesktopFile),
                                       std::string(IntegrationFiles::schemeMimeType)});
    if (status && *status == 0) report.notes.push_back("Tavrin handles tavrin: links (registered with xdg-mime)");
    else report.problems.push_back("xdg-mime could not register Tavrin as the handler of tavrin: links");
}

IntegrationReport DesktopIntegration::uninstall() {
    IntegrationReport report;
    for (const auto& file : IntegrationFiles::wholeFilePaths(locations_)) {
        if (!existsAtAll(file.path)) continue;
        if (!isOurs(file.path)) {
            report.notes.push_back(
                fmt::format("{} was not written by Tavrin; it was left as it is", file.path.string()));
            continue;
        }
        std::error_code ec;
        if (fsys::remove(file.path, ec)) report.removed.push_back(file.path.string());
        else report.problems.push_back(fmt::format("cannot remove {}: {}", file.path.string(), ec.message()));
    }
    removeThunarActions(report);
    removeSchemeHandler(report);
    for (const auto& folder : IntegrationFiles::createdFolders(locations_)) {
        std::error_code ec;
        if (fsys::is_directory(fsys::symlink_status(folder, ec)) && fsys::is_empty(folder, ec) && !ec)
            fsys::remove(folder, ec);
    }
    return report;
}

void DesktopIntegration::removeThunarActions(IntegrationReport& report) {
    const auto path = IntegrationFiles::thunarActionsFile(locations_);
    const auto text = readText(path);
    if (!text || !IntegrationFiles::hasThunarActions(*text)) return;
    const auto remaining = IntegrationFiles::withoutThunarActions(*text);
    std::error_code ec;
    try {
        // A file that is now what install started from was made by install: it goes.
        if (remaining == emptyThunarActions()) fsys::remove(path, ec);
        else writeAtomically(path, remaining, false);
        report.removed.push_back(path.string());
    } catch (const std::exception& e) {
        report.problems.push_back(e.what());
    }
}

void DesktopIntegration::removeSchemeHandler(IntegrationReport& report) {
    const auto path = IntegrationFiles::mimeAppsFile(locations_);
    const auto text = readText(path);
    if (!text) return;
    const auto remaining = IntegrationFiles::withoutSchemeHandler(*text);
    if (remaining == *text) return;
    std::error_code ec;
    try {
        if (onlyHeadersLeft(remaining)) fsys::remove(path, ec);
        else writeAtomically(path, remaining, false);
        report.removed.push_back(path.string() + " (the tavrin: link handler)");
    } catch (const std::exception& e) {
        report.problems.push_back(e.what());
    }
}

IntegrationStatus DesktopIntegration::status() const {
    IntegrationStatus status;
    std::map<std::string, bool> complete;
    bool openWith = false, urlHandler = false;
    for (const auto& file : IntegrationFiles::wholeFilePaths(locations_)) {
        const bool ours = isOurs(file.path);
        if (!file.route) continue;
        switch (*file.route) {
            case FinderSetupRoute::fileManagerMenu: {
                auto [it, inserted] = complete.emplace(file.fileManager, ours);
                if (!inserted) it->second = it->second && ours;
                break;
            }
            case FinderSetupRoute::openWith: openWith = ours; break;
            case FinderSetupRoute::urlScheme: urlHandler = ours; break;
        }
    }
    for (const auto& [manager, installed] : complete)
        if (installed) status.fileManagers.push_back(manager);
    if (auto uca = readText(IntegrationFiles::thunarActionsFile(locations_)); uca && IntegrationFiles::hasThunarActions(*uca))
        status.fileManagers.push_back("Thunar");
    status.routes.fileManagerMenu = !status.fileManagers.empty();
    status.routes.openWith = openWith;
    if (!urlHandler) {
        status.routes.urlScheme = false;
    } else {
        // Installed, but whether links reach it depends on the default the desktop records.
        const auto mimeApps = readText(IntegrationFiles::mimeAppsFile(locations_));
        const auto handler = mimeApps ? IntegrationFiles::schemeHandler(*mimeApps) : std::nullopt;
        if (handler && *handler == IntegrationFiles::urlHandlerDesktopFile) status.routes.urlScheme = true;
    }
    return status;
}

}  // namespace tavrin
