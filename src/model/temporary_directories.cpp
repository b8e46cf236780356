#include "model/temporary_directories.h"

#include <cctype>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fmt/core.h>
#include <map>
#include <mutex>
#include <pthread.h>
#include <set>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "model/pipeline_error.h"
#include "model/uuid.h"

namespace tavrin::temporaries {

namespace {

constexpr std::string_view kClaimSuffix = ".lock";
constexpr std::string_view kStagedMarker = ".tavrin-";
constexpr std::size_t kUuidLength = 36;
// A claim found unlocked but still empty may be one being made right now (the fallback without
// O_TMPFILE writes the process id after locking); it is stale only once this old.
constexpr auto kUnfinishedClaimAge = std::chrono::minutes(1);
// Folders of our naming without any claim come from versions that made none.
constexpr auto kUnclaimedFolderAge = std::chrono::hours(1);

struct Registry {
    std::mutex mutex;
    std::map<std::filesystem::path, int> directories;  // folder → its held claim
    std::set<std::filesystem::path> files;
    bool terminating = false;
    std::once_flag swept;
};

Registry& registry() {
    static Registry instance;
    return instance;
}

bool looksLikeUuid(std::string_view text) {
    if (text.size() != kUuidLength) return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (c != '-') return false;
        } else if (!std::isxdigit(static_cast<unsigned char>(c))) {
            return false;
        }
    }
    return true;
}

// "tavrin…_<UUID>": the names createDirectory makes. A queue's outputs ("tavrin_output_<UUID>")
// outlive the run that made them until they are exported or removed; the queue's own recovery
// looks after them, so no sweep takes them.
bool isOurFolderName(std::string_view name) {
    return name.rfind("tavrin", 0) == 0 && name.rfind("tavrin_output_", 0) != 0 && name.size() > kUuidLength + 1 &&
           name[name.size() - kUuidLength - 1] == '_' && looksLikeUuid(name.substr(name.size() - kUuidLength));
}

bool isStagedFileName(std::string_view name) {
    return name.size() > kStagedMarker.size() + kUuidLength + 1 && name.front() == '.' &&
           name.substr(name.size() - kUuidLength - kStagedMarker.size(), kStagedMarker.size()) == kStagedMarker &&
           looksLikeUuid(name.substr(name.size() - kUuidLength));
}

bool olderThan(const struct stat& st, std::chrono::seconds age) {
    const auto modified = std::chrono::system_clock::from_time_t(st.st_mtim.tv_sec);
    return std::chrono::system_clock::now() - modified > age;
}

void removeTree(const std::filesystem::path& path) noexcept {
    // A worker may still be writing into the folder while a signal removes it; a few passes
    // catch what it made meanwhile.
    for (int pass = 0; pass < 5; ++pass) {
        std::error_code ec;
        std::filesystem::remove_all(path, ec);
        if (!std::filesystem::exists(std::filesystem::symlink_status(path, ec))) return;
    }
}

// Makes the claim: locked and holding our process id before it appears under its name, where
// the file system allows (O_TMPFILE), so a sweep never sees a claim half made.
int makeClaim(const std::filesystem::path& claim) {
    const std::string pid = std::to_string(::getpid()) + "\n";
    int fd = ::open(claim.parent_path().c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (fd >= 0) {
        const std::string self = fmt::format("/proc/self/fd/{}", fd);
        if (::flock(fd, LOCK_EX) == 0 && ::write(fd, pid.data(), pid.size()) == static_cast<ssize_t>(pid.size()) &&
            ::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, claim.c_str(), AT_SYMLINK_FOLLOW) == 0)
            return fd;
        ::close(fd);
    }
    fd = ::open(claim.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) return -1;
    if (::flock(fd, LOCK_EX) != 0 || ::write(fd, pid.data(), pid.size()) != static_cast<ssize_t>(pid.size())) {
        const int err = errno;
        ::unlink(claim.c_str());
        ::close(fd);
        errno = err;
        return -1;
    }
    return fd;
}

// Cleans up after SIGINT, SIGTERM or SIGHUP on an ordinary thread (sigwait), where removing
// files is safe, then ends the process by the same signal so its parent sees how it ended.
void watchTerminationSignals(sigset_t set) {
    int signal = 0;
    while (::sigwait(&set, &signal) != 0) {
    }
    Registry& r = registry();
    {
        std::lock_guard lock(r.mutex);
        r.terminating = true;
        for (const auto& file : r.files) ::unlink(file.c_str());
        for (const auto& [directory, claimFd] : r.directories) {
            removeTree(directory);
            ::unlink((directory.string() + std::string(kClaimSuffix)).c_str());
        }
    }
    std::signal(signal, SIG_DFL);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, signal);
    ::pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
    ::raise(signal);
    std::_Exit(128 + signal);
}

}  // namespace

std::filesystem::path root() {
    std::error_code ec;
    auto dir = std::filesystem::temp_directory_path(ec);
    return ec ? std::filesystem::path("/tmp") : dir;
}

