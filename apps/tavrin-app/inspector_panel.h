#pragma once
// The inspector of the selected file: what it carries, grouped by category in the categories'
// order with privacy badges, with a tick for each category and removable item; structural items
// are shown as kept and cannot be ticked. After a clean it shows the verified badge (only when
// the writer verified the output), the sizes before and after, the warnings, and what was
// removed and retained with the reason for each. A failed file shows its reason.

#include <QWidget>

#include <functional>
#include <memory>
#include <optional>

#include "data/queued_file.h"
#include "model/cleaning_result.h"

class QLabel;
class QTreeWidget;
class QTreeWidgetItem;

namespace tavrin {

class InspectorPanel : public QWidget {
    Q_OBJECT
public:
    explicit InspectorPanel(QWidget* parent = nullptr);

    // Shows `file` (none: nothing selected). `tree` is its inspection when done, `inspectionError`
    // what went wrong when not, `result` the last clean of this session.
    void show(const std::shared_ptr<QueuedFile>& file, const MetadataTree* tree, const QString& inspectionError,
              const CleaningResult* result, const QString& note = {});
    void showEmpty(const QString& message);

    QTreeWidget* tree() const { return tree_; }
    QLabel* verifiedBadge() const { return verified_; }
    QTreeWidget* outcome() const { return outcome_; }
    QLabel* headline() const { return title_; }
    QLabel* detail() const { return detail_; }

signals:
    // The user ticked or cleared a category or an item; the window saves the new selection.
    void categoryToggled(tavrin::MetadataCategory category, bool remove);
    void itemToggled(QString itemId, bool remove);

private:
    void itemChanged(QTreeWidgetItem* item, int column);

    QLabel* title_;
    QLabel* detail_;
    QLabel* verified_;
    QLabel* sizes_;
    QLabel* warnings_;
    QTreeWidget* tree_;
    QTreeWidget* outcome_;
    bool filling_ = false;
};

}  // namespace tavrin

Q_DECLARE_METATYPE(tavrin::MetadataCategory)
