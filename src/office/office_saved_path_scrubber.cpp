#include "office/office_saved_path_scrubber.h"

#include <vector>

#include "office/office_package.h"
#include "office/office_package_check.h"
#include "office/office_part_text.h"
#include "office/office_xml_document.h"

namespace tavrin {

namespace {

bool isSavedPath(const XMLElement& element) {
    return element.localName() == "absPath" || element.localName() == "revisionPtr" ||
           element.localName() == "alternateUrls";
}

std::size_t elementChildren(const XMLElement& element) {
    std::size_t count = 0;
    for (const auto& child : element.children()) count += child.kind() == XMLNode::Kind::element ? 1 : 0;
    return count;
}

std::optional<XMLElement> parentElement(const XMLElement& element) {
    const auto parent = element.parent();
    return parent ? parent->asElement() : std::nullopt;
}

// What goes with a saved path: the compatibility choice that holds only it, and the block
// around that choice when it holds nothing else.
XMLElement outermostHolder(const XMLElement& element) {
    const auto choice = parentElement(element);
    if (!choice || choice->localName() != "Choice" || elementChildren(*choice) != 1) return element;
    const auto block = parentElement(*choice);
    if (block && block->localName() == "AlternateContent" && elementChildren(*block) == 1) return *block;
    return *choice;
}

}  // namespace

std::optional<OfficeSavedPathScrubber::Rewrite> OfficeSavedPathScrubber::scrubWorkbook(std::string_view workbookXML) {
    auto document = parsePartText(workbookXML);
    if (!document) return std::nullopt;
    std::vector<XMLElement> found;
    forEachElement(*document->rootElement(), [&](XMLElement& element) {
        if (isSavedPath(element)) found.push_back(element);
    });
    if (found.empty()) return Rewrite{std::string(workbookXML), false};
    for (auto& element : found) {
        if (!element.parent()) continue;
        auto doomed = outermostHolder(element);
        if (doomed.parent()) doomed.detach();
    }
    auto xml = serializedPartText(*document);
    if (!xml) return std::nullopt;
    return Rewrite{std::move(*xml), true};
}

std::optional<OfficeSavedPathScrubber::LinkRewrite> OfficeSavedPathScrubber::scrubExternalLink(
    std::string_view externalLinkXML) {
    auto document = parsePartText(externalLinkXML);
    if (!document) return std::nullopt;
    std::vector<XMLElement> found;
    std::set<std::string> ids;
    forEachElement(*document->rootElement(), [&](XMLElement& element) {
        if (element.localName() != "alternateUrls") return;
        found.push_back(element);
        forEachElement(element, [&](XMLElement& inner) {
            for (const auto& attribute : inner.attributes())
                if (OfficePackageCheck::isRelationshipNamespace(attribute.uri())) ids.insert(attribute.stringValue());
        });
    });
    if (found.empty()) return LinkRewrite{std::string(externalLinkXML), {}, false};
    for (auto& element : found)
        if (element.parent()) element.detach();
    auto xml = serializedPartText(*document);
    if (!xml) return std::nullopt;
    return LinkRewrite{std::move(*xml), std::move(ids), true};
}

std::optional<std::string> OfficeSavedPathScrubber::withoutRelationships(std::string_view relsXML,
                                                                         const std::set<std::string>& ids) {
    auto document = parsePartText(relsXML);
    if (!document) return std::nullopt;
    std::vector<XMLElement> found;
    forEachElement(*document->rootElement(), [&](XMLElement& element) {
        if (element.localName() == "Relationship" && ids.count(attributeValue(element, "Id").value_or("")))
            found.push_back(element);
    });
    if (found.empty()) return std::string(relsXML);
    for (auto& element : found) element.detach();
    return serializedPartText(*document);
}

bool OfficeSavedPathScrubber::residue(const XMLElement& root) {
    bool found = false;
    forEachElement(root, [&](XMLElement& element) { found = found || isSavedPath(element); });
    return found;
}

}  // namespace tavrin
