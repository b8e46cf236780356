#include "pdf/pdf_navigation_inspector.h"

#include <algorithm>
#include <set>

namespace tavrin {

std::int64_t PDFNavigationInspector::countOutlineChildren(QPDFObjectHandle outlineItem) {
    std::int64_t count = 0;
    try {
        std::set<QPDFObjGen> visited;
        if (outlineItem.isIndirect()) visited.insert(outlineItem.getObjGen());
        std::vector<QPDFObjectHandle> firstChildren{outlineItem.getKeyIfDict("/First")};
        while (!firstChildren.empty() && count < maximumOutlineItems) {
            QPDFObjectHandle item = firstChildren.back();
            firstChildren.pop_back();
            while (item.isDictionary() && count < maximumOutlineItems) {
                // Direct objects cannot form a loop; indirect ones are counted once.
                if (item.isIndirect() && !visited.insert(item.getObjGen()).second) break;
                ++count;
                firstChildren.push_back(item.getKey("/First"));
                item = item.getKey("/Next");
            }
        }
    } catch (const std::exception&) {
    }
    return count;
}

std::int64_t PDFNavigationInspector::outlineItemCount(PDFDocument& document) {
    auto catalog = document.catalog();
    if (!catalog) return 0;
    try {
        QPDFObjectHandle outlines = catalog->getKey("/Outlines");
        if (!outlines.isDictionary()) return 0;
        return countOutlineChildren(outlines);
    } catch (const std::exception&) {
        return 0;
    }
}

PDFNavigationInspector::LinkKind PDFNavigationInspector::classify(QPDFObjectHandle link) {
    try {
        QPDFObjectHandle action = link.getKey("/A");
        if (action.isDictionary()) {
            if (auto uri = stringValue(action.getKey("/URI"))) return {LinkKind::Kind::externalURL, *uri};
            QPDFObjectHandle type = action.getKey("/S");
            if (type.isName() && type.getName() == "/GoTo") return {LinkKind::Kind::internalDestination, ""};
        }
        if (!link.getKey("/Dest").isNull()) return {LinkKind::Kind::internalDestination, ""};
    } catch (const std::exception&) {
    }
    return {LinkKind::Kind::unknown, ""};
}

PDFNavigationInspector::Summary PDFNavigationInspector::summarize(PDFDocument& document) {
    Summary summary;
    summary.outlineItemCount = outlineItemCount(document);
    summary.hasOutline = summary.outlineItemCount > 0;
    document.forEachAnnotation([&](std::size_t, QPDFObjectHandle, QPDFObjectHandle annotation) {
        if (annotationSubtype(annotation) != "Link") return;
        LinkKind kind = classify(annotation);
        if (kind.kind != LinkKind::Kind::externalURL) {
            ++summary.internalLinkCount;
            return;
        }
        ++summary.externalLinkCount;
        auto& sample = summary.sampleExternalURLs;
        if (sample.size() < 5 && std::find(sample.begin(), sample.end(), kind.url) == sample.end())
            sample.push_back(kind.url);
    });
    return summary;
}

PDFNavigationInspector::Summary PDFNavigationInspector::summarize(const std::filesystem::path& url) {
    auto document = PDFDocument::open(url);
    if (!document) return {};
    return summarize(*document);
}

}  // namespace tavrin
