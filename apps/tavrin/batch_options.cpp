#include "batch_options.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <cstdlib>
#include <fmt/core.h>
#include <iostream>
#include <unistd.h>

#include "report.h"

namespace tavrin::cli {

void addBatchOptions(CLI::App& command, BatchOptions& options) {
    command.add_option("--files-from", options.filesFrom,
                       "Also work on the paths listed in FILE, one per line ('-' reads standard input)")
        ->option_text("FILE");
    command.add_flag("-0,--null", options.nulSeparated, "The --files-from list is separated by NUL bytes");
    command
        .add_option_function<std::string>(
            "--shard",
            [&options](const std::string& text) {
                options.shard = parseShard(text);
                if (!options.shard) throw CLI::ValidationError("--shard", "give K/N with 1 <= K <= N, such as 2/8");
            },
            "Take only share K of N: the files whose FNV-1a 64 hash of the path, modulo N, is K-1")
        ->option_text("K/N");
    command.add_flag("--jsonl", options.jsonl, "Print one JSON report per line, each as its file finishes");
    command.add_flag("-q,--quiet", options.quiet, "Print only problems, and no summary");
    command.add_flag("-v,--verbose", options.verbose, "Print more about each file");
}

std::optional<std::string> batchOptionProblem(const BatchOptions& options, bool json, bool havePaths) {
    if (options.jsonl && json) return "--json and --jsonl cannot be used together";
    if (options.quiet && options.verbose) return "--quiet and --verbose cannot be used together";
    if (options.nulSeparated && !options.filesFrom) return "-0 needs --files-from";
    if (!havePaths && !options.filesFrom) return "give at least one PATH, or --files-from FILE";
    return std::nullopt;
}

std::optional<Shard> parseShard(std::string_view text) {
    const auto slash = text.find('/');
    if (slash == std::string_view::npos) return std::nullopt;
    const auto number = [](std::string_view part) -> std::optional<unsigned> {
        unsigned value = 0;
        const auto [end, ec] = std::from_chars(part.data(), part.data() + part.size(), value);
        if (ec != std::errc() || end != part.data() + part.size() || part.empty()) return std::nullopt;
        return value;
    };
    const auto index = number(text.substr(0, slash));
    const auto count = number(text.substr(slash + 1));
    if (!index || !count || *count == 0 || *index == 0 || *index > *count) return std::nullopt;
    return Shard{*index, *count};
}

std::uint64_t fnv1a64(std::string_view bytes) {
    std::uint64_t hash = 0xcbf29ce484222325ull;
    for (unsigned char c : bytes) {
        hash ^= c;
        hash *= 0x100000001b3ull;
    }
    return hash;
}

bool inShard(const std::filesystem::path& path, const Shard& shard) {
    return fnv1a64(path.native()) % shard.count == shard.index - 1;
}

std::vector<std::filesystem::path> readPathList(std::istream& in, bool nulSeparated) {
    std::vector<std::filesystem::path> paths;
    std::string entry;
    while (std::getline(in, entry, nulSeparated ? '\0' : '\n')) {
        if (!nulSeparated && !entry.empty() && entry.back() == '\r') entry.pop_back();
        if (!entry.empty()) paths.emplace_back(entry);
    }
    return paths;
}

bool useColour() {
    const char* noColour = std::getenv("NO_COLOR");
    if (noColour && *noColour) return false;
    return ::isatty(STDOUT_FILENO) == 1;
}

std::string coloured(std::string_view text, int ansiColour, bool enabled) {
    if (!enabled) return std::string(text);
    return fmt::format("\033[{}m{}\033[0m", ansiColour, text);
}

void printRemovedItems(std::ostream& out, const FileReport& report) {
    if (!report.result) return;
    for (const auto& item : report.result->removedItems)
        out << fmt::format("         removed: {} ({})\n", item.displayName, displayName(item.category));
    for (const auto& item : report.result->retainedItems)
        out << fmt::format("         kept: {} ({})\n", item.displayName, displayName(item.category));
}

void printRunSummary(const BatchOptions& options, std::size_t files, std::chrono::steady_clock::duration elapsed) {
    if (options.quiet) return;
    const double seconds = std::chrono::duration<double>(elapsed).count();
    const double rate = seconds > 0 ? static_cast<double>(files) / seconds : 0.0;
    std::cerr << fmt::format("tavrin: {} file{} in {:.1f} s ({:.1f} files/s)\n", files, files == 1 ? "" : "s",
                             seconds, rate)
              << std::flush;
}

}  // namespace tavrin::cli
