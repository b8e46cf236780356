#include "history_window.h"

#include "secondary_text.h"

#include "settings_access.h"

#include <QDateTime>
#include <QDrag>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QTabWidget>
#include <QTreeWidget>
#include <QUrl>
#include <QVBoxLayout>

#include "data/queries.h"
#include "model/data_size.h"

namespace tavrin {

namespace {

// A row that sorts by the value behind each cell (a time, a byte count), not by its text.
class HistoryRow final : public QTreeWidgetItem {
public:
    using QTreeWidgetItem::QTreeWidgetItem;
    bool operator<(const QTreeWidgetItem& other) const override {
        const int column = treeWidget() ? treeWidget()->sortColumn() : 0;
        const auto mine = data(column, Qt::UserRole);
        const auto theirs = other.data(column, Qt::UserRole);
        if (mine.isValid() && theirs.isValid()) return mine.toLongLong() < theirs.toLongLong();
        return text(column).localeAwareCompare(other.text(column)) < 0;
    }
};

}  // namespace

QString formattedBytes(std::int64_t bytes) { return QString::fromStdString(DataSize{bytes}.compact()); }

QString formattedDate(Date date) {
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(date.time_since_epoch()).count();
    return QDateTime::fromMSecsSinceEpoch(ms).toString("yyyy-MM-dd HH:mm");
}

HistoryRecords::HistoryRecords(ModelContext& context, std::shared_ptr<ChangeNotifying> notifier)
    : context_(context), notifier_(notifier ? std::move(notifier) : std::make_shared<SilentChangeNotifier>()) {}

std::vector<std::shared_ptr<ProcessingHistory>> HistoryRecords::all() { return context_.fetch(HistoryQueries::recent()); }

void HistoryRecords::clear() {
    for (const auto& record : all()) context_.deleteRecord(record);
    saveAndAnnounce(context_, *notifier_);
}

QMimeData* RecentFilesList::dragData(const RecentlyCleanedItem& item, std::string& problem) {
    if (!item.fileURL) {
        problem = "This file was not kept.";
        return nullptr;
    }
    const auto provided = RecentFileDragProvider::itemProvider(*item.fileURL);
    if (!provided) {
        problem = RecentFileDragError::fileNoLongerAvailable(*item.fileURL).errorDescription();
        return nullptr;
    }
    auto* data = new QMimeData;
    data->setUrls({QUrl::fromLocalFile(QString::fromStdString(provided->url.string()))});
    data->setText(QString::fromStdString(provided->url.string()));
    return data;
}

void RecentFilesList::startDrag(Qt::DropActions) {
    const int row = currentRow();
    if (row < 0 || row >= static_cast<int>(items.size())) return;
    std::string problem;
    auto* data = dragData(items[static_cast<std::size_t>(row)], problem);
    if (!data) {
        if (onDragRefused) onDragRefused(problem);
        return;
    }
    auto* drag = new QDrag(this);
    drag->setMimeData(data);
    drag->exec(Qt::CopyAction, Qt::CopyAction);
}

HistoryWindow::HistoryWindow(HistoryWindowServices services, QWidget* parent)
    : QWidget(parent, Qt::Window), services_(std::move(services)) {
    build();
    reload();
}

void HistoryWindow::build() {
    setWindowTitle("History");
    setAccessibleName("History");
    tabs_ = new QTabWidget;
    tabs_->setAccessibleName("History views");

    auto* recentPage = new QWidget;
    recent_ = new RecentFilesList;
    recent_->setAccessibleName("Recently Cleaned");
    recent_->setDragEnabled(true);
    recent_->setDragDropMode(QAbstractItemView::DragOnly);
    recent_->setAlternatingRowColors(true);
    recent_->onDragRefused = [this](const std::string& problem) { message_->setText(QString::fromStdString(problem)); };
    show_ = new QPushButton("&Show in Folder");
    show_->setAccessibleName("Show in Folder");
    again_ = new QPushButton("Clean &Again");
    again_->setAccessibleName("Clean Again");
    auto* recentButtons = new QHBoxLayout;
    recentButtons->addWidget(show_);
    recentButtons->addWidget(again_);
    recentButtons->addStretch(1);
    auto* hint = new QLabel("Drag a file from the list to another program to use the cleaned copy.");
    showAsSecondary(hint);
    hint->setWordWrap(true);
    auto* recentLayout = new QVBoxLayout(recentPage);
    recentLayout->addWidget(recent_, 1);
    recentLayout->addWidget(hint);
    recentLayout->addLayout(recentButtons);

    auto* historyPage = new QWidget;
    history_ = new QTreeWidget;
    history_->setAccessibleName("All History");
    history_->setRootIsDecorated(false);
    history_->setSortingEnabled(true);
    history_->setHeaderLabels({"File", "Cleaned", "Preset", "Items removed", "Before", "After", "Saved"});
    history_->setColumnWidth(0, 220);
    history_->setColumnWidth(1, 130);
    clear_ = new QPushButton("C&lear History\u2026");
    clear_->setAccessibleName("Clear History");
    totals_ = new QLabel;
    totals_->setAccessibleName("History totals");
    auto* historyButtons = new QHBoxLayout;
    historyButtons->addWidget(totals_, 1);
    historyButtons->addWidget(clear_);
    auto* historyLayout = new QVBoxLayout(historyPage);
    historyLayout->addWidget(history_, 1);
    historyLayout->addLayout(historyButtons);

    tabs_->addTab(recentPage, "&Recently Cleaned");
    tabs_->addTab(historyPage, "All &History");
    message_ = new QLabel;
    message_->setWordWrap(true);
    message_->setAccessibleName("History message");
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(tabs_, 1);
    layout->addWidget(message_);
    resize(720, 480);

    connect(recent_, &QListWidget::currentRowChanged, this, [this] { updateButtons(); });
    connect(recent_, &QListWidget::itemActivated, this, [this] { showSelectedInFolder(); });
    connect(show_, &QPushButton::clicked, this, [this] { showSelectedInFolder(); });
    connect(again_, &QPushButton::clicked, this, [this] { cleanSelectedAgain(); });
    connect(clear_, &QPushButton::clicked, this, [this] { clearHistory(); });
}

void HistoryWindow::reload() {
    message_->clear();
    recent_->items = services_.recentItems ? services_.recentItems(recentLimit) : std::vector<RecentlyCleanedItem>{};
    {
        const QSignalBlocker block(recent_);
        recent_->clear();
        for (const auto& item : recent_->items) {
            QString text = QString::fromStdString(item.fileName);
            QStringList details{formattedDate(item.processedAt), QString::fromStdString(item.presetName)};
            if (item.bytesSaved > 0) details << formattedBytes(item.bytesSaved) + " saved";
            if (item.isEphemeralShare) details << "Shared, not kept";
            else if (!item.canRevealOrDrag()) details << "File no longer there";
            auto* row = new QListWidgetItem(text + "\n" + details.join("  \u00B7  "));
            row->setData(Qt::AccessibleTextRole, text + ", " + details.join(", "));
            if (!item.canRevealOrDrag()) row->setForeground(palette().color(QPalette::Disabled, QPalette::Text));
            recent_->addItem(row);
        }
        if (!recent_->items.empty()) recent_->setCurrentRow(0);
    }
    updateButtons();

    history_->setSortingEnabled(false);
    history_->clear();
    std::int64_t saved = 0;
    std::size_t count = 0;
    try {
        for (const auto& record : services_.records.all()) {
            const auto savedBytes = std::max<std::int64_t>(0, record->bytesSaved());
            auto* row = new HistoryRow(QStringList{
                QString::fromStdString(record->fileName), formattedDate(record->processedAt),
                QString::fromStdString(record->presetName), QString::number(record->removedItemCount),
                formattedBytes(record->originalSize), formattedBytes(record->cleanedSize), formattedBytes(savedBytes)});
            const auto when = std::chrono::duration_cast<std::chrono::milliseconds>(record->processedAt.time_since_epoch());
            row->setData(1, Qt::UserRole, QVariant::fromValue<qlonglong>(when.count()));
            row->setData(3, Qt::UserRole, QVariant::fromValue<qlonglong>(record->removedItemCount));
            row->setData(4, Qt::UserRole, QVariant::fromValue<qlonglong>(record->originalSize));
            row->setData(5, Qt::UserRole, QVariant::fromValue<qlonglong>(record->cleanedSize));
            row->setData(6, Qt::UserRole, QVariant::fromValue<qlonglong>(savedBytes));
            row->setToolTip(0, QString::fromStdString(record->cleanedFilePath.value_or(record->fileName)));
            history_->addTopLevelItem(row);
            saved += savedBytes;
            ++count;
        }
    } catch (const std::exception& e) {
        message_->setText(QString::fromStdString(std::string("The history cannot be read: ") + e.what()));
    }
    history_->setSortingEnabled(true);
    history_->sortByColumn(1, Qt::DescendingOrder);
    totals_->setText(QString("%1 file%2 cleaned, %3 saved")
                         .arg(count)
                         .arg(count == 1 ? "" : "s")
                         .arg(formattedBytes(saved)));
    clear_->setEnabled(count > 0);
}

const RecentlyCleanedItem* HistoryWindow::selectedItem() const {
    const int row = recent_->currentRow();
    if (row < 0 || row >= static_cast<int>(recent_->items.size())) return nullptr;
    return &recent_->items[static_cast<std::size_t>(row)];
}

void HistoryWindow::updateButtons() {
    const auto* item = selectedItem();
    show_->setEnabled(item && item->canRevealOrDrag());
    again_->setEnabled(item && item->canCleanAgain());
}

void HistoryWindow::showSelectedInFolder() {
    const auto* item = selectedItem();
    if (!item) return;
    if (!item->fileURL) {
        message_->setText("The cleaned file is no longer there.");
        return;
    }
    if (services_.showInFolder) services_.showInFolder(*item->fileURL);
}

void HistoryWindow::cleanSelectedAgain() {
    const auto* item = selectedItem();
    if (!item || !item->originalFileURL) return;
    if (services_.cleanAgain) services_.cleanAgain(*item->originalFileURL);
}

void HistoryWindow::clearHistory(bool confirmed) {
    if (!confirmed) {
        const auto answer = QMessageBox::question(
            this, "Clear History",
            "Clear the history of cleaned files? The cleaned files themselves are not deleted.",
            QMessageBox::Cancel | QMessageBox::Ok, QMessageBox::Cancel);
        if (answer != QMessageBox::Ok) return;
    }
    try {
        services_.records.clear();
    } catch (const std::exception& e) {
        message_->setText(QString::fromStdString(std::string("The history was not cleared: ") + e.what()));
        return;
    }
    reload();
}

}  // namespace tavrin
