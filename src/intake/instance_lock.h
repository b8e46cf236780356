#pragma once
// A lock that one process at a time holds, in the user's runtime directory: the watcher service
// and the desktop app take the same one, so that a folder is never watched by both at once. The
// kernel releases it when the holder ends, however it ends.

#include <filesystem>
#include <optional>
#include <string_view>

namespace tavrin {

class InstanceLock {
public:
    static constexpr std::string_view watchedFoldersLockName = "tavrin-watch.lock";

    // $XDG_RUNTIME_DIR when it is set and absolute, else "<tmp>/tavrin-<uid>" (created, mode 0700).
    static std::filesystem::path runtimeDirectory();

    // Takes the lock; none when another process holds it. Throws FileSystemError when the lock
    // file cannot be opened.
    static std::optional<InstanceLock> tryAcquire(std::string_view name = watchedFoldersLockName);
    // Whether some process holds the lock now (the desktop app asks before it watches).
    static bool isHeldElsewhere(std::string_view name = watchedFoldersLockName);

    InstanceLock(InstanceLock&& other) noexcept;
    InstanceLock& operator=(InstanceLock&& other) noexcept;
    InstanceLock(const InstanceLock&) = delete;
    InstanceLock& operator=(const InstanceLock&) = delete;
    ~InstanceLock();

    const std::filesystem::path& path() const { return path_; }

private:
    InstanceLock(int fd, std::filesystem::path path) : fd_(fd), path_(std::move(path)) {}
    int fd_ = -1;
    std::filesystem::path path_;
};

}  // namespace tavrin
