#pragma once
// The files a batch command works on: the paths given and the --files-from list, folders walked,
// then only this worker's --shard of them.

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "batch_options.h"
#include "input_paths.h"

namespace tavrin::cli {

struct InputList {
    std::vector<InputFile> files;
    std::optional<std::string> error;  // the list itself could not be read
};

// `walkFolders` false keeps every path as given (inspect reports a folder as an error).
InputList collectInputs(const std::vector<std::filesystem::path>& paths, const BatchOptions& options,
                        bool walkFolders = true);

}  // namespace tavrin::cli
