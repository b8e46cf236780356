// `tavrin watch add|remove|list|enable|disable`: the watched-folder records and the master switch.
#include "watch_command.h"

#include <fmt/format.h>
#include <iostream>
#include <nlohmann/json.hpp>

#include "cli.h"
#include "data/queries.h"
#include "data/shared_container.h"
#include "data/store_defaults.h"

namespace tavrin::cli {

namespace {

std::shared_ptr<ModelContainer> openStore(const WatchOptions& options) {
    return options.store ? ModelContainerFactory::atURL(*options.store) : ModelContainerFactory::application();
}

// The folder as the records keep it: absolute, without "." and "..", symbolic links resolved so
// that one folder is one record.
std::optional<std::filesystem::path> canonicalFolder(const std::filesystem::path& given, bool mustExist) {
    std::error_code ec;
    auto absolute = std::filesystem::absolute(given, ec).lexically_normal();
    if (ec) return std::nullopt;
    if (absolute.has_relative_path() && absolute.filename().empty()) absolute = absolute.parent_path();
    auto canonical = std::filesystem::canonical(absolute, ec);
    if (!ec) return canonical;
    if (mustExist) return std::nullopt;
    return absolute;
}

std::shared_ptr<WatchedFolder> findByPath(ModelContext& context, const std::string& path) {
    for (auto& folder : context.fetch(WatchedFolderQueries::allFolders()))
        if (folder->path == path) return folder;
    return nullptr;
}

std::string switchLine(bool enabled) {
    return enabled ? "Watched folders are on." : "Watched folders are off; turn them on with \u2018tavrin watch enable\u2019.";
}

}  // namespace

int runWatchAdd(const WatchOptions& options) {
    std::error_code ec;
    const auto folder = canonicalFolder(options.folder, true);
    if (!folder || !std::filesystem::is_directory(*folder, ec)) {
        std::cerr << fmt::format("tavrin: \u201C{}\u201D is not a folder\n", options.folder.string());
        return kFailure;
    }
    auto container = openStore(options);
    auto& context = container->mainContext();
    auto record = findByPath(context, folder->string());
    const bool existed = record != nullptr;
    if (!record) {
        record = std::make_shared<WatchedFolder>();
        record->id = Uuid::random();
        record->path = folder->string();
        record->dateAdded = std::chrono::system_clock::now();
        context.insert(record);
    }
    record->isEnabled = true;
    // A folder deleted and made again is another inode: the new bookmark also tells a running
    // watcher that something changed, so it tries the folder again.
    try {
        record->bookmarkData = Bookmarks::standard().create(*folder);
    } catch (const std::exception&) {
        record->bookmarkData.reset();
    }
    auto settings = currentOrNewSettings(context);
    if (context.hasChanges()) context.save();
    std::cout << fmt::format("{} {}\n", existed ? "Watching again" : "Watching", folder->string());
    if (!settings->watchedFoldersEnabled) std::cout << switchLine(false) << "\n";
    return kSuccess;
}

int runWatchRemove(const WatchOptions& options) {
    const auto folder = canonicalFolder(options.folder, false);
    auto container = openStore(options);
    auto& context = container->mainContext();
    auto record = folder ? findByPath(context, folder->string()) : nullptr;
    // A folder that is gone no longer resolves: match the path as typed too.
    if (!record) record = findByPath(context, std::filesystem::absolute(options.folder).lexically_normal().string());
    if (!record) {
        std::cerr << fmt::format("tavrin: \u201C{}\u201D is not a watched folder\n", options.folder.string());
        return kFailure;
    }
    const auto path = record->path;
    context.deleteRecord(record);
    context.save();
    std::cout << fmt::format("Stopped watching {}\n", path);
    return kSuccess;
}

int runWatchList(const WatchOptions& options) {
    auto container = openStore(options);
    auto& context = container->mainContext();
    const auto settings = currentSettings(context);
    const bool enabled = settings ? settings->watchedFoldersEnabled : AppSettings::Defaults::watchedFoldersEnabled;
    const auto folders = context.fetch(WatchedFolderQueries::allFolders());
    if (options.json) {
        nlohmann::ordered_json out;
        out["enabled"] = enabled;
        out["folders"] = nlohmann::ordered_json::array();
        for (const auto& f : folders) {
            std::error_code ec;
            out["folders"].push_back({{"id", f->id.uuidString()},
                                      {"path", f->path},
                                      {"isEnabled", f->isEnabled},
                                      {"exists", std::filesystem::is_directory(f->path, ec)},
                                      {"dateAdded", isoDateString(f->dateAdded)}});
        }
        std::cout << out.dump(2) << "\n";
        return kSuccess;
    }
    std::cout << switchLine(enabled) << "\n";
    if (folders.empty()) std::cout << "No watched folders; add one with \u2018tavrin watch add DIR\u2019.\n";
    for (const auto& f : folders) {
        std::error_code ec;
        const char* state = !f->isEnabled ? "paused" : std::filesystem::is_directory(f->path, ec) ? "watched" : "missing";
        std::cout << fmt::format("  {:<8} {}\n", state, f->displayPath());
    }
    return kSuccess;
}

int runWatchSwitch(const WatchOptions& options, bool enabled) {
    auto container = openStore(options);
    auto& context = container->mainContext();
    auto settings = currentOrNewSettings(context);
    settings->watchedFoldersEnabled = enabled;
    if (context.hasChanges()) context.save();
    std::cout << switchLine(enabled) << "\n";
    return kSuccess;
}

WatchCommands::WatchCommands(CLI::App& app) {
    const char* storeHelp = "Use the store at PATH instead of the user's (~/.local/share/Tavrin/Tavrin.store)";
    watch_ = app.add_subcommand("watch", "Folders whose new files are cleaned beside themselves (NAME-clean.EXT)");
    watch_->require_subcommand(1);
    const auto withStore = [&](CLI::App* command) {
        command->add_option("--store", options_->store, storeHelp);
        return command;
    };
    add_ = withStore(watch_->add_subcommand("add", "Watch a folder: files that arrive in it from now on are cleaned"));
    add_->add_option("DIR", options_->folder, "The folder")->required();
    remove_ = withStore(watch_->add_subcommand("remove", "Stop watching a folder"));
    remove_->add_option("DIR", options_->folder, "The folder")->required();
    list_ = withStore(watch_->add_subcommand("list", "List the watched folders and whether watching is on"));
    list_->add_flag("--json", options_->json, "Print JSON");
    enable_ = withStore(watch_->add_subcommand("enable", "Turn watched folders on"));
    disable_ = withStore(watch_->add_subcommand("disable", "Turn watched folders off"));
    run_ = withStore(watch_->add_subcommand(
        "run", "Watch the folders in the foreground, printing a line per cleaned or failed file, until stopped"));
    run_->add_flag("--json", options_->json, "Print one JSON object per line");
    installService_ = watch_->add_subcommand(
        "install-service", "Install and start the systemd user service tavrin-watch.service, which runs 'tavrin watch run'");
}

std::optional<int> WatchCommands::runIfChosen() const {
    if (!*watch_) return std::nullopt;
    try {
        if (*add_) return runWatchAdd(*options_);
        if (*remove_) return runWatchRemove(*options_);
        if (*list_) return runWatchList(*options_);
        if (*enable_) return runWatchSwitch(*options_, true);
        if (*disable_) return runWatchSwitch(*options_, false);
        if (*run_) return runWatchRun(*options_);
        if (*installService_) return runWatchInstallService(*options_);
    } catch (const std::exception& e) {
        std::cerr << "tavrin: " << e.what() << "\n";
        return kFailure;
    }
    return kUsage;
}

}  // namespace tavrin::cli
