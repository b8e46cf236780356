#pragma once
// "Launch at login" the freedesktop way: a desktop entry in
// $XDG_CONFIG_HOME/autostart, written whole (temporary file, then rename) or removed.

#include <filesystem>
#include <optional>
#include <string>

namespace tavrin {

class AutostartEntry {
public:
    static constexpr const char* fileName = "com.tavrin.Tavrin.desktop";

    // `configHome` is $XDG_CONFIG_HOME; `program` the absolute path of the app to start.
    AutostartEntry(std::filesystem::path configHome, std::filesystem::path program);
    // $XDG_CONFIG_HOME, else ~/.config; none without a home folder.
    static std::optional<std::filesystem::path> configHomeFromEnvironment();

    std::filesystem::path path() const { return configHome_ / "autostart" / fileName; }
    bool isInstalled() const;
    // The entry's text: starts the app in the background (no window until it is asked for).
    std::string content() const;
    // Both throw std::runtime_error naming the path and the reason.
    void install() const;
    void remove() const;

private:
    std::filesystem::path configHome_;
    std::filesystem::path program_;
};

}  // namespace tavrin
