#pragma once
// The failures of the PDF components, each with the text people see.

#include <exception>
#include <string>

namespace tavrin {

class PDFMetadataReaderError : public std::exception {
public:
    enum class Case { cannotOpenPDF, passwordRequired };
    explicit PDFMetadataReaderError(Case c, std::string detail = "")
        : case_(c), detail_(std::move(detail)), text_(description()) {}
    Case errorCase() const { return case_; }
    std::string description() const;
    const char* what() const noexcept override { return text_.c_str(); }

private:
    Case case_;
    std::string detail_;  // why, in words, when there is more to say than the fixed text
    std::string text_;
};

class PDFWriterError : public std::exception {
public:
    enum class Case { cannotOpenDocument, cannotWriteDocument, outputNotCreated, passwordRequired, damagedDocument };
    explicit PDFWriterError(Case c, std::string detail = "") : case_(c), detail_(std::move(detail)), text_(description()) {}
    Case errorCase() const { return case_; }
    const std::string& detail() const { return detail_; }
    std::string description() const;
    const char* what() const noexcept override { return text_.c_str(); }

private:
    Case case_;
    std::string detail_;  // what the PDF library said, when it said something
    std::string text_;
};

class PDFPasswordError : public std::exception {
public:
    enum class Case {
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
    explicit PDFPasswordError(Case c, std::string detail = "")
        : case_(c), detail_(std::move(detail)), text_(description()) {}
    Case errorCase() const { return case_; }
    // Why, in words (the object and what was found there), or empty.
    const std::string& detail() const { return detail_; }
    std::string description() const;
    const char* what() const noexcept override { return text_.c_str(); }

private:
    static std::string fixedText(Case c);
    Case case_;
    std::string detail_;
    std::string text_;
};

}  // namespace tavrin
