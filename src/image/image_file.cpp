#include "image/image_file.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "model/pipeline_error.h"

namespace tavrin::image {

Bytes readImageFile(const std::filesystem::path& url) {
    const int fd = ::open(url.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) throw FileSystemError("Cannot open " + url.filename().string() + ": " + std::strerror(errno), errno);
    struct Closer {
        int fd;
        ~Closer() { ::close(fd); }
    } closer{fd};
    struct stat st {};
    if (::fstat(fd, &st) != 0) throw FileSystemError("Cannot read " + url.filename().string(), errno);
    Bytes out;
    out.reserve(static_cast<std::size_t>(std::max<off_t>(st.st_size, 0)));
    std::uint8_t buffer[1 << 16];
    while (true) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) throw FileSystemError("Cannot read " + url.filename().string() + ": " + std::strerror(errno), errno);
        if (n == 0) break;
        out.insert(out.end(), buffer, buffer + n);
    }
    return out;
}

}  // namespace tavrin::image
