#include "queue_table_model.h"

#include <QMimeData>
#include <QUrl>

#include "app_context.h"
#include "app_icons.h"
#include "model/data_size.h"

namespace tavrin {

namespace {

QString text(std::string_view s) { return QString::fromUtf8(s.data(), static_cast<qsizetype>(s.size())); }

bool hasCleanedFile(const QueuedFile& file) {
    const auto s = file.status();
    return (s == QueuedFile::Status::completed || s == QueuedFile::Status::clean) && file.cleanedFilePath;
}

}  // namespace

QueueTableModel::QueueTableModel(AppContext& app, QObject* parent) : QAbstractTableModel(parent), app_(app) { reload(); }

std::optional<std::int64_t> QueueTableModel::itemsToRemove(const QueuedFile& file) {
    const auto summary = file.metadataSummary();
    if (!summary) return std::nullopt;
    const auto categories = file.categoriesToRemove();
    if (categories.empty()) return summary->totalRemovable();
    std::int64_t count = 0;
    for (auto c : categories) count += summary->count(c);
    return count;
}

QueueTableModel::Row QueueTableModel::makeRow(std::shared_ptr<QueuedFile> file) const {
    Row row;
    row.id = QString::fromStdString(file->id.uuidString());
    row.name = QString::fromStdString(file->fullFileName());
    if (file->presetId) {
        auto it = presetNames_.find(file->presetId->uuidString());
        if (it != presetNames_.end()) row.preset = QString::fromStdString(it->second);
    } else if (!file->categoriesToRemoveRaw.empty() || !file->specificKeysToRemove.empty()) {
        row.preset = tr("Custom");
    }
    row.toRemove = itemsToRemove(*file);
    row.size = QString::fromStdString(DataSize{file->fileSizeBytes}.formatted());
    if (auto saved = file->bytesSaved()) row.saved = QString::fromStdString(DataSize{*saved}.formatted());
    row.cleaned = hasCleanedFile(*file);
    row.file = std::move(file);
    return row;
}

const QIcon& QueueTableModel::typeIcon(FileType type) const {
    auto it = typeIcons_.find(type);
    if (it == typeIcons_.end()) it = typeIcons_.emplace(type, icons::fileType(type)).first;
    return it->second;
}

const QIcon& QueueTableModel::statusIcon(QueuedFile::Status status) const {
    auto it = statusIcons_.find(status);
    if (it == statusIcons_.end()) it = statusIcons_.emplace(status, icons::status(status)).first;
    return it->second;
}

void QueueTableModel::reload() {
    std::vector<std::shared_ptr<QueuedFile>> fresh;
    try {
        fresh = app_.files();
        presetNames_.clear();
        for (const auto& preset : app_.allPresets()) presetNames_[preset->id.uuidString()] = preset->name;
    } catch (...) {
        // The store could not be read: keep showing what was there.
        return;
    }
    beginResetModel();
    rows_.clear();
    rowById_.clear();
    rows_.reserve(fresh.size());
    for (auto& file : fresh) {
        rowById_.insert(QString::fromStdString(file->id.uuidString()), static_cast<int>(rows_.size()));
        rows_.push_back(makeRow(std::move(file)));
    }
    endResetModel();
}

void QueueTableModel::refreshRow(int row) {
    if (row < 0 || row >= static_cast<int>(rows_.size())) return;
    auto& slot = rows_[static_cast<std::size_t>(row)];
    slot = makeRow(slot.file);
    emit dataChanged(index(row, 0), index(row, columnCount_ - 1));
}

void QueueTableModel::updateFiles(const std::vector<std::shared_ptr<QueuedFile>>& files) {
    for (const auto& file : files) {
        const int row = rowOf(QString::fromStdString(file->id.uuidString()));
        if (row < 0) continue;
        rows_[static_cast<std::size_t>(row)] = makeRow(file);
        emit dataChanged(index(row, 0), index(row, columnCount_ - 1));
    }
}

int QueueTableModel::pendingCount() const {
    return static_cast<int>(std::count_if(rows_.begin(), rows_.end(), [](const Row& r) {
        const auto s = r.file->status();
        return s == QueuedFile::Status::staged || s == QueuedFile::Status::configured;
    }));
}

int QueueTableModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}
int QueueTableModel::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : columnCount_; }

std::shared_ptr<QueuedFile> QueueTableModel::fileAt(int row) const {
    if (row < 0 || row >= static_cast<int>(rows_.size())) return nullptr;
    return rows_[static_cast<std::size_t>(row)].file;
}

