#pragma once
// The main window: the queue, the inspector of the selected file, and the clean button with its
// three modes. It calls the services through the AppContext and holds no format or queue logic.
//
// The panes other windows provide (settings, history, the welcome tour) are reached through the
// hooks below; the window builds none of them.

#include <QMainWindow>

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "clean_run.h"

class QAction;
class QLabel;
class QMenu;
class QProgressBar;
class QSortFilterProxyModel;
class QTableView;
class QTimer;
class QToolButton;

namespace tavrin {

struct RunReport;

class AppContext;
class InspectionRunner;
class InspectorPanel;
class QueueTableModel;
class ShareSheet;

class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit MainWindow(AppContext& app, QWidget* parent = nullptr);
    ~MainWindow() override;

    // The panes of other windows; each is called when its menu item is chosen.
    std::function<void()> showSettings;
    std::function<void()> showHistory;
    std::function<void()> showWelcomeTour;
    // At the end of each run: what it cleaned and what failed, with why.
    std::function<void(const RunReport&)> reportRun;
    // Asked before cleaning in place; the default asks the user in a dialog.
    std::function<bool(int fileCount)> confirmCleanInPlace;
    // Shows the sheet of a finished "Clean & Share"; the default opens ShareSheet.
    std::function<void(const std::vector<std::filesystem::path>&)> presentShare;

    // Adds files and folders (folders are expanded) through the import service; says in the
    // banner what was added and what was not. Returns the ids added.
    QStringList importPaths(const std::vector<std::filesystem::path>& paths, bool applyDefaultPreset = true);
    // Cleans the files with the given ids in a mode; returns false when nothing could start (a
    // run is under way, or none of them can be cleaned), with the reason in the banner.
    bool cleanFiles(const QStringList& ids, CleanMode mode);
    bool cleanSelection(CleanMode mode);
    // Selects the row of the file whose source is `path`; false when it is not in the queue.
    bool selectSource(const std::filesystem::path& path);
    void selectIds(const QStringList& ids);
    void removeSelection();
    void applyPresetToSelection(const Uuid& presetId);
    void cancelRun();
    // Reads the store again through a fresh context (another process or a run changed it).
    void reload();
    // Redraws the queue and the inspector from the app's current context.
    void refresh();

    // The preset a file without a selection of its own is cleaned with: the default preset of
    // the settings, else the strictest.
    std::shared_ptr<MetadataPreset> fallbackPreset();
    // The default mode from the settings.
    CleanMode defaultCleanMode();
    void showBanner(const QString& text, bool warning = false);
    QString bannerText() const;

    QueueTableModel* queueModel() const { return model_; }
    QSortFilterProxyModel* sortedModel() const { return proxy_; }
    QTableView* queueView() const { return view_; }
    InspectorPanel* inspector() const { return inspector_; }
    InspectionRunner* inspections() const { return inspections_; }
    CleanRun* currentRun() const { return run_; }
    // Files are being added (the window keeps drawing, and waits with everything else).
    bool isImporting() const { return importing_; }
    QProgressBar* progressBar() const { return progress_; }
    QToolButton* cleanButton() const { return cleanButton_; }
    QAction* settingsAction() const { return settingsAction_; }
    QAction* historyAction() const { return historyAction_; }
    QAction* welcomeTourAction() const { return tourAction_; }
    QStringList selectedIds() const;

signals:
    void runFinished(int completed, int failed, bool cancelled);
    void settingsRequested();
    void historyRequested();
    void welcomeTourRequested();

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void buildActions();
    void buildLayout();
    void refreshCleanMenu();
    void refreshPresetMenu();
    void selectionChanged();
    void showSelected();
    void inspected(const QString& id, const std::optional<MetadataTree>& tree, const QString& error);
    void changeSelection(const std::function<void(QueuedFile&, const MetadataTree&)>& change);
    void addFilesDialog();
    void addFolderDialog();
    void updateActions();

    AppContext& app_;
    QueueTableModel* model_ = nullptr;
    QSortFilterProxyModel* proxy_ = nullptr;
    QTableView* view_ = nullptr;
    InspectorPanel* inspector_ = nullptr;
    InspectionRunner* inspections_ = nullptr;
    QLabel* banner_ = nullptr;
    QWidget* bannerBox_ = nullptr;
    QProgressBar* progress_ = nullptr;
    QLabel* progressLabel_ = nullptr;
    QToolButton* cleanButton_ = nullptr;
    QMenu* cleanMenu_ = nullptr;
    QToolButton* presetButton_ = nullptr;
    QMenu* presetMenu_ = nullptr;
    QAction* addFilesAction_ = nullptr;
    QAction* addFolderAction_ = nullptr;
    QAction* removeAction_ = nullptr;
    QAction* cancelAction_ = nullptr;
    QAction* settingsAction_ = nullptr;
    QAction* historyAction_ = nullptr;
    QAction* tourAction_ = nullptr;
    CleanRun* run_ = nullptr;
    bool importing_ = false;
    QTimer* snapshotSave_ = nullptr;
    std::map<QString, QString> inspectionErrors_;
};

}  // namespace tavrin
