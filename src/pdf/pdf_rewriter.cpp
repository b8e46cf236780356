#include "pdf/pdf_rewriter.h"

#include <map>

#include <qpdf/Pipeline.hh>
#include <qpdf/QPDFWriter.hh>

#include "pdf/jpeg_metadata_segments.h"
#include "pdf/pdf_errors.h"

namespace tavrin {

namespace {

bool isPlainJPEGStream(QPDFObjectHandle stream) {
    QPDFObjectHandle filter = stream.getDict().getKey("/Filter");
    if (filter.isName()) return filter.getName() == "/DCTDecode";
    return filter.isArray() && filter.getArrayNItems() == 1 && filter.getArrayItem(0).isName() &&
           filter.getArrayItem(0).getName() == "/DCTDecode";
}

// Supplies each JPEG image's data without its metadata segments while qpdf writes, one image at
// a time, so a PDF full of photos never sits in memory whole.
class JPEGSegmentFilter : public QPDFObjectHandle::StreamDataProvider {
public:
    void add(QPDFObjGen target, QPDFObjectHandle original) { originals_.emplace(target, original); }

    void provideStreamData(QPDFObjGen const& og, Pipeline* pipeline) override {
        auto found = originals_.find(og);
        if (found == originals_.end()) throw std::runtime_error("unknown image stream");
        std::shared_ptr<Buffer> raw = found->second.getRawStreamData();
        const std::span<const std::uint8_t> bytes(raw->getBuffer(), raw->getSize());
        auto ranges = jpegSegments::rangesWithoutMetadata(bytes);
        if (!ranges) throw std::runtime_error("an image could not be read to remove its metadata");
        for (const auto& r : *ranges) pipeline->write(bytes.data() + r.offset, r.length);
        pipeline->finish();
    }

private:
    std::map<QPDFObjGen, QPDFObjectHandle> originals_;
};

}  // namespace

void PDFRewriter::dropCarriedMetadata(PDFDocument& document) {
    QPDF& q = document.qpdf();
    for (QPDFObjectHandle object : q.getAllObjects()) {
        QPDFObjectHandle dictionary = object.isStream() ? object.getDict() : object;
        if (!dictionary.isDictionary()) continue;
        dictionary.removeKey("/Metadata");
        dictionary.removeKey("/PieceInfo");
    }
    QPDFObjectHandle trailer = q.getTrailer();
    for (const std::string& key : trailer.getKeys()) {
        if (key != "/Root" && key != "/Info" && key != "/Size") trailer.removeKey(key);
    }
}

PDFPermissions PDFPermissions::of(QPDF& q) {
    return {q.allowAccessibility(), q.allowExtractAll(),    q.allowModifyAssembly(), q.allowModifyAnnotation(),
            q.allowModifyForm(),    q.allowModifyOther(),   q.allowPrintLowRes(),    q.allowPrintHighRes()};
}

void PDFRewriter::write(PDFDocument& document, const std::filesystem::path& output, const PDFPasswordPolicy& policy,
                        const std::optional<PDFPermissions>& permissions) {
    QPDF& q = document.qpdf();
    try {
        dropCarriedMetadata(document);
        auto filter = std::make_shared<JPEGSegmentFilter>();
        for (QPDFObjectHandle object : q.getAllObjects()) {
            if (!object.isStream() || !isPlainJPEGStream(object)) continue;
            QPDFObjectHandle dict = object.getDict();
            filter->add(object.getObjGen(), object.copyStream());
            object.replaceStreamData(filter, dict.getKey("/Filter"), dict.getKey("/DecodeParms"));
        }
        (void)q.getWarnings();  // what reading reported so far is not the writer's concern

        QPDFWriter writer(q, output.c_str());
        writer.setObjectStreamMode(qpdf_o_disable);
        writer.setLinearization(false);
        if (policy.hasAnyPassword()) {
            // Without an owner password the user password serves as both, so the file always
            // has one. Permission value 35 maps to printing (low and high resolution) and
            // accessibility; everything else is off.
            const std::string user = policy.userPassword.value_or("");
            if (policy.hasOwnerPassword() && permissions) {
                const PDFPermissions& p = *permissions;
                const qpdf_r3_print_e print = p.printHighResolution  ? qpdf_r3p_full
                                              : p.printLowResolution ? qpdf_r3p_low
                                                                     : qpdf_r3p_none;
                writer.setR6EncryptionParameters(user.c_str(), policy.ownerPassword->c_str(), p.accessibility,
                                                 p.extract, p.assemble, p.annotate, p.fillForms, p.modifyOther,
                                                 print, true);
            } else if (policy.hasOwnerPassword()) {
                writer.setR6EncryptionParameters(user.c_str(), policy.ownerPassword->c_str(), true, false, false, false,
                                                 false, false, qpdf_r3p_full, true);
            } else {
                writer.setR6EncryptionParameters(user.c_str(), user.c_str(), true, true, true, true, true, true,
                                                 qpdf_r3p_full, true);
            }
        } else {
            writer.setPreserveEncryption(false);
            // The identifier derives from the content, so cleaning the same file twice gives
            // the same bytes and the identifier tells nothing about when or where it was made.
            writer.setDeterministicID(true);
        }
        writer.write();
    } catch (const std::exception& e) {
        throw PDFWriterError(PDFWriterError::Case::cannotWriteDocument, e.what());
    }
    if (q.anyWarnings()) {
        const auto warnings = q.getWarnings();
        throw PDFWriterError(PDFWriterError::Case::cannotWriteDocument,
                             warnings.empty() ? "damaged content" : warnings.front().getMessageDetail());
    }
}

}  // namespace tavrin
