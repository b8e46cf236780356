#include "office/office_hidden_content_scrubber.h"

#include <functional>

#include "office/office_hidden_content_detector.h"
#include "office/office_package.h"
#include "office/office_part_text.h"
#include "office/office_xml_document.h"

namespace tavrin {

namespace {

// A collected element inside another collected element still has that parent when its turn
// comes; only one already taken out of the tree by other means has none.
bool hasParent(const XMLElement& element) { return element.parent().has_value(); }

// Parses the part, lets `collect` gather elements in one walk, then detaches them. Nothing
// when the part does not parse; the input text itself when nothing was collected, or when the
// edited document does not serialise to UTF-8.
struct Collected {
    std::string xml;
    std::vector<XMLElement> elements;
};

std::optional<Collected> detachCollected(std::string_view text,
                                         const std::function<void(XMLElement&, std::vector<XMLElement>&)>& collect) {
    auto document = parsePartText(text);
    if (!document) return std::nullopt;
    std::vector<XMLElement> found;
    forEachElement(*document->rootElement(), [&](XMLElement& element) { collect(element, found); });
    if (found.empty()) return Collected{std::string(text), {}};
    for (auto& element : found)
        if (hasParent(element)) element.detach();
    auto xml = serializedPartText(*document);
    return Collected{xml ? std::move(*xml) : std::string(text), std::move(found)};
}


std::string lowerCased(std::string_view text) { return lowerCasedPath(text); }

// The last path component of the relationship types that point at a template or a mail-merge
// data source, lower-cased.
const std::set<std::string>& latentRelationshipTypeSuffixes() {
    static const std::set<std::string> suffixes{"attachedtemplate", "mailmergesource", "mailmergeheadersource",
                                                "recipientdata"};
    return suffixes;
}

}  // namespace

const std::set<std::string>& OfficeHiddenContentScrubber::latentSettingsElementNames() {
    static const std::set<std::string> names{"docVars", "mailMerge", "odso", "attachedTemplate"};
    return names;
}

const std::map<std::string, std::string>& OfficeHiddenContentScrubber::latentSettingsElementLabels() {
    static const std::map<std::string, std::string> labels{
        {"docVars", "Document Variables"},
        {"mailMerge", "Mail Merge Settings"},
        {"odso", "Mail Merge Data Source (ODSO)"},
        {"attachedTemplate", "Attached Template"},
    };
    return labels;
}

std::optional<std::string> OfficeHiddenContentScrubber::scrubHiddenSheets(std::string_view workbookXML) {
    auto result = detachCollected(workbookXML, [](XMLElement& element, std::vector<XMLElement>& found) {
        if (element.localName() != "sheet") return;
        const auto state = attributeValue(element, "state");
        if (state && (*state == "hidden" || *state == "veryHidden")) found.push_back(element);
    });
    if (!result) return std::nullopt;
    return std::move(result->xml);
}

std::optional<std::string> OfficeHiddenContentScrubber::scrubHiddenSlides(std::string_view presentationXML) {
    auto result = detachCollected(presentationXML, [](XMLElement& element, std::vector<XMLElement>& found) {
        if (element.localName() != "sldId") return;
        if (attributeValue(element, "show") == "0") found.push_back(element);
    });
    if (!result) return std::nullopt;
    return std::move(result->xml);
}

std::optional<OfficeHiddenContentScrubber::CountedRewrite> OfficeHiddenContentScrubber::scrubInactiveHeaderFooterReferences(
    std::string_view documentXML, bool evenAndOddEnabled) {
    auto document = parsePartText(documentXML);
    if (!document) return std::nullopt;
    const auto classified =
        OfficeHiddenContentDetector::classifyHeaderFooterReferences(*document->rootElement(), evenAndOddEnabled);
    if (classified.inactive.empty()) return CountedRewrite{std::string(documentXML), 0};
    int removed = 0;
    for (const auto& reference : classified.inactive) {
        XMLElement element = reference.element;
        if (!hasParent(element)) continue;
        element.detach();
        ++removed;
    }
    auto xml = serializedPartText(*document);
    return CountedRewrite{xml ? std::move(*xml) : std::string(documentXML), removed};
}

std::optional<OfficeHiddenContentScrubber::LabelledRewrite> OfficeHiddenContentScrubber::scrubLatentSettings(
    std::string_view settingsXML) {
    auto document = parsePartText(settingsXML);
    if (!document) return std::nullopt;
    std::vector<XMLElement> found;
    forEachElement(*document->rootElement(), [&](XMLElement& element) {
        if (latentSettingsElementNames().count(element.localName())) found.push_back(element);
    });
    if (found.empty()) return LabelledRewrite{std::string(settingsXML), {}};
    std::vector<std::string> labels;
    // Walk order: an "odso" inside "mailMerge" still hangs under its parent when its turn comes,
    // so both labels are reported.
    for (auto& element : found) {
        if (!hasParent(element)) continue;
        const auto label = latentSettingsElementLabels().find(element.localName());
        if (label != latentSettingsElementLabels().end()) labels.push_back(label->second);
        element.detach();
    }
    auto xml = serializedPartText(*document);
    return LabelledRewrite{xml ? std::move(*xml) : std::string(settingsXML), std::move(labels)};
}

std::optional<OfficeHiddenContentScrubber::FlaggedRewrite> OfficeHiddenContentScrubber::scrubLatentRelationships(
    std::string_view relsXML) {
    const auto& suffixes = latentRelationshipTypeSuffixes();
    auto result = detachCollected(relsXML, [&](XMLElement& element, std::vector<XMLElement>& found) {
        if (element.localName() != "Relationship") return;
        const auto type = element.attributeForName("Type");
        if (!type) return;
        const std::string lower = lowerCased(type->stringValue());
        if (suffixes.count(std::string(lastPathComponent(lower)))) found.push_back(element);
    });
    if (!result) return std::nullopt;
    return FlaggedRewrite{std::move(result->xml), !result->elements.empty()};
}

std::optional<OfficeHiddenContentScrubber::FlaggedRewrite> OfficeHiddenContentScrubber::scrubPrinterSettingsReferences(
    std::string_view worksheetXML, const std::set<std::string>& droppedRIds) {
    auto document = parsePartText(worksheetXML);
    if (!document) return std::nullopt;
    bool removedAny = false;
    forEachElement(*document->rootElement(), [&](XMLElement& element) {
        if (element.localName() != "pageSetup") return;
        std::vector<std::string> doomed;
        for (const auto& attribute : element.attributes())
            if (attribute.localName() == "id" && droppedRIds.count(attribute.stringValue()))
                doomed.push_back(attribute.name());
        for (const auto& name : doomed) element.removeAttributeForName(name);
        removedAny = removedAny || !doomed.empty();
    });
    if (!removedAny) return FlaggedRewrite{std::string(worksheetXML), false};
    auto xml = serializedPartText(*document);
    return FlaggedRewrite{xml ? std::move(*xml) : std::string(worksheetXML), true};
}

}  // namespace tavrin
