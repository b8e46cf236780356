#pragma once
// The failures of the image layer, each with the text people see.

#include <exception>
#include <string>

namespace tavrin {

// Raised by the container parsers and decoders when bytes do not form the image they claim to be.
class ImageFormatError : public std::exception {
public:
    enum class Case { unknownFormat, truncated, invalidStructure, limitExceeded, checksumMismatch, decodeFailed };
    ImageFormatError(Case c, std::string detail) : case_(c), detail_(std::move(detail)), text_(description()) {}
    Case errorCase() const { return case_; }
    const std::string& detail() const { return detail_; }
    std::string description() const;
    const char* what() const noexcept override { return text_.c_str(); }

private:
    Case case_;
    std::string detail_;
    std::string text_;
};

class ImageMetadataReaderError : public std::exception {
public:
    enum class Case { cannotCreateImageSource };
    explicit ImageMetadataReaderError(Case c, std::string detail = "")
        : case_(c), detail_(std::move(detail)), text_(description()) {}
    Case errorCase() const { return case_; }
    std::string description() const;
    const char* what() const noexcept override { return text_.c_str(); }

private:
    Case case_;
    std::string detail_;  // what the parser found wrong, when it said something
    std::string text_;
};

class ImageWriterError : public std::exception {
public:
    enum class Case { cannotCreateSource, cannotCreateDestination, unknownImageType, losslessCopyFailed, finalizationFailed };
    explicit ImageWriterError(Case c, std::string detail = "") : case_(c), detail_(std::move(detail)), text_(description()) {}
    Case errorCase() const { return case_; }
    std::string description() const;
    const char* what() const noexcept override { return text_.c_str(); }

private:
    Case case_;
    std::string detail_;
    std::string text_;
};

}  // namespace tavrin
