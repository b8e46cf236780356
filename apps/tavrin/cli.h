#pragma once
// The command line: parse, call the engine, print, map the outcome to an exit status.

namespace tavrin::cli {

// Exit statuses: 0 when every file succeeded, 1 when any failed or was refused, 2 for a usage error.
enum ExitStatus { kSuccess = 0, kFailure = 1, kUsage = 2 };

int run(int argc, char** argv);

}  // namespace tavrin::cli