std::filesystem::path createDirectory(std::string_view prefix) {
    const auto base = root();
    Registry& r = registry();
    std::call_once(r.swept, [&] { removeStale(base); });
    const auto directory = base / fmt::format("{}_{}", prefix, Uuid::random().uuidString());
    const auto claim = directory.string() + std::string(kClaimSuffix);

    std::lock_guard lock(r.mutex);
    if (r.terminating) throw FileSystemError("Cannot create a temporary folder: Tavrin is stopping", EINTR);
    std::error_code ec;
    std::filesystem::create_directories(base, ec);
    const int claimFd = makeClaim(claim);
    if (claimFd < 0) {
        const int err = errno;
        throw FileSystemError(fmt::format("Cannot create a temporary folder: {}", std::strerror(err)), err);
    }
    if (::mkdir(directory.c_str(), 0700) != 0) {
        const int err = errno;
        ::unlink(claim.c_str());
        ::close(claimFd);
        throw FileSystemError(fmt::format("Cannot create a temporary folder: {}", std::strerror(err)), err);
    }
    r.directories.emplace(directory, claimFd);
    return directory;
}

void removeDirectory(const std::filesystem::path& directory) noexcept {
    Registry& r = registry();
    int claimFd = -1;
    {
        std::lock_guard lock(r.mutex);
        if (auto it = r.directories.find(directory); it != r.directories.end()) {
            claimFd = it->second;
            r.directories.erase(it);
        }
    }
    removeTree(directory);
    if (claimFd >= 0) {
        ::unlink((directory.string() + std::string(kClaimSuffix)).c_str());
        ::close(claimFd);
    }
}

void trackFile(const std::filesystem::path& file) {
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    r.files.insert(file);
}

void untrackFile(const std::filesystem::path& file) noexcept {
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    r.files.erase(file);
}

std::size_t removeStale(const std::filesystem::path& directory) {
    std::size_t removed = 0;
    std::error_code ec;
    std::vector<std::filesystem::path> names;
    for (std::filesystem::directory_iterator it(directory, ec), end; !ec && it != end; it.increment(ec))
        names.push_back(it->path());
    std::set<std::filesystem::path> present(names.begin(), names.end());
    for (const auto& path : names) {
        const std::string name = path.filename().string();
        struct stat st {};
        if (::lstat(path.c_str(), &st) != 0) continue;
        if (S_ISREG(st.st_mode) && name.size() > kClaimSuffix.size() &&
            name.compare(name.size() - kClaimSuffix.size(), kClaimSuffix.size(), kClaimSuffix) == 0 &&
            isOurFolderName(std::string_view(name).substr(0, name.size() - kClaimSuffix.size()))) {
            const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
            if (fd < 0) continue;
            struct stat held {};
            const bool stale = ::flock(fd, LOCK_EX | LOCK_NB) == 0 && ::fstat(fd, &held) == 0 &&
                               (held.st_size > 0 || olderThan(held, kUnfinishedClaimAge));
            if (stale) {
                const auto folder = path.parent_path() / name.substr(0, name.size() - kClaimSuffix.size());
                if (std::filesystem::exists(std::filesystem::symlink_status(folder, ec))) ++removed;
                removeTree(folder);
                ::unlink(path.c_str());
            }
            ::close(fd);
        } else if (S_ISDIR(st.st_mode) && isOurFolderName(name) &&
                   !present.count(path.string() + std::string(kClaimSuffix)) && olderThan(st, kUnclaimedFolderAge)) {
            removeTree(path);
            ++removed;
        }
    }
    return removed;
}

std::size_t removeStaleStagedFiles(const std::filesystem::path& folder) {
    std::size_t removed = 0;
    std::error_code ec;
    for (std::filesystem::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
        if (!isStagedFileName(it->path().filename().string())) continue;
        const int fd = ::open(it->path().c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
        if (fd < 0) continue;
        struct stat st {};
        // A staged copy is locked for as long as its writer lives; an unlocked one is a leftover.
        // An empty one may be in the instant between its creation and its lock.
        if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) &&
            (st.st_size > 0 || olderThan(st, kUnfinishedClaimAge)) && ::flock(fd, LOCK_EX | LOCK_NB) == 0 &&
            ::unlink(it->path().c_str()) == 0)
            ++removed;
        ::close(fd);
    }
    return removed;
}

void installTerminationCleanup() {
    sigset_t set;
    sigemptyset(&set);
    for (int signal : {SIGINT, SIGTERM, SIGHUP}) {
        // A signal the caller chose to ignore (nohup, a background job) stays ignored.
        struct sigaction current {};
        if (::sigaction(signal, nullptr, &current) == 0 && current.sa_handler == SIG_IGN) continue;
        sigaddset(&set, signal);
    }
    ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
    std::thread(watchTerminationSignals, set).detach();
}

}  // namespace tavrin::temporaries
