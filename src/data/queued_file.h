#pragma once
// One file in the queue. It remembers three places: the staged copy the queue works on
// (`originalFilePath`, despite its name), the user's own file (through a bookmark, and
// `originalSourcePath`), and the cleaned output.

#include <array>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "data/bookmark.h"
#include "data/store.h"
#include "model/file_type.h"
#include "model/metadata_category.h"
#include "model/metadata_model.h"

namespace tavrin {

// The right to read the user's file, held as long as this object lives. The stop handler runs
// at most once: at `stopAccessing()` or when the object goes.
class ResolvedOriginalFileAccess {
public:
    ResolvedOriginalFileAccess(std::filesystem::path url, std::function<void()> stopHandler);
    ~ResolvedOriginalFileAccess();
    ResolvedOriginalFileAccess(const ResolvedOriginalFileAccess&) = delete;
    ResolvedOriginalFileAccess& operator=(const ResolvedOriginalFileAccess&) = delete;

    const std::filesystem::path& url() const { return url_; }
    void stopAccessing();

private:
    std::filesystem::path url_;
    std::function<void()> stopHandler_;
};

struct QueuedFile {
    enum class Status { staged, configured, processing, completed, clean, failed };

    // Persistent fields, in schema order.
    Uuid id;
    std::string fileName;       // without extension
    std::string fileExtension;  // without the point, may be empty
    std::string originalFilePath;  // the staged copy: the working input of cleaning
    std::optional<Blob> originalFileBookmarkData;  // of the user's file
    std::optional<std::string> originalSourcePath;  // where the user's file was when added
    std::optional<std::string> cleanedFilePath;
    std::int64_t fileSizeBytes = 0;
    std::optional<std::int64_t> cleanedFileSizeBytes;
    Date dateAdded{};
    std::optional<Date> dateProcessed;
    std::string statusRaw = "staged";
    std::string fileTypeRaw = "jpeg";
    std::optional<Blob> metadataSnapshotData;  // JSON of a MetadataSummary
    std::vector<std::string> categoriesToRemoveRaw;
    std::vector<std::string> specificKeysToRemove;  // schema default empty
    std::vector<std::string> specificKeysToKeep;    // schema default empty
    std::optional<std::string> errorMessage;
    std::optional<std::string> cleanedOutputBehaviorRaw;  // raw value of OutputBehavior
    bool userDidConfigureEmptySelection = false;  // schema default false
    bool editHistoryRetainedInPlace = false;      // schema default false
    bool isCloudPlaceholder = false;              // schema default false
    // The to-one `preset` relationship: the preset's id. Deleting the preset clears it.
    std::optional<Uuid> presetId;

    // Not persistent: the profile name of a clean request, from intake until the file is cleaned.
    std::optional<std::string> immediateCleanProfileName;

    QueuedFile() = default;
    QueuedFile(Uuid id, std::string fileName, std::string fileExtension, std::string originalFilePath,
               std::int64_t fileSizeBytes, FileType fileType, Date dateAdded);

    // Views; every decoding failure reads as a fall-back.
    Status status() const;  // unknown: staged
    void setStatus(Status status);
    FileType fileType() const;  // unknown: jpeg, the first type
    void setFileType(FileType type);
    std::optional<MetadataSummary> metadataSummary() const;
    void setMetadataSummary(const std::optional<MetadataSummary>& summary);
    std::set<MetadataCategory> categoriesToRemove() const;
    void setCategoriesToRemove(const std::set<MetadataCategory>& categories);

    bool hasCleaningConfiguration() const;
    bool canStartCleaning() const;
    // A staged file is cleanable until the user explicitly chose to remove nothing; a
    // configured one only with a configuration.
    bool isCleanable() const;
    std::string fullFileName() const;
    std::optional<std::int64_t> bytesSaved() const;
    std::filesystem::path originalFileURL() const { return std::filesystem::path(originalFilePath); }
    std::optional<std::filesystem::path> cleanedFileURL() const;

    // The user's file through the bookmark (renewing a stale one; a failed renewal keeps the old
    // data); without a bookmark, the staged copy. Throws BookmarkError.
    std::filesystem::path resolveBookmarkedOriginalFileURL(const Bookmarks& bookmarks = Bookmarks::standard());
    // The same, falling back on the staged copy on any failure.
    std::filesystem::path resolvedOriginalFileURL(const Bookmarks& bookmarks = Bookmarks::standard());
    // True when `url` denotes this file's source.
    bool matchesOriginalSourceURL(const std::filesystem::path& url,
                                  const Bookmarks& bookmarks = Bookmarks::standard());
    // With a bookmark, its resolution; without, `originalSourcePath` or else the staged copy.
    // Every failure is FileAccessError::fileReadNoPermission.
    std::shared_ptr<ResolvedOriginalFileAccess> beginResolvedOriginalFileAccess(
        const Bookmarks& bookmarks = Bookmarks::standard());
    // Runs `body` with the URL inside an access that always ends, passing on its result or error.
    template <class Body>
    auto withResolvedOriginalFileURL(Body&& body, const Bookmarks& bookmarks = Bookmarks::standard()) {
        auto access = beginResolvedOriginalFileAccess(bookmarks);
        struct Stop {
            ResolvedOriginalFileAccess& a;
            ~Stop() { a.stopAccessing(); }
        } stop{*access};
        return body(access->url());
    }

    static const TableSpec& table();
    StoreRow toRow() const;
    static QueuedFile fromRow(const StoreRow& row);
    // Keeps the non-persistent field.
    void assignStored(QueuedFile other);
};

namespace queuedFileStatuses {
const std::array<QueuedFile::Status, 6>& allCases();
}
std::string_view rawValue(QueuedFile::Status status);
std::string_view displayName(QueuedFile::Status status);
std::string_view systemImage(QueuedFile::Status status);
std::optional<QueuedFile::Status> queuedFileStatusFromRawValue(std::string_view raw);

}  // namespace tavrin
