// Notifications over a real, private D-Bus daemon: a child process posts, this one observes on
// its event loop.

#include <gtest/gtest.h>


#include <map>
#include <string>
#include <thread>
#include <vector>

#include "private_bus.h"
#include "services/manual_event_loop.h"
#include "services/notification_service.h"
#include "services/poll_event_loop.h"

namespace tavrin {
namespace {

using namespace std::chrono_literals;

// A session bus of the test's own, gone with the fixture.
class PrivateBusTest : public ::testing::Test {
protected:
    testing::PrivateBus bus;
    std::string address;

    void SetUp() override {
        address = bus.address();
        ASSERT_FALSE(address.empty()) << "dbus-daemon gave no address";
    }
    int post(const std::vector<std::string>& names) {
        std::vector<std::string> argv = {TAVRIN_NOTIFICATION_POSTER, address};
        argv.insert(argv.end(), names.begin(), names.end());
        return testing::waitForProcess(testing::spawnProcess(argv));
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
