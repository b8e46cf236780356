#include "input_list.h"

#include <fmt/core.h>
#include <fstream>
#include <iostream>

namespace tavrin::cli {

InputList collectInputs(const std::vector<std::filesystem::path>& paths, const BatchOptions& options,
                        bool walkFolders) {
    InputList list;
    std::vector<std::filesystem::path> given = paths;
    if (options.filesFrom) {
        if (*options.filesFrom == "-") {
            const auto read = readPathList(std::cin, options.nulSeparated);
            given.insert(given.end(), read.begin(), read.end());
        } else {
            std::ifstream in(*options.filesFrom, std::ios::binary);
            if (!in) {
                list.error = fmt::format("--files-from: cannot read {}", *options.filesFrom);
                return list;
            }
            const auto read = readPathList(in, options.nulSeparated);
            given.insert(given.end(), read.begin(), read.end());
        }
    }
    std::vector<InputFile> expanded;
    if (walkFolders) expanded = expandInputPaths(given);
    else
        for (auto& path : given) expanded.push_back({std::move(path), std::nullopt});
    if (!options.shard) {
        list.files = std::move(expanded);
        return list;
    }
    for (auto& file : expanded)
        if (inShard(file.path, *options.shard)) list.files.push_back(std::move(file));
    return list;
}

}  // namespace tavrin::cli
