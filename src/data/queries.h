#pragma once
// The fetches every service reads the store with. Each is a pure constructor: nothing touches
// the store until a context fetches it. Date orders compare times; name order is the
// localized standard text order.

#include <optional>

#include "data/app_settings.h"
#include "data/metadata_preset.h"
#include "data/processing_history.h"
#include "data/queued_file.h"
#include "data/watched_folder.h"

namespace tavrin {

namespace HistoryQueries {
// Newest first.
FetchDescriptor<ProcessingHistory> recent(std::optional<std::int64_t> limit = std::nullopt);
}  // namespace HistoryQueries

namespace PresetQueries {
FetchDescriptor<MetadataPreset> allPresets();
FetchDescriptor<MetadataPreset> builtInPresets();
FetchDescriptor<MetadataPreset> customPresets();
FetchDescriptor<MetadataPreset> preset(const Uuid& id);
}  // namespace PresetQueries

namespace QueueQueries {
// Display lists, newest first.
FetchDescriptor<QueuedFile> allFiles();
FetchDescriptor<QueuedFile> stagedFiles();
FetchDescriptor<QueuedFile> configuredFiles();
FetchDescriptor<QueuedFile> completedFiles();
FetchDescriptor<QueuedFile> failedFiles();
FetchDescriptor<QueuedFile> processingFiles();
// Work in order of arrival: configured files, oldest first.
FetchDescriptor<QueuedFile> readyToProcess(std::optional<std::int64_t> limit = std::nullopt);
// The inverse of a file's preset: the files that use the preset, newest first.
FetchDescriptor<QueuedFile> filesUsingPreset(const Uuid& presetId);
}  // namespace QueueQueries

namespace WatchedFolderQueries {
// Every folder, oldest first, and the enabled ones.
FetchDescriptor<WatchedFolder> allFolders();
FetchDescriptor<WatchedFolder> enabledFolders();
}  // namespace WatchedFolderQueries

namespace SettingsQueries {
// Every settings record, unsorted; `currentSettings` picks the singleton among them.
FetchDescriptor<AppSettings> allSettings();
}  // namespace SettingsQueries

}  // namespace tavrin
