#pragma once
// Tells runs of the queue in several processes apart from the remains of a dead one. Every run
// holds the lock shared while it works; recovery takes it exclusively, which succeeds only when
// no run is alive. The kernel drops a dead process's lock, so kill -9 leaves nothing held.

#include <filesystem>

namespace tavrin {

class QueueRunLock {
public:
    // The lock file is created when missing (mode 0600); throws FileSystemError when it cannot.
    explicit QueueRunLock(std::filesystem::path lockFile);
    ~QueueRunLock();
    QueueRunLock(const QueueRunLock&) = delete;
    QueueRunLock& operator=(const QueueRunLock&) = delete;

    // Blocks until no recovery is under way, then holds the lock shared.
    void beginRun();
    void endRun();
    // True when no other process runs or recovers; the lock is then held exclusively until
    // endRecovery.
    bool tryBeginRecovery();
    void endRecovery();

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
    int fd_ = -1;
};

}  // namespace tavrin
