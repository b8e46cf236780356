// The main actor's loops: order of work, delayed tasks on the loop's clock, descriptors, and
// posts from other threads.

#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "services/manual_event_loop.h"
#include "services/poll_event_loop.h"

namespace tavrin {
namespace {

using namespace std::chrono_literals;

struct Pipe {
    int fds[2] = {-1, -1};
    Pipe() { EXPECT_EQ(::pipe(fds), 0); }
    ~Pipe() {
        ::close(fds[0]);
        ::close(fds[1]);
    }
    void write(char c) const { ASSERT_EQ(::write(fds[1], &c, 1), 1); }
    char read() const {
        char c = 0;
        EXPECT_EQ(::read(fds[0], &c, 1), 1);
        return c;
    }
};

TEST(ManualEventLoop, runsNothingUntilToldAndPostedTasksInOrder) {
    ManualEventLoop loop;
    std::string trace;
    loop.post([&] { trace += "a"; });
    loop.post([&] {
        trace += "b";
        loop.post([&] { trace += "d"; });  // posted from a task: runs in the same runPending
    });
    loop.post([&] { trace += "c"; });
    EXPECT_EQ(trace, "");
    EXPECT_EQ(loop.runPending(), 4u);
    EXPECT_EQ(trace, "abcd");
}

TEST(ManualEventLoop, delayedTasksRunAtTheirDeadlinesWithTheClockSetToThem) {
    struct Case {
        const char* name;
        std::vector<std::pair<EventLoop::Duration, char>> timers;
        EventLoop::Duration advance;
        std::string expected;
    };
    const std::vector<Case> cases = {
        {"nothing due before its deadline", {{1s, 'a'}}, 999ms, ""},
        {"due exactly at its deadline", {{1s, 'a'}}, 1s, "a"},
        {"in deadline order, not posting order", {{3s, 'c'}, {1s, 'a'}, {2s, 'b'}}, 5s, "abc"},
        {"equal deadlines in posting order", {{1s, 'a'}, {1s, 'b'}}, 1s, "ab"},
        {"only those due", {{1s, 'a'}, {10s, 'z'}}, 2s, "a"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ManualEventLoop loop;
        const auto start = loop.now();
        std::string trace;
        for (auto [delay, mark] : c.timers) {
            loop.postDelayed(delay, [&, delay, mark] {
                trace += mark;
                EXPECT_EQ(loop.now() - start, delay);
            });
        }
        loop.advance(c.advance);
        EXPECT_EQ(trace, c.expected);
        EXPECT_EQ(loop.now() - start, c.advance);
    }
}

TEST(ManualEventLoop, aTimerArmedByATimerFiresWithinTheSameAdvance) {
    // A debounce restarts its timer from the handler; one advance must see the whole chain.
    ManualEventLoop loop;
    int fired = 0;
    std::function<void()> rearm = [&] {
        if (++fired < 3) loop.postDelayed(1s, rearm);
    };
    loop.postDelayed(1s, rearm);
    loop.advance(3s);
    EXPECT_EQ(fired, 3);
    EXPECT_EQ(loop.pendingTimerCount(), 0u);
}

TEST(ManualEventLoop, cancelledTimerNeverRuns) {
    ManualEventLoop loop;
    bool ran = false;
    const auto id = loop.postDelayed(1s, [&] { ran = true; });
    loop.cancelTimer(id);
    loop.cancelTimer(id);  // spent ids are ignored
    loop.advance(5s);
    EXPECT_FALSE(ran);
}

TEST(ManualEventLoop, watchedDescriptorCallsItsHandlerOnlyWhileWatched) {
    ManualEventLoop loop;
    Pipe pipe;
    std::string received;
    const auto id = loop.watchFileDescriptor(pipe.fds[0], FdEvents::readable, [&](FdEvents events) {
        EXPECT_TRUE(any(events & FdEvents::readable));
        received += pipe.read();
    });
    EXPECT_EQ(loop.runPending(), 0u);
    pipe.write('x');
    loop.waitForDescriptors(10s);
    EXPECT_EQ(received, "x");
    loop.unwatchFileDescriptor(id);
    pipe.write('y');
    loop.runPending();
    EXPECT_EQ(received, "x");
}

TEST(ManualEventLoop, knowsItsThread) {
    ManualEventLoop loop;
    EXPECT_TRUE(loop.isCurrentThread());
    bool onOther = true;
    std::thread([&] { onOther = loop.isCurrentThread(); }).join();
    EXPECT_FALSE(onOther);
}

TEST(EventLoopDeathTest, aMainActorServiceCalledFromAWorkerStopsTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    ManualEventLoop loop;
    EXPECT_DEATH(std::thread([&] { loop.assertOnLoopThread("QueueService.addFiles"); }).join(),
                 "QueueService.addFiles must run on the main event loop's thread");
}

TEST(FakeClock, sleepingAdvancesTheClockAndIsRecorded) {
    FakeClock clock;
    const auto start = clock.now();
    clock.sleepFor(100ms);
    clock.sleepFor(200ms);
    EXPECT_EQ(clock.now() - start, 300ms);
    EXPECT_EQ(clock.sleeps(), (std::vector<Clock::Duration>{100ms, 200ms}));
}

TEST(FakeClock, alarmsFireOnceAtTheirDeadlineUnlessCancelled) {
    FakeClock clock;
    int fired = 0;
    auto alarm = clock.scheduleAlarm(clock.now() + 5s, [&] { ++fired; });
    auto cancelled = clock.scheduleAlarm(clock.now() + 5s, [&] { fired += 100; });
    cancelled->cancel();
    clock.advance(4s);
    EXPECT_EQ(fired, 0);
    clock.advance(1s);
    EXPECT_EQ(fired, 1);
    clock.advance(10s);
    EXPECT_EQ(fired, 1);
    // A deadline already passed fires at once.
    auto late = clock.scheduleAlarm(clock.now(), [&] { ++fired; });
    EXPECT_EQ(fired, 2);
}

TEST(PollEventLoop, runsPostsFromManyThreadsThenQuits) {
    PollEventLoop loop;
    std::atomic<int> count{0};
    std::thread::id ranOn;
    constexpr int perThread = 200;
    std::vector<std::thread> posters;
    for (int t = 0; t < 4; ++t) {
        posters.emplace_back([&] {
            for (int i = 0; i < perThread; ++i) loop.post([&] {
                ranOn = std::this_thread::get_id();
                if (++count == 4 * perThread) loop.quit();
            });
        });
    }
    loop.run();
    for (auto& p : posters) p.join();
    EXPECT_EQ(count, 4 * perThread);
    EXPECT_EQ(ranOn, std::this_thread::get_id());
    EXPECT_TRUE(loop.isCurrentThread());
}

TEST(PollEventLoop, delayedTasksRunInDeadlineOrderAndCancelledOnesNever) {
    PollEventLoop loop;
    std::string trace;
    loop.postDelayed(30ms, [&] { trace += "b"; });
    const auto cancelled = loop.postDelayed(10ms, [&] { trace += "x"; });
    loop.postDelayed(1ms, [&] { trace += "a"; });
    loop.postDelayed(60ms, [&] { loop.quit(); });
    loop.cancelTimer(cancelled);
    loop.run();
    EXPECT_EQ(trace, "ab");
}

TEST(PollEventLoop, deliversDescriptorEventsAndPostsFromOtherThreadsWakeIt) {
    PollEventLoop loop;
    Pipe pipe;
    std::string received;
    EventLoop::WatchId id = 0;
    id = loop.watchFileDescriptor(pipe.fds[0], FdEvents::readable, [&](FdEvents) {
        received += pipe.read();
        if (received.size() == 2) {
            loop.unwatchFileDescriptor(id);
            loop.quit();
        }
    });
    std::thread writer([&] {
        pipe.write('1');
        loop.post([&] { pipe.write('2'); });
    });
    loop.run();
    writer.join();
    EXPECT_EQ(received, "12");
}

TEST(PollEventLoop, quitBeforeRunReturnsAtOnceAndTheLoopRunsAgain) {
    PollEventLoop loop;
    loop.quit();
    loop.run();
    bool ran = false;
    loop.post([&] {
        ran = true;
        loop.quit();
    });
    loop.run();
    EXPECT_TRUE(ran);
}

}  // namespace
}  // namespace tavrin
