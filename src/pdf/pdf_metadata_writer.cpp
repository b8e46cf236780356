#include "pdf/pdf_metadata_writer.h"

#include <algorithm>
#include <chrono>

#include "model/file_system.h"
#include "model/pipeline_error.h"
#include "pdf/jpeg_metadata_segments.h"
#include "pdf/mapped_file.h"
#include "pdf/pdf_date.h"
#include "pdf/pdf_latent_content_inspector.h"
#include "pdf/pdf_navigation_inspector.h"
#include "pdf/pdf_rewriter.h"

namespace tavrin {

namespace {

const std::set<std::string>& markupAnnotationTypes() {
    static const std::set<std::string> types = {"Text",   "FreeText", "Highlight", "Underline", "StrikeOut",
                                                "Squiggly", "Ink",    "Square",    "Circle",    "Line",
                                                "Polygon",  "PolyLine", "Stamp",   "Popup"};
    return types;
}

const std::set<std::string>& fileBearingAnnotationTypes() {
    static const std::set<std::string> types = {"FileAttachment", "Sound", "Movie", "Screen", "RichMedia", "3D"};
    return types;
}

MetadataItem writerItem(std::string id, std::string displayName, MetadataValue value, MetadataCategory category,
                        bool removable) {
    return MetadataItem{id, id, std::move(displayName), std::move(value), category, MetadataSource::pdfKit, removable};
}

MetadataItem annotationAuthorItem(const std::string& author) {
    return writerItem("PDF.Annotation.Author", "Annotation Author", MetadataValue::string(author),
                      MetadataCategory::authorIdentity, true);
}

MetadataItem annotationDateItem(MetadataValue value) {
    return writerItem("PDF.Annotation.ModificationDate", "Annotation ModificationDate", std::move(value),
                      MetadataCategory::timestamps, true);
}

MetadataItem annotationContentsItem(const std::string& contents) {
    return writerItem("PDF.Annotation.Contents", "Annotation Contents", MetadataValue::string(contents),
                      MetadataCategory::commentsAnnotations, true);
}

// What an annotation says about who wrote it, when, and what.
struct AnnotationFacts {
    std::optional<std::string> author;
    std::optional<MetadataValue> date;
    std::optional<std::string> contents;  // markup annotations only
};

std::optional<MetadataValue> annotationDate(QPDFObjectHandle annotation) {
    for (const char* key : {"/M", "/CreationDate"}) {
        auto text = stringValue(annotation.getKey(key));
        if (!text || text->empty()) continue;
        if (auto date = parsePDFDate(*text)) return MetadataValue::date(*date);
        return MetadataValue::string(*text);
    }
    return std::nullopt;
}

AnnotationFacts factsOf(QPDFObjectHandle annotation, const std::string& subtype) {
    AnnotationFacts facts;
    auto author = stringValue(annotation.getKey("/T"));
    if (author && !author->empty()) facts.author = *author;
    facts.date = annotationDate(annotation);
    if (markupAnnotationTypes().count(subtype)) {
        auto contents = stringValue(annotation.getKey("/Contents"));
        if (contents && !contents->empty()) facts.contents = *contents;
    }
    return facts;
}

std::size_t characterCount(const std::string& utf8) {
    return static_cast<std::size_t>(
        std::count_if(utf8.begin(), utf8.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

void addTextValues(const MetadataValue& value, std::set<std::string>& into) {
    if (value.kind() == MetadataValue::Kind::string) {
        if (!value.asString().empty()) into.insert(value.asString());
    } else if (value.kind() == MetadataValue::Kind::array) {
        for (const auto& element : value.asArray())
            if (element.kind() == MetadataValue::Kind::string && !element.asString().empty())
                into.insert(element.asString());
    }
}

std::int64_t sizeOrZero(const std::filesystem::path& path) {
    try {
        return fs::fileSize(path);
    } catch (const std::exception&) {
        return 0;
    }
}

}  // namespace

const std::vector<PDFMetadataWriter::InfoKeyMapping>& PDFMetadataWriter::infoKeyMappings() {
    using A = PDFInfoAttribute;
    using C = MetadataCategory;
    static const std::vector<InfoKeyMapping> mappings = {
        {A::title, C::authorIdentity},  {A::author, C::authorIdentity},     {A::subject, C::authorIdentity},
        {A::keywords, C::authorIdentity}, {A::creator, C::softwareInfo},    {A::producer, C::softwareInfo},
        {A::creationDate, C::timestamps}, {A::modificationDate, C::timestamps},
    };
    return mappings;
}

bool PDFMetadataWriter::isReinjected(PDFInfoAttribute a) {
    return a == PDFInfoAttribute::producer || a == PDFInfoAttribute::creationDate ||
           a == PDFInfoAttribute::modificationDate;
}

MetadataItem PDFMetadataWriter::infoItem(PDFInfoAttribute attribute, const MetadataValue& value) {
    MetadataCategory category = MetadataCategory::authorIdentity;
    for (const auto& m : infoKeyMappings())
        if (m.attribute == attribute) category = m.category;
    const std::string name(pdfAttributeName(attribute));
    return writerItem("PDF." + name, name, value, category, true);
}

void PDFMetadataWriter::scrubInfoAttributes(PDFDocumentAttributes& attributes, const CleaningProfile& profile,
                                            std::vector<MetadataItem>& removed, std::vector<MetadataItem>& retained) {
    for (const auto& m : infoKeyMappings()) {
        auto found = attributes.find(m.attribute);
        if (found == attributes.end()) continue;
        MetadataItem item = infoItem(m.attribute, found->second);
        if (profile.shouldRemove(item)) {
            attributes.erase(found);
            removed.push_back(std::move(item));
        } else {
            retained.push_back(std::move(item));
        }
    }
}

void PDFMetadataWriter::applyLinkPreservation(PDFDocument& document, const PDFLinkPreservationOptions& options,
                                              std::vector<MetadataItem>& removed,
                                              std::vector<MetadataItem>& retained) {
    const auto history = MetadataCategory::documentHistory;
    if (auto catalog = document.catalog()) {
        QPDFObjectHandle outlines = catalog->getKey("/Outlines");
        if (outlines.isDictionary()) {
            const auto count = PDFNavigationInspector::countOutlineChildren(outlines);
            MetadataItem item = writerItem("PDF.Navigation.Outline", "Navigation Outline",
                                           MetadataValue::string(std::to_string(count) + " bookmark(s)"), history, false);
            if (options.preserveNavigation) {
                retained.push_back(std::move(item));
            } else {
                catalog->removeKey("/Outlines");
                removed.push_back(std::move(item));
            }
        }
    }
    for (QPDFObjectHandle page : document.pages()) {
        QPDFObjectHandle annots = page.getKey("/Annots");
        if (!annots.isArray()) continue;
        std::vector<QPDFObjectHandle> kept;
        bool changed = false;
        for (QPDFObjectHandle annotation : annots.getArrayAsVector()) {
            if (!annotation.isDictionary() || annotationSubtype(annotation) != "Link") {
                kept.push_back(annotation);
                continue;
            }
            const auto kind = PDFNavigationInspector::classify(annotation);
            const bool external = kind.kind == PDFNavigationInspector::LinkKind::Kind::externalURL;
            MetadataItem item =
                external ? writerItem("PDF.Navigation.ExternalHyperlink", "Navigation ExternalHyperlink",
                                      MetadataValue::string(kind.url), history, false)
                         : writerItem("PDF.Navigation.InternalLink", "Navigation InternalLink",
                                      MetadataValue::string("internal navigation"), history, false);
            const bool keep = external ? options.preserveExternalHyperlinks : options.preserveNavigation;
            if (keep) {
                kept.push_back(annotation);
                retained.push_back(std::move(item));
            } else {
                changed = true;
                removed.push_back(std::move(item));
            }
        }
        if (changed) page.replaceKey("/Annots", QPDFObjectHandle::newArray(kept));
    }
}

void PDFMetadataWriter::scrubAnnotations(PDFDocument& document, const CleaningProfile& profile,
                                         std::vector<MetadataItem>& removed, std::vector<MetadataItem>& retained) {
    document.forEachAnnotation([&](std::size_t, QPDFObjectHandle, QPDFObjectHandle annotation) {
        const std::string subtype = annotationSubtype(annotation);
        const AnnotationFacts facts = factsOf(annotation, subtype);
        if (facts.author) {
            MetadataItem item = annotationAuthorItem(*facts.author);
            if (profile.shouldRemove(item)) {
                annotation.removeKey("/T");
                removed.push_back(std::move(item));
            } else {
                retained.push_back(std::move(item));
            }
        }
        if (facts.date) {
            MetadataItem item = annotationDateItem(*facts.date);
            if (profile.shouldRemove(item)) {
                annotation.removeKey("/M");
                annotation.removeKey("/CreationDate");
                removed.push_back(std::move(item));
            } else {
                retained.push_back(std::move(item));
            }
        }
        if (facts.contents) {
            MetadataItem item = annotationContentsItem(*facts.contents);
            if (profile.shouldRemove(item)) {
                // The rich-text form repeats the words, and a free-text box draws them in its
                // appearance; the shape of every other markup stays.
                annotation.removeKey("/Contents");
                annotation.removeKey("/RC");
                if (subtype == "FreeText") annotation.removeKey("/AP");
                removed.push_back(std::move(item));
            } else {
                retained.push_back(std::move(item));
            }
        }
    });
}

PDFMetadataWriter::InMemoryScrubResult PDFMetadataWriter::scrubInMemory(PDFDocument& document,
                                                                        const CleaningProfile& profile) {
    InMemoryScrubResult result;
    PDFDocumentAttributes attributes = document.documentAttributes();
    scrubInfoAttributes(attributes, profile, result.removed, result.retained);
    document.setDocumentAttributes(attributes);
    applyLinkPreservation(document, profile.pdfLinkPreservation, result.removed, result.retained);
    scrubAnnotations(document, profile, result.removed, result.retained);
    return result;
}

std::optional<std::vector<pdfBytes::KeptInfoEntry>> PDFMetadataWriter::keptInfoEntries(
    const PDFDocumentAttributes& originalAttributes, const CleaningProfile& profile) {
    std::vector<pdfBytes::KeptInfoEntry> entries;
    for (const auto& m : infoKeyMappings()) {
        auto found = originalAttributes.find(m.attribute);
        if (found == originalAttributes.end()) continue;
        if (profile.shouldRemove(infoItem(m.attribute, found->second))) continue;
        auto encoded = pdfBytes::encodePDFInfoValue(found->second);
        if (!encoded) return std::nullopt;
        entries.push_back({std::string(pdfAttributeName(m.attribute)), *encoded});
    }
    return entries;
}

bool PDFMetadataWriter::readsAsClean(const PDFDocumentAttributes& attributes, const CleaningProfile& profile) {
    for (const auto& [attribute, value] : attributes)
        if (profile.shouldRemove(infoItem(attribute, value))) return false;
    return true;
}

bool PDFMetadataWriter::identifyingInfoVerifiesClean(const PDFDocumentAttributes& attributes,
                                                     const CleaningProfile& profile) {
    for (const auto& [attribute, value] : attributes)
        if (!isReinjected(attribute) && profile.shouldRemove(infoItem(attribute, value))) return false;
    return true;
}

bool PDFMetadataWriter::annotationsReadClean(PDFDocument& document, const CleaningProfile& profile) {
    bool clean = true;
    try {
        document.forEachAnnotation([&](std::size_t, QPDFObjectHandle, QPDFObjectHandle annotation) {
            const std::string subtype = annotationSubtype(annotation);
            // An embedded payload cannot be proven clean, whatever the profile says.
            if (fileBearingAnnotationTypes().count(subtype)) clean = false;
            const AnnotationFacts facts = factsOf(annotation, subtype);
            if (facts.author && profile.shouldRemove(annotationAuthorItem(*facts.author))) clean = false;
            if (facts.date && profile.shouldRemove(annotationDateItem(*facts.date))) clean = false;
            if (facts.contents && profile.shouldRemove(annotationContentsItem(*facts.contents))) clean = false;
        });
    } catch (const std::exception&) {
        return false;
    }
    return clean;
}

bool PDFMetadataWriter::confirmsNoEmbeddedFiles(PDFDocument& document) {
    auto catalog = document.catalog();
    if (!catalog) return false;
    try {
        QPDFObjectHandle names = catalog->getKey("/Names");
        return !(names.isDictionary() && names.getKey("/EmbeddedFiles").isDictionary());
    } catch (const std::exception&) {
        return false;
    }
}

bool PDFMetadataWriter::confirmsNoMetadataStream(PDFDocument& document) {
    auto catalog = document.catalog();
    if (!catalog) return false;
    try {
        return catalog->getKey("/Metadata").isNull();
    } catch (const std::exception&) {
        return false;
    }
}

bool PDFMetadataWriter::confirmsNoImageMetadata(PDFDocument& document) {
    try {
        for (QPDFObjectHandle object : document.qpdf().getAllObjects()) {
            if (!object.isStream()) continue;
            QPDFObjectHandle filter = object.getDict().getKey("/Filter");
            const bool jpeg = (filter.isName() && filter.getName() == "/DCTDecode") ||
                              (filter.isArray() && filter.getArrayNItems() == 1 &&
                               filter.getArrayItem(0).isName() && filter.getArrayItem(0).getName() == "/DCTDecode");
            if (!jpeg) continue;
            auto raw = object.getRawStreamData();
            if (jpegSegments::mayCarryMetadata({raw->getBuffer(), raw->getSize()})) return false;
        }
    } catch (const std::exception&) {
        return false;
    }
    return true;
}

std::set<std::string> PDFMetadataWriter::removedIdentifyingInfoValues(const PDFDocumentAttributes& originalAttributes,
                                                                      const CleaningProfile& profile) {
    // The Producer is scanned for too: unlike a platform save, our rewrite never writes one of
    // its own, so the document's old Producer has no reason to come back.
    std::set<std::string> values;
    for (const auto& m : infoKeyMappings()) {
        auto found = originalAttributes.find(m.attribute);
        if (found == originalAttributes.end()) continue;
        if (profile.shouldRemove(infoItem(m.attribute, found->second))) addTextValues(found->second, values);
    }
    return values;
}

std::set<std::string> PDFMetadataWriter::removedTextValues(const std::vector<MetadataItem>& removed) {
    std::set<std::string> values;
    for (const auto& item : removed)
        if (item.key == "PDF.Annotation.Author" || item.key == "PDF.Annotation.Contents") addTextValues(item.value, values);
    return values;
}

bool PDFMetadataWriter::forensicScanConfirmsNoResidue(const std::filesystem::path& at,
                                                      const std::set<std::string>& removedValues) {
    std::vector<std::string> needles;
    for (const auto& v : removedValues)
        if (characterCount(v) >= 5) needles.push_back(v);
    if (needles.empty()) return true;
    try {
        MappedFile file(at);
        bool found = false;
        const bool complete = pdfBytes::forEachDecodedObjectString(file.bytes(), [&](const std::string& s) {
            if (found) return;
            for (const auto& needle : needles)
                if (s.find(needle) != std::string::npos) found = true;
        });
        return complete && !found;
    } catch (const std::exception&) {
        return false;
    }
}

bool PDFMetadataWriter::scrubReinjectedInfo(const std::filesystem::path& at, const CleaningProfile& profile,
                                            const PDFDocumentAttributes& originalAttributes,
                                            const std::set<std::string>& removedValues) {
    auto kept = keptInfoEntries(originalAttributes, profile);
    if (!kept) return false;
    // Built before the file is touched; blanking moves no byte, so its offsets stay right.
    auto update = pdfBytes::makeInfoOverrideUpdate(at, *kept);
    if (!update) return false;
    if (!pdfBytes::neutralizeSupersededInfoObject(at)) return false;
    pdfBytes::appendUpdate(*update, at);

    auto reopened = PDFDocument::open(at);
    if (!reopened)
        throw PipelineError::writeFailed(
            at, std::make_exception_ptr(PDFWriterError(PDFWriterError::Case::outputNotCreated)));
    if (!readsAsClean(reopened->documentAttributes(), profile)) return false;
    if (!annotationsReadClean(*reopened, profile)) return false;
    if (!confirmsNoMetadataStream(*reopened)) return false;
    if (!confirmsNoEmbeddedFiles(*reopened)) return false;
    auto findings = PDFLatentContentInspector::inspect(*reopened);
    if (!findings || findings->hasJavaScript()) return false;
    if (!confirmsNoImageMetadata(*reopened)) return false;
    // Anything qpdf had to complain about while we read the output means it is not what we wrote.
    if (reopened->qpdf().anyWarnings()) return false;
    return forensicScanConfirmsNoResidue(at, removedValues);
}

CleaningResult PDFMetadataWriter::cleanMetadata(const std::filesystem::path& source,
                                                const std::filesystem::path& destination,
                                                const CleaningProfile& profile) const {
    const auto start = std::chrono::steady_clock::now();
    PDFDocument::OpenStatus status;
    auto document = PDFDocument::open(source, "", &status);
    const bool locked = status == PDFDocument::OpenStatus::passwordRequired || (document && document->isEncrypted());
    if (!document || locked) {
        // An encrypted file goes through the password processor, which keeps or sets protection
        // on purpose; a plain clean would silently drop it.
        const auto failure = locked ? PDFWriterError::Case::passwordRequired : PDFWriterError::Case::cannotOpenDocument;
        throw PipelineError::readFailed(source, std::make_exception_ptr(PDFWriterError(failure)));
    }

    InMemoryScrubResult scrub;
    PDFDocumentAttributes originalAttributes;
    std::set<std::string> removedValues;
    try {
        originalAttributes = document->documentAttributes();
        scrub = scrubInMemory(*document, profile);
        removedValues = removedIdentifyingInfoValues(originalAttributes, profile);
        for (const auto& v : removedTextValues(scrub.removed)) removedValues.insert(v);
    } catch (const std::exception& e) {
        throw PipelineError::readFailed(
            source, std::make_exception_ptr(PDFWriterError(PDFWriterError::Case::cannotOpenDocument, e.what())));
    }
    try {
        PDFRewriter::write(*document, destination, {});
    } catch (const PDFWriterError&) {
        throw PipelineError::writeFailed(destination, std::current_exception());
    }
    document.reset();
    if (!fs::isReadableFile(destination))
        throw PipelineError::writeFailed(
            destination, std::make_exception_ptr(PDFWriterError(PDFWriterError::Case::outputNotCreated)));

    if (!scrubReinjectedInfo(destination, profile, originalAttributes, removedValues))
        throw PipelineError::outputVerificationFailed(source);

    CleaningResult result;
    result.sourceURL = source;
    result.outputURL = destination;
    result.originalSize = sizeOrZero(source);
    result.cleanedSize = sizeOrZero(destination);
    result.removedItems = std::move(scrub.removed);
    result.retainedItems = std::move(scrub.retained);
    result.profileUsed = profile;
    result.verifiedClean = true;
    if (result.removedItems.empty() && !profile.categoriesToRemove.empty())
        result.warnings.push_back({"PDF attributes", "No matching metadata attributes found to remove"});
    if (auto findings = PDFLatentContentInspector::inspect(destination); findings && findings->hasAcroForm)
        result.warnings.push_back(
            {"PDF AcroForm", "Document contains an interactive form; review form-field contents before sharing"});
    result.remainingMetadataClasses = remainingClasses(result.retainedItems);
    result.duration = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return result;
}

}  // namespace tavrin
