#pragma once
// Decides a file's type: the extension first, magic bytes only when the extension tells nothing.

#include <filesystem>
#include <stdexcept>
#include <string>

#include "model/file_type.h"
#include "model/typed_error.h"
#include "model/source_file.h"

namespace tavrin {

enum class FileTypeDetectionErrorCase { emptyFile, fileTooSmall, unknownFormat, fileNotReadable, encryptedOfficeDocument };

class FileTypeDetectionError : public TypedError<FileTypeDetectionErrorCase> {
public:
    FileTypeDetectionError(Case c, std::filesystem::path url);
    const std::filesystem::path& url() const { return url_; }
    std::string description() const;

private:
    std::filesystem::path url_;
};

struct FileTypeDetector {
    // Throws FileTypeDetectionError, or FileSystemError when the file cannot be opened for the
    // magic-byte test.
    static FileType detect(const std::filesystem::path& url);
    // The same decision, reading the magic bytes from the checked descriptor, never by path.
    // Throws FileTypeDetectionError.
    static FileType detect(const SourceFile& source);
    // Detection from the first bytes alone; `name` supplies the extension for the ZIP and OLE rules.
    static FileType detectFromMagicBytes(const std::uint8_t* head, std::size_t n, const std::filesystem::path& name);
    // True exactly when the file starts with the OLE compound-document signature.
    static bool isOLECompoundDocument(const std::filesystem::path& url);
};

}  // namespace tavrin
