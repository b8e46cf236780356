#include "services/poll_event_loop.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include <fmt/format.h>

#include "model/pipeline_error.h"

namespace tavrin {

namespace {

void drain(int fd) {
    std::uint64_t value = 0;
    while (::read(fd, &value, sizeof value) > 0) {
    }
}

}  // namespace

PollEventLoop::PollEventLoop() : owner_(std::this_thread::get_id()) {
    eventFd_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (eventFd_ < 0) throw FileSystemError(fmt::format("Cannot create the event loop's wake-up: {}", std::strerror(errno)), errno);
    timerFd_ = ::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    if (timerFd_ < 0) {
        const int code = errno;
        ::close(eventFd_);
        throw FileSystemError(fmt::format("Cannot create the event loop's timer: {}", std::strerror(code)), code);
    }
}

PollEventLoop::~PollEventLoop() {
    ::close(timerFd_);
    ::close(eventFd_);
}

bool PollEventLoop::isCurrentThread() const { return owner_.load() == std::this_thread::get_id(); }

void PollEventLoop::wake() {
    const std::uint64_t one = 1;
    // A full counter already means "wake up"; nothing else can go wrong with an eventfd write.
    [[maybe_unused]] auto written = ::write(eventFd_, &one, sizeof one);
}

void PollEventLoop::post(Task task) {
    queue_.post(std::move(task));
    wake();
}

EventLoop::TimerId PollEventLoop::postDelayed(Duration delay, Task task) {
    const auto id = queue_.postAt(clock_.now() + delay, std::move(task));
    wake();  // the loop re-arms its timer for the new earliest deadline
    return id;
}

void PollEventLoop::cancelTimer(TimerId id) { queue_.cancelTimer(id); }

EventLoop::WatchId PollEventLoop::watchFileDescriptor(int fd, FdEvents events, std::function<void(FdEvents)> handler) {
    const auto id = queue_.addWatch(fd, events, std::move(handler));
    wake();
    return id;
}

void PollEventLoop::unwatchFileDescriptor(WatchId id) {
    queue_.removeWatch(id);
    wake();
}

void PollEventLoop::quit() {
    quit_ = true;
    wake();
}

void PollEventLoop::armTimer() {
    itimerspec expiry{};
    if (auto deadline = queue_.nextDeadline()) {
        const auto ns = deadline->time_since_epoch().count();
        expiry.it_value.tv_sec = static_cast<time_t>(ns / 1'000'000'000);
        expiry.it_value.tv_nsec = static_cast<long>(ns % 1'000'000'000);
        // An all-zero value would disarm the timer; a deadline at the epoch is long past anyway.
        if (expiry.it_value.tv_sec == 0 && expiry.it_value.tv_nsec == 0) expiry.it_value.tv_nsec = 1;
    }
    ::timerfd_settime(timerFd_, TFD_TIMER_ABSTIME, &expiry, nullptr);
}

void PollEventLoop::run() {
    owner_ = std::this_thread::get_id();
    std::vector<pollfd> fds;
    std::vector<WatchId> ids;
    while (!quit_) {
        for (auto& task : queue_.takePosted()) {
            task();
            if (quit_) break;
        }
        while (!quit_) {
            auto due = queue_.takeDue(clock_.now());
            if (!due) break;
            (*due)();
        }
        if (quit_) break;
        armTimer();

        const auto watches = queue_.watches();
        fds.assign({pollfd{eventFd_, POLLIN, 0}, pollfd{timerFd_, POLLIN, 0}});
        ids.clear();
        for (const auto& watch : watches) {
            fds.push_back(pollfd{watch.fd, detail::toPollEvents(watch.events), 0});
            ids.push_back(watch.id);
        }
        // Work posted between the checks above and here has written the eventfd, so this poll
        // returns at once for it.
        if (!queue_.hasPosted() && ::poll(fds.data(), fds.size(), -1) < 0) {
            if (errno == EINTR) continue;
            break;
        }
        if (fds[0].revents) drain(eventFd_);
        if (fds[1].revents) drain(timerFd_);
        for (std::size_t i = 0; i < ids.size() && !quit_; ++i) {
            const auto events = detail::fromPollEvents(fds[i + 2].revents);
            if (!any(events)) continue;
            // Looked up again: an earlier handler of this round may have removed the watch.
            if (auto handler = queue_.handler(ids[i])) (*handler)(events);
        }
    }
    quit_ = false;
}

}  // namespace tavrin
