// Links handed to the desktop app over a real, private session bus, with a stand-in app that
// owns the app's name in this process.

#include <gtest/gtest.h>

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include <sdbus-c++/sdbus-c++.h>

#include "services/app_handoff.h"
#include "support/test_support.h"

extern char** environ;

namespace tavrin {
namespace {

pid_t spawnWith(const std::vector<std::string>& argv, const std::vector<std::string>& extraEnvironment,
                int stdoutFd = -1) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (stdoutFd >= 0) posix_spawn_file_actions_adddup2(&actions, stdoutFd, STDOUT_FILENO);
    std::vector<char*> args;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    std::vector<std::string> environment(extraEnvironment);
    for (char** e = environ; *e; ++e) environment.emplace_back(*e);  // earlier entries win
    std::vector<char*> env;
    for (auto& e : environment) env.push_back(e.data());
    env.push_back(nullptr);
    pid_t pid = -1;
    const int rc = ::posix_spawn(&pid, args[0], &actions, nullptr, args.data(), env.data());
    posix_spawn_file_actions_destroy(&actions);
    return rc == 0 ? pid : -1;
}

int waitFor(pid_t pid) {
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A bus of the test's own, and optionally a stand-in app on it that records the links it gets.
class AppHandoffTest : public ::testing::Test {
protected:
    pid_t daemon = -1;
    std::string address;
    std::unique_ptr<sdbus::IConnection> appConnection;
    std::unique_ptr<sdbus::IObject> appObject;
    std::mutex mutex;
    std::vector<std::string> received;

    void SetUp() override {
        int fds[2];
        ASSERT_EQ(::pipe(fds), 0);
        daemon = spawnWith({"/usr/bin/dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address"}, {},
                           fds[1]);
        ::close(fds[1]);
        ASSERT_GT(daemon, 0);
        char c = 0;
        while (::read(fds[0], &c, 1) == 1 && c != '\n') address += c;
        ::close(fds[0]);
        ASSERT_FALSE(address.empty()) << "dbus-daemon gave no address";
    }
    void TearDown() override {
        if (appConnection) appConnection->leaveEventLoop();
        appObject.reset();
        appConnection.reset();
        if (daemon > 0) {
            ::kill(daemon, SIGTERM);
            waitFor(daemon);
        }
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

    EXPECT_EQ(waitFor(spawnWith({bin, "open-url", url}, env)), 0);
    EXPECT_EQ(links(), std::vector<std::string>{url});
    for (const auto& entry : std::filesystem::directory_iterator(dir))
        EXPECT_EQ(entry.path().filename().string().find("_cleaned"), std::string::npos) << entry.path();

    EXPECT_EQ(waitFor(spawnWith({bin, "open-url", "--here", url}, env)), 0);
    EXPECT_EQ(links().size(), 1u);
    EXPECT_TRUE(std::filesystem::exists(dir / "photo_cleaned.jpg"));
}

}  // namespace
}  // namespace tavrin
