#pragma once
// Time for the services: what time it is, a way to wait, and alarms that fire at a deadline.
// Services take a Clock at construction so that tests drive back-off and time-outs with a fake
// one and never sleep.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace tavrin {

// A pending call of a Clock. Destroying it cancels the call.
class Alarm {
public:
    virtual ~Alarm() = default;
    // After cancel returns the action does not start; an action already running is not waited
    // for, so an action must touch only state it shares ownership of.
    virtual void cancel() = 0;
};

class Clock {
public:
    using Duration = std::chrono::nanoseconds;
    using TimePoint = std::chrono::time_point<std::chrono::steady_clock, Duration>;

    virtual ~Clock() = default;
    virtual TimePoint now() const = 0;
    // Blocks the calling thread for `duration` of this clock's time.
    virtual void sleepFor(Duration duration) = 0;
    // Calls `action` once, on a thread of the clock's choosing, when now() reaches `deadline`,
    // unless the alarm is cancelled first. A deadline already passed fires as soon as possible.
    virtual std::unique_ptr<Alarm> scheduleAlarm(TimePoint deadline, std::function<void()> action) = 0;
};

// Seconds as a double, the unit of durations in the services' interfaces.
inline Clock::Duration seconds(double value) {
    return std::chrono::duration_cast<Clock::Duration>(std::chrono::duration<double>(value));
}

// The monotonic clock of the system. Each alarm waits on a thread of its own.
class SystemClock final : public Clock {
public:
    TimePoint now() const override;
    void sleepFor(Duration duration) override;
    std::unique_ptr<Alarm> scheduleAlarm(TimePoint deadline, std::function<void()> action) override;
};

// A clock that moves only when told. sleepFor advances it at once (and records the sleep), and
// alarms fire on the thread that moves the clock past their deadline. Safe to use from several
// threads.
class FakeClock final : public Clock {
public:
    FakeClock();
    TimePoint now() const override { return TimePoint(Duration(nanos_.load())); }
    void sleepFor(Duration duration) override;
    std::unique_ptr<Alarm> scheduleAlarm(TimePoint deadline, std::function<void()> action) override;

    // Moves the clock forward, firing due alarms in deadline order, each at its own time.
    void advance(Duration by);
    void advanceTo(TimePoint to);
    // Every duration passed to sleepFor, in order.
    std::vector<Duration> sleeps() const;
    std::size_t pendingAlarmCount() const;
    // Blocks (in real time) until at least `count` alarms are pending: a test waits here for
    // the code under test, running on another thread, to arm its time-out before advancing.
    void waitForPendingAlarms(std::size_t count) const;

private:
    class FakeAlarm;
    void cancel(std::uint64_t id);

    std::atomic<Duration::rep> nanos_;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::multimap<TimePoint, std::uint64_t> deadlines_;
    std::map<std::uint64_t, std::function<void()>> actions_;
    std::uint64_t nextId_ = 1;
    std::vector<Duration> sleeps_;
};

}  // namespace tavrin
