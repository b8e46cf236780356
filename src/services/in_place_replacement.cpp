#include "services/in_place_replacement.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>
#include <utility>

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "model/uuid.h"

namespace tavrin {

namespace fsys = std::filesystem;
using Case = InPlaceReplacementError::Case;

namespace {

std::string errnoText(int error) { return std::strerror(error); }

class Descriptor {
public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Descriptor() {
        if (fd_ >= 0) ::close(fd_);
    }
    int get() const { return fd_; }
    // Closes now and reports the close's own failure (a delayed write error on some file systems).
    int close() {
        const int result = fd_ >= 0 ? ::close(fd_) : 0;
        fd_ = -1;
        return result == 0 ? 0 : errno;
    }

private:
    int fd_;
};

struct Trash {
    fsys::path files;
    fsys::path info;
    fsys::path topdir;  // empty for the home Trash, whose Path entries are absolute
};

struct Reservation {
    fsys::path trashedPath;
    fsys::path infoPath;
};

// A thrown step failure, carrying the errno or the text of what went wrong.
struct StepFailure {
    int error = 0;
    std::string text;
    std::string reason() const { return text.empty() ? errnoText(error) : text; }
};

bool sameFile(const struct stat& a, const struct stat& b) { return a.st_dev == b.st_dev && a.st_ino == b.st_ino; }

// Byte equality of two open files; -1 from pread reads as a difference.
bool sameContents(int a, int b) {
    std::array<char, 1 << 16> left{};
    std::array<char, 1 << 16> right{};
    for (off_t offset = 0;;) {
        const ssize_t x = ::pread(a, left.data(), left.size(), offset);
        const ssize_t y = ::pread(b, right.data(), right.size(), offset);
        if (x < 0 || y < 0 || x != y || std::memcmp(left.data(), right.data(), std::size_t(x)) != 0) return false;
        if (x == 0) return true;
        offset += x;
    }
}

void syncDirectory(const fsys::path& directory) {
    Descriptor fd(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd.get() >= 0) ::fsync(fd.get());  // durability only; the swap is already atomic
}

// Creates each missing directory of `path` with mode 0700; an existing one must be a directory
// and not a link.
void makePrivateDirectories(const fsys::path& path) {
    fsys::path current;
    for (const auto& part : path) {
        current /= part;
        if (::mkdir(current.c_str(), 0700) != 0 && errno != EEXIST) throw StepFailure{errno, {}};
    }
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) throw StepFailure{errno, {}};
    if (!S_ISDIR(st.st_mode)) throw StepFailure{0, fmt::format("{} is not a folder", path.string())};
}

// The nearest existing ancestor's device: the device a folder would be made on.
std::optional<dev_t> deviceOfNearestAncestor(fsys::path path) {
    for (;;) {
        struct stat st {};
        if (::stat(path.c_str(), &st) == 0) return st.st_dev;
        if (!path.has_relative_path()) return std::nullopt;
        path = path.parent_path();
    }
}

// The mount point of the file system `directory` is on: the last ancestor on the same device.
fsys::path topDirectory(fsys::path directory, dev_t device) {
    while (directory.has_relative_path()) {
        const auto parent = directory.parent_path();
        struct stat st {};
        if (::stat(parent.c_str(), &st) != 0 || st.st_dev != device) return directory;
        directory = parent;
    }
    return directory;
}

bool isOwnedPrivateFolder(const fsys::path& path) {
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode) && st.st_uid == ::geteuid();
}

std::string localDeletionDate() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &local);
    return text.data();
}

class Replacement {
public:
    Replacement(const InPlaceReplacementOptions& options, fsys::path original, fsys::path verifiedCopy,
                fsys::path cleanedFrom)
        : options_(options),
          original_(std::move(original)),
          verifiedCopy_(std::move(verifiedCopy)),
          cleanedFrom_(std::move(cleanedFrom)) {}

    InPlaceReplacementResult run();

private:
    void step(InPlaceStep s) const {
        if (!options_.beforeStep) return;
        if (const int error = options_.beforeStep(s); error != 0) throw StepFailure{error, {}};
    }
    [[noreturn]] void fail(Case c, const StepFailure& failure) const {
        throw InPlaceReplacementError(c, original_, failure.reason());
    }
    void examine();
    Trash chooseTrash() const;
    Reservation reserve(const Trash& trash) const;
    void writeCopy(const fsys::path& temporary) const;
    fsys::path exchange(const fsys::path& temporary);
    void undoExchange(const fsys::path& aside) const;
    void removeQuietly(const fsys::path& path) const { ::unlink(path.c_str()); }

