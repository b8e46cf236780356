#pragma once
// How results look: human lines and the JSON forms of the command line.

#include <filesystem>
#include <optional>
#include <ostream>
#include <string>

#include <nlohmann/json.hpp>

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
};

nlohmann::json cleanReportJSON(const FileReport& report);
void printCleanLine(std::ostream& out, const FileReport& report);
void printTree(std::ostream& out, const std::filesystem::path& path, const MetadataTree& tree);

}  // namespace tavrin::cli
