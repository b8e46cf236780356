#pragma once
// Cleans a file by copying it to the destination and letting exiftool delete tags in the copy.
// The fallback for types no built-in writer covers; its results are never `verifiedClean`,
// and the strict gate keeps it away from every type whose removal is not verified.

#include <string>
#include <string_view>
#include <vector>

#include "model/metadata_reader.h"
#include "exiftool/process_runner.h"

namespace tavrin {

class ExifToolWriter : public MetadataWriter {
public:
    explicit ExifToolWriter(std::string exifToolPath, ProcessLimits limits = {})
        : exifToolPath_(std::move(exifToolPath)), limits_(limits) {}

    const std::string& exifToolPath() const { return exifToolPath_; }

    // Every file type.
    std::set<FileType> supportedTypes() const override;
    // Throws PipelineError: exifToolNotAvailable, writeFailed (the copy) or exifToolFailed. On
    // failure the copy at `destination` is removed again; `source` is never written.
    CleaningResult cleanMetadata(const std::filesystem::path& source, const std::filesystem::path& destination,
                                 const CleaningProfile& profile) const override;

    // "-overwrite_original", the deletions of each category the profile removes (in the order
    // of MetadataCategory), "-KEY=" for each specific key to remove, then `outputPath`. Keep
    // rules play no part. A key that is not a tag name is left out (see isExifToolTagName).
    static std::vector<std::string> buildArguments(const CleaningProfile& profile, const std::string& outputPath);
    // Letters, digits and "_-.:" only, not starting with "-": nothing else can reach the tool
    // as a tag, and characters such as "<" would make it copy a named file into the output.
    static bool isExifToolTagName(std::string_view key);
    // The positive count N of exiftool's "N image files updated", or 0 when there is none.
    static long updatedFileCount(std::string_view standardOutput);

    std::vector<MetadataItem> readMetadataWithExifTool(const std::filesystem::path& url) const;

private:
    std::string exifToolPath_;
    ProcessLimits limits_;
};

}  // namespace tavrin
