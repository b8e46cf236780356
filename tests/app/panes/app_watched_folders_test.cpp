// The app's own watching, on Qt's loop with a clock moved by hand: a folder added in the settings
// window is watched and a new file in it is cleaned beside it (real inotify, the real engine);
// the batch's end is reported once; while the background service holds the lock, the app leaves
// the folders to it and takes over when the service ends.

#include <QCheckBox>
#include <QCoreApplication>
#include <QTreeWidget>

#include <gtest/gtest.h>

#include "app_watched_folders.h"
#include "data/store_defaults.h"
#include "panes_test_support.h"
#include "qt_event_loop.h"
#include "settings_access.h"
#include "watched_folder_records.h"
#include "watched_folders_pane.h"

namespace tavrin {
namespace {

using namespace testing;
namespace stdfs = std::filesystem;

const stdfs::path kPhoto = "samples/files/beach-photo.jpg";

struct WatchFixture : StoreFixture {
    TempDir runtime;
    FakeClock clock;
    QtEventLoop loop{clock};
    SettingsAccess settings{context, notifier};
    WatchedFolderRecords records{context, notifier};
    std::vector<RunReport> batches;
    std::string lockName = "tavrin-watch-" + Uuid::random().uuidString() + ".lock";
    std::unique_ptr<AppWatchedFolders> watching;

    WatchFixture() {
        ::setenv("XDG_RUNTIME_DIR", runtime.path().c_str(), 1);
        AppWatchedFolders::Options options;
        options.lockName = lockName;
        watching = std::make_unique<AppWatchedFolders>(
            loop, store, std::make_shared<const TavrinEngine>(), [this](const RunReport& r) { batches.push_back(r); },
            options);
    }
    // Lets Qt deliver what arrived, then moves the loop's clock on, until `done`.
    template <typename Done>
    bool runUntil(Done done) {
        for (int i = 0; i < 400 && !done(); ++i) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
            clock.advance(seconds(0.25));
            if (i % 8 == 7) watching->waitUntilIdle();
        }
        return done();
    }
};

TEST(AppWatchedFolders, aFolderAddedInTheSettingsIsCleanedByTheAppsOwnWatcher) {
    WatchFixture f;
    stdfs::create_directories(f.dir / "Drop");
    f.watching->start();
    ASSERT_TRUE(f.watching->isRunningHere());
    WatchedFoldersPane pane(f.settings, f.records, f.watching.get(), {});
    pane.masterSwitch()->setChecked(true);
    pane.addFolder(f.dir / "Drop");
    EXPECT_EQ(f.watching->runningWatcherCount(), 1u) << "no restart needed";
    EXPECT_EQ(pane.folderList()->topLevelItem(0)->text(1), "Watching");

    stdfs::copy_file(kPhoto, f.dir / "Drop/holiday.jpg");
    ASSERT_TRUE(f.runUntil([&] { return !f.batches.empty(); }));
    EXPECT_TRUE(stdfs::exists(f.dir / "Drop/holiday-clean.jpg"));
    ASSERT_EQ(f.batches.size(), 1u);
    EXPECT_EQ(f.batches[0].cleaned, (std::vector<stdfs::path>{f.dir / "Drop/holiday-clean.jpg"}));
    EXPECT_TRUE(f.batches[0].failed.empty());
    EXPECT_EQ(f.watching->recentlyCleaned((f.dir / "Drop").string()),
              (std::vector<stdfs::path>{f.dir / "Drop/holiday-clean.jpg"}));
    EXPECT_EQ(pane.folderList()->topLevelItem(0)->text(2), "holiday-clean.jpg");
    EXPECT_EQ(stdfs::file_size(kPhoto), stdfs::file_size(f.dir / "Drop/holiday.jpg")) << "the original is untouched";
}

TEST(AppWatchedFolders, aPausedFolderIsNotCleanedAndTheMasterSwitchStopsEverything) {
    WatchFixture f;
    stdfs::create_directories(f.dir / "Drop");
    f.settings.update([](AppSettings& s) { s.watchedFoldersEnabled = true; });
    auto folder = f.records.add(f.dir / "Drop");
    f.watching->start();
    EXPECT_EQ(f.watching->runningWatcherCount(), 1u);
    f.records.setEnabled(folder, false);
    f.watching->reconcile();
    EXPECT_EQ(f.watching->runningWatcherCount(), 0u);
    EXPECT_EQ(f.watching->state(*folder, true), WatchedFolderState::paused);
    f.records.setEnabled(folder, true);
    f.settings.update([](AppSettings& s) { s.watchedFoldersEnabled = false; });
    f.watching->reconcile();
    EXPECT_EQ(f.watching->runningWatcherCount(), 0u);
    EXPECT_EQ(f.watching->state(*folder, false), WatchedFolderState::off);
}

TEST(AppWatchedFolders, whileTheServiceHoldsTheLockTheAppLeavesTheFoldersToItAndTakesOverAfter) {
    WatchFixture f;
    stdfs::create_directories(f.dir / "Drop");
    f.settings.update([](AppSettings& s) { s.watchedFoldersEnabled = true; });
    auto folder = f.records.add(f.dir / "Drop");
    auto service = InstanceLock::tryAcquire(f.lockName);
    ASSERT_TRUE(service);
    f.watching->start();
    EXPECT_TRUE(f.watching->isRunByService());
    EXPECT_EQ(f.watching->runningWatcherCount(), 0u);
    EXPECT_EQ(f.watching->state(*folder, true), WatchedFolderState::runByService);
    WatchedFoldersPane pane(f.settings, f.records, f.watching.get(), {});
    EXPECT_EQ(pane.folderList()->topLevelItem(0)->text(1), "Run by the background service");

    f.clock.advance(seconds(6));
    QCoreApplication::processEvents();
    EXPECT_TRUE(f.watching->isRunByService()) << "the service still runs";
    service.reset();
    ASSERT_TRUE(f.runUntil([&] { return f.watching->isRunningHere(); }));
    EXPECT_EQ(f.watching->runningWatcherCount(), 1u);
    EXPECT_EQ(pane.folderList()->topLevelItem(0)->text(1), "Watching");
    EXPECT_FALSE(InstanceLock::tryAcquire(f.lockName)) << "now the app holds it, so the service cannot start too";
}

}  // namespace
}  // namespace tavrin
