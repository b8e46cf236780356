#include "desktop_panes.h"

#include <algorithm>

#include "data/queries.h"

namespace tavrin {

namespace {

void raise(QWidget* window) {
    window->show();
    window->raise();
    window->activateWindow();
}

}  // namespace

DesktopPanes::DesktopPanes(DesktopPanesContext context) : c_(std::move(context)) {
    settings_ = std::make_unique<SettingsAccess>(c_.context, c_.notifier);
    folderRecords_ = std::make_unique<WatchedFolderRecords>(c_.context, c_.notifier);
    historyRecords_ = std::make_unique<HistoryRecords>(c_.context, c_.notifier);
    auto show = [this](const std::vector<std::filesystem::path>& files) {
        if (c_.showInFolder) c_.showInFolder(files);
    };
    runNotifier_ = std::make_unique<RunNotifier>(c_.sessionBus, c_.mainWindowIsActive, show);
    watching_ = std::make_unique<AppWatchedFolders>(c_.loop, c_.store, c_.engine,
                                                    [this](const RunReport& report) { runNotifier_->notify(report); });
    TrayCallbacks tray;
    tray.openWindow = c_.raiseMainWindow;
    tray.cleanFiles = c_.chooseFilesToClean;
    tray.showFile = [show](const std::filesystem::path& file) { show({file}); };
    tray.recentItems = [this](std::int64_t limit) { return recentItems(limit); };
    tray.watchedFoldersPaused = [this] { return !settings_->current().watchedFoldersEnabled; };
    tray.setWatchedFoldersPaused = [this](bool paused) { setWatchedFoldersPaused(paused); };
    tray.quit = c_.quit;
    tray_ = std::make_unique<TrayController>(std::move(tray));
    settings_->addListener([this](const AppSettings& s) { settingsChanged(s); });
}

DesktopPanes::~DesktopPanes() {
    delete settingsWindow_.data();
    delete historyWindow_.data();
}

void DesktopPanes::start() {
    watching_->start();
    tray_->setIconVisible(settings_->current().showMenuBarIcon);
}

std::vector<RecentlyCleanedItem> DesktopPanes::recentItems(std::int64_t limit) {
    if (c_.storeURL) return RecentlyCleanedStore(*c_.storeURL).recentItems(limit);
    // An in-memory store has no file for the read-only view: read the app's own context.
    std::vector<ProcessingHistory> history;
    try {
        const auto clamped = std::clamp<std::int64_t>(limit, 0, RecentlyCleanedStore::maximumLimit);
        for (const auto& record : c_.context.fetch(HistoryQueries::recent(clamped * 3))) history.push_back(*record);
        return RecentlyCleanedList::items(history, clamped);
    } catch (const std::exception&) {
        return {};
    }
}

void DesktopPanes::showSettings(SettingsWindow::Pane pane) {
    if (!settingsWindow_) {
        std::optional<AutostartEntry> autostart;
        if (const auto configHome = AutostartEntry::configHomeFromEnvironment(); configHome && !c_.appProgram.empty())
            autostart.emplace(*configHome, c_.appProgram);
        auto integrationStatus = [this] {
            const auto locations = IntegrationLocations::fromEnvironment();
            return locations ? DesktopIntegration(*locations, c_.launcher).status() : IntegrationStatus{};
        };
        settingsWindow_ = new SettingsWindow(SettingsWindowServices{*settings_, c_.presets, *folderRecords_,
                                                                    watching_.get(), c_.launcher, c_.tavrinProgram,
                                                                    integrationStatus, autostart, {}});
        settingsWindow_->setAttribute(Qt::WA_DeleteOnClose);
    }
    settingsWindow_->showPane(pane);
    raise(settingsWindow_);
}

void DesktopPanes::showHistory() {
    if (!historyWindow_) {
        HistoryWindowServices services{[this](std::int64_t limit) { return recentItems(limit); }, *historyRecords_,
                                       [this](const std::filesystem::path& file) {
                                           if (c_.showInFolder) c_.showInFolder({file});
                                       },
                                       c_.cleanAgain};
        historyWindow_ = new HistoryWindow(std::move(services));
        historyWindow_->setAttribute(Qt::WA_DeleteOnClose);
    }
    historyWindow_->reload();
    raise(historyWindow_);
}

void DesktopPanes::showWelcomeTour(QWidget* parent) {
    auto* tour = new WelcomeTourDialog(c_.tourPreferences, settings_->current().cleanOutputMode(),
                                       [this] { showSettings(SettingsWindow::Pane::fileManager); }, parent);
    tour->setAttribute(Qt::WA_DeleteOnClose);
    tour->open();
}

bool DesktopPanes::showWelcomeTourIfDue(QWidget* parent) {
    if (!shouldShowWelcomeTour(c_.tourPreferences)) return false;
    showWelcomeTour(parent);
    return true;
}

void DesktopPanes::runFinished(const RunReport& report) { runNotifier_->notify(report); }

void DesktopPanes::storeChanged() {
    if (settingsWindow_) settingsWindow_->reload();
    if (historyWindow_) historyWindow_->reload();
    tray_->setIconVisible(settings_->current().showMenuBarIcon);
}

void DesktopPanes::settingsChanged(const AppSettings& settings) {
    tray_->setIconVisible(settings.showMenuBarIcon);
    watching_->reconcile();
}

void DesktopPanes::setWatchedFoldersPaused(bool paused) {
    try {
        settings_->update([paused](AppSettings& s) { s.watchedFoldersEnabled = !paused; });
    } catch (const std::exception&) {
        // The store refused: the menu shows the state as it stands when it opens again.
    }
    if (settingsWindow_) settingsWindow_->watchedFolders()->reload();
}

}  // namespace tavrin
