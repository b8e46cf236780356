#include "services/progress_stream.h"

namespace tavrin {

ProgressEvent ProgressEvent::forFile(Case c, std::string fileName, std::int64_t index, std::int64_t totalCount) {
    ProgressEvent event(c);
    event.fileName_ = std::move(fileName);
    event.index_ = index;
    event.totalCount_ = totalCount;
    return event;
}

ProgressEvent ProgressEvent::fileStarted(std::string fileName, std::int64_t index, std::int64_t totalCount) {
    return forFile(Case::fileStarted, std::move(fileName), index, totalCount);
}

ProgressEvent ProgressEvent::fileCompleted(std::string fileName, std::int64_t index, std::int64_t totalCount,
                                           std::int64_t bytesSaved) {
    auto event = forFile(Case::fileCompleted, std::move(fileName), index, totalCount);
    event.bytesSaved_ = bytesSaved;
    return event;
}

ProgressEvent ProgressEvent::fileFailed(std::string fileName, std::int64_t index, std::int64_t totalCount,
                                        std::exception_ptr error) {
    auto event = forFile(Case::fileFailed, std::move(fileName), index, totalCount);
    event.error_ = std::move(error);
    return event;
}

ProgressEvent ProgressEvent::batchCompleted(std::int64_t totalCount, std::int64_t successCount,
                                            std::int64_t failureCount) {
    ProgressEvent event(Case::batchCompleted);
    event.totalCount_ = totalCount;
    event.successCount_ = successCount;
    event.failureCount_ = failureCount;
    return event;
}

double ProgressEvent::fractionComplete() const {
    const auto total = static_cast<double>(totalCount_);
    switch (case_) {
        case Case::fileStarted:
            return static_cast<double>(index_) / total;
        case Case::fileCompleted:
        case Case::fileFailed:
            return static_cast<double>(index_ + 1) / total;
        case Case::batchCompleted:
            return 1.0;
    }
    return 1.0;
}

void ProgressStream::yield(ProgressEvent event) {
    std::function<void()> onEvent;
    {
        std::lock_guard lock(mutex_);
        events_.push_back(std::move(event));
        onEvent = onEvent_;
    }
    available_.notify_one();
    if (onEvent) onEvent();
}

ProgressEvent ProgressStream::next() {
    std::unique_lock lock(mutex_);
    available_.wait(lock, [&] { return !events_.empty(); });
    ProgressEvent event = std::move(events_.front());
    events_.pop_front();
    return event;
}

std::optional<ProgressEvent> ProgressStream::tryNext() {
    std::lock_guard lock(mutex_);
    if (events_.empty()) return std::nullopt;
    ProgressEvent event = std::move(events_.front());
    events_.pop_front();
    return event;
}

std::vector<ProgressEvent> ProgressStream::drain() {
    std::lock_guard lock(mutex_);
    std::vector<ProgressEvent> all(std::make_move_iterator(events_.begin()), std::make_move_iterator(events_.end()));
    events_.clear();
    return all;
}

void ProgressStream::setOnEvent(std::function<void()> onEvent) {
    std::lock_guard lock(mutex_);
    onEvent_ = std::move(onEvent);
}

}  // namespace tavrin
