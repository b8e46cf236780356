#include "qt_event_loop.h"

#include <poll.h>

#include <QMetaObject>
#include <QPointer>
#include <QSocketNotifier>
#include <QThread>

#include <algorithm>
#include <chrono>

namespace tavrin {

QtEventLoop::QtEventLoop() : ownClock_(std::make_unique<SystemClock>()), clock_(ownClock_.get()) {
    timer_.setSingleShot(true);
    timer_.setTimerType(Qt::PreciseTimer);
    connect(&timer_, &QTimer::timeout, this, [this] { runDueTimers(); });
}

QtEventLoop::QtEventLoop(Clock& clock) : clock_(&clock) {
    timer_.setSingleShot(true);
    connect(&timer_, &QTimer::timeout, this, [this] { runDueTimers(); });
}

QtEventLoop::~QtEventLoop() {
    if (alarm_) alarm_->cancel();
}

void QtEventLoop::post(Task task) {
    QMetaObject::invokeMethod(this, [task = std::move(task)] { task(); }, Qt::QueuedConnection);
}

EventLoop::TimerId QtEventLoop::postDelayed(Duration delay, Task task) {
    const auto id = queue_.postAt(clock_->now() + std::max(delay, Duration::zero()), std::move(task));
    // The timer belongs to the loop's thread: it is re-armed there.
    if (isCurrentThread())
        rearm();
    else
        QMetaObject::invokeMethod(this, [this] { rearm(); }, Qt::QueuedConnection);
    return id;
}

void QtEventLoop::cancelTimer(TimerId id) { queue_.cancelTimer(id); }

void QtEventLoop::rearm() {
    const auto deadline = queue_.nextDeadline();
    if (!deadline) {
        timer_.stop();
        if (alarm_) alarm_->cancel();
        alarm_.reset();
        return;
    }
    if (ownClock_) {
        const auto wait = std::max(*deadline - clock_->now(), Duration::zero());
        // Rounded up, so that the timer never fires before the deadline it was armed for.
        const auto ms = std::chrono::ceil<std::chrono::milliseconds>(wait);
        timer_.start(static_cast<int>(std::min<std::chrono::milliseconds::rep>(ms.count(), 24 * 3600 * 1000)));
        return;
    }
    // A clock moved by hand fires its alarm on the thread that moves it; the due tasks still
    // run here.
    if (alarm_) alarm_->cancel();
    QPointer<QtEventLoop> self(this);
    alarm_ = clock_->scheduleAlarm(*deadline, [self] {
        QMetaObject::invokeMethod(self.data(), [self] {
            if (self) self->runDueTimers();
        }, Qt::QueuedConnection);
    });
}

void QtEventLoop::runDueTimers() {
    while (auto task = queue_.takeDue(clock_->now())) (*task)();
    rearm();
}

EventLoop::WatchId QtEventLoop::watchFileDescriptor(int fd, FdEvents events, std::function<void(FdEvents)> handler) {
    assertOnLoopThread("QtEventLoop::watchFileDescriptor");
    const auto id = queue_.addWatch(fd, events, std::move(handler));
    Notifiers& n = notifiers_[id];
    n.fd = fd;
    n.events = events;
    // A hang-up or error wakes whichever notifier there is; the handler learns of it from poll.
    if (any(events & FdEvents::readable) || !any(events & FdEvents::writable)) {
        n.read = std::make_unique<QSocketNotifier>(fd, QSocketNotifier::Read);
        connect(n.read.get(), &QSocketNotifier::activated, this, [this, id] { descriptorActivated(id); });
    }
    if (any(events & FdEvents::writable)) {
        n.write = std::make_unique<QSocketNotifier>(fd, QSocketNotifier::Write);
        connect(n.write.get(), &QSocketNotifier::activated, this, [this, id] { descriptorActivated(id); });
    }
    return id;
}

void QtEventLoop::unwatchFileDescriptor(WatchId id) {
    assertOnLoopThread("QtEventLoop::unwatchFileDescriptor");
    queue_.removeWatch(id);
    auto it = notifiers_.find(id);
    if (it == notifiers_.end()) return;
    // The notifier may be the one whose signal is being delivered: it is disabled now and
    // deleted once control is back in the loop.
    for (auto* slot : {&it->second.read, &it->second.write}) {
        if (!*slot) continue;
        (*slot)->setEnabled(false);
        (*slot)->disconnect(this);
        slot->release()->deleteLater();
    }
    notifiers_.erase(it);
}

void QtEventLoop::descriptorActivated(WatchId id) {
    auto it = notifiers_.find(id);
    if (it == notifiers_.end()) return;
    // Ask the kernel what the descriptor has now, so the handler learns of errors and hang-ups
    // as the other loops report them.
    pollfd p{it->second.fd, detail::toPollEvents(it->second.events), 0};
    if (::poll(&p, 1, 0) <= 0) return;
    const FdEvents ready = detail::fromPollEvents(p.revents) & (it->second.events | FdEvents::error);
    if (!any(ready)) return;
    if (auto handler = queue_.handler(id)) (*handler)(ready);
}

bool QtEventLoop::isCurrentThread() const { return QThread::currentThread() == thread(); }

}  // namespace tavrin
