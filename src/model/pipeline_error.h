#pragma once
// The pipeline's failures, with the texts users see. Read failures always arrive wrapped in
// `readFailed`; write failures arrive wrapped in `writeFailed` unless they already are one.

#include <exception>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <variant>

#include "model/file_type.h"
#include "model/typed_error.h"

namespace tavrin {

enum class PipelineErrorCase {
    noReaderAvailable,
    noWriterAvailable,
    fileTypeUnknown,
    encryptedOfficeDocument,
    sourceFileNotAccessible,
    outputDirectoryNotAccessible,
    readFailed,
    writeFailed,
    formatNotVerifiedForCleaning,
    outputVerificationFailed,
    exifToolFailed,
    cancelled,
    exifToolNotAvailable,
};

class PipelineError : public TypedError<PipelineErrorCase> {
public:
    static PipelineError noReaderAvailable(FileType type);
    static PipelineError noWriterAvailable(FileType type);
    static PipelineError fileTypeUnknown(const std::filesystem::path& url);
    static PipelineError encryptedOfficeDocument(const std::filesystem::path& url);
    static PipelineError sourceFileNotAccessible(const std::filesystem::path& url);
    // `reason` says why the file was refused ("not a regular file", a size over the limit); it
    // follows the fixed text in brackets.
    static PipelineError sourceFileNotAccessible(const std::filesystem::path& url, std::string reason);
    static PipelineError outputDirectoryNotAccessible(const std::filesystem::path& url);
    // `underlying` is the error being wrapped; its text becomes the reason.
    static PipelineError readFailed(const std::filesystem::path& url, std::exception_ptr underlying);
    static PipelineError writeFailed(const std::filesystem::path& url, std::exception_ptr underlying);
    static PipelineError formatNotVerifiedForCleaning(FileType type);
    // `reason` names the part, segment or object and what was found there; it follows the fixed
    // text in brackets and is the wrapped error (`underlying`).
    static PipelineError outputVerificationFailed(const std::filesystem::path& url, std::string reason = {});
    static PipelineError outputVerificationFailed(const std::filesystem::path& url, std::exception_ptr underlying);
    static PipelineError exifToolFailed(std::string text);
    static PipelineError cancelled();
    static PipelineError exifToolNotAvailable();

    const std::filesystem::path& url() const { return url_; }
    FileType fileType() const { return type_; }
    // The wrapped error of `readFailed`, `writeFailed` and a verification failure that gives its
    // reason; null otherwise.
    std::exception_ptr underlying() const { return underlying_; }
    // Why, in words: the wrapped error's own text, or empty when the fixed text is all there is.
    std::string reason() const;

    std::string description() const;

private:
    // `detail`: the exifToolFailed text, or the underlying error's text.
    PipelineError(Case c, std::filesystem::path url, FileType type, std::string detail, std::exception_ptr underlying);
    std::filesystem::path url_;
    FileType type_ = FileType::jpeg;
    std::exception_ptr underlying_;
};

// The text of any exception, for messages that wrap it.
std::string describeError(std::exception_ptr error);

// The reason a check refused a file, when no error of a component's own type carries it.
class VerificationFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// An error of the file system, with a text for people ("Cannot move …: File exists").
class FileSystemError : public std::runtime_error {
public:
    FileSystemError(std::string message, int code) : std::runtime_error(std::move(message)), code_(code) {}
    int code() const { return code_; }  // errno

private:
    int code_;
};

}  // namespace tavrin
