// The panes wired together as the main window uses them: one settings and one history window,
// the tray's pause reaching the watched folders' master switch, a change of settings reaching
// the watchers without a restart, the recent list of an in-memory store, and the tour once.

#include <QAction>
#include <QCheckBox>
#include <QMenu>

#include <gtest/gtest.h>

#include "desktop_panes.h"
#include "panes_test_support.h"
#include "qt_event_loop.h"

namespace tavrin {
namespace {

using namespace testing;
namespace stdfs = std::filesystem;

class MemoryTourPreferences final : public TourPreferences {
public:
    int version = 0;
    int lastCompletedVersion() const override { return version; }
    void setLastCompletedVersion(int v) override { version = v; }
    bool legacyOnboarded() const override { return false; }
};

struct PanesFixture : StoreFixture {
    TempDir runtime;
    FakeClock clock;
    QtEventLoop loop{clock};
    SpawnProgramLauncher launcher;
    MemoryTourPreferences tour;
    std::vector<stdfs::path> cleanedAgain;
    int raised = 0;
    std::unique_ptr<DesktopPanes> panes;

    PanesFixture() {
        ::setenv("XDG_RUNTIME_DIR", runtime.path().c_str(), 1);
        ::setenv("XDG_CONFIG_HOME", (dir / "config").c_str(), 1);
        panes = std::make_unique<DesktopPanes>(DesktopPanesContext{
            loop, store, context, notifier, presets, std::make_shared<const TavrinEngine>(), launcher, "/usr/bin/tavrin",
            "/usr/bin/tavrin-app", tour, QDBusConnection(QString()), [this] { ++raised; }, [] { return false; }, {},
            [this](const stdfs::path& p) { cleanedAgain.push_back(p); }, {}, {}, std::nullopt});
        panes->start();
    }
};

TEST(DesktopPanes, oneSettingsAndOneHistoryWindowAreMadeAndReused) {
    PanesFixture f;
    EXPECT_EQ(f.panes->settingsWindow(), nullptr) << "made on first use";
    f.panes->showSettings();
    auto* first = f.panes->settingsWindow();
    f.panes->showSettings(SettingsWindow::Pane::presets);
    EXPECT_EQ(f.panes->settingsWindow(), first);
    EXPECT_EQ(first->tabs()->currentIndex(), static_cast<int>(SettingsWindow::Pane::presets));
    f.panes->showHistory();
    auto* history = f.panes->historyWindow();
    f.panes->showHistory();
    EXPECT_EQ(f.panes->historyWindow(), history);
    first->close();
    ASSERT_TRUE(spinUntil([&] { return f.panes->settingsWindow() == nullptr; })) << "closed windows go";
}

TEST(DesktopPanes, theTraysPauseTurnsTheWatchedFoldersOffAndOnAgain) {
    PanesFixture f;
    stdfs::create_directories(f.dir / "Drop");
    f.panes->showSettings(SettingsWindow::Pane::watchedFolders);
    auto* pane = f.panes->settingsWindow()->watchedFolders();
    pane->masterSwitch()->setChecked(true);
    pane->addFolder(f.dir / "Drop");
    EXPECT_EQ(f.panes->watchedFolders().runningWatcherCount(), 1u);

    f.panes->tray().rebuild();
    auto actions = f.panes->tray().menu()->actions();
    auto pause = std::find_if(actions.begin(), actions.end(), [](QAction* a) { return a->text() == "Pause Watched Folders"; });
    ASSERT_NE(pause, actions.end());
    (*pause)->trigger();
    EXPECT_FALSE(f.panes->settings().current().watchedFoldersEnabled);
    EXPECT_EQ(f.panes->watchedFolders().runningWatcherCount(), 0u) << "no restart needed";
    EXPECT_FALSE(pane->masterSwitch()->isChecked()) << "the open pane follows";

    f.panes->tray().rebuild();
    actions = f.panes->tray().menu()->actions();
    auto resume = std::find_if(actions.begin(), actions.end(), [](QAction* a) { return a->text() == "Resume Watched Folders"; });
    ASSERT_NE(resume, actions.end());
    (*resume)->trigger();
    EXPECT_EQ(f.panes->watchedFolders().runningWatcherCount(), 1u);
}

TEST(DesktopPanes, theRecentListOfAStoreWithoutAFileReadsTheAppsContext) {
    PanesFixture f;
    auto record = std::make_shared<ProcessingHistory>();
    record->id = Uuid::random();
    record->fileName = "a.jpg";
    record->cleanedFilePath = (f.dir / "a-clean.jpg").string();
    record->originalFilePath = (f.dir / "a.jpg").string();
    writeFile(f.dir / "a.jpg", "x");
    f.context.insert(record);
    f.context.save();
    const auto items = f.panes->recentItems(5);
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].fileName, "a-clean.jpg");
    EXPECT_FALSE(items[0].canRevealOrDrag());
    EXPECT_TRUE(items[0].canCleanAgain());
    EXPECT_TRUE(f.panes->recentItems(0).empty());
}

TEST(DesktopPanes, theTourOpensOnceAtStart) {
    PanesFixture f;
    QWidget main;
    EXPECT_TRUE(f.panes->showWelcomeTourIfDue(&main));
    auto* tour = main.findChild<WelcomeTourDialog*>();
    ASSERT_NE(tour, nullptr);
    tour->finish();
    EXPECT_FALSE(f.panes->showWelcomeTourIfDue(&main));
}

}  // namespace
}  // namespace tavrin
