#pragma once
// `tavrin settings`, `tavrin settings set KEY VALUE` and `tavrin presets list`: the settings
// record and the presets of the store. The store is the user's (the data directory), an
// in-memory one when TAVRIN_USE_IN_MEMORY_STORE is "1", or the file given with --store.

#include <filesystem>
#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace tavrin::cli {

struct StoreCommandOptions {
    std::optional<std::filesystem::path> store;
    bool json = false;
    std::string key;
    std::string value;
    // The subcommands, once registered.
    CLI::App* settings = nullptr;
    CLI::App* settingsSet = nullptr;
    CLI::App* presets = nullptr;
    CLI::App* presetsList = nullptr;
};

void addStoreCommands(CLI::App& app, StoreCommandOptions& options);
// The exit status when one of these commands was chosen; none otherwise.
std::optional<int> runStoreCommands(const StoreCommandOptions& options);

}  // namespace tavrin::cli
