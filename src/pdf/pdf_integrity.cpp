#include "pdf/pdf_integrity.h"

#include <set>
#include <utility>
#include <vector>

#include <qpdf/Pl_Discard.hh>

namespace tavrin {

std::optional<std::string> PDFIntegrity::pageTreeDamage(PDFDocument& document) {
    try {
        auto catalog = document.catalog();
        if (!catalog) return "document catalog: not a dictionary";
        QPDFObjectHandle root = catalog->getKey("/Pages");
        if (!root.isDictionary()) return objectLabel(*catalog) + ": no page tree";
        // Depth first, iteratively: a node met twice is a loop (or a page listed twice, which
        // qpdf --check reports as well).
        std::set<QPDFObjGen> seen;
        std::vector<QPDFObjectHandle> pending{root};
        std::size_t visited = 0;
        while (!pending.empty()) {
            QPDFObjectHandle node = pending.back();
            pending.pop_back();
            if (++visited > maximumPageTreeNodes) return "page tree: more nodes than a document may have here";
            if (!node.isDictionary()) return objectLabel(node) + ": page tree node is not a dictionary";
            if (node.isIndirect() && !seen.insert(node.getObjGen()).second)
                return objectLabel(node) + ": page tree loop";
            QPDFObjectHandle type = node.getKey("/Type");
            QPDFObjectHandle kids = node.getKey("/Kids");
            const bool isPage = type.isName() ? type.getName() == "/Page" : !kids.isArray();
            if (isPage) continue;
            if (!kids.isArray()) return objectLabel(node) + ": page tree node without /Kids";
            const int count = kids.getArrayNItems();
            for (int i = count - 1; i >= 0; --i) pending.push_back(kids.getArrayItem(i));
        }
    } catch (const std::exception& e) {
        return std::string("page tree: ") + e.what();
    }
    return std::nullopt;
}

std::optional<std::string> PDFIntegrity::streamDamage(PDFDocument& document) {
    std::vector<QPDFObjectHandle> objects;
    try {
        objects = document.qpdf().getAllObjects();
    } catch (const std::exception& e) {
        return std::string("objects cannot be read: ") + e.what();
    }
    for (QPDFObjectHandle object : objects) {
        try {
            if (!object.isStream()) continue;
            Pl_Discard discard;
            // Flate, LZW, ASCII85, ASCIIHex and RunLength are decoded; lossy image codecs are
            // left to the viewer, as qpdf --check does.
            if (!object.pipeStreamData(&discard, nullptr, 0, qpdf_dl_specialized, true, false))
                return objectLabel(object) + ": stream data cannot be decoded";
        } catch (const std::exception&) {
            return objectLabel(object) + ": stream data cannot be decoded";
        }
    }
    return std::nullopt;
}

std::optional<std::string> PDFIntegrity::damageIn(PDFDocument& document) {
    if (auto problem = pageTreeDamage(document)) return problem;
    return streamDamage(document);
}

}  // namespace tavrin
