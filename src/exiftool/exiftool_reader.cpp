#include "exiftool/exiftool_reader.h"

#include <system_error>

#include "model/pipeline_error.h"
#include "exiftool/exiftool_mapping.h"
#include "exiftool/exiftool_process.h"

namespace tavrin {

namespace {

bool isWhitespace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; }

std::string trimmed(std::string_view text) {
    while (!text.empty() && isWhitespace(text.front())) text.remove_prefix(1);
    while (!text.empty() && isWhitespace(text.back())) text.remove_suffix(1);
    return std::string(text);
}

}  // namespace

std::set<FileType> ExifToolReader::supportedTypes() const {
    const auto& all = fileTypes::allCases();
    return {all.begin(), all.end()};
}

bool ExifToolReader::canRead(const std::filesystem::path& url) const {
    std::error_code ec;
    return std::filesystem::exists(url, ec);
}

MetadataTree ExifToolReader::readMetadata(const std::filesystem::path& url) const {
    const FileType type = detectFileType(url);
    requireExifToolAvailable(exifToolPath_);
    return buildTree(readItems(url), url, type);
}

std::string ExifToolReader::runExifTool(const std::filesystem::path& url) const {
    ProcessOutput output = runExifToolProcess(exifToolPath_, exifToolReadArguments(url), limits_);
    if (output.exitCode >= 2) {
        const std::string error = output.standardError;
        // Text that is not UTF-8 cannot be shown as it stands.
        if (replacingInvalidUTF8(error) != error) throw PipelineError::exifToolFailed("Unknown error");
        throw PipelineError::exifToolFailed(trimmed(error));
    }
    if (output.standardOutput.empty()) throw PipelineError::exifToolFailed("ExifTool produced no output");
    return std::move(output.standardOutput);
}

std::vector<MetadataItem> ExifToolReader::readItems(const std::filesystem::path& url) const {
    return parseExifToolJSON(runExifTool(url), url);
}

}  // namespace tavrin
