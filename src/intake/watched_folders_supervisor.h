#pragma once
// Runs the watchers of the enabled watched folders and cleans what they report, beside each
// file, on worker threads. It reads the records and settings from the store, and reconciles
// again whenever the store changes (another process writes it: `tavrin watch add`, the app). The
// headless `tavrin watch run` and the desktop app both run it, never both at once (see
// InstanceLock).

#include <condition_variable>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "data/store.h"
#include "intake/folder_watcher.h"
#include "intake/watched_folder_auto_cleaner.h"
#include "intake/watched_folders_reconciler.h"

namespace tavrin {

// What the store says watching should be.
struct WatchedFoldersConfiguration {
    bool enabled = false;  // the master switch
    double stabilityInterval = 2.0;
    double debounceInterval = 0.5;
    CleanCopySuffix suffix;
    CleaningProfile profile;  // the default preset's, else maximum privacy
    std::vector<WatchedFoldersReconciler::DesiredFolder> folders;  // the enabled records

    // The decider of these settings: its output suffixes hold the copies' suffix.
    WatchedFolderIntakeDecider decider() const;
};

// Reads the settings record (defaults when there is none), the default preset and the enabled
// folders. Throws StoreError.
WatchedFoldersConfiguration readWatchedFoldersConfiguration(ModelContext& context);

class WatchedFoldersSupervisor {
public:
    struct Events {
        // Called on a worker thread, one call at a time.
        std::function<void(const CleanedFile&)> cleaned;
        std::function<void(const std::filesystem::path& source, const std::string& reason)> failed;
        // Called on the loop's thread: a folder that cannot be watched or stopped being watched,
        // the master switch, a store that cannot be read.
        std::function<void(const std::string& message)> notice;
    };

    WatchedFoldersSupervisor(EventLoop& loop, std::shared_ptr<ModelContainer> store,
                             std::shared_ptr<const TavrinEngine> engine, Events events, int workerCount = 2);
    ~WatchedFoldersSupervisor();
    WatchedFoldersSupervisor(const WatchedFoldersSupervisor&) = delete;
    WatchedFoldersSupervisor& operator=(const WatchedFoldersSupervisor&) = delete;

    // Reconciles, then follows the store's changes. Call on the loop's thread.
    void start();
    // Reads the store and brings the running watchers in line with it.
    void reconcile();
    // Stops every watcher, drops files not yet begun, and waits for those being cleaned.
    void stop();

    std::size_t runningWatcherCount() const { return running_.size(); }
    // Blocks until every reported file has been cleaned or has failed (tests, benchmarks).
    void waitUntilIdle();

private:
    struct Running {
        std::string path;
        std::string deciderKey;
        std::unique_ptr<FolderWatcher> watcher;
    };
    struct Job {
        std::filesystem::path url;
        std::shared_ptr<const WatchedFolderAutoCleaner> cleaner;
        std::shared_ptr<const CleaningProfile> profile;
    };

    void startWatcher(const Uuid& id, const std::string& path, std::optional<FolderWatcher::HandledState> inherited);
    void watchStore();
    void onStoreChanged();
    void enqueue(std::vector<std::filesystem::path> urls);
    void work();
    void notice(const Uuid& id, const std::string& message);

    EventLoop& loop_;
    std::shared_ptr<ModelContainer> store_;
    std::shared_ptr<const TavrinEngine> engine_;
    Events events_;
    std::shared_ptr<const CloudFileMaterializer> materializer_;

    WatchedFoldersConfiguration configuration_;
    std::shared_ptr<const WatchedFolderAutoCleaner> cleaner_;
    std::shared_ptr<const CleaningProfile> profile_;
    std::map<Uuid, Running, WatchedFoldersReconciler::UuidOrder> running_;
    std::map<Uuid, std::string, WatchedFoldersReconciler::UuidOrder> lastNotice_;
    std::optional<bool> lastEnabled_;

    int storeFd_ = -1;
    std::optional<EventLoop::WatchId> storeWatch_;
    std::optional<EventLoop::TimerId> storeTimer_;

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Job> jobs_;
    int busy_ = 0;
    bool stopping_ = false;
    std::vector<std::thread> workers_;
};

}  // namespace tavrin
