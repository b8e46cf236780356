// The folder watcher on real directories and the real inotify, over the manual event loop: the
// kernel's events are real, and time moves only when the test advances the fake clock, so the
// debounce and stability rules are shown without sleeping.

#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <map>

#include "intake/folder_watcher.h"
#include "services/manual_event_loop.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

namespace stdfs = std::filesystem;
using namespace std::chrono_literals;
using testing::TempDir;

class FolderWatcherTest : public ::testing::Test {
protected:
    TempDir root;
    stdfs::path folder = root / "Import";
    ManualEventLoop loop;
    std::map<std::string, int> reports;  // name -> times reported
    std::vector<std::string> stops;
    std::unique_ptr<FolderWatcher> watcher;

    void SetUp() override { stdfs::create_directory(folder); }

    void watch(std::optional<FolderWatcher::HandledState> inherited = std::nullopt,
               std::shared_ptr<InotifyKernel> kernel = InotifyKernel::system()) {
        watcher = std::make_unique<FolderWatcher>(
            loop, folder, WatchedFolderIntakeDecider(2.0), 0.5, std::move(inherited),
            [this](std::vector<stdfs::path> urls) {
                for (const auto& url : urls) ++reports[url.filename().string()];
            },
            [this](const FolderWatchError& e) { stops.push_back(e.what()); }, std::move(kernel));
        auto problem = watcher->start();
        ASSERT_FALSE(problem) << problem->what();
    }
    // Delivers the kernel's queued events, then lets `fake` seconds of the loop's clock pass.
    void deliverThenWait(double fake) {
        loop.waitForDescriptors(50ms);
        loop.advance(seconds(fake));
    }
    void settle() {
        deliverThenWait(0.5);
        for (int i = 0; i < 3; ++i) loop.advance(seconds(2.0));
    }
    int reported(const std::string& name) const {
        auto found = reports.find(name);
        return found == reports.end() ? 0 : found->second;
    }
};

TEST_F(FolderWatcherTest, aNewFileIsReportedOnceTheStabilityIntervalAfterItsCloseAndTheBaselineNever) {
    testing::writeFile(folder / "old.jpg", "already here");
    watch();
    testing::writeFile(folder / "new.jpg", "arrived");
    deliverThenWait(0.5);
    EXPECT_EQ(reported("new.jpg"), 0) << "one sighting is not enough";
    loop.advance(seconds(1.4));
    EXPECT_EQ(reported("new.jpg"), 0) << "the interval is not over";
    loop.advance(seconds(0.1));
    EXPECT_EQ(reported("new.jpg"), 1) << "2 s after the close, not after the debounce";
    settle();
    EXPECT_EQ(reports, (std::map<std::string, int>{{"new.jpg", 1}}));
    EXPECT_EQ(loop.pendingTimerCount(), 0u) << "an idle watcher keeps no timer";
}

