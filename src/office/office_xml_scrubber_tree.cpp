// The operations on a parsed tree. Each walk is iterative; what a walk finds to remove is
// collected first and removed after it, so that the walk never loses its place.
#include <algorithm>
#include <map>
#include <unordered_set>

#include "office/office_xml_document.h"
#include "office/office_xml_scrubber.h"
#include "office/office_xml_scrubber_support.h"

namespace tavrin {

namespace {

using NameSet = OfficeXMLScrubber::NameSet;

struct NodeHash {
    std::size_t operator()(const XMLNode& node) const { return node.identityHash(); }
};
using NodeSet = std::unordered_set<XMLNode, NodeHash>;

bool startsWith(std::string_view text, std::string_view prefix) { return text.substr(0, prefix.size()) == prefix; }

std::optional<XMLNode> firstAttribute(const XMLElement& element, std::string_view localName) {
    for (const auto& attribute : element.attributes())
        if (attribute.localName() == localName) return attribute;
    return std::nullopt;
}

std::optional<XMLElement> firstChildElement(const XMLElement& element, std::string_view localName) {
    for (const auto& child : element.children())
        if (child.kind() == XMLNode::Kind::element && child.localName() == localName) return child.asElement();
    return std::nullopt;
}

// Removes every attribute of every element whose local name passes `doomed`.
template <typename Test>
void stripAttributes(const XMLElement& root, Test&& doomed) {
    forEachElement(root, [&](XMLElement& element) {
        for (auto& attribute : element.attributes())
            if (doomed(attribute.localName())) attribute.detach();
    });
}

std::size_t depth(const XMLNode& node) {
    std::size_t count = 0;
    for (auto p = node.parent(); p; p = p->parent()) ++count;
    return count;
}

// The value of rStyle (for a run) or pStyle (for a paragraph) when it names a hiding style.
bool carriesHidingStyle(const XMLElement& element, const std::set<std::string>& vanishStyleIDs) {
    const std::string name = element.localName();
    const bool run = name == "r";
    if (!run && name != "p") return false;
    const auto properties = firstChildElement(element, run ? "rPr" : "pPr");
    if (!properties) return false;
    const auto style = firstChildElement(*properties, run ? "rStyle" : "pStyle");
    if (!style) return false;
    const auto value = firstAttribute(*style, "val");
    return value && vanishStyleIDs.count(value->stringValue());
}

}  // namespace

void OfficeXMLScrubber::removeIdentityAttributes(XMLElement& from, bool removeIdentity, bool removeTimestamps,
                                                 bool isRoster) {
    for (auto& attribute : from.attributes()) {
        const std::string name = attribute.localName();
        const bool identity = removeIdentity && (universalIdentityNames().count(name) ||
                                                 (isRoster && rosterScopedIdentityNames().count(name)));
        const bool date = removeTimestamps && timestampAttributeNames().count(name);
        if (identity || date) attribute.detach();
    }
}

void OfficeXMLScrubber::blankIdentityElementText(XMLElement& element, bool isRoster) {
    const std::string name = element.localName();
    if (!isRoster && !universalIdentityNames().count(name) && name != "lastModifiedBy") return;
    const auto children = element.children();
    const bool mixed = std::any_of(children.begin(), children.end(),
                                   [](const XMLNode& child) { return child.kind() == XMLNode::Kind::element; });
    if (mixed) {
        // Child elements keep their own judgement; only this element's own words go.
        for (auto child : children)
            if (child.kind() == XMLNode::Kind::text && scrubbing::containsNonWhitespace(child.stringValue()))
                child.detach();
    } else if (!element.stringValue().empty()) {
        element.setStringValue("");
    }
}

void OfficeXMLScrubber::blankLastModifiedBy(const XMLElement& root) {
    std::vector<XMLElement> found;
    forEachElement(root, [&](XMLElement& element) {
        if (element.localName() == "lastModifiedBy") found.push_back(element);
    });
    for (auto& element : found) element.setStringValue("");
}

void OfficeXMLScrubber::stripRSIDAttributes(const XMLElement& root) {
    stripAttributes(root, [](const std::string& name) { return startsWith(name, "rsid"); });
}

void OfficeXMLScrubber::stripTimestampAttributes(const XMLElement& root) {
    stripAttributes(root, [](const std::string& name) { return timestampAttributeNames().count(name) != 0; });
}

void OfficeXMLScrubber::stripAuthorshipAttributes(const XMLElement& root) {
    stripAttributes(root, [](const std::string& name) { return authorshipAttributeNames().count(name) != 0; });
}

void OfficeXMLScrubber::acceptTrackedChanges(const XMLElement& root) {
    // Move-from ranges first: their markers are what the last step removes.
    for (const auto& base : contentBearingRangeBases()) removeContentBetweenRange(root, base);
    removeElements(root, droppedContentMarkers());
    unwrapElements(root, unwrappedMarkers());
    removeElements(root, revisionPropertyMarkers());
    removeElements(root, rangeMarkerNames());
}

void OfficeXMLScrubber::removeHiddenTextRuns(const XMLElement& root) {
    std::vector<XMLNode> hiddenRuns;
    std::vector<XMLNode> switchedOff;
    forEachElement(root, [&](XMLElement& element) {
        const std::string name = element.localName();
        if (name != "vanish" && name != "specVanish") return;
        if (const auto value = firstAttribute(element, "val"); value && isSTOnOffFalse(value->stringValue())) {
            switchedOff.push_back(element);
            return;
        }
        // A marker outside any run (paragraph mark, style) hides no run here.
        for (auto p = element.parent(); p && p->kind() == XMLNode::Kind::element; p = p->parent())
            if (p->localName() == "r") {
                hiddenRuns.push_back(*p);
                break;
            }
    });
    for (auto& run : hiddenRuns)
        if (run.parent()) run.detach();
    for (auto& marker : switchedOff)
        if (marker.parent()) marker.detach();
    removeElements(root, NameSet{"vanish", "specVanish"});
}

void OfficeXMLScrubber::removeStyleVanishRuns(const XMLElement& root, const std::set<std::string>& vanishStyleIDs) {
    std::vector<XMLNode> doomed;
    forEachElement(root, [&](XMLElement& element) {
        if (carriesHidingStyle(element, vanishStyleIDs)) doomed.push_back(element);
    });
    for (auto& node : doomed)
        if (node.parent()) node.detach();
}

bool OfficeXMLScrubber::containsStyleVanishResidue(const XMLElement& root, const std::set<std::string>& vanishStyleIDs) {
    bool found = false;
    forEachElement(root, [&](XMLElement& element) {
        if (!found && carriesHidingStyle(element, vanishStyleIDs)) found = true;
    });
    return found;
}

OfficeXMLScrubber::RangeSpans OfficeXMLScrubber::rangeSpans(const std::vector<XMLNode>& nodes, std::string_view base) {
    const std::string start = std::string(base) + "Start";
    const std::string end = std::string(base) + "End";
    std::map<std::string, std::size_t> open;
    std::vector<std::size_t> anonymous;
    RangeSpans result;
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        const auto element = nodes[i].asElement();
        if (!element) continue;
        const std::string name = element->localName();
        if (name.empty()) continue;
        if (name == start) {
            const auto id = firstAttribute(*element, "id");
            const std::string value = id ? id->stringValue() : "";
            // A repeated id replaces the earlier start, which is then lost to both outputs.
            if (!value.empty()) open[value] = i;
            else anonymous.push_back(i);
        } else if (name == end) {
            const auto id = firstAttribute(*element, "id");
            const auto match = id ? open.find(id->stringValue()) : open.end();
            if (match != open.end()) {
                result.spans.emplace_back(match->second, i);
                open.erase(match);
            } else if (!anonymous.empty()) {
                result.spans.emplace_back(anonymous.back(), i);
                anonymous.pop_back();
            }
        }
    }
    for (const auto& [id, index] : open) result.unmatched.push_back(index);
    result.unmatched.insert(result.unmatched.end(), anonymous.begin(), anonymous.end());
    return result;
}

