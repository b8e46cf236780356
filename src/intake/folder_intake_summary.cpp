#include "intake/folder_intake_summary.h"

#include <fmt/format.h>

namespace tavrin::FolderIntakeSummary {

std::optional<std::string> message(const FolderExpansionSummary& expansion, std::int64_t importedCount) {
    if (!expansion.containedFolders) return std::nullopt;
    const char* folders = expansion.foldersExpanded == 1 ? "folder" : "folders";
    const auto found = static_cast<std::int64_t>(expansion.fileURLs.size());
    if (found == 0) return fmt::format("No supported files found in {}", folders);
    if (importedCount == 0) {
        // No full stop before " Limit of": the text is worded so on purpose.
        if (expansion.capHit) return fmt::format("No supported files found in {} Limit of {} files reached.", folders, found);
        return fmt::format("No supported files found in {}", folders);
    }
    std::string text = fmt::format("Added {} {} from {} {}", importedCount, importedCount == 1 ? "file" : "files",
                                   expansion.foldersExpanded, folders);
    if (found - importedCount >= 1) text += fmt::format(" ({} unsupported skipped)", found - importedCount);
    if (expansion.capHit) text += fmt::format(". Stopped at the {}-file limit \u2014 add the rest in another batch.", found);
    return text;
}

}  // namespace tavrin::FolderIntakeSummary
