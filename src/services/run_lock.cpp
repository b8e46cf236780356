#include "services/run_lock.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "model/pipeline_error.h"

namespace tavrin {

QueueRunLock::QueueRunLock(std::filesystem::path lockFile) : path_(std::move(lockFile)) {
    fd_ = ::open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd_ < 0)
        throw FileSystemError("Cannot open the queue's run lock " + path_.string() + ": " + std::strerror(errno), errno);
}

QueueRunLock::~QueueRunLock() {
    if (fd_ >= 0) ::close(fd_);
}

void QueueRunLock::beginRun() {
    while (::flock(fd_, LOCK_SH) != 0) {
        if (errno != EINTR)
            throw FileSystemError("Cannot lock " + path_.string() + ": " + std::strerror(errno), errno);
    }
}

void QueueRunLock::endRun() { ::flock(fd_, LOCK_UN); }

bool QueueRunLock::tryBeginRecovery() {
    while (::flock(fd_, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EINTR) return false;
    }
    return true;
}

void QueueRunLock::endRecovery() { ::flock(fd_, LOCK_UN); }

}  // namespace tavrin
