#pragma once
// How results look: human lines and the JSON forms of the command line.

#include <filesystem>
#include <optional>
#include <ostream>
#include <string>

#include <nlohmann/json.hpp>

#include "services/in_place_replacement.h"
#include "model/cleaning_result.h"
#include "model/metadata_model.h"

namespace tavrin::cli {

// The outcome of cleaning one input.
struct FileReport {
    std::filesystem::path sourcePath;
    std::optional<std::filesystem::path> outputPath;
    std::optional<FileType> fileType;
    std::optional<CleaningResult> result;
    std::optional<std::string> error;
    // Why the file was refused, when the error names it apart from its fixed text.
    std::optional<std::string> reason;
    // A clean in place: where the original went, and whether its edit history was kept.
    std::optional<InPlaceReplacementResult> replaced;
    bool editHistoryRetained = false;
};

// File names in JSON: "sourcePath", "outputPath" and inspect's "path" hold the name as UTF-8,
// with bytes that are not UTF-8 shown as U+FFFD. Only then, "sourcePathBase64" (and
// "outputPathBase64", "pathBase64") holds the exact bytes of the name on disk, in base64.
nlohmann::json cleanReportJSON(const FileReport& report);
nlohmann::json inspectErrorJSON(const std::filesystem::path& path, const std::string& error,
                                const std::optional<std::string>& reason);
// The one way the command line writes JSON: any text that is not UTF-8 (which the model never
// lets through) is written as U+FFFD rather than aborting the program.
std::string dumpJSON(const nlohmann::json& value);

// Human output. Every text from a file or a file name is printed through printableText, so that
// control characters show as escapes ("\x1b") instead of acting on the terminal. A cleaned
// file's line goes to `out`, a failed file's line to `errors`.
void printCleanLine(std::ostream& out, std::ostream& errors, const FileReport& report);
void printError(std::ostream& errors, const std::filesystem::path& path, const std::string& error);
void printTree(std::ostream& out, const std::filesystem::path& path, const MetadataTree& tree);

}  // namespace tavrin::cli
