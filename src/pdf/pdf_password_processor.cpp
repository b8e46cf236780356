#include "pdf/pdf_password_processor.h"

#include <chrono>

#include "model/cleaning_result_builder.h"
#include "model/file_system.h"
#include "pdf/pdf_integrity.h"
#include "pdf/pdf_latent_content_inspector.h"
#include "pdf/pdf_output_verifier.h"
#include "pdf/pdf_rewriter.h"

namespace tavrin {

namespace {

using Error = PDFPasswordError::Case;

// Runs a password operation so that nothing but a PDFPasswordError leaves it: qpdf's own
// exceptions become `fallback`, with their text as the detail.
template <class Body>
auto guarded(Error fallback, Body&& body) -> decltype(body()) {
    try {
        return body();
    } catch (const PDFPasswordError&) {
        throw;
    } catch (const std::exception& e) {
        throw PDFPasswordError(fallback, e.what());
    }
}

// Damage, scripts and program launches are refused with their reason before anything is written,
// in the source's own object numbers.
void refuseWhatCannotBeCleaned(PDFDocument& document) {
    if (auto damage = PDFIntegrity::damageIn(document)) throw PDFPasswordError(Error::cannotWriteDocument, *damage);
    if (auto active = PDFOutputVerifier::activeContentProblem(document))
        throw PDFPasswordError(Error::verificationFailed, *active);
}

// Opens an encrypted source: with no password when it is not locked, otherwise with `password`.
std::unique_ptr<PDFDocument> openEncrypted(const std::filesystem::path& source, const std::string& password) {
    PDFDocument::OpenStatus status;
    auto document = PDFDocument::open(source, "", &status);
    if (document) {
        if (!document->isEncrypted()) throw PDFPasswordError(Error::documentNotEncrypted);
        return document;
    }
    if (status != PDFDocument::OpenStatus::passwordRequired)
        throw PDFPasswordError(Error::cannotOpenDocument, describeOpenFailure(status));
    document = PDFDocument::open(source, password, &status);
    if (!document) {
        throw PDFPasswordError(status == PDFDocument::OpenStatus::passwordRequired ? Error::incorrectPassword
                                                                                   : Error::cannotOpenDocument);
    }
    return document;
}

}  // namespace

bool PDFPasswordProcessor::isEncrypted(const std::filesystem::path& at) {
    return guarded(Error::cannotOpenDocument, [&] {
        PDFDocument::OpenStatus status;
        auto document = PDFDocument::open(at, "", &status);
        if (document) return document->isEncrypted();
        return status == PDFDocument::OpenStatus::passwordRequired;
    });
}

bool PDFPasswordProcessor::needsPassword(const std::filesystem::path& at) {
    return guarded(Error::cannotOpenDocument, [&] {
        PDFDocument::OpenStatus status;
        (void)PDFDocument::open(at, "", &status);
        return status == PDFDocument::OpenStatus::passwordRequired;
    });
}

CleaningResult PDFPasswordProcessor::cleanEncrypted(const std::filesystem::path& source,
                                                    const std::filesystem::path& output, const std::string& password,
                                                    const CleaningProfile& profile,
                                                    const PDFPasswordPolicy& policy) const {
    return guarded(Error::cannotWriteDocument, [&] {
        auto document = openEncrypted(source, password);
        refuseWhatCannotBeCleaned(*document);
        return cleanAndWrite({*document, source, output, profile, policy, true, std::nullopt});
    });
}

CleaningResult PDFPasswordProcessor::removePassword(const std::filesystem::path& source,
                                                    const std::filesystem::path& output, const std::string& password,
                                                    const CleaningProfile& profile) const {
    return guarded(Error::cannotWriteDocument, [&] {
        auto document = openEncrypted(source, password);
        refuseWhatCannotBeCleaned(*document);
        return cleanAndWrite({*document, source, output, profile, PDFPasswordPolicy{}, true, std::nullopt});
    });
}

CleaningResult PDFPasswordProcessor::addPassword(const std::filesystem::path& source,
                                                 const std::filesystem::path& output, const CleaningProfile& profile,
                                                 const PDFPasswordPolicy& policy) const {
    return guarded(Error::cannotWriteDocument, [&] {
        PDFDocument::OpenStatus status;
        auto document = PDFDocument::open(source, "", &status);
        if (!document && status == PDFDocument::OpenStatus::passwordRequired)
            throw PDFPasswordError(Error::documentAlreadyEncrypted);
        if (!document) throw PDFPasswordError(Error::cannotOpenDocument, describeOpenFailure(status));
        if (document->isEncrypted()) throw PDFPasswordError(Error::documentAlreadyEncrypted);
        if (!policy.hasAnyPassword()) throw PDFPasswordError(Error::noPasswordProvided);
        refuseWhatCannotBeCleaned(*document);
        return cleanAndWrite({*document, source, output, profile, policy, false, std::nullopt});
    });
}

std::set<std::string> PDFPasswordProcessor::identifyingValues(const PDFDocumentAttributes& attributes) {
    std::set<std::string> values;
    for (PDFInfoAttribute a : {PDFInfoAttribute::author, PDFInfoAttribute::title, PDFInfoAttribute::subject,
                               PDFInfoAttribute::keywords, PDFInfoAttribute::creator}) {
        auto found = attributes.find(a);
        if (found == attributes.end()) continue;
        const MetadataValue& v = found->second;
        if (v.kind() == MetadataValue::Kind::string && !v.asString().empty()) values.insert(v.asString());
        if (v.kind() == MetadataValue::Kind::array)
            for (const auto& e : v.asArray())
                if (e.kind() == MetadataValue::Kind::string && !e.asString().empty()) values.insert(e.asString());
    }
    return values;
}

bool PDFPasswordProcessor::decryptedStringsConfirmNoResidue(PDFDocument& document,
                                                            const std::set<std::string>& removedValues) {
    std::vector<std::string> needles;
    for (const auto& v : removedValues)
        if (v.size() >= 5) needles.push_back(v);
    if (needles.empty()) return true;
    try {
        QPDF& q = document.qpdf();
        std::vector<QPDFObjectHandle> pending;
        for (QPDFObjectHandle object : q.getAllObjects()) pending.push_back(object);
        pending.push_back(q.getTrailer());
        // Indirect references are not followed: every indirect object is on the list already,
        // so the walk visits each direct value once and cannot loop.
        while (!pending.empty()) {
            QPDFObjectHandle o = pending.back();
            pending.pop_back();
            if (o.isStream()) {
                pending.push_back(o.getDict());
            } else if (o.isDictionary()) {
                for (const auto& key : o.getKeys()) {
                    QPDFObjectHandle value = o.getKey(key);
                    if (!value.isIndirect()) pending.push_back(value);
                }
            } else if (o.isArray()) {
                for (QPDFObjectHandle value : o.getArrayAsVector())
                    if (!value.isIndirect()) pending.push_back(value);
            } else if (o.isString()) {
                const std::string text = o.getUTF8Value();
                for (const auto& needle : needles)
                    if (text.find(needle) != std::string::npos) return false;
            }
        }
    } catch (const std::exception&) {
        return false;
    }
    return true;
}

void PDFPasswordProcessor::verifyOutput(const std::filesystem::path& at, const CleaningProfile& profile,
                                        const PDFPasswordPolicy& policy, const std::set<std::string>& originalValues,
                                        const std::optional<PDFPermissions>& permissions) {
    const auto refuse = PDFDocument::Recovery::refuse;
    PDFDocument::OpenStatus status;
    auto document = PDFDocument::open(at, "", &status, refuse);
    if (policy.hasAnyPassword()) {
        if (!document && status != PDFDocument::OpenStatus::passwordRequired)
            throw PDFPasswordError(Error::outputNotCreated);
        // A user password must be needed to open the file; without one, the file must still
        // carry its encryption (the owner's restrictions).
        if (document && (policy.hasUserPassword() || !document->isEncrypted()))
            throw PDFPasswordError(Error::encryptionNotApplied);
        if (!document && policy.hasUserPassword()) document = PDFDocument::open(at, *policy.userPassword, nullptr, refuse);
        if (!document && policy.hasOwnerPassword())
            document = PDFDocument::open(at, *policy.ownerPassword, nullptr, refuse);
        if (!document) throw PDFPasswordError(Error::verificationFailed, "the output does not open with its password");
        if (!document->isEncrypted()) throw PDFPasswordError(Error::encryptionNotApplied);
    } else {
        if (!document) throw PDFPasswordError(Error::outputNotCreated);
        if (document->isEncrypted()) throw PDFPasswordError(Error::encryptionNotRemoved);
    }
    if (permissions && PDFPermissions::of(document->qpdf()) != *permissions)
        throw PDFPasswordError(Error::encryptionNotApplied, "the permissions differ from the original's");

    const PDFDocumentAttributes attributes = document->documentAttributes();
    for (const auto& value : identifyingValues(attributes))
        if (originalValues.count(value))
            throw PDFPasswordError(Error::verificationFailed, "Info dictionary: a removed value remains");
    if (auto problem = PDFOutputVerifier::problemIn(*document, profile, PDFOutputVerifier::InfoCheck::identifyingOnly))
        throw PDFPasswordError(Error::verificationFailed, *problem);
    if (!decryptedStringsConfirmNoResidue(*document, originalValues))
        throw PDFPasswordError(Error::verificationFailed, "a removed value remains in the file's strings");
}

CleaningResult PDFPasswordProcessor::cleanAndWrite(const Request& request) {
    const auto start = std::chrono::steady_clock::now();
    PDFDocumentAttributes originalAttributes;
    PDFMetadataWriter::InMemoryScrubResult scrub;
    std::set<std::string> removedValues;
    try {
        originalAttributes = request.document.documentAttributes();
        removedValues = PDFMetadataWriter::removedIdentifyingInfoValues(originalAttributes, request.profile);
        scrub = PDFMetadataWriter::scrubInMemory(request.document, request.profile);
        removedValues.insert(scrub.removedValues.begin(), scrub.removedValues.end());
    } catch (const std::exception& e) {
        throw PDFPasswordError(Error::cannotOpenDocument, e.what());
    }
    try {
        PDFRewriter::write(request.document, request.output, request.policy, request.permissions);
    } catch (const PDFWriterError& e) {
        throw PDFPasswordError(Error::cannotWriteDocument, e.detail());
    }
    if (!fs::isReadableFile(request.output)) throw PDFPasswordError(Error::outputNotCreated);
    // An appended plain Info object would not belong to an encrypted file; with a password the
    // checks of verifyOutput stand in its place.
    if (!request.policy.hasAnyPassword()) {
        if (auto problem = PDFMetadataWriter::scrubReinjectedInfo(request.output, request.profile, originalAttributes,
                                                                  removedValues))
            throw PDFPasswordError(Error::verificationFailed, *problem);
    }
    verifyOutput(request.output, request.profile, request.policy, removedValues, request.permissions);

    CleaningResult result = buildCleaningResult(request.source, request.output, request.profile,
                                                std::move(scrub.removed), std::move(scrub.retained), true);
    result.duration = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return result;
}

}  // namespace tavrin
