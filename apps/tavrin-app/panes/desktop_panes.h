#pragma once
// Everything around the main window, built and wired in one place: the settings and history
// windows (made on first use, one of each), the welcome tour, the tray icon and its menu, the
// run notifications, and the app's own watching of the watched folders. The main window creates
// one DesktopPanes after its services, calls `start`, and forwards store changes and run ends.

#include <QDBusConnection>
#include <QPointer>

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "app_watched_folders.h"
#include "history_window.h"
#include "run_notifier.h"
#include "settings_window.h"
#include "tray_controller.h"
#include "welcome_tour_dialog.h"

namespace tavrin {

struct DesktopPanesContext {
    EventLoop& loop;                          // the app's loop over Qt's
    std::shared_ptr<ModelContainer> store;
    ModelContext& context;                    // the main thread's context of `store`
    std::shared_ptr<ChangeNotifying> notifier;  // tells other processes
    PresetService& presets;
    std::shared_ptr<const TavrinEngine> engine;  // for the watched folders
    ProgramLauncher& launcher;
    std::filesystem::path tavrinProgram;      // the command-line program (`tavrin integrate`)
    std::filesystem::path appProgram;         // this program, for the autostart entry
    TourPreferences& tourPreferences;
    QDBusConnection sessionBus = QDBusConnection::sessionBus();  // for notifications

    // The main window's part.
    std::function<void()> raiseMainWindow;
    std::function<bool()> mainWindowIsActive;
    std::function<void()> chooseFilesToClean;                                  // "Clean Files…"
    std::function<void(const std::filesystem::path& original)> cleanAgain;      // adds and cleans
    std::function<void(const std::vector<std::filesystem::path>& files)> showInFolder;
    std::function<void()> quit;
    // None when the user's store is elsewhere or absent: the recent list then reads `context`.
    std::optional<std::filesystem::path> storeURL;
};

class DesktopPanes {
public:
    explicit DesktopPanes(DesktopPanesContext context);
    ~DesktopPanes();
    DesktopPanes(const DesktopPanes&) = delete;
    DesktopPanes& operator=(const DesktopPanes&) = delete;

    // Starts the watched folders (or leaves them to the background service) and shows the tray
    // icon when the settings ask for it. Call once, on the GUI thread, after the main window.
    void start();

    void showSettings(SettingsWindow::Pane pane = SettingsWindow::Pane::general);
    void showHistory();
    // Opens the tour (Help menu); `parent` is the main window.
    void showWelcomeTour(QWidget* parent);
    // At start: opens the tour when this version was not seen yet; says whether it did.
    bool showWelcomeTourIfDue(QWidget* parent);

    // The end of a queue run: a notification while the main window is not active.
    void runFinished(const RunReport& report);
    // Another process (or this one) changed the store: open windows and the tray read it again.
    void storeChanged();

    // The recent list as menus and windows show it.
    std::vector<RecentlyCleanedItem> recentItems(std::int64_t limit);

    SettingsAccess& settings() { return *settings_; }
    AppWatchedFolders& watchedFolders() { return *watching_; }
    TrayController& tray() { return *tray_; }
    RunNotifier& notifier() { return *runNotifier_; }
    SettingsWindow* settingsWindow() const { return settingsWindow_; }
    HistoryWindow* historyWindow() const { return historyWindow_; }

private:
    void settingsChanged(const AppSettings& settings);
    void setWatchedFoldersPaused(bool paused);

    DesktopPanesContext c_;
    std::unique_ptr<SettingsAccess> settings_;
    std::unique_ptr<WatchedFolderRecords> folderRecords_;
    std::unique_ptr<HistoryRecords> historyRecords_;
    std::unique_ptr<AppWatchedFolders> watching_;
    std::unique_ptr<RunNotifier> runNotifier_;
    std::unique_ptr<TrayController> tray_;
    QPointer<SettingsWindow> settingsWindow_;
    QPointer<HistoryWindow> historyWindow_;
};

}  // namespace tavrin
