#include "intake/folder_expansion_service.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <unordered_set>
#include <utility>

namespace tavrin {

namespace {

namespace stdfs = std::filesystem;

// The walk's state: what is collected, what was seen, and the counters of the summary.
class Accumulator {
public:
    explicit Accumulator(std::int64_t cap) : cap_(cap) {}

    bool capHit() const { return summary_.capHit; }
    FolderExpansionSummary& summary() { return summary_; }

    // Takes `url` unless its canonical path was already taken.
    void append(stdfs::path url, std::string canonicalPath, bool foundInFolder) {
        if (static_cast<std::int64_t>(summary_.fileURLs.size()) >= cap_) {
            summary_.capHit = true;
            return;
        }
        if (!seenPaths_.insert(std::move(canonicalPath)).second) return;
        summary_.fileURLs.push_back(std::move(url));
        if (foundInFolder) ++summary_.filesFoundInFolders;
        if (static_cast<std::int64_t>(summary_.fileURLs.size()) >= cap_) summary_.capHit = true;
    }

private:
    std::int64_t cap_;
    FolderExpansionSummary summary_;
    std::unordered_set<std::string> seenPaths_;
};

// The path with symbolic links resolved; the lexically normal absolute path when that fails
// (a dangling link, a file that vanished).
std::string canonicalPath(const stdfs::path& url) {
    if (char* resolved = ::realpath(url.c_str(), nullptr)) {
        std::string path(resolved);
        std::free(resolved);
        return path;
    }
    std::error_code error;
    auto absolute = stdfs::absolute(url, error);
    return (error ? url : absolute).lexically_normal().string();
}

struct DirCloser {
    void operator()(DIR* dir) const { ::closedir(dir); }
};
using DirHandle = std::unique_ptr<DIR, DirCloser>;

// One open directory of the walk: where its entries are reported and where they really are.
struct Frame {
    DirHandle dir;
    stdfs::path reported;
    std::string canonical;
};

// Opens `name` in `parent` as a directory, never through a symbolic link.
DirHandle openDirectory(int parent, const char* name) {
    const int fd = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return nullptr;
    DIR* dir = ::fdopendir(fd);
    if (!dir) ::close(fd);
    return DirHandle(dir);
}

// A pre-order walk, like a directory enumerator: a sub-folder is entered as soon as it is met.
// Iterative, with one open directory per level of depth.
void expandDirectory(const stdfs::path& root, Accumulator& into) {
    DirHandle top = openDirectory(AT_FDCWD, root.c_str());
    if (!top) return;
    // Directories already entered, by device and inode: a folder mounted inside itself is walked
    // once.
    std::set<std::pair<dev_t, ino_t>> entered;
    struct stat info {};
    if (::fstat(::dirfd(top.get()), &info) == 0) entered.emplace(info.st_dev, info.st_ino);

    std::vector<Frame> stack;
    stack.push_back(Frame{std::move(top), root, canonicalPath(root)});
    while (!stack.empty() && !into.capHit()) {
        Frame& frame = stack.back();
        errno = 0;
        const dirent* entry = ::readdir(frame.dir.get());
        if (!entry) {
            // The end, or an error reading on: either way this folder gives no more.
            stack.pop_back();
            continue;
        }
        const char* name = entry->d_name;
        if (name[0] == '.') continue;  // ".", "..", and hidden entries with their descendants

        unsigned char type = entry->d_type;
        if (type == DT_UNKNOWN) {
            if (::fstatat(::dirfd(frame.dir.get()), name, &info, AT_SYMLINK_NOFOLLOW) != 0) continue;
            type = S_ISREG(info.st_mode) ? DT_REG : S_ISDIR(info.st_mode) ? DT_DIR : S_ISLNK(info.st_mode) ? DT_LNK : DT_UNKNOWN;
        }
        if (type == DT_REG) {
            into.append(frame.reported / name, frame.canonical + "/" + name, true);
        } else if (type == DT_DIR && stack.size() < FolderExpansionService::maxDepth) {
            DirHandle child = openDirectory(::dirfd(frame.dir.get()), name);
            if (!child) continue;  // unreadable: only its own content is lost
            if (::fstat(::dirfd(child.get()), &info) != 0 || !entered.emplace(info.st_dev, info.st_ino).second) continue;
            Frame next{std::move(child), frame.reported / name, frame.canonical + "/" + name};
            stack.push_back(std::move(next));  // `frame` is not used after this
        }
        // Symbolic links are never followed inside a folder; devices, pipes and sockets are no
        // files to clean.
    }
}

}  // namespace

FolderExpansionService::FolderExpansionService(std::int64_t fileCap) : fileCap_(fileCap < 1 ? 1 : fileCap) {}

FolderExpansionSummary FolderExpansionService::expand(const std::vector<stdfs::path>& urls) const {
    Accumulator accumulator(fileCap_);
    for (const auto& given : urls) {
        if (accumulator.capHit()) break;
        stdfs::path url = given;
        struct stat info {};
        if (::lstat(url.c_str(), &info) == 0 && S_ISLNK(info.st_mode)) {
            // Only a link given at the top level is followed.
            if (char* resolved = ::realpath(url.c_str(), nullptr)) {
                url = resolved;
                std::free(resolved);
            }
        }
        const bool isDirectory = ::stat(url.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
        if (isDirectory) {
            auto& summary = accumulator.summary();
            summary.containedFolders = true;
            ++summary.foldersExpanded;
            expandDirectory(url, accumulator);
        } else {
            accumulator.append(url, canonicalPath(url), false);
        }
    }
    return std::move(accumulator.summary());
}

}  // namespace tavrin
