#pragma once
// The app's own watching of the watched folders. It runs the watchers only while no other
// process does: it takes the lock that the background service (`tavrin watch run`) takes, and
// while the service holds it, the app leaves the folders to it and asks again now and then, so it
// takes over when the service ends. The supervisor reconciles through WatchedFoldersReconciler
// whenever the records or the settings change, in this process or another.

#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "data/watched_folder.h"
#include "intake/instance_lock.h"
#include "intake/watched_folders_supervisor.h"
#include "run_report.h"
#include "services/event_loop.h"

namespace tavrin {

enum class WatchedFolderState { watching, paused, missing, runByService, off };

// "Watching", "Paused", "Folder missing", "Run by the background service", "Off".
std::string_view label(WatchedFolderState state);

class AppWatchedFolders {
public:
    struct Options {
        std::string lockName{InstanceLock::watchedFoldersLockName};
        double takeOverInterval = 5.0;    // seconds between asks for the service's lock
        double batchQuietInterval = 1.0;  // a batch ends when no file was cleaned for this long
        int workerCount = 2;
    };
    static constexpr std::size_t recentPerFolder = 5;

    // `onBatchFinished` runs on the loop's thread when a batch of cleaned or failed files ends.
    AppWatchedFolders(EventLoop& loop, std::shared_ptr<ModelContainer> store, std::shared_ptr<const TavrinEngine> engine,
                      std::function<void(const RunReport&)> onBatchFinished, Options options);
    AppWatchedFolders(EventLoop& loop, std::shared_ptr<ModelContainer> store, std::shared_ptr<const TavrinEngine> engine,
                      std::function<void(const RunReport&)> onBatchFinished);
    ~AppWatchedFolders();
    AppWatchedFolders(const AppWatchedFolders&) = delete;
    AppWatchedFolders& operator=(const AppWatchedFolders&) = delete;

    // Call once, on the loop's thread.
    void start();
    // After a change of the records or the settings in this process: read the store now rather
    // than when the store's own change arrives.
    void reconcile();

    bool isRunningHere() const { return supervisor_ != nullptr; }
    bool isRunByService() const { return started_ && !supervisor_; }
    std::size_t runningWatcherCount() const { return supervisor_ ? supervisor_->runningWatcherCount() : 0; }
    // The state to show for a record, given the master switch.
    WatchedFolderState state(const WatchedFolder& folder, bool masterSwitch) const;
    // The outputs last cleaned in `folderPath` by this app, newest first.
    std::vector<std::filesystem::path> recentlyCleaned(const std::string& folderPath) const;
    // The supervisor's last message (a folder that cannot be watched, …); empty when none.
    const std::string& lastNotice() const { return lastNotice_; }
    // Called on the loop's thread when the app takes over, a file is cleaned, or a notice comes.
    void addChangeListener(std::function<void()> listener);
    // Blocks until the watchers' cleaning is idle (tests).
    void waitUntilIdle();

private:
    void tryTakeOver();
    void fileCleaned(const CleanedFile& file);
    void fileFailed(const std::filesystem::path& source, const std::string& reason);
    void armBatchEnd();
    void changed();

    EventLoop& loop_;
    std::shared_ptr<ModelContainer> store_;
    std::shared_ptr<const TavrinEngine> engine_;
    std::function<void(const RunReport&)> onBatchFinished_;
    Options options_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);

    bool started_ = false;
    std::optional<InstanceLock> lock_;
    std::unique_ptr<WatchedFoldersSupervisor> supervisor_;
    std::optional<EventLoop::TimerId> takeOverTimer_;
    std::optional<EventLoop::TimerId> batchTimer_;
    RunReport batch_;
    std::map<std::string, std::deque<std::filesystem::path>> recent_;
    std::string lastNotice_;
    std::vector<std::function<void()>> listeners_;
};

}  // namespace tavrin
