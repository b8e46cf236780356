#include "model/file_system.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fmt/core.h>
#include <sys/stat.h>
#include <unistd.h>

#include "model/pipeline_error.h"
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

void moveItemNoReplace(const std::filesystem::path& from, const std::filesystem::path& to) {
    // renameat2 with RENAME_NOREPLACE is atomic and never replaces; fall back to link()+unlink()
    // where the file system does not support it, and to a copy across file systems.
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return;
    int err = errno;
    if (err == EEXIST) fail("Cannot move the cleaned file to", to, EEXIST);
    if (err == EINVAL || err == ENOSYS) {
        if (::link(from.c_str(), to.c_str()) == 0) {
            ::unlink(from.c_str());
            return;
        }
        err = errno;
    }
    if (err != EXDEV) fail("Cannot move the cleaned file to", to, err);

    // Across file systems: copy to a hidden name beside the destination, sync, then link into place.
    const auto staging = to.parent_path() / fmt::format(".{}.tavrin-{}", to.filename().string(), Uuid::random().uuidString());
    {
        Fd in(::open(from.c_str(), O_RDONLY | O_CLOEXEC));
        if (in.get() < 0) fail("Cannot read", from, errno);
        Fd out(::open(staging.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
        if (out.get() < 0) fail("Cannot write to the folder of", to, errno);
        try {
            std::vector<std::uint8_t> buf(1 << 16);
            for (;;) {
                ssize_t n = ::read(in.get(), buf.data(), buf.size());
                if (n < 0 && errno == EINTR) continue;
                if (n < 0) fail("Cannot read", from, errno);
                if (n == 0) break;
                writeAll(out.get(), buf.data(), static_cast<std::size_t>(n), to);
            }
            if (::fsync(out.get()) != 0) fail("Cannot write", to, errno);
        } catch (...) {
            ::unlink(staging.c_str());
            throw;
        }
    }
    if (::link(staging.c_str(), to.c_str()) != 0) {
        err = errno;
        ::unlink(staging.c_str());
        fail("Cannot move the cleaned file to", to, err);
    }
    ::unlink(staging.c_str());
    ::unlink(from.c_str());
}

void removeItemQuietly(const std::filesystem::path& path) noexcept {
    std::error_code ec;
    std::filesystem::remove_all(path, ec);
}

}  // namespace tavrin::fs
