#include "main_window.h"

#include <QAction>
#include <QApplication>
#include <QDragEnterEvent>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeySequence>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QSortFilterProxyModel>
#include <QSplitter>
#include <QStatusBar>
#include <QStyle>
#include <QTableView>
#include <QTimer>
#include <QTreeWidget>
#include <QToolBar>
#include <QToolButton>
#include <QVBoxLayout>

#include <set>

#include "app_context.h"
#include "app_icons.h"
#include "file_configuration.h"
#include "handoff/email_integration.h"
#include "handoff/program_launcher.h"
#include "inspection_runner.h"
#include "inspector_panel.h"
#include "intake/folder_expansion_service.h"
#include "intake/folder_intake_summary.h"
#include "model/pipeline_error.h"
#include "queue_table_model.h"
#include "share_sheet.h"

namespace tavrin {

namespace {

QString qs(const std::string& s) { return QString::fromStdString(s); }
QString idText(const Uuid& id) { return qs(id.uuidString()); }

bool isEditable(const QueuedFile& file) {
    const auto s = file.status();
    return s == QueuedFile::Status::staged || s == QueuedFile::Status::configured;
}

// A file the user has not configured yet, which a clean gives the fallback preset.
bool awaitsFallback(const QueuedFile& file) {
    return isEditable(file) && !file.hasCleaningConfiguration() && !file.userDidConfigureEmptySelection;
}

// The preset's choice for the categories the file carries, so that clearing every tick the
// inspector shows leaves nothing selected.
void seedFrom(QueuedFile& file, const MetadataPreset& preset, const MetadataTree* tree) {
    auto categories = preset.categoriesToRemove();
    if (tree) {
        const auto present = tree->presentCategories();
        std::erase_if(categories, [&](MetadataCategory c) {
            return std::find(present.begin(), present.end(), c) == present.end();
        });
    }
    file.setCategoriesToRemove(categories);
    file.specificKeysToRemove = preset.specificKeysToRemove;
    file.specificKeysToKeep = preset.specificKeysToKeep;
}

}  // namespace

MainWindow::MainWindow(AppContext& app, QWidget* parent) : QMainWindow(parent), app_(app) {
    setWindowTitle(tr("Tavrin"));
    setAccessibleName(tr("Tavrin"));
    setAcceptDrops(true);
    model_ = new QueueTableModel(app_, this);
    proxy_ = new QSortFilterProxyModel(this);
    proxy_->setSourceModel(model_);
    proxy_->setSortRole(QueueTableModel::sortRole);
    proxy_->setSortCaseSensitivity(Qt::CaseInsensitive);
    inspections_ = new InspectionRunner(app_.engine(), this);
    snapshotSave_ = new QTimer(this);
    snapshotSave_->setSingleShot(true);
    snapshotSave_->setInterval(250);
    connect(snapshotSave_, &QTimer::timeout, this, [this] {
        try {
            if (app_.context().hasChanges()) app_.context().save();
        } catch (...) {
            // The summary is a cache: it is made again at the next inspection.
            app_.context().rollback();
        }
    });
    connect(inspections_, &InspectionRunner::inspected, this, &MainWindow::inspected);
    buildActions();
    buildLayout();
    confirmCleanInPlace = [this](int count) {
        return QMessageBox::question(this, tr("Clean in Place"),
                                     tr("Overwrite %n file(s) where they sit? The originals go to the Trash.", "", count),
                                     QMessageBox::Yes | QMessageBox::Cancel, QMessageBox::Cancel) == QMessageBox::Yes;
    };
    presentShare = [this](const std::vector<std::filesystem::path>& files) {
        auto* sheet = new ShareSheet(app_, files, this);
        sheet->setAttribute(Qt::WA_DeleteOnClose);
        sheet->open();
    };
    app_.addReloadListener([this] { refresh(); });
    // Files inspected in an earlier session carry only their summary: read them again for the tree.
    for (int row = 0; row < model_->rowCount(); ++row)
        if (auto file = model_->fileAt(row); file && isEditable(*file))
            inspections_->inspect(idText(file->id), file->originalFileURL());
    updateActions();
}

MainWindow::~MainWindow() {
    if (run_) run_->cancel();
}

void MainWindow::buildActions() {
    addFilesAction_ = new QAction(icons::named("document-open", style()->standardIcon(QStyle::SP_FileIcon)), tr("Add Files…"), this);
    addFilesAction_->setShortcut(QKeySequence::Open);
    connect(addFilesAction_, &QAction::triggered, this, &MainWindow::addFilesDialog);
    addFolderAction_ = new QAction(icons::named("folder-open", style()->standardIcon(QStyle::SP_DirIcon)), tr("Add Folder…"), this);
    addFolderAction_->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_O));
    connect(addFolderAction_, &QAction::triggered, this, &MainWindow::addFolderDialog);
    removeAction_ = new QAction(icons::named("list-remove", style()->standardIcon(QStyle::SP_TrashIcon)), tr("Remove from Queue"), this);
    removeAction_->setShortcuts({QKeySequence::Delete, QKeySequence(Qt::Key_Backspace)});
    removeAction_->setShortcutContext(Qt::WidgetWithChildrenShortcut);
    connect(removeAction_, &QAction::triggered, this, &MainWindow::removeSelection);
    cancelAction_ = new QAction(icons::named("process-stop", style()->standardIcon(QStyle::SP_BrowserStop)), tr("Stop"), this);
    cancelAction_->setShortcut(QKeySequence(Qt::Key_Escape));
    cancelAction_->setToolTip(tr("Stop the run: files not yet started are left as they are"));
    connect(cancelAction_, &QAction::triggered, this, &MainWindow::cancelRun);
    settingsAction_ = new QAction(tr("Settings…"), this);
    settingsAction_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));
    settingsAction_->setMenuRole(QAction::PreferencesRole);
    connect(settingsAction_, &QAction::triggered, this, [this] {
        emit settingsRequested();
        if (showSettings) showSettings();
    });
    historyAction_ = new QAction(tr("History"), this);
    historyAction_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Y));
    connect(historyAction_, &QAction::triggered, this, [this] {
        emit historyRequested();
        if (showHistory) showHistory();
    });
    tourAction_ = new QAction(tr("Welcome Tour"), this);
    connect(tourAction_, &QAction::triggered, this, [this] {
        emit welcomeTourRequested();
        if (showWelcomeTour) showWelcomeTour();
    });

    cleanMenu_ = new QMenu(tr("Clean"), this);
    presetMenu_ = new QMenu(tr("Apply Preset"), this);
    connect(cleanMenu_, &QMenu::aboutToShow, this, &MainWindow::refreshCleanMenu);
    connect(presetMenu_, &QMenu::aboutToShow, this, &MainWindow::refreshPresetMenu);
    refreshCleanMenu();
    refreshPresetMenu();

    auto* file = menuBar()->addMenu(tr("&File"));
    file->addAction(addFilesAction_);
    file->addAction(addFolderAction_);
    file->addSeparator();
    file->addAction(settingsAction_);
    file->addSeparator();
    file->addAction(tr("&Quit"), QKeySequence::Quit, qApp, &QApplication::quit);
    auto* edit = menuBar()->addMenu(tr("&Edit"));
    edit->addAction(removeAction_);
    edit->addAction(tr("Select &All"), QKeySequence::SelectAll, this, [this] { view_->selectAll(); });
    auto* queue = menuBar()->addMenu(tr("&Queue"));
    queue->addMenu(cleanMenu_);
    queue->addMenu(presetMenu_);
    queue->addAction(cancelAction_);
    queue->addSeparator();
    queue->addAction(historyAction_);
    auto* help = menuBar()->addMenu(tr("&Help"));
    help->addAction(tourAction_);
}

