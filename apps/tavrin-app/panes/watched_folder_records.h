#pragma once
// The watched-folder records as the settings window changes them: add, remove, pause and resume.
// Each change is saved at once; the watchers (here or in the background service) follow the store.

#include <filesystem>
#include <memory>
#include <vector>

#include "data/store.h"
#include "data/watched_folder.h"
#include "services/change_notifications.h"

namespace tavrin {

class WatchedFolderRecords {
public:
    WatchedFolderRecords(ModelContext& context, std::shared_ptr<ChangeNotifying> notifier);

    // Oldest first.
    std::vector<std::shared_ptr<WatchedFolder>> all();
    // The folder's canonical path; a folder already listed is resumed rather than added twice.
    // Throws std::runtime_error ("“…” is not a folder") or StoreError.
    std::shared_ptr<WatchedFolder> add(const std::filesystem::path& folder);
    void remove(const std::shared_ptr<WatchedFolder>& folder);
    void setEnabled(const std::shared_ptr<WatchedFolder>& folder, bool enabled);

private:
    void save();

    ModelContext& context_;
    std::shared_ptr<ChangeNotifying> notifier_;
};

}  // namespace tavrin
