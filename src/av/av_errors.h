#pragma once
// The failures of the audio and video components, each with the text people see.

#include <exception>
#include <string>

namespace tavrin {

// What the container walkers (our stand-in for the platform's media library) report about a
// file they cannot read. `detail` names the structure and where it is.
class AVContainerError : public std::exception {
public:
    enum class Case {
        cannotOpen,
        truncated,
        invalidAtomSize,
        nestingTooDeep,
        tagSizePastEnd,
        invalidSyncsafeInteger,
        unterminatedBlockChain,
        chunkSizePastEnd,
        unrecognisedContainer,
        tooManyItems,
        structureTooLarge,
    };
    AVContainerError(Case c, std::string detail) : case_(c), detail_(std::move(detail)), text_(description()) {}
    Case errorCase() const { return case_; }
    const std::string& detail() const { return detail_; }
    std::string description() const;
    const char* what() const noexcept override { return text_.c_str(); }

private:
    Case case_;
    std::string detail_;
    std::string text_;
};

class AVMetadataReaderError : public std::exception {
public:
    enum class Case { propertyLoadFailed, assetLoadFailed };
    explicit AVMetadataReaderError(Case c, std::string propertyName = "")
        : case_(c), propertyName_(std::move(propertyName)), text_(description()) {}
    Case errorCase() const { return case_; }
    std::string description() const;
    const char* what() const noexcept override { return text_.c_str(); }

private:
    Case case_;
    std::string propertyName_;
    std::string text_;
};

class AVWriterError : public std::exception {
public:
    enum class Case { unsupportedFormat, cannotCreateExportSession, exportFailed };
    // `detail`: the extension of `unsupportedFormat`; for the others, what the media library said.
    explicit AVWriterError(Case c, std::string detail = "") : case_(c), detail_(std::move(detail)), text_(description()) {}
    Case errorCase() const { return case_; }
    std::string description() const;
    const char* what() const noexcept override { return text_.c_str(); }

private:
    Case case_;
    std::string detail_;
    std::string text_;
};

}  // namespace tavrin
