// The settings panes over a real store: each control saves its setting at once and another
// connection reads it; the copy suffix is checked by the naming rules, word for word; starters
// cannot be changed and every refusal shows in words; watched folders are added, paused and
// removed with their states; the file-manager buttons run `tavrin integrate`.

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QTabWidget>
#include <QTest>
#include <QTreeWidget>

#include <gtest/gtest.h>

#include <mutex>

#include "data/queries.h"
#include "data/store_defaults.h"
#include "panes_test_support.h"
#include "settings_window.h"

namespace tavrin {
namespace {

using namespace testing;
namespace stdfs = std::filesystem;

AppSettings storedSettings(const StoreFixture& f) {
    auto other = f.reopen();
    auto settings = currentSettings(other->mainContext());
    return settings ? *settings : *AppSettings::makeDefault();
}

class RecordingLauncher final : public ProgramLauncher {
public:
    bool isInstalled(std::string_view) const override { return true; }
    bool launch(const std::vector<std::string>& argv) override {
        std::lock_guard lock(mutex);
        runs.push_back(argv);
        return true;
    }
    std::optional<int> run(const std::vector<std::string>& argv) override {
        std::lock_guard lock(mutex);
        runs.push_back(argv);
        return exitStatus;
    }
    std::mutex mutex;
    std::vector<std::vector<std::string>> runs;
    std::optional<int> exitStatus = 0;
};

struct SettingsFixture : StoreFixture {
    SettingsAccess settings{context, notifier};
    WatchedFolderRecords folders{context, notifier};
    RecordingLauncher launcher;
    IntegrationStatus installed;
    std::optional<stdfs::path> chosenFolder;
    std::unique_ptr<SettingsWindow> window;

