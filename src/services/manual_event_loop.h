#pragma once
// The event loop of tests: nothing runs until the test says so, and time is a FakeClock that
// moves only when advanced, so debounce and stability rules are tested without sleeping.
// Watched descriptors are real (inotify, pipes, a D-Bus connection) and are polled on request.

#include <chrono>
#include <cstddef>
#include <thread>

#include "services/event_loop.h"
#include "services/loop_queue.h"

namespace tavrin {

class ManualEventLoop final : public EventLoop {
public:
    // The loop's thread is the one that builds it.
    ManualEventLoop();

    void post(Task task) override;
    TimerId postDelayed(Duration delay, Task task) override;
    void cancelTimer(TimerId id) override;
    WatchId watchFileDescriptor(int fd, FdEvents events, std::function<void(FdEvents)> handler) override;
    void unwatchFileDescriptor(WatchId id) override;
    FakeClock& clock() override { return clock_; }
    bool isCurrentThread() const override { return owner_ == std::this_thread::get_id(); }

    // Runs posted tasks, delayed tasks due now and handlers of descriptors ready now, until none
    // is left; returns how many ran. Time does not move.
    std::size_t runPending();
    // Moves the clock forward by `by`, running each delayed task at its own deadline (with the
    // clock set to it) and everything it posts, then runPending().
    std::size_t advance(Duration by);
    // Waits up to `realTime` of real time for a watched descriptor to become ready, then
    // runPending(). For events that come from outside the process (the kernel, another program);
    // the fake clock does not move.
    std::size_t waitForDescriptors(std::chrono::milliseconds realTime);

    std::size_t pendingTimerCount() const;

private:
    std::size_t dispatchReadyDescriptors(int timeoutMs);

    FakeClock clock_;
    detail::LoopQueue queue_;
    std::thread::id owner_;
};

}  // namespace tavrin
