#pragma once
// `tavrin watch add|remove|list|enable|disable|run|install-service`: folders whose new files are
// cleaned beside themselves, and the program (or systemd user service) that watches them.

#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace tavrin::cli {

struct WatchOptions {
    std::optional<std::filesystem::path> store;
    std::filesystem::path folder;
    bool json = false;
};

int runWatchAdd(const WatchOptions& options);
int runWatchRemove(const WatchOptions& options);
int runWatchList(const WatchOptions& options);
int runWatchSwitch(const WatchOptions& options, bool enabled);
// Runs in the foreground until SIGTERM or SIGINT.
int runWatchRun(const WatchOptions& options);
int runWatchInstallService(const WatchOptions& options);

// Adds `watch` and its subcommands to `app`; after parsing, `runIfChosen` runs the one given.
class WatchCommands {
public:
    explicit WatchCommands(CLI::App& app);
    std::optional<int> runIfChosen() const;

private:
    std::unique_ptr<WatchOptions> options_ = std::make_unique<WatchOptions>();
    CLI::App* watch_ = nullptr;
    CLI::App* add_ = nullptr;
    CLI::App* remove_ = nullptr;
    CLI::App* list_ = nullptr;
    CLI::App* enable_ = nullptr;
    CLI::App* disable_ = nullptr;
    CLI::App* run_ = nullptr;
    CLI::App* installService_ = nullptr;
};

}  // namespace tavrin::cli
