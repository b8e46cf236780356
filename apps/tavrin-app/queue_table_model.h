#pragma once
// The queue as a table: one row per queued file, read from the store, never a widget per row.
// Columns: name (with the type's icon), status, preset, items to remove, size, saved. The sort
// role gives raw values so a proxy sorts numbers as numbers. Rows with a cleaned file drag out
// as text/uri-list of the cleaned files.

#include <QAbstractTableModel>
#include <QHash>
#include <QIcon>
#include <QSet>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "data/queued_file.h"

class QMimeData;

namespace tavrin {

class AppContext;

class QueueTableModel : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column { nameColumn, statusColumn, presetColumn, removeColumn, sizeColumn, savedColumn, columnCount_ };
    static constexpr int sortRole = Qt::UserRole + 1;
    static constexpr int idRole = Qt::UserRole + 2;
    static constexpr int cleanedPathRole = Qt::UserRole + 3;

    explicit QueueTableModel(AppContext& app, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QModelIndexList& indexes) const override;
    Qt::DropActions supportedDragActions() const override { return Qt::CopyAction; }

    // Reads the queue again from the app's current context, keeping rows that did not change.
    void reload();
    std::shared_ptr<QueuedFile> fileAt(int row) const;
    int rowOf(const QString& id) const;
    // Rows being cleaned by a run of this window show as working even before the store says so.
    void setWorking(const QStringList& ids, bool working);

    // The number of removable items the file's configuration would remove, when it was inspected.
    static std::optional<std::int64_t> itemsToRemove(const QueuedFile& file);

    // Recomputes the shown values of one row from its record (after an inspection or a tick).
    void refreshRow(int row);
    // Shows these records (read afresh) in place of the rows with their ids.
    void updateFiles(const std::vector<std::shared_ptr<QueuedFile>>& files);
    // Files in the queue, and those staged or ready.
    int pendingCount() const;

private:
    // What a row shows, computed once per reload so that painting and sorting never decode.
    struct Row {
        std::shared_ptr<QueuedFile> file;
        QString id;
        QString name;
        QString preset;
        std::optional<std::int64_t> toRemove;
        QString size;
        QString saved;
        bool cleaned = false;
    };
    Row makeRow(std::shared_ptr<QueuedFile> file) const;
    const QIcon& typeIcon(FileType type) const;
    const QIcon& statusIcon(QueuedFile::Status status) const;

    AppContext& app_;
    std::vector<Row> rows_;
    QHash<QString, int> rowById_;
    std::map<std::string, std::string> presetNames_;  // preset id text → name
    QSet<QString> working_;
    mutable std::map<FileType, QIcon> typeIcons_;
    mutable std::map<QueuedFile::Status, QIcon> statusIcons_;
};

}  // namespace tavrin
