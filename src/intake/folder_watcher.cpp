#include "intake/folder_watcher.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <limits>

#include <fmt/format.h>

namespace tavrin {

namespace {

// IN_MODIFY as well: the countdown of a file starts at the last change the kernel reported, so
// each write must be seen, also from a program that keeps the file open.
constexpr std::uint32_t kWatchMask = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_CREATE | IN_DELETE | IN_MODIFY |
                                     IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

class SystemInotifyKernel final : public InotifyKernel {
public:
    int init() override { return ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC); }
    int addWatch(int fd, const char* path, std::uint32_t mask) override { return ::inotify_add_watch(fd, path, mask); }
};

}  // namespace

// --- FolderWatchError ---

FolderWatchError::FolderWatchError(Case c, std::filesystem::path folder, int errorNumber)
    : case_(c), folder_(std::move(folder)), errorNumber_(errorNumber) {
    text_ = description();
}

FolderWatchError FolderWatchError::cannotOpen(std::filesystem::path folder, int errorNumber) {
    return FolderWatchError(Case::cannotOpen, std::move(folder), errorNumber);
}
FolderWatchError FolderWatchError::watchLimitReached(std::filesystem::path folder) {
    return FolderWatchError(Case::watchLimitReached, std::move(folder));
}
FolderWatchError FolderWatchError::instanceLimitReached(std::filesystem::path folder) {
    return FolderWatchError(Case::instanceLimitReached, std::move(folder));
}
FolderWatchError FolderWatchError::folderDeleted(std::filesystem::path folder) {
    return FolderWatchError(Case::folderDeleted, std::move(folder));
}
FolderWatchError FolderWatchError::folderMoved(std::filesystem::path folder) {
    return FolderWatchError(Case::folderMoved, std::move(folder));
}

std::string FolderWatchError::description() const {
    const auto folder = folder_.string();
    switch (case_) {
        case Case::cannotOpen:
            return fmt::format("Cannot watch \u201C{}\u201D ({})", folder, std::strerror(errorNumber_));
        case Case::watchLimitReached:
            return fmt::format(
                "Cannot watch \u201C{}\u201D: the system\u2019s limit of watched folders is reached (raise the "
                "sysctl fs.inotify.max_user_watches)",
                folder);
        case Case::instanceLimitReached:
            return fmt::format(
                "Cannot watch \u201C{}\u201D: too many programs are watching folders (raise the sysctl "
                "fs.inotify.max_user_instances)",
                folder);
        case Case::folderDeleted:
            return fmt::format("Stopped watching \u201C{}\u201D: the folder was deleted", folder);
        case Case::folderMoved:
            return fmt::format("Stopped watching \u201C{}\u201D: the folder was moved or renamed", folder);
    }
    return folder;
}

std::shared_ptr<InotifyKernel> InotifyKernel::system() { return std::make_shared<SystemInotifyKernel>(); }

// --- FolderWatcher ---

FolderWatcher::FolderWatcher(EventLoop& loop, std::filesystem::path directoryURL, WatchedFolderIntakeDecider decider,
                             double debounceInterval, std::optional<HandledState> inheritedState,
                             StableFilesHandler onStableFiles, StoppedHandler onStopped,
                             std::shared_ptr<InotifyKernel> kernel)
    : loop_(loop),
      directoryURL_(std::move(directoryURL).lexically_normal()),
      decider_(std::move(decider)),
      debounceInterval_(std::max(0.0, debounceInterval)),
      inheritedState_(std::move(inheritedState)),
      onStableFiles_(std::move(onStableFiles)),
      onStopped_(std::move(onStopped)),
      kernel_(std::move(kernel)) {
    // "/a/b/" normalizes to "/a/b/": the entries' paths are built without the empty last part.
    if (directoryURL_.has_relative_path() && directoryURL_.filename().empty()) directoryURL_ = directoryURL_.parent_path();
}

FolderWatcher::~FolderWatcher() { stop(); }

