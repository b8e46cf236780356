#pragma once
// Counts and classifies a PDF's navigation: the outline (bookmarks) and link annotations.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "pdf/pdf_document.h"

namespace tavrin {

struct PDFNavigationInspector {
    struct LinkKind {
        enum class Kind { externalURL, internalDestination, unknown };
        Kind kind = Kind::unknown;
        std::string url;  // the target of an `externalURL`
        bool operator==(const LinkKind&) const = default;
    };

    struct Summary {
        bool hasOutline = false;
        std::int64_t outlineItemCount = 0;
        std::int64_t internalLinkCount = 0;  // `internalDestination` and `unknown` links
        std::int64_t externalLinkCount = 0;
        std::vector<std::string> sampleExternalURLs;  // first five distinct, in document order

        bool hasAnyNavigation() const { return hasOutline || internalLinkCount > 0 || externalLinkCount > 0; }
        bool operator==(const Summary&) const = default;
    };

    // An outline walk stops after this many items; a real document has far fewer.
    static constexpr std::int64_t maximumOutlineItems = 200000;

    // Opens the file; a file that does not open gives an empty summary.
    static Summary summarize(const std::filesystem::path& url);
    static Summary summarize(PDFDocument& document);
    // All items of the outline, nested ones included; 0 without an outline.
    static std::int64_t outlineItemCount(PDFDocument& document);
    static LinkKind classify(QPDFObjectHandle linkAnnotation);
    // Every descendant of an outline item (the item itself does not count). Iterative, and each
    // item is counted once however the /First and /Next links loop.
    static std::int64_t countOutlineChildren(QPDFObjectHandle outlineItem);
};

}  // namespace tavrin
