#include "model/file_system.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fmt/core.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "model/pipeline_error.h"
#include "model/temporary_directories.h"
#include "model/uuid.h"

namespace tavrin::fs {

namespace {

[[noreturn]] void fail(const std::string& what, const std::filesystem::path& path, int err) {
    throw FileSystemError(fmt::format("{} {}: {}", what, path.filename().string(), std::strerror(err)), err);
}

class Fd {
public:
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd() {
        if (fd_ >= 0) ::close(fd_);
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    int get() const { return fd_; }
    int release() {
        int fd = fd_;
        fd_ = -1;
        return fd;
    }

private:
    int fd_;
};

void writeAll(int fd, const std::uint8_t* p, std::size_t n, const std::filesystem::path& path) {
    while (n > 0) {
        ssize_t w = ::write(fd, p, n);
        if (w < 0) {
            if (errno == EINTR) continue;
            fail("Cannot write", path, errno);
        }
        p += w;
        n -= static_cast<std::size_t>(w);
    }
}

}  // namespace

bool isReadableFile(const std::filesystem::path& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0 || S_ISDIR(st.st_mode)) return false;
    return ::access(path.c_str(), R_OK) == 0;
}

bool isDirectory(const std::filesystem::path& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool exists(const std::filesystem::path& path) {
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0;
}

std::int64_t fileSize(const std::filesystem::path& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) fail("Cannot read", path, errno);
    return static_cast<std::int64_t>(st.st_size);
}

std::vector<std::uint8_t> readFile(const std::filesystem::path& path, std::uint64_t maxBytes) {
    Fd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (fd.get() < 0) fail("Cannot open", path, errno);
    struct stat st {};
    if (::fstat(fd.get(), &st) != 0) fail("Cannot read", path, errno);
    if (static_cast<std::uint64_t>(st.st_size) > maxBytes) fail("Cannot read", path, EFBIG);
    std::vector<std::uint8_t> data(static_cast<std::size_t>(st.st_size));
    std::size_t got = 0;
    while (got < data.size()) {
        ssize_t n = ::read(fd.get(), data.data() + got, data.size() - got);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) fail("Cannot read", path, errno);
        if (n == 0) break;
        got += static_cast<std::size_t>(n);
    }
    data.resize(got);
    return data;
}

void writeNewFile(const std::filesystem::path& path, const void* data, std::size_t size) {
    Fd fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (fd.get() < 0) fail("Cannot create", path, errno);
    try {
        writeAll(fd.get(), static_cast<const std::uint8_t*>(data), size, path);
        if (::close(fd.release()) != 0) fail("Cannot write", path, errno);
    } catch (...) {
        ::unlink(path.c_str());
        throw;
    }
}

namespace {

// Forces the file's data to disk, so that the name a rename publishes never points at data a
// power cut could still lose.
void syncFile(const std::filesystem::path& path) {
    Fd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (fd.get() < 0) fail("Cannot read", path, errno);
    if (::fsync(fd.get()) != 0) fail("Cannot write", path, errno);
}

// Makes a new name in `directory` durable. A file system that cannot sync a folder (EINVAL)
// has nothing to sync.
void syncDirectory(const std::filesystem::path& directory, const std::filesystem::path& published) {
    Fd fd(::open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd.get() < 0) fail("Cannot write to the folder of", published, errno);
    if (::fsync(fd.get()) != 0 && errno != EINVAL) fail("Cannot write to the folder of", published, errno);
}

void copyAll(int in, int out, const std::filesystem::path& from, const std::filesystem::path& to) {
    std::vector<std::uint8_t> buf(1 << 16);
    for (;;) {
        ssize_t n = ::read(in, buf.data(), buf.size());
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) fail("Cannot read", from, errno);
        if (n == 0) break;
        writeAll(out, buf.data(), static_cast<std::size_t>(n), to);
    }
    if (::fsync(out) != 0) fail("Cannot write", to, errno);
}

// Across file systems, first choice: an unnamed file in the destination folder (O_TMPFILE),
// given its name only when complete and synced. A kill at any moment leaves nothing behind.
// False when the file system offers no unnamed files.
bool copyThroughUnnamedFile(int in, const std::filesystem::path& from, const std::filesystem::path& to) {
    const auto folder = to.parent_path().empty() ? std::filesystem::path(".") : to.parent_path();
    Fd out(::open(folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0644));
    if (out.get() < 0) {
        if (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL || errno == ENOENT) return false;
        fail("Cannot write to the folder of", to, errno);
    }
    copyAll(in, out.get(), from, to);
    const std::string self = fmt::format("/proc/self/fd/{}", out.get());
    if (::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, to.c_str(), AT_SYMLINK_FOLLOW) != 0) {
        if (errno == ENOENT && !std::filesystem::exists("/proc/self/fd")) return false;
        fail("Cannot move the cleaned file to", to, errno);
    }
    return true;
}

// The fallback: a hidden name beside the destination (".NAME.tavrin-<UUID>"), locked while this
// process writes it and removed on a termination signal; a later run removes one left unlocked.
void copyThroughStagedFile(int in, const std::filesystem::path& from, const std::filesystem::path& to) {
    temporaries::removeStaleStagedFiles(to.parent_path().empty() ? "." : to.parent_path());
    const auto staging =
        to.parent_path() / fmt::format(".{}.tavrin-{}", to.filename().string(), Uuid::random().uuidString());
    temporaries::trackFile(staging);
    Fd out(::open(staging.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (out.get() < 0) {
        const int err = errno;
        temporaries::untrackFile(staging);
        fail("Cannot write to the folder of", to, err);
    }
    try {
        if (::flock(out.get(), LOCK_EX) != 0) fail("Cannot write to the folder of", to, errno);
        copyAll(in, out.get(), from, to);
        if (::link(staging.c_str(), to.c_str()) != 0) fail("Cannot move the cleaned file to", to, errno);
    } catch (...) {
        ::unlink(staging.c_str());
        temporaries::untrackFile(staging);
        throw;
    }
    ::unlink(staging.c_str());
    temporaries::untrackFile(staging);
}

}  // namespace

void moveItemNoReplace(const std::filesystem::path& from, const std::filesystem::path& to) {
    syncFile(from);
    // renameat2 with RENAME_NOREPLACE is atomic and never replaces; fall back to link()+unlink()
    // where the file system does not support it, and to a copy across file systems.
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
        syncDirectory(to.parent_path(), to);
        return;
    }
    int err = errno;
    if (err == EEXIST) fail("Cannot move the cleaned file to", to, EEXIST);
    if (err == EINVAL || err == ENOSYS) {
        if (::link(from.c_str(), to.c_str()) == 0) {
            ::unlink(from.c_str());
            syncDirectory(to.parent_path(), to);
            return;
        }
        err = errno;
    }
    if (err != EXDEV) fail("Cannot move the cleaned file to", to, err);

    {
        Fd in(::open(from.c_str(), O_RDONLY | O_CLOEXEC));
        if (in.get() < 0) fail("Cannot read", from, errno);
        if (!copyThroughUnnamedFile(in.get(), from, to)) {
            if (::lseek(in.get(), 0, SEEK_SET) != 0) fail("Cannot read", from, errno);
            copyThroughStagedFile(in.get(), from, to);
        }
    }
    syncDirectory(to.parent_path(), to);
    ::unlink(from.c_str());
}

void removeItemQuietly(const std::filesystem::path& path) noexcept {
    std::error_code ec;
    std::filesystem::remove_all(path, ec);
}

}  // namespace tavrin::fs
