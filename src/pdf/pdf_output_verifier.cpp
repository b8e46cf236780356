#include "pdf/pdf_output_verifier.h"

#include "pdf/jpeg_metadata_segments.h"
#include "pdf/pdf_integrity.h"
#include "pdf/pdf_latent_content_inspector.h"
#include "pdf/pdf_metadata_writer.h"

namespace tavrin {

std::optional<std::string> PDFOutputVerifier::infoProblem(const PDFDocumentAttributes& attributes,
                                                          const CleaningProfile& profile, InfoCheck check) {
    for (const auto& [attribute, value] : attributes) {
        if (check == InfoCheck::identifyingOnly && PDFMetadataWriter::isReinjected(attribute)) continue;
        if (profile.shouldRemove(PDFMetadataWriter::infoItem(attribute, value)))
            return "Info dictionary: " + std::string(pdfAttributeName(attribute)) + " remains";
    }
    return std::nullopt;
}

std::optional<std::string> PDFOutputVerifier::metadataStreamProblem(PDFDocument& document) {
    auto catalog = document.catalog();
    if (!catalog) return "document catalog cannot be read";
    try {
        QPDFObjectHandle metadata = catalog->getKey("/Metadata");
        if (!metadata.isNull()) return objectLabel(*catalog) + ": XMP metadata stream remains";
    } catch (const std::exception&) {
        return "document catalog cannot be read";
    }
    return std::nullopt;
}

std::optional<std::string> PDFOutputVerifier::embeddedFilesProblem(PDFDocument& document) {
    auto catalog = document.catalog();
    if (!catalog) return "document catalog cannot be read";
    try {
        QPDFObjectHandle names = catalog->getKey("/Names");
        if (names.isDictionary() && names.getKey("/EmbeddedFiles").isDictionary())
            return objectLabel(names.isIndirect() ? names : *catalog) + ": embedded files";
    } catch (const std::exception&) {
        return "document catalog cannot be read";
    }
    return std::nullopt;
}

std::optional<std::string> PDFOutputVerifier::activeContentProblem(PDFDocument& document) {
    auto findings = PDFLatentContentInspector::inspect(document);
    if (!findings) return "document catalog cannot be inspected for scripts";
    if (findings->refusesCleaning() && !findings->objects.empty()) return findings->objects.front();
    return std::nullopt;
}

std::optional<std::string> PDFOutputVerifier::imageMetadataProblem(PDFDocument& document) {
    try {
        for (QPDFObjectHandle object : document.qpdf().getAllObjects()) {
            if (!object.isStream()) continue;
            QPDFObjectHandle filter = object.getDict().getKey("/Filter");
            const bool jpeg = (filter.isName() && filter.getName() == "/DCTDecode") ||
                              (filter.isArray() && filter.getArrayNItems() == 1 &&
                               filter.getArrayItem(0).isName() && filter.getArrayItem(0).getName() == "/DCTDecode");
            if (!jpeg) continue;
            auto raw = object.getRawStreamData();
            if (jpegSegments::mayCarryMetadata({raw->getBuffer(), raw->getSize()}))
                return objectLabel(object) + ": JPEG image carries metadata segments";
        }
    } catch (const std::exception& e) {
        return std::string("images cannot be read: ") + e.what();
    }
    return std::nullopt;
}

std::optional<std::string> PDFOutputVerifier::readingProblem(PDFDocument& document) {
    QPDF& q = document.qpdf();
    if (!q.anyWarnings()) return std::nullopt;
    const auto warnings = q.getWarnings();
    if (warnings.empty()) return "the file reads with damage";
    return "the file reads with damage: " + warnings.front().getMessageDetail();
}

std::optional<std::string> PDFOutputVerifier::problemIn(PDFDocument& output, const CleaningProfile& profile,
                                                        InfoCheck check) {
    if (auto p = infoProblem(output.documentAttributes(), profile, check)) return p;
    if (auto p = PDFMetadataWriter::annotationProblem(output, profile)) return p;
    if (auto p = metadataStreamProblem(output)) return p;
    if (auto p = embeddedFilesProblem(output)) return p;
    if (auto p = activeContentProblem(output)) return p;
    if (auto p = imageMetadataProblem(output)) return p;
    if (auto p = PDFIntegrity::damageIn(output)) return p;
    return readingProblem(output);
}

}  // namespace tavrin
