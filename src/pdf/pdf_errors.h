#pragma once
// The failures of the PDF components, each with the text people see.

#include <string>

#include "model/typed_error.h"

namespace tavrin {

enum class PDFMetadataReaderErrorCase { cannotOpenPDF, passwordRequired };

class PDFMetadataReaderError : public TypedError<PDFMetadataReaderErrorCase> {
public:
    // `detail`: why, in words, when there is more to say than the fixed text.
    explicit PDFMetadataReaderError(Case c, std::string detail = "") : TypedError(c, std::move(detail)) {
        setText(description());
    }
    std::string description() const;
};

enum class PDFWriterErrorCase { cannotOpenDocument, cannotWriteDocument, outputNotCreated, passwordRequired, damagedDocument };

class PDFWriterError : public TypedError<PDFWriterErrorCase> {
public:
    // `detail`: what the PDF library said, when it said something.
    explicit PDFWriterError(Case c, std::string detail = "") : TypedError(c, std::move(detail)) { setText(description()); }
    std::string description() const;
};

enum class PDFPasswordErrorCase {
    cannotOpenDocument,
    incorrectPassword,
    documentNotEncrypted,
    documentAlreadyEncrypted,
    noPasswordProvided,
    cannotWriteDocument,
    outputNotCreated,
    encryptionNotApplied,
    encryptionNotRemoved,
    verificationFailed,
};

class PDFPasswordError : public TypedError<PDFPasswordErrorCase> {
public:
    // `detail`: why, in words (the object and what was found there), or empty.
    explicit PDFPasswordError(Case c, std::string detail = "") : TypedError(c, std::move(detail)) {
        setText(description());
    }
    std::string description() const;

private:
    static std::string fixedText(Case c);
};

}  // namespace tavrin