void MainWindow::buildLayout() {
    auto* toolbar = addToolBar(tr("Queue"));
    toolbar->setObjectName(QStringLiteral("queueToolbar"));
    toolbar->setMovable(false);
    toolbar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    toolbar->addAction(addFilesAction_);
    toolbar->addAction(addFolderAction_);
    toolbar->addSeparator();
    cleanButton_ = new QToolButton(this);
    cleanButton_->setPopupMode(QToolButton::MenuButtonPopup);
    cleanButton_->setMenu(cleanMenu_);
    cleanButton_->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    cleanButton_->setIcon(icons::verified());
    cleanButton_->setAccessibleName(tr("Clean"));
    cleanButton_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Return));
    connect(cleanButton_, &QToolButton::clicked, this, [this] { cleanSelection(defaultCleanMode()); });
    toolbar->addWidget(cleanButton_);
    presetButton_ = new QToolButton(this);
    presetButton_->setText(tr("Apply Preset"));
    presetButton_->setAccessibleName(tr("Apply Preset"));
    presetButton_->setMenu(presetMenu_);
    presetButton_->setPopupMode(QToolButton::InstantPopup);
    toolbar->addWidget(presetButton_);
    toolbar->addSeparator();
    toolbar->addAction(removeAction_);
    toolbar->addAction(cancelAction_);

    auto* central = new QWidget(this);
    auto* layout = new QVBoxLayout(central);
    layout->setContentsMargins(6, 6, 6, 6);
    bannerBox_ = new QWidget(central);
    auto* bannerLayout = new QHBoxLayout(bannerBox_);
    bannerLayout->setContentsMargins(8, 4, 4, 4);
    banner_ = new QLabel(bannerBox_);
    banner_->setWordWrap(true);
    banner_->setAccessibleName(tr("Message"));
    banner_->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    auto* dismiss = new QPushButton(tr("Dismiss"), bannerBox_);
    dismiss->setAccessibleName(tr("Dismiss message"));
    connect(dismiss, &QPushButton::clicked, bannerBox_, &QWidget::hide);
    bannerLayout->addWidget(banner_, 1);
    bannerLayout->addWidget(dismiss);
    bannerBox_->hide();

    view_ = new QTableView(central);
    view_->setModel(proxy_);
    view_->setAccessibleName(tr("Queue"));
    view_->setAccessibleDescription(tr("Files to clean. Drop files or folders here."));
    view_->setSelectionBehavior(QAbstractItemView::SelectRows);
    view_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    view_->setSortingEnabled(true);
    view_->sortByColumn(-1, Qt::AscendingOrder);
    view_->setDragEnabled(true);
    view_->setDragDropMode(QAbstractItemView::DragOnly);
    view_->setDefaultDropAction(Qt::CopyAction);
    view_->verticalHeader()->hide();
    view_->verticalHeader()->setDefaultSectionSize(view_->fontMetrics().height() + 10);
    view_->setShowGrid(false);
    view_->setAlternatingRowColors(true);
    view_->setWordWrap(false);
    view_->horizontalHeader()->setSectionResizeMode(QueueTableModel::nameColumn, QHeaderView::Stretch);
    view_->horizontalHeader()->setMinimumSectionSize(60);
    const int em = view_->fontMetrics().averageCharWidth();
    view_->setColumnWidth(QueueTableModel::statusColumn, 16 * em);
    view_->setColumnWidth(QueueTableModel::presetColumn, 17 * em);
    view_->setColumnWidth(QueueTableModel::removeColumn, 13 * em);
    view_->setColumnWidth(QueueTableModel::sizeColumn, 11 * em);
    view_->setColumnWidth(QueueTableModel::savedColumn, 10 * em);
    view_->horizontalHeader()->setStretchLastSection(false);
    view_->setIconSize(QSize(18, 18));
    view_->addAction(removeAction_);
    connect(view_->selectionModel(), &QItemSelectionModel::selectionChanged, this, &MainWindow::selectionChanged);
    // A cleaned row leads to its clean file.
    connect(view_, &QTableView::activated, this, [this](const QModelIndex& index) {
        const auto path = proxy_->data(index, QueueTableModel::cleanedPathRole).toString();
        if (path.isEmpty()) return;
        SpawnProgramLauncher launcher;
        for (const auto& command : EmailRoutes::revealCommands({std::filesystem::path(path.toStdString())}))
            if (!launcher.launch(command)) showBanner(tr("No program could show the folder of %1.").arg(path), true);
    });

    inspector_ = new InspectorPanel(central);
    connect(inspector_, &InspectorPanel::categoryToggled, this, [this](MetadataCategory category, bool remove) {
        changeSelection([&](QueuedFile& file, const MetadataTree& tree) {
            FileConfiguration::setCategory(file, category, remove, tree);
        });
    });
    connect(inspector_, &InspectorPanel::itemToggled, this, [this](const QString& itemId, bool remove) {
        changeSelection([&](QueuedFile& file, const MetadataTree& tree) {
            for (const auto& item : tree.allItems())
                if (qs(item.id) == itemId) FileConfiguration::setItem(file, item, remove);
        });
    });

    auto* split = new QSplitter(Qt::Horizontal, central);
    split->addWidget(view_);
    split->addWidget(inspector_);
    split->setStretchFactor(0, 3);
    split->setStretchFactor(1, 2);
    split->setSizes({650, 450});
    layout->addWidget(bannerBox_);
    layout->addWidget(split, 1);
    setCentralWidget(central);

    progress_ = new QProgressBar(this);
    progress_->setAccessibleName(tr("Progress of the run"));
    progress_->setMaximumWidth(240);
    progress_->hide();
    progressLabel_ = new QLabel(this);
    progressLabel_->setAccessibleName(tr("Queue summary"));
    statusBar()->addWidget(progressLabel_, 1);
    statusBar()->addPermanentWidget(progress_);
    refreshCleanMenu();
    view_->setFocus();
    setTabOrder(view_, inspector_->tree());
    setTabOrder(inspector_->tree(), inspector_->outcome());
    resize(1100, 640);
}

