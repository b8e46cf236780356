#include "pdf/pdf_errors.h"

namespace tavrin {

std::string PDFMetadataReaderError::description() const {
    std::string text;
    switch (errorCase()) {
        case Case::cannotOpenPDF: text = "Unable to open PDF file for metadata reading"; break;
        case Case::passwordRequired: text = "This PDF is password protected; a password is needed to read it"; break;
    }
    return withDetail(std::move(text), detail());
}

std::string PDFWriterError::description() const {
    std::string text;
    switch (errorCase()) {
        case Case::cannotOpenDocument: text = "Cannot open PDF document"; break;
        case Case::cannotWriteDocument: text = "Cannot write cleaned PDF document"; break;
        case Case::outputNotCreated: text = "Output PDF file was not created"; break;
        case Case::passwordRequired:
            text = "This PDF is password protected; a password is needed to clean it";
            break;
        case Case::damagedDocument: text = "This PDF is damaged in a way cleaning cannot repair"; break;
    }
    return withDetail(std::move(text), detail());
}

std::string PDFPasswordError::description() const { return withDetail(fixedText(errorCase()), detail()); }

std::string PDFPasswordError::fixedText(Case c) {
    switch (c) {
        case Case::cannotOpenDocument: return "This PDF could not be opened.";
        case Case::incorrectPassword: return "Incorrect password. Please check the password and try again.";
        case Case::documentNotEncrypted: return "This PDF is not password protected.";
        case Case::documentAlreadyEncrypted:
            return "This PDF is already password protected. Remove the existing password first.";
        case Case::noPasswordProvided: return "Enter a password to protect the cleaned PDF.";
        case Case::cannotWriteDocument: return "The cleaned PDF could not be written.";
        case Case::outputNotCreated: return "The cleaned PDF file was not created.";
        case Case::encryptionNotApplied: return "The cleaned PDF was not encrypted as requested. No file was produced.";
        case Case::encryptionNotRemoved:
            return "The password could not be removed from the PDF. No file was produced.";
        case Case::verificationFailed:
            return "The cleaned PDF could not be verified free of metadata, so no file was produced.";
    }
    return "";
}

}  // namespace tavrin
