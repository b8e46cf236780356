#include "pdf/pdf_metadata_reader.h"

#include "model/pipeline_error.h"
#include "pdf/pdf_latent_content_inspector.h"
#include "pdf/pdf_xmp.h"

namespace tavrin {

namespace {

struct InfoRow {
    PDFInfoAttribute attribute;
    const char* id;
    const char* displayName;
    MetadataCategory category;
};

// The reader's order, which differs from the order the writer writes Info entries in.
constexpr InfoRow infoRows[] = {
    {PDFInfoAttribute::title, "PDF.Title", "Title", MetadataCategory::authorIdentity},
    {PDFInfoAttribute::author, "PDF.Author", "Author", MetadataCategory::authorIdentity},
    {PDFInfoAttribute::subject, "PDF.Subject", "Subject", MetadataCategory::authorIdentity},
    {PDFInfoAttribute::creator, "PDF.Creator", "Creator Application", MetadataCategory::softwareInfo},
    {PDFInfoAttribute::producer, "PDF.Producer", "PDF Producer", MetadataCategory::softwareInfo},
    {PDFInfoAttribute::creationDate, "PDF.CreationDate", "Creation Date", MetadataCategory::timestamps},
    {PDFInfoAttribute::modificationDate, "PDF.ModDate", "Modification Date", MetadataCategory::timestamps},
    {PDFInfoAttribute::keywords, "PDF.Keywords", "Keywords", MetadataCategory::authorIdentity},
};

MetadataItem item(const char* id, const char* displayName, MetadataValue value, MetadataCategory category,
                  bool removable) {
    return MetadataItem{id, id, displayName, std::move(value), category, MetadataSource::pdfKit, removable};
}

bool hasExpectedShape(PDFInfoAttribute attribute, const MetadataValue& value) {
    switch (attribute) {
        case PDFInfoAttribute::creationDate:
        case PDFInfoAttribute::modificationDate:
            return value.kind() == MetadataValue::Kind::date;
        case PDFInfoAttribute::keywords:
            if (value.kind() != MetadataValue::Kind::array || value.asArray().empty()) return false;
            for (const auto& element : value.asArray())
                if (element.kind() != MetadataValue::Kind::string) return false;
            return true;
        case PDFInfoAttribute::title:
        case PDFInfoAttribute::author:
        case PDFInfoAttribute::subject:
        case PDFInfoAttribute::creator:
        case PDFInfoAttribute::producer:
            return value.kind() == MetadataValue::Kind::string && !value.asString().empty();
    }
    return false;
}

}  // namespace

std::vector<MetadataItem> PDFMetadataReader::infoAttributeItems(const PDFDocumentAttributes& attributes) {
    std::vector<MetadataItem> items;
    for (const auto& row : infoRows) {
        auto found = attributes.find(row.attribute);
        if (found == attributes.end() || !hasExpectedShape(row.attribute, found->second)) continue;
        items.push_back(item(row.id, row.displayName, found->second, row.category, true));
    }
    return items;
}

std::vector<MetadataItem> PDFMetadataReader::navigationItems(const PDFNavigationInspector::Summary& s) {
    std::vector<MetadataItem> items;
    const auto history = MetadataCategory::documentHistory;
    if (s.hasOutline)
        items.push_back(item("PDF.Outline", "Table of Contents (outline)",
                             MetadataValue::string(std::to_string(s.outlineItemCount) + " bookmark(s)"), history, false));
    if (s.internalLinkCount >= 1)
        items.push_back(item("PDF.InternalLinks", "Internal navigation links",
                             MetadataValue::string(std::to_string(s.internalLinkCount) + " link(s)"), history, false));
    if (s.externalLinkCount >= 1) {
        std::string text = std::to_string(s.externalLinkCount) + " link(s)";
        if (!s.sampleExternalURLs.empty()) {
            text += ": ";
            for (std::size_t i = 0; i < s.sampleExternalURLs.size(); ++i) {
                if (i > 0) text += ", ";
                text += s.sampleExternalURLs[i];
            }
        }
        items.push_back(item("PDF.ExternalHyperlinks", "External hyperlinks", MetadataValue::string(text), history, false));
    }
    return items;
}

std::vector<MetadataItem> PDFMetadataReader::latentContentItems(PDFDocument& document) {
    std::vector<MetadataItem> items;
    const auto hidden = MetadataCategory::hiddenContent;
    auto findings = PDFLatentContentInspector::inspect(document);
    if (!findings) {
        items.push_back(item("PDF.LatentContentInspection", "Latent content inspection",
                             MetadataValue::string("Unable to inspect PDF catalog; embedded JavaScript or form "
                                                   "presence could not be confirmed"),
                             hidden, false));
        return items;
    }
    const auto joined = [](const std::vector<std::string>& locations) {
        std::string text;
        for (const auto& location : locations) {
            if (!text.empty()) text += ", ";
            text += location;
        }
        return text;
    };
    // Cleaning removes neither, and refuses the document: the item says so before anyone tries.
    if (findings->hasJavaScript())
        items.push_back(item("PDF.JavaScript", "Embedded JavaScript",
                             MetadataValue::string(joined(findings->javaScriptLocations) +
                                                   "; cleaning refuses a document that carries scripts"),
                             hidden, false));
    if (findings->hasLaunch())
        items.push_back(item("PDF.LaunchAction", "Program launch actions (/Launch)",
                             MetadataValue::string(joined(findings->launchLocations) +
                                                   "; cleaning refuses a document that starts programs"),
                             hidden, false));
    if (findings->hasAcroForm)
        items.push_back(item("PDF.AcroForm", "Interactive Form (AcroForm)",
                             MetadataValue::string("Form fields may contain user data"), hidden, false));
    return items;
}

std::vector<MetadataItem> PDFMetadataReader::xmpItems(PDFDocument& document) {
    auto packet = PDFXMP::catalogPacket(document);
    if (!packet) return {};
    auto properties = PDFXMP::properties(*packet);
    if (!properties) return {};
    return PDFXMP::items(*properties);
}

bool PDFMetadataReader::canRead(const std::filesystem::path& url) const {
    return MetadataReader::canRead(url) && PDFDocument::open(url) != nullptr;
}

MetadataTree PDFMetadataReader::readMetadata(const std::filesystem::path& url) const {
    const FileType type = detectFileType(url);
    PDFDocument::OpenStatus status;
    auto document = PDFDocument::open(url, "", &status);
    if (!document) {
        if (status == PDFDocument::OpenStatus::passwordRequired)
            throw PDFMetadataReaderError(PDFMetadataReaderError::Case::passwordRequired);
        throw PDFMetadataReaderError(PDFMetadataReaderError::Case::cannotOpenPDF, describeOpenFailure(status));
    }
    std::vector<MetadataItem> items;
    try {
        items = infoAttributeItems(document->documentAttributes());
        for (auto& i : xmpItems(*document)) items.push_back(std::move(i));
        for (auto& i : navigationItems(PDFNavigationInspector::summarize(*document))) items.push_back(std::move(i));
        for (auto& i : latentContentItems(*document)) items.push_back(std::move(i));
    } catch (const std::exception& e) {
        // qpdf's own exceptions stay behind this edge.
        throw PDFMetadataReaderError(PDFMetadataReaderError::Case::cannotOpenPDF, e.what());
    }
    return buildTree(items, url, type);
}

}  // namespace tavrin