void OfficeXMLScrubber::removeContentBetweenRange(const XMLElement& root, std::string_view base) {
    const auto nodes = documentOrderNodes(root);
    const auto [spans, unmatched] = rangeSpans(nodes, base);
    if (spans.empty() && unmatched.empty()) return;
    NodeSet chosen;
    std::vector<XMLNode> doomed;
    const auto add = [&](const XMLNode& node) {
        if (chosen.insert(node).second) doomed.push_back(node);
    };
    for (const auto& [s, e] : spans) {
        if (s >= e) continue;
        // The containers of the end marker survive, with what follows the marker.
        const auto kept = ancestors(nodes[e]);
        const NodeSet keep(kept.begin(), kept.end());
        add(nodes[s]);
        add(nodes[e]);
        for (std::size_t i = s + 1; i < e; ++i)
            if (!keep.count(nodes[i])) add(nodes[i]);
    }
    for (std::size_t index : unmatched) add(nodes[index]);
    std::vector<std::pair<std::size_t, XMLNode>> byDepth;
    byDepth.reserve(doomed.size());
    for (const auto& node : doomed) byDepth.emplace_back(depth(node), node);
    std::stable_sort(byDepth.begin(), byDepth.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
    for (auto& [level, node] : byDepth)
        if (node.parent()) node.detach();
}

void OfficeXMLScrubber::removeElements(const XMLElement& root, const NameSet& localNames) {
    std::vector<XMLElement> doomed;
    forEachElement(root, [&](XMLElement& element) {
        if (localNames.count(element.localName())) doomed.push_back(element);
    });
    for (auto& element : doomed) element.detach();
}

void OfficeXMLScrubber::unwrapElements(const XMLElement& root, const NameSet& localNames) {
    // A matching root is the first match of any walk, and it ends the operation.
    if (localNames.count(root.localName())) return;
    // Unwrapping one element at a time from the root would cost the size of the part per
    // wrapper. Moving (not copying) the children keeps every collected handle valid, so all
    // matches, nested ones included, can be unwrapped in walk order with the same result.
    std::vector<XMLElement> wrappers;
    forEachElement(root, [&](XMLElement& element) {
        if (localNames.count(element.localName())) wrappers.push_back(element);
    });
    for (auto& wrapper : wrappers) {
        const auto parentNode = wrapper.parent();
        if (!parentNode) continue;
        auto parent = parentNode->asElement();
        if (!parent) continue;
        const auto siblings = parent->children();
        const auto at = std::find(siblings.begin(), siblings.end(), static_cast<const XMLNode&>(wrapper));
        std::size_t index = static_cast<std::size_t>(at - siblings.begin());
        const auto children = wrapper.children();
        wrapper.detach();
        for (const auto& child : children) parent->insertChild(child, index++);
    }
}

std::vector<XMLNode> OfficeXMLScrubber::documentOrderNodes(const XMLElement& root) {
    std::vector<XMLNode> nodes;
    std::vector<XMLNode> stack;
    const auto top = root.children();
    stack.assign(top.rbegin(), top.rend());
    while (!stack.empty()) {
        XMLNode node = stack.back();
        stack.pop_back();
        nodes.push_back(node);
        const auto children = node.children();
        stack.insert(stack.end(), children.rbegin(), children.rend());
    }
    return nodes;
}

std::vector<XMLNode> OfficeXMLScrubber::ancestors(const XMLNode& of) {
    std::vector<XMLNode> chain;
    for (auto p = of.parent(); p; p = p->parent()) chain.push_back(*p);
    return chain;
}

}  // namespace tavrin
