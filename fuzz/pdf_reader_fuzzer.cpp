// The PDF reader's walks on arbitrary bytes: Info with dates, outline, links, annotations,
// scripts and launch actions, forms, the catalog XMP packet and the structural checks. Documents that qpdf refuses end here; the rest are walked in full.
#include <cstddef>
#include <cstdint>

#include "model/cleaning_profile.h"
#include "pdf/pdf_document.h"
#include "pdf/pdf_integrity.h"
#include "pdf/pdf_latent_content_inspector.h"
#include "pdf/pdf_metadata_reader.h"
#include "pdf/pdf_metadata_writer.h"
#include "pdf/pdf_navigation_inspector.h"
#include "pdf/pdf_xmp.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tavrin;
    // The packet parser sees the raw bytes too: some of them are XML.
    (void)PDFXMP::properties({data, size});
    auto document = PDFDocument::openMemory(data, size);
    if (!document) return 0;
    try {
        (void)PDFMetadataReader::infoAttributeItems(document->documentAttributes());
        (void)PDFMetadataReader::navigationItems(PDFNavigationInspector::summarize(*document));
        (void)PDFMetadataReader::latentContentItems(*document);
        (void)PDFMetadataReader::xmpItems(*document);
        (void)PDFIntegrity::damageIn(*document);
        (void)PDFMetadataWriter::annotationsReadClean(*document, CleaningProfile::maximumPrivacy());
        (void)PDFMetadataWriter::scrubInMemory(*document, CleaningProfile::maximumPrivacy());
    } catch (const std::exception&) {
        // qpdf may still find damage deep inside a document it opened; the writer turns that
        // into its own error, the fuzzer only cares that nothing crashes.
    }
    return 0;
}
