#include "services/temporary_share_store.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <optional>
#include <vector>

#include "model/uuid.h"
#include "services/file_access_error.h"
#include "services/staging_service.h"

namespace tavrin {

namespace stdfs = std::filesystem;

namespace {

std::vector<stdfs::path> components(const std::string& canonical) {
    std::vector<stdfs::path> parts;
    for (const auto& part : stdfs::path(canonical)) parts.push_back(part);
    return parts;
}

bool hasPrefix(const std::vector<stdfs::path>& candidate, const std::vector<stdfs::path>& root) {
    return candidate.size() >= root.size() && std::equal(root.begin(), root.end(), candidate.begin());
}

bool isDirectChild(const stdfs::path& root, const stdfs::path& candidate) {
    const auto r = components(StagingService::canonicalizedPath(root));
    const auto c = components(StagingService::canonicalizedPath(candidate));
    return c.size() == r.size() + 1 && hasPrefix(c, r);
}

bool isContained(const stdfs::path& root, const stdfs::path& candidate) {
    const auto r = components(StagingService::canonicalizedPath(root));
    const auto c = components(StagingService::canonicalizedPath(candidate));
    return c.size() > r.size() && hasPrefix(c, r);
}

// Creation time when the file system keeps it, else the modification time.
std::optional<std::chrono::system_clock::time_point> entryDate(const stdfs::path& entry) {
    struct statx info {};
    if (::statx(AT_FDCWD, entry.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BTIME | STATX_MTIME, &info) != 0) return std::nullopt;
    const auto toTime = [](const statx_timestamp& t) {
        return std::chrono::system_clock::time_point(
            std::chrono::duration_cast<std::chrono::system_clock::duration>(std::chrono::seconds(t.tv_sec) +
                                                                            std::chrono::nanoseconds(t.tv_nsec)));
    };
    if (info.stx_mask & STATX_BTIME) return toTime(info.stx_btime);
    if (info.stx_mask & STATX_MTIME) return toTime(info.stx_mtime);
    return std::nullopt;
}

}  // namespace

TemporaryShareStore::TemporaryShareStore(const stdfs::path& baseDirectory, WallClock now)
    : rootURL_(baseDirectory / directoryName), now_(std::move(now)) {}

stdfs::path TemporaryShareStore::ensureDirectory() const {
    std::error_code error;
    stdfs::create_directories(rootURL_, error);
    if (error) throw FileAccessError::writing(rootURL_, error.value());
    return rootURL_;
}

stdfs::path TemporaryShareStore::makeDestinationURL(const std::string& originalName) const {
    ensureDirectory();
    const auto directory = rootURL_ / Uuid::random().uuidString();
    std::error_code error;
    stdfs::create_directories(directory, error);
    if (error) throw FileAccessError::writing(directory, error.value());
    auto name = stdfs::path(originalName).filename().string();
    if (name == "." || name == "..") name.clear();
    return directory / (name.empty() ? "Cleaned file" : name);
}

void TemporaryShareStore::remove(const stdfs::path& url) const noexcept {
    try {
        const auto parent = url.parent_path();
        const auto target = isDirectChild(rootURL_, parent) ? parent : url;
        if (!isContained(rootURL_, target)) return;
        std::error_code ignored;
        stdfs::remove_all(target, ignored);
    } catch (...) {
    }
}

void TemporaryShareStore::sweepStaleFiles(double olderThan) const noexcept {
    try {
        std::error_code error;
        stdfs::directory_iterator entries(rootURL_, error);
        if (error) return;
        const auto cutoff =
            now_() - std::chrono::duration_cast<std::chrono::system_clock::duration>(std::chrono::duration<double>(olderThan));
        for (const auto& entry : entries) {
            const auto date = entryDate(entry.path());
            if (date && *date >= cutoff) continue;
            std::error_code ignored;
            stdfs::remove_all(entry.path(), ignored);
        }
    } catch (...) {
    }
}

}  // namespace tavrin
