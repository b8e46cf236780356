#include "services/manual_event_loop.h"

#include <poll.h>

#include <vector>

namespace tavrin {

ManualEventLoop::ManualEventLoop() : owner_(std::this_thread::get_id()) {}

void ManualEventLoop::post(Task task) { queue_.post(std::move(task)); }

EventLoop::TimerId ManualEventLoop::postDelayed(Duration delay, Task task) {
    return queue_.postAt(clock_.now() + delay, std::move(task));
}

void ManualEventLoop::cancelTimer(TimerId id) { queue_.cancelTimer(id); }

EventLoop::WatchId ManualEventLoop::watchFileDescriptor(int fd, FdEvents events, std::function<void(FdEvents)> handler) {
    return queue_.addWatch(fd, events, std::move(handler));
}

void ManualEventLoop::unwatchFileDescriptor(WatchId id) { queue_.removeWatch(id); }

std::size_t ManualEventLoop::pendingTimerCount() const {
    return queue_.timerCount();
}

std::size_t ManualEventLoop::dispatchReadyDescriptors(int timeoutMs) {
    const auto watches = queue_.watches();
    if (watches.empty()) return 0;
    std::vector<pollfd> fds;
    fds.reserve(watches.size());
    for (const auto& watch : watches) {
        fds.push_back(pollfd{watch.fd, detail::toPollEvents(watch.events), 0});
    }
    if (::poll(fds.data(), fds.size(), timeoutMs) <= 0) return 0;
    std::size_t ran = 0;
    for (std::size_t i = 0; i < fds.size(); ++i) {
        const auto events = detail::fromPollEvents(fds[i].revents);
        if (!any(events)) continue;
        if (auto handler = queue_.handler(watches[i].id)) {
            (*handler)(events);
            ++ran;
        }
    }
    return ran;
}

std::size_t ManualEventLoop::runPending() {
    std::size_t ran = 0;
    for (;;) {
        std::size_t round = 0;
        for (auto& task : queue_.takePosted()) {
            task();
            ++round;
        }
        while (auto due = queue_.takeDue(clock_.now())) {
            (*due)();
            ++round;
        }
        round += dispatchReadyDescriptors(0);
        if (round == 0) return ran;
        ran += round;
    }
}

std::size_t ManualEventLoop::advance(Duration by) {
    const auto target = clock_.now() + by;
    std::size_t ran = runPending();
    while (auto deadline = queue_.nextDeadline()) {
        if (*deadline > target) break;
        clock_.advanceTo(*deadline);
        ran += runPending();
    }
    clock_.advanceTo(target);
    return ran + runPending();
}

std::size_t ManualEventLoop::waitForDescriptors(std::chrono::milliseconds realTime) {
    return dispatchReadyDescriptors(static_cast<int>(realTime.count())) + runPending();
}

}  // namespace tavrin
