#include "services/clock.h"

#include <stop_token>
#include <thread>

namespace tavrin {

// ---- SystemClock

namespace {

class ThreadAlarm final : public Alarm {
public:
    ThreadAlarm(Clock::TimePoint deadline, std::function<void()> action)
        : thread_([deadline, action = std::move(action)](std::stop_token stop) {
              std::mutex mutex;
              std::condition_variable_any wake;
              std::unique_lock lock(mutex);
              const auto steadyDeadline = std::chrono::time_point_cast<std::chrono::steady_clock::duration>(deadline);
              // Wakes at the deadline or on a stop request, whichever comes first.
              wake.wait_until(lock, stop, steadyDeadline, [] { return false; });
              if (stop.stop_requested()) return;
              lock.unlock();
              action();
          }) {}
    ~ThreadAlarm() override { cancel(); }
    void cancel() override {
        thread_.request_stop();
        // Cancelling from the action itself must not join its own thread.
        if (thread_.joinable() && thread_.get_id() != std::this_thread::get_id()) thread_.join();
        else if (thread_.joinable()) thread_.detach();
    }

private:
    std::jthread thread_;
};

}  // namespace

Clock::TimePoint SystemClock::now() const {
    return std::chrono::time_point_cast<Duration>(std::chrono::steady_clock::now());
}

void SystemClock::sleepFor(Duration duration) { std::this_thread::sleep_for(duration); }

std::unique_ptr<Alarm> SystemClock::scheduleAlarm(TimePoint deadline, std::function<void()> action) {
    return std::make_unique<ThreadAlarm>(deadline, std::move(action));
}

// ---- FakeClock

class FakeClock::FakeAlarm final : public Alarm {
public:
    FakeAlarm(FakeClock& clock, std::uint64_t id) : clock_(clock), id_(id) {}
    ~FakeAlarm() override { cancel(); }
    void cancel() override { clock_.cancel(id_); }

private:
    FakeClock& clock_;
    std::uint64_t id_;
};

// The fake starts far from zero so that "now minus a duration" never goes below the epoch.
FakeClock::FakeClock() : nanos_(std::chrono::duration_cast<Duration>(std::chrono::hours(24 * 365)).count()) {}

void FakeClock::sleepFor(Duration duration) {
    {
        std::lock_guard lock(mutex_);
        sleeps_.push_back(duration);
    }
    advance(duration);
}

std::unique_ptr<Alarm> FakeClock::scheduleAlarm(TimePoint deadline, std::function<void()> action) {
    std::uint64_t id = 0;
    {
        std::lock_guard lock(mutex_);
        id = nextId_++;
        if (deadline > now()) {
            deadlines_.emplace(deadline, id);
            actions_.emplace(id, std::move(action));
            changed_.notify_all();
            return std::make_unique<FakeAlarm>(*this, id);
        }
    }
    action();
    return std::make_unique<FakeAlarm>(*this, id);
}

void FakeClock::advance(Duration by) { advanceTo(now() + by); }

void FakeClock::advanceTo(TimePoint to) {
    for (;;) {
        std::function<void()> action;
        {
            std::lock_guard lock(mutex_);
            auto first = deadlines_.begin();
            if (first == deadlines_.end() || first->first > to) break;
            if (first->first > now()) nanos_.store(first->first.time_since_epoch().count());
            auto found = actions_.find(first->second);
            action = std::move(found->second);
            actions_.erase(found);
            deadlines_.erase(first);
            changed_.notify_all();
        }
        // Outside the lock: an action may schedule or cancel alarms.
        action();
    }
    std::lock_guard lock(mutex_);
    if (to > now()) nanos_.store(to.time_since_epoch().count());
}

void FakeClock::cancel(std::uint64_t id) {
    std::lock_guard lock(mutex_);
    if (actions_.erase(id) == 0) return;
    for (auto it = deadlines_.begin(); it != deadlines_.end(); ++it) {
        if (it->second == id) {
            deadlines_.erase(it);
            break;
        }
    }
    changed_.notify_all();
}

std::vector<Clock::Duration> FakeClock::sleeps() const {
    std::lock_guard lock(mutex_);
    return sleeps_;
}

std::size_t FakeClock::pendingAlarmCount() const {
    std::lock_guard lock(mutex_);
    return actions_.size();
}

void FakeClock::waitForPendingAlarms(std::size_t count) const {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return actions_.size() >= count; });
}

}  // namespace tavrin
