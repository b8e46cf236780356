#pragma once
// The History window. "Recently Cleaned": one entry per output, newest first, with "Show in
// Folder", dragging the cleaned file out, and "Clean Again" while the original exists; temporary
// shares are marked. "All History": every record with its sizes and preset, and "Clear History".

#include <QListWidget>
#include <QWidget>

#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

#include "data/processing_history.h"
#include "data/store.h"
#include "services/change_notifications.h"
#include "services/recently_cleaned_list.h"

class QLabel;
class QPushButton;
class QTabWidget;
class QTreeWidget;

namespace tavrin {

// The history records as the window reads and clears them.
class HistoryRecords {
public:
    HistoryRecords(ModelContext& context, std::shared_ptr<ChangeNotifying> notifier);
    // Newest first.
    std::vector<std::shared_ptr<ProcessingHistory>> all();
    // Deletes every record (not the files). Throws StoreError, rolled back.
    void clear();

private:
    ModelContext& context_;
    std::shared_ptr<ChangeNotifying> notifier_;
};

// The recent list with drag-out of the cleaned files, checked at the moment of the drag.
class RecentFilesList final : public QListWidget {
    Q_OBJECT
public:
    using QListWidget::QListWidget;
    std::function<void(const std::string& problem)> onDragRefused;
    // What a drag of `item` carries: the cleaned file as a URL, or none (and `problem` says why).
    static QMimeData* dragData(const RecentlyCleanedItem& item, std::string& problem);
    std::vector<RecentlyCleanedItem> items;

protected:
    void startDrag(Qt::DropActions supportedActions) override;
};

struct HistoryWindowServices {
    std::function<std::vector<RecentlyCleanedItem>(std::int64_t limit)> recentItems;
    HistoryRecords& records;
    std::function<void(const std::filesystem::path& file)> showInFolder;
    std::function<void(const std::filesystem::path& original)> cleanAgain;
};

class HistoryWindow final : public QWidget {
    Q_OBJECT
public:
    static constexpr std::int64_t recentLimit = 50;

    explicit HistoryWindow(HistoryWindowServices services, QWidget* parent = nullptr);

    void reload();
    void showSelectedInFolder();
    void cleanSelectedAgain();
    // Asks first unless `confirmed`.
    void clearHistory(bool confirmed = false);

    RecentFilesList* recentList() const { return recent_; }
    QTreeWidget* historyTable() const { return history_; }
    QPushButton* showInFolderButton() const { return show_; }
    QPushButton* cleanAgainButton() const { return again_; }
    QPushButton* clearButton() const { return clear_; }
    QLabel* messageLabel() const { return message_; }
    QTabWidget* tabs() const { return tabs_; }

private:
    void build();
    const RecentlyCleanedItem* selectedItem() const;
    void updateButtons();

    HistoryWindowServices services_;
    QTabWidget* tabs_ = nullptr;
    RecentFilesList* recent_ = nullptr;
    QTreeWidget* history_ = nullptr;
    QPushButton* show_ = nullptr;
    QPushButton* again_ = nullptr;
    QPushButton* clear_ = nullptr;
    QLabel* message_ = nullptr;
    QLabel* totals_ = nullptr;
};

// "2.4 MB": decimal units, as the rest of Tavrin shows sizes.
QString formattedBytes(std::int64_t bytes);
// "2024-03-05 14:02" in local time.
QString formattedDate(Date date);

}  // namespace tavrin
