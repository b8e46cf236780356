#pragma once
// The reader for PDF: Info attributes, a summary of navigation, and latent content (scripts,
// interactive forms). Items have the source `pdfKit` and equal id and key, "PDF.<name>".

#include <vector>

#include "model/metadata_reader.h"
#include "pdf/pdf_document.h"
#include "pdf/pdf_errors.h"
#include "pdf/pdf_navigation_inspector.h"

namespace tavrin {

class PDFMetadataReader : public MetadataReader {
public:
    std::set<FileType> supportedTypes() const override { return {FileType::pdf}; }
    // A supported extension, and the document opens.
    bool canRead(const std::filesystem::path& url) const override;
    // Throws PDFMetadataReaderError when the document does not open (the pipeline wraps it in
    // `readFailed`), or PipelineError::fileTypeUnknown.
    MetadataTree readMetadata(const std::filesystem::path& url) const override;

    static std::vector<MetadataItem> infoAttributeItems(const PDFDocumentAttributes& attributes);
    static std::vector<MetadataItem> navigationItems(const PDFNavigationInspector::Summary& summary);
    static std::vector<MetadataItem> latentContentItems(PDFDocument& document);
    // The properties of the catalog's XMP packet, "PDF.XMP.dc:creator" …; none when there is no
    // packet or it does not parse.
    static std::vector<MetadataItem> xmpItems(PDFDocument& document);
};

}  // namespace tavrin
