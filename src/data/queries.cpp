#include "data/queries.h"

namespace tavrin {

namespace {

SortDescriptor newestFirst(const char* column) { return {column, SortOrder::reverse, SortComparator::standard}; }
SortDescriptor oldestFirst(const char* column) { return {column, SortOrder::forward, SortComparator::standard}; }
SortDescriptor byName() { return {"name", SortOrder::forward, SortComparator::localizedStandard}; }

FetchDescriptor<QueuedFile> withStatus(QueuedFile::Status status) {
    return {Predicate::equal("statusRaw", std::string(rawValue(status))), {newestFirst("dateAdded")}};
}

}  // namespace

namespace HistoryQueries {
FetchDescriptor<ProcessingHistory> recent(std::optional<std::int64_t> limit) {
    return {std::nullopt, {newestFirst("processedAt")}, limit};
}
}  // namespace HistoryQueries

namespace PresetQueries {
FetchDescriptor<MetadataPreset> allPresets() { return {std::nullopt, {byName()}}; }
FetchDescriptor<MetadataPreset> builtInPresets() { return {Predicate::equal("isBuiltIn", storeValue::flag(true)), {byName()}}; }
FetchDescriptor<MetadataPreset> customPresets() { return {Predicate::equal("isBuiltIn", storeValue::flag(false)), {byName()}}; }
FetchDescriptor<MetadataPreset> preset(const Uuid& id) { return {Predicate::equal("id", storeValue::uuid(id)), {}, 1}; }
}  // namespace PresetQueries

namespace QueueQueries {
FetchDescriptor<QueuedFile> allFiles() { return {std::nullopt, {newestFirst("dateAdded")}}; }
FetchDescriptor<QueuedFile> stagedFiles() { return withStatus(QueuedFile::Status::staged); }
FetchDescriptor<QueuedFile> configuredFiles() { return withStatus(QueuedFile::Status::configured); }
FetchDescriptor<QueuedFile> completedFiles() { return withStatus(QueuedFile::Status::completed); }
FetchDescriptor<QueuedFile> failedFiles() { return withStatus(QueuedFile::Status::failed); }
FetchDescriptor<QueuedFile> processingFiles() { return withStatus(QueuedFile::Status::processing); }
FetchDescriptor<QueuedFile> readyToProcess(std::optional<std::int64_t> limit) {
    return {Predicate::equal("statusRaw", std::string(rawValue(QueuedFile::Status::configured))),
            {oldestFirst("dateAdded")},
            limit};
}
FetchDescriptor<QueuedFile> filesUsingPreset(const Uuid& presetId) {
    return {Predicate::equal("presetId", storeValue::uuid(presetId)), {newestFirst("dateAdded")}};
}
}  // namespace QueueQueries

namespace WatchedFolderQueries {
FetchDescriptor<WatchedFolder> allFolders() { return {std::nullopt, {oldestFirst("dateAdded")}}; }
FetchDescriptor<WatchedFolder> enabledFolders() {
    return {Predicate::equal("isEnabled", storeValue::flag(true)), {oldestFirst("dateAdded")}};
}
}  // namespace WatchedFolderQueries

namespace SettingsQueries {
FetchDescriptor<AppSettings> allSettings() { return {}; }
}  // namespace SettingsQueries

}  // namespace tavrin
