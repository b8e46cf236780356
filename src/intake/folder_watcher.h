#pragma once
// Watches one folder with inotify on the main actor's event loop and reports files that have
// finished arriving: seen twice, at least the stability interval apart, with the same size and
// modification time. What lies in the folder when watching begins is a baseline and is never
// reported; a reported or ignored file is not looked at again while it stays in the folder.
//
// Bursts of events collapse behind the debounce interval; a file's countdown starts at its last
// reported change, and while files are under observation a follow-up listing comes when the first
// of them is due. An idle folder costs nothing: no timer
// runs and the descriptor sleeps in poll.

#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "intake/watched_folder_intake_decider.h"
#include "services/event_loop.h"

namespace tavrin {

// Why a folder is not (or no longer) watched.
class FolderWatchError : public std::exception {
public:
    enum class Case { cannotOpen, watchLimitReached, instanceLimitReached, folderDeleted, folderMoved };

    static FolderWatchError cannotOpen(std::filesystem::path folder, int errorNumber);
    static FolderWatchError watchLimitReached(std::filesystem::path folder);
    static FolderWatchError instanceLimitReached(std::filesystem::path folder);
    static FolderWatchError folderDeleted(std::filesystem::path folder);
    static FolderWatchError folderMoved(std::filesystem::path folder);

    Case errorCase() const { return case_; }
    const std::filesystem::path& folder() const { return folder_; }
    std::string description() const;
    const char* what() const noexcept override { return text_.c_str(); }

private:
    FolderWatchError(Case c, std::filesystem::path folder, int errorNumber = 0);
    Case case_;
    std::filesystem::path folder_;
    int errorNumber_;
    std::string text_;
};

// The two inotify calls, behind a seam so that tests make them fail as a full watch table or an
// exhausted instance count does. Both return -1 with errno set on failure.
class InotifyKernel {
public:
    virtual ~InotifyKernel() = default;
    virtual int init() = 0;  // a non-blocking, close-on-exec instance
    virtual int addWatch(int fd, const char* path, std::uint32_t mask) = 0;
    static std::shared_ptr<InotifyKernel> system();
};

class FolderWatcher {
public:
    struct PendingSnapshot {
        WatchedFolderFileState state;
        double observedAt = 0;  // seconds of the loop's clock
        bool operator==(const PendingSnapshot&) const = default;
    };
    // What a watcher knew, so that its successor on the same folder reports nothing twice.
    struct HandledState {
        std::set<std::string> handledPaths;
        std::map<std::string, PendingSnapshot> pending;
    };
    using StableFilesHandler = std::function<void(std::vector<std::filesystem::path>)>;
    using StoppedHandler = std::function<void(const FolderWatchError&)>;

    // Negative intervals count as 0. `onStopped` hears, through a posted task, that the folder was
    // deleted or moved away; the watcher has stopped by then. Call everything on the loop's thread.
    FolderWatcher(EventLoop& loop, std::filesystem::path directoryURL, WatchedFolderIntakeDecider decider,
                  double debounceInterval, std::optional<HandledState> inheritedState, StableFilesHandler onStableFiles,
                  StoppedHandler onStopped = {}, std::shared_ptr<InotifyKernel> kernel = InotifyKernel::system());
    ~FolderWatcher();
    FolderWatcher(const FolderWatcher&) = delete;
    FolderWatcher& operator=(const FolderWatcher&) = delete;

    // Begins watching; does nothing while watching. A folder that cannot be watched stays
    // unwatched and the reason is returned.
    std::optional<FolderWatchError> start();
    // Stops watching, forgets the files under observation and voids every delayed listing. The
    // handled paths stay for snapshotHandledState().
    void stop();
    bool isWatching() const { return inotifyFd_ >= 0; }
    HandledState snapshotHandledState() const;

    const std::filesystem::path& directoryURL() const { return directoryURL_; }
    const WatchedFolderIntakeDecider& decider() const { return decider_; }
    double debounceInterval() const { return debounceInterval_; }

private:
    struct ScannedEntry {
        std::filesystem::path url;
        bool isRegularFile = false;
        WatchedFolderFileState state;
    };

    struct Drained {
        bool changed = false;
        std::optional<FolderWatchError> gone;
    };
    // Reads every queued event, noting the time of each entry's latest.
    Drained drainEvents();
    void onReadable();
    void scheduleRescan();
    void scheduleStabilityFollowUp();
    void scheduleListing(double delay);
    void rescan();
    std::vector<ScannedEntry> listDirectory() const;
    std::optional<std::filesystem::path> evaluate(const ScannedEntry& entry, const std::string& path, double now);
    double now() const;
    void stopBecause(FolderWatchError error);

    EventLoop& loop_;
    std::filesystem::path directoryURL_;
    WatchedFolderIntakeDecider decider_;
    double debounceInterval_;
    std::optional<HandledState> inheritedState_;
    StableFilesHandler onStableFiles_;
    StoppedHandler onStopped_;
    std::shared_ptr<InotifyKernel> kernel_;

    int inotifyFd_ = -1;
    std::optional<EventLoop::WatchId> watch_;
    std::optional<EventLoop::TimerId> timer_;
    std::set<std::string> handledPaths_;
    std::map<std::string, PendingSnapshot> pending_;
    std::map<std::string, double> lastEventAt_;  // since the last listing
    std::int64_t rescanGeneration_ = 0;
    // Lets a posted notice know whether its watcher still exists.
    std::shared_ptr<int> alive_ = std::make_shared<int>(0);
};

}  // namespace tavrin
