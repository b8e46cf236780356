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
    for (auto attribute = element.firstAttribute(); attribute; attribute = attribute->nextSibling())
        if (attribute->localNameView() == localName) return attribute;
    return std::nullopt;
}

std::optional<XMLElement> firstChildElement(const XMLElement& element, std::string_view localName) {
    for (auto child = element.firstChild(); child; child = child->nextSibling())
        if (child->kind() == XMLNode::Kind::element && child->localNameView() == localName) return child->asElement();
    return std::nullopt;
}

// Removes every attribute of every element whose local name passes `doomed`.
template <typename Test>
void stripAttributes(const XMLElement& root, Test&& doomed) {
    scrubbing::walkElements(root, [&](XMLElement& element) { scrubbing::removeAttributes(element, doomed); });
}

std::size_t depth(const XMLNode& node) {
    std::size_t count = 0;
    for (auto p = node.parent(); p; p = p->parent()) ++count;
    return count;
}

// The value of rStyle (for a run) or pStyle (for a paragraph) when it names a hiding style.
bool carriesHidingStyle(const XMLElement& element, const std::set<std::string>& vanishStyleIDs) {
    const std::string_view name = element.localNameView();
    const bool run = name == "r";
    if (!run && name != "p") return false;
    const auto properties = firstChildElement(element, run ? "rPr" : "pPr");
    if (!properties) return false;
    const auto style = firstChildElement(*properties, run ? "rStyle" : "pStyle");
    if (!style) return false;
    const auto value = firstAttribute(*style, "val");
    return value && vanishStyleIDs.count(value->stringValue());
}

// What a vanish walk finds: runs that a marker hides, markers switched off, and every marker.
// Applying removes the runs, then the switched-off markers, then every marker still in place,
// so that a paragraph-mark marker goes while its paragraph stays.
struct HiddenText {
    std::vector<XMLNode> hiddenRuns;
    std::vector<XMLNode> switchedOff;
    std::vector<XMLNode> markers;

    void collect(const XMLElement& element) {
        const std::string_view name = element.localNameView();
        if (name != "vanish" && name != "specVanish") return;
        markers.push_back(element);
        if (const auto value = firstAttribute(element, "val");
            value && OfficeXMLScrubber::isSTOnOffFalse(value->stringValue())) {
            switchedOff.push_back(element);
            return;
        }
        // A marker outside any run (paragraph mark, style) hides no run here.
        for (auto p = element.parent(); p && p->kind() == XMLNode::Kind::element; p = p->parent())
            if (p->localNameView() == "r") {
                hiddenRuns.push_back(*p);
                break;
            }
    }

    void apply() {
        for (auto* list : {&hiddenRuns, &switchedOff, &markers})
            for (auto& node : *list)
                if (node.parent()) node.detach();
    }
};

// Replaces each collected wrapper by its children. Moving, not copying, keeps every handle
// valid, so nested wrappers can be unwrapped in walk order.
void unwrapCollected(const std::vector<XMLElement>& wrappers) {
    for (const auto& wrapper : wrappers) {
        const auto parentNode = wrapper.parent();
        if (!parentNode) continue;
        auto parent = parentNode->asElement();
        if (!parent) continue;
        const auto siblings = parent->children();
        const auto at = std::find(siblings.begin(), siblings.end(), static_cast<const XMLNode&>(wrapper));
        std::size_t index = static_cast<std::size_t>(at - siblings.begin());
        const auto children = wrapper.children();
        XMLNode(wrapper).detach();
        for (const auto& child : children) parent->insertChild(child, index++);
    }
}

}  // namespace

void OfficeXMLScrubber::removeIdentityAttributes(XMLElement& from, bool removeIdentity, bool removeTimestamps,
                                                 bool isRoster) {
    scrubbing::removeAttributes(from, [&](std::string_view name) {
        const bool identity = removeIdentity && (universalIdentityNames().count(name) ||
                                                 (isRoster && rosterScopedIdentityNames().count(name)));
        const bool date = removeTimestamps && timestampAttributeNames().count(name);
        return identity || date;
    });
}

void OfficeXMLScrubber::blankIdentityElementText(XMLElement& element, bool isRoster) {
    const std::string_view name = element.localNameView();
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
    scrubbing::walkElements(root, [&](XMLElement& element) {
        if (element.localNameView() == "lastModifiedBy") found.push_back(element);
    });
    for (auto& element : found) element.setStringValue("");
}

void OfficeXMLScrubber::stripRSIDAttributes(const XMLElement& root) {
    stripAttributes(root, [](std::string_view name) { return startsWith(name, "rsid"); });
}

void OfficeXMLScrubber::stripTimestampAttributes(const XMLElement& root) {
    stripAttributes(root, [](std::string_view name) { return timestampAttributeNames().count(name) != 0; });
}

void OfficeXMLScrubber::stripAuthorshipAttributes(const XMLElement& root) {
    stripAttributes(root, [](std::string_view name) { return authorshipAttributeNames().count(name) != 0; });
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
    HiddenText hidden;
    scrubbing::walkElements(root, [&](XMLElement& element) { hidden.collect(element); });
    hidden.apply();
}

void OfficeXMLScrubber::removeStyleVanishRuns(const XMLElement& root, const std::set<std::string>& vanishStyleIDs) {
    std::vector<XMLNode> doomed;
    scrubbing::walkElements(root, [&](XMLElement& element) {
        if (carriesHidingStyle(element, vanishStyleIDs)) doomed.push_back(element);
    });
    for (auto& node : doomed)
        if (node.parent()) node.detach();
}

