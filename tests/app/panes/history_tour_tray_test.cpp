// The history window, the welcome tour and the tray menu over real stores: one entry per output,
// what can be done with each entry while its files exist, the drag-out rule, clearing; the tour's
// versions and its steps; the tray's five recent files and its actions.

#include <QAction>
#include <QLabel>
#include <QMenu>
#include <QMimeData>
#include <QPushButton>
#include <QTreeWidget>

#include <gtest/gtest.h>

#include "data/queries.h"
#include "history_window.h"
#include "panes_test_support.h"
#include "tray_controller.h"
#include "welcome_tour_dialog.h"

namespace tavrin {
namespace {

using namespace testing;
namespace stdfs = std::filesystem;
using namespace std::chrono_literals;

struct HistoryFixture : StoreFixture {
    HistoryRecords records{context, notifier};
    std::vector<stdfs::path> shown, cleanedAgain;
    Date now = std::chrono::system_clock::now();

    std::shared_ptr<ProcessingHistory> add(const std::string& name, std::optional<stdfs::path> output,
                                           std::optional<stdfs::path> original, std::chrono::minutes ago,
                                           bool retained = true, std::int64_t before = 5000, std::int64_t after = 3000) {
        auto record = std::make_shared<ProcessingHistory>();
        record->id = Uuid::random();
        record->fileName = name;
        record->processedAt = now - ago;
        record->originalSize = before;
        record->cleanedSize = after;
        record->removedItemCount = 3;
        record->presetName = "Maximum Privacy";
        if (output) record->cleanedFilePath = output->string();
        if (original) record->originalFilePath = original->string();
        record->outputRetained = retained;
        context.insert(record);
        context.save();
        return record;
    }
    std::function<std::vector<RecentlyCleanedItem>(std::int64_t)> recent() {
        const auto url = dir / "Tavrin.store";
        return [url](std::int64_t limit) { return RecentlyCleanedStore(url).recentItems(limit); };
    }
    std::unique_ptr<HistoryWindow> window() {
        return std::make_unique<HistoryWindow>(HistoryWindowServices{
            recent(), records, [this](const stdfs::path& p) { shown.push_back(p); },
            [this](const stdfs::path& p) { cleanedAgain.push_back(p); }});
    }
};

TEST(HistoryWindow, recentEntriesAreOnePerOutputWithWhatCanStillBeDone) {
    HistoryFixture f;
    writeFile(f.dir / "report-clean.pdf", "pdf");
    writeFile(f.dir / "report.pdf", "pdf");
    f.add("report.pdf", f.dir / "report-clean.pdf", f.dir / "report.pdf", 30min);
    f.add("report.pdf", f.dir / "./report-clean.pdf", f.dir / "report.pdf", 5min);  // cleaned again: same output
    f.add("photo.jpg", f.dir / "gone-clean.jpg", f.dir / "gone.jpg", 10min);
    f.add("shared.docx", f.dir / "share/shared.docx", std::nullopt, 20min, false);
    auto window = f.window();
    auto* list = window->recentList();
    ASSERT_EQ(list->count(), 3);
    EXPECT_TRUE(list->item(0)->text().startsWith("report-clean.pdf\n"));
    EXPECT_TRUE(list->item(1)->text().contains("File no longer there")) << list->item(1)->text().toStdString();
    EXPECT_TRUE(list->item(2)->text().contains("Shared, not kept")) << list->item(2)->text().toStdString();

    list->setCurrentRow(0);
    EXPECT_TRUE(window->showInFolderButton()->isEnabled());
    EXPECT_TRUE(window->cleanAgainButton()->isEnabled());
    window->showInFolderButton()->click();
    window->cleanAgainButton()->click();
    EXPECT_EQ(f.shown, (std::vector<stdfs::path>{f.dir / "./report-clean.pdf"}));
    EXPECT_EQ(f.cleanedAgain, (std::vector<stdfs::path>{f.dir / "report.pdf"}));

    list->setCurrentRow(1);
    EXPECT_FALSE(window->showInFolderButton()->isEnabled());
    EXPECT_FALSE(window->cleanAgainButton()->isEnabled()) << "the original is gone too";
}

TEST(HistoryWindow, aDragCarriesTheCleanedFileAndIsRefusedInWordsOnceItIsGone) {
    HistoryFixture f;
    writeFile(f.dir / "notes-clean.txt", "x");
    f.add("notes.txt", f.dir / "notes-clean.txt", std::nullopt, 1min);
    auto window = f.window();
    const auto item = window->recentList()->items.at(0);
    std::string problem;
    std::unique_ptr<QMimeData> data(RecentFilesList::dragData(item, problem));
    ASSERT_TRUE(data);
    ASSERT_EQ(data->urls().size(), 1);
    EXPECT_EQ(data->urls()[0].toLocalFile().toStdString(), (f.dir / "notes-clean.txt").string());

    stdfs::remove(f.dir / "notes-clean.txt");
    data.reset(RecentFilesList::dragData(item, problem));
    EXPECT_FALSE(data);
    EXPECT_EQ(problem, "\u201Cnotes-clean.txt\u201D is no longer available to drag.");
}

TEST(HistoryWindow, theFullHistoryShowsSizesAndPresetAndIsClearedWithoutTouchingFiles) {
    HistoryFixture f;
    writeFile(f.dir / "a-clean.jpg", "x");
    f.add("a.jpg", f.dir / "a-clean.jpg", std::nullopt, 1min, true, 2'400'000, 400'000);
    f.add("b.pdf", std::nullopt, std::nullopt, 2min, true, 1000, 1200);  // grew: nothing saved
    auto window = f.window();
    auto* table = window->historyTable();
    ASSERT_EQ(table->topLevelItemCount(), 2);
    const auto* first = table->topLevelItem(0);
    EXPECT_EQ(first->text(0), "a.jpg");
    EXPECT_EQ(first->text(2), "Maximum Privacy");
    EXPECT_EQ(first->text(4), "2.4 MB");
    EXPECT_EQ(first->text(5), "400 KB");
    EXPECT_EQ(first->text(6), "2 MB");
    EXPECT_EQ(table->topLevelItem(1)->text(6), "0 bytes");

    table->sortByColumn(6, Qt::DescendingOrder);
    EXPECT_EQ(table->topLevelItem(0)->text(0), "a.jpg") << "2 MB saved sorts above 0 bytes by value, not by text";
    table->sortByColumn(4, Qt::AscendingOrder);
    EXPECT_EQ(table->topLevelItem(0)->text(0), "b.pdf") << "1 KB before 2.4 MB";

    window->clearHistory(true);
    EXPECT_EQ(table->topLevelItemCount(), 0);
    EXPECT_EQ(window->recentList()->count(), 0);
    EXPECT_TRUE(f.reopen()->mainContext().fetch(HistoryQueries::recent()).empty());
    EXPECT_TRUE(stdfs::exists(f.dir / "a-clean.jpg"));
    EXPECT_FALSE(window->clearButton()->isEnabled());
}

TEST(HistoryWindow, everyControlHasAnAccessibleName) {
    HistoryFixture f;
    auto window = f.window();
    EXPECT_EQ(unnamedControls(window.get()), std::vector<std::string>{});
}

class MemoryTourPreferences final : public TourPreferences {
public:
    int version = 0;
    bool legacy = false;
    int writes = 0;
    int lastCompletedVersion() const override { return version; }
    void setLastCompletedVersion(int v) override {
        version = v;
        ++writes;
    }
    bool legacyOnboarded() const override { return legacy; }
};

TEST(WelcomeTour, showsOnceForEachVersionAndNotToUsersOfTheEarlierOnboarding) {
    struct Case {
        int persisted;
        bool legacy;
        bool shows;
        int storedAfter;
    };
    const Case cases[] = {{0, false, true, 0}, {0, true, false, 1}, {1, false, false, 1}, {1, true, false, 1},
                          {2, false, false, 2}};
    for (const auto& c : cases) {
        MemoryTourPreferences preferences;
        preferences.version = c.persisted;
        preferences.legacy = c.legacy;
        EXPECT_EQ(shouldShowWelcomeTour(preferences), c.shows) << c.persisted << c.legacy;
        EXPECT_EQ(preferences.version, c.storedAfter);
    }
}

TEST(WelcomeTour, theVersionIsKeptInTheAppsPreferencesFile) {
    application();
    TempDir dir;
    const auto path = QString::fromStdString((dir / "tavrin-app.conf").string());
    {
        FileTourPreferences preferences(path);
        EXPECT_TRUE(shouldShowWelcomeTour(preferences));
        WelcomeTourDialog tour(preferences, CleanOutputMode::copy);
        tour.finish();
    }
    FileTourPreferences again(path);
    EXPECT_FALSE(shouldShowWelcomeTour(again));
    EXPECT_NE(readFile(dir / "tavrin-app.conf").find("tvLastCompletedTourVersion=1"), std::string::npos);
}

std::vector<std::string> cardTitles(QWidget* page) {
    std::vector<std::string> titles;
    for (auto* frame : page->findChildren<QFrame*>())
        if (!frame->accessibleName().isEmpty()) titles.push_back(frame->accessibleName().toStdString());
    return titles;
}

TEST(WelcomeTour, walksItsFiveStepsAndTheCleanCardsFollowTheOutputMode) {
    application();
    MemoryTourPreferences preferences;
    WelcomeTourDialog tour(preferences, CleanOutputMode::inPlace);
    EXPECT_FALSE(tour.backButton()->isEnabled());
    EXPECT_EQ(tour.titleLabel()->text(), "Clean metadata, protect your sources");
    EXPECT_EQ(cardTitles(tour.currentPage()),
              (std::vector<std::string>{"Removes what identifies you", "Private & offline", "Handles your files"}));
    tour.next();
    EXPECT_EQ(tour.step(), WelcomeTourStep::cleanAFile);
    bool inPlaceIsDefault = false;
    for (auto* label : tour.currentPage()->findChildren<QLabel*>())
        if (label->text() == "Overwrites the file where it sits. This is your current default.") inPlaceIsDefault = true;
    EXPECT_TRUE(inPlaceIsDefault);
    tour.next();
    tour.next();
    EXPECT_EQ(tour.step(), WelcomeTourStep::finderSetup);
    EXPECT_EQ(tour.titleLabel()->text(), "Set up your file manager & system menus");
    tour.next();
    EXPECT_EQ(tour.nextButton()->text(), "&Get Started");
    EXPECT_EQ(preferences.writes, 0) << "not completed until the end";
    tour.next();
    EXPECT_EQ(preferences.version, WelcomeTourModel::currentVersion);
    EXPECT_EQ(tour.result(), QDialog::Accepted);

    MemoryTourPreferences other;
    WelcomeTourDialog copyTour(other, CleanOutputMode::copy, [] {});
    EXPECT_EQ(unnamedControls(&copyTour), std::vector<std::string>{});
    copyTour.goTo(WelcomeTourStep::cleanAFile);
    bool copyIsDefault = false;
    for (auto* label : copyTour.currentPage()->findChildren<QLabel*>())
        if (label->text() == "Writes a fresh clean copy and keeps your original. This is your current default.")
            copyIsDefault = true;
    EXPECT_TRUE(copyIsDefault);
}

std::vector<std::string> menuTexts(const QMenu* menu) {
    std::vector<std::string> texts;
    for (auto* action : menu->actions()) texts.push_back(action->isSeparator() ? "--" : action->text().toStdString());
    return texts;
}

TEST(TrayController, theMenuListsTheLastFiveCleanedFilesAndItsActions) {
    HistoryFixture f;
    for (int i = 0; i < 7; ++i) {
        const auto name = "file" + std::to_string(i) + "-clean.txt";
        if (i != 1) writeFile(f.dir / name, "x");
        f.add(name, f.dir / name, std::nullopt, std::chrono::minutes(i));
    }
    bool paused = false;
    int opened = 0, cleanFiles = 0, quit = 0;
    TrayController tray(TrayCallbacks{[&] { ++opened; }, [&] { ++cleanFiles; },
                                      [&](const stdfs::path& p) { f.shown.push_back(p); }, f.recent(),
                                      [&] { return paused; }, [&](bool p) { paused = p; }, [&] { ++quit; }});
    EXPECT_EQ(menuTexts(tray.menu()),
              (std::vector<std::string>{"Open Tavrin", "--", "Recently Cleaned", "file0-clean.txt", "file1-clean.txt",
                                        "file2-clean.txt", "file3-clean.txt", "file4-clean.txt", "--",
                                        "Clean Files\u2026", "Pause Watched Folders", "--", "Quit"}));
    const auto actions = tray.menu()->actions();
    EXPECT_FALSE(actions[4]->isEnabled()) << "a file that is gone cannot be shown";
    actions[3]->trigger();
    EXPECT_EQ(f.shown, (std::vector<stdfs::path>{f.dir / "file0-clean.txt"}));
    actions[0]->trigger();
    actions[9]->trigger();
    actions[10]->trigger();
    EXPECT_TRUE(paused);
    tray.rebuild();
    EXPECT_EQ(tray.menu()->actions()[10]->text(), "Resume Watched Folders");
    tray.menu()->actions().back()->trigger();
    EXPECT_EQ(opened, 1);
    EXPECT_EQ(cleanFiles, 1);
    EXPECT_EQ(quit, 1);
}

TEST(TrayController, anEmptyHistorySaysSo) {
    HistoryFixture f;
    TrayController tray(TrayCallbacks{{}, {}, {}, f.recent(), {}, {}, {}});
    const auto texts = menuTexts(tray.menu());
    EXPECT_EQ(texts[2], "No Recently Cleaned Files");
    EXPECT_FALSE(tray.menu()->actions()[2]->isEnabled());
}

}  // namespace
}  // namespace tavrin
