#include "services/processing_service.h"

#include <fmt/core.h>

#include <algorithm>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <mutex>

#include "model/file_system.h"
#include "model/pipeline_error.h"
#include "model/temporary_directories.h"
#include "model/temporary_file.h"
#include "model/uuid.h"
#include "pipeline/batch_runner.h"

namespace tavrin {

std::optional<CleaningResult> BatchResult::cleaningResult() const {
    if (auto* r = std::get_if<CleaningResult>(&result)) return *r;
    return std::nullopt;
}

std::exception_ptr BatchResult::error() const {
    if (auto* e = std::get_if<std::exception_ptr>(&result)) return *e;
    return nullptr;
}

ProcessingService::ProcessingService(int concurrencyLimit, EngineConfiguration configuration)
    : ProcessingService(concurrencyLimit, std::make_shared<const TavrinEngine>(std::move(configuration))) {}

ProcessingService::ProcessingService(int concurrencyLimit, std::shared_ptr<const TavrinEngine> engine)
    : concurrencyLimit_(std::clamp(concurrencyLimit, minConcurrency, maxConcurrency)), engine_(std::move(engine)) {}

CleaningResult ProcessingService::processFile(const std::filesystem::path& at, const CleaningProfile& profile) const {
    // Not a claimed temporary folder: the output outlives this process, until the queue exports
    // or removes it.
    const auto directory =
        temporaries::root() / fmt::format("{}_{}", outputDirectoryPrefix, Uuid::random().uuidString());
    // Made private at once (0700): the cleaned copy of a user's file goes in it.
    if (::mkdir(directory.c_str(), 0700) != 0)
        throw FileSystemError(fmt::format("Cannot create a temporary folder: {}", std::strerror(errno)), errno);
    try {
        return engine_->clean(at, profile, directory);
    } catch (...) {
        // A failed clean leaves nothing behind, not even the empty directory.
        fs::removeItemQuietly(directory);
        throw;
    }
}

BatchResult ProcessingService::processSingleForBatch(const BatchRequest& request, std::int64_t index,
                                                     std::int64_t totalCount, const std::stop_token& stop) {
    BatchResult outcome{index, request.url, std::make_exception_ptr(PipelineError::cancelled())};
    if (stop.stop_requested()) return outcome;
    const auto fileName = request.url.filename().string();
    stream_.yield(ProgressEvent::fileStarted(fileName, index, totalCount));
    try {
        CleaningResult result = processFile(request.url, request.profile);
        stream_.yield(ProgressEvent::fileCompleted(fileName, index, totalCount, result.bytesSaved()));
        outcome.result = std::move(result);
    } catch (...) {
        outcome.result = std::current_exception();
        stream_.yield(ProgressEvent::fileFailed(fileName, index, totalCount, std::current_exception()));
    }
    return outcome;
}

std::vector<BatchResult> ProcessingService::processBatch(const std::vector<BatchRequest>& requests,
                                                         std::stop_token stop) {
    const auto total = static_cast<std::int64_t>(requests.size());
    std::vector<std::optional<BatchResult>> slots(requests.size());
    BatchRunOptions options;
    options.maxParallel = static_cast<unsigned>(concurrencyLimit_.load());
    options.shouldStop = [&stop] { return stop.stop_requested(); };
    runBatch(
        requests.size(),
        [&](std::size_t i) {
            // Each job writes only its own slot.
            slots[i] = processSingleForBatch(requests[i], static_cast<std::int64_t>(i), total, stop);
        },
        options);

    std::vector<BatchResult> results;
    results.reserve(requests.size());
    for (auto& slot : slots) {
        if (slot) results.push_back(std::move(*slot));
    }
    const auto successes = std::count_if(results.begin(), results.end(), [](const BatchResult& r) { return r.isSuccess(); });
    const auto count = static_cast<std::int64_t>(results.size());
    stream_.yield(ProgressEvent::batchCompleted(count, successes, count - successes));
    return results;
}

std::vector<BatchResult> ProcessingService::processBatch(const std::vector<std::filesystem::path>& urls,
                                                         const CleaningProfile& profile, std::stop_token stop) {
    std::vector<BatchRequest> requests;
    requests.reserve(urls.size());
    for (const auto& url : urls) requests.push_back(BatchRequest{url, profile});
    return processBatch(requests, std::move(stop));
}

}  // namespace tavrin
