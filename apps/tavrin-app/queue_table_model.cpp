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
    files_ = std::move(fresh);
    endResetModel();
}

int QueueTableModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(files_.size());
}
int QueueTableModel::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : columnCount_; }

std::shared_ptr<QueuedFile> QueueTableModel::fileAt(int row) const {
    if (row < 0 || row >= static_cast<int>(files_.size())) return nullptr;
    return files_[static_cast<std::size_t>(row)];
}

int QueueTableModel::rowOf(const QString& id) const {
    for (std::size_t i = 0; i < files_.size(); ++i)
        if (QString::fromStdString(files_[i]->id.uuidString()) == id) return static_cast<int>(i);
    return -1;
}

void QueueTableModel::setWorking(const QStringList& ids, bool working) {
    for (const auto& id : ids) {
        if (working) working_.insert(id);
        else working_.remove(id);
        const int row = rowOf(id);
        if (row >= 0) emit dataChanged(index(row, 0), index(row, columnCount_ - 1));
    }
}

QVariant QueueTableModel::data(const QModelIndex& index, int role) const {
    const auto file = fileAt(index.row());
    if (!file || !index.isValid()) return {};
    const QString id = QString::fromStdString(file->id.uuidString());
    const auto status = working_.contains(id) ? QueuedFile::Status::processing : file->status();
    if (role == idRole) return id;
    if (role == cleanedPathRole)
        return hasCleanedFile(*file) ? QString::fromStdString(*file->cleanedFilePath) : QString();
    if (role == Qt::ToolTipRole) {
        if (status == QueuedFile::Status::failed)
            return QString::fromStdString(file->errorMessage.value_or("The clean failed."));
        if (hasCleanedFile(*file))
            return tr("Clean file: %1 (press Enter or double-click to show it)").arg(QString::fromStdString(*file->cleanedFilePath));
        return QString::fromStdString(file->originalSourcePath.value_or(file->fullFileName()));
    }
    switch (index.column()) {
        case nameColumn:
            if (role == Qt::DisplayRole || role == sortRole || role == Qt::AccessibleTextRole)
                return QString::fromStdString(file->fullFileName());
            if (role == Qt::DecorationRole) return icons::fileType(file->fileType());
            break;
        case statusColumn:
            if (role == Qt::DisplayRole || role == Qt::AccessibleTextRole) return text(displayName(status));
            if (role == sortRole) return static_cast<int>(status);
            if (role == Qt::DecorationRole) return icons::status(status);
            break;
        case presetColumn: {
            QString name;
            if (file->presetId) {
                auto it = presetNames_.find(file->presetId->uuidString());
                if (it != presetNames_.end()) name = QString::fromStdString(it->second);
            } else if (!file->categoriesToRemoveRaw.empty() || !file->specificKeysToRemove.empty()) {
                name = tr("Custom");
            }
            if (role == Qt::DisplayRole || role == sortRole || role == Qt::AccessibleTextRole)
                return name.isEmpty() && role == Qt::DisplayRole ? QStringLiteral("—") : name;
            break;
        }
        case removeColumn: {
            const auto count = itemsToRemove(*file);
            if (role == Qt::DisplayRole) return count ? QString::number(*count) : QStringLiteral("—");
            if (role == sortRole) return count ? static_cast<qlonglong>(*count) : -1LL;
            if (role == Qt::TextAlignmentRole) return int(Qt::AlignRight | Qt::AlignVCenter);
            break;
        }
        case sizeColumn:
            if (role == Qt::DisplayRole) return QString::fromStdString(DataSize{file->fileSizeBytes}.formatted());
            if (role == sortRole) return static_cast<qlonglong>(file->fileSizeBytes);
            if (role == Qt::TextAlignmentRole) return int(Qt::AlignRight | Qt::AlignVCenter);
            break;
        case savedColumn: {
            const auto saved = file->bytesSaved();
            if (role == Qt::DisplayRole)
                return saved ? QString::fromStdString(DataSize{*saved}.formatted()) : QStringLiteral("—");
            if (role == sortRole) return saved ? static_cast<qlonglong>(*saved) : std::numeric_limits<qlonglong>::min();
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
    if (auto file = fileAt(index.row()); file && hasCleanedFile(*file)) flags |= Qt::ItemIsDragEnabled;
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
