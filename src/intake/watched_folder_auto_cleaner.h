#pragma once
// Cleans the stable files of a watched folder into copies beside them. The source is never
// written, nothing enters the queue, and a copy never replaces an existing file.

#include <cstdint>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "data/clean_copy_naming.h"
#include "pipeline/tavrin_engine.h"
#include "services/cloud_file_materializer.h"

namespace tavrin {

struct CleanedFile {
    std::filesystem::path sourceURL;
    std::filesystem::path outputURL;
    CleaningResult result;
};

struct BatchOutcome {
    std::vector<CleanedFile> cleaned;  // in the order of the input
    std::int64_t failedCount = 0;
};

// The two file operations that put a verified copy in place, behind a seam so that tests make
// them fail as a full disk does. Each returns 0 or the errno of its failure.
class CopyPublishingFileSystem {
public:
    virtual ~CopyPublishingFileSystem() = default;
    // Renames `from` to `to`, never replacing an existing `to` (EEXIST).
    virtual int renameNoReplace(const std::filesystem::path& from, const std::filesystem::path& to) = 0;
    // Creates `to`, which must not exist, with the content of `from`, synced. On failure a partial
    // `to` may remain: the caller removes it.
    virtual int copyToNewFile(const std::filesystem::path& from, const std::filesystem::path& to) = 0;
    static std::shared_ptr<CopyPublishingFileSystem> system();
};

class WatchedFolderAutoCleaner {
public:
    WatchedFolderAutoCleaner(std::shared_ptr<const TavrinEngine> engine, CleanCopySuffix suffix,
                             std::shared_ptr<const CloudFileMaterializer> materializer, double materializeTimeout,
                             std::shared_ptr<CopyPublishingFileSystem> files = CopyPublishingFileSystem::system());

    const CleanCopySuffix& suffix() const { return suffix_; }
    double materializeTimeout() const { return materializeTimeout_; }

    // Every file in order, one after the other; a failure is counted and the batch goes on.
    // Never throws.
    BatchOutcome cleanBatch(const std::vector<std::filesystem::path>& urls, const CleaningProfile& profile) const;

    // Fetches a placeholder of a sync client first, cleans into a private temporary folder, and
    // only then moves the verified copy to `destinationURL`. On failure nothing is left at the
    // destination, nor a hidden temporary beside it. Throws CloudMaterializationError,
    // PipelineError or FileSystemError (whose code is the errno: ENOSPC for a full disk).
    CleanedFile cleanToCopy(const std::filesystem::path& sourceURL, const CleaningProfile& profile) const;

    // The default copy name with the suffix, numbered " 2", " 3", … when a sibling holds that name
    // (compared ignoring case); the default name when the naming rules refuse.
    std::filesystem::path destinationURL(const std::filesystem::path& source) const;

    // The paths of the folder's entries; empty when it cannot be listed.
    static std::set<std::string> existingSiblingPaths(const std::filesystem::path& directory);

private:
    // The paths of the entries whose names begin with `stem`, ignoring case.
    static std::set<std::string> siblingsStartingWith(const std::filesystem::path& directory, const std::string& stem);
    void publish(const std::filesystem::path& staged, const std::filesystem::path& destination) const;

    std::shared_ptr<const TavrinEngine> engine_;
    CleanCopySuffix suffix_;
    std::shared_ptr<const CloudFileMaterializer> materializer_;
    double materializeTimeout_;
    std::shared_ptr<CopyPublishingFileSystem> files_;
};

}  // namespace tavrin