bool OfficeXMLScrubber::containsStyleVanishResidue(const XMLElement& root, const std::set<std::string>& vanishStyleIDs) {
    bool found = false;
    scrubbing::walkElements(root, [&](XMLElement& element) {
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
        const std::string_view name = element->localNameView();
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
    // Most parts hold no such range: a walk over elements costs far less than listing every node.
    const std::string start = std::string(base) + "Start";
    const std::string end = std::string(base) + "End";
    bool marked = false;
    scrubbing::walkElements(root, [&](XMLElement& element) {
        if (!marked && (element.localNameView() == start || element.localNameView() == end)) marked = true;
    });
    if (!marked) return;
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
    scrubbing::walkElements(root, [&](XMLElement& element) {
        if (localNames.count(element.localNameView())) doomed.push_back(element);
    });
    for (auto& element : doomed) element.detach();
}

void OfficeXMLScrubber::unwrapElements(const XMLElement& root, const NameSet& localNames) {
    // A matching root is the first match of any walk, and it ends the operation.
    if (localNames.count(root.localNameView())) return;
    // Unwrapping one element at a time from the root would cost the size of the part per
    // wrapper. Moving (not copying) the children keeps every collected handle valid, so all
    // matches, nested ones included, can be unwrapped in walk order with the same result.
    std::vector<XMLElement> wrappers;
    scrubbing::walkElements(root, [&](XMLElement& element) {
        if (localNames.count(element.localNameView())) wrappers.push_back(element);
    });
    unwrapCollected(wrappers);
}

std::vector<XMLNode> OfficeXMLScrubber::documentOrderNodes(const XMLElement& root) {
    // Pre-order over parent and sibling links: no recursion and no child lists.
    std::vector<XMLNode> nodes;
    std::optional<XMLNode> current = root.firstChild();
    while (current) {
        nodes.push_back(*current);
        if (auto child = current->firstChild()) {
            current = child;
            continue;
        }
        while (current && !(current->nextSibling())) {
            current = current->parent();
            if (current && *current == root) current.reset();
        }
        if (current) current = current->nextSibling();
    }
    return nodes;
}

std::vector<XMLNode> OfficeXMLScrubber::ancestors(const XMLNode& of) {
    std::vector<XMLNode> chain;
    for (auto p = of.parent(); p; p = p->parent()) chain.push_back(*p);
    return chain;
}

}  // namespace tavrin

namespace tavrin::scrubbing {

// The steps of the word-processing path with walks merged where the result cannot differ:
// attribute edits commute with removals and moves, and removals that follow each other with
// nothing between them remove the same nodes in one walk as in several. Hidden text is judged
// only after old formatting snapshots are gone, so that a run whose former formatting hid it
// stays.
void scrubWordTree(const XMLElement& root, const WordScrubSteps& steps, const std::set<std::string>& vanishStyleIDs) {
    using S = OfficeXMLScrubber;
    const bool stripAuthorship = steps.identity && !steps.history;
    std::vector<XMLElement> rsidTables;
    std::vector<XMLElement> lastModifiedBy;
    bool moves = false;
    walkElements(root, [&](XMLElement& element) {
        removeAttributes(element, [&](std::string_view name) {
            return (steps.history && name.substr(0, 4) == "rsid") ||
                   (stripAuthorship && S::authorshipAttributeNames().count(name)) ||
                   (steps.timestamps && S::timestampAttributeNames().count(name));
        });
        const std::string_view name = element.localNameView();
        if (steps.history && (name == "rsids" || name == "rsid")) rsidTables.push_back(element);
        else if (steps.identity && name == "lastModifiedBy") lastModifiedBy.push_back(element);
        else if (steps.history && S::rangeMarkerNames().count(name)) moves = true;
    });
    for (auto& table : rsidTables) table.detach();
    for (auto& element : lastModifiedBy) element.setStringValue("");

    if (steps.history) {
        if (moves)
            for (const auto& base : S::contentBearingRangeBases()) S::removeContentBetweenRange(root, base);
        std::vector<XMLElement> dropped;
        std::vector<XMLElement> wrappers;
        const bool rootIsWrapper = S::unwrappedMarkers().count(root.localNameView()) != 0;
        walkElements(root, [&](XMLElement& element) {
            const std::string_view name = element.localNameView();
            if (S::droppedContentMarkers().count(name)) dropped.push_back(element);
            else if (!rootIsWrapper && S::unwrappedMarkers().count(name)) wrappers.push_back(element);
        });
        for (auto& element : dropped) element.detach();
        unwrapCollected(wrappers);
    }
    if (steps.history || steps.comments) {
        std::vector<XMLElement> doomed;
        walkElements(root, [&](XMLElement& element) {
            const std::string_view name = element.localNameView();
            if ((steps.history && (S::revisionPropertyMarkers().count(name) || S::rangeMarkerNames().count(name))) ||
                (steps.comments && S::commentReferenceElementNames().count(name)))
                doomed.push_back(element);
        });
        for (auto& element : doomed) element.detach();
    }
    if (steps.comments) {
        HiddenText hidden;
        std::vector<XMLNode> styled;
        walkElements(root, [&](XMLElement& element) {
            hidden.collect(element);
            if (!vanishStyleIDs.empty() && carriesHidingStyle(element, vanishStyleIDs)) styled.push_back(element);
        });
        hidden.apply();
        for (auto& node : styled)
            if (node.parent()) node.detach();
    }
}

}  // namespace tavrin::scrubbing
