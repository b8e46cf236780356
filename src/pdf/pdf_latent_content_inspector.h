#pragma once
// Reads the document catalog for what a PDF may do or collect beyond its pages: scripts in the
// JavaScript name tree, the open action or the additional actions, and an interactive form.
// Only the catalog is read; page and annotation actions are not walked.

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "pdf/pdf_document.h"

namespace tavrin {

struct PDFLatentContentInspector {
    struct Findings {
        std::vector<std::string> javaScriptLocations;  // in discovery order
        bool hasAcroForm = false;
        bool hasJavaScript() const { return !javaScriptLocations.empty(); }
        bool operator==(const Findings&) const = default;
    };

    // Empty when the document or its catalog cannot be read: an inspection that could not run
    // is never an empty result.
    static std::optional<Findings> inspect(const std::filesystem::path& at);
    static std::optional<Findings> inspect(PDFDocument& document);
    // True only when the inspection ran and found no script.
    static bool confirmsNoJavaScript(const std::filesystem::path& at);
};

}  // namespace tavrin
