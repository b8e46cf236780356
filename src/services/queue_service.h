#pragma once
// The one owner of the queue: takes files in as staged copies, assigns presets, runs queued
// files through the engine, writes the history, and removes files with their artefacts. It
// works on the caller's thread (the main actor) with the store's context; cleaning runs on up
// to `maxConcurrentProcessing` worker threads through ProcessingService.
//
// Runs of several processes share one store: a run claims each file with a conditional update
// (from the state it was read in to `processing`), so no file is cleaned twice, and it saves
// after each file, so a crash keeps every finished file. Records a dead run left in
// `processing` are recovered by the next service that finds no run alive.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "data/metadata_preset.h"
#include "data/queued_file.h"
#include "data/store.h"
#include "services/change_notifications.h"
#include "services/in_place_replacement.h"
#include "services/processing_service.h"
#include "services/run_lock.h"
#include "services/staging_service.h"

namespace tavrin {

using QueuedFiles = std::vector<std::shared_ptr<QueuedFile>>;

// One file's outcome in a run, reported on the caller's thread once its record is saved.
struct QueueFileOutcome {
    std::shared_ptr<QueuedFile> file;
    std::optional<CleaningResult> result;  // present when it was cleaned
    std::exception_ptr error;              // the failure otherwise (none for a missing configuration)
    std::int64_t finishedCount = 0;        // files of this run finished so far, this one included
    std::int64_t totalCount = 0;           // files this run claimed
    std::optional<InPlaceReplacementResult> replaced;  // in place: where the original went
};

// How a run hands over its outputs. By default they stay in the temporary directory
// (`completed`). An explicit user action may instead replace each user's file with its verified
// output, the original going to the Trash (`clean`, behaviour "replace"); a file saved again
// since it was added is left alone and fails. Never for intake from other programs.
struct QueueRunOptions {
    std::shared_ptr<const InPlaceReplacement> replaceOriginals;  // null: outputs stay in temporary
    bool stripEditHistory = false;  // in place: the settings' stripEditHistoryInPlace
    // A file configured by hand is cleaned with its single items too (removed or kept), and
    // single items alone make a configuration: for a run the user started where those items
    // were chosen. Off, the run follows the preset or the categories alone.
    bool honourSpecificKeys = false;
};

struct QueueRunSummary {
    std::int64_t claimed = 0;    // files this run took
    std::int64_t completed = 0;
    std::int64_t failed = 0;
    std::int64_t skipped = 0;    // given files another run had already taken
};

struct QueueRecoverySummary {
    std::int64_t reconfigured = 0;   // back to `configured`
    std::int64_t failed = 0;         // no configuration: `failed`, "Interrupted"
    std::int64_t outputsRemoved = 0; // stray output directories of the dead run
};

class QueueService {
public:
    static constexpr const char* noConfigurationMessage = "No preset or categories configured";
    static constexpr const char* interruptedMessage = "Interrupted";
    static constexpr const char* noOriginalMessage = "The file\u2019s original location is unknown, so it can\u2019t be cleaned in place";

    // `runLock` guards recovery against live runs of other processes; without one (an
    // in-memory store) the service assumes it is alone.
    QueueService(ModelContext& context, std::shared_ptr<ProcessingService> processingService,
                 std::shared_ptr<ChangeNotifying> notificationService, std::shared_ptr<StagingService> stagingService,
                 std::shared_ptr<QueueRunLock> runLock = nullptr);

    bool isProcessing() const { return isProcessing_; }
    std::int64_t totalFileCount() const { return totalFileCount_; }
    std::int64_t pendingFileCount() const { return pendingFileCount_; }
    ModelContext& modelContext() { return context_; }
    StagingService& stagingService() { return *stagingService_; }

    // Stages a copy of each file and adds a `staged` record. When every file fails, the last
    // failure is thrown and nothing is saved; when one got in, the others drop silently. A
    // failed save rolls back, deletes the staged copies and is thrown.
    QueuedFiles addFiles(const std::vector<std::filesystem::path>& urls);
    // Only `staged` and `configured` files take the preset and become `configured`.
    void setPreset(const std::shared_ptr<MetadataPreset>& preset, const QueuedFiles& files);
    // Deletes each file's staged copy and output when they lie inside the temporary or staging
    // directories, then the records.
    void removeFiles(const QueuedFiles& files);
    // Runs the `configured` files, oldest first.
    QueueRunSummary processQueue(const std::function<void(const QueueFileOutcome&)>& onFileFinished = {},
                                 const QueueRunOptions& options = {});
    // Claims the files, cleans them, saves after each; returns at once (with nothing claimed)
    // when a run is under way in this service. Throws a save's StoreError after the counts are
    // refreshed and processingComplete is posted.
    QueueRunSummary processFiles(const QueuedFiles& files,
                                 const std::function<void(const QueueFileOutcome&)>& onFileFinished = {},
                                 const QueueRunOptions& options = {});

    // At start: returns records left in `processing` by a run that died to `configured` (or
    // `failed` with "Interrupted" without a configuration) and removes their stray outputs from
    // the temporary directory. Does nothing while another run is alive.
    QueueRecoverySummary recoverInterruptedRun();

    void refreshCounts();

    // The containment test of outputs: the path, links resolved, is the temporary directory or
    // lies below it.
    static bool isWithinTemporaryDirectory(const std::filesystem::path& url);

private:
    void deleteQueueArtifactIfExists(const std::optional<std::filesystem::path>& url) const;
    std::optional<CleaningProfile> profileFor(const QueuedFile& file, std::string& presetName,
                                              bool honourSpecificKeys);

    ModelContext& context_;
    std::shared_ptr<ProcessingService> processingService_;
    std::shared_ptr<ChangeNotifying> notificationService_;
    std::shared_ptr<StagingService> stagingService_;
    std::shared_ptr<QueueRunLock> runLock_;
    bool isProcessing_ = false;
    std::int64_t totalFileCount_ = 0;
    std::int64_t pendingFileCount_ = 0;
};

}  // namespace tavrin
