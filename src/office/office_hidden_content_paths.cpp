// Which whole entries leave a package when hidden content is removed: the union of what the
// hidden-content detectors say may go.

#include "office/office_hidden_content_paths.h"
#include "office/office_hidden_content_detector.h"

namespace tavrin {

std::set<std::string> OfficeHiddenContentDetector::pathsToRemove(const Archive& archive) {
    std::set<std::string> paths;
    const auto headersAndFooters = headerFooterFindings(archive);
    for (const auto& item : headersAndFooters.orphaned)
        if (item.isRemovable) paths.insert(item.key);
    auto add = [&](const auto& more) { paths.insert(more.begin(), more.end()); };
    add(headersAndFooters.inactive.pathsToDrop);
    add(printerSettingsPaths(archive));
    add(latentDataSourcePartsToDrop(archive));
    add(hiddenWorksheetPaths(archive));
    add(hiddenSlidePaths(archive));
    return paths;
}

}  // namespace tavrin
