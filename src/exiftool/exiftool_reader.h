#pragma once
// Reads any file's metadata through the external exiftool program: one run per file, its JSON
// mapped item by item (see exiftool_mapping.h). Items have the source `exifTool` and equal id
// and key, "ExifTool.<Group>:<Tag>".

#include <string>
#include <vector>

#include "model/metadata_reader.h"
#include "exiftool/process_runner.h"

namespace tavrin {

class ExifToolReader : public MetadataReader {
public:
    explicit ExifToolReader(std::string exifToolPath, ProcessLimits limits = {})
        : exifToolPath_(std::move(exifToolPath)), limits_(limits) {}

    const std::string& exifToolPath() const { return exifToolPath_; }

    // Every file type.
    std::set<FileType> supportedTypes() const override;
    // The file exists; its type and content are left to the tool.
    bool canRead(const std::filesystem::path& url) const override;
    // Throws PipelineError: fileTypeUnknown, exifToolNotAvailable or exifToolFailed.
    MetadataTree readMetadata(const std::filesystem::path& url) const override;

    // The tool's standard output for one file. Exit statuses 0 and 1 both mean it ran (1 is how
    // it reports a file it could only partly read); 2 and above fail with its standard error.
    std::string runExifTool(const std::filesystem::path& url) const;
    // runExifTool, then parseExifToolJSON.
    std::vector<MetadataItem> readItems(const std::filesystem::path& url) const;

private:
    std::string exifToolPath_;
    ProcessLimits limits_;
};

}  // namespace tavrin