int QueueTableModel::rowOf(const QString& id) const { return rowById_.value(id, -1); }

void QueueTableModel::setWorking(const QStringList& ids, bool working) {
    for (const auto& id : ids) {
        if (working) working_.insert(id);
        else working_.remove(id);
        const int row = rowOf(id);
        if (row >= 0) emit dataChanged(index(row, 0), index(row, columnCount_ - 1));
    }
}

QVariant QueueTableModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() < 0 || index.row() >= static_cast<int>(rows_.size())) return {};
    const Row& row = rows_[static_cast<std::size_t>(index.row())];
    const QueuedFile& file = *row.file;
    const auto status = working_.contains(row.id) ? QueuedFile::Status::processing : file.status();
    if (role == idRole) return row.id;
    if (role == cleanedPathRole) return row.cleaned ? QString::fromStdString(*file.cleanedFilePath) : QString();
    if (role == Qt::ToolTipRole) {
        if (status == QueuedFile::Status::failed)
            return QString::fromStdString(file.errorMessage.value_or("The clean failed."));
        if (row.cleaned)
            return tr("Clean file: %1 (press Enter or double-click to show it)").arg(QString::fromStdString(*file.cleanedFilePath));
        return QString::fromStdString(file.originalSourcePath.value_or(file.fullFileName()));
    }
    const bool shown = role == Qt::DisplayRole || role == Qt::AccessibleTextRole;
    switch (index.column()) {
        case nameColumn:
            if (shown || role == sortRole) return row.name;
            if (role == Qt::DecorationRole) return typeIcon(file.fileType());
            break;
        case statusColumn:
            if (shown) return text(displayName(status));
            if (role == sortRole) return static_cast<int>(status);
            if (role == Qt::DecorationRole) return statusIcon(status);
            break;
        case presetColumn:
            if (role == Qt::DisplayRole) return row.preset.isEmpty() ? QStringLiteral("—") : row.preset;
            if (role == sortRole || role == Qt::AccessibleTextRole) return row.preset;
            break;
        case removeColumn:
            if (shown) return row.toRemove ? QString::number(*row.toRemove) : QStringLiteral("—");
            if (role == sortRole) return row.toRemove ? static_cast<qlonglong>(*row.toRemove) : -1LL;
            if (role == Qt::TextAlignmentRole) return int(Qt::AlignRight | Qt::AlignVCenter);
            break;
        case sizeColumn:
            if (shown) return row.size;
            if (role == sortRole) return static_cast<qlonglong>(file.fileSizeBytes);
            if (role == Qt::TextAlignmentRole) return int(Qt::AlignRight | Qt::AlignVCenter);
            break;
        case savedColumn: {
            if (shown) return row.saved.isEmpty() ? QStringLiteral("—") : row.saved;
            if (role == sortRole) {
                const auto saved = file.bytesSaved();
                return saved ? static_cast<qlonglong>(*saved) : std::numeric_limits<qlonglong>::min();
            }
            if (role == Qt::TextAlignmentRole) return int(Qt::AlignRight | Qt::AlignVCenter);
            break;
        }
        default: break;
    }
    return {};
}

QVariant QueueTableModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return QAbstractTableModel::headerData(section, orientation, role);
    switch (section) {
        case nameColumn: return tr("Name");
        case statusColumn: return tr("Status");
        case presetColumn: return tr("Preset");
        case removeColumn: return tr("To remove");
        case sizeColumn: return tr("Size");
        case savedColumn: return tr("Saved");
        default: return {};
    }
}

Qt::ItemFlags QueueTableModel::flags(const QModelIndex& index) const {
    auto flags = QAbstractTableModel::flags(index);
    if (index.isValid() && index.row() < static_cast<int>(rows_.size()) && rows_[static_cast<std::size_t>(index.row())].cleaned)
        flags |= Qt::ItemIsDragEnabled;
    return flags;
}

QStringList QueueTableModel::mimeTypes() const { return {QStringLiteral("text/uri-list")}; }

QMimeData* QueueTableModel::mimeData(const QModelIndexList& indexes) const {
    QList<QUrl> urls;
    QSet<int> rows;
    for (const auto& index : indexes) {
        if (rows.contains(index.row())) continue;
        rows.insert(index.row());
        const auto file = fileAt(index.row());
        if (!file || !hasCleanedFile(*file)) continue;
        urls << QUrl::fromLocalFile(QString::fromStdString(*file->cleanedFilePath));
    }
    if (urls.isEmpty()) return nullptr;
    auto* mime = new QMimeData;
    mime->setUrls(urls);
    return mime;
}

}  // namespace tavrin
