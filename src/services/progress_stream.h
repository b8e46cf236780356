#pragma once
// What a processing run reports as it goes, and the one stream that carries it.

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tavrin {

class ProgressEvent {
public:
    enum class Case { fileStarted, fileCompleted, fileFailed, batchCompleted };

    static ProgressEvent fileStarted(std::string fileName, std::int64_t index, std::int64_t totalCount);
    static ProgressEvent fileCompleted(std::string fileName, std::int64_t index, std::int64_t totalCount,
                                       std::int64_t bytesSaved);
    static ProgressEvent fileFailed(std::string fileName, std::int64_t index, std::int64_t totalCount,
                                    std::exception_ptr error);
    static ProgressEvent batchCompleted(std::int64_t totalCount, std::int64_t successCount, std::int64_t failureCount);

    Case eventCase() const { return case_; }
    // Empty for batchCompleted.
    const std::string& fileName() const { return fileName_; }
    // The position in the batch; 0 for batchCompleted.
    std::int64_t index() const { return index_; }
    std::int64_t totalCount() const { return totalCount_; }
    // fileCompleted: the original size minus the cleaned size, negative when the file grew.
    std::int64_t bytesSaved() const { return bytesSaved_; }
    // fileFailed: the failure.
    std::exception_ptr error() const { return error_; }
    std::int64_t successCount() const { return successCount_; }
    std::int64_t failureCount() const { return failureCount_; }

    // fileStarted: index / total; fileCompleted and fileFailed: (index + 1) / total;
    // batchCompleted: 1.
    double fractionComplete() const;

private:
    explicit ProgressEvent(Case c) : case_(c) {}
    static ProgressEvent forFile(Case c, std::string fileName, std::int64_t index, std::int64_t totalCount);
    Case case_;
    std::string fileName_;
    std::int64_t index_ = 0;
    std::int64_t totalCount_ = 0;
    std::int64_t bytesSaved_ = 0;
    std::exception_ptr error_;
    std::int64_t successCount_ = 0;
    std::int64_t failureCount_ = 0;
};

// An unbounded, thread-safe queue of events with one consumer in mind: yielding never waits.
// It is never finished; a consumer stops on batchCompleted by itself. Events of two batches on
// one service interleave and carry no batch identity.
class ProgressStream {
public:
    void yield(ProgressEvent event);
    // Blocks until an event is there.
    ProgressEvent next();
    std::optional<ProgressEvent> tryNext();
    // Everything queued now, in order.
    std::vector<ProgressEvent> drain();
    // Called after each event is queued, on the thread that yielded it, outside the stream's
    // lock. A consumer on the main actor posts a drain to its event loop from here.
    void setOnEvent(std::function<void()> onEvent);

private:
    std::mutex mutex_;
    std::condition_variable available_;
    std::deque<ProgressEvent> events_;
    std::function<void()> onEvent_;
};

}  // namespace tavrin
