// The name sets and the operations on part text: each parses, runs the tree operations in
// the order its categories require, and serialises.
#include "office/office_xml_scrubber.h"

#include <map>

#include "office/office_xml_document.h"
#include "office/office_xml_scrubber_support.h"

namespace tavrin {

namespace {

using NameSet = OfficeXMLScrubber::NameSet;

bool has(const CleaningProfile& profile, MetadataCategory category) {
    return profile.categoriesToRemove.count(category) != 0;
}

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }


// Parses, applies `edit` to the root, serialises; nothing for any failure on the way.
template <typename Edit>
std::optional<std::string> editedPart(std::string_view xml, Edit&& edit, const XMLDocument::ParseOptions& options = {}) {
    try {
        auto document = scrubbing::parsedPartText(xml, options);
        if (!document) return std::nullopt;
        edit(*document->rootElement());
        return scrubbing::serializedPartText(*document, xml.size());
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

}  // namespace

// MARK: Name sets

const NameSet& OfficeXMLScrubber::droppedContentMarkers() {
    static const NameSet names = {"del", "delText", "delInstrText", "moveFrom"};
    return names;
}
const NameSet& OfficeXMLScrubber::unwrappedMarkers() {
    static const NameSet names = {"ins", "moveTo"};
    return names;
}
const NameSet& OfficeXMLScrubber::revisionPropertyMarkers() {
    static const NameSet names = {"rPrChange", "pPrChange",      "tblPrChange",     "tblPrExChange",
                                  "trPrChange", "tcPrChange",    "sectPrChange",    "tblGridChange",
                                  "numberingChange", "cellIns",  "cellDel",         "cellMerge"};
    return names;
}
const NameSet& OfficeXMLScrubber::rangeMarkerBases() {
    static const NameSet names = {"customXmlInsRange",      "customXmlDelRange", "customXmlMoveFromRange",
                                  "customXmlMoveToRange",   "moveFromRange",     "moveToRange"};
    return names;
}
const NameSet& OfficeXMLScrubber::contentBearingRangeBases() {
    static const NameSet names = {"moveFromRange", "customXmlMoveFromRange"};
    return names;
}
const NameSet& OfficeXMLScrubber::rangeMarkerNames() {
    static const NameSet names = [] {
        NameSet all;
        for (const auto& base : rangeMarkerBases()) {
            all.insert(base + "Start");
            all.insert(base + "End");
        }
        return all;
    }();
    return names;
}
const NameSet& OfficeXMLScrubber::commentReferenceElementNames() {
    static const NameSet names = {"commentRangeStart", "commentRangeEnd", "commentReference"};
    return names;
}
const NameSet& OfficeXMLScrubber::authorshipAttributeNames() {
    static const NameSet names = {"author", "userId", "initials"};
    return names;
}
const NameSet& OfficeXMLScrubber::universalIdentityNames() {
    static const NameSet names = {"author", "userId", "initials", "email"};
    return names;
}
const NameSet& OfficeXMLScrubber::rosterScopedIdentityNames() {
    static const NameSet names = {"name", "displayName", "providerId", "userProvider", "userProviderId"};
    return names;
}
const NameSet& OfficeXMLScrubber::rosterAuthorElementNames() {
    static const NameSet names = {"author", "person", "people", "userinfo", "presenceinfo"};
    return names;
}
const NameSet& OfficeXMLScrubber::timestampAttributeNames() {
    static const NameSet names = {"date", "dateUtc", "dt", "dT"};
    return names;
}
const NameSet& OfficeXMLScrubber::commentElementNames() {
    static const NameSet names = {"comment",          "comments",        "commentList",   "commentReference",
                                  "commentRangeStart", "commentRangeEnd", "commentRange",  "cm",
                                  "cmLst",            "threadedComment", "threadedComments"};
    return names;
}

bool OfficeXMLScrubber::isRosterAuthorElement(const XMLElement& element) {
    std::string name(element.localNameView());
    for (char& c : name) c = lower(c);
    return rosterAuthorElementNames().count(name) || name.ends_with("author") || name.ends_with("person") ||
           name.ends_with("userinfo");
}

// MARK: Operations on part text

std::optional<std::string> OfficeXMLScrubber::scrubWordPart(std::string_view xml, const CleaningProfile& profile,
                                                            const std::set<std::string>& vanishStyleIDs) {
    // The steps, in their required order: with documentHistory, stripRSIDAttributes, the rsids
    // tables, blankLastModifiedBy (with authorIdentity) and acceptTrackedChanges; without it,
    // blankLastModifiedBy and stripAuthorshipAttributes for authorIdentity (only there: with
    // history on, an author on an element that acceptance keeps stays); with
    // commentsAnnotations, the comment anchors, removeHiddenTextRuns and removeStyleVanishRuns;
    // with timestamps, stripTimestampAttributes. Run with merged walks for large parts.
    const scrubbing::WordScrubSteps steps{has(profile, MetadataCategory::documentHistory),
                                          has(profile, MetadataCategory::authorIdentity),
                                          has(profile, MetadataCategory::commentsAnnotations),
                                          has(profile, MetadataCategory::timestamps)};
    // The attributes that go from every element never enter the tree: a large part then costs
    // less to build, to walk and to free.
    XMLDocument::ParseOptions options;
    options.dropAttribute = [&](std::string_view name) { return scrubbing::wordAttributeRemoved(steps, name); };
    return editedPart(
        xml, [&](const XMLElement& root) { scrubbing::scrubWordTree(root, steps, vanishStyleIDs, true); }, options);
}

std::optional<std::string> OfficeXMLScrubber::scrubGenericOfficePart(std::string_view xml, const CleaningProfile& profile,
                                                                     bool isWMLPart) {
    return editedPart(xml, [&](const XMLElement& root) {
        if (has(profile, MetadataCategory::commentsAnnotations)) {
            removeElements(root, commentElementNames());
            if (isWMLPart) removeHiddenTextRuns(root);
        }
        if (has(profile, MetadataCategory::documentHistory)) {
            unwrapElements(root, unwrappedMarkers());
            removeElements(root, droppedContentMarkers());
            removeElements(root, revisionPropertyMarkers());
            removeElements(root, rangeMarkerNames());
            stripRSIDAttributes(root);
        }
        const bool identity = has(profile, MetadataCategory::authorIdentity);
        const bool timestamps = has(profile, MetadataCategory::timestamps);
        if (identity || timestamps) {
            scrubbing::walkElements(root, [&](XMLElement& element) {
                const bool isRoster = isRosterAuthorElement(element);
                removeIdentityAttributes(element, identity, timestamps, isRoster);
                if (identity) blankIdentityElementText(element, isRoster);
            });
        }
    });
}

std::optional<std::string> OfficeXMLScrubber::scrubIdentityFields(std::string_view xml, bool removeIdentity,
                                                                  bool removeTimestamps) {
    return editedPart(xml, [&](const XMLElement& root) {
        scrubbing::walkElements(root, [&](XMLElement& element) {
            const bool isRoster = isRosterAuthorElement(element);
            removeIdentityAttributes(element, removeIdentity, removeTimestamps, isRoster);
            if (removeIdentity) blankIdentityElementText(element, isRoster);
        });
    });
}

std::optional<std::string> OfficeXMLScrubber::emptiedRevisionPart(std::string_view xml) {
    return editedPart(xml, [](const XMLElement& root) {
        auto children = root.children();
        for (auto child = children.rbegin(); child != children.rend(); ++child) child->detach();
    });
}

std::set<std::string> OfficeXMLScrubber::vanishStyleIDs(const std::optional<std::string>& fromStylesXML) {
    std::set<std::string> hiding;
    if (!fromStylesXML) return hiding;
    try {
        auto document = scrubbing::parsedPartText(*fromStylesXML);
        if (!document) return hiding;
        std::map<std::string, std::string> basedOn;
        scrubbing::walkElements(*document->rootElement(), [&](XMLElement& element) {
            if (element.localNameView() != "style") return;
            std::string styleID;
            for (const auto& attribute : element.attributes())
                if (attribute.localName() == "styleId") {
                    styleID = attribute.stringValue();
                    break;
                }
            if (styleID.empty()) return;
            for (const auto& child : element.children()) {
                if (child.kind() != XMLNode::Kind::element || child.localName() != "basedOn") continue;
                for (const auto& attribute : child.asElement()->attributes())
                    if (attribute.localName() == "val") {
                        if (auto parent = attribute.stringValue(); !parent.empty()) basedOn[styleID] = parent;
                        break;
                    }
                break;
            }
            // The marker's value is not read: a style that names vanish at all counts as hiding.
            bool hides = false;
            scrubbing::walkElements(element, [&](XMLElement& inner) {
                if (!hides && (inner.localNameView() == "vanish" || inner.localNameView() == "specVanish")) hides = true;
            });
            if (hides) hiding.insert(styleID);
        });
        for (bool changed = true; changed;) {
            changed = false;
            for (const auto& [style, parent] : basedOn)
                if (!hiding.count(style) && hiding.count(parent)) {
                    hiding.insert(style);
                    changed = true;
                }
        }
    } catch (const std::exception&) {
        hiding.clear();
    }
    return hiding;
}

bool OfficeXMLScrubber::isSTOnOffFalse(std::string_view value) {
    std::string lowered(value);
    for (char& c : lowered) c = lower(c);
    return lowered == "0" || lowered == "false" || lowered == "off" || lowered == "no" || lowered == "n";
}

}  // namespace tavrin
