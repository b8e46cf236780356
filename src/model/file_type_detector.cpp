#include "model/file_type_detector.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fmt/core.h>
#include <sys/stat.h>
#include <unistd.h>

#include "model/pipeline_error.h"

namespace tavrin {

FileTypeDetectionError::FileTypeDetectionError(Case c, std::filesystem::path url)
    : TypedError(c, {}), url_(std::move(url)) {
    setText(description());
}

std::string FileTypeDetectionError::description() const {
    const std::string name = url_.filename().string();
    switch (errorCase()) {
        case Case::emptyFile: return fmt::format("File is empty: {}", name);
        case Case::fileTooSmall: return fmt::format("File is too small to determine type: {}", name);
        case Case::unknownFormat: return fmt::format("Unknown file format: {}", name);
        case Case::fileNotReadable: return fmt::format("Cannot read file: {}", name);
        case Case::encryptedOfficeDocument:
            return fmt::format(
                "{} is a password-protected Office document, which Tavrin can't process yet. Open it in Word, Excel, "
                "or PowerPoint, remove the password (File \u25b8 Info \u25b8 Protect Document), save a copy, then "
                "clean that copy.",
                name);
    }
    return {};
}

namespace {

std::string extensionOf(const std::filesystem::path& url) {
    std::string ext = url.extension().string();
    if (!ext.empty() && ext.front() == '.') ext.erase(0, 1);
    return ext;
}

// Reads up to `max` bytes from the start of the file; -1 when it cannot be opened.
long readHead(const std::filesystem::path& url, std::uint8_t* buf, std::size_t max, int* openErrno) {
    // Without blocking, and only a regular file: a named pipe must not stall detection, nor a
    // device feed it.
    int fd = ::open(url.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        if (openErrno) *openErrno = errno;
        return -1;
    }
    struct stat st {};
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        if (openErrno) *openErrno = S_ISDIR(st.st_mode) ? EISDIR : EINVAL;
        ::close(fd);
        return -1;
    }
    std::size_t got = 0;
    while (got < max) {
        ssize_t n = ::read(fd, buf + got, max - got);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        got += static_cast<std::size_t>(n);
    }
    ::close(fd);
    return static_cast<long>(got);
}

bool startsWith(const std::uint8_t* p, std::size_t n, std::string_view sig) {
    return n >= sig.size() && std::memcmp(p, sig.data(), sig.size()) == 0;
}

}  // namespace

bool FileTypeDetector::isOLECompoundDocument(const std::filesystem::path& url) {
    static const std::uint8_t ole[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
    std::uint8_t head[8];
    if (readHead(url, head, 8, nullptr) != 8) return false;
    return std::memcmp(head, ole, 8) == 0;
}

namespace {

// The decision, with the first bytes read by `head(buffer, max)` (a count, or -1 with errno).
template <typename ReadHead>
FileType detectWith(const std::filesystem::path& url, ReadHead head) {
    static const std::uint8_t ole[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
    const std::string ext = extensionOf(url);
    if (auto type = fileTypeFromExtension(ext)) {
        std::uint8_t first[8];
        if (category(*type) == FileTypeCategory::officeDocument && head(first, 8) == 8 &&
            std::memcmp(first, ole, 8) == 0)
            throw FileTypeDetectionError(FileTypeDetectionError::Case::encryptedOfficeDocument, url);
        return *type;
    }
    if (!ext.empty())
        if (auto related = relatedFileTypeForExtension(ext)) return *related;

    std::uint8_t bytes[16];
    const long n = head(bytes, sizeof bytes);
    if (n < 0) {
        const int err = errno;
        throw FileSystemError(fmt::format("Cannot open {}: {}", url.filename().string(), std::strerror(err)), err);
    }
    return FileTypeDetector::detectFromMagicBytes(bytes, static_cast<std::size_t>(n), url);
}

}  // namespace

FileType FileTypeDetector::detect(const std::filesystem::path& url) {
    return detectWith(url, [&](std::uint8_t* buffer, std::size_t max) {
        int err = 0;
        const long n = readHead(url, buffer, max, &err);
        if (n < 0) errno = err;
        return n;
    });
}

FileType FileTypeDetector::detect(const SourceFile& source) {
    return detectWith(source.path(), [&](std::uint8_t* buffer, std::size_t max) {
        return static_cast<long>(source.readHead(buffer, max));
    });
}

FileType FileTypeDetector::detectFromMagicBytes(const std::uint8_t* h, std::size_t n, const std::filesystem::path& url) {
    using E = FileTypeDetectionError;
    if (n == 0) throw E(E::Case::emptyFile, url);
    if (n < 4) throw E(E::Case::fileTooSmall, url);
    auto officeByExtension = [&]() -> std::optional<FileType> {
        auto t = fileTypeFromExtension(extensionOf(url));
        if (t && category(*t) == FileTypeCategory::officeDocument) return t;
        return std::nullopt;
    };
    if (startsWith(h, n, "%PDF")) return FileType::pdf;
    if (startsWith(h, n, "BM")) return FileType::bmp;
    if (startsWith(h, n, "GIF8")) return FileType::gif;
    if (startsWith(h, n, std::string_view("II*\0", 4))) return FileType::tiff;
    if (startsWith(h, n, std::string_view("MM\0*", 4))) return FileType::tiff;
    if (startsWith(h, n, std::string_view("PK\3\4", 4))) {
        if (auto t = officeByExtension()) return *t;
        throw E(E::Case::unknownFormat, url);
    }
    if (h[0] == 0x89 && startsWith(h + 1, n - 1, "PNG")) return FileType::png;
    if (h[0] == 0xFF && h[1] == 0xD8 && h[2] == 0xFF) return FileType::jpeg;
    if (n >= 12 && startsWith(h, n, "RIFF") && std::memcmp(h + 8, "WEBP", 4) == 0) return FileType::webp;
    if (n >= 12 && std::memcmp(h + 4, "ftyp", 4) == 0) {
        std::string brand;
        bool ascii = true;
        for (int i = 8; i < 12; ++i) ascii = ascii && h[i] < 0x80;
        if (ascii) brand.assign(reinterpret_cast<const char*>(h + 8), 4);
        if (brand.rfind("hei", 0) == 0 || brand.rfind("mif", 0) == 0) return FileType::heic;
        if (brand == "isom" || brand == "mp41" || brand == "mp42" || brand.rfind("M4", 0) == 0) return FileType::mp4;
        if (brand == "qt  ") return FileType::mov;
    }
    if (startsWith(h, n, "FORM")) {
        if (n >= 12 && std::memcmp(h + 8, "AIFF", 4) == 0) return FileType::aiff;
        throw E(E::Case::unknownFormat, url);
    }
    if (startsWith(h, n, "fLaC")) return FileType::flac;
    if (n >= 12 && startsWith(h, n, "RIFF") && std::memcmp(h + 8, "WAVE", 4) == 0) return FileType::wav;
    if (n >= 12 && startsWith(h, n, "RIFF") && std::memcmp(h + 8, "AVI ", 4) == 0) return FileType::avi;
    if (startsWith(h, n, "ID3")) return FileType::mp3;
    if (h[0] == 0xFF && h[1] >= 0xE0) return FileType::mp3;
    if (h[0] == 0xD0 && h[1] == 0xCF && h[2] == 0x11 && h[3] == 0xE0) {
        if (officeByExtension()) throw E(E::Case::encryptedOfficeDocument, url);
        return FileType::doc;
    }
    throw E(E::Case::unknownFormat, url);
}

}  // namespace tavrin
