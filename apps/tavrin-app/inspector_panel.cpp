#include "inspector_panel.h"

#include <QHeaderView>
#include <QLabel>
#include <QSplitter>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <fmt/core.h>

#include "app_icons.h"
#include "file_configuration.h"
#include "model/data_size.h"

namespace tavrin {

namespace {

constexpr int itemIdRole = Qt::UserRole + 1;
constexpr int categoryRole = Qt::UserRole + 2;

QString qs(std::string_view s) { return QString::fromUtf8(s.data(), static_cast<qsizetype>(s.size())); }

QLabel* makeLabel(const QString& accessibleName, QWidget* parent) {
    auto* label = new QLabel(parent);
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    label->setAccessibleName(accessibleName);
    return label;
}

}  // namespace

InspectorPanel::InspectorPanel(QWidget* parent) : QWidget(parent) {
    setAccessibleName(tr("Inspector"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(8, 8, 8, 8);
    title_ = makeLabel(tr("Selected file"), this);
    QFont big = title_->font();
    big.setPointSizeF(big.pointSizeF() * 1.25);
    big.setBold(true);
    title_->setFont(big);
    detail_ = makeLabel(tr("File details"), this);
    verified_ = makeLabel(tr("Verification"), this);
    verified_->setStyleSheet(QStringLiteral(
        "QLabel { background: #1e8c4b; color: white; border-radius: 4px; padding: 2px 8px; font-weight: bold; }"));
    verified_->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    verified_->setWordWrap(false);
    verified_->setText(tr("✓ Verified clean"));
    sizes_ = makeLabel(tr("Sizes before and after"), this);
    warnings_ = makeLabel(tr("Warnings"), this);
    warnings_->setStyleSheet(QStringLiteral("QLabel { color: #9a5b00; }"));

    tree_ = new QTreeWidget(this);
    tree_->setAccessibleName(tr("Metadata found"));
    tree_->setAccessibleDescription(tr("Tick what to remove. Structural items are kept."));
    tree_->setColumnCount(2);
    tree_->setHeaderLabels({tr("Metadata"), tr("Value")});
    tree_->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    tree_->setUniformRowHeights(true);
    connect(tree_, &QTreeWidget::itemChanged, this, &InspectorPanel::itemChanged);

    outcome_ = new QTreeWidget(this);
    outcome_->setAccessibleName(tr("What the clean removed and kept"));
    outcome_->setColumnCount(3);
    outcome_->setHeaderLabels({tr("Outcome"), tr("Value"), tr("Reason")});
    outcome_->setColumnWidth(0, 150);
    outcome_->setColumnWidth(1, 110);

    auto* split = new QSplitter(Qt::Vertical, this);
    split->addWidget(tree_);
    split->addWidget(outcome_);
    split->setStretchFactor(0, 3);
    split->setStretchFactor(1, 2);

    layout->addWidget(title_);
    layout->addWidget(detail_);
    layout->addWidget(verified_);
    layout->addWidget(sizes_);
    layout->addWidget(warnings_);
    layout->addWidget(split, 1);
    showEmpty(tr("Select a file to see what it carries."));
}

void InspectorPanel::showEmpty(const QString& message) {
    filling_ = true;
    title_->setText(tr("No file selected"));
    detail_->setText(message);
    verified_->hide();
    sizes_->hide();
    warnings_->hide();
    tree_->clear();
    tree_->hide();
    outcome_->clear();
    outcome_->hide();
    filling_ = false;
}

void InspectorPanel::show(const std::shared_ptr<QueuedFile>& file, const MetadataTree* tree,
                          const QString& inspectionError, const CleaningResult* result, const QString& note) {
    if (!file) return showEmpty(tr("Select a file to see what it carries."));
    filling_ = true;
    title_->setText(QString::fromStdString(file->fullFileName()));
    QStringList lines;
    lines << tr("%1 · %2 · %3")
                 .arg(qs(displayName(file->fileType())), QString::fromStdString(DataSize{file->fileSizeBytes}.formatted()),
                      qs(displayName(file->status())));
    if (file->originalSourcePath) lines << tr("From: %1").arg(QString::fromStdString(*file->originalSourcePath));
    if (file->status() == QueuedFile::Status::failed)
        lines << tr("Failed: %1").arg(QString::fromStdString(file->errorMessage.value_or("Unknown error")));
    if (file->cleanedFilePath &&
        (file->status() == QueuedFile::Status::completed || file->status() == QueuedFile::Status::clean))
        lines << tr("Clean file: %1").arg(QString::fromStdString(*file->cleanedFilePath));
    if (file->status() == QueuedFile::Status::clean && file->editHistoryRetainedInPlace)
        lines << tr("Edit history was kept, as the settings ask for cleaning in place.");
    if (!inspectionError.isEmpty()) lines << tr("Cannot read this file: %1").arg(inspectionError);
    if (file->userDidConfigureEmptySelection) lines << tr("Nothing is selected: this file will not be cleaned.");
    if (!note.isEmpty()) lines << note;
    detail_->setText(lines.join(QLatin1Char('\n')));

    // After a clean.
    const bool cleaned = result != nullptr;
    verified_->setVisible(cleaned && result->verifiedClean);
    sizes_->setVisible(cleaned);
    warnings_->setVisible(cleaned && !result->warnings.empty());
    outcome_->clear();
    outcome_->setVisible(cleaned);
    if (cleaned) {
        sizes_->setText(tr("%1 → %2 (%3 saved)")
                            .arg(QString::fromStdString(DataSize{result->originalSize}.formatted()),
                                 QString::fromStdString(DataSize{result->cleanedSize}.formatted()),
                                 QString::fromStdString(DataSize{std::max<std::int64_t>(0, result->bytesSaved())}.formatted())));
        QStringList warnings;
        for (const auto& w : result->warnings)
            warnings << QStringLiteral("⚠ %1").arg(QString::fromStdString(
                            w.context.empty() ? w.message : fmt::format("{}: {}", w.context, w.message)));
        warnings_->setText(warnings.join(QLatin1Char('\n')));
        auto* removed = new QTreeWidgetItem(outcome_, {tr("Removed (%1)").arg(result->removedItems.size())});
        for (const auto& item : result->removedItems)
            new QTreeWidgetItem(removed, {QString::fromStdString(item.displayName),
                                          QString::fromStdString(item.value.description()).left(120),
                                          QString::fromStdString(FileConfiguration::removedReason(item, result->profileUsed))});
        auto* kept = new QTreeWidgetItem(outcome_, {tr("Kept (%1)").arg(result->retainedItems.size())});
        for (const auto& item : result->retainedItems)
            new QTreeWidgetItem(kept, {QString::fromStdString(item.displayName),
                                       QString::fromStdString(item.value.description()).left(120),
                                       QString::fromStdString(FileConfiguration::retainedReason(item, result->profileUsed))});
        removed->setExpanded(true);
        kept->setExpanded(true);
    }

    tree_->clear();
    // After a clean the outcome takes the place of what the file carried before.
    tree_->setVisible(tree != nullptr && !cleaned);
    const bool editable =
        file->status() == QueuedFile::Status::staged || file->status() == QueuedFile::Status::configured;
    if (tree) {
        const auto categories = file->categoriesToRemove();
        for (const auto& [category, items] : tree->categoryGroups()) {
            auto* group = new QTreeWidgetItem(tree_);
            const auto level = privacyLevel(category);
            group->setText(0, tr("%1 (%2)").arg(qs(displayName(category))).arg(items.size()));
            group->setText(1, tr("%1 privacy").arg(qs(displayName(level))));
            group->setIcon(0, icons::privacy(level));
            group->setToolTip(0, qs(description(category)));
            group->setData(0, categoryRole, static_cast<int>(category));
            const bool anyRemovable = std::any_of(items.begin(), items.end(), [](const auto& i) { return i.isRemovable; });
            // A new item can be ticked unless told otherwise.
            group->setFlags(group->flags() & ~Qt::ItemIsUserCheckable);
            if (anyRemovable) {
                group->setFlags((group->flags() | Qt::ItemIsUserCheckable) &
                                (editable ? ~Qt::ItemFlags() : ~Qt::ItemIsEnabled));
                group->setCheckState(0, categories.count(category) ? Qt::Checked : Qt::Unchecked);
            }
            for (const auto& item : items) {
                auto* leaf = new QTreeWidgetItem(group);
                leaf->setFlags(leaf->flags() & ~Qt::ItemIsUserCheckable);
                leaf->setText(0, QString::fromStdString(item.displayName));
                leaf->setText(1, QString::fromStdString(item.value.description()).left(200));
                leaf->setData(0, itemIdRole, QString::fromStdString(item.id));
                leaf->setToolTip(0, QString::fromStdString(item.id));
                if (item.isRemovable) {
                    leaf->setFlags((leaf->flags() | Qt::ItemIsUserCheckable) &
                                   (editable ? ~Qt::ItemFlags() : ~Qt::ItemIsEnabled));
                    leaf->setCheckState(0, FileConfiguration::isMarkedForRemoval(*file, item) ? Qt::Checked : Qt::Unchecked);
                } else {
                    leaf->setText(1, tr("Kept: needed to open the file — %1").arg(leaf->text(1)));
                    leaf->setForeground(0, palette().brush(QPalette::Disabled, QPalette::Text));
                }
            }
            group->setExpanded(true);
        }
        if (tree->rootNodes.empty()) new QTreeWidgetItem(tree_, {tr("No metadata found")});
    }
    filling_ = false;
}

void InspectorPanel::itemChanged(QTreeWidgetItem* item, int column) {
    if (filling_ || column != 0) return;
    const bool remove = item->checkState(0) == Qt::Checked;
    // Told after the tick's own handling: the answer rebuilds the tree, items included.
    if (const auto category = item->data(0, categoryRole); category.isValid()) {
        const auto c = static_cast<MetadataCategory>(category.toInt());
        QMetaObject::invokeMethod(this, [this, c, remove] { emit categoryToggled(c, remove); }, Qt::QueuedConnection);
    } else if (const auto id = item->data(0, itemIdRole); id.isValid()) {
        QMetaObject::invokeMethod(this, [this, id = id.toString(), remove] { emit itemToggled(id, remove); },
                                  Qt::QueuedConnection);
    }
}

}  // namespace tavrin
