#include "services/queue_service.h"

#include <algorithm>
#include <cstring>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <set>
#include <sys/stat.h>
#include <thread>

#include "data/bookmark.h"
#include "data/clean_copy_naming.h"
#include "data/contained_deletion.h"
#include "data/processing_history.h"
#include "data/queries.h"
#include "model/file_type_detector.h"
#include "model/pipeline_error.h"
#include "services/cloud_file_materializer.h"

namespace tavrin {

namespace {

namespace stdfs = std::filesystem;

Date now() { return std::chrono::system_clock::now(); }

stdfs::path temporaryDirectory() {
    std::error_code ec;
    auto path = stdfs::temp_directory_path(ec);
    return ec ? stdfs::path("/tmp") : path;
}

// The path with links resolved as far as it exists, standardized.
std::string standardizedPath(const stdfs::path& url) {
    std::error_code ec;
    auto resolved = stdfs::weakly_canonical(url, ec);
    return (ec ? url.lexically_normal() : resolved.lexically_normal()).string();
}

// A worker's result, handed to the caller's thread.
struct Finished {
    std::size_t job = 0;
    std::optional<CleaningResult> result;
    std::exception_ptr error;
    double duration = 0;
    std::optional<stdfs::path> output;  // an output that was swapped in place, to remove
    std::optional<InPlaceReplacementResult> replaced;
};

struct Job {
    std::shared_ptr<QueuedFile> file;
    stdfs::path input;
    CleaningProfile profile;
    std::string presetName;
    std::optional<stdfs::path> replaces;  // the user's file, in place
    bool historyRetained = false;
};

// Ends a run on every way out: the flag, the counts, the announcement.
struct RunEnd {
    std::function<void()> body;
    ~RunEnd() { body(); }
};

}  // namespace

QueueService::QueueService(ModelContext& context, std::shared_ptr<ProcessingService> processingService,
                           std::shared_ptr<ChangeNotifying> notificationService,
                           std::shared_ptr<StagingService> stagingService, std::shared_ptr<QueueRunLock> runLock)
    : context_(context),
      processingService_(std::move(processingService)),
      notificationService_(notificationService ? std::move(notificationService)
                                               : std::make_shared<SilentChangeNotifier>()),
      stagingService_(std::move(stagingService)),
      runLock_(std::move(runLock)) {}

QueuedFiles QueueService::addFiles(const std::vector<stdfs::path>& urls) {
    const CloudFileMaterializer materializer;
    std::vector<stdfs::path> staged;
    QueuedFiles added;
    std::exception_ptr lastError;
    for (const auto& given : urls) {
        try {
            std::error_code ec;
            const stdfs::path url = stdfs::absolute(given, ec).lexically_normal();
            const FileType type = FileTypeDetector::detect(url);
            struct stat info {};
            if (::stat(url.c_str(), &info) != 0) {
                const int error = errno;
                throw FileSystemError("Cannot read the attributes of " + url.string() + ": " + std::strerror(error),
                                      error);
            }
            std::optional<Blob> bookmark;
            try {
                bookmark = Bookmarks::standard().create(url);
            } catch (...) {
                // The record is simply without bookmark.
            }
            const CloudDownloadState state = materializer.downloadState(url);
            const stdfs::path copy = stagingService_->stageCopy(url);
            staged.push_back(copy);
            std::string extension = url.extension().string();
            if (!extension.empty()) extension.erase(0, 1);
            auto record = std::make_shared<QueuedFile>(Uuid::random(), url.stem().string(), extension, copy.string(),
                                                       static_cast<std::int64_t>(info.st_size), type, now());
            record->originalFileBookmarkData = bookmark;
            record->originalSourcePath = url.string();
            record->isCloudPlaceholder = state == CloudDownloadState::iCloudPlaceholder;
            context_.insert(record);
            added.push_back(record);
        } catch (...) {
            lastError = std::current_exception();
        }
    }
    if (added.empty() && lastError) std::rethrow_exception(lastError);
    try {
        context_.save();
    } catch (...) {
        context_.rollback();
        for (const auto& copy : staged)
            if (stagingService_->isInsideStaging(copy)) stagingService_->deleteIfExists(copy);
        throw;
    }
    refreshCounts();
    notificationService_->postQueueUpdated();
    return added;
}

void QueueService::setPreset(const std::shared_ptr<MetadataPreset>& preset, const QueuedFiles& files) {
    for (const auto& file : files) {
        const auto status = file->status();
        if (status != QueuedFile::Status::staged && status != QueuedFile::Status::configured) continue;
        file->presetId = preset->id;
        file->setCategoriesToRemove(preset->categoriesToRemove());
        file->setStatus(QueuedFile::Status::configured);
    }
    context_.save();
    refreshCounts();
    notificationService_->postQueueUpdated();
}

void QueueService::removeFiles(const QueuedFiles& files) {
    for (const auto& file : files) {
        deleteQueueArtifactIfExists(file->originalFileURL());
        deleteQueueArtifactIfExists(file->cleanedFileURL());
        context_.deleteRecord(file);
    }
    context_.save();
    refreshCounts();
    notificationService_->postQueueUpdated();
}

void QueueService::refreshCounts() {
    try {
        totalFileCount_ = context_.fetchCount(QueueQueries::allFiles());
    } catch (...) {
        totalFileCount_ = 0;
    }
    try {
        pendingFileCount_ =
            context_.fetchCount(QueueQueries::stagedFiles()) + context_.fetchCount(QueueQueries::configuredFiles());
    } catch (...) {
        pendingFileCount_ = 0;
    }
}

bool QueueService::isWithinTemporaryDirectory(const stdfs::path& url) {
    const std::string temporary = standardizedPath(temporaryDirectory());
    const std::string path = standardizedPath(url);
    return path == temporary || path.starts_with(temporary + "/");
}

void QueueService::deleteQueueArtifactIfExists(const std::optional<stdfs::path>& url) const {
    if (!url) return;
    if (isWithinTemporaryDirectory(*url)) {
        const DeletionContainment temporary({temporaryDirectory()});
        temporary.removeItem(*url);
        // The run's own output folder goes with its file once it is empty.
        const stdfs::path folder = url->parent_path();
        if (folder.filename().string().starts_with(ProcessingService::outputDirectoryPrefix) &&
            temporary.contains(folder)) {
            std::error_code ec;
            if (stdfs::is_empty(folder, ec) && !ec) stdfs::remove(folder, ec);
        }
        return;
    }
    stagingService_->deleteIfExists(*url);
}

std::optional<CleaningProfile> QueueService::profileFor(const QueuedFile& file, std::string& presetName,
                                                       bool honourSpecificKeys) {
    if (file.presetId) {
        std::vector<std::shared_ptr<MetadataPreset>> found;
        try {
            found = context_.fetch(PresetQueries::preset(*file.presetId));
        } catch (...) {
        }
        if (!found.empty()) {
            presetName = found.front()->name;
            return found.front()->toCleaningProfile();
        }
    }
    const auto categories = file.categoriesToRemove();
    const bool byKey = honourSpecificKeys && !file.specificKeysToRemove.empty();
    if (categories.empty() && !byKey) return std::nullopt;
    presetName = std::string(ProcessingHistory::customPresetName);
    CleaningProfile profile;
    profile.name = presetName;
    profile.categoriesToRemove = categories;
    if (honourSpecificKeys) {
        profile.specificKeysToRemove.insert(file.specificKeysToRemove.begin(), file.specificKeysToRemove.end());
        profile.specificKeysToKeep.insert(file.specificKeysToKeep.begin(), file.specificKeysToKeep.end());
    }
    profile.pdfLinkPreservation = PDFLinkPreservationOptions::preserveAll();
    return profile;
}

QueueRunSummary QueueService::processQueue(const std::function<void(const QueueFileOutcome&)>& onFileFinished,
                                           const QueueRunOptions& options) {
    const auto files = context_.fetch(QueueQueries::readyToProcess());
    if (files.empty()) return {};
    return processFiles(files, onFileFinished, options);
}

QueueRunSummary QueueService::processFiles(const QueuedFiles& files,
                                           const std::function<void(const QueueFileOutcome&)>& onFileFinished,
                                           const QueueRunOptions& options) {
    QueueRunSummary summary;
    if (isProcessing_) return summary;
    isProcessing_ = true;
    if (runLock_) runLock_->beginRun();
    RunEnd end{[this] {
        if (runLock_) runLock_->endRun();
        isProcessing_ = false;
        refreshCounts();
        notificationService_->postProcessingComplete();
    }};

    // Claim: only the run whose conditional update succeeds works on a file.
    QueuedFiles claimed;
    const std::string processing(rawValue(QueuedFile::Status::processing));
    for (const auto& file : files) {
        const std::string from = file->statusRaw;
        if (from != processing &&
            context_.updateIfEqual(file, "statusRaw", storeValue::text(from), storeValue::text(processing))) {
            claimed.push_back(file);
        } else {
            ++summary.skipped;
        }
    }
    summary.claimed = static_cast<std::int64_t>(claimed.size());

    std::exception_ptr saveError;
    // Each file's record (and its history) is saved on its own as it settles; the whole context
    // only after a failed save, to retry what is pending.
    auto saveNow = [&](std::vector<std::shared_ptr<void>> only) {
        try {
            if (only.empty()) context_.save();
            else context_.save(only);
            saveError = nullptr;
        } catch (...) {
            saveError = std::current_exception();
        }
    };
    std::int64_t finished = 0;
    auto report = [&](const std::shared_ptr<QueuedFile>& file, std::optional<CleaningResult> result,
                      std::exception_ptr error, std::optional<InPlaceReplacementResult> replaced = std::nullopt) {
        ++finished;
        if (onFileFinished)
            onFileFinished(
                QueueFileOutcome{file, std::move(result), error, finished, summary.claimed, std::move(replaced)});
    };

    std::vector<Job> jobs;
    for (const auto& file : claimed) {
        std::string presetName;
        auto profile = profileFor(*file, presetName, options.honourSpecificKeys);
        if (!profile) {
            file->setStatus(QueuedFile::Status::failed);
            file->errorMessage = noConfigurationMessage;
            file->dateProcessed = now();
            saveNow({file});
            ++summary.failed;
            report(file, std::nullopt, nullptr);
            continue;
        }
        Job job{file, file->originalFileURL(), std::move(*profile), std::move(presetName), std::nullopt, false};
        if (options.replaceOriginals) {
            if (!file->originalSourcePath) {
                file->setStatus(QueuedFile::Status::failed);
                file->errorMessage = noOriginalMessage;
                file->dateProcessed = now();
                saveNow({file});
                ++summary.failed;
                report(file, std::nullopt, nullptr);
                continue;
            }
            job.replaces = stdfs::path(*file->originalSourcePath);
            if (!options.stripEditHistory) std::tie(job.profile, job.historyRetained) = job.profile.retainingDocumentHistory();
        }
        jobs.push_back(std::move(job));
    }

    std::mutex mutex;
    std::condition_variable available;
    std::deque<Finished> results;
    std::atomic<std::size_t> next{0};
    {
        const std::size_t workers =
            std::min<std::size_t>(static_cast<std::size_t>(std::max(1, processingService_->concurrencyLimit())),
                                  jobs.size());
        std::vector<std::jthread> pool;
        for (std::size_t w = 0; w < workers; ++w) {
            pool.emplace_back([&] {
                for (std::size_t i = next++; i < jobs.size(); i = next++) {
                    Finished outcome;
                    outcome.job = i;
                    const auto start = std::chrono::steady_clock::now();
                    try {
                        outcome.result = processingService_->processFile(jobs[i].input, jobs[i].profile);
                        if (jobs[i].replaces) {
                            // The output is swapped in only while the user's file still holds
                            // what was staged; it is then no longer needed in temporary.
                            const stdfs::path output = outcome.result->outputURL;
                            try {
                                outcome.replaced = options.replaceOriginals->replace(*jobs[i].replaces, output,
                                                                                     jobs[i].input);
                            } catch (...) {
                                outcome.result.reset();
                                outcome.error = std::current_exception();
                            }
                            outcome.output = output;
                        }
                    } catch (...) {
                        outcome.error = std::current_exception();
                    }
                    outcome.duration = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
                    std::lock_guard lock(mutex);
                    results.push_back(std::move(outcome));
                    available.notify_one();
                }
            });
        }
        for (std::size_t done = 0; done < jobs.size(); ++done) {
            Finished outcome;
            {
                std::unique_lock lock(mutex);
                available.wait(lock, [&] { return !results.empty(); });
                outcome = std::move(results.front());
                results.pop_front();
            }
            const Job& job = jobs[outcome.job];
            QueuedFile& file = *job.file;
            // Built by push, not from a list: g++ 12 at -O2 mistakes the list's conversion for
            // an out-of-bounds read.
            std::vector<std::shared_ptr<void>> settled;
            settled.push_back(std::static_pointer_cast<void>(job.file));
            if (outcome.output) deleteQueueArtifactIfExists(outcome.output);
            if (outcome.result && job.replaces) outcome.result->outputURL = *job.replaces;
            if (outcome.result) {
                const CleaningResult& result = *outcome.result;
                file.cleanedFilePath = result.outputURL.string();
                file.cleanedFileSizeBytes = result.cleanedSize;
                file.dateProcessed = now();
                file.setStatus(job.replaces ? QueuedFile::Status::clean : QueuedFile::Status::completed);
                file.cleanedOutputBehaviorRaw =
                    std::string(rawValue(job.replaces ? OutputBehavior::replace : OutputBehavior::alongside));
                file.editHistoryRetainedInPlace = job.replaces && job.historyRetained;
                auto history = std::make_shared<ProcessingHistory>();
                history->id = Uuid::random();
                history->fileName = file.fullFileName();
                history->processedAt = now();
                history->originalSize = result.originalSize;
                history->cleanedSize = result.cleanedSize;
                history->removedItemCount = static_cast<std::int64_t>(result.removedItems.size());
                history->presetName = job.presetName;
                history->duration = outcome.duration;
                history->cleanedFilePath = result.outputURL.string();
                history->originalFilePath = file.originalSourcePath ? *file.originalSourcePath : file.originalFilePath;
                history->outputRetained = true;
                context_.insert(history);
                settled.push_back(history);
                ++summary.completed;
            } else {
                file.setStatus(QueuedFile::Status::failed);
                file.errorMessage = describeError(outcome.error);
                file.dateProcessed = now();
                ++summary.failed;
            }
            saveNow(settled);
            report(job.file, std::move(outcome.result), outcome.error, std::move(outcome.replaced));
        }
    }
    if (saveError) {
        saveNow({});
        if (saveError) std::rethrow_exception(saveError);
    }
    return summary;
}

QueueRecoverySummary QueueService::recoverInterruptedRun() {
    QueueRecoverySummary summary;
    if (runLock_ && !runLock_->tryBeginRecovery()) return summary;
    RunEnd end{[this] {
        if (runLock_) runLock_->endRecovery();
    }};
    const auto stuck = context_.fetch(QueueQueries::processingFiles());
    if (stuck.empty()) return summary;

    std::set<std::string> stems;
    for (const auto& file : stuck) {
        if (file->hasCleaningConfiguration()) {
            file->setStatus(QueuedFile::Status::configured);
            ++summary.reconfigured;
        } else {
            file->setStatus(QueuedFile::Status::failed);
            file->errorMessage = interruptedMessage;
            file->dateProcessed = now();
            ++summary.failed;
        }
        // Staged copies carry a UUID name, and a run's output keeps it.
        const std::string stem = stdfs::path(file->originalFilePath).stem().string();
        if (stem.size() >= 32) stems.insert(stem);
    }

    // The dead run's outputs: its output folders whose entries carry a recovered file's name.
    const stdfs::path temporary = temporaryDirectory();
    const DeletionContainment containment({temporary});
    std::vector<stdfs::path> strays;
    std::error_code ec;
    for (stdfs::directory_iterator it(temporary, ec), endIt; !ec && it != endIt; it.increment(ec)) {
        const auto& folder = it->path();
        if (!folder.filename().string().starts_with(ProcessingService::outputDirectoryPrefix)) continue;
        std::error_code inner;
        if (!it->is_directory(inner) || it->is_symlink(inner)) continue;
        // A run makes its output folder before the writer writes: a folder still empty is one
        // the dead run was working in (no run is alive while this recovery holds the lock).
        if (stdfs::is_empty(folder, inner) && !inner) {
            strays.push_back(folder);
            continue;
        }
        std::size_t looked = 0;
        for (stdfs::directory_iterator entry(folder, inner), entryEnd; !inner && entry != entryEnd && looked < 64;
             entry.increment(inner), ++looked) {
            const std::string name = entry->path().filename().string();
            if (std::any_of(stems.begin(), stems.end(), [&](const std::string& s) { return name.find(s) != std::string::npos; })) {
                strays.push_back(folder);
                break;
            }
        }
    }
    for (const auto& folder : strays)
        if (containment.removeItem(folder)) ++summary.outputsRemoved;

    context_.save();
    refreshCounts();
    notificationService_->postQueueUpdated();
    return summary;
}

}  // namespace tavrin