std::optional<FolderWatchError> FolderWatcher::start() {
    loop_.assertOnLoopThread("FolderWatcher::start");
    if (isWatching()) return std::nullopt;
    const int fd = kernel_->init();
    if (fd < 0) {
        const int error = errno;
        if (error == EMFILE) return FolderWatchError::instanceLimitReached(directoryURL_);
        return FolderWatchError::cannotOpen(directoryURL_, error);
    }
    if (kernel_->addWatch(fd, directoryURL_.c_str(), kWatchMask) < 0) {
        const int error = errno;
        ::close(fd);
        if (error == ENOSPC) return FolderWatchError::watchLimitReached(directoryURL_);
        return FolderWatchError::cannotOpen(directoryURL_, error);
    }
    inotifyFd_ = fd;

    if (inheritedState_) {
        handledPaths_ = std::move(inheritedState_->handledPaths);
        pending_ = std::move(inheritedState_->pending);
        inheritedState_.reset();
    } else {
        // The baseline: whatever is here already is not ours to clean. The watch is in place
        // before this listing, so a file that arrives meanwhile still brings an event.
        handledPaths_.clear();
        for (const auto& entry : listDirectory()) handledPaths_.insert(entry.url.string());
    }
    watch_ = loop_.watchFileDescriptor(inotifyFd_, FdEvents::readable, [this](FdEvents) { onReadable(); });
    if (!pending_.empty()) scheduleStabilityFollowUp();
    return std::nullopt;
}

void FolderWatcher::stop() {
    if (watch_) loop_.unwatchFileDescriptor(*watch_);
    watch_.reset();
    if (timer_) loop_.cancelTimer(*timer_);
    timer_.reset();
    if (inotifyFd_ >= 0) ::close(inotifyFd_);
    inotifyFd_ = -1;
    pending_.clear();
    lastEventAt_.clear();
    ++rescanGeneration_;
}

FolderWatcher::HandledState FolderWatcher::snapshotHandledState() const { return HandledState{handledPaths_, pending_}; }