void MainWindow::refreshCleanMenu() {
    cleanMenu_->clear();
    bool inPlaceDefault = false;
    try {
        inPlaceDefault = app_.settings()->cleanOutputMode() == CleanOutputMode::inPlace;
    } catch (...) {
    }
    const CleanMode chosen = inPlaceDefault ? CleanMode::inPlace : CleanMode::copy;
    for (auto mode : {CleanMode::copy, CleanMode::inPlace, CleanMode::share}) {
        auto* action = cleanMenu_->addAction(cleanModeTitle(mode), this, [this, mode] { cleanSelection(mode); });
        action->setToolTip(cleanModeDescription(mode, inPlaceDefault));
        action->setStatusTip(action->toolTip());
    }
    cleanMenu_->setToolTipsVisible(true);
    if (cleanButton_) {
        cleanButton_->setText(cleanModeTitle(chosen));
        cleanButton_->setToolTip(cleanModeDescription(chosen, inPlaceDefault));
    }
}

void MainWindow::refreshPresetMenu() {
    presetMenu_->clear();
    try {
        for (const auto& preset : app_.allPresets())
            presetMenu_->addAction(qs(preset->name), this, [this, id = preset->id] { applyPresetToSelection(id); });
    } catch (const std::exception& e) {
        presetMenu_->addAction(tr("Presets cannot be read: %1").arg(qs(e.what())))->setEnabled(false);
    }
}

