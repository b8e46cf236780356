#pragma once
// Cleaning in place: a verified clean file takes the place of the user's original, and the
// original goes to the freedesktop Trash, where a file manager can restore it.
//
// The swap never leaves the user's path missing or partial. The verified file is copied beside
// the original under a hidden name (O_EXCL), synced and compared byte for byte, given the
// original's mode and owner, and then exchanged with the original in one renameat2
// (RENAME_EXCHANGE); where the file system lacks the exchange, a hard link keeps the original
// while a rename puts the clean file in its place. Last, the original (now under the hidden name)
// is renamed into the Trash of its own file system: the home Trash
// ($XDG_DATA_HOME/Trash, else ~/.local/share/Trash) when it shares the original's file system,
// else $topdir/.Trash/$uid or $topdir/.Trash-$uid. Its .trashinfo is created first (O_EXCL), which
// reserves the name: NAME, NAME.2, NAME.3 ...
//
// Any failure before the exchange leaves the original untouched and removes what was created.
// A failure of the move into the Trash exchanges the files back, so the original is again at its
// path; only when that fails too does the error name where the original is kept.
//
// Refused, with the original untouched: a symbolic link (its target is never replaced), anything
// but a regular file, a file with other hard links (they would keep the old contents), a file
// whose owner cannot be kept, and a file whose file system has no usable Trash.
//
// No Qt; used by `tavrin clean --in-place`, the queue's replace runs and the desktop app. The
// caller must hand a file that the engine has already cleaned and verified.

#include <exception>
#include <filesystem>
#include <functional>
#include <string>

namespace tavrin {

// The steps of a replacement, in order; tests fail or interrupt each one through the seam.
enum class InPlaceStep {
    examineOriginal,   // lstat of the original
    chooseTrash,       // the Trash on the original's file system, its folders created
    reserveTrashName,  // the .trashinfo created with O_EXCL
    writeCopy,         // the hidden copy beside the original
    syncCopy,          // fsync of the copy
    verifyCopy,        // the copy compared with the verified file
    keepAttributes,    // the original's mode and owner given to the copy
    exchange,          // renameat2(RENAME_EXCHANGE), or the link-and-rename fallback
    moveToTrash,       // the original, now under the hidden name, renamed into the Trash
};

class InPlaceReplacementError : public std::exception {
public:
    enum class Case {
        originalNotAccessible,       // the original could not be examined
        originalIsSymbolicLink,
        originalNotRegularFile,
        originalHasOtherLinks,
        originalChanged,             // the original no longer holds the contents that were cleaned
        ownerNotKept,                // the original's owner or group cannot be given to the copy
        trashUnavailable,            // no Trash on the original's file system could be used
        copyFailed,                  // the clean copy could not be written beside the original
        copyNotVerified,             // the copy's bytes differ from the verified file
        exchangeFailed,              // the clean copy could not take the original's place
        trashMoveFailed,             // the original could not enter the Trash; it is back in place
        originalKeptAside,           // the clean file is in place; the original is at `keptAt`
    };

    // `reason` follows the fixed text in brackets (an errno's text, or what was found).
    InPlaceReplacementError(Case c, std::filesystem::path original, std::string reason = {},
                            std::filesystem::path keptAt = {});

    Case errorCase() const { return case_; }
    const std::filesystem::path& original() const { return original_; }
    // Where the original is when it is neither at its path nor in the Trash (originalKeptAside).
    const std::filesystem::path& keptAt() const { return keptAt_; }
    const std::string& reason() const { return reason_; }
    // True for every case but originalKeptAside: the original is at its path, byte-identical.
    bool originalUnchanged() const { return case_ != Case::originalKeptAside; }
    std::string description() const;
    const char* what() const noexcept override { return text_.c_str(); }

private:
    Case case_;
    std::filesystem::path original_;
    std::string reason_;
    std::filesystem::path keptAt_;
    std::string text_;
};

struct InPlaceReplacementResult {
    std::filesystem::path trashedPath;    // the original, in the Trash's files/
    std::filesystem::path trashInfoPath;  // its .trashinfo in the Trash's info/
};

struct InPlaceReplacementOptions {
    // The home Trash; empty means $XDG_DATA_HOME/Trash, else $HOME/.local/share/Trash.
    std::filesystem::path homeTrash;
    // The DeletionDate text (local time, YYYY-MM-DDThh:mm:ss); empty means now.
    std::function<std::string()> deletionDate;
    // Test seam: called before each step; a non-zero errno makes that step fail with it.
    std::function<int(InPlaceStep)> beforeStep;
};

class InPlaceReplacement {
public:
    explicit InPlaceReplacement(InPlaceReplacementOptions options = {});

    // Puts the contents of `verifiedCopy` at `original` and moves the original to the Trash.
    // REQUIRES: `verifiedCopy` is a cleaned and verified file; it is read, never moved or removed.
    // With `cleanedFrom` (the file that was cleaned, a staged copy of the original), the original
    // must still hold exactly its bytes, else it is left alone (originalChanged): a newer version
    // saved since is never replaced by the clean copy of an older one.
    // Throws InPlaceReplacementError; unless it says otherwise the original is untouched.
    InPlaceReplacementResult replace(const std::filesystem::path& original, const std::filesystem::path& verifiedCopy,
                                     const std::filesystem::path& cleanedFrom = {}) const;

    // The home Trash this process would use, from the environment.
    static std::filesystem::path defaultHomeTrash();
    // The percent-encoding of a .trashinfo's Path: every byte but unreserved ones and '/'.
    static std::string encodeTrashPath(const std::string& path);

private:
    InPlaceReplacementOptions options_;
};

}  // namespace tavrin
