#pragma once
// The two interfaces through which the pipeline meets the format code. Implementations hold
// no mutable state: the pipeline calls them from several threads at once.

#include <filesystem>
#include <set>
#include <vector>

#include "model/cleaning_profile.h"
#include "model/cleaning_result.h"
#include "model/file_type.h"
#include "model/metadata_model.h"

namespace tavrin {

class MetadataReader {
public:
    virtual ~MetadataReader() = default;
    virtual std::set<FileType> supportedTypes() const = 0;
    // By default: a readable file whose extension names a supported type. Content is not read.
    virtual bool canRead(const std::filesystem::path& url) const;
    // Throws the reader's own error type on failure; the pipeline wraps it in `readFailed`.
    virtual MetadataTree readMetadata(const std::filesystem::path& url) const = 0;

    // Detects the file's type; any detection failure becomes `PipelineError::fileTypeUnknown`.
    static FileType detectFileType(const std::filesystem::path& url);
    static MetadataTree buildTree(const std::vector<MetadataItem>& items, const std::filesystem::path& url,
                                  FileType fileType) {
        return MetadataTree::build(items, url, fileType);
    }
};

class MetadataWriter {
public:
    virtual ~MetadataWriter() = default;
    virtual std::set<FileType> supportedTypes() const = 0;
    // Reads `source` (never writes it), creates `destination`, verifies it, and reports. A writer
    // that cannot prove the output clean throws `PipelineError::outputVerificationFailed`.
    virtual CleaningResult cleanMetadata(const std::filesystem::path& source, const std::filesystem::path& destination,
                                         const CleaningProfile& profile) const = 0;
};

}  // namespace tavrin
