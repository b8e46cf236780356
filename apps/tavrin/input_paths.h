#pragma once
// Turns the paths a user gives into the files to work on, and picks free output names.

#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tavrin::cli {

struct InputFile {
    std::filesystem::path path;
    std::optional<std::string> error;  // set when the path cannot be used at all
};

// Files stay as given; folders are walked recursively in name order, without following symbolic
// links and skipping hidden entries. A missing path becomes an entry with an error.
std::vector<InputFile> expandInputPaths(const std::vector<std::filesystem::path>& paths);

// `wanted`, or with " 2", " 3", … before the extension when that name is taken on disk or
// already reserved by an earlier file of this run.
std::filesystem::path reserveUniquePath(const std::filesystem::path& wanted, std::set<std::filesystem::path>& reserved);

// The cleaned-copy name for `source`, with " 2", " 3", … before the extension when the name is
// taken on disk or already reserved by an earlier file of this run.
std::filesystem::path reserveOutputPath(const std::filesystem::path& source,
                                        const std::optional<std::filesystem::path>& directory,
                                        std::set<std::filesystem::path>& reserved);

}  // namespace tavrin::cli