FolderWatcher::Drained FolderWatcher::drainEvents() {
    alignas(struct inotify_event) char buffer[16 * 1024];
    Drained drained;
    const double time = now();
    for (;;) {
        const ssize_t got = ::read(inotifyFd_, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;  // EAGAIN: drained
        for (ssize_t offset = 0; offset + static_cast<ssize_t>(sizeof(struct inotify_event)) <= got;) {
            const auto* event = reinterpret_cast<const struct inotify_event*>(buffer + offset);
            if (event->mask & IN_DELETE_SELF) {
                drained.gone = FolderWatchError::folderDeleted(directoryURL_);
            } else if (event->mask & IN_MOVE_SELF) {
                drained.gone = FolderWatchError::folderMoved(directoryURL_);
            } else if (event->mask & IN_IGNORED) {
                if (!drained.gone) drained.gone = FolderWatchError::folderDeleted(directoryURL_);
            } else {
                drained.changed = true;
                if (event->len > 0) lastEventAt_[(directoryURL_ / std::string(event->name)).string()] = time;
            }
            offset += static_cast<ssize_t>(sizeof(struct inotify_event) + event->len);
        }
    }
    return drained;
}

void FolderWatcher::onReadable() {
    auto drained = drainEvents();
    if (drained.gone) {
        stopBecause(std::move(*drained.gone));
        return;
    }
    if (drained.changed) scheduleRescan();
}

void FolderWatcher::stopBecause(FolderWatchError error) {
    stop();
    if (!onStopped_) return;
    // Told through the loop, so that the handler may destroy this watcher.
    loop_.post([alive = std::weak_ptr<int>(alive_), handler = onStopped_, error = std::move(error)] {
        if (alive.lock()) handler(error);
    });
}

void FolderWatcher::scheduleRescan() { scheduleListing(debounceInterval_); }

void FolderWatcher::scheduleStabilityFollowUp() {
    // When the first file under observation comes due: at most the stability interval away.
    double due = std::numeric_limits<double>::max();
    for (const auto& [path, pending] : pending_) due = std::min(due, pending.observedAt + decider_.stabilityInterval());
    const double delay = std::clamp(due - now(), 0.0, decider_.stabilityInterval());
    scheduleListing(delay);
}

void FolderWatcher::scheduleListing(double delay) {
    // Each request supersedes the one before, so a burst of events gives one listing.
    const auto generation = ++rescanGeneration_;
    if (timer_) loop_.cancelTimer(*timer_);
    timer_ = loop_.postDelayed(seconds(delay), [this, generation] {
        timer_.reset();
        if (generation == rescanGeneration_) rescan();
    });
}

double FolderWatcher::now() const {
    return std::chrono::duration<double>(loop_.clock().now().time_since_epoch()).count();
}

std::vector<FolderWatcher::ScannedEntry> FolderWatcher::listDirectory() const {
    std::vector<ScannedEntry> entries;
    const int dirFd = ::open(directoryURL_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirFd < 0) return entries;
    DIR* dir = ::fdopendir(dirFd);
    if (!dir) {
        ::close(dirFd);
        return entries;
    }
    while (const dirent* item = ::readdir(dir)) {
        const std::string_view name(item->d_name);
        // Hidden names (and "." and "..") are not listed, as a file manager does not list them.
        if (name.empty() || name.front() == '.') continue;
        ScannedEntry entry;
        entry.url = directoryURL_ / std::string(name);
        struct stat info {};
        if (::fstatat(dirFd, item->d_name, &info, AT_SYMLINK_NOFOLLOW) == 0) {
            entry.isRegularFile = S_ISREG(info.st_mode);
            entry.state.size = info.st_size;
            entry.state.modificationTime =
                static_cast<double>(info.st_mtim.tv_sec) + static_cast<double>(info.st_mtim.tv_nsec) / 1e9;
        }
        entries.push_back(std::move(entry));
    }
    ::closedir(dir);
    return entries;
}

void FolderWatcher::rescan() {
    if (!isWatching()) return;
    // Events that came after the timer fired belong to this listing.
    if (auto drained = drainEvents(); drained.gone) {
        stopBecause(std::move(*drained.gone));
        return;
    }
    const auto entries = listDirectory();
    const double time = now();
    std::set<std::string> seen;
    std::vector<std::filesystem::path> stable;
    for (const auto& entry : entries) {
        const auto path = entry.url.string();
        seen.insert(path);
        if (auto url = evaluate(entry, path, time)) stable.push_back(std::move(*url));
    }
    // A file that left is forgotten, so a new file of that name is new.
    std::erase_if(pending_, [&](const auto& item) { return !seen.contains(item.first); });
    std::erase_if(handledPaths_, [&](const std::string& path) { return !seen.contains(path); });
    lastEventAt_.clear();
    if (!pending_.empty()) scheduleStabilityFollowUp();
    if (!stable.empty() && onStableFiles_) onStableFiles_(std::move(stable));
}

std::optional<std::filesystem::path> FolderWatcher::evaluate(const ScannedEntry& entry, const std::string& path,
                                                             double time) {
    if (handledPaths_.contains(path)) return std::nullopt;
    if (decider_.filterVerdict(entry.url, entry.isRegularFile).kind() == WatchedFolderIntakeVerdict::Kind::ignore) {
        handledPaths_.insert(path);
        pending_.erase(path);
        return std::nullopt;
    }
    auto found = pending_.find(path);
    std::optional<std::pair<WatchedFolderFileState, double>> previous;
    if (found != pending_.end()) previous.emplace(found->second.state, found->second.observedAt);
    if (decider_.stabilityVerdict(time, entry.state, previous).kind() == WatchedFolderIntakeVerdict::Kind::enqueue) {
        handledPaths_.insert(path);
        pending_.erase(found);
        return entry.url;
    }
    // Same state, time not yet up: the first sighting is what counts.
    if (previous && previous->first == entry.state) return std::nullopt;
    // The state was reached at the file's last reported change (the debounce only gathered the
    // burst), else now.
    auto event = lastEventAt_.find(path);
    pending_[path] = PendingSnapshot{entry.state, event == lastEventAt_.end() ? time : std::min(event->second, time)};
    return std::nullopt;
}

}  // namespace tavrin
