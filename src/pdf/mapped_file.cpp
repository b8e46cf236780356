#include "pdf/mapped_file.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "model/pipeline_error.h"

namespace tavrin {

namespace {

[[noreturn]] void fail(const std::filesystem::path& path, int err) {
    throw FileSystemError("Cannot read " + path.filename().string() + ": " + std::strerror(err), err);
}

}  // namespace

MappedFile::MappedFile(const std::filesystem::path& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) fail(path, errno);
    struct stat st {};
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        const int err = errno ? errno : EINVAL;
        ::close(fd);
        fail(path, err);
    }
    size_ = static_cast<std::size_t>(st.st_size);
    if (size_ > 0) {
        void* p = ::mmap(nullptr, size_, PROT_READ, MAP_PRIVATE, fd, 0);
        if (p == MAP_FAILED) {
            const int err = errno;
            ::close(fd);
            fail(path, err);
        }
        data_ = static_cast<const std::uint8_t*>(p);
    }
    ::close(fd);
}

MappedFile::~MappedFile() {
    if (data_) ::munmap(const_cast<std::uint8_t*>(data_), size_);
}

}  // namespace tavrin
