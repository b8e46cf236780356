#pragma once
// The structural soundness of a document, as `qpdf --check` would judge it: a page tree that
// reaches every page once without a loop, and stream data that decodes. Used on a source before
// it is rewritten (damage is refused with its reason rather than copied) and on every output
// before it is published.

#include <optional>
#include <string>

#include "pdf/pdf_document.h"

namespace tavrin {

struct PDFIntegrity {
    // Page tree nodes visited at most; deeper or larger trees are refused.
    static constexpr std::size_t maximumPageTreeNodes = 1'000'000;

    // The first problem found, as "object 2 0: page tree loop", or nothing when the document is
    // sound. Never throws.
    static std::optional<std::string> damageIn(PDFDocument& document);
    // The page tree alone.
    static std::optional<std::string> pageTreeDamage(PDFDocument& document);
    // Every stream of the document, decoded as far as qpdf's general filters go.
    static std::optional<std::string> streamDamage(PDFDocument& document);
};

}  // namespace tavrin
