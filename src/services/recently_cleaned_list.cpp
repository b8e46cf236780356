#include "services/recently_cleaned_list.h"

#include <algorithm>
#include <set>
#include <unistd.h>

#include <SQLiteCpp/SQLiteCpp.h>

#include "data/shared_container.h"
#include "model/file_type.h"

namespace tavrin {

namespace stdfs = std::filesystem;

RecentlyCleanedList::Record RecentlyCleanedList::Record::from(const ProcessingHistory& history) {
    Record record;
    record.id = history.id;
    record.fileName = history.fileName;
    if (history.cleanedFilePath) {
        const std::string last = stdfs::path(*history.cleanedFilePath).filename().string();
        if (!last.empty()) record.fileName = last;
    }
    record.processedAt = history.processedAt;
    record.presetName = history.presetName;
    record.bytesSaved = history.bytesSaved();
    record.cleanedFilePath = history.cleanedFilePath;
    record.originalFilePath = history.originalFilePath;
    record.outputRetained = history.outputRetained;
    return record;
}

bool RecentlyCleanedList::fileExistsAtPath(const std::string& path) {
    std::error_code ec;
    return stdfs::exists(path, ec);
}

std::vector<RecentlyCleanedItem> RecentlyCleanedList::items(const std::vector<ProcessingHistory>& history,
                                                            std::int64_t limit, const FileExists& fileExists) {
    if (limit < 1) return {};
    std::vector<Record> records;
    records.reserve(history.size());
    for (const auto& h : history) records.push_back(Record::from(h));
    return items(std::move(records), limit, fileExists);
}

std::vector<RecentlyCleanedItem> RecentlyCleanedList::items(std::vector<Record> records, std::int64_t limit,
                                                            const FileExists& fileExists) {
    if (limit < 1) return {};
    std::stable_sort(records.begin(), records.end(),
                     [](const Record& a, const Record& b) { return a.processedAt > b.processedAt; });
    std::vector<RecentlyCleanedItem> out;
    std::set<std::string> seen;
    for (const auto& record : records) {
        if (static_cast<std::int64_t>(out.size()) >= limit) break;
        if (record.cleanedFilePath) {
            const std::string standardized = stdfs::path(*record.cleanedFilePath).lexically_normal().string();
            if (!seen.insert(standardized).second) continue;
        }
        RecentlyCleanedItem item;
        item.id = record.id;
        item.fileName = record.fileName;
        item.processedAt = record.processedAt;
        item.presetName = record.presetName;
        item.bytesSaved = std::max<std::int64_t>(0, record.bytesSaved);
        if (record.cleanedFilePath && fileExists(*record.cleanedFilePath)) item.fileURL = *record.cleanedFilePath;
        if (record.originalFilePath && fileExists(*record.originalFilePath))
            item.originalFileURL = *record.originalFilePath;
        item.isEphemeralShare = !record.outputRetained;
        out.push_back(std::move(item));
    }
    return out;
}

RecentlyCleanedStore::RecentlyCleanedStore(stdfs::path storeURL) {
    std::error_code ec;
    if (stdfs::is_regular_file(storeURL, ec)) storeURL_ = std::move(storeURL);
}

RecentlyCleanedStore::RecentlyCleanedStore() : RecentlyCleanedStore(SharedContainerConfig::applicationStoreURL()) {}

std::vector<RecentlyCleanedItem> RecentlyCleanedStore::recentItems(std::int64_t limit) const {
    if (!storeURL_) return {};
    limit = std::clamp<std::int64_t>(limit, 0, maximumLimit);
    if (limit == 0) return {};
    try {
        // Read-only: the store is neither created nor brought up to date here.
        SQLite::Database db(storeURL_->string(), SQLite::OPEN_READONLY);
        const TableSpec& table = ProcessingHistory::table();
        SQLite::Statement query(db, "SELECT * FROM \"" + table.name + "\" ORDER BY \"processedAt\" DESC LIMIT ?");
        query.bind(1, static_cast<std::int64_t>(limit * 3));
        std::vector<int> columnOf(table.columns.size(), -1);
        std::vector<ProcessingHistory> history;
        bool mapped = false;
        while (query.executeStep()) {
            if (!mapped) {
                for (int c = 0; c < query.getColumnCount(); ++c) {
                    const std::string name = query.getColumnName(c);
                    for (std::size_t i = 0; i < table.columns.size(); ++i)
                        if (table.columns[i].name == name) columnOf[i] = c;
                }
                mapped = true;
            }
            StoreRow row(table.columns.size());
            for (std::size_t i = 0; i < table.columns.size(); ++i) {
                if (columnOf[i] < 0) {
                    // A store older than the column reads its schema-level default.
                    if (table.columns[i].defaultSQL == "1") row[i] = std::int64_t{1};
                    continue;
                }
                const SQLite::Column column = query.getColumn(columnOf[i]);
                if (column.isInteger()) row[i] = column.getInt64();
                else if (column.isFloat()) row[i] = column.getDouble();
                else if (column.isText()) row[i] = column.getString();
                else if (column.isBlob()) {
                    const auto* bytes = static_cast<const std::uint8_t*>(column.getBlob());
                    row[i] = Blob(bytes, bytes + column.getBytes());
                }
            }
            history.push_back(ProcessingHistory::fromRow(row));
        }
        return RecentlyCleanedList::items(history, limit);
    } catch (...) {
        return {};
    }
}

RecentFileDragError::RecentFileDragError(stdfs::path url) : url_(std::move(url)) { text_ = errorDescription(); }

RecentFileDragError RecentFileDragError::fileNoLongerAvailable(const stdfs::path& url) { return RecentFileDragError(url); }

std::string RecentFileDragError::errorDescription() const {
    return "\u201C" + url_.filename().string() + "\u201D is no longer available to drag.";
}

std::optional<RecentFileDragProvider::DragItem> RecentFileDragProvider::itemProvider(const stdfs::path& url) {
    if (!RecentlyCleanedList::fileExistsAtPath(url.string())) return std::nullopt;
    return DragItem{url, url.filename().string(), contentTypeIdentifier(url)};
}

stdfs::path RecentFileDragProvider::loadFile(const stdfs::path& url) {
    if (!RecentlyCleanedList::fileExistsAtPath(url.string())) throw RecentFileDragError::fileNoLongerAvailable(url);
    return url;
}

std::string RecentFileDragProvider::contentTypeIdentifier(const stdfs::path& url) {
    std::string extension = url.extension().string();
    if (!extension.empty()) extension.erase(0, 1);
    if (!extension.empty())
        if (auto type = fileTypeFromExtension(extension)) return std::string(utType(*type));
    return "public.data";
}

}  // namespace tavrin
