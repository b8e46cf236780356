#include "pdf/pdf_metadata_writer.h"

#include <algorithm>
#include <chrono>

#include "model/cleaning_result_builder.h"
#include "model/file_system.h"
#include "model/pipeline_error.h"
#include "pdf/jpeg_metadata_segments.h"
#include "pdf/mapped_file.h"
#include "pdf/pdf_date.h"
#include "pdf/pdf_latent_content_inspector.h"
#include "pdf/pdf_metadata_reader.h"
#include "pdf/pdf_navigation_inspector.h"
#include "pdf/pdf_integrity.h"
#include "pdf/pdf_output_verifier.h"
#include "pdf/pdf_password_processor.h"
#include "pdf/pdf_rewriter.h"

#include <qpdf/QUtil.hh>

namespace tavrin {

namespace {

MetadataItem writerItem(std::string id, std::string displayName, MetadataValue value, MetadataCategory category,
                        bool removable) {
    return MetadataItem{id, id, std::move(displayName), std::move(value), category, MetadataSource::pdfKit, removable};
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

PDFMetadataWriter::InMemoryScrubResult PDFMetadataWriter::scrubInMemory(PDFDocument& document,
                                                                        const CleaningProfile& profile) {
    InMemoryScrubResult result;
    // The rewrite never carries the catalog's XMP packet, whatever the profile keeps.
    result.removed = PDFMetadataReader::xmpItems(document);
    PDFDocumentAttributes attributes = document.documentAttributes();
    scrubInfoAttributes(attributes, profile, result.removed, result.retained);
    document.setDocumentAttributes(attributes);
    applyLinkPreservation(document, profile.pdfLinkPreservation, result.removed, result.retained);
    scrubAnnotations(document, profile, result.removed, result.retained, &result.removedValues);
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

bool PDFMetadataWriter::confirmsNoEmbeddedFiles(PDFDocument& document) {
    return !PDFOutputVerifier::embeddedFilesProblem(document);
}

bool PDFMetadataWriter::confirmsNoMetadataStream(PDFDocument& document) {
    return !PDFOutputVerifier::metadataStreamProblem(document);
}

bool PDFMetadataWriter::confirmsNoImageMetadata(PDFDocument& document) {
    return !PDFOutputVerifier::imageMetadataProblem(document);
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

std::optional<std::string> PDFMetadataWriter::scrubReinjectedInfo(const std::filesystem::path& at,
                                                                  const CleaningProfile& profile,
                                                                  const PDFDocumentAttributes& originalAttributes,
                                                                  const std::set<std::string>& removedValues) {
    auto kept = keptInfoEntries(originalAttributes, profile);
    if (!kept) return "Info dictionary: a kept value cannot be written";
    // Built before the file is touched; blanking moves no byte, so its offsets stay right.
    auto update = pdfBytes::makeInfoOverrideUpdate(at, *kept);
    if (!update) return "trailer of the rewritten file cannot be parsed";
    if (!pdfBytes::neutralizeSupersededInfoObject(at)) return "the superseded Info dictionary cannot be blanked";
    pdfBytes::appendUpdate(*update, at);

    auto reopened = PDFDocument::open(at, "", nullptr, PDFDocument::Recovery::refuse);
    if (!reopened)
        throw PipelineError::writeFailed(
            at, std::make_exception_ptr(PDFWriterError(PDFWriterError::Case::outputNotCreated)));
    if (auto problem = PDFOutputVerifier::problemIn(*reopened, profile, PDFOutputVerifier::InfoCheck::all))
        return problem;
    if (!forensicScanConfirmsNoResidue(at, removedValues)) return "a removed value remains in the file's strings";
    return std::nullopt;
}

namespace {

// A fresh owner password nobody knows: the copy keeps the source's restrictions, and nobody can
// lift them with the source's owner password.
std::string randomOwnerPassword() {
    unsigned char bytes[24];
    QUtil::initializeWithRandomBytes(bytes, sizeof bytes);
    return QUtil::hex_encode(std::string(reinterpret_cast<const char*>(bytes), sizeof bytes));
}

PipelineError fromPasswordError(const PDFPasswordError& e, const std::filesystem::path& source,
                                const std::filesystem::path& destination) {
    using E = PDFPasswordError::Case;
    switch (e.errorCase()) {
        case E::verificationFailed:
        case E::encryptionNotApplied:
            return PipelineError::outputVerificationFailed(source, e.detail().empty() ? e.what() : e.detail());
        case E::cannotOpenDocument:
            return PipelineError::readFailed(source, std::make_exception_ptr(e));
        default:
            return PipelineError::writeFailed(destination, std::make_exception_ptr(e));
    }
}

}  // namespace

CleaningResult PDFMetadataWriter::cleanOwnerRestricted(PDFDocument& document, const std::filesystem::path& source,
                                                       const std::filesystem::path& destination,
                                                       const CleaningProfile& profile) {
    const PDFPermissions permissions = PDFPermissions::of(document.qpdf());
    PDFPasswordPolicy policy{std::nullopt, randomOwnerPassword()};
    PDFPasswordProcessor::Request request{document, source, destination, profile, policy, true, permissions};
    CleaningResult result;
    try {
        result = PDFPasswordProcessor::cleanAndWrite(request);
    } catch (const PDFPasswordError& e) {
        throw fromPasswordError(e, source, destination);
    }
    result.warnings.push_back({"PDF permissions",
                               "The original restricts printing or copying with an owner password; the cleaned copy "
                               "keeps the same restrictions under a new, random owner password"});
    return result;
}

CleaningResult PDFMetadataWriter::cleanMetadata(const std::filesystem::path& source,
                                                const std::filesystem::path& destination,
                                                const CleaningProfile& profile) const {
    try {
        return cleanOpened(source, destination, profile);
    } catch (const PipelineError&) {
        throw;
    } catch (const std::exception& e) {
        // qpdf's own exceptions stay behind this edge.
        throw PipelineError::writeFailed(
            destination, std::make_exception_ptr(PDFWriterError(PDFWriterError::Case::cannotWriteDocument, e.what())));
    }
}

CleaningResult PDFMetadataWriter::cleanOpened(const std::filesystem::path& source,
                                              const std::filesystem::path& destination,
                                              const CleaningProfile& profile) {
    const auto start = std::chrono::steady_clock::now();
    PDFDocument::OpenStatus status;
    auto document = PDFDocument::open(source, "", &status);
    if (!document) {
        // A file that needs a password to open goes through the password processor.
        if (status == PDFDocument::OpenStatus::passwordRequired)
            throw PipelineError::readFailed(
                source, std::make_exception_ptr(PDFWriterError(PDFWriterError::Case::passwordRequired)));
        throw PipelineError::readFailed(source, std::make_exception_ptr(PDFWriterError(
                                                    PDFWriterError::Case::cannotOpenDocument, describeOpenFailure(status))));
    }
    // Damage is refused with its reason before anything is written; a script or a program
    // launch is named in the source's own object numbers.
    document->resolveAll();
    const bool repaired = document->wasRepaired();
    if (auto damage = PDFIntegrity::damageIn(*document))
        throw PipelineError::writeFailed(
            destination, std::make_exception_ptr(PDFWriterError(PDFWriterError::Case::damagedDocument, *damage)));
    if (auto active = PDFOutputVerifier::activeContentProblem(*document))
        throw PipelineError::outputVerificationFailed(source, *active);

    // Opened without a password yet encrypted: only an owner password restricts it.
    CleaningResult result = document->isEncrypted() ? cleanOwnerRestricted(*document, source, destination, profile)
                                                    : cleanPlain(*document, source, destination, profile);
    if (repaired)
        result.warnings.push_back({"PDF repair", "The file was damaged and has been repaired before cleaning; check "
                                                 "that the cleaned copy shows everything"});
    result.duration = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return result;
}

CleaningResult PDFMetadataWriter::cleanPlain(PDFDocument& document, const std::filesystem::path& source,
                                             const std::filesystem::path& destination, const CleaningProfile& profile) {
    InMemoryScrubResult scrub;
    PDFDocumentAttributes originalAttributes;
    std::set<std::string> removedValues;
    try {
        originalAttributes = document.documentAttributes();
        scrub = scrubInMemory(document, profile);
        removedValues = removedIdentifyingInfoValues(originalAttributes, profile);
        removedValues.insert(scrub.removedValues.begin(), scrub.removedValues.end());
    } catch (const std::exception& e) {
        throw PipelineError::readFailed(
            source, std::make_exception_ptr(PDFWriterError(PDFWriterError::Case::cannotOpenDocument, e.what())));
    }
    try {
        PDFRewriter::write(document, destination, {});
    } catch (const PDFWriterError&) {
        throw PipelineError::writeFailed(destination, std::current_exception());
    }
    if (!fs::isReadableFile(destination))
        throw PipelineError::writeFailed(
            destination, std::make_exception_ptr(PDFWriterError(PDFWriterError::Case::outputNotCreated)));

    if (auto problem = scrubReinjectedInfo(destination, profile, originalAttributes, removedValues))
        throw PipelineError::outputVerificationFailed(source, *problem);

    CleaningResult result = buildCleaningResult(source, destination, profile, std::move(scrub.removed),
                                                std::move(scrub.retained), true);
    if (result.removedItems.empty() && !profile.categoriesToRemove.empty())
        result.warnings.push_back({"PDF attributes", "No matching metadata attributes found to remove"});
    if (auto findings = PDFLatentContentInspector::inspect(destination); findings && findings->hasAcroForm)
        result.warnings.push_back(
            {"PDF AcroForm", "Document contains an interactive form; review form-field contents before sharing"});
    return result;
}

}  // namespace tavrin
