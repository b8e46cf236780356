#pragma once
// The services' event loop on Qt's: the desktop app runs its services on the GUI thread, so a
// posted task is a queued invocation, a delayed task waits on a single-shot QTimer (or, with a
// clock that tests move by hand, on that clock's alarm), and a watched descriptor is a
// QSocketNotifier. Cleaning never runs on this thread.

#include <QObject>
#include <QTimer>

#include <map>
#include <memory>

#include "services/event_loop.h"
#include "services/loop_queue.h"

class QSocketNotifier;

namespace tavrin {

class QtEventLoop final : public QObject, public EventLoop {
    Q_OBJECT
public:
    // Runs on the thread of the calling QObject world (normally the GUI thread), timed by the
    // system's monotonic clock.
    QtEventLoop();
    // Timed by `clock`, which must outlive the loop: delayed tasks run when that clock reaches
    // their deadline, which is how tests drive debounce rules without sleeping.
    explicit QtEventLoop(Clock& clock);
    ~QtEventLoop() override;
    QtEventLoop(const QtEventLoop&) = delete;
    QtEventLoop& operator=(const QtEventLoop&) = delete;

    void post(Task task) override;
    TimerId postDelayed(Duration delay, Task task) override;
    void cancelTimer(TimerId id) override;
    WatchId watchFileDescriptor(int fd, FdEvents events, std::function<void(FdEvents)> handler) override;
    void unwatchFileDescriptor(WatchId id) override;
    Clock& clock() override { return *clock_; }
    bool isCurrentThread() const override;

private:
    struct Notifiers {
        int fd = -1;
        FdEvents events = FdEvents::none;
        std::unique_ptr<QSocketNotifier> read;
        std::unique_ptr<QSocketNotifier> write;
    };

    void rearm();
    void runDueTimers();
    void descriptorActivated(WatchId id);

    std::unique_ptr<SystemClock> ownClock_;
    Clock* clock_;
    detail::LoopQueue queue_;
    QTimer timer_;
    std::unique_ptr<Alarm> alarm_;
    std::map<WatchId, Notifiers> notifiers_;
};

}  // namespace tavrin
