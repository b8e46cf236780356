#include "intake/watched_folders_supervisor.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <exception>

#include <fmt/format.h>

#include "data/queries.h"
#include "data/store_defaults.h"

namespace tavrin {

namespace {

// A burst of store writes (a transaction, a checkpoint) is read once, after it has settled.
constexpr double kStoreSettleSeconds = 0.2;
// How long a sync client's placeholder may take to arrive.
constexpr double kMaterializeTimeout = 60.0;

std::string failureText(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& e) {
        return e.what();
    } catch (...) {
        return "unknown error";
    }
}

}  // namespace

WatchedFolderIntakeDecider WatchedFoldersConfiguration::decider() const {
    const auto appended = suffix.appendedText();
    return WatchedFolderIntakeDecider(stabilityInterval, {appended, CleanCopyNaming::sanitizedSuffix(appended)});
}

WatchedFoldersConfiguration readWatchedFoldersConfiguration(ModelContext& context) {
    WatchedFoldersConfiguration configuration;
    configuration.profile = CleaningProfile::maximumPrivacy();
    const auto settings = currentSettings(context);
    if (settings) {
        configuration.enabled = settings->watchedFoldersEnabled;
        configuration.stabilityInterval = settings->watchedFolderStabilityInterval;
        configuration.debounceInterval = settings->watchedFolderDebounceInterval;
        configuration.suffix = CleanCopySuffix::resolved(settings->cleanCopySuffixTokenRaw, settings->cleanCopyCustomSuffix);
        if (settings->defaultPresetId) {
            const auto presets = context.fetch(PresetQueries::preset(*settings->defaultPresetId));
            if (!presets.empty()) configuration.profile = presets.front()->toCleaningProfile();
        }
    } else {
        configuration.enabled = AppSettings::Defaults::watchedFoldersEnabled;
    }
    for (const auto& folder : context.fetch(WatchedFolderQueries::enabledFolders()))
        configuration.folders.push_back({folder->id, folder->path});
    return configuration;
}

WatchedFoldersSupervisor::WatchedFoldersSupervisor(EventLoop& loop, std::shared_ptr<ModelContainer> store,
                                                   std::shared_ptr<const TavrinEngine> engine, Events events,
                                                   int workerCount)
    : loop_(loop),
      store_(std::move(store)),
      engine_(std::move(engine)),
      events_(std::move(events)),
      materializer_(std::make_shared<CloudFileMaterializer>()) {
    workerCount = std::clamp(workerCount, 1, 8);
    for (int i = 0; i < workerCount; ++i) workers_.emplace_back([this] { work(); });
}

WatchedFoldersSupervisor::~WatchedFoldersSupervisor() {
    stop();
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    for (auto& worker : workers_) worker.join();
}

void WatchedFoldersSupervisor::start() {
    loop_.assertOnLoopThread("WatchedFoldersSupervisor::start");
    watchStore();
    reconcile();
}

void WatchedFoldersSupervisor::reconcile() {
    WatchedFoldersConfiguration wanted;
    try {
        auto context = store_->makeContext();
        wanted = readWatchedFoldersConfiguration(*context);
    } catch (const std::exception& e) {
        if (events_.notice) events_.notice(fmt::format("Cannot read the watched folders: {}", e.what()));
        return;
    }
    if (lastEnabled_ != wanted.enabled && events_.notice) {
        events_.notice(wanted.enabled ? fmt::format("Watching {} folder{}", wanted.folders.size(),
                                                    wanted.folders.size() == 1 ? "" : "s")
                                      : std::string("Watched folders are turned off (tavrin watch enable turns them on)"));
    }
    lastEnabled_ = wanted.enabled;
    if (!wanted.enabled) wanted.folders.clear();

    const auto decider = wanted.decider();
    const auto key = fmt::format("{}|{}", decider.key(), wanted.debounceInterval);
    std::vector<WatchedFoldersReconciler::RunningWatcher> present;
    for (const auto& [id, running] : running_) present.push_back({id, running.path, running.deciderKey});
    const auto plan = WatchedFoldersReconciler::plan(wanted.folders, present, key);

    configuration_ = wanted;
    cleaner_ = std::make_shared<const WatchedFolderAutoCleaner>(engine_, wanted.suffix, materializer_, kMaterializeTimeout);
    profile_ = std::make_shared<const CleaningProfile>(wanted.profile);

    for (const auto& id : plan.toStop) {
        running_.erase(id);
        lastNotice_.erase(id);
    }
    std::map<Uuid, std::string, WatchedFoldersReconciler::UuidOrder> paths;
    for (const auto& folder : wanted.folders) paths[folder.id] = folder.path;
    for (const auto& id : plan.toRestart) {
        auto& old = running_.at(id);
        std::optional<FolderWatcher::HandledState> inherited;
        // The same folder under new rules: what it knew carries over, so nothing is cleaned twice.
        if (old.path == paths[id]) inherited = old.watcher->snapshotHandledState();
        running_.erase(id);
        startWatcher(id, paths[id], std::move(inherited));
    }
    for (const auto& id : plan.toStart) startWatcher(id, paths[id], std::nullopt);
}

