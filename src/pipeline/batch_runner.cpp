#include "pipeline/batch_runner.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

namespace tavrin {

unsigned defaultParallelism() { return std::clamp(std::thread::hardware_concurrency(), 1u, 8u); }

std::size_t runBatch(std::size_t count, const std::function<void(std::size_t)>& job, const BatchRunOptions& options) {
    if (count == 0) return 0;
    const unsigned limit = options.maxParallel == 0 ? defaultParallelism() : options.maxParallel;
    const auto workers = static_cast<unsigned>(std::min<std::size_t>(limit, count));

    std::mutex startMutex;
    std::mutex finishMutex;
    std::size_t next = 0;
    std::size_t completed = 0;
    // Claims the next index, or none once the batch is done or stopped. Starts are serialised so
    // that a stop request is seen before any later job begins.
    auto claim = [&]() -> std::optional<std::size_t> {
        std::lock_guard lock(startMutex);
        if (next >= count) return std::nullopt;
        if (options.shouldStop && options.shouldStop()) {
            next = count;
            return std::nullopt;
        }
        return next++;
    };
    std::atomic<std::size_t> started{0};
    {
        std::vector<std::jthread> pool;
        pool.reserve(workers);
        for (unsigned w = 0; w < workers; ++w) {
            pool.emplace_back([&] {
                while (auto index = claim()) {
                    ++started;
                    job(*index);
                    std::lock_guard lock(finishMutex);
                    ++completed;
                    if (options.onFinished) options.onFinished(*index, completed);
                }
            });
        }
    }
    return started;
}

}  // namespace tavrin
