// Links handed to the desktop app over a real, private session bus, with a stand-in app that
// owns the app's name in this process.

#include <gtest/gtest.h>


#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include <sdbus-c++/sdbus-c++.h>

#include "private_bus.h"
#include "services/app_handoff.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

// A bus of the test's own, and optionally a stand-in app on it that records the links it gets.
class AppHandoffTest : public ::testing::Test {
protected:
    testing::PrivateBus bus;
    std::string address;
    std::unique_ptr<sdbus::IConnection> appConnection;
    std::unique_ptr<sdbus::IObject> appObject;
    std::mutex mutex;
    std::vector<std::string> received;

    void SetUp() override {
        address = bus.address();
        ASSERT_FALSE(address.empty()) << "dbus-daemon gave no address";
    }
    void TearDown() override {
        if (appConnection) appConnection->leaveEventLoop();
        appObject.reset();
        appConnection.reset();
    }
    // `withMethod` false: the name is owned, but nothing answers OpenURL.
    void startApp(bool withMethod = true) {
        appConnection = sdbus::createSessionBusConnectionWithAddress(address);
        appConnection->requestName(AppBusName::service);
        appObject = sdbus::createObject(*appConnection, AppBusName::objectPath);
        if (withMethod) {
            appObject->registerMethod(AppBusName::openURL)
                .onInterface(AppBusName::interface)
                .implementedAs([this](const std::string& url) {
                    std::lock_guard lock(mutex);
                    received.push_back(url);
                });
        }
        appObject->finishRegistration();
        appConnection->enterEventLoopAsync();
    }
    std::vector<std::string> links() {
        std::lock_guard lock(mutex);
        return received;
    }
};

TEST_F(AppHandoffTest, outcomesFollowWhatIsOnTheBus) {
    EXPECT_EQ(handURLToApp("tavrin://app", address), AppHandoffOutcome::appNotRunning);
    EXPECT_EQ(handURLToApp("tavrin://app", std::string("unix:path=/nonexistent/bus")),
              AppHandoffOutcome::appNotRunning);
    startApp(false);
    EXPECT_EQ(handURLToApp("tavrin://app", address, std::chrono::seconds(5)), AppHandoffOutcome::appFailed);
}

TEST_F(AppHandoffTest, theRunningAppGetsTheLinkAsItWasGiven) {
    startApp();
    const std::string url = "tavrin://enqueue?file=%2Ftmp%2Fa%20b.jpg&preset=location-only";
    EXPECT_EQ(handURLToApp(url, address), AppHandoffOutcome::handedOver);
    EXPECT_EQ(links(), std::vector<std::string>{url});
}

TEST_F(AppHandoffTest, openURLHandsTheLinkOverAndCleansNothingItselfUnlessToldToStayHere) {
    const char* bin = std::getenv("TAVRIN_BIN");
    ASSERT_NE(bin, nullptr);
    testing::TempDir dir;
    const auto photo = dir / "photo.jpg";
    std::filesystem::copy_file(std::filesystem::path(TAVRIN_SOURCE_DIR) / "samples/files/beach-photo.jpg", photo);
    const std::string url = "tavrin://clean?file=" + photo.string();
    const std::vector<std::string> env = {"DBUS_SESSION_BUS_ADDRESS=" + address};
    startApp();

    EXPECT_EQ(testing::waitForProcess(testing::spawnProcess({bin, "open-url", url}, env)), 0);
    EXPECT_EQ(links(), std::vector<std::string>{url});
    for (const auto& entry : std::filesystem::directory_iterator(dir.path()))
        EXPECT_EQ(entry.path().filename().string().find("_cleaned"), std::string::npos) << entry.path();

    EXPECT_EQ(testing::waitForProcess(testing::spawnProcess({bin, "open-url", "--here", url}, env)), 0);
    EXPECT_EQ(links().size(), 1u);
    EXPECT_TRUE(std::filesystem::exists(dir / "photo_cleaned.jpg"));
}

}  // namespace
}  // namespace tavrin
