#include "services/loop_queue.h"

#include <poll.h>

namespace tavrin::detail {

FdEvents fromPollEvents(short revents) {
    FdEvents events = FdEvents::none;
    if (revents & POLLIN) events = events | FdEvents::readable;
    if (revents & POLLOUT) events = events | FdEvents::writable;
    if (revents & (POLLERR | POLLHUP | POLLNVAL)) events = events | FdEvents::error;
    return events;
}

short toPollEvents(FdEvents events) {
    short mask = 0;
    if (any(events & FdEvents::readable)) mask |= POLLIN;
    if (any(events & FdEvents::writable)) mask |= POLLOUT;
    return mask;
}

void LoopQueue::post(EventLoop::Task task) {
    std::lock_guard lock(mutex_);
    posted_.push_back(std::move(task));
}

EventLoop::TimerId LoopQueue::postAt(Clock::TimePoint deadline, EventLoop::Task task) {
    std::lock_guard lock(mutex_);
    const auto id = nextId_++;
    deadlines_.emplace(deadline, id);
    timers_.emplace(id, std::move(task));
    return id;
}

void LoopQueue::cancelTimer(EventLoop::TimerId id) {
    std::lock_guard lock(mutex_);
    if (timers_.erase(id) == 0) return;
    for (auto it = deadlines_.begin(); it != deadlines_.end(); ++it) {
        if (it->second == id) {
            deadlines_.erase(it);
            return;
        }
    }
}

EventLoop::WatchId LoopQueue::addWatch(int fd, FdEvents events, std::function<void(FdEvents)> handler) {
    std::lock_guard lock(mutex_);
    const auto id = nextId_++;
    watches_.emplace(id, Watch{id, fd, events, std::make_shared<std::function<void(FdEvents)>>(std::move(handler))});
    return id;
}

void LoopQueue::removeWatch(EventLoop::WatchId id) {
    std::lock_guard lock(mutex_);
    watches_.erase(id);
}

std::deque<EventLoop::Task> LoopQueue::takePosted() {
    std::lock_guard lock(mutex_);
    std::deque<EventLoop::Task> taken;
    taken.swap(posted_);
    return taken;
}

bool LoopQueue::hasPosted() const {
    std::lock_guard lock(mutex_);
    return !posted_.empty();
}

std::optional<EventLoop::Task> LoopQueue::takeDue(Clock::TimePoint now) {
    std::lock_guard lock(mutex_);
    auto first = deadlines_.begin();
    if (first == deadlines_.end() || first->first > now) return std::nullopt;
    auto found = timers_.find(first->second);
    EventLoop::Task task = std::move(found->second);
    timers_.erase(found);
    deadlines_.erase(first);
    return task;
}

std::optional<Clock::TimePoint> LoopQueue::nextDeadline() const {
    std::lock_guard lock(mutex_);
    if (deadlines_.empty()) return std::nullopt;
    return deadlines_.begin()->first;
}

std::size_t LoopQueue::timerCount() const {
    std::lock_guard lock(mutex_);
    return timers_.size();
}

std::vector<LoopQueue::Watch> LoopQueue::watches() const {
    std::lock_guard lock(mutex_);
    std::vector<Watch> all;
    all.reserve(watches_.size());
    for (const auto& [id, watch] : watches_) all.push_back(watch);
    return all;
}

std::shared_ptr<std::function<void(FdEvents)>> LoopQueue::handler(EventLoop::WatchId id) const {
    std::lock_guard lock(mutex_);
    auto found = watches_.find(id);
    return found == watches_.end() ? nullptr : found->second.handler;
}

}  // namespace tavrin::detail
