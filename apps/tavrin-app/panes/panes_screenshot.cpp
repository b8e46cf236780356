#include "panes_screenshot.h"

#include <QApplication>
#include <QListWidget>
#include <QPixmap>

#include "data/queries.h"
#include "data/store_defaults.h"
#include "history_window.h"
#include "settings_window.h"
#include "welcome_tour_dialog.h"

namespace tavrin {

namespace {

class MemoryTourPreferences final : public TourPreferences {
public:
    int lastCompletedVersion() const override { return version_; }
    void setLastCompletedVersion(int version) override { version_ = version; }
    bool legacyOnboarded() const override { return false; }

private:
    int version_ = 0;
};

bool capture(QWidget& widget, const QString& pngPath) {
    widget.setAttribute(Qt::WA_DontShowOnScreen);
    widget.show();
    QApplication::processEvents();
    const bool saved = widget.grab().save(pngPath, "PNG");
    widget.hide();
    return saved;
}

}  // namespace

QStringList panesScreenshotStates() { return {"settings", "presets", "watched-folders", "file-manager", "history", "tour"}; }

bool renderPanesScreenshot(const QString& state, const QString& pngPath, std::shared_ptr<ModelContainer> store) {
    if (!store || !panesScreenshotStates().contains(state)) return false;
    // A context of its own: whatever the windows touch is never saved.
    auto context = store->makeContext();
    auto silent = std::make_shared<SilentChangeNotifier>();
    if (state == "settings" || state == "presets" || state == "watched-folders" || state == "file-manager") {
        SettingsAccess settings(*context, silent);
        PresetService presets(*context, silent);
        WatchedFolderRecords folders(*context, silent);
        SpawnProgramLauncher launcher;
        // What is installed for this user, read only.
        auto integrationStatus = [&launcher] {
            const auto locations = IntegrationLocations::fromEnvironment();
            return locations ? DesktopIntegration(*locations, launcher).status() : IntegrationStatus{};
        };
        SettingsWindow window(SettingsWindowServices{settings, presets, folders, nullptr, launcher, "tavrin",
                                                     integrationStatus, std::nullopt, {}});
        window.showPane(state == "settings"          ? SettingsWindow::Pane::general
                        : state == "presets"         ? SettingsWindow::Pane::presets
                        : state == "watched-folders" ? SettingsWindow::Pane::watchedFolders
                                                     : SettingsWindow::Pane::fileManager);
        if (state == "presets") {
            // A preset of the user's own shows what can be edited.
            for (const auto& preset : presets.fetchAllPresets())
                if (!preset->isBuiltIn) {
                    window.presets()->select(preset->id);
                    break;
                }
        }
        window.resize(state == "settings"       ? QSize(720, 480)
                      : state == "file-manager" ? QSize(760, 620)  // the window's own size
                                                : QSize(760, 560));
        return capture(window, pngPath);
    }
    if (state == "history") {
        HistoryRecords records(*context, silent);
        auto recent = [&context](std::int64_t limit) {
            std::vector<ProcessingHistory> history;
            for (const auto& record : context->fetch(HistoryQueries::recent(limit * 3))) history.push_back(*record);
            return RecentlyCleanedList::items(history, limit);
        };
        HistoryWindow window(HistoryWindowServices{recent, records, {}, {}});
        window.resize(760, 480);
        return capture(window, pngPath);
    }
    MemoryTourPreferences preferences;
    CleanOutputMode mode = CleanOutputMode::copy;
    if (auto settings = currentSettings(*context)) mode = settings->cleanOutputMode();
    WelcomeTourDialog tour(preferences, mode, [] {});
    tour.goTo(WelcomeTourStep::cleanAFile);
    tour.resize(640, 520);
    return capture(tour, pngPath);
}

}  // namespace tavrin
