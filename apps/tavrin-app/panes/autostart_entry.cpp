#include "autostart_entry.h"

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include <fmt/format.h>

#include "handoff/integration_files.h"

namespace tavrin {

namespace {
constexpr const char* kMarker = "X-Tavrin-Autostart=true";
}

AutostartEntry::AutostartEntry(std::filesystem::path configHome, std::filesystem::path program)
    : configHome_(std::move(configHome)), program_(std::move(program)) {}

std::optional<std::filesystem::path> AutostartEntry::configHomeFromEnvironment() {
    if (const char* config = std::getenv("XDG_CONFIG_HOME"); config && config[0] == '/') return std::filesystem::path(config);
    if (const char* home = std::getenv("HOME"); home && home[0] == '/') return std::filesystem::path(home) / ".config";
    return std::nullopt;
}

bool AutostartEntry::isInstalled() const {
    std::error_code ec;
    return std::filesystem::is_regular_file(path(), ec);
}

std::string AutostartEntry::content() const {
    return fmt::format(
        "[Desktop Entry]\n"
        "Type=Application\n"
        "Name=Tavrin\n"
        "Comment=Remove hidden metadata from files\n"
        "Exec={} --background\n"
        "Icon=com.tavrin.Tavrin\n"
        "Terminal=false\n"
        "NoDisplay=true\n"
        "X-GNOME-Autostart-enabled=true\n"
        "{}\n",
        IntegrationFiles::desktopExecArgument(program_.string()), kMarker);
}

void AutostartEntry::install() const {
    const auto target = path();
    std::error_code ec;
    std::filesystem::create_directories(target.parent_path(), ec);
    if (ec) throw std::runtime_error(fmt::format("Cannot create {}: {}", target.parent_path().string(), ec.message()));
    const auto temporary = target.parent_path() / (std::string(".") + fileName + ".tmp");
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out << content();
        out.flush();
        if (!out) {
            std::filesystem::remove(temporary, ec);
            throw std::runtime_error(fmt::format("Cannot write {}", temporary.string()));
        }
    }
    std::filesystem::rename(temporary, target, ec);
    if (ec) {
        std::error_code ignored;
        std::filesystem::remove(temporary, ignored);
        throw std::runtime_error(fmt::format("Cannot write {}: {}", target.string(), ec.message()));
    }
}

void AutostartEntry::remove() const {
    std::error_code ec;
    std::filesystem::remove(path(), ec);
    if (ec) throw std::runtime_error(fmt::format("Cannot remove {}: {}", path().string(), ec.message()));
}

}  // namespace tavrin
