#include "app_watched_folders.h"

#include <system_error>

namespace tavrin {

std::string_view label(WatchedFolderState state) {
    switch (state) {
        case WatchedFolderState::watching: return "Watching";
        case WatchedFolderState::paused: return "Paused";
        case WatchedFolderState::missing: return "Folder missing";
        case WatchedFolderState::runByService: return "Run by the background service";
        case WatchedFolderState::off: return "Off";
    }
    return "Off";
}

AppWatchedFolders::AppWatchedFolders(EventLoop& loop, std::shared_ptr<ModelContainer> store,
                                     std::shared_ptr<const TavrinEngine> engine,
                                     std::function<void(const RunReport&)> onBatchFinished, Options options)
    : loop_(loop),
      store_(std::move(store)),
      engine_(std::move(engine)),
      onBatchFinished_(std::move(onBatchFinished)),
      options_(std::move(options)) {}

AppWatchedFolders::AppWatchedFolders(EventLoop& loop, std::shared_ptr<ModelContainer> store,
                                     std::shared_ptr<const TavrinEngine> engine,
                                     std::function<void(const RunReport&)> onBatchFinished)
    : AppWatchedFolders(loop, std::move(store), std::move(engine), std::move(onBatchFinished), Options{}) {}

AppWatchedFolders::~AppWatchedFolders() {
    *alive_ = false;
    if (takeOverTimer_) loop_.cancelTimer(*takeOverTimer_);
    if (batchTimer_) loop_.cancelTimer(*batchTimer_);
    // The supervisor waits for the files being cleaned; their reports are dropped with alive_.
    supervisor_.reset();
}

void AppWatchedFolders::start() {
    loop_.assertOnLoopThread("AppWatchedFolders::start");
    if (started_) return;
    started_ = true;
    tryTakeOver();
}

void AppWatchedFolders::tryTakeOver() {
    takeOverTimer_.reset();
    std::optional<InstanceLock> lock;
    try {
        lock = InstanceLock::tryAcquire(options_.lockName);
    } catch (const std::exception& e) {
        lastNotice_ = e.what();
    }
    if (!lock) {
        std::weak_ptr<bool> alive = alive_;
        takeOverTimer_ = loop_.postDelayed(seconds(options_.takeOverInterval), [this, alive] {
            if (auto a = alive.lock(); a && *a) tryTakeOver();
        });
        return;
    }
    lock_ = std::move(lock);
    std::weak_ptr<bool> alive = alive_;
    WatchedFoldersSupervisor::Events events;
    events.cleaned = [this, alive](const CleanedFile& file) {
        loop_.post([this, alive, file] {
            if (auto a = alive.lock(); a && *a) fileCleaned(file);
        });
    };
    events.failed = [this, alive](const std::filesystem::path& source, const std::string& reason) {
        loop_.post([this, alive, source, reason] {
            if (auto a = alive.lock(); a && *a) fileFailed(source, reason);
        });
    };
    events.notice = [this](const std::string& message) {
        lastNotice_ = message;
        changed();
    };
    supervisor_ = std::make_unique<WatchedFoldersSupervisor>(loop_, store_, engine_, std::move(events),
                                                             options_.workerCount);
    supervisor_->start();
    changed();
}

void AppWatchedFolders::reconcile() {
    if (supervisor_) supervisor_->reconcile();
    changed();
}

WatchedFolderState AppWatchedFolders::state(const WatchedFolder& folder, bool masterSwitch) const {
    std::error_code ec;
    if (!std::filesystem::is_directory(folder.path, ec)) return WatchedFolderState::missing;
    if (!folder.isEnabled) return WatchedFolderState::paused;
    if (!masterSwitch) return WatchedFolderState::off;
    if (isRunByService()) return WatchedFolderState::runByService;
    return isRunningHere() ? WatchedFolderState::watching : WatchedFolderState::off;
}

std::vector<std::filesystem::path> AppWatchedFolders::recentlyCleaned(const std::string& folderPath) const {
    const auto found = recent_.find(folderPath);
    if (found == recent_.end()) return {};
    return {found->second.begin(), found->second.end()};
}

void AppWatchedFolders::addChangeListener(std::function<void()> listener) { listeners_.push_back(std::move(listener)); }

void AppWatchedFolders::waitUntilIdle() {
    if (supervisor_) supervisor_->waitUntilIdle();
}

void AppWatchedFolders::fileCleaned(const CleanedFile& file) {
    auto& list = recent_[file.sourceURL.parent_path().string()];
    list.push_front(file.outputURL);
    while (list.size() > recentPerFolder) list.pop_back();
    batch_.cleaned.push_back(file.outputURL);
    armBatchEnd();
    changed();
}

void AppWatchedFolders::fileFailed(const std::filesystem::path& source, const std::string& reason) {
    batch_.failed.push_back({source, reason});
    armBatchEnd();
    changed();
}

void AppWatchedFolders::armBatchEnd() {
    if (batchTimer_) loop_.cancelTimer(*batchTimer_);
    std::weak_ptr<bool> alive = alive_;
    batchTimer_ = loop_.postDelayed(seconds(options_.batchQuietInterval), [this, alive] {
        auto a = alive.lock();
        if (!a || !*a) return;
        batchTimer_.reset();
        RunReport report = std::move(batch_);
        batch_ = {};
        if (onBatchFinished_ && !report.empty()) onBatchFinished_(report);
    });
}

void AppWatchedFolders::changed() {
    for (const auto& listener : listeners_) listener();
}

}  // namespace tavrin
