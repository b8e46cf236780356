#pragma once
// The failures of the audio and video components, each with the text people see.

#include <string>

#include "model/typed_error.h"

namespace tavrin {

enum class AVContainerErrorCase {
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

// What the container walkers report about a file they cannot read. `detail` names the structure
// and where it is.
class AVContainerError : public TypedError<AVContainerErrorCase> {
public:
    explicit AVContainerError(Case c, std::string detail = "") : TypedError(c, std::move(detail)) { setText(description()); }
    std::string description() const;
};
AVContainerError errorFor(AVContainerError::Case);

enum class AVMetadataReaderErrorCase { propertyLoadFailed, assetLoadFailed };

class AVMetadataReaderError : public TypedError<AVMetadataReaderErrorCase> {
public:
    // `propertyName`: the property of `propertyLoadFailed`.
    explicit AVMetadataReaderError(Case c, std::string propertyName = "") : TypedError(c, std::move(propertyName)) {
        setText(description());
    }
    std::string description() const;
};

enum class AVWriterErrorCase { unsupportedFormat, cannotCreateExportSession, exportFailed };

class AVWriterError : public TypedError<AVWriterErrorCase> {
public:
    // `detail`: the extension of `unsupportedFormat`; for the others, what the media library said.
    explicit AVWriterError(Case c, std::string detail = "") : TypedError(c, std::move(detail)) { setText(description()); }
    std::string description() const;
};

}  // namespace tavrin
