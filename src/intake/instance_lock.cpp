#include "intake/instance_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fmt/format.h>

#include "model/pipeline_error.h"

namespace tavrin {

namespace {

int openLockFile(const std::filesystem::path& path) {
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) {
        const int error = errno;
        throw FileSystemError(fmt::format("Cannot open the lock \u201C{}\u201D ({})", path.string(), std::strerror(error)),
                              error);
    }
    return fd;
}

}  // namespace

std::filesystem::path InstanceLock::runtimeDirectory() {
    if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime && runtime[0] == '/') return runtime;
    const auto fallback = std::filesystem::temp_directory_path() / fmt::format("tavrin-{}", ::getuid());
    if (::mkdir(fallback.c_str(), 0700) != 0 && errno != EEXIST) {
        const int error = errno;
        throw FileSystemError(fmt::format("Cannot create \u201C{}\u201D ({})", fallback.string(), std::strerror(error)), error);
    }
    // Someone else's folder of that name is not ours to put a lock in.
    struct stat info {};
    if (::lstat(fallback.c_str(), &info) != 0 || !S_ISDIR(info.st_mode) || info.st_uid != ::getuid())
        throw FileSystemError(fmt::format("Cannot use \u201C{}\u201D: it is not this user\u2019s folder", fallback.string()),
                              EPERM);
    return fallback;
}

std::optional<InstanceLock> InstanceLock::tryAcquire(std::string_view name) {
    auto path = runtimeDirectory() / std::string(name);
    const int fd = openLockFile(path);
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        ::close(fd);
        return std::nullopt;
    }
    return InstanceLock(fd, std::move(path));
}

bool InstanceLock::isHeldElsewhere(std::string_view name) {
    auto lock = tryAcquire(name);
    return !lock.has_value();
}

InstanceLock::InstanceLock(InstanceLock&& other) noexcept : fd_(other.fd_), path_(std::move(other.path_)) {
    other.fd_ = -1;
}

InstanceLock& InstanceLock::operator=(InstanceLock&& other) noexcept {
    if (this != &other) {
        if (fd_ >= 0) ::close(fd_);
        fd_ = other.fd_;
        path_ = std::move(other.path_);
        other.fd_ = -1;
    }
    return *this;
}

InstanceLock::~InstanceLock() {
    if (fd_ >= 0) ::close(fd_);
}

}  // namespace tavrin
