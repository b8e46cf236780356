#pragma once
// The event loop of the headless programs: poll(2) over the watched descriptors, an eventfd that
// wakes it when another thread posts, and a timerfd armed for the earliest delayed task.

#include <atomic>
#include <thread>

#include "services/event_loop.h"
#include "services/loop_queue.h"

namespace tavrin {

class PollEventLoop final : public EventLoop {
public:
    // Throws FileSystemError when the kernel refuses the eventfd or timerfd.
    PollEventLoop();
    ~PollEventLoop() override;
    PollEventLoop(const PollEventLoop&) = delete;
    PollEventLoop& operator=(const PollEventLoop&) = delete;

    void post(Task task) override;
    TimerId postDelayed(Duration delay, Task task) override;
    void cancelTimer(TimerId id) override;
    WatchId watchFileDescriptor(int fd, FdEvents events, std::function<void(FdEvents)> handler) override;
    void unwatchFileDescriptor(WatchId id) override;
    Clock& clock() override { return clock_; }
    // The thread that is running run(), or, before the first run, the one that built the loop.
    bool isCurrentThread() const override;

    // Runs tasks, timers and watches on the calling thread until quit() is called. That thread
    // becomes the loop's thread.
    void run();
    // Makes run() return after the work in hand. Safe from any thread; a quit before run() makes
    // the next run() return at once.
    void quit();

private:
    void wake();
    void armTimer();

    SystemClock clock_;
    detail::LoopQueue queue_;
    int eventFd_ = -1;
    int timerFd_ = -1;
    std::atomic<bool> quit_{false};
    std::atomic<std::thread::id> owner_;
};

}  // namespace tavrin
