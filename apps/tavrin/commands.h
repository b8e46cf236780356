#pragma once
// One function per subcommand; each returns the process's exit status.

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "batch_options.h"

namespace tavrin {
class EngineConfiguration;
}

namespace tavrin::cli {

struct CommonOptions {
    bool json = false;
    std::optional<std::string> exifTool;  // a path, or "auto" to search PATH
    unsigned exifToolTimeout = 60;         // seconds one run of exiftool may take
    BatchOptions batch;                    // inspect, clean and check: lists, shards, output
};

struct CleanOptions {
    CommonOptions common;
    std::string profile = "maximum-privacy";
    std::vector<std::string> keep;
    std::vector<std::string> remove;
    std::optional<std::filesystem::path> outputDir;
    unsigned jobs = 0;
    std::vector<std::filesystem::path> paths;
    std::optional<std::string> password;  // opens encrypted PDFs, which stay protected by it
    // The verified copy replaces each file, and the original goes to the Trash. Edit history is
    // kept unless the settings or --strip-edit-history say to strip it.
    bool inPlace = false;
    bool stripEditHistory = false;
};

// The engine configuration the options ask for.
EngineConfiguration configurationFor(const CommonOptions& options);

// What is wrong with the --exiftool option, for people; absent when it is usable or not given.
std::optional<std::string> exifToolOptionProblem(const CommonOptions& options);

int runFormats(const CommonOptions& options);
int runInspect(const CommonOptions& options, const std::vector<std::filesystem::path>& files);
int runClean(const CleanOptions& options);

}  // namespace tavrin::cli
