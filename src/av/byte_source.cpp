#include "av/byte_source.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fmt/core.h>
#include <sys/stat.h>
#include <unistd.h>

#include "model/unicode_text.h"

namespace tavrin {

std::vector<std::uint8_t> ByteSource::readBytes(std::uint64_t offset, std::uint64_t length, std::uint64_t limit) const {
    enforce(length <= limit, AVContainerError::Case::structureTooLarge);
    enforce(offset <= size() && length <= size() - offset, AVContainerError::Case::truncated);
    std::vector<std::uint8_t> out(static_cast<std::size_t>(length));
    read(offset, out);
    return out;
}

FileByteSource::FileByteSource(const std::filesystem::path& path) {
    fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd_ < 0) throw AVContainerError(AVContainerError::Case::cannotOpen, std::strerror(errno));
    struct stat st {};
    if (::fstat(fd_, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd_);
        throw AVContainerError(AVContainerError::Case::cannotOpen, "not a regular file");
    }
    size_ = static_cast<std::uint64_t>(st.st_size);
}

FileByteSource::~FileByteSource() {
    if (fd_ >= 0) ::close(fd_);
}

void FileByteSource::read(std::uint64_t offset, std::span<std::uint8_t> out) const {
    enforce(offset <= size_ && out.size() <= size_ - offset, AVContainerError::Case::truncated);
    std::size_t done = 0;
    while (done < out.size()) {
        const ssize_t n = ::pread(fd_, out.data() + done, out.size() - done, static_cast<off_t>(offset + done));
        if (n < 0 && errno == EINTR) continue;
        // A file that shrank under us reads as truncated.
        enforce(n > 0, AVContainerError::Case::truncated);
        done += static_cast<std::size_t>(n);
    }
}

void MemoryByteSource::read(std::uint64_t offset, std::span<std::uint8_t> out) const {
    enforce(offset <= bytes_.size() && out.size() <= bytes_.size() - offset, AVContainerError::Case::truncated);
    if (!out.empty()) std::memcpy(out.data(), bytes_.data() + offset, out.size());
}

namespace avBytes {

namespace {

using unicode::appendUTF8;

bool isValidUTF8(std::span<const std::uint8_t> b) {
    std::size_t i = 0;
    while (i < b.size()) {
        const std::uint8_t c = b[i];
        if (c < 0x80) {
            ++i;
            continue;
        }
        std::size_t extra = 0;
        if (c >= 0xC2 && c <= 0xDF) extra = 1;
        else if (c >= 0xE0 && c <= 0xEF) extra = 2;
        else if (c >= 0xF0 && c <= 0xF4) extra = 3;
        else return false;
        if (b.size() - i <= extra) return false;
        for (std::size_t k = 1; k <= extra; ++k)
            if ((b[i + k] & 0xC0) != 0x80) return false;
        i += extra + 1;
    }
    return true;
}

}  // namespace

std::string fourCCText(const std::uint8_t* p) {
    std::string out;
    bool plain = true;
    for (int i = 0; i < 4; ++i) plain = plain && ((p[i] >= 0x20 && p[i] < 0x7F) || p[i] == 0xA9);
    if (!plain) return fmt::format("0x{:08X}", bytes::be32(p));
    for (int i = 0; i < 4; ++i) {
        if (p[i] == 0xA9) out += "\u00a9";
        else out += static_cast<char>(p[i]);
    }
    return out;
}

std::string latin1ToUTF8(std::span<const std::uint8_t> bytes) {
    std::string out;
    out.reserve(bytes.size());
    for (std::uint8_t c : bytes) appendUTF8(out, c);
    return out;
}

std::string textFromBytes(std::span<const std::uint8_t> bytes) {
    if (isValidUTF8(bytes)) return std::string(bytes.begin(), bytes.end());
    return latin1ToUTF8(bytes);
}

std::string utf16ToUTF8(std::span<const std::uint8_t> bytes, bool bigEndian) {
    std::string out;
    auto unit = [&](std::size_t i) -> std::uint32_t {
        return bigEndian ? static_cast<std::uint32_t>(bytes[i] << 8 | bytes[i + 1])
                         : static_cast<std::uint32_t>(bytes[i + 1] << 8 | bytes[i]);
    };
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        std::uint32_t u = unit(i);
        if (u >= 0xD800 && u < 0xDC00 && i + 3 < bytes.size()) {
            const std::uint32_t low = unit(i + 2);
            if (low >= 0xDC00 && low < 0xE000) {
                appendUTF8(out, 0x10000 + ((u - 0xD800) << 10) + (low - 0xDC00));
                i += 2;
                continue;
            }
        }
        if (u >= 0xD800 && u < 0xE000) u = 0xFFFD;
        appendUTF8(out, u);
    }
    return out;
}

std::string trimmed(std::string text) {
    while (!text.empty() && (text.back() == '\0' || text.back() == ' ')) text.pop_back();
    return text;
}

}  // namespace avBytes

}  // namespace tavrin
