#include "watched_folders_pane.h"

#include <QCheckBox>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <system_error>

namespace tavrin {

namespace {

QString q(std::string_view text) { return QString::fromUtf8(text.data(), static_cast<int>(text.size())); }

WatchedFolderState stateWithoutWatcher(const WatchedFolder& folder, bool master) {
    std::error_code ec;
    if (!std::filesystem::is_directory(folder.path, ec)) return WatchedFolderState::missing;
    if (!folder.isEnabled) return WatchedFolderState::paused;
    return master ? WatchedFolderState::watching : WatchedFolderState::off;
}

}  // namespace

WatchedFoldersPane::WatchedFoldersPane(SettingsAccess& settings, WatchedFolderRecords& records,
                                       AppWatchedFolders* watching, ChooseFolder chooseFolder, QWidget* parent)
    : QWidget(parent), settings_(settings), records_(records), watching_(watching), chooseFolder_(std::move(chooseFolder)) {
    if (!chooseFolder_) {
        chooseFolder_ = [](QWidget* parent) -> std::optional<std::filesystem::path> {
            const auto chosen = QFileDialog::getExistingDirectory(parent, "Watch Folder");
            if (chosen.isEmpty()) return std::nullopt;
            return std::filesystem::path(chosen.toStdString());
        };
    }
    build();
    reload();
    QPointer<WatchedFoldersPane> self(this);
    if (watching_) watching_->addChangeListener([self] {
        if (self) self->reload();
    });
}

void WatchedFoldersPane::build() {
    setAccessibleName("Watched folders settings");
    master_ = new QCheckBox("&Clean new files in watched folders automatically");
    master_->setAccessibleName("Watched folders on");
    auto* intro = new QLabel(
        "New files that appear in these folders are cleaned as soon as they are complete. The clean copy is saved "
        "beside each file with your copy suffix; the original is never changed.");
    intro->setWordWrap(true);
    folders_ = new QTreeWidget;
    folders_->setAccessibleName("Watched folders");
    folders_->setColumnCount(3);
    folders_->setHeaderLabels({"Folder", "State", "Last cleaned"});
    folders_->setRootIsDecorated(false);
    folders_->setTextElideMode(Qt::ElideMiddle);
    folders_->header()->setStretchLastSection(false);
    folders_->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    folders_->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    folders_->header()->setSectionResizeMode(2, QHeaderView::Interactive);
    folders_->setColumnWidth(2, 200);
    add_ = new QPushButton("&Add Folder\u2026");
    add_->setAccessibleName("Add watched folder");
    remove_ = new QPushButton("&Remove");
    remove_->setAccessibleName("Remove watched folder");
    pause_ = new QPushButton("&Pause");
    pause_->setAccessibleName("Pause or resume watched folder");
    status_ = new QLabel;
    status_->setWordWrap(true);
    status_->setAccessibleName("Watched folders status");

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(add_);
    buttons->addWidget(remove_);
    buttons->addWidget(pause_);
    buttons->addStretch(1);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(master_);
    layout->addWidget(intro);
    layout->addWidget(folders_, 1);
    layout->addLayout(buttons);
    layout->addWidget(status_);

    connect(master_, &QCheckBox::toggled, this, [this](bool on) {
        try {
            settings_.update([on](AppSettings& s) { s.watchedFoldersEnabled = on; });
            if (watching_) watching_->reconcile();
        } catch (const std::exception& e) {
            showError(e.what());
        }
        reload();
    });
    connect(add_, &QPushButton::clicked, this, [this] {
        if (const auto chosen = chooseFolder_(this)) addFolder(*chosen);
    });
    connect(remove_, &QPushButton::clicked, this, [this] { removeSelected(); });
    connect(pause_, &QPushButton::clicked, this, [this] { togglePauseSelected(); });
    connect(folders_, &QTreeWidget::currentItemChanged, this, [this] { updateButtons(); });
}

void WatchedFoldersPane::reload() {
    const auto selected = selectedFolder();
    const auto settings = settings_.current();
    {
        const QSignalBlocker block(master_);
        master_->setChecked(settings.watchedFoldersEnabled);
    }
    try {
        shown_ = records_.all();
    } catch (const std::exception& e) {
        shown_.clear();
        showError(e.what());
    }
    const QSignalBlocker block(folders_);
    folders_->clear();
    for (const auto& folder : shown_) {
        const auto state = watching_ ? watching_->state(*folder, settings.watchedFoldersEnabled)
                                     : stateWithoutWatcher(*folder, settings.watchedFoldersEnabled);
        QStringList recent;
        if (watching_)
            for (const auto& file : watching_->recentlyCleaned(folder->path)) recent << QString::fromStdString(file.filename().string());
        auto* item = new QTreeWidgetItem({QString::fromStdString(folder->displayPath()), q(label(state)),
                                          recent.isEmpty() ? QString("\u2014") : recent.join(", ")});
        item->setToolTip(0, QString::fromStdString(folder->path));
        folders_->addTopLevelItem(item);
        if (selected && selected->id == folder->id) folders_->setCurrentItem(item);
    }
    if (!folders_->currentItem() && folders_->topLevelItemCount() > 0) folders_->setCurrentItem(folders_->topLevelItem(0));
    if (watching_ && watching_->isRunByService())
        status_->setText("The background service (tavrin watch run) is watching these folders; the app leaves them to it.");
    else if (watching_ && !watching_->lastNotice().empty())
        status_->setText(QString::fromStdString(watching_->lastNotice()));
    else if (!settings.watchedFoldersEnabled)
        status_->setText("Watched folders are off.");
    else
        status_->clear();
    updateButtons();
}

std::shared_ptr<WatchedFolder> WatchedFoldersPane::selectedFolder() const {
    if (!folders_) return nullptr;
    const int row = folders_->indexOfTopLevelItem(folders_->currentItem());
    if (row < 0 || row >= static_cast<int>(shown_.size())) return nullptr;
    return shown_[static_cast<std::size_t>(row)];
}

void WatchedFoldersPane::updateButtons() {
    const auto folder = selectedFolder();
    remove_->setEnabled(folder != nullptr);
    pause_->setEnabled(folder != nullptr);
    pause_->setText(folder && !folder->isEnabled ? "Res&ume" : "&Pause");
}

void WatchedFoldersPane::addFolder(const std::filesystem::path& folder) {
    try {
        records_.add(folder);
        if (watching_) watching_->reconcile();
    } catch (const std::exception& e) {
        showError(e.what());
        return;
    }
    reload();
}

void WatchedFoldersPane::removeSelected() {
    const auto folder = selectedFolder();
    if (!folder) return;
    try {
        records_.remove(folder);
        if (watching_) watching_->reconcile();
    } catch (const std::exception& e) {
        showError(e.what());
        return;
    }
    reload();
}

void WatchedFoldersPane::togglePauseSelected() {
    const auto folder = selectedFolder();
    if (!folder) return;
    try {
        records_.setEnabled(folder, !folder->isEnabled);
        if (watching_) watching_->reconcile();
    } catch (const std::exception& e) {
        showError(e.what());
        return;
    }
    reload();
}

void WatchedFoldersPane::showError(const std::string& text) { status_->setText(QString::fromStdString(text)); }

}  // namespace tavrin
