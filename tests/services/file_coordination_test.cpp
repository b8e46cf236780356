// Coordinated access under the time-out rule, and cloud materialization, driven by a fake clock.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <latch>
#include <mutex>
#include <thread>
#include <vector>

#include "services/cloud_file_materializer.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

namespace stdfs = std::filesystem;
using namespace std::chrono_literals;
using testing::TempDir;

// Blocks until a reader has opened the pipe (the body under test is inside its read), and returns
// the writing end; the reader stays blocked in its read until that end is closed.
int openWriterOnceRead(const std::filesystem::path& fifo) {
    for (;;) {
        const int fd = ::open(fifo.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        if (fd >= 0) return fd;
        std::this_thread::yield();
    }
}

template <typename Error, typename F>
std::string failureText(F&& f) {
    try {
        f();
    } catch (const Error& e) {
        return e.what();
    }
    return "(no failure)";
}

TEST(FileCoordinationError, statesTheTimeOutAsAWholeNumberOfSeconds) {
    const std::vector<std::pair<double, std::string>> cases = {{120.0, "120s"}, {30.0, "30s"}, {0.5, "0s"}, {2.9, "2s"}};
    for (const auto& [timeout, shown] : cases) {
        SCOPED_TRACE(timeout);
        EXPECT_EQ(FileCoordinationError::timedOut("/sync/Report final.docx", timeout).description(),
                  "Timed out after " + shown +
                      " waiting for coordinated access to \u201cReport final.docx\u201d. A sync service (iCloud, "
                      "OneDrive, Dropbox) may be holding the file.");
    }
}

TEST(CloudMaterializationError, wordsEachCase) {
    EXPECT_EQ(CloudMaterializationError::downloadTimedOut("a.pdf").description(),
              "Couldn't download a.pdf from cloud storage \u2014 the download timed out.");
    EXPECT_EQ(CloudMaterializationError::downloadFailed("a.pdf").description(), "Couldn't download a.pdf from cloud storage.");
}

class CoordinatorTest : public ::testing::Test {
protected:
    std::shared_ptr<FakeClock> clock = std::make_shared<FakeClock>();
    FileCoordinator coordinator{clock};
};

TEST_F(CoordinatorTest, bodyRunsOnTheSerialWorkerWithTheFileAndItsErrorsReachTheCaller) {
    std::thread::id ranOn;
    stdfs::path seen;
    coordinator.coordinateReading("/x/a.jpg", 5.0, [&](const stdfs::path& url) {
        ranOn = std::this_thread::get_id();
        seen = url;
    });
    EXPECT_NE(ranOn, std::this_thread::get_id());
    EXPECT_EQ(seen, "/x/a.jpg");
    EXPECT_THROW(coordinator.coordinateWritingForReplacing("/x/a.jpg", 5.0, [](const stdfs::path&) { throw std::runtime_error("denied"); }),
                 std::runtime_error);
    // The synchronous form runs on the caller's thread.
    coordinator.coordinateReadingSync("/x/a.jpg", [&](const stdfs::path&) { ranOn = std::this_thread::get_id(); });
    EXPECT_EQ(ranOn, std::this_thread::get_id());
    EXPECT_EQ(clock->pendingAlarmCount(), 0u);
}

TEST_F(CoordinatorTest, aBodyThatHangsGivesTheCallerItsTimeOutAndTheServiceGoesOn) {
    auto started = std::make_shared<std::latch>(1);
    auto release = std::make_shared<std::latch>(1);
    auto first = std::async(std::launch::async, [&] {
        return failureText<FileCoordinationError>([&] {
            coordinator.coordinateReading("/mnt/fuse/hung.pdf", 30.0, [started, release](const stdfs::path&) {
                started->count_down();
                release->wait();
            });
        });
    });
    started->wait();
    clock->waitForPendingAlarms(1);
    clock->advance(29s);
    EXPECT_EQ(first.wait_for(0s), std::future_status::timeout);
    clock->advance(1s);
    EXPECT_EQ(first.get(),
              "Timed out after 30s waiting for coordinated access to \u201chung.pdf\u201d. A sync service (iCloud, OneDrive, "
              "Dropbox) may be holding the file.");

    // A second operation waits behind the hung one and has a time-out of its own.
    std::atomic<bool> secondBodyRan{false};
    auto second = std::async(std::launch::async, [&] {
        return failureText<FileCoordinationError>([&] {
            coordinator.coordinateReading("/mnt/fuse/next.pdf", 10.0, [&secondBodyRan](const stdfs::path&) { secondBodyRan = true; });
        });
    });
    clock->waitForPendingAlarms(1);
    clock->advance(10s);
    EXPECT_NE(second.get().find("\u201cnext.pdf\u201d"), std::string::npos);

    // Once the mount answers, the worker serves new callers; the timed-out body is never run late.
    release->count_down();
    bool ran = false;
    coordinator.coordinateReading("/x/ok.pdf", 10.0, [&](const stdfs::path&) { ran = true; });
    EXPECT_TRUE(ran);
    EXPECT_FALSE(secondBodyRan);
}

TEST_F(CoordinatorTest, aBodyThatEndsAsTheTimeOutFiresResolvesTheCallerOnce) {
    // The body itself moves the clock to the deadline, so the time-out fires inside it; the body's
    // own success then finds the caller resolved and is dropped.
    const auto text = failureText<FileCoordinationError>([&] {
        coordinator.coordinateReading("/x/race.pdf", 3.0, [clock = clock](const stdfs::path&) { clock->advance(3s); });
    });
    EXPECT_NE(text.find("Timed out after 3s"), std::string::npos);
    // The coordinator is whole afterwards.
    EXPECT_NO_THROW(coordinator.coordinateReading("/x/race.pdf", 3.0, [](const stdfs::path&) {}));
}

TEST_F(CoordinatorTest, operationsOnOneCoordinatorNeverOverlap) {
    std::atomic<int> inside{0};
    std::atomic<int> most{0};
    std::vector<std::thread> callers;
    for (int i = 0; i < 6; ++i) {
        callers.emplace_back([&] {
            coordinator.coordinateReading("/x/f", 1000.0, [&](const stdfs::path&) {
                most = std::max(most.load(), ++inside);
                std::this_thread::yield();
                --inside;
            });
        });
    }
    for (auto& c : callers) c.join();
    EXPECT_EQ(most, 1);
}

// A provider whose answers a test sets, counting the questions it is asked.
class ScriptedProvider : public CloudFileResourceProviding {
public:
    bool ubiquitous = false;
    bool placeholder = false;
    bool startFails = false;
    // Statuses returned in turn; the last one repeats.
    std::vector<std::optional<UbiquitousDownloadingStatus>> statuses = {std::nullopt};
    mutable int statusReads = 0;

    bool isUbiquitousItem(const stdfs::path&) const override { return ubiquitous; }
    std::optional<UbiquitousDownloadingStatus> downloadingStatus(const stdfs::path&) const override {
        const auto i = std::min<std::size_t>(static_cast<std::size_t>(statusReads++), statuses.size() - 1);
        return statuses[i];
    }
    bool isPlaceholder(const stdfs::path&) const override { return placeholder; }
    void startDownloadingUbiquitousItem(const stdfs::path&) const override {
        if (startFails) throw std::runtime_error("no network");
    }
};

TEST(CloudFileMaterializer, downloadStateFollowsTheProvidersAnswers) {
    using S = UbiquitousDownloadingStatus;
    struct Case {
        const char* name;
        bool ubiquitous;
        std::optional<S> status;
        bool placeholder;
        CloudDownloadState expected;
        int statusReads;
    };
    const std::vector<Case> cases = {
        {"a local file is not asked for its status", false, S::current, false, CloudDownloadState::local, 0},
        {"a sparse stub of another provider", false, std::nullopt, true, CloudDownloadState::fileProviderItem, 0},
        {"iCloud, current", true, S::current, false, CloudDownloadState::materialized, 1},
        {"iCloud, downloaded", true, S::downloaded, false, CloudDownloadState::materialized, 1},
        {"iCloud, not downloaded", true, S::notDownloaded, false, CloudDownloadState::iCloudPlaceholder, 1},
        {"iCloud, no status", true, std::nullopt, true, CloudDownloadState::iCloudPlaceholder, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto provider = std::make_shared<ScriptedProvider>();
        provider->ubiquitous = c.ubiquitous;
        provider->statuses = {c.status};
        provider->placeholder = c.placeholder;
        CloudFileMaterializer materializer(provider, std::make_shared<FileCoordinator>(), std::make_shared<FakeClock>());
        EXPECT_EQ(materializer.downloadState("/x/f.pdf"), c.expected);
        EXPECT_EQ(provider->statusReads, c.statusReads);
    }
}

TEST(CloudFileMaterializer, thePollBacksOffExponentiallyUpToOneSecond) {
    using S = UbiquitousDownloadingStatus;
    const auto ms = [](int n) { return Clock::Duration(std::chrono::milliseconds(n)); };
    struct Case {
        const char* name;
        std::vector<std::optional<S>> statuses;
        double timeout;
        std::vector<Clock::Duration> sleeps;
        bool timesOut;
    };
    const std::vector<Case> cases = {
        {"current at the first look: no sleep", {S::current}, 60, {}, false},
        {"downloaded at the third look of the poll", {S::notDownloaded, S::notDownloaded, std::nullopt, S::downloaded}, 60, {ms(100), ms(200)}, false},
        {"never: 0.1 0.2 0.4 0.8 1.0 1.0, then the time-out",
         {S::notDownloaded},
         3,
         {ms(100), ms(200), ms(400), ms(800), ms(1000), ms(1000)},
         true},
        {"time-out 0: one look", {S::notDownloaded}, 0, {}, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto provider = std::make_shared<ScriptedProvider>();
        provider->ubiquitous = true;
        provider->statuses = c.statuses;
        auto clock = std::make_shared<FakeClock>();
        CloudFileMaterializer materializer(provider, std::make_shared<FileCoordinator>(clock), clock);
        if (c.timesOut) {
            EXPECT_EQ(failureText<CloudMaterializationError>([&] { materializer.materialize("/c/Notes.pages", c.timeout); }),
                      "Couldn't download Notes.pages from cloud storage \u2014 the download timed out.");
        } else {
            EXPECT_NO_THROW(materializer.materialize("/c/Notes.pages", c.timeout));
        }
        EXPECT_EQ(clock->sleeps(), c.sleeps);
        if (c.timeout == 0) {
            EXPECT_EQ(provider->statusReads, 2);  // the state, then one look
        }
    }
}

TEST(CloudFileMaterializer, aDownloadThatCannotStartFails) {
    auto provider = std::make_shared<ScriptedProvider>();
    provider->ubiquitous = true;
    provider->statuses = {UbiquitousDownloadingStatus::notDownloaded};
    provider->startFails = true;
    auto clock = std::make_shared<FakeClock>();
    CloudFileMaterializer materializer(provider, std::make_shared<FileCoordinator>(clock), clock);
    EXPECT_EQ(failureText<CloudMaterializationError>([&] { materializer.materialize("/c/a.key", 60); }),
              "Couldn't download a.key from cloud storage.");
}

TEST(DefaultCloudFileResourceProvider, aSparseFileWithoutBlocksIsAPlaceholderAndNothingIsUbiquitous) {
    TempDir dir;
    testing::writeFile(dir / "real.pdf", std::string(8192, 'x'));
    testing::writeFile(dir / "empty.pdf", "");
    {
        const int fd = ::open((dir / "stub.pdf").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(::ftruncate(fd, 1 << 20), 0);
        ::close(fd);
    }
    struct stat info {};
    ASSERT_EQ(::stat((dir / "stub.pdf").c_str(), &info), 0);
    if (info.st_blocks != 0) GTEST_SKIP() << "this file system allocates blocks for sparse files";
    CloudFileMaterializer materializer;
    EXPECT_EQ(materializer.downloadState(dir / "stub.pdf"), CloudDownloadState::fileProviderItem);
    EXPECT_EQ(materializer.downloadState(dir / "real.pdf"), CloudDownloadState::local);
    EXPECT_EQ(materializer.downloadState(dir / "empty.pdf"), CloudDownloadState::local);
    EXPECT_EQ(materializer.downloadState(dir / "missing.pdf"), CloudDownloadState::local);
    // Materializing the stub reads its first byte.
    EXPECT_NO_THROW(materializer.materialize(dir / "stub.pdf", 5.0));
}

TEST(CloudFileMaterializer, aProviderItemOnAHungMountFailsAfterTheTimeOut) {
    // Opening a pipe with no writer blocks, as a read on a hung FUSE mount does.
    TempDir dir;
    const auto fifo = dir / "hung.pdf";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    auto clock = std::make_shared<FakeClock>();
    CloudFileMaterializer materializer(std::make_shared<DefaultCloudFileResourceProvider>(),
                                       std::make_shared<FileCoordinator>(clock), clock);
    auto call = std::async(std::launch::async, [&] {
        return failureText<CloudMaterializationError>([&] { materializer.materializeFileProviderItem(fifo, 20.0); });
    });
    const int writer = openWriterOnceRead(fifo);
    clock->waitForPendingAlarms(1);
    clock->advance(20s);
    EXPECT_EQ(call.get(), "Couldn't download hung.pdf from cloud storage.");
    ::close(writer);  // the read ends, and the worker with the test
}

}  // namespace
}  // namespace tavrin
