#pragma once
// Reads a document for what it may do or collect beyond its pages: scripts in the JavaScript
// name tree, the open action or the additional actions of the catalog, of pages, of annotations
// and of form fields; actions that start a program (/Launch); and an interactive form. Cleaning
// removes neither scripts nor launch actions: a document that carries them is refused.

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "pdf/pdf_document.h"

namespace tavrin {

struct PDFLatentContentInspector {
    // Actions followed at most (through /Next chains, pages, annotations and fields).
    static constexpr std::size_t maximumActions = 100'000;

    struct Findings {
        std::vector<std::string> javaScriptLocations;  // in discovery order
        std::vector<std::string> launchLocations;      // actions that start a program
        bool hasAcroForm = false;
        // For each script or launch found, where it is and what: "object 12 0: JavaScript action".
        std::vector<std::string> objects;
        bool hasJavaScript() const { return !javaScriptLocations.empty(); }
        bool hasLaunch() const { return !launchLocations.empty(); }
        // Cleaning refuses a document with either.
        bool refusesCleaning() const { return hasJavaScript() || hasLaunch(); }
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
