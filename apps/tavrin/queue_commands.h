#pragma once
// `tavrin queue …`, `tavrin presets create|update|delete|duplicate` and `tavrin history`: thin
// front ends over the queue, preset and history services of the user's store (or --store).

#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "store_commands.h"

namespace tavrin::cli {

struct QueueCommandOptions {
    std::optional<std::filesystem::path> store;
    bool json = false;
    bool all = false;
    bool completed = false;
    bool inPlace = false;  // process: replace the users' files, originals to the Trash
    std::optional<std::string> preset;
    std::vector<std::filesystem::path> paths;
    std::vector<std::string> ids;
    std::string name;
    std::optional<std::string> newName;
    std::optional<std::vector<std::string>> categories;
    std::optional<std::vector<std::string>> removeKeys;
    std::optional<std::vector<std::string>> keepKeys;
    std::optional<std::int64_t> limit;
    std::filesystem::path directory;
};

// Adds the commands to `app` (the preset commands under the existing `presets`); after parsing,
// `runIfChosen` runs the one that was given. Run it before the store commands.
class QueueCommands {
public:
    QueueCommands(CLI::App& app, StoreCommandOptions& storeOptions);
    std::optional<int> runIfChosen() const;

private:
    std::unique_ptr<QueueCommandOptions> options_ = std::make_unique<QueueCommandOptions>();
    CLI::App* add_ = nullptr;
    CLI::App* list_ = nullptr;
    CLI::App* setPreset_ = nullptr;
    CLI::App* process_ = nullptr;
    CLI::App* remove_ = nullptr;
    CLI::App* export_ = nullptr;
    CLI::App* create_ = nullptr;
    CLI::App* update_ = nullptr;
    CLI::App* delete_ = nullptr;
    CLI::App* duplicate_ = nullptr;
    CLI::App* history_ = nullptr;
};

}  // namespace tavrin::cli
