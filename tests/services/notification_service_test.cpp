// Notifications over a real, private D-Bus daemon: a child process posts, this one observes on
// its event loop.

#include <gtest/gtest.h>

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <string>
#include <thread>
#include <vector>

#include "services/manual_event_loop.h"
#include "services/notification_service.h"
#include "services/poll_event_loop.h"

extern char** environ;

namespace tavrin {
namespace {

using namespace std::chrono_literals;

pid_t spawn(const std::vector<std::string>& argv, int stdoutFd = -1) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (stdoutFd >= 0) posix_spawn_file_actions_adddup2(&actions, stdoutFd, STDOUT_FILENO);
    std::vector<char*> args;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    pid_t pid = -1;
    const int rc = ::posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return rc == 0 ? pid : -1;
}

int waitFor(pid_t pid) {
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A session bus of the test's own, gone with the fixture.
class PrivateBusTest : public ::testing::Test {
protected:
    pid_t daemon = -1;
    std::string address;

    void SetUp() override {
        int fds[2];
        ASSERT_EQ(::pipe(fds), 0);
        daemon = spawn({"/usr/bin/dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address"}, fds[1]);
        ::close(fds[1]);
        ASSERT_GT(daemon, 0);
        char c = 0;
        while (::read(fds[0], &c, 1) == 1 && c != '\n') address += c;
        ::close(fds[0]);
        ASSERT_FALSE(address.empty()) << "dbus-daemon gave no address";
    }
    void TearDown() override {
        if (daemon > 0) {
            ::kill(daemon, SIGTERM);
            waitFor(daemon);
        }
    }
    int post(const std::vector<std::string>& names) {
        std::vector<std::string> argv = {TAVRIN_NOTIFICATION_POSTER, address};
        argv.insert(argv.end(), names.begin(), names.end());
        return waitFor(spawn(argv));
    }
};

TEST_F(PrivateBusTest, signalsPostedByAnotherProcessReachObserversOnTheEventLoop) {
    PollEventLoop loop;
    NotificationService service(loop, address);
    std::map<std::string, int> received;
    bool offLoop = false;
    const auto note = [&](const char* name) {
        return [&, name] {
            offLoop = offLoop || !loop.isCurrentThread();
            ++received[name];
            if (std::string(name) == "queueUpdated") loop.quit();  // the child posts it last
        };
    };
    service.observeProcessingComplete(note("processingComplete"));
    service.observePresetChanged(note("presetChanged"));
    const auto removed = service.observePresetChanged(note("removed"));
    service.removeObserver(removed);
    service.observeQueueUpdated(note("queueUpdated"));

    // The child runs while the loop does; a long guard only keeps a broken bus from hanging.
    std::thread child([&] { EXPECT_EQ(post({"processingComplete", "presetChanged", "processingComplete", "queueUpdated"}), 0); });
    const auto guard = loop.postDelayed(60s, [&] { loop.quit(); });
    loop.run();
    child.join();
    loop.cancelTimer(guard);

    EXPECT_EQ(received, (std::map<std::string, int>{{"processingComplete", 2}, {"presetChanged", 1}, {"queueUpdated", 1}}));
    EXPECT_FALSE(offLoop);
    EXPECT_TRUE(service.isConnected());
}

TEST_F(PrivateBusTest, aProcessHearsItsOwnPostsAndTheNamesStayApart) {
    PollEventLoop loop;
    NotificationService service(loop, address);
    std::vector<std::string> order;
    service.observePresetChanged([&] { order.push_back("presetChanged"); });
    service.observeQueueUpdated([&] {
        order.push_back("queueUpdated");
        loop.quit();
    });
    service.postPresetChanged();
    service.postProcessingComplete();  // nobody observes it
    service.postQueueUpdated();
    const auto guard = loop.postDelayed(60s, [&] { loop.quit(); });
    loop.run();
    loop.cancelTimer(guard);
    EXPECT_EQ(order, (std::vector<std::string>{"presetChanged", "queueUpdated"}));
}

TEST(NotificationService, withoutABusPostingDoesNothingAndObservingNeverFires) {
    ManualEventLoop loop;
    NotificationService service(loop, std::string("unix:path=/nonexistent/tavrin-bus"));
    bool fired = false;
    const auto token = service.observeQueueUpdated([&] { fired = true; });
    EXPECT_NO_THROW(service.postQueueUpdated());
    EXPECT_NO_THROW(service.postProcessingComplete());
    EXPECT_NO_THROW(service.postPresetChanged());
    service.removeObserver(token);
    loop.runPending();
    EXPECT_FALSE(fired);
    EXPECT_FALSE(service.isConnected());
}

TEST(NotificationService, theNamesOfTheAnnouncements) {
    EXPECT_STREQ(TavrinNotification::queueUpdated, "com.tavrin.queueUpdated");
    EXPECT_STREQ(TavrinNotification::processingComplete, "com.tavrin.processingComplete");
    EXPECT_STREQ(TavrinNotification::presetChanged, "com.tavrin.presetChanged");
    EXPECT_STREQ(TavrinNotification::objectPath, "/com/tavrin/notifications");
    EXPECT_STREQ(TavrinNotification::interfaceName, "com.tavrin.notifications");
}

}  // namespace
}  // namespace tavrin