void WatchedFoldersSupervisor::startWatcher(const Uuid& id, const std::string& path,
                                            std::optional<FolderWatcher::HandledState> inherited) {
    const auto decider = configuration_.decider();
    auto watcher = std::make_unique<FolderWatcher>(
        loop_, path, decider, configuration_.debounceInterval, std::move(inherited),
        [this](std::vector<std::filesystem::path> urls) { enqueue(std::move(urls)); },
        [this, id](const FolderWatchError& error) {
            // The record stays: adding the folder again, or any change of the store, retries it.
            running_.erase(id);
            notice(id, error.what());
        });
    if (auto problem = watcher->start()) {
        notice(id, problem->what());
        return;
    }
    if (lastNotice_.contains(id)) notice(id, fmt::format("Watching \u201C{}\u201D again", path));
    lastNotice_.erase(id);
    running_[id] = Running{path, fmt::format("{}|{}", decider.key(), configuration_.debounceInterval), std::move(watcher)};
}

void WatchedFoldersSupervisor::notice(const Uuid& id, const std::string& message) {
    // A folder that stays missing is retried at each change of the store; it is reported once.
    auto& last = lastNotice_[id];
    if (last == message) return;
    last = message;
    if (events_.notice) events_.notice(message);
}

void WatchedFoldersSupervisor::stop() {
    if (storeWatch_) loop_.unwatchFileDescriptor(*storeWatch_);
    storeWatch_.reset();
    if (storeTimer_) loop_.cancelTimer(*storeTimer_);
    storeTimer_.reset();
    if (storeFd_ >= 0) ::close(storeFd_);
    storeFd_ = -1;
    running_.clear();
    std::unique_lock lock(mutex_);
    jobs_.clear();
    changed_.wait(lock, [this] { return busy_ == 0; });
}

void WatchedFoldersSupervisor::watchStore() {
    const auto& configuration = store_->configuration();
    if (configuration.isStoredInMemoryOnly || configuration.url.empty()) return;
    // The store's folder, not its file: SQLite writes the journal beside it, and a write by
    // another process shows only there.
    storeFd_ = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (storeFd_ < 0) return;
    if (::inotify_add_watch(storeFd_, configuration.url.parent_path().c_str(),
                            IN_CLOSE_WRITE | IN_MODIFY | IN_MOVED_TO | IN_CREATE | IN_DELETE) < 0) {
        ::close(storeFd_);
        storeFd_ = -1;
        if (events_.notice) events_.notice("Changes to the watched folders are read only at start (the store cannot be watched)");
        return;
    }
    const auto storeName = configuration.url.filename().string();
    storeWatch_ = loop_.watchFileDescriptor(storeFd_, FdEvents::readable, [this, storeName](FdEvents) {
        alignas(struct inotify_event) char buffer[8192];
        bool relevant = false;
        for (;;) {
            const ssize_t got = ::read(storeFd_, buffer, sizeof buffer);
            if (got <= 0) break;
            for (ssize_t offset = 0; offset + static_cast<ssize_t>(sizeof(struct inotify_event)) <= got;) {
                const auto* event = reinterpret_cast<const struct inotify_event*>(buffer + offset);
                if (event->len > 0 && std::string_view(event->name).starts_with(storeName)) relevant = true;
                offset += static_cast<ssize_t>(sizeof(struct inotify_event) + event->len);
            }
        }
        if (relevant) onStoreChanged();
    });
}

void WatchedFoldersSupervisor::onStoreChanged() {
    if (storeTimer_) loop_.cancelTimer(*storeTimer_);
    storeTimer_ = loop_.postDelayed(seconds(kStoreSettleSeconds), [this] {
        storeTimer_.reset();
        reconcile();
    });
}

void WatchedFoldersSupervisor::enqueue(std::vector<std::filesystem::path> urls) {
    {
        std::lock_guard lock(mutex_);
        for (auto& url : urls) jobs_.push_back(Job{std::move(url), cleaner_, profile_});
    }
    changed_.notify_all();
}

void WatchedFoldersSupervisor::waitUntilIdle() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return jobs_.empty() && busy_ == 0; });
}

void WatchedFoldersSupervisor::work() {
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return stopping_ || !jobs_.empty(); });
        if (stopping_ && jobs_.empty()) return;
        Job job = std::move(jobs_.front());
        jobs_.pop_front();
        ++busy_;
        lock.unlock();
        std::optional<CleanedFile> cleaned;
        std::exception_ptr error;
        try {
            cleaned = job.cleaner->cleanToCopy(job.url, *job.profile);
        } catch (...) {
            error = std::current_exception();
        }
        lock.lock();
        // Reported under the lock, so lines of two workers never interleave.
        if (cleaned && events_.cleaned) events_.cleaned(*cleaned);
        if (error && events_.failed) events_.failed(job.url, failureText(error));
        --busy_;
        changed_.notify_all();
    }
}

}  // namespace tavrin
