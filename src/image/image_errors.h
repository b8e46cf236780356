#pragma once
// The failures of the image layer, each with the text people see.

#include <string>

#include "model/typed_error.h"

namespace tavrin {

enum class ImageFormatErrorCase { unknownFormat, truncated, invalidStructure, limitExceeded, checksumMismatch, decodeFailed };

// Raised by the container parsers and decoders when bytes do not form the image they claim to be.
class ImageFormatError : public TypedError<ImageFormatErrorCase> {
public:
    ImageFormatError(Case c, std::string detail) : TypedError(c, std::move(detail)) { setText(description()); }
    std::string description() const;
};
ImageFormatError errorFor(ImageFormatError::Case);

enum class ImageMetadataReaderErrorCase { cannotCreateImageSource };

class ImageMetadataReaderError : public TypedError<ImageMetadataReaderErrorCase> {
public:
    // `detail`: what the parser found wrong, when it said something.
    explicit ImageMetadataReaderError(Case c, std::string detail = "") : TypedError(c, std::move(detail)) {
        setText(description());
    }
    std::string description() const;
};

enum class ImageWriterErrorCase {
    cannotCreateSource,
    cannotCreateDestination,
    unknownImageType,
    losslessCopyFailed,
    finalizationFailed,
};

class ImageWriterError : public TypedError<ImageWriterErrorCase> {
public:
    explicit ImageWriterError(Case c, std::string detail = "") : TypedError(c, std::move(detail)) { setText(description()); }
    std::string description() const;
};

}  // namespace tavrin
