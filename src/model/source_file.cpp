#include "model/source_file.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fmt/core.h>
#include <sys/stat.h>
#include <unistd.h>

#include "model/data_size.h"
#include "model/pipeline_error.h"

namespace tavrin {

namespace {

const char* kindOf(mode_t mode) {
    if (S_ISDIR(mode)) return "a folder";
    if (S_ISFIFO(mode)) return "a named pipe";
    if (S_ISCHR(mode)) return "a character device";
    if (S_ISBLK(mode)) return "a block device";
    if (S_ISSOCK(mode)) return "a socket";
    return "an unknown kind of file";
}

}  // namespace

SourceFile SourceFile::open(const std::filesystem::path& path) {
    // O_NONBLOCK: opening a FIFO for reading would otherwise wait for a writer forever. O_NOCTTY:
    // a terminal device must never become ours.
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) throw PipelineError::sourceFileNotAccessible(path, std::strerror(errno));
    struct stat st {};
    if (::fstat(fd, &st) != 0) {
        const int err = errno;
        ::close(fd);
        throw PipelineError::sourceFileNotAccessible(path, std::strerror(err));
    }
    if (!S_ISREG(st.st_mode)) {
        ::close(fd);
        throw PipelineError::sourceFileNotAccessible(path, fmt::format("not a regular file: {}", kindOf(st.st_mode)));
    }
    // A regular file reads the same with or without O_NONBLOCK; clear it for readers that
    // inherit the descriptor's flags.
    const int flags = ::fcntl(fd, F_GETFL);
    if (flags >= 0) ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
    return SourceFile(path, fd, static_cast<std::uint64_t>(st.st_size));
}

SourceFile::~SourceFile() {
    if (fd_ >= 0) ::close(fd_);
}

SourceFile::SourceFile(SourceFile&& other) noexcept
    : path_(std::move(other.path_)), fd_(other.fd_), size_(other.size_) {
    other.fd_ = -1;
}

void SourceFile::requireWithinSizeLimit(FileType type) const {
    const SourceSizeLimit limit = sourceSizeLimit(type);
    if (size_ <= limit.bytes) return;
    throw PipelineError::sourceFileNotAccessible(
        path_, fmt::format("{} is over the {} limit for {} files, because {}",
                           DataSize{static_cast<std::int64_t>(size_)}.formatted(),
                           DataSize{static_cast<std::int64_t>(limit.bytes)}.formatted(), displayName(type),
                           limit.reason));
}

std::size_t SourceFile::readHead(std::uint8_t* buffer, std::size_t max) const {
    std::size_t got = 0;
    while (got < max) {
        const ssize_t n = ::pread(fd_, buffer + got, max - got, static_cast<off_t>(got));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        got += static_cast<std::size_t>(n);
    }
    return got;
}

}  // namespace tavrin
