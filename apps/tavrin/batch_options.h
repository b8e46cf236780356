#pragma once
// Options shared by the commands that work through many files (clean, inspect, check): where the
// list comes from, which share of it this process takes, how results are written, and how much is
// said along the way.

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
}

namespace tavrin::cli {

struct FileReport;

// One share of a list split across N independent workers. `index` counts from 1.
struct Shard {
    unsigned index = 1;
    unsigned count = 1;
};

struct BatchOptions {
    std::optional<std::string> filesFrom;  // a file of paths, or "-" for standard input
    bool nulSeparated = false;             // -0: the list is separated by NUL bytes
    std::optional<Shard> shard;
    bool jsonl = false;
    bool quiet = false;
    bool verbose = false;
};

// Registers --files-from, -0, --shard, --jsonl, --quiet and --verbose on a command.
void addBatchOptions(CLI::App& command, BatchOptions& options);

// What is wrong with the batch options for people; absent when they are usable. `json` is the
// command's --json flag, which --jsonl excludes.
std::optional<std::string> batchOptionProblem(const BatchOptions& options, bool json, bool havePaths);

// "K/N" with 1 <= K <= N; absent when the text is not of that form.
std::optional<Shard> parseShard(std::string_view text);

// FNV-1a, 64 bits, over the bytes of the path as given.
std::uint64_t fnv1a64(std::string_view bytes);

// True when `path` falls in `shard`: fnv1a64(path) mod N == K - 1.
bool inShard(const std::filesystem::path& path, const Shard& shard);

// Paths from a list, one per line (or per NUL with `nulSeparated`). Empty entries are skipped, and
// a carriage return before a newline is dropped.
std::vector<std::filesystem::path> readPathList(std::istream& in, bool nulSeparated);

// Colour for status words: only when standard output is a terminal and NO_COLOR is unset or empty.
bool useColour();
std::string coloured(std::string_view text, int ansiColour, bool enabled);

// --verbose for clean: one line per removed item under the file's line.
void printRemovedItems(std::ostream& out, const FileReport& report);

// "tavrin: 12 files in 1.4 s (8.6 files/s)"; written to standard error unless --quiet.
void printRunSummary(const BatchOptions& options, std::size_t files, std::chrono::steady_clock::duration elapsed);

}  // namespace tavrin::cli