    const InPlaceReplacementOptions& options_;
    fsys::path original_;
    fsys::path verifiedCopy_;
    fsys::path cleanedFrom_;
    struct stat originalStat_ {};
    mutable bool temporaryCreated_ = false;  // only a file this run created is ever removed
    bool exchanged_ = false;  // the exchange, not the link-and-rename fallback, was used
};

void Replacement::examine() {
    try {
        step(InPlaceStep::examineOriginal);
        const auto name = original_.filename();
        if (name.empty() || name == "." || name == "..")
            throw InPlaceReplacementError(Case::originalNotRegularFile, original_);
        // The folder is resolved, the file itself never: a link at the path stays a link.
        original_ = fsys::canonical(fsys::absolute(original_).parent_path()) / name;
        if (::lstat(original_.c_str(), &originalStat_) != 0) throw StepFailure{errno, {}};
    } catch (const fsys::filesystem_error& e) {
        fail(Case::originalNotAccessible, {e.code().value(), {}});
    } catch (const StepFailure& failure) {
        fail(Case::originalNotAccessible, failure);
    }
    if (S_ISLNK(originalStat_.st_mode)) throw InPlaceReplacementError(Case::originalIsSymbolicLink, original_);
    if (!S_ISREG(originalStat_.st_mode)) throw InPlaceReplacementError(Case::originalNotRegularFile, original_);
    if (originalStat_.st_nlink > 1)
        throw InPlaceReplacementError(Case::originalHasOtherLinks, original_,
                                      fmt::format("{} links", originalStat_.st_nlink));
    if (::geteuid() != 0 && originalStat_.st_uid != ::geteuid())
        throw InPlaceReplacementError(Case::ownerNotKept, original_,
                                      fmt::format("it belongs to user {}", originalStat_.st_uid));
    if (!cleanedFrom_.empty()) {
        // The very file examined is compared: opened without following a link, checked by inode.
        Descriptor fd(::open(original_.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
        struct stat opened {};
        if (fd.get() < 0 || ::fstat(fd.get(), &opened) != 0 || !sameFile(opened, originalStat_))
            throw InPlaceReplacementError(Case::originalChanged, original_);
        Descriptor cleaned(::open(cleanedFrom_.c_str(), O_RDONLY | O_CLOEXEC));
        if (cleaned.get() < 0)
            throw InPlaceReplacementError(Case::originalNotAccessible, original_,
                                          fmt::format("{}: {}", cleanedFrom_.string(), errnoText(errno)));
        if (!sameContents(fd.get(), cleaned.get())) throw InPlaceReplacementError(Case::originalChanged, original_);
    }
}

Trash Replacement::chooseTrash() const {
    step(InPlaceStep::chooseTrash);
    const dev_t device = originalStat_.st_dev;
    const auto home = options_.homeTrash.empty() ? InPlaceReplacement::defaultHomeTrash() : options_.homeTrash;
    if (deviceOfNearestAncestor(home) == device) {
        makePrivateDirectories(home / "files");
        makePrivateDirectories(home / "info");
        struct stat st {};
        if (::stat(home.c_str(), &st) == 0 && st.st_dev == device) return {home / "files", home / "info", {}};
    }
    // Another file system: its own Trash, at its top directory, never a copy across disks.
    const auto topdir = topDirectory(original_.parent_path(), device);
    const auto uid = std::to_string(::geteuid());
    fsys::path trash;
    struct stat shared {};
    const auto sharedPath = topdir / ".Trash";
    if (::lstat(sharedPath.c_str(), &shared) == 0 && S_ISDIR(shared.st_mode) && (shared.st_mode & S_ISVTX)) {
        trash = sharedPath / uid;
        if (::mkdir(trash.c_str(), 0700) != 0 && errno != EEXIST) trash.clear();
        if (!trash.empty() && !isOwnedPrivateFolder(trash)) trash.clear();
    }
    if (trash.empty()) {
        trash = topdir / (".Trash-" + uid);
        if (::mkdir(trash.c_str(), 0700) != 0 && errno != EEXIST)
            throw StepFailure{0, fmt::format("{}: {}", trash.string(), errnoText(errno))};
        if (!isOwnedPrivateFolder(trash))
            throw StepFailure{0, fmt::format("{} is not a folder of this user", trash.string())};
    }
    makePrivateDirectories(trash / "files");
    makePrivateDirectories(trash / "info");
    struct stat st {};
    if (::stat((trash / "files").c_str(), &st) != 0 || st.st_dev != device)
        throw StepFailure{0, fmt::format("{} is on another disk", trash.string())};
    return {trash / "files", trash / "info", topdir};
}

Reservation Replacement::reserve(const Trash& trash) const {
    step(InPlaceStep::reserveTrashName);
    const auto base = original_.filename().string();
    const auto recorded = trash.topdir.empty() ? original_ : original_.lexically_relative(trash.topdir);
    const auto date = options_.deletionDate ? options_.deletionDate() : localDeletionDate();
    const auto contents = fmt::format("[Trash Info]\nPath={}\nDeletionDate={}\n",
                                      InPlaceReplacement::encodeTrashPath(recorded.string()), date);
    for (int n = 1; n < 10000; ++n) {
        const auto name = n == 1 ? base : fmt::format("{}.{}", base, n);
        const auto infoPath = trash.info / (name + ".trashinfo");
        Descriptor fd(::open(infoPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (fd.get() < 0) {
            if (errno == EEXIST) continue;
            throw StepFailure{errno, {}};
        }
        struct stat existing {};
        if (::lstat((trash.files / name).c_str(), &existing) == 0) {  // a file without its info
            removeQuietly(infoPath);
            continue;
        }
        const bool written = ::write(fd.get(), contents.data(), contents.size()) == ssize_t(contents.size()) &&
                             ::fsync(fd.get()) == 0;
        const int error = written ? fd.close() : errno;
        if (error != 0) {
            removeQuietly(infoPath);
            throw StepFailure{error, {}};
        }
        return {trash.files / name, infoPath};
    }
    throw StepFailure{0, "no free name in the Trash"};
}

// Copies the verified file to `temporary` (which must not exist), syncs it, compares it byte for
// byte and gives it the original's owner and mode. The caller removes `temporary` on failure.
void Replacement::writeCopy(const fsys::path& temporary) const {
    Descriptor out;
    try {
        step(InPlaceStep::writeCopy);
        out = Descriptor(::open(temporary.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (out.get() < 0) throw StepFailure{errno, {}};
        temporaryCreated_ = true;
        Descriptor in(::open(verifiedCopy_.c_str(), O_RDONLY | O_CLOEXEC));
        if (in.get() < 0) throw StepFailure{errno, fmt::format("{}: {}", verifiedCopy_.string(), errnoText(errno))};
        std::array<char, 1 << 16> buffer{};
        for (;;) {
            const ssize_t got = ::read(in.get(), buffer.data(), buffer.size());
            if (got < 0 && errno == EINTR) continue;
            if (got < 0) throw StepFailure{errno, {}};
            if (got == 0) break;
            for (ssize_t done = 0; done < got;) {
                const ssize_t put = ::write(out.get(), buffer.data() + done, std::size_t(got - done));
                if (put < 0 && errno == EINTR) continue;
                if (put < 0) throw StepFailure{errno, {}};
                done += put;
            }
        }
        step(InPlaceStep::syncCopy);
        if (::fsync(out.get()) != 0) throw StepFailure{errno, {}};
    } catch (const StepFailure& failure) {
        fail(Case::copyFailed, failure);
    }
    try {
        step(InPlaceStep::verifyCopy);
        Descriptor in(::open(verifiedCopy_.c_str(), O_RDONLY | O_CLOEXEC));
        if (in.get() < 0) throw StepFailure{errno, {}};
        if (!sameContents(in.get(), out.get())) throw StepFailure{0, "the bytes differ"};
    } catch (const StepFailure& failure) {
        fail(Case::copyNotVerified, failure);
    }
    try {
        step(InPlaceStep::keepAttributes);
        // The owner first: a change of owner clears set-id bits that the mode then restores.
        struct stat copy {};
        if (::fstat(out.get(), &copy) != 0) throw StepFailure{errno, {}};
        if ((copy.st_uid != originalStat_.st_uid || copy.st_gid != originalStat_.st_gid) &&
            ::fchown(out.get(), originalStat_.st_uid, originalStat_.st_gid) != 0)
            throw StepFailure{errno, {}};
        if (::fchmod(out.get(), originalStat_.st_mode & 07777) != 0) throw StepFailure{errno, {}};
        if (const int error = out.close(); error != 0) throw StepFailure{error, {}};
    } catch (const StepFailure& failure) {
        fail(Case::ownerNotKept, failure);
    }
}

// Puts the copy at the original's path; returns where the original now is.
fsys::path Replacement::exchange(const fsys::path& temporary) {
    // An injected EINVAL stands for a file system without the exchange.
    int error = options_.beforeStep ? options_.beforeStep(InPlaceStep::exchange) : 0;
    if (error == 0) {
        if (::renameat2(AT_FDCWD, temporary.c_str(), AT_FDCWD, original_.c_str(), RENAME_EXCHANGE) == 0) {
            exchanged_ = true;
            return temporary;
        }
        error = errno;
    }
    if (error != EINVAL && error != ENOSYS && error != EOPNOTSUPP) throw StepFailure{error, {}};
    // No exchange here: a second name holds the original while the rename replaces the path, so
    // the path always names one whole file.
    const auto aside = fsys::path(temporary).replace_extension(".tavrin-original");
    if (::link(original_.c_str(), aside.c_str()) != 0) throw StepFailure{errno, {}};
    if (::rename(temporary.c_str(), original_.c_str()) != 0) {
        const int error = errno;
        removeQuietly(aside);
        throw StepFailure{error, {}};
    }
    return aside;
}

void Replacement::undoExchange(const fsys::path& aside) const {
    if (exchanged_) {
        if (::renameat2(AT_FDCWD, aside.c_str(), AT_FDCWD, original_.c_str(), RENAME_EXCHANGE) != 0)
            throw StepFailure{errno, {}};
        removeQuietly(aside);  // now the clean copy
        return;
    }
    if (::rename(aside.c_str(), original_.c_str()) != 0) throw StepFailure{errno, {}};
}

InPlaceReplacementResult Replacement::run() {
    examine();
    Trash trash;
    try {
        trash = chooseTrash();
    } catch (const StepFailure& failure) {
        fail(Case::trashUnavailable, failure);
    } catch (const fsys::filesystem_error& e) {
        fail(Case::trashUnavailable, {e.code().value(), {}});
    }
    Reservation reservation;
    try {
        reservation = reserve(trash);
    } catch (const StepFailure& failure) {
        fail(Case::trashUnavailable, failure);
    }
    const auto directory = original_.parent_path();
    const auto temporary =
        directory / fmt::format(".{}.{}.tavrin-replace", original_.filename().string(), Uuid::random().uuidString());
    fsys::path aside;
    try {
        writeCopy(temporary);
        try {
            aside = exchange(temporary);
        } catch (const StepFailure& failure) {
            fail(Case::exchangeFailed, failure);
        }
    } catch (...) {
        if (temporaryCreated_) removeQuietly(temporary);
        removeQuietly(reservation.infoPath);
        throw;
    }
    syncDirectory(directory);

    // What was exchanged must be the file that was examined: a path swapped under us since then
    // is put back, not trashed.
    struct stat moved {};
    const bool same = ::lstat(aside.c_str(), &moved) == 0 && sameFile(moved, originalStat_);
    try {
        if (!same) throw StepFailure{0, "it changed while it was being replaced"};
        step(InPlaceStep::moveToTrash);
        if (::renameat2(AT_FDCWD, aside.c_str(), AT_FDCWD, reservation.trashedPath.c_str(), RENAME_NOREPLACE) != 0) {
            if (errno != EINVAL || ::rename(aside.c_str(), reservation.trashedPath.c_str()) != 0)
                throw StepFailure{errno, {}};
        }
    } catch (const StepFailure& failure) {
        removeQuietly(reservation.infoPath);
        try {
            undoExchange(aside);
        } catch (const StepFailure& undo) {
            throw InPlaceReplacementError(Case::originalKeptAside, original_,
                                          fmt::format("{}; {}", failure.reason(), undo.reason()), aside);
        }
        syncDirectory(directory);
        fail(Case::trashMoveFailed, failure);
    }
    syncDirectory(reservation.trashedPath.parent_path());
    return {reservation.trashedPath, reservation.infoPath};
}

}  // namespace

InPlaceReplacement::InPlaceReplacement(InPlaceReplacementOptions options) : options_(std::move(options)) {}

InPlaceReplacementResult InPlaceReplacement::replace(const fsys::path& original, const fsys::path& verifiedCopy,
                                                     const fsys::path& cleanedFrom) const {
    return Replacement(options_, original, verifiedCopy, cleanedFrom).run();
}

fsys::path InPlaceReplacement::defaultHomeTrash() {
    if (const char* data = std::getenv("XDG_DATA_HOME"); data && *data == '/') return fsys::path(data) / "Trash";
    fsys::path home;
    if (const char* value = std::getenv("HOME"); value && *value) {
        home = value;
    } else if (const passwd* entry = ::getpwuid(::geteuid()); entry && entry->pw_dir) {
        home = entry->pw_dir;
    }
    return home / ".local/share/Trash";
}

std::string InPlaceReplacement::encodeTrashPath(const std::string& path) {
    std::string out;
    for (const unsigned char c : path) {
        const bool plain = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
                           c == '.' || c == '_' || c == '~' || c == '/';
        if (plain) out += char(c);
        else out += fmt::format("%{:02X}", c);
    }
    return out;
}

}  // namespace tavrin
