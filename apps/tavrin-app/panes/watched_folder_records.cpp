#include "watched_folder_records.h"

#include "settings_access.h"

#include <chrono>
#include <stdexcept>

#include <fmt/format.h>

#include "data/bookmark.h"
#include "data/queries.h"

namespace tavrin {

WatchedFolderRecords::WatchedFolderRecords(ModelContext& context, std::shared_ptr<ChangeNotifying> notifier)
    : context_(context), notifier_(notifier ? std::move(notifier) : std::make_shared<SilentChangeNotifier>()) {}

std::vector<std::shared_ptr<WatchedFolder>> WatchedFolderRecords::all() {
    return context_.fetch(WatchedFolderQueries::allFolders());
}

std::shared_ptr<WatchedFolder> WatchedFolderRecords::add(const std::filesystem::path& folder) {
    std::error_code ec;
    const auto canonical = std::filesystem::canonical(folder, ec);
    if (ec || !std::filesystem::is_directory(canonical, ec))
        throw std::runtime_error(fmt::format("\u201C{}\u201D is not a folder", folder.string()));
    std::shared_ptr<WatchedFolder> record;
    for (auto& existing : all())
        if (existing->path == canonical.string()) record = existing;
    if (!record) {
        record = std::make_shared<WatchedFolder>();
        record->id = Uuid::random();
        record->path = canonical.string();
        record->dateAdded = std::chrono::system_clock::now();
        context_.insert(record);
    }
    record->isEnabled = true;
    try {
        record->bookmarkData = Bookmarks::standard().create(canonical);
    } catch (const std::exception&) {
        record->bookmarkData.reset();
    }
    save();
    return record;
}

void WatchedFolderRecords::remove(const std::shared_ptr<WatchedFolder>& folder) {
    context_.deleteRecord(folder);
    save();
}

void WatchedFolderRecords::setEnabled(const std::shared_ptr<WatchedFolder>& folder, bool enabled) {
    folder->isEnabled = enabled;
    save();
}

void WatchedFolderRecords::save() {
    saveAndAnnounce(context_, *notifier_);
}

}  // namespace tavrin
