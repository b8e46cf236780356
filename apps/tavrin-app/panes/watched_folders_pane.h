#pragma once
// The Watched folders pane: the master switch, the folders with their state and the files last
// cleaned in each, and adding, removing, pausing and resuming them.

#include <QWidget>

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "app_watched_folders.h"
#include "settings_access.h"
#include "watched_folder_records.h"

class QCheckBox;
class QLabel;
class QPushButton;
class QTreeWidget;

namespace tavrin {

class WatchedFoldersPane final : public QWidget {
    Q_OBJECT
public:
    using ChooseFolder = std::function<std::optional<std::filesystem::path>(QWidget* parent)>;

    // `watching` may be null (a process that does not watch): states then read from the records.
    // `chooseFolder` asks the user for a folder; by default a folder dialog.
    WatchedFoldersPane(SettingsAccess& settings, WatchedFolderRecords& records, AppWatchedFolders* watching,
                       ChooseFolder chooseFolder = {}, QWidget* parent = nullptr);

    void reload();
    void addFolder(const std::filesystem::path& folder);
    void removeSelected();
    void togglePauseSelected();

    QCheckBox* masterSwitch() const { return master_; }
    QTreeWidget* folderList() const { return folders_; }
    QLabel* statusLabel() const { return status_; }
    QPushButton* pauseButton() const { return pause_; }
    QPushButton* addButton() const { return add_; }

private:
    void build();
    std::shared_ptr<WatchedFolder> selectedFolder() const;
    void updateButtons();
    void showError(const std::string& text);

    SettingsAccess& settings_;
    WatchedFolderRecords& records_;
    AppWatchedFolders* watching_;
    ChooseFolder chooseFolder_;
    std::vector<std::shared_ptr<WatchedFolder>> shown_;

    QCheckBox* master_ = nullptr;
    QTreeWidget* folders_ = nullptr;
    QLabel* status_ = nullptr;
    QPushButton* add_ = nullptr;
    QPushButton* remove_ = nullptr;
    QPushButton* pause_ = nullptr;
};

}  // namespace tavrin
