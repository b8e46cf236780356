#pragma once
// The bookkeeping both of our own event loops share: posted tasks, delayed tasks ordered by
// deadline, and file-descriptor watches. Guarded by one mutex; tasks and handlers are run by the
// loop outside it.

#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "services/event_loop.h"

namespace tavrin::detail {

// poll(2) masks and our events.
FdEvents fromPollEvents(short revents);
short toPollEvents(FdEvents events);

class LoopQueue {
public:
    struct Watch {
        EventLoop::WatchId id;
        int fd;
        FdEvents events;
        std::shared_ptr<std::function<void(FdEvents)>> handler;
    };

    void post(EventLoop::Task task);
    EventLoop::TimerId postAt(Clock::TimePoint deadline, EventLoop::Task task);
    void cancelTimer(EventLoop::TimerId id);
    EventLoop::WatchId addWatch(int fd, FdEvents events, std::function<void(FdEvents)> handler);
    void removeWatch(EventLoop::WatchId id);

    // Everything posted so far, in order; later posts wait for the next call.
    std::deque<EventLoop::Task> takePosted();
    bool hasPosted() const;
    // The earliest delayed task due at `now`, if any.
    std::optional<EventLoop::Task> takeDue(Clock::TimePoint now);
    std::optional<Clock::TimePoint> nextDeadline() const;
    std::size_t timerCount() const;
    std::vector<Watch> watches() const;
    // The handler of a watch that still exists.
    std::shared_ptr<std::function<void(FdEvents)>> handler(EventLoop::WatchId id) const;

private:
    mutable std::mutex mutex_;
    std::deque<EventLoop::Task> posted_;
    std::multimap<Clock::TimePoint, EventLoop::TimerId> deadlines_;
    std::map<EventLoop::TimerId, EventLoop::Task> timers_;
    std::map<EventLoop::WatchId, Watch> watches_;
    std::uint64_t nextId_ = 1;
};

}  // namespace tavrin::detail
