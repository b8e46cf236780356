#pragma once
// The main actor: one thread that owns the services, with an event loop behind this small
// interface. The headless programs run PollEventLoop, tests ManualEventLoop with a fake clock,
// and the desktop app an adapter over Qt's loop (post -> a queued invocation, postDelayed -> a
// single-shot QTimer, watchFileDescriptor -> a QSocketNotifier, isCurrentThread -> a comparison
// with the QObject's thread). Cleaning never runs on this thread.

#include <cstdint>
#include <functional>

#include "services/clock.h"

namespace tavrin {

enum class FdEvents : unsigned {
    none = 0,
    readable = 1,
    writable = 2,
    // Hang-up or error on the descriptor; always reported, whatever was asked for.
    error = 4,
};
constexpr FdEvents operator|(FdEvents a, FdEvents b) {
    return static_cast<FdEvents>(static_cast<unsigned>(a) | static_cast<unsigned>(b));
}
constexpr FdEvents operator&(FdEvents a, FdEvents b) {
    return static_cast<FdEvents>(static_cast<unsigned>(a) & static_cast<unsigned>(b));
}
constexpr bool any(FdEvents e) { return e != FdEvents::none; }

class EventLoop {
public:
    using Task = std::function<void()>;
    using TimerId = std::uint64_t;
    using WatchId = std::uint64_t;
    using Duration = Clock::Duration;
    using TimePoint = Clock::TimePoint;

    virtual ~EventLoop() = default;

    // Runs `task` on the loop's thread, after what is already posted. Safe from any thread.
    virtual void post(Task task) = 0;
    // Runs `task` on the loop's thread once `delay` of the loop's clock has passed. Safe from any
    // thread. The id stays valid until the task has run or was cancelled.
    virtual TimerId postDelayed(Duration delay, Task task) = 0;
    // Prevents a delayed task from running; an unknown or spent id is ignored. Safe from any
    // thread; called on the loop's thread it is certain that the task will not run.
    virtual void cancelTimer(TimerId id) = 0;

    // Calls `handler` on the loop's thread whenever `fd` has one of `events` (or an error). The
    // descriptor stays the caller's: it must outlive the watch and is never closed here. Call on
    // the loop's thread.
    virtual WatchId watchFileDescriptor(int fd, FdEvents events, std::function<void(FdEvents)> handler) = 0;
    // Stops a watch; after it returns its handler is not called again. Call on the loop's thread.
    virtual void unwatchFileDescriptor(WatchId id) = 0;

    // The loop's clock: the time base of postDelayed, and of debounce and stability rules.
    virtual Clock& clock() = 0;
    TimePoint now() { return clock().now(); }

    // True on the thread that runs the loop (the main actor).
    virtual bool isCurrentThread() const = 0;
    // Ends the program with a message naming `what` when called off the loop's thread: a
    // service bound to the main actor calls this at its entry points.
    void assertOnLoopThread(const char* what) const;
};

}  // namespace tavrin
