#include "data/queued_file.h"

#include <nlohmann/json.hpp>

#include "data/metadata_preset.h"
#include "data/store_error.h"
#include "model/snapshot.h"

namespace tavrin {

ResolvedOriginalFileAccess::ResolvedOriginalFileAccess(std::filesystem::path url, std::function<void()> stopHandler)
    : url_(std::move(url)), stopHandler_(std::move(stopHandler)) {}

ResolvedOriginalFileAccess::~ResolvedOriginalFileAccess() { stopAccessing(); }

void ResolvedOriginalFileAccess::stopAccessing() {
    auto handler = std::move(stopHandler_);
    stopHandler_ = nullptr;
    if (handler) handler();
}

namespace queuedFileStatuses {
const std::array<QueuedFile::Status, 6>& allCases() {
    using S = QueuedFile::Status;
    static const std::array<S, 6> all{S::staged, S::configured, S::processing, S::completed, S::clean, S::failed};
    return all;
}
}  // namespace queuedFileStatuses

std::string_view rawValue(QueuedFile::Status status) {
    switch (status) {
        case QueuedFile::Status::staged: return "staged";
        case QueuedFile::Status::configured: return "configured";
        case QueuedFile::Status::processing: return "processing";
        case QueuedFile::Status::completed: return "completed";
        case QueuedFile::Status::clean: return "clean";
        case QueuedFile::Status::failed: return "failed";
    }
    return {};
}

std::string_view displayName(QueuedFile::Status status) {
    switch (status) {
        case QueuedFile::Status::staged: return "Staged";
        case QueuedFile::Status::configured: return "Ready";
        case QueuedFile::Status::processing: return "Processing";
        case QueuedFile::Status::completed: return "Complete";
        case QueuedFile::Status::clean: return "Clean";
        case QueuedFile::Status::failed: return "Failed";
    }
    return {};
}

std::string_view systemImage(QueuedFile::Status status) {
    switch (status) {
        case QueuedFile::Status::staged: return "tray.and.arrow.down";
        case QueuedFile::Status::configured: return "checkmark.circle";
        case QueuedFile::Status::processing: return "arrow.triangle.2.circlepath";
        case QueuedFile::Status::completed: return "checkmark.seal.fill";
        case QueuedFile::Status::clean: return "checkmark.shield.fill";
        case QueuedFile::Status::failed: return "exclamationmark.triangle.fill";
    }
    return {};
}

std::optional<QueuedFile::Status> queuedFileStatusFromRawValue(std::string_view raw) {
    for (auto s : queuedFileStatuses::allCases())
        if (rawValue(s) == raw) return s;
    return std::nullopt;
}

QueuedFile::QueuedFile(Uuid id_, std::string fileName_, std::string fileExtension_, std::string originalFilePath_,
                       std::int64_t fileSizeBytes_, FileType fileType_, Date dateAdded_)
    : id(id_),
      fileName(std::move(fileName_)),
      fileExtension(std::move(fileExtension_)),
      originalFilePath(std::move(originalFilePath_)),
      fileSizeBytes(fileSizeBytes_),
      dateAdded(dateAdded_),
      fileTypeRaw(rawValue(fileType_)) {}

QueuedFile::Status QueuedFile::status() const {
    return queuedFileStatusFromRawValue(statusRaw).value_or(Status::staged);
}
void QueuedFile::setStatus(Status s) { statusRaw = rawValue(s); }

FileType QueuedFile::fileType() const { return fileTypeFromRawValue(fileTypeRaw).value_or(fileTypes::allCases().front()); }
void QueuedFile::setFileType(FileType type) { fileTypeRaw = rawValue(type); }

std::optional<MetadataSummary> QueuedFile::metadataSummary() const {
    if (!metadataSnapshotData) return std::nullopt;
    const std::string_view text(reinterpret_cast<const char*>(metadataSnapshotData->data()), metadataSnapshotData->size());
    if (!jsonNestingWithin(text, 4)) return std::nullopt;
    const auto j = nlohmann::json::parse(text, nullptr, false);
    if (j.is_discarded()) return std::nullopt;
    try {
        return j.get<MetadataSummary>();
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

void QueuedFile::setMetadataSummary(const std::optional<MetadataSummary>& summary) {
    if (!summary) {
        metadataSnapshotData.reset();
        return;
    }
    const std::string text = nlohmann::json(*summary).dump();
    metadataSnapshotData = Blob(text.begin(), text.end());
}

std::set<MetadataCategory> QueuedFile::categoriesToRemove() const { return categoriesFromRawValues(categoriesToRemoveRaw); }
void QueuedFile::setCategoriesToRemove(const std::set<MetadataCategory>& categories) {
    categoriesToRemoveRaw = sortedCategoryRawValues(categories);
}

bool QueuedFile::hasCleaningConfiguration() const {
    return presetId.has_value() || !categoriesToRemove().empty() || !specificKeysToRemove.empty();
}

bool QueuedFile::canStartCleaning() const { return status() == Status::configured && hasCleaningConfiguration(); }

bool QueuedFile::isCleanable() const {
    if (status() == Status::staged && userDidConfigureEmptySelection) return false;
    if (canStartCleaning()) return true;
    return status() == Status::staged;
}

std::string QueuedFile::fullFileName() const { return fileExtension.empty() ? fileName : fileName + "." + fileExtension; }

std::optional<std::int64_t> QueuedFile::bytesSaved() const {
    if (!cleanedFileSizeBytes) return std::nullopt;
    return fileSizeBytes - *cleanedFileSizeBytes;
}

std::optional<std::filesystem::path> QueuedFile::cleanedFileURL() const {
    if (!cleanedFilePath) return std::nullopt;
    return std::filesystem::path(*cleanedFilePath);
}

std::filesystem::path QueuedFile::resolveBookmarkedOriginalFileURL(const Bookmarks& bookmarks) {
    if (!originalFileBookmarkData) return originalFileURL();
    const BookmarkResolution resolution = bookmarks.resolve(*originalFileBookmarkData);
    if (resolution.isStale) {
        try {
            originalFileBookmarkData = bookmarks.create(resolution.url);
        } catch (const BookmarkError&) {
            // The old bookmark stays; the resolved place is still good for now.
        }
    }
    return resolution.url;
}

std::filesystem::path QueuedFile::resolvedOriginalFileURL(const Bookmarks& bookmarks) {
    try {
        auto url = resolveBookmarkedOriginalFileURL(bookmarks);
        if (!url.empty()) return url;
    } catch (const BookmarkError&) {
    }
    return originalFileURL();
}

bool QueuedFile::matchesOriginalSourceURL(const std::filesystem::path& url, const Bookmarks& bookmarks) {
    const auto wanted = url.lexically_normal();
    if (originalSourcePath && std::filesystem::path(*originalSourcePath).lexically_normal() == wanted) return true;
    return resolvedOriginalFileURL(bookmarks).lexically_normal() == wanted;
}

std::shared_ptr<ResolvedOriginalFileAccess> QueuedFile::beginResolvedOriginalFileAccess(const Bookmarks& bookmarks) {
    if (originalFileBookmarkData) {
        std::filesystem::path url;
        try {
            url = resolveBookmarkedOriginalFileURL(bookmarks);
        } catch (const std::exception&) {
            throw FileAccessError::fileReadNoPermission(originalSourcePath ? *originalSourcePath : originalFilePath);
        }
        // Access needs no scope here, so starting it cannot fail and stopping it does nothing.
        return std::make_shared<ResolvedOriginalFileAccess>(url, [] {});
    }
    return std::make_shared<ResolvedOriginalFileAccess>(
        std::filesystem::path(originalSourcePath ? *originalSourcePath : originalFilePath), [] {});
}

void QueuedFile::assignStored(QueuedFile other) {
    auto keep = std::move(immediateCleanProfileName);
    *this = std::move(other);
    immediateCleanProfileName = std::move(keep);
}

const TableSpec& QueuedFile::table() {
    static const TableSpec table{
        "QueuedFile",
        {
            {"id", ColumnKind::text},
            {"fileName", ColumnKind::text},
            {"fileExtension", ColumnKind::text},
            {"originalFilePath", ColumnKind::text},
            {"originalFileBookmarkData", ColumnKind::blob, true},
            {"originalSourcePath", ColumnKind::text, true},
            {"cleanedFilePath", ColumnKind::text, true},
            {"fileSizeBytes", ColumnKind::integer},
            {"cleanedFileSizeBytes", ColumnKind::integer, true},
            {"dateAdded", ColumnKind::text},
            {"dateProcessed", ColumnKind::text, true},
            {"statusRaw", ColumnKind::text},
            {"fileTypeRaw", ColumnKind::text},
            {"metadataSnapshotData", ColumnKind::blob, true},
            {"categoriesToRemoveRaw", ColumnKind::text},
            {"specificKeysToRemove", ColumnKind::text, false, "'[]'"},
            {"specificKeysToKeep", ColumnKind::text, false, "'[]'"},
            {"errorMessage", ColumnKind::text, true},
            {"cleanedOutputBehaviorRaw", ColumnKind::text, true},
            {"userDidConfigureEmptySelection", ColumnKind::integer, false, "0"},
            {"editHistoryRetainedInPlace", ColumnKind::integer, false, "0"},
            {"isCloudPlaceholder", ColumnKind::integer, false, "0"},
            {"presetId", ColumnKind::text, true, std::nullopt, "\"MetadataPreset\"(\"id\") ON DELETE SET NULL"},
        },
        {
            // Display lists: newest first; the queue run: a status, oldest first.
            {"QueuedFile_dateAdded", "\"dateAdded\""},
            {"QueuedFile_statusRaw_dateAdded", "\"statusRaw\", \"dateAdded\""},
            // Deleting a preset finds its files by this column.
            {"QueuedFile_presetId", "\"presetId\""},
        },
        {},
        RecordCodec<QueuedFile>::toRow,
        RecordCodec<QueuedFile>::fromRow,
        RecordCodec<QueuedFile>::assignRow,
    };
    return table;
}

StoreRow QueuedFile::toRow() const {
    using namespace storeValue;
    return {uuid(id),
            text(fileName),
            text(fileExtension),
            text(originalFilePath),
            bytes(originalFileBookmarkData),
            optionalText(originalSourcePath),
            optionalText(cleanedFilePath),
            integer(fileSizeBytes),
            cleanedFileSizeBytes ? integer(*cleanedFileSizeBytes) : StoreValue{},
            date(dateAdded),
            optionalDate(dateProcessed),
            text(statusRaw),
            text(fileTypeRaw),
            bytes(metadataSnapshotData),
            textList(categoriesToRemoveRaw),
            textList(specificKeysToRemove),
            textList(specificKeysToKeep),
            optionalText(errorMessage),
            optionalText(cleanedOutputBehaviorRaw),
            flag(userDidConfigureEmptySelection),
            flag(editHistoryRetainedInPlace),
            flag(isCloudPlaceholder),
            optionalUuid(presetId)};
}

QueuedFile QueuedFile::fromRow(const StoreRow& row) {
    using namespace storeValue;
    QueuedFile f;
    f.id = asUuid(row.at(0));
    f.fileName = asText(row.at(1));
    f.fileExtension = asText(row.at(2));
    f.originalFilePath = asText(row.at(3));
    f.originalFileBookmarkData = asBytes(row.at(4));
    f.originalSourcePath = asOptionalText(row.at(5));
    f.cleanedFilePath = asOptionalText(row.at(6));
    f.fileSizeBytes = asInteger(row.at(7));
    f.cleanedFileSizeBytes = asOptionalInteger(row.at(8));
    f.dateAdded = asDate(row.at(9));
    f.dateProcessed = asOptionalDate(row.at(10));
    f.statusRaw = asText(row.at(11), "staged");
    f.fileTypeRaw = asText(row.at(12), "jpeg");
    f.metadataSnapshotData = asBytes(row.at(13));
    f.categoriesToRemoveRaw = asTextList(row.at(14));
    f.specificKeysToRemove = asTextList(row.at(15));
    f.specificKeysToKeep = asTextList(row.at(16));
    f.errorMessage = asOptionalText(row.at(17));
    f.cleanedOutputBehaviorRaw = asOptionalText(row.at(18));
    f.userDidConfigureEmptySelection = asFlag(row.at(19));
    f.editHistoryRetainedInPlace = asFlag(row.at(20));
    f.isCloudPlaceholder = asFlag(row.at(21));
    f.presetId = asOptionalUuid(row.at(22));
    return f;
}

}  // namespace tavrin
