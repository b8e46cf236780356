#include "input_paths.h"

#include <algorithm>
#include <fmt/core.h>

#include "model/file_system.h"
#include "model/pipeline_error.h"
#include "pipeline/tavrin_engine.h"

namespace tavrin::cli {

namespace {

bool isHidden(const std::filesystem::path& p) {
    const std::string name = p.filename().string();
    return !name.empty() && name.front() == '.';
}

// Iterative walk: a folder tree of any depth never grows the call stack.
void walkFolder(const std::filesystem::path& root, std::vector<InputFile>& out) {
    std::vector<std::filesystem::path> pending{root};
    while (!pending.empty()) {
        const auto dir = pending.back();
        pending.pop_back();
        std::error_code ec;
        std::vector<std::filesystem::directory_entry> entries;
        for (std::filesystem::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec))
            entries.push_back(*it);
        if (ec) {
            out.push_back({dir, fmt::format("Cannot read folder {}: {}", dir.string(), ec.message())});
            continue;
        }
        std::sort(entries.begin(), entries.end(),
                  [](const auto& a, const auto& b) { return a.path().filename() < b.path().filename(); });
        std::vector<std::filesystem::path> subfolders;
        for (const auto& entry : entries) {
            if (isHidden(entry.path())) continue;
            std::error_code sec;
            if (entry.is_symlink(sec)) continue;
            if (entry.is_directory(sec)) subfolders.push_back(entry.path());
            else if (entry.is_regular_file(sec)) out.push_back({entry.path(), std::nullopt});
        }
        // Reverse so that the first subfolder is walked next, keeping name order overall.
        for (auto it = subfolders.rbegin(); it != subfolders.rend(); ++it) pending.push_back(*it);
    }
}

}  // namespace

std::vector<InputFile> expandInputPaths(const std::vector<std::filesystem::path>& paths) {
    std::vector<InputFile> out;
    for (const auto& p : paths) {
        if (fs::isDirectory(p)) walkFolder(p, out);
        else if (fs::exists(p)) out.push_back({p, std::nullopt});
        else out.push_back({p, PipelineError::sourceFileNotAccessible(p).description()});
    }
    return out;
}

std::filesystem::path reserveOutputPath(const std::filesystem::path& source,
                                        const std::optional<std::filesystem::path>& directory,
                                        std::set<std::filesystem::path>& reserved) {
    return reserveUniquePath(TavrinEngine::cleanedFileURL(source, directory), reserved);
}

std::filesystem::path reserveUniquePath(const std::filesystem::path& base, std::set<std::filesystem::path>& reserved) {
    auto candidate = base;
    for (int n = 2; fs::exists(candidate) || reserved.count(candidate); ++n)
        candidate = base.parent_path() / fmt::format("{} {}{}", base.stem().string(), n, base.extension().string());
    reserved.insert(candidate);
    return candidate;
}

}  // namespace tavrin::cli
