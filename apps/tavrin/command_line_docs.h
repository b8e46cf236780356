#pragma once
// Manual pages and shell completions, generated from the program's own command definitions at
// build time so they never drift from what the program accepts.

#include <optional>

namespace CLI {
class App;
}

namespace tavrin::cli {

// Shown under --help and in every manual page.
inline constexpr const char* kExitStatusText =
    "Exit status: 0 when every file succeeded (for check: nothing would be removed); 1 when any file failed or was "
    "refused (for check: something would be removed); 2 for a usage error (for check: also when a file could not "
    "be checked).";

// `tavrin __generate man DIR`, `tavrin __generate bash` or `tavrin __generate zsh`: writes the
// pages into DIR, or the completion script to standard output, and returns the exit status.
// Absent when the arguments ask for something else.
std::optional<int> runGenerator(const CLI::App& app, int argc, char** argv);

}  // namespace tavrin::cli
