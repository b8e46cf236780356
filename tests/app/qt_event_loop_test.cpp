// The Qt adapter keeps the promises of the services' event loop: order, deadlines on the loop's
// clock, cancellation, descriptor readiness with hang-ups, and posts from other threads.
#include <fcntl.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "qt_event_loop.h"

namespace tavrin {
namespace {

QCoreApplication& application() {
    static int argc = 1;
    static char name[] = "app_support_tests";
    static char* argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
    return app;
}

// Runs the Qt loop until `done` holds or a generous guard expires (a failure, never a wait).
template <typename Done>
bool spinUntil(Done done) {
    QEventLoop loop;
    QTimer guard;
    guard.setSingleShot(true);
    QObject::connect(&guard, &QTimer::timeout, &loop, &QEventLoop::quit);
    guard.start(10'000);
    while (!done() && guard.isActive()) loop.processEvents(QEventLoop::WaitForMoreEvents);
    return done();
}

struct Pipe {
    int r = -1, w = -1;
    Pipe() {
        int fds[2];
        EXPECT_EQ(::pipe2(fds, O_CLOEXEC | O_NONBLOCK), 0);
        r = fds[0];
        w = fds[1];
    }
    ~Pipe() {
        if (r >= 0) ::close(r);
        if (w >= 0) ::close(w);
    }
};

class QtEventLoopTest : public ::testing::Test {
protected:
    void SetUp() override { application(); }
};

TEST_F(QtEventLoopTest, PostedTasksRunInOrderFromAnyThread) {
    QtEventLoop loop;
    std::vector<std::string> ran;
    loop.post([&] { ran.push_back("first"); });
    std::thread other([&] { loop.post([&] { ran.push_back("second"); }); });
    other.join();
    loop.post([&] { EXPECT_TRUE(loop.isCurrentThread()); ran.push_back("third"); });
    ASSERT_TRUE(spinUntil([&] { return ran.size() == 3; }));
    EXPECT_EQ(ran, (std::vector<std::string>{"first", "second", "third"}));
}

TEST_F(QtEventLoopTest, DelayedTasksFollowAHandMovedClockAndCanBeCancelled) {
    FakeClock clock;
    QtEventLoop loop(clock);
    std::vector<int> ran;
    loop.postDelayed(seconds(2), [&] { ran.push_back(2); });
    const auto cancelled = loop.postDelayed(seconds(1.5), [&] { ran.push_back(15); });
    loop.postDelayed(seconds(1), [&] { ran.push_back(1); });
    loop.cancelTimer(cancelled);
    QCoreApplication::processEvents();
    EXPECT_TRUE(ran.empty()) << "nothing is due before the clock moves";

    clock.advance(seconds(1));
    ASSERT_TRUE(spinUntil([&] { return ran.size() == 1; }));
    clock.advance(seconds(0.9));
    QCoreApplication::processEvents();
    EXPECT_EQ(ran, std::vector<int>{1});
    clock.advance(seconds(0.1));
    ASSERT_TRUE(spinUntil([&] { return ran.size() == 2; }));
    EXPECT_EQ(ran, (std::vector<int>{1, 2}));
}

TEST_F(QtEventLoopTest, DelayedTasksOnTheSystemClockRunAfterTheirDelay) {
    QtEventLoop loop;
    const auto start = loop.now();
    Clock::TimePoint ranAt{};
    std::thread other([&] {
        loop.postDelayed(std::chrono::milliseconds(20), [&] { ranAt = loop.now(); });
    });
    other.join();
    ASSERT_TRUE(spinUntil([&] { return ranAt != Clock::TimePoint{}; }));
    EXPECT_GE(ranAt - start, std::chrono::milliseconds(20));
}

TEST_F(QtEventLoopTest, WatchedDescriptorsReportReadinessAndHangUp) {
    QtEventLoop loop;
    Pipe pipe;
    std::vector<FdEvents> seen;
    EventLoop::WatchId id = 0;
    id = loop.watchFileDescriptor(pipe.r, FdEvents::readable, [&](FdEvents e) {
        seen.push_back(e);
        char buf[16];
        while (::read(pipe.r, buf, sizeof buf) > 0) {
        }
        if (any(e & FdEvents::error)) loop.unwatchFileDescriptor(id);  // from its own handler
    });
    ASSERT_EQ(::write(pipe.w, "x", 1), 1);
    ASSERT_TRUE(spinUntil([&] { return seen.size() == 1; }));
    EXPECT_TRUE(any(seen[0] & FdEvents::readable));

    ::close(pipe.w);
    pipe.w = -1;
    ASSERT_TRUE(spinUntil([&] { return seen.size() == 2; }));
    EXPECT_TRUE(any(seen[1] & FdEvents::error));
    // Unwatched: the hang-up, still pending, is not reported again.
    for (int i = 0; i < 5; ++i) QCoreApplication::processEvents();
    EXPECT_EQ(seen.size(), 2u);
}

}  // namespace
}  // namespace tavrin
