#pragma once
// The one worker pool for many files: the engine's batchClean, the command line and the
// processing service all run their per-file work through it.

#include <cstddef>
#include <functional>
#include <optional>

namespace tavrin {

struct BatchRunOptions {
    // Jobs at once; 0 means one per core, at most 8. Never more than there are jobs.
    unsigned maxParallel = 0;
    // Called, one call at a time, as each job ends: (index of the job, jobs ended so far).
    std::function<void(std::size_t index, std::size_t completed)> onFinished;
    // Asked before each start; once it answers true no further job starts. Jobs already running
    // finish.
    std::function<bool()> shouldStop;
};

// Runs job(i) for every i in [0, count), starting them in index order on a bounded pool of
// threads, and returns when every started job has ended. A job must not throw: it records its
// own outcome. Returns how many jobs started.
std::size_t runBatch(std::size_t count, const std::function<void(std::size_t index)>& job,
                     const BatchRunOptions& options = {});

// The default number of jobs at once: one per core, from 1 to 8.
unsigned defaultParallelism();

}  // namespace tavrin
