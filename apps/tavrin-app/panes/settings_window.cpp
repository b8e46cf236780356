#include "settings_window.h"

#include <QKeySequence>
#include <QShortcut>
#include <QTabWidget>
#include <QVBoxLayout>

namespace tavrin {

SettingsWindow::SettingsWindow(SettingsWindowServices services, QWidget* parent) : QWidget(parent, Qt::Window) {
    setWindowTitle("Tavrin Settings");
    setAccessibleName("Settings");
    tabs_ = new QTabWidget;
    tabs_->setAccessibleName("Settings panes");
    general_ = new GeneralPane(services.settings, services.presets, services.autostart);
    presets_ = new PresetsPane(services.presets);
    watchedFolders_ = new WatchedFoldersPane(services.settings, services.watchedFolders, services.watching,
                                             services.chooseFolder);
    fileManager_ = new FileManagerPane(services.integrationStatus, services.launcher, services.tavrinProgram);
    tabs_->addTab(general_, "&General");
    tabs_->addTab(presets_, "&Presets");
    tabs_->addTab(watchedFolders_, "&Watched Folders");
    tabs_->addTab(fileManager_, "&File Manager");
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(tabs_);
    resize(760, 620);  // the file-manager pane shows whole, notes included

    // A preset made or renamed here shows in the default-preset menu at once.
    connect(tabs_, &QTabWidget::currentChanged, this, [this](int index) {
        if (index == static_cast<int>(Pane::general)) general_->reload();
    });
    auto* close = new QShortcut(QKeySequence::Close, this);
    connect(close, &QShortcut::activated, this, &QWidget::close);
    auto* escape = new QShortcut(QKeySequence(Qt::Key_Escape), this);
    connect(escape, &QShortcut::activated, this, &QWidget::close);
}

void SettingsWindow::showPane(Pane pane) { tabs_->setCurrentIndex(static_cast<int>(pane)); }

void SettingsWindow::reload() {
    general_->reload();
    presets_->reload();
    watchedFolders_->reload();
    fileManager_->recheck();
}

}  // namespace tavrin