TEST_F(FolderWatcherTest, aSlowlyWrittenFileIsReportedOnceAfterItStopsGrowing) {
    // 1 KB every 200 ms for 10 s: written by a program that closes the file after each piece, and
    // by one that keeps it open (the kernel then says nothing after the creation).
    for (const bool keepsOpen : {false, true}) {
        reports.clear();
        watch();
        const auto path = folder / (keepsOpen ? "open.jpg" : "closed.jpg");
        std::ofstream held;
        if (keepsOpen) held.open(path, std::ios::binary);
        const std::string piece(1000, 'x');
        for (int i = 0; i < 50; ++i) {
            if (keepsOpen) {
                held << piece << std::flush;
            } else {
                std::ofstream(path, std::ios::binary | std::ios::app) << piece;
            }
            deliverThenWait(0.2);
            ASSERT_EQ(reported(path.filename().string()), 0) << "reported while growing, after piece " << i;
        }
        held.close();
        settle();
        EXPECT_EQ(reported(path.filename().string()), 1);
        EXPECT_EQ(stdfs::file_size(path), 50'000u);
        watcher.reset();
    }
}

TEST_F(FolderWatcherTest, aThousandFilesDroppedAtOnceAreEachReportedOnce) {
    watch();
    for (int i = 0; i < 1000; ++i) testing::writeFile(folder / ("photo" + std::to_string(i) + ".jpg"), "jpeg");
    settle();
    settle();
    ASSERT_EQ(reports.size(), 1000u);
    for (const auto& [name, count] : reports) EXPECT_EQ(count, 1) << name;
}

TEST_F(FolderWatcherTest, renamedInIsReportedAndRenamedOutIsForgotten) {
    watch();
    testing::writeFile(root / "outside.jpg", "made elsewhere");
    stdfs::rename(root / "outside.jpg", folder / "moved-in.jpg");
    testing::writeFile(folder / "leaving.jpg", "short stay");
    deliverThenWait(0.5);
    stdfs::rename(folder / "leaving.jpg", root / "left.jpg");
    settle();
    EXPECT_EQ(reports, (std::map<std::string, int>{{"moved-in.jpg", 1}}));
    EXPECT_TRUE(watcher->snapshotHandledState().pending.empty());

    // Gone and back under the same name: a new file.
    stdfs::remove(folder / "moved-in.jpg");
    deliverThenWait(0.5);
    testing::writeFile(folder / "moved-in.jpg", "written again");
    settle();
    EXPECT_EQ(reported("moved-in.jpg"), 2);
}

TEST_F(FolderWatcherTest, temporaryNamesOutputAndSubfoldersAreNeverReportedButTheFinalNameIs) {
    watch();
    const std::vector<std::string> neverReported{
        "photo.jpg.crdownload", "report.pdf.part", "~$board.docx", "scan.tmp",  ".hidden.jpg",
        "photo-clean.jpg",      "Memo-FINAL.PDF",  "notes.txt",    "clip.mov",
    };
    for (const auto& name : neverReported) testing::writeFile(folder / name, "bytes");
    stdfs::create_directory(folder / "album.jpg");
    settle();
    stdfs::rename(folder / "photo.jpg.crdownload", folder / "photo.jpg");
    settle();
    EXPECT_EQ(reports, (std::map<std::string, int>{{"photo.jpg", 1}}));
}

TEST_F(FolderWatcherTest, aDeletedOrRenamedFolderStopsItsWatcherWithAMessage) {
    struct Case {
        const char* what;
        std::function<void(const stdfs::path&)> act;
        const char* message;
    };
    const std::vector<Case> cases{
        {"deleted", [](const stdfs::path& p) { stdfs::remove_all(p); }, "the folder was deleted"},
        {"renamed", [&](const stdfs::path& p) { stdfs::rename(p, root / "Renamed"); }, "the folder was moved or renamed"},
    };
    for (const auto& c : cases) {
        stops.clear();
        stdfs::create_directories(folder);
        watch();
        c.act(folder);
        loop.waitForDescriptors(1s);
        loop.runPending();
        EXPECT_FALSE(watcher->isWatching()) << c.what;
        ASSERT_EQ(stops.size(), 1u) << c.what;
        EXPECT_NE(stops[0].find(c.message), std::string::npos) << stops[0];
        EXPECT_NE(stops[0].find(folder.string()), std::string::npos) << stops[0];
        watcher.reset();
    }
}

TEST_F(FolderWatcherTest, stopVoidsTheDelayedListing) {
    watch();
    testing::writeFile(folder / "late.jpg", "x");
    deliverThenWait(0.5);
    watcher->stop();
    settle();
    EXPECT_TRUE(reports.empty());
    EXPECT_EQ(loop.pendingTimerCount(), 0u);
}

TEST_F(FolderWatcherTest, aSuccessorWithTheHandledStateReportsNothingTwice) {
    watch();
    testing::writeFile(folder / "first.jpg", "x");
    settle();
    testing::writeFile(folder / "second.jpg", "y");
    deliverThenWait(0.5);  // second is under observation
    auto state = watcher->snapshotHandledState();
    watcher->stop();
    EXPECT_EQ(state.pending.count((folder / "second.jpg").string()), 1u);
    watcher.reset();

    watch(std::move(state));
    settle();
    EXPECT_EQ(reports, (std::map<std::string, int>{{"first.jpg", 1}, {"second.jpg", 1}}));
}

class RefusingKernel final : public InotifyKernel {
public:
    int initError = 0;
    int addError = 0;
    int init() override {
        if (initError) {
            errno = initError;
            return -1;
        }
        return InotifyKernel::system()->init();
    }
    int addWatch(int, const char*, std::uint32_t) override {
        errno = addError;
        return -1;
    }
};

TEST_F(FolderWatcherTest, kernelLimitsAreNamedAndLeaveTheFolderUnwatched) {
    struct Case {
        int initError;
        int addError;
        const char* mentions;
    };
    const std::vector<Case> cases{
        {0, ENOSPC, "fs.inotify.max_user_watches"},
        {EMFILE, 0, "fs.inotify.max_user_instances"},
        {0, EACCES, "Permission denied"},
    };
    for (const auto& c : cases) {
        auto kernel = std::make_shared<RefusingKernel>();
        kernel->initError = c.initError;
        kernel->addError = c.addError;
        FolderWatcher refused(loop, folder, WatchedFolderIntakeDecider(), 0.5, std::nullopt, {}, {}, kernel);
        const auto problem = refused.start();
        ASSERT_TRUE(problem) << c.mentions;
        EXPECT_NE(std::string(problem->what()).find(c.mentions), std::string::npos) << problem->what();
        EXPECT_FALSE(refused.isWatching());
    }
}

}  // namespace
}  // namespace tavrin
