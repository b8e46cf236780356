#include "services/file_operations.h"

#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "services/file_access_error.h"

namespace tavrin {

namespace {

struct Fd {
    int value = -1;
    ~Fd() {
        if (value >= 0) ::close(value);
    }
};

// Copies with sendfile, falling back to read/write where the kernel refuses (some FUSE mounts).
// Returns 0 or the errno of the failing side; `readFailed` tells which side.
int copyData(int in, int out, bool& readFailed) {
    for (;;) {
        const auto sent = ::sendfile(out, in, nullptr, 1 << 30);
        if (sent == 0) return 0;
        if (sent > 0) continue;
        if (errno == EINTR) continue;
        if (errno != EINVAL && errno != ENOSYS) {
            readFailed = errno == EIO;
            return errno;
        }
        break;
    }
    char buffer[1 << 16];
    for (;;) {
        const auto got = ::read(in, buffer, sizeof buffer);
        if (got == 0) return 0;
        if (got < 0) {
            if (errno == EINTR) continue;
            readFailed = true;
            return errno;
        }
        for (ssize_t done = 0; done < got;) {
            const auto put = ::write(out, buffer + done, static_cast<std::size_t>(got - done));
            if (put < 0) {
                if (errno == EINTR) continue;
                return errno;
            }
            done += put;
        }
    }
}

}  // namespace

void PosixFileOperations::copyFile(const std::filesystem::path& from, const std::filesystem::path& to) {
    Fd in{::open(from.c_str(), O_RDONLY | O_CLOEXEC)};
    if (in.value < 0) throw FileAccessError::reading(from, errno);
    struct stat info {};
    if (::fstat(in.value, &info) != 0) throw FileAccessError::reading(from, errno);
    if (S_ISDIR(info.st_mode)) throw FileAccessError::reading(from, EISDIR);
    Fd out{::open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600)};
    if (out.value < 0) throw FileAccessError::writing(to, errno);
    bool readFailed = false;
    const int code = copyData(in.value, out.value, readFailed);
    if (code != 0) {
        ::unlink(to.c_str());
        if (readFailed) throw FileAccessError::reading(from, code);
        throw FileAccessError::writing(to, code);
    }
}

void PosixFileOperations::replaceItem(const std::filesystem::path& target, const std::filesystem::path& replacement) {
    if (::rename(replacement.c_str(), target.c_str()) != 0) throw FileAccessError::writing(target, errno);
}

void PosixFileOperations::moveItem(const std::filesystem::path& from, const std::filesystem::path& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) != 0) throw FileAccessError::writing(to, errno);
}

void PosixFileOperations::removeItem(const std::filesystem::path& path) {
    std::error_code error;
    std::filesystem::remove_all(path, error);
    if (error) throw FileAccessError::writing(path, error.value());
}

void PosixFileOperations::createDirectories(const std::filesystem::path& path) {
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (error) throw FileAccessError::writing(path, error.value());
}

}  // namespace tavrin