std::shared_ptr<MetadataPreset> MainWindow::fallbackPreset() {
    try {
        std::shared_ptr<MetadataPreset> preset;
        if (auto id = app_.settings()->defaultPresetId) preset = app_.presets().fetchPreset(*id);
        return preset ? preset : app_.presets().fetchPreset(MetadataPreset::maximumPrivacyID());
    } catch (...) {
        return nullptr;
    }
}

CleanMode MainWindow::defaultCleanMode() {
    try {
        return app_.settings()->cleanOutputMode() == CleanOutputMode::inPlace ? CleanMode::inPlace : CleanMode::copy;
    } catch (...) {
        return CleanMode::copy;
    }
}

void MainWindow::showBanner(const QString& text, bool warning) {
    banner_->setText(text);
    bannerBox_->setStyleSheet(warning ? QStringLiteral("QWidget { background: #fff1d6; }")
                                      : QStringLiteral("QWidget { background: #e3effd; }"));
    bannerBox_->setVisible(!text.isEmpty());
}

QString MainWindow::bannerText() const { return bannerBox_->isVisible() ? banner_->text() : QString(); }

QStringList MainWindow::selectedIds() const {
    QStringList ids;
    for (const auto& index : view_->selectionModel()->selectedRows())
        ids << proxy_->data(index, QueueTableModel::idRole).toString();
    return ids;
}

void MainWindow::selectIds(const QStringList& ids) {
    view_->clearSelection();
    for (const auto& id : ids) {
        const int row = model_->rowOf(id);
        if (row < 0) continue;
        const auto index = proxy_->mapFromSource(model_->index(row, 0));
        view_->selectionModel()->select(index, QItemSelectionModel::Select | QItemSelectionModel::Rows);
        view_->scrollTo(index);
    }
    if (!ids.isEmpty()) {
        const int row = model_->rowOf(ids.front());
        if (row >= 0) view_->selectionModel()->setCurrentIndex(proxy_->mapFromSource(model_->index(row, 0)), QItemSelectionModel::NoUpdate);
    }
}

