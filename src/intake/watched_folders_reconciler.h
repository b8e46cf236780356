#pragma once
// What must change among the running folder watchers when the watched-folder records or the
// rules change. A pure function of the wanted folders and the running watchers.

#include <set>
#include <string>
#include <vector>

#include "model/uuid.h"

namespace tavrin::WatchedFoldersReconciler {

// Record ids in byte order, for the sets of a plan.
struct UuidOrder {
    bool operator()(const Uuid& a, const Uuid& b) const { return a.bytes < b.bytes; }
};
using IdSet = std::set<Uuid, UuidOrder>;

struct DesiredFolder {
    Uuid id;
    std::string path;
};

struct RunningWatcher {
    Uuid id;
    std::string path;
    std::string deciderKey;
};

struct Plan {
    IdSet toStop;
    IdSet toRestart;
    IdSet toStart;
    bool isEmpty() const { return toStop.empty() && toRestart.empty() && toStart.empty(); }
    bool operator==(const Plan&) const = default;
};

// Running but not wanted: stop. Wanted and running with another path or rules: restart (the
// caller hands the old watcher's handled state on when the path stayed, so a change of rules
// cleans nothing twice). Wanted and not running: start. An id listed twice counts by its last
// entry.
Plan plan(const std::vector<DesiredFolder>& desired, const std::vector<RunningWatcher>& running,
          const std::string& deciderKey);

}  // namespace tavrin::WatchedFoldersReconciler
