#pragma once
// The Settings window: General, Presets, Watched Folders and File Manager, one tab each.

#include <QWidget>

#include <filesystem>
#include <functional>
#include <optional>

#include "autostart_entry.h"
#include "file_manager_pane.h"
#include "general_pane.h"
#include "presets_pane.h"
#include "watched_folders_pane.h"

class QTabWidget;

namespace tavrin {

// What the window works with; the main window owns all of it and outlives the window.
struct SettingsWindowServices {
    SettingsAccess& settings;
    PresetService& presets;
    WatchedFolderRecords& watchedFolders;
    AppWatchedFolders* watching = nullptr;  // null when this process does not watch
    ProgramLauncher& launcher;
    std::filesystem::path tavrinProgram;                 // for `tavrin integrate`
    std::function<IntegrationStatus()> integrationStatus;  // what is installed now
    std::optional<AutostartEntry> autostart;
    WatchedFoldersPane::ChooseFolder chooseFolder = {};   // default: a folder dialog
};

class SettingsWindow final : public QWidget {
    Q_OBJECT
public:
    enum class Pane { general = 0, presets = 1, watchedFolders = 2, fileManager = 3 };

    explicit SettingsWindow(SettingsWindowServices services, QWidget* parent = nullptr);

    void showPane(Pane pane);
    // Reads everything again: another process changed the store.
    void reload();

    GeneralPane* general() const { return general_; }
    PresetsPane* presets() const { return presets_; }
    WatchedFoldersPane* watchedFolders() const { return watchedFolders_; }
    FileManagerPane* fileManager() const { return fileManager_; }
    QTabWidget* tabs() const { return tabs_; }

private:
    QTabWidget* tabs_ = nullptr;
    GeneralPane* general_ = nullptr;
    PresetsPane* presets_ = nullptr;
    WatchedFoldersPane* watchedFolders_ = nullptr;
    FileManagerPane* fileManager_ = nullptr;
};

}  // namespace tavrin
