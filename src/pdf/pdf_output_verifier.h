#pragma once
// The checks a cleaned PDF must pass before anyone sees it, each giving its reason in words when
// it fails: the object and what was found there ("object 12 0: JavaScript action (Document open
// action)"). The writer and the password processor run the same chain on the re-opened output.

#include <optional>
#include <string>

#include "model/cleaning_profile.h"
#include "pdf/pdf_document.h"

namespace tavrin {

struct PDFOutputVerifier {
    enum class InfoCheck {
        all,              // every Info attribute the profile removes must be gone
        identifyingOnly,  // Producer and the dates are not held against an encrypted output
    };

    // The first problem of the re-opened output, or nothing when it passes every check.
    static std::optional<std::string> problemIn(PDFDocument& output, const CleaningProfile& profile, InfoCheck check);

    static std::optional<std::string> infoProblem(const PDFDocumentAttributes& attributes,
                                                  const CleaningProfile& profile, InfoCheck check);
    static std::optional<std::string> metadataStreamProblem(PDFDocument& document);
    static std::optional<std::string> embeddedFilesProblem(PDFDocument& document);
    // Scripts and program launches, or a catalog that cannot be inspected.
    static std::optional<std::string> activeContentProblem(PDFDocument& document);
    static std::optional<std::string> imageMetadataProblem(PDFDocument& document);
    // Anything qpdf had to complain about while reading the output means it is not what we wrote.
    static std::optional<std::string> readingProblem(PDFDocument& document);
};

}  // namespace tavrin
