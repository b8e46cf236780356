#pragma once
// The queue never works on a user's file: on intake the file is copied into the staging
// directory under a new name, and cleaning reads that copy. Before a clean the copy can be
// brought up to date from the user's file. Staging writes and deletes only inside its own
// directory: every path is tested on its canonical form first, and the operations that follow
// never follow a link at the path they change.

#include <atomic>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "services/cloud_file_materializer.h"
#include "services/file_coordinator.h"
#include "services/file_operations.h"

namespace tavrin {

// What refreshStagedInput needs of a queued file's record.
struct StagedInputRequest {
    std::filesystem::path stagedURL;
    // Resolves the record's bookmark to the user's file and begins access to it; empty when the
    // record has no bookmark. Throws (FileAccessError fileReadNoPermission for a file that is
    // gone) when it cannot.
    std::function<std::filesystem::path()> beginResolvedOriginalFileAccess;
    // Ends that access; called on every way out once access began. May be empty.
    std::function<void()> stopAccess;
};

struct StagedInputRefresh {
    // The path to clean from: always the staged copy.
    std::filesystem::path url;
    // The user's file's size after a refresh, for the record's fileSizeBytes; absent when the
    // copy was not refreshed.
    std::optional<std::int64_t> fileSizeBytes;
};

class StagingService {
public:
    // `stagingDirectory` is the store container's "Staging" directory. The defaults are a
    // FileCoordinator on the default queue and the real file system.
    explicit StagingService(std::filesystem::path stagingDirectory,
                            std::shared_ptr<FileCoordinating> coordinator = std::make_shared<FileCoordinator>(),
                            std::shared_ptr<FileOperations> files = std::make_shared<PosixFileOperations>());

    const std::filesystem::path& stagingDirectory() const { return stagingDirectory_; }

    // Creates the staging directory when missing and returns it. Throws FileAccessError.
    std::filesystem::path ensureStagingDirectory() const;

    // Copies the user's file (a coordinated read, on the calling thread) to "<staging>/<UUID>.<ext>"
    // ("<UUID>." without an extension) and returns the copy's path. Throws FileAccessError.
    std::filesystem::path stageCopy(const std::filesystem::path& source) const;

    // Removes the file at `url` when it is inside staging (never the staging directory itself);
    // does nothing for an absent url, a path outside, or a missing file. Never throws.
    void deleteIfExists(const std::optional<std::filesystem::path>& url) const noexcept;

    // Swaps the staged copy for a copy of `source` in one rename and returns `stagedURL`. Throws
    // FileAccessError fileWriteNoPermission, creating nothing, when `stagedURL` is outside
    // staging. On any failure the old copy stays and no temporary is left.
    std::filesystem::path replaceStagedCopy(const std::filesystem::path& stagedURL,
                                            const std::filesystem::path& source) const;

    // Gives the queue the freshest input it may have, always the staged path: with a bookmark it
    // materializes the user's file when it is a cloud placeholder, then refreshes the staged copy
    // from it by a coordinated read under `timeout`. A missing or unreadable user's file falls
    // back to the staged copy silently; a CloudMaterializationError and any other failure (a
    // FileCoordinationError) are thrown. Blocks: call it off the main actor, and set the record's
    // size from the result on the main actor.
    StagedInputRefresh refreshStagedInput(const StagedInputRequest& request, const CloudFileMaterializer& materializer,
                                          double timeout) const;

    // True exactly for a FileAccessError fileReadNoPermission, fileReadNoSuchFile or
    // fileNoSuchFile.
    static bool shouldFallBackToStagedCopy(std::exception_ptr error);

    // The containment test: the canonical path equals that of the staging directory or lies
    // below it.
    bool isInsideStaging(const std::filesystem::path& url) const;

    // The path with symbolic links resolved; for a path that does not exist, its parent's
    // resolved path with the last component appended, so that a file still to be made has a
    // canonical location.
    static std::string canonicalizedPath(const std::filesystem::path& url);

private:
    // As the public form; with `abandoned` set once the copy is made, the copy is dropped.
    std::filesystem::path replaceStagedCopy(const std::filesystem::path& stagedURL, const std::filesystem::path& source,
                                            const std::atomic<bool>* abandoned) const;
    // Where `url` really is (its directory resolved, its last component not), when both that and
    // `url`'s canonical path lie below the staging directory.
    std::optional<std::filesystem::path> containedLocation(const std::filesystem::path& url) const;

    std::filesystem::path stagingDirectory_;
    std::shared_ptr<FileCoordinating> coordinator_;
    std::shared_ptr<FileOperations> files_;
};

}  // namespace tavrin
