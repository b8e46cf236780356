#include "tray_controller.h"

#include <QAction>
#include <QMenu>
#include <QSystemTrayIcon>

#include "app_icon.h"

namespace tavrin {

TrayController::TrayController(TrayCallbacks callbacks, QObject* parent)
    : QObject(parent), callbacks_(std::move(callbacks)), menu_(std::make_unique<QMenu>()) {
    menu_->setAccessibleName("Tavrin");
    connect(menu_.get(), &QMenu::aboutToShow, this, [this] { rebuild(); });
    rebuild();
}

TrayController::~TrayController() = default;

void TrayController::rebuild() {
    menu_->clear();
    auto* open = menu_->addAction("Open Tavrin");
    connect(open, &QAction::triggered, this, [this] {
        if (callbacks_.openWindow) callbacks_.openWindow();
    });
    menu_->addSeparator();
    const auto recent = callbacks_.recentItems ? callbacks_.recentItems(recentCount) : std::vector<RecentlyCleanedItem>{};
    auto* heading = menu_->addAction(recent.empty() ? "No Recently Cleaned Files" : "Recently Cleaned");
    heading->setEnabled(false);
    for (const auto& item : recent) {
        QString text = QString::fromStdString(item.fileName);
        if (item.isEphemeralShare) text += " (shared)";
        auto* action = menu_->addAction(text);
        action->setEnabled(item.canRevealOrDrag());
        action->setToolTip(item.fileURL ? QString::fromStdString(item.fileURL->string()) : QString());
        if (item.fileURL) {
            const auto file = *item.fileURL;
            connect(action, &QAction::triggered, this, [this, file] {
                if (callbacks_.showFile) callbacks_.showFile(file);
            });
        }
    }
    menu_->addSeparator();
    auto* clean = menu_->addAction("Clean Files\u2026");
    connect(clean, &QAction::triggered, this, [this] {
        if (callbacks_.cleanFiles) callbacks_.cleanFiles();
    });
    const bool paused = callbacks_.watchedFoldersPaused && callbacks_.watchedFoldersPaused();
    auto* pause = menu_->addAction(paused ? "Resume Watched Folders" : "Pause Watched Folders");
    pause->setEnabled(static_cast<bool>(callbacks_.setWatchedFoldersPaused));
    connect(pause, &QAction::triggered, this, [this, paused] {
        if (callbacks_.setWatchedFoldersPaused) callbacks_.setWatchedFoldersPaused(!paused);
    });
    menu_->addSeparator();
    auto* quit = menu_->addAction("Quit");
    connect(quit, &QAction::triggered, this, [this] {
        if (callbacks_.quit) callbacks_.quit();
    });
}

void TrayController::setIconVisible(bool visible) {
    if (visible && !icon_ && QSystemTrayIcon::isSystemTrayAvailable()) {
        icon_ = new QSystemTrayIcon(appIcon(), this);
        icon_->setToolTip("Tavrin");
        icon_->setContextMenu(menu_.get());
        connect(icon_, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
            if (reason == QSystemTrayIcon::Trigger && callbacks_.openWindow) callbacks_.openWindow();
        });
    }
    if (icon_) icon_->setVisible(visible);
}

bool TrayController::isIconVisible() const { return icon_ && icon_->isVisible(); }

}  // namespace tavrin
