// The supervisor over a real store file, the real engine and inotify, on the manual event loop:
// the master switch, the records, a change of rules that must not clean anything twice, a folder
// that is missing and comes back, and changes written by another process's connection.

#include <gtest/gtest.h>

#include <set>

#include "data/queries.h"
#include "data/shared_container.h"
#include "data/store_defaults.h"
#include "intake/instance_lock.h"
#include "intake/watched_folders_supervisor.h"
#include "services/manual_event_loop.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

namespace stdfs = std::filesystem;
using namespace std::chrono_literals;
using testing::TempDir;

const stdfs::path kPhoto = "samples/files/beach-photo.jpg";

class SupervisorTest : public ::testing::Test {
protected:
    TempDir dir;
    ManualEventLoop loop;
    std::shared_ptr<ModelContainer> store = ModelContainerFactory::atURL(dir / "Tavrin.store");
    std::mutex mutex;
    std::vector<std::string> cleaned;  // output names
    std::vector<std::string> notices;
    std::unique_ptr<WatchedFoldersSupervisor> supervisor;

    void SetUp() override {
        WatchedFoldersSupervisor::Events events;
        events.cleaned = [this](const CleanedFile& f) {
            std::lock_guard lock(mutex);
            cleaned.push_back(f.outputURL.filename().string());
        };
        events.notice = [this](const std::string& m) { notices.push_back(m); };
        supervisor = std::make_unique<WatchedFoldersSupervisor>(loop, store, std::make_shared<const TavrinEngine>(),
                                                                events, 2);
    }

    // Writes through a connection of its own, as `tavrin watch …` in another process does.
    void edit(const std::function<void(ModelContext&)>& change) {
        auto other = ModelContainerFactory::atURL(dir / "Tavrin.store");
        auto& context = other->mainContext();
        change(context);
        context.save();
    }
    void addFolder(const stdfs::path& path, bool enabled = true) {
        edit([&](ModelContext& context) {
            auto folder = std::make_shared<WatchedFolder>();
            folder->id = Uuid::random();
            folder->path = path.string();
            folder->isEnabled = enabled;
            context.insert(folder);
        });
    }
    void setting(const std::function<void(AppSettings&)>& change) {
        edit([&](ModelContext& context) { change(*currentOrNewSettings(context)); });
    }
    // Lets the store's change and the folders' events arrive and settle, then the cleaning end.
    void settle() {
        for (int i = 0; i < 3; ++i) {
            loop.waitForDescriptors(50ms);
            loop.advance(seconds(0.5));
            loop.advance(seconds(2.0));
        }
        supervisor->waitUntilIdle();
    }
    std::set<std::string> cleanedNames() {
        std::lock_guard lock(mutex);
        return {cleaned.begin(), cleaned.end()};
    }
};

TEST_F(SupervisorTest, theMasterSwitchAndEachRecordDecideWhatIsWatched) {
    stdfs::create_directories(dir / "on");
    stdfs::create_directories(dir / "paused");
    addFolder(dir / "on");
    addFolder(dir / "paused", false);
    supervisor->start();
    EXPECT_EQ(supervisor->runningWatcherCount(), 0u) << "off by default";

    setting([](AppSettings& s) { s.watchedFoldersEnabled = true; });
    settle();
    EXPECT_EQ(supervisor->runningWatcherCount(), 1u) << "the change was read from the store's events";
    stdfs::copy_file(kPhoto, dir / "on/a.jpg");
    stdfs::copy_file(kPhoto, dir / "paused/b.jpg");
    settle();
    EXPECT_EQ(cleanedNames(), (std::set<std::string>{"a-clean.jpg"}));

    setting([](AppSettings& s) { s.watchedFoldersEnabled = false; });
    settle();
    EXPECT_EQ(supervisor->runningWatcherCount(), 0u);
}

TEST_F(SupervisorTest, aNewCopySuffixRestartsTheWatcherWithoutCleaningAnythingTwice) {
    stdfs::create_directories(dir / "in");
    addFolder(dir / "in");
    setting([](AppSettings& s) { s.watchedFoldersEnabled = true; });
    supervisor->start();
    stdfs::copy_file(kPhoto, dir / "in/first.jpg");
    settle();
    // second.jpg is under observation when the rules change: the new watcher inherits it, where a
    // fresh one would take it for the baseline and never clean it.
    stdfs::copy_file(kPhoto, dir / "in/second.jpg");
    loop.waitForDescriptors(50ms);
    loop.advance(seconds(0.5));
    setting([](AppSettings& s) { s.setCleanCopySuffix(CleanCopySuffixKind::custom); s.cleanCopyCustomSuffix = "-safe"; });
    settle();
    stdfs::copy_file(kPhoto, dir / "in/third.jpg");
    settle();
    EXPECT_EQ(cleaned, (std::vector<std::string>{"first-clean.jpg", "second-safe.jpg", "third-safe.jpg"}));
}

TEST_F(SupervisorTest, aMissingFolderIsReportedOnceAndWatchedWhenItIsBack) {
    addFolder(dir / "later");
    setting([](AppSettings& s) { s.watchedFoldersEnabled = true; });
    supervisor->start();
    supervisor->reconcile();
    const auto missing = std::count_if(notices.begin(), notices.end(),
                                       [](const auto& m) { return m.find("Cannot watch") != std::string::npos; });
    EXPECT_EQ(missing, 1) << "retried quietly";
    stdfs::create_directories(dir / "later");
    supervisor->reconcile();
    EXPECT_EQ(supervisor->runningWatcherCount(), 1u);
    EXPECT_NE(notices.back().find("again"), std::string::npos) << notices.back();
}

TEST(InstanceLock, oneHolderAtATimeAndFreedWhenReleased) {
    TempDir runtime;
    ::setenv("XDG_RUNTIME_DIR", runtime.path().c_str(), 1);
    {
        auto first = InstanceLock::tryAcquire("test.lock");
        ASSERT_TRUE(first);
        EXPECT_EQ(first->path(), runtime / "test.lock");
        EXPECT_FALSE(InstanceLock::tryAcquire("test.lock"));
        EXPECT_TRUE(InstanceLock::isHeldElsewhere("test.lock"));
    }
    EXPECT_TRUE(InstanceLock::tryAcquire("test.lock"));
    ::unsetenv("XDG_RUNTIME_DIR");
}

}  // namespace
}  // namespace tavrin
