#include "intake/watched_folders_reconciler.h"

#include <map>

namespace tavrin::WatchedFoldersReconciler {

Plan plan(const std::vector<DesiredFolder>& desired, const std::vector<RunningWatcher>& running,
          const std::string& deciderKey) {
    std::map<Uuid, const DesiredFolder*, UuidOrder> wanted;
    for (const auto& folder : desired) wanted[folder.id] = &folder;
    std::map<Uuid, const RunningWatcher*, UuidOrder> present;
    for (const auto& watcher : running) present[watcher.id] = &watcher;

    Plan result;
    for (const auto& [id, watcher] : present) {
        auto found = wanted.find(id);
        if (found == wanted.end()) {
            result.toStop.insert(id);
        } else if (found->second->path != watcher->path || watcher->deciderKey != deciderKey) {
            result.toRestart.insert(id);
        }
    }
    for (const auto& [id, folder] : wanted)
        if (!present.contains(id)) result.toStart.insert(id);
    return result;
}

}  // namespace tavrin::WatchedFoldersReconciler
