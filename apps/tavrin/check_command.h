#pragma once
// `tavrin check`: is this clean? Lists, per file, what a clean under the profile would remove,
// and writes nothing.

#include <filesystem>
#include <string>
#include <vector>

#include "commands.h"

namespace CLI {
class App;
}

namespace tavrin::cli {

// Exit statuses of `check`: nothing would be removed, something would, or a file could not be
// checked (which wins, since the answer is then incomplete).
enum CheckStatus { kCheckClean = 0, kCheckWouldRemove = 1, kCheckError = 2 };

struct CheckOptions {
    CommonOptions common;
    std::string profile = "maximum-privacy";
    std::vector<std::string> keep;
    std::vector<std::string> remove;
    std::vector<std::filesystem::path> paths;
};

// Registers `check` and its options on the program.
CLI::App* addCheckCommand(CLI::App& app, CheckOptions& options);
int runCheck(const CheckOptions& options);

}  // namespace tavrin::cli
