#pragma once
// The writer for docx, xlsx and pptx. It copies the package entry by entry into a new archive,
// dropping comment, thumbnail and hidden parts and rewriting the others through the property,
// XML, hidden-content and media scrubbers; relationships and content-type overrides that
// would name a dropped part are cleared on the way. Then it reopens the output and verifies
// every part: one residue, or one part it could not treat, fails the call with
// `PipelineError::outputVerificationFailed`. Like every writer it leaves a failed output where
// it was written; callers publish only verified results.

#include <exception>
#include <filesystem>
#include <optional>
#include <set>
#include <string>

#include "model/metadata_reader.h"
#include "model/typed_error.h"

namespace tavrin {

class Archive;

enum class OfficeWriterErrorCase { satelliteDecodeFailed, notAnOfficePackage };

class OfficeWriterError : public TypedError<OfficeWriterErrorCase> {
public:
    static OfficeWriterError satelliteDecodeFailed(std::string path) {
        return OfficeWriterError(Case::satelliteDecodeFailed, std::move(path));
    }
    // `reason` says what the file is instead, or what it lacks.
    static OfficeWriterError notAnOfficePackage(std::string reason) {
        return OfficeWriterError(Case::notAnOfficePackage, std::move(reason));
    }
    // The satellite file's path, or the reason of `notAnOfficePackage`.
    const std::string& path() const { return detail(); }
    std::string description() const;

private:
    OfficeWriterError(Case c, std::string path) : TypedError(c, std::move(path)) { setText(description()); }
};

class OfficeMetadataWriter : public MetadataWriter {
public:
    std::set<FileType> supportedTypes() const override { return {FileType::docx, FileType::xlsx, FileType::pptx}; }
    // Throws `writeFailed` when the source is no archive or the destination cannot be made,
    // `outputVerificationFailed` when a part could not be treated or residue is found, and
    // OfficeWriterError when a relationships or content-types part does not decode.
    CleaningResult cleanMetadata(const std::filesystem::path& source, const std::filesystem::path& destination,
                                 const CleaningProfile& profile) const override;

    // The second look at a written package, false on the first doubt: the metadata reader finds
    // nothing the profile removes, no hidden content the profile removes is left, and every
    // entry passes its check (comment and thumbnail parts gone, media proven clean, XML parts
    // free of residue, the package's relationships consistent).
    // Nothing when the output is proven clean, else why not: "<part>: <what was found there>".
    static std::optional<std::string> verificationFailure(const std::filesystem::path& output,
                                                          const CleaningProfile& profile);
    static bool verifyClean(const std::filesystem::path& output, const CleaningProfile& profile) {
        return !verificationFailure(output, profile);
    }
    // Nothing when the package is whole: every part has a content type and parses, and every
    // relationship target and relationship id names a part that is there. Else why not.
    static std::optional<std::string> packageInconsistency(const Archive& archive);
};

}  // namespace tavrin
