#include "report.h"

#include <fmt/core.h>

#include "model/data_size.h"
#include "model/snapshot.h"

namespace tavrin::cli {

using nlohmann::json;

json cleanReportJSON(const FileReport& r) {
    json j;
    j["sourcePath"] = r.sourcePath.string();
    j["outputPath"] = r.result && r.outputPath ? json(r.outputPath->string()) : json(nullptr);
    j["fileType"] = r.fileType ? json(std::string(rawValue(*r.fileType))) : json(nullptr);
    if (r.result) {
        const CleaningResult& c = *r.result;
        j["verifiedClean"] = c.verifiedClean;
        j["isClean"] = c.isClean();
        j["removedItems"] = c.removedItems;
        j["retainedItems"] = c.retainedItems;
        json warnings = json::array();
        for (const auto& w : c.warnings) warnings.push_back({{"context", w.context}, {"message", w.message}});
        j["warnings"] = warnings;
        json remaining = json::array();
        for (auto category : c.remainingMetadataClasses) remaining.push_back(std::string(rawValue(category)));
        j["remainingMetadataClasses"] = remaining;
        j["originalSize"] = c.originalSize;
        j["cleanedSize"] = c.cleanedSize;
        j["duration"] = c.duration;
    } else {
        j["verifiedClean"] = false;
        j["isClean"] = false;
        j["removedItems"] = json::array();
        j["retainedItems"] = json::array();
        j["warnings"] = json::array();
        j["remainingMetadataClasses"] = json::array();
        j["originalSize"] = nullptr;
        j["cleanedSize"] = nullptr;
        j["duration"] = nullptr;
    }
    j["error"] = r.error ? json(*r.error) : json(nullptr);
    j["reason"] = r.reason ? json(*r.reason) : json(nullptr);
    return j;
}

void printCleanLine(std::ostream& out, const FileReport& r) {
    if (!r.result) {
        out << fmt::format("failed   {}: {}\n", r.sourcePath.string(), r.error.value_or("Unknown error"));
        return;
    }
    const CleaningResult& c = *r.result;
    out << fmt::format("cleaned  {} \u2192 {} ({} removed, {} retained, {})\n", r.sourcePath.string(),
                       c.outputURL.string(), c.removedItems.size(), c.retainedItems.size(),
                       DataSize::difference(c.originalSize, c.cleanedSize));
    for (const auto& w : c.warnings) out << fmt::format("         warning: {}: {}\n", w.context, w.message);
}

void printTree(std::ostream& out, const std::filesystem::path& path, const MetadataTree& tree) {
    out << fmt::format("{} ({})\n", path.string(), displayName(tree.fileType));
    if (tree.rootNodes.empty()) {
        out << "  No metadata found.\n";
        return;
    }
    std::size_t removable = 0;
    for (const auto& group : tree.rootNodes) {
        if (group.category)
            out << fmt::format("  {} \u2014 {} privacy\n", group.label, displayName(privacyLevel(*group.category)));
        else
            out << fmt::format("  {}\n", group.label);
        // Groups hold leaves; deeper nodes from other sources are flattened in walk order.
        for (const auto& item : group.allItems()) {
            removable += item.isRemovable ? 1 : 0;
            out << fmt::format("    {}: {}{}\n", item.displayName, item.value.description(),
                               item.isRemovable ? "" : "  (kept: structural)");
        }
    }
    out << fmt::format("  {} items, {} removable\n", tree.totalItemCount(), removable);
}

}  // namespace tavrin::cli