bool MainWindow::selectSource(const std::filesystem::path& path) {
    for (int row = 0; row < model_->rowCount(); ++row) {
        auto file = model_->fileAt(row);
        if (file && file->matchesOriginalSourceURL(path)) {
            selectIds({idText(file->id)});
            return true;
        }
    }
    return false;
}

void MainWindow::reload() { app_.reload(); }

void MainWindow::refresh() {
    const auto ids = selectedIds();
    model_->reload();
    selectIds(ids);
    showSelected();
    updateActions();
}

void MainWindow::updateActions() {
    const bool running = run_ != nullptr;
    cancelAction_->setEnabled(running && !run_->isCancelled());
    cleanButton_->setEnabled(!running && !importing_ && model_->rowCount() > 0);
    removeAction_->setEnabled(!running && !importing_ && !selectedIds().isEmpty());
    addFilesAction_->setEnabled(!importing_);
    addFolderAction_->setEnabled(!importing_);
    presetButton_->setEnabled(!selectedIds().isEmpty());
    progressLabel_->setText(tr("%n file(s) in the queue, %1 ready", "", model_->rowCount()).arg(model_->pendingCount()));
}

void MainWindow::selectionChanged() {
    showSelected();
    updateActions();
}

void MainWindow::showSelected() {
    const auto ids = selectedIds();
    if (ids.size() != 1) {
        inspector_->showEmpty(ids.isEmpty() ? tr("Select a file to see what it carries.")
                                            : tr("%1 files selected.").arg(ids.size()));
        return;
    }
    auto file = model_->fileAt(model_->rowOf(ids.front()));
    if (!file) return inspector_->showEmpty(tr("Select a file to see what it carries."));
    const MetadataTree* tree = app_.treeFor(file->id);
    if (!tree && isEditable(*file) && !inspectionErrors_.count(ids.front()))
        inspections_->inspect(ids.front(), file->originalFileURL());
    auto error = inspectionErrors_.find(ids.front());
    QString note;
    auto shown = file;
    if (awaitsFallback(*file)) {
        // Show the ticks the clean would use.
        if (auto preset = fallbackPreset()) {
            shown = std::make_shared<QueuedFile>(*file);
            seedFrom(*shown, *preset, tree);
            note = tr("Will be cleaned with “%1” unless you change the ticks or apply a preset.").arg(qs(preset->name));
        }
    }
    inspector_->show(shown, tree, error == inspectionErrors_.end() ? QString() : error->second, app_.resultFor(file->id),
                     note);
}

void MainWindow::inspected(const QString& id, const std::optional<MetadataTree>& tree, const QString& error) {
    const auto uuid = uuidFromString(id.toStdString());
    if (!uuid) return;
    if (!tree) {
        inspectionErrors_[id] = error;
    } else {
        inspectionErrors_.erase(id);
        app_.rememberTree(*uuid, *tree);
        // The row's record belongs to the view's context; saves are gathered, since each costs
        // time in proportion to the records the context holds.
        const int row = model_->rowOf(id);
        if (auto file = model_->fileAt(row); file && !file->metadataSnapshotData) {
            file->setMetadataSummary(MetadataSummary::from(*tree));
            if (!snapshotSave_->isActive()) snapshotSave_->start();
        }
        model_->refreshRow(row);
    }
    if (selectedIds() == QStringList{id}) showSelected();
}

void MainWindow::changeSelection(const std::function<void(QueuedFile&, const MetadataTree&)>& change) {
    const auto ids = selectedIds();
    if (ids.size() != 1) return;
    const auto uuid = uuidFromString(ids.front().toStdString());
    const MetadataTree* tree = uuid ? app_.treeFor(*uuid) : nullptr;
    auto file = uuid ? app_.file(*uuid) : nullptr;
    if (!file || !tree || !isEditable(*file)) return;
    if (awaitsFallback(*file))
        if (auto preset = fallbackPreset()) seedFrom(*file, *preset, tree);
    change(*file, *tree);
    FileConfiguration::selectionChanged(*file);
    try {
        app_.context().save();
    } catch (const std::exception& e) {
        app_.context().rollback();
        showBanner(tr("The selection could not be saved: %1").arg(qs(e.what())), true);
    }
    const int row = model_->rowOf(ids.front());
    model_->refreshRow(row);
    showSelected();
    updateActions();
}

}  // namespace tavrin
