#pragma once
// Runs single files and batches through the engine with bounded concurrency, each file into a
// temporary output directory of its own, and reports progress on one stream. It knows nothing of
// the store: callers give paths and profiles and get results.

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <stop_token>
#include <variant>
#include <vector>

#include "pipeline/tavrin_engine.h"
#include "services/progress_stream.h"

namespace tavrin {

struct BatchRequest {
    std::filesystem::path url;
    CleaningProfile profile;
};

struct BatchResult {
    std::int64_t index = 0;  // the position in the request list
    std::filesystem::path url;
    std::variant<CleaningResult, std::exception_ptr> result;

    bool isSuccess() const { return result.index() == 0; }
    std::optional<CleaningResult> cleaningResult() const;
    std::exception_ptr error() const;
};

class ProcessingService {
public:
    static constexpr int minConcurrency = 1;
    static constexpr int maxConcurrency = 8;
    static constexpr const char* outputDirectoryPrefix = "tavrin_output";

    // `concurrencyLimit` is clamped to 1 through 8; callers pass the setting for it.
    ProcessingService(int concurrencyLimit, EngineConfiguration configuration);
    // A service over an engine the caller built (one with only a test's components, or one
    // shared with other users).
    ProcessingService(int concurrencyLimit, std::shared_ptr<const TavrinEngine> engine);

    int concurrencyLimit() const { return concurrencyLimit_.load(); }
    // Clamped to 1 through 8, for the batches that start after it: a changed setting needs no
    // restart.
    void setConcurrencyLimit(int limit) { concurrencyLimit_ = std::clamp(limit, minConcurrency, maxConcurrency); }
    const TavrinEngine& engine() const { return *engine_; }
    ProgressStream& progressStream() { return stream_; }

    // Cleans into a new temporary directory "<tmp>/tavrin_output_<uuid>" and returns the result;
    // the output belongs to the caller. Sends no progress event. Throws the engine's
    // PipelineError, or FileSystemError when the directory cannot be made; after a failure the
    // (empty) directory is gone.
    CleaningResult processFile(const std::filesystem::path& at, const CleaningProfile& profile) const;

    // Cleans every request, at most concurrencyLimit at once, started in index order; returns the
    // results in request order and never throws. A stop request keeps further files from
    // starting: those running finish and are returned, those never started have no result.
    // Yields fileStarted and fileCompleted/fileFailed per file, then batchCompleted.
    std::vector<BatchResult> processBatch(const std::vector<BatchRequest>& requests, std::stop_token stop = {});
    std::vector<BatchResult> processBatch(const std::vector<std::filesystem::path>& urls, const CleaningProfile& profile,
                                          std::stop_token stop = {});

private:
    BatchResult processSingleForBatch(const BatchRequest& request, std::int64_t index, std::int64_t totalCount,
                                      const std::stop_token& stop);

    std::atomic<int> concurrencyLimit_;
    std::shared_ptr<const TavrinEngine> engine_;
    ProgressStream stream_;
};

}  // namespace tavrin
