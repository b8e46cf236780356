#include "report.h"

#include <fmt/core.h>

#include "model/data_size.h"
#include "model/snapshot.h"
#include "model/text_encoding.h"

namespace tavrin::cli {

using nlohmann::json;

namespace {

// "key": the name as UTF-8, and "keyBase64": its exact bytes, only when the two differ.
void putPath(json& j, const std::string& key, const std::filesystem::path& path) {
    j[key] = pathText(path);
    if (auto bytes = pathBytesBase64(path)) j[key + "Base64"] = *bytes;
}

json optionalText(const std::optional<std::string>& text) { return text ? json(validUTF8(*text)) : json(nullptr); }

}  // namespace

std::string dumpJSON(const json& value) { return value.dump(2, ' ', false, json::error_handler_t::replace); }

json inspectErrorJSON(const std::filesystem::path& path, const std::string& error,
                      const std::optional<std::string>& reason) {
    json j;
    putPath(j, "path", path);
    j["error"] = validUTF8(error);
    j["reason"] = optionalText(reason);
    return j;
}

json cleanReportJSON(const FileReport& r) {
    json j;
    putPath(j, "sourcePath", r.sourcePath);
    if (r.result && r.outputPath) putPath(j, "outputPath", *r.outputPath);
    else j["outputPath"] = nullptr;
    j["fileType"] = r.fileType ? json(std::string(rawValue(*r.fileType))) : json(nullptr);
    if (r.result) {
        const CleaningResult& c = *r.result;
        j["verifiedClean"] = c.verifiedClean;
        j["isClean"] = c.isClean();
        j["removedItems"] = c.removedItems;
        j["retainedItems"] = c.retainedItems;
        json warnings = json::array();
        for (const auto& w : c.warnings)
            warnings.push_back({{"context", validUTF8(w.context)}, {"message", validUTF8(w.message)}});
        j["warnings"] = warnings;
        json remaining = json::array();
        for (auto category : c.remainingMetadataClasses) remaining.push_back(std::string(rawValue(category)));
        j["remainingMetadataClasses"] = remaining;
        j["originalSize"] = c.originalSize;
        j["cleanedSize"] = c.cleanedSize;
        j["duration"] = c.duration;
        if (r.replaced) {
            j["inPlace"] = true;
            putPath(j, "trashedPath", r.replaced->trashedPath);
            putPath(j, "trashInfoPath", r.replaced->trashInfoPath);
            j["editHistoryRetainedInPlace"] = r.editHistoryRetained;
        }
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
    j["error"] = optionalText(r.error);
    j["reason"] = optionalText(r.reason);
    return j;
}

void printError(std::ostream& errors, const std::filesystem::path& path, const std::string& error) {
    errors << fmt::format("{}: {}\n", printablePath(path), printableText(error));
}

void printCleanLine(std::ostream& out, std::ostream& errors, const FileReport& r) {
    if (!r.result) {
        errors << fmt::format("failed   {}: {}\n", printablePath(r.sourcePath),
                              printableText(r.error.value_or("Unknown error")));
        return;
    }
    const CleaningResult& c = *r.result;
    if (r.replaced) {
        out << fmt::format("cleaned  {} in place ({} removed, {} retained, {}); the original is in the Trash: {}\n",
                           printablePath(r.sourcePath), c.removedItems.size(), c.retainedItems.size(),
                           DataSize::difference(c.originalSize, c.cleanedSize), printablePath(r.replaced->trashedPath));
    } else {
        out << fmt::format("cleaned  {} \u2192 {} ({} removed, {} retained, {})\n", printablePath(r.sourcePath),
                           printablePath(c.outputURL), c.removedItems.size(), c.retainedItems.size(),
                           DataSize::difference(c.originalSize, c.cleanedSize));
    }
    for (const auto& w : c.warnings)
        out << fmt::format("         warning: {}: {}\n", printableText(w.context), printableText(w.message));
}

void printTree(std::ostream& out, const std::filesystem::path& path, const MetadataTree& tree) {
    out << fmt::format("{} ({})\n", printablePath(path), displayName(tree.fileType));
    if (tree.rootNodes.empty()) {
        out << "  No metadata found.\n";
        return;
    }
    std::size_t removable = 0;
    for (const auto& group : tree.rootNodes) {
        if (group.category)
            out << fmt::format("  {} \u2014 {} privacy\n", printableText(group.label),
                               displayName(privacyLevel(*group.category)));
        else
            out << fmt::format("  {}\n", printableText(group.label));
        // Groups hold leaves; deeper nodes from other sources are flattened in walk order.
        for (const auto& item : group.allItems()) {
            removable += item.isRemovable ? 1 : 0;
            out << fmt::format("    {}: {}{}\n", printableText(item.displayName), printableText(item.value.description()),
                               item.isRemovable ? "" : "  (kept: structural)");
        }
    }
    out << fmt::format("  {} items, {} removable\n", tree.totalItemCount(), removable);
}

}  // namespace tavrin::cli
