#include "services/file_coordinator.h"

#include <pthread.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>

#include <fmt/format.h>

namespace tavrin {

FileCoordinationError::FileCoordinationError(Case c, std::filesystem::path url, double timeout)
    : case_(c), url_(std::move(url)), timeout_(timeout) {
    text_ = description();
}

FileCoordinationError FileCoordinationError::timedOut(std::filesystem::path url, double timeout) {
    return FileCoordinationError(Case::timedOut, std::move(url), timeout);
}

std::string FileCoordinationError::description() const {
    switch (case_) {
        case Case::timedOut:
            // The time-out is stated as a whole number of seconds: 120.0 reads "120s".
            return fmt::format(
                "Timed out after {}s waiting for coordinated access to \u201c{}\u201d. A sync service (iCloud, "
                "OneDrive, Dropbox) may be holding the file.",
                static_cast<std::int64_t>(timeout_), url_.filename().string());
    }
    return {};
}

namespace {

// The caller's side of one operation: whichever of the body and the time-out comes first
// resolves it; the other finds it resolved and its outcome is dropped.
class ContinuationState {
public:
    // Returns false when already resolved.
    bool resume(std::exception_ptr error) {
        {
            std::lock_guard lock(mutex_);
            if (resolved_) return false;
            resolved_ = true;
            error_ = std::move(error);
        }
        done_.notify_all();
        return true;
    }
    bool isResolved() {
        std::lock_guard lock(mutex_);
        return resolved_;
    }
    std::exception_ptr wait() {
        std::unique_lock lock(mutex_);
        done_.wait(lock, [&] { return resolved_; });
        return error_;
    }

private:
    std::mutex mutex_;
    std::condition_variable done_;
    bool resolved_ = false;
    std::exception_ptr error_;
};

}  // namespace

// The serial queue. Its thread shares the queue's state, so that a worker stuck in a body (a
// hung mount) can be left behind when the last coordinator goes, instead of hanging its owner.
class FileCoordinator::Worker {
public:
    explicit Worker(const std::string& label) : state_(std::make_shared<State>()) {
        thread_ = std::thread([state = state_] { run(*state); });
        // Thread names are at most 15 bytes; the tail of the label tells most.
        const std::string name = label.size() > 15 ? label.substr(label.size() - 15) : label;
        ::pthread_setname_np(thread_.native_handle(), name.c_str());
    }
    ~Worker() {
        bool busy = false;
        {
            std::lock_guard lock(state_->mutex);
            state_->stopping = true;
            state_->tasks.clear();
            busy = state_->busy;
        }
        state_->wake.notify_all();
        if (busy) thread_.detach();
        else thread_.join();
    }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    void enqueue(std::function<void()> task) {
        {
            std::lock_guard lock(state_->mutex);
            state_->tasks.push_back(std::move(task));
        }
        state_->wake.notify_one();
    }

private:
    struct State {
        std::mutex mutex;
        std::condition_variable wake;
        std::deque<std::function<void()>> tasks;
        bool stopping = false;
        bool busy = false;
    };

    static void run(State& state) {
        std::unique_lock lock(state.mutex);
        for (;;) {
            state.wake.wait(lock, [&] { return state.stopping || !state.tasks.empty(); });
            if (state.stopping) return;
            auto task = std::move(state.tasks.front());
            state.tasks.pop_front();
            state.busy = true;
            lock.unlock();
            task();
            task = nullptr;  // the body's captures go before the next one starts
            lock.lock();
            state.busy = false;
        }
    }

    std::shared_ptr<State> state_;
    std::thread thread_;
};

FileCoordinator::FileCoordinator(std::shared_ptr<Clock> clock, std::string queueLabel)
    : clock_(std::move(clock)), label_(std::move(queueLabel)), worker_(std::make_shared<Worker>(label_)) {}

void FileCoordinator::performReadingSync(const std::filesystem::path& url, const Body& body) { body(url); }

void FileCoordinator::performReading(const std::filesystem::path& url, double timeout, Body body) {
    coordinate(url, timeout, std::move(body));
}

void FileCoordinator::performWritingForReplacing(const std::filesystem::path& url, double timeout, Body body) {
    coordinate(url, timeout, std::move(body));
}

void FileCoordinator::coordinate(const std::filesystem::path& url, double timeout, Body body) {
    auto state = std::make_shared<ContinuationState>();
    auto alarm = clock_->scheduleAlarm(clock_->now() + seconds(timeout), [state, url, timeout] {
        state->resume(std::make_exception_ptr(FileCoordinationError::timedOut(url, timeout)));
    });
    worker_->enqueue([state, url, body = std::move(body)] {
        // A caller that has given up is not served late: its body would act on what the caller
        // considers finished.
        if (state->isResolved()) return;
        std::exception_ptr error;
        try {
            body(url);
        } catch (...) {
            error = std::current_exception();
        }
        state->resume(error);
    });
    const auto error = state->wait();
    alarm->cancel();
    if (error) std::rethrow_exception(error);
}

}  // namespace tavrin
