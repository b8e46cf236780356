#pragma once
// The tray icon's menu: "Open Tavrin", the last five cleaned files, "Clean Files…", pausing or
// resuming the watched folders, and "Quit". The menu is rebuilt each time it opens, from the
// callbacks, so it can be tested without a tray.

#include <QObject>

#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

#include "services/recently_cleaned_list.h"

class QMenu;
class QSystemTrayIcon;

namespace tavrin {

struct TrayCallbacks {
    std::function<void()> openWindow;
    std::function<void()> cleanFiles;
    std::function<void(const std::filesystem::path& file)> showFile;
    std::function<std::vector<RecentlyCleanedItem>(std::int64_t limit)> recentItems;
    std::function<bool()> watchedFoldersPaused;
    std::function<void(bool paused)> setWatchedFoldersPaused;
    std::function<void()> quit;
};

class TrayController final : public QObject {
    Q_OBJECT
public:
    static constexpr std::int64_t recentCount = 5;

    explicit TrayController(TrayCallbacks callbacks, QObject* parent = nullptr);
    ~TrayController() override;

    // Fills the menu from the callbacks (also done each time it is about to show).
    void rebuild();
    QMenu* menu() const { return menu_.get(); }
    // Shows or hides the icon; it is only made where the desktop has a tray.
    void setIconVisible(bool visible);
    bool isIconVisible() const;

private:
    TrayCallbacks callbacks_;
    std::unique_ptr<QMenu> menu_;
    QSystemTrayIcon* icon_ = nullptr;
};

}  // namespace tavrin
