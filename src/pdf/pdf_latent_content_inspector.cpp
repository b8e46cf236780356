#include "pdf/pdf_latent_content_inspector.h"

namespace tavrin {

std::optional<PDFLatentContentInspector::Findings> PDFLatentContentInspector::inspect(PDFDocument& document) {
    auto catalog = document.catalog();
    if (!catalog) return std::nullopt;
    Findings findings;
    try {
        QPDFObjectHandle names = catalog->getKey("/Names");
        if (names.isDictionary() && names.getKey("/JavaScript").isDictionary())
            findings.javaScriptLocations.emplace_back("JavaScript name tree");
        QPDFObjectHandle openAction = catalog->getKey("/OpenAction");
        if (openAction.isDictionary()) {
            QPDFObjectHandle type = openAction.getKey("/S");
            const bool isScript = type.isName() && type.getName() == "/JavaScript";
            if (isScript || openAction.hasKey("/JS")) findings.javaScriptLocations.emplace_back("Document open action");
        }
        if (catalog->getKey("/AA").isDictionary()) findings.javaScriptLocations.emplace_back("Additional actions (/AA)");
        findings.hasAcroForm = catalog->getKey("/AcroForm").isDictionary();
    } catch (const std::exception&) {
        return std::nullopt;
    }
    return findings;
}

std::optional<PDFLatentContentInspector::Findings> PDFLatentContentInspector::inspect(const std::filesystem::path& at) {
    auto document = PDFDocument::open(at);
    if (!document) return std::nullopt;
    return inspect(*document);
}

bool PDFLatentContentInspector::confirmsNoJavaScript(const std::filesystem::path& at) {
    auto findings = inspect(at);
    return findings && !findings->hasJavaScript();
}

}  // namespace tavrin
