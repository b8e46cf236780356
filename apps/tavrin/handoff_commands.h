#pragma once
// The commands that connect Tavrin to the desktop: `open-url` carries out a tavrin: link (or a
// file-manager menu entry) and `integrate` installs, removes and reports the per-user
// integration.

#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "handoff/url_dispatch.h"

namespace tavrin::cli {

struct OpenURLOptions {
    std::optional<std::string> menuAction;  // "clean:PRESET" or "open": the arguments are files
    std::vector<std::string> arguments;     // one URL, or the files of a menu entry
    // Give each link to the desktop app when it runs or the bus can start it; false (--here)
    // carries every link out in this process.
    bool handToApp = true;
};

struct IntegrateOptions {
    std::string verb;  // install, uninstall, status
    std::optional<std::filesystem::path> shareProgram;
};

int runOpenURL(const OpenURLOptions& options);
// The same with another handler, such as one backed by the app's queue.
int runOpenURL(const OpenURLOptions& options, TavrinURLHandler& handler);
int runIntegrate(const IntegrateOptions& options);

// Adds both subcommands to `app`; after parsing, `runIfChosen` runs the one that was given.
class HandoffCommands {
public:
    explicit HandoffCommands(CLI::App& app);
    std::optional<int> runIfChosen() const;

private:
    std::unique_ptr<OpenURLOptions> openURL_ = std::make_unique<OpenURLOptions>();
    std::unique_ptr<IntegrateOptions> integrate_ = std::make_unique<IntegrateOptions>();
    CLI::App* openURLCommand_ = nullptr;
    CLI::App* integrateCommand_ = nullptr;
};

}  // namespace tavrin::cli
