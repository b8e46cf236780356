#include "zip/archive_storage.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "zip/archive_error.h"

namespace tavrin {

namespace {

using Case = ArchiveError::Case;

class FileStorage final : public ArchiveStorage {
public:
    FileStorage(int fd, bool writable) : fd_(fd), writable_(writable) {}
    ~FileStorage() override { ::close(fd_); }

    std::uint64_t size() const override {
        struct stat info {};
        enforce(::fstat(fd_, &info) == 0, Case::unreadableArchive);
        return static_cast<std::uint64_t>(info.st_size);
    }

    void read(std::uint64_t offset, std::span<std::uint8_t> into) const override {
        std::size_t done = 0;
        while (done < into.size()) {
            const ssize_t n = ::pread(fd_, into.data() + done, into.size() - done, static_cast<off_t>(offset + done));
            if (n < 0 && errno == EINTR) continue;
            enforce(n > 0, Case::unreadableArchive);
            done += static_cast<std::size_t>(n);
        }
    }

    void write(std::uint64_t offset, std::span<const std::uint8_t> bytes) override {
        enforce(writable_, Case::unwritableArchive);
        std::size_t done = 0;
        while (done < bytes.size()) {
            const ssize_t n = ::pwrite(fd_, bytes.data() + done, bytes.size() - done, static_cast<off_t>(offset + done));
            if (n < 0 && errno == EINTR) continue;
            enforce(n > 0, Case::unwritableArchive);
            done += static_cast<std::size_t>(n);
        }
    }

    void truncate(std::uint64_t size) override {
        enforce(writable_ && ::ftruncate(fd_, static_cast<off_t>(size)) == 0, Case::unwritableArchive);
    }

    void sync() override { enforce(::fsync(fd_) == 0, Case::unwritableArchive); }

private:
    int fd_;
    bool writable_;
};

class MemoryStorage final : public ArchiveStorage {
public:
    MemoryStorage(std::vector<std::uint8_t> bytes, bool writable) : bytes_(std::move(bytes)), writable_(writable) {}

    std::uint64_t size() const override { return bytes_.size(); }

    void read(std::uint64_t offset, std::span<std::uint8_t> into) const override {
        enforce(offset <= bytes_.size() && into.size() <= bytes_.size() - offset, Case::unreadableArchive);
        if (!into.empty()) std::memcpy(into.data(), bytes_.data() + offset, into.size());
    }

    void write(std::uint64_t offset, std::span<const std::uint8_t> bytes) override {
        enforce(writable_ && offset <= bytes_.size(), Case::unwritableArchive);
        if (bytes_.size() - offset < bytes.size()) bytes_.resize(offset + bytes.size());
        if (!bytes.empty()) std::memcpy(bytes_.data() + offset, bytes.data(), bytes.size());
    }

    void truncate(std::uint64_t size) override {
        enforce(writable_, Case::unwritableArchive);
        bytes_.resize(size);
    }

    void sync() override {}
    const std::vector<std::uint8_t>* memory() const override { return &bytes_; }

private:
    std::vector<std::uint8_t> bytes_;
    bool writable_;
};

}  // namespace

std::unique_ptr<ArchiveStorage> ArchiveStorage::openFile(const std::filesystem::path& url, OpenMode mode) {
    int flags = O_CLOEXEC;
    switch (mode) {
        case OpenMode::read: flags |= O_RDONLY; break;
        case OpenMode::update: flags |= O_RDWR; break;
        case OpenMode::createNew: flags |= O_RDWR | O_CREAT | O_EXCL; break;
    }
    const int fd = ::open(url.c_str(), flags, 0644);
    if (fd < 0) throw ArchiveError(mode == OpenMode::read ? Case::unreadableArchive : Case::unwritableArchive);
    struct stat info {};
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        ::close(fd);
        throw ArchiveError(Case::unreadableArchive);
    }
    return std::make_unique<FileStorage>(fd, mode != OpenMode::read);
}

std::unique_ptr<ArchiveStorage> ArchiveStorage::inMemory(std::vector<std::uint8_t> bytes, bool writable) {
    return std::make_unique<MemoryStorage>(std::move(bytes), writable);
}

}  // namespace tavrin
