#pragma once
// The save of a cleaned PDF: a qpdf rewrite with a classic cross-reference table (object streams
// off), so an incremental update can follow. It carries what the document needs to display —
// pages with contents, resources and annotations, the outline, the form — and not the XMP
// packets (/Metadata), /PieceInfo, the trailer's old /ID, or anything unreachable: old revisions
// and orphaned objects are gone. JPEG images lose their APPn and COM segments, losslessly.

#include <filesystem>
#include <optional>

#include "pdf/pdf_document.h"
#include "pdf/pdf_password_policy.h"

namespace tavrin {

// What an encrypted PDF lets people do without its owner password.
struct PDFPermissions {
    bool accessibility = true;
    bool extract = true;
    bool assemble = true;
    bool annotate = true;
    bool fillForms = true;
    bool modifyOther = true;
    bool printLowResolution = true;
    bool printHighResolution = true;
    bool operator==(const PDFPermissions&) const = default;

    // The permissions of an open document (all granted when it is not encrypted).
    static PDFPermissions of(QPDF& q);
};

struct PDFRewriter {
    // Writes `document` to `output` (which must not exist yet), applying the removals above to
    // the open document first. With an owner password, `permissions` (when given) replace the
    // restricted set this program otherwise grants. Throws PDFWriterError(cannotWriteDocument)
    // when qpdf fails or reports damage while writing, so a half-read stream never reaches a
    // cleaned file.
    static void write(PDFDocument& document, const std::filesystem::path& output, const PDFPasswordPolicy& policy,
                      const std::optional<PDFPermissions>& permissions = std::nullopt);

    // Drops /Metadata and /PieceInfo from every object and every trailer key but /Root and
    // /Info. Part of `write`; separate so the password processor's checks can use it too.
    static void dropCarriedMetadata(PDFDocument& document);
};

}  // namespace tavrin