    explicit SettingsFixture(bool withAutostart = true) {
        std::optional<AutostartEntry> autostart;
        if (withAutostart) autostart.emplace(dir / "config", "/opt/tavrin/bin/tavrin-app");
        window = std::make_unique<SettingsWindow>(SettingsWindowServices{
            settings, presets, folders, nullptr, launcher, "/opt/tavrin/bin/tavrin", [this] { return installed; },
            autostart, [this](QWidget*) { return chosenFolder; }});
    }
};

TEST(GeneralPane, eachControlSavesItsSettingAtOnceAndAnnouncesIt) {
    SettingsFixture f;
    auto* pane = f.window->general();
    int heard = 0;
    f.settings.addListener([&](const AppSettings&) { ++heard; });

    pane->outputModeBox()->setCurrentIndex(pane->outputModeBox()->findText("Clean in Place"));
    pane->concurrencyBox()->setValue(7);
    pane->stripEditHistoryBox()->setChecked(true);
    pane->emailClientBox()->setCurrentIndex(pane->emailClientBox()->findText("Evolution"));
    pane->trayIconBox()->setChecked(true);
    pane->applyDefaultPresetBox()->setChecked(true);
    pane->defaultPresetBox()->setCurrentIndex(pane->defaultPresetBox()->findText("Location Only"));
    pane->suffixBox()->setCurrentIndex(pane->suffixBox()->findText("-final"));

    const auto stored = storedSettings(f);
    EXPECT_EQ(stored.cleanOutputMode(), CleanOutputMode::inPlace);
    EXPECT_EQ(stored.maxConcurrentProcessing(), 7);
    EXPECT_TRUE(stored.stripEditHistoryInPlace);
    EXPECT_EQ(stored.preferredEmailClient(), PreferredEmailClient::evolution);
    EXPECT_TRUE(stored.showMenuBarIcon);
    EXPECT_TRUE(stored.autoProcessOnAdd);
    ASSERT_TRUE(stored.defaultPresetId);
    EXPECT_EQ(*stored.defaultPresetId, MetadataPreset::locationOnlyID());
    EXPECT_EQ(stored.cleanCopySuffix(), CleanCopySuffixKind::final);
    EXPECT_EQ(heard, 8);
    EXPECT_EQ(f.notifier->queueUpdated, 8) << "other processes are told to read again";
}

TEST(GeneralPane, concurrencyIsOfferedFromOneToEight) {
    SettingsFixture f;
    EXPECT_EQ(f.window->general()->concurrencyBox()->minimum(), 1);
    EXPECT_EQ(f.window->general()->concurrencyBox()->maximum(), 8);
    EXPECT_EQ(f.window->general()->concurrencyBox()->value(), 4);
}

TEST(GeneralPane, aCustomSuffixIsCheckedByTheNamingRulesAndOnlyAValidOneIsSaved) {
    struct Case {
        const char* typed;
        const char* error;  // empty: accepted
    };
    const Case cases[] = {
        {"-redacted", ""},
        {"", "Enter a name for the clean copy."},
        {"   ", "Enter a name for the clean copy."},
        {"-a/b", "The name can\u2019t contain \u201C/\u201D or \u201C:\u201D."},
        {"x:y", "The name can\u2019t contain \u201C/\u201D or \u201C:\u201D."},
        {"..", "Enter a different name for the clean copy."},
        {" _safe ", ""},
    };
    SettingsFixture f;
    auto* pane = f.window->general();
    pane->suffixBox()->setCurrentIndex(pane->suffixBox()->findText("Custom\u2026"));
    EXPECT_TRUE(pane->customSuffixField()->isEnabled());
    std::string lastValid = "-clean";
    for (const auto& c : cases) {
        pane->customSuffixField()->setText(QString::fromUtf8(c.typed));
        emit pane->customSuffixField()->textEdited(QString::fromUtf8(c.typed));
        EXPECT_EQ(pane->suffixErrorLabel()->text().toStdString(), c.error) << c.typed;
        if (!*c.error) lastValid = c.typed;
        EXPECT_EQ(storedSettings(f).cleanCopyCustomSuffix, lastValid) << c.typed;
    }
    EXPECT_EQ(storedSettings(f).cleanCopySuffix(), CleanCopySuffixKind::custom);
}

TEST(GeneralPane, launchAtLoginWritesAndRemovesTheAutostartEntry) {
    SettingsFixture f;
    auto* box = f.window->general()->launchAtLoginBox();
    const auto entry = f.dir / "config/autostart/com.tavrin.Tavrin.desktop";
    box->setChecked(true);
    ASSERT_TRUE(stdfs::exists(entry));
    const auto text = readFile(entry);
    EXPECT_NE(text.find("Exec=/opt/tavrin/bin/tavrin-app --background\n"), std::string::npos) << text;
    EXPECT_NE(text.find("Type=Application\n"), std::string::npos);
    EXPECT_TRUE(storedSettings(f).launchAtLogin);
    box->setChecked(false);
    EXPECT_FALSE(stdfs::exists(entry));
    EXPECT_FALSE(storedSettings(f).launchAtLogin);
}

TEST(GeneralPane, anAutostartEntryThatCannotBeWrittenIsReportedAndTheBoxGoesBack) {
    SettingsFixture f;
    writeFile(f.dir / "config", "a file where the folder should be");
    auto* box = f.window->general()->launchAtLoginBox();
    box->setChecked(true);
    EXPECT_FALSE(box->isChecked());
    EXPECT_TRUE(f.window->general()->problemLabel()->text().startsWith("Cannot create"))
        << f.window->general()->problemLabel()->text().toStdString();
    EXPECT_FALSE(storedSettings(f).launchAtLogin);
}

TEST(GeneralPane, aChangeMadeByAnotherProcessShowsOnReload) {
    SettingsFixture f;
    {
        auto other = f.reopen();
        currentOrNewSettings(other->mainContext())->setMaxConcurrentProcessing(2);
        other->mainContext().save();
    }
    f.window->reload();
    EXPECT_EQ(f.window->general()->concurrencyBox()->value(), 2);
}

TEST(PresetsPane, startersComeFirstAndAreLockedWithTheServiceRuleAndDuplicateAtHand) {
    SettingsFixture f;
    f.presets.createPreset("Aardvark", {MetadataCategory::location}, {}, {});
    auto* pane = f.window->presets();
    pane->reload();
    ASSERT_EQ(pane->list()->count(), 4);
    EXPECT_TRUE(pane->list()->item(3)->text().startsWith("Aardvark")) << "custom after the starters, whatever the name";
    pane->list()->setCurrentRow(0);
    ASSERT_TRUE(pane->selectedPreset()->isBuiltIn);
    EXPECT_TRUE(pane->nameField()->isReadOnly());
    EXPECT_FALSE(pane->saveButton()->isEnabled());
    EXPECT_FALSE(pane->categoryBox(MetadataCategory::location)->isEnabled());
    EXPECT_EQ(pane->lockedLabel()->text().toStdString(),
              "Starter presets cannot be modified. Duplicate it to create a custom version.");
    EXPECT_TRUE(pane->duplicateButton()->isEnabled());
}

TEST(PresetsPane, everyRefusalOfTheServiceShowsInWords) {
    SettingsFixture f;
    f.presets.createPreset("Court filing", {MetadataCategory::authorIdentity}, {}, {});
    auto mine = f.presets.createPreset("Press kit", {MetadataCategory::location}, {}, {});
    auto* pane = f.window->presets();
    pane->reload();

    pane->list()->setCurrentRow(0);
    pane->deleteSelected();
    EXPECT_EQ(pane->messageLabel()->text().toStdString(), "Starter presets cannot be deleted.");
    EXPECT_EQ(f.presets.fetchAllPresets().size(), 5u);

    pane->select(mine->id);
    pane->nameField()->setText("  court FILING ");
    pane->saveSelected();
    EXPECT_EQ(pane->messageLabel()->text().toStdString(), "A preset named \"court FILING\" already exists.");
    EXPECT_EQ(f.presets.fetchPreset(mine->id)->name, "Press kit");
}

TEST(PresetsPane, aCustomPresetIsRenamedAndItsCategoriesAndKeysSaved) {
    SettingsFixture f;
    auto mine = f.presets.createPreset("Press kit", {MetadataCategory::location}, {}, {});
    auto* pane = f.window->presets();
    pane->reload();
    pane->select(mine->id);
    pane->nameField()->setText("Press kit 2025");
    pane->categoryBox(MetadataCategory::location)->setChecked(false);
    pane->categoryBox(MetadataCategory::authorIdentity)->setChecked(true);
    pane->categoryBox(MetadataCategory::timestamps)->setChecked(true);
    pane->keysToRemoveField()->setPlainText("exif.Artist\n\n  xmp.dc.creator  \nexif.Artist");
    pane->keysToKeepField()->setPlainText("tiff.Orientation");
    QTest::mouseClick(pane->saveButton(), Qt::LeftButton);

    auto other = f.reopen();
    auto stored = other->mainContext().fetch(PresetQueries::preset(mine->id)).front();
    EXPECT_EQ(stored->name, "Press kit 2025");
    EXPECT_EQ(stored->categoriesToRemove(),
              (std::set<MetadataCategory>{MetadataCategory::authorIdentity, MetadataCategory::timestamps}));
    EXPECT_EQ(stored->specificKeysToRemove, (std::vector<std::string>{"exif.Artist", "xmp.dc.creator"}));
    EXPECT_EQ(stored->specificKeysToKeep, (std::vector<std::string>{"tiff.Orientation"}));
    EXPECT_TRUE(pane->messageLabel()->text().isEmpty());
    EXPECT_GE(f.notifier->presetChanged, 2);
}

TEST(PresetsPane, editsNotYetSavedSurviveAReloadForAnotherProcesssChange) {
    SettingsFixture f;
    auto mine = f.presets.createPreset("Press kit", {MetadataCategory::location}, {}, {});
    auto* pane = f.window->presets();
    pane->reload();
    pane->select(mine->id);
    pane->nameField()->setText("Press kit (draft)");
    pane->categoryBox(MetadataCategory::timestamps)->setChecked(true);
    {
        auto other = f.reopen();
        PresetService(other->mainContext(), std::make_shared<SilentChangeNotifier>())
            .createPreset("Made in a terminal", {}, {}, {});
    }
    pane->reload();
    EXPECT_EQ(pane->list()->count(), 5) << "the other process's preset shows";
    EXPECT_EQ(pane->nameField()->text(), "Press kit (draft)");
    EXPECT_TRUE(pane->categoryBox(MetadataCategory::timestamps)->isChecked());
    pane->saveSelected();
    EXPECT_FALSE(pane->hasUnsavedEdits());
    EXPECT_EQ(f.presets.fetchPreset(mine->id)->name, "Press kit (draft)");
}

TEST(PresetsPane, newAndDuplicatedPresetsTakeNamesOfTheirOwn) {
    SettingsFixture f;
    auto* pane = f.window->presets();
    pane->createPreset();
    pane->createPreset();
    pane->list()->setCurrentRow(0);
    const auto starter = pane->selectedPreset()->name;
    pane->duplicateSelected();
    pane->list()->setCurrentRow(0);
    pane->duplicateSelected();
    std::vector<std::string> custom;
    for (const auto& p : f.presets.fetchCustomPresets()) custom.push_back(p->name);
    std::sort(custom.begin(), custom.end());
    EXPECT_EQ(custom, (std::vector<std::string>{starter + " (Copy)", starter + " (Copy) 2", "Untitled Preset",
                                                "Untitled Preset 2"}));
    EXPECT_FALSE(pane->selectedPreset()->isBuiltIn) << "the copy is selected, ready to edit";
    EXPECT_FALSE(pane->nameField()->isReadOnly());
}

TEST(PresetsPane, deletingACustomPresetRemovesItFromTheListAndTheDefaultPresetMenu) {
    SettingsFixture f;
    auto mine = f.presets.createPreset("Press kit", {MetadataCategory::location}, {}, {});
    f.window->reload();
    EXPECT_GE(f.window->general()->defaultPresetBox()->findText("Press kit"), 0);
    f.window->presets()->select(mine->id);
    QTest::mouseClick(f.window->presets()->deleteButton(), Qt::LeftButton);
    EXPECT_EQ(f.presets.fetchPreset(mine->id), nullptr);
    f.window->showPane(SettingsWindow::Pane::watchedFolders);
    f.window->showPane(SettingsWindow::Pane::general);
    EXPECT_LT(f.window->general()->defaultPresetBox()->findText("Press kit"), 0);
}

QString stateOf(const WatchedFoldersPane* pane, int row) { return pane->folderList()->topLevelItem(row)->text(1); }

TEST(WatchedFoldersPane, foldersAreAddedPausedAndRemovedWithTheirStates) {
    SettingsFixture f;
    stdfs::create_directories(f.dir / "Inbox");
    stdfs::create_directories(f.dir / "Scans");
    auto* pane = f.window->watchedFolders();
    f.chosenFolder = f.dir / "Inbox";
    f.window->showPane(SettingsWindow::Pane::watchedFolders);
    QTest::mouseClick(pane->addButton(), Qt::LeftButton);
    pane->addFolder(f.dir / "Scans");
    pane->addFolder(f.dir / "Scans");
    ASSERT_EQ(pane->folderList()->topLevelItemCount(), 2) << "a folder listed twice is one record";
    EXPECT_EQ(stateOf(pane, 0), "Off") << "the master switch is off by default";

    pane->masterSwitch()->setChecked(true);
    EXPECT_TRUE(storedSettings(f).watchedFoldersEnabled);
    EXPECT_EQ(stateOf(pane, 0), "Watching");

    pane->folderList()->setCurrentItem(pane->folderList()->topLevelItem(1));
    QTest::mouseClick(pane->pauseButton(), Qt::LeftButton);
    EXPECT_EQ(stateOf(pane, 1), "Paused");
    EXPECT_EQ(pane->pauseButton()->text(), "Res&ume");
    auto other = f.reopen();
    const auto stored = other->mainContext().fetch(WatchedFolderQueries::allFolders());
    ASSERT_EQ(stored.size(), 2u);
    EXPECT_TRUE(stored[0]->isEnabled);
    EXPECT_FALSE(stored[1]->isEnabled);

    stdfs::remove(f.dir / "Inbox");
    pane->reload();
    EXPECT_EQ(stateOf(pane, 0), "Folder missing");

    pane->folderList()->setCurrentItem(pane->folderList()->topLevelItem(0));
    pane->removeSelected();
    EXPECT_EQ(pane->folderList()->topLevelItemCount(), 1);
}

TEST(WatchedFoldersPane, somethingThatIsNoFolderIsRefusedInWords) {
    SettingsFixture f;
    writeFile(f.dir / "note.txt", "x");
    f.window->watchedFolders()->addFolder(f.dir / "note.txt");
    EXPECT_EQ(f.window->watchedFolders()->statusLabel()->text().toStdString(),
              "\u201C" + (f.dir / "note.txt").string() + "\u201D is not a folder");
    EXPECT_EQ(f.window->watchedFolders()->folderList()->topLevelItemCount(), 0);
}

TEST(FileManagerPane, showsEachRouteLiveAndRunsTheIntegrateCommand) {
    SettingsFixture f;
    f.installed.routes = {false, false, false};
    auto* pane = f.window->fileManager();
    pane->recheck();
    EXPECT_EQ(pane->statusLabel(FinderSetupRoute::fileManagerMenu)->text(), "Not enabled");
    f.installed.routes.fileManagerMenu = true;
    f.installed.routes.openWith = true;
    f.installed.fileManagers = {"Nautilus", "Thunar"};
    QTest::mouseClick(pane->installButton(), Qt::LeftButton);
    ASSERT_TRUE(spinUntil([&] { return pane->installButton()->isEnabled(); }));
    {
        std::lock_guard lock(f.launcher.mutex);
        ASSERT_EQ(f.launcher.runs.size(), 1u);
        EXPECT_EQ(f.launcher.runs[0], (std::vector<std::string>{"/opt/tavrin/bin/tavrin", "integrate", "install"}));
    }
    EXPECT_EQ(pane->statusLabel(FinderSetupRoute::fileManagerMenu)->text(), "Enabled");
    EXPECT_EQ(pane->statusLabel(FinderSetupRoute::openWith)->text(), "Enabled");
    EXPECT_TRUE(pane->messageLabel()->text().startsWith("Installed."));

    f.launcher.exitStatus = 1;
    pane->runIntegrate("uninstall");
    ASSERT_TRUE(spinUntil([&] { return pane->installButton()->isEnabled(); }));
    EXPECT_EQ(pane->messageLabel()->text(), "tavrin integrate uninstall failed (exit status 1).");
}

TEST(SettingsWindow, everyControlHasAnAccessibleNameAndTheTabsAKeyboardPath) {
    SettingsFixture f;
    EXPECT_EQ(unnamedControls(f.window.get()), std::vector<std::string>{});
    for (int i = 0; i < f.window->tabs()->count(); ++i)
        EXPECT_TRUE(f.window->tabs()->tabText(i).contains('&')) << f.window->tabs()->tabText(i).toStdString();
}

}  // namespace
}  // namespace tavrin
