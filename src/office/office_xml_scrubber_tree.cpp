// The operations on a parsed tree. Each walk is iterative; what a walk finds to remove is
// collected first and removed after it, so that the walk never loses its place.
#include <algorithm>
#include <array>
#include <map>
#include <unordered_map>
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

// Whether `node` still stands in `root`'s subtree (the root itself included).
bool within(const XMLNode& node, const XMLElement& root) {
    for (std::optional<XMLNode> p = node; p; p = p->parent())
        if (*p == root) return true;
    return false;
}

// The node after `node` in document order, every kind of node counted, within `root`.
std::optional<XMLNode> nextInDocument(const XMLNode& node, const XMLElement& root) {
    if (auto child = node.firstChild()) return child;
    for (std::optional<XMLNode> n = node; n && !(*n == root); n = n->parent())
        if (auto sibling = n->nextSibling()) return sibling;
    return std::nullopt;
}

// removeContentBetweenRange with the markers of `base` already found: the elements named
// base + "Start" or base + "End", in document order. Markers no longer in the root's subtree,
// and the root itself, are passed over. Only the nodes between paired markers are visited,
// where listing every node of a large part would cost its whole size.
void removeContentBetweenRangeMarkers(const XMLElement& root, std::string_view base,
                                      const std::vector<XMLElement>& markers);

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
            // CDATA is text too: a name inside it is as much this element's own words.
            if ((child.kind() == XMLNode::Kind::text || child.kind() == XMLNode::Kind::cdata) &&
                scrubbing::containsNonWhitespace(child.stringValue()))
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
    stripAttributes(root, [](std::string_view name) { return name.starts_with("rsid"); });
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
    const std::string start = std::string(base) + "Start";
    const std::string end = std::string(base) + "End";
    std::vector<XMLElement> markers;
    scrubbing::walkElements(root, [&](XMLElement& element) {
        if (element.localNameView() == start || element.localNameView() == end) markers.push_back(element);
    });
    if (!markers.empty()) removeContentBetweenRangeMarkers(root, base, markers);
}

namespace {

void removeContentBetweenRangeMarkers(const XMLElement& root, std::string_view base,
                                      const std::vector<XMLElement>& markers) {
    using S = OfficeXMLScrubber;
    // The markers alone stand for the list of every node: the pairing skips all other nodes,
    // and the nodes between a pair are found by stepping from one marker to the other.
    std::vector<XMLNode> nodes;
    for (const auto& marker : markers)
        if (!(marker == root) && within(marker, root)) nodes.push_back(marker);
    const auto [spans, unmatched] = S::rangeSpans(nodes, base);
    if (spans.empty() && unmatched.empty()) return;
    NodeSet chosen;
    std::vector<XMLNode> doomed;
    const auto add = [&](const XMLNode& node) {
        if (chosen.insert(node).second) doomed.push_back(node);
    };
    for (const auto& [s, e] : spans) {
        if (s >= e) continue;
        // The containers of the end marker survive, with what follows the marker.
        const auto kept = S::ancestors(nodes[e]);
        const NodeSet keep(kept.begin(), kept.end());
        add(nodes[s]);
        add(nodes[e]);
        for (auto node = nextInDocument(nodes[s], root); node && !(*node == nodes[e]); node = nextInDocument(*node, root))
            if (!keep.count(*node)) add(*node);
    }
    for (std::size_t index : unmatched) add(nodes[index]);
    std::vector<std::pair<std::size_t, XMLNode>> byDepth;
    byDepth.reserve(doomed.size());
    for (const auto& node : doomed) byDepth.emplace_back(depth(node), node);
    std::stable_sort(byDepth.begin(), byDepth.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
    for (auto& [level, node] : byDepth)
        if (node.parent()) node.detach();
}

}  // namespace

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

namespace {

// What the word-processing path does with an element, by its local name.
enum Role : unsigned {
    rsidTable = 1u << 0,
    lastModifiedByText = 1u << 1,
    moveFromRangeMarker = 1u << 2,
    customMoveFromRangeMarker = 1u << 3,
    droppedContent = 1u << 4,
    wrapper = 1u << 5,
    revisionMarker = 1u << 6,  // revision property snapshots and range markers
    commentAnchor = 1u << 7,
    vanishMarker = 1u << 8,
    runOrParagraph = 1u << 9,
};

unsigned roleOf(std::string_view name) {
    using S = OfficeXMLScrubber;
    static const std::unordered_map<std::string_view, unsigned> roles = [] {
        std::unordered_map<std::string_view, unsigned> table;
        const auto add = [&](const auto& names, unsigned role) {
            for (const auto& n : names) table[std::string_view(n)] |= role;
        };
        add(std::array<std::string_view, 2>{"rsids", "rsid"}, rsidTable);
        add(std::array<std::string_view, 1>{"lastModifiedBy"}, lastModifiedByText);
        add(std::array<std::string_view, 2>{"moveFromRangeStart", "moveFromRangeEnd"}, moveFromRangeMarker);
        add(std::array<std::string_view, 2>{"customXmlMoveFromRangeStart", "customXmlMoveFromRangeEnd"},
            customMoveFromRangeMarker);
        add(S::droppedContentMarkers(), droppedContent);
        add(S::unwrappedMarkers(), wrapper);
        add(S::revisionPropertyMarkers(), revisionMarker);
        add(S::rangeMarkerNames(), revisionMarker);
        add(S::commentReferenceElementNames(), commentAnchor);
        add(std::array<std::string_view, 2>{"vanish", "specVanish"}, vanishMarker);
        add(std::array<std::string_view, 2>{"r", "p"}, runOrParagraph);
        return table;
    }();
    const auto found = roles.find(name);
    return found == roles.end() ? 0u : found->second;
}

}  // namespace

bool wordAttributeRemoved(const WordScrubSteps& steps, std::string_view name) {
    using S = OfficeXMLScrubber;
    return (steps.history && name.substr(0, 4) == "rsid") ||
           (steps.identity && !steps.history && S::authorshipAttributeNames().count(name)) ||
           (steps.timestamps && S::timestampAttributeNames().count(name));
}

// The steps of the word-processing path with one walk that collects, and the edits applied
// after it in the required order. Collecting everything up front gives the same tree as a walk
// per step: later steps only remove or move what earlier ones left, an element collected inside
// a subtree that an earlier step removed is then edited where no one sees it, and tests that
// depend on the tree (the run a marker hides, the style a run carries, whether a marker is
// still there) are made when their step comes. Hidden text is judged only after old
// formatting snapshots are gone, so that a run whose former formatting hid it stays.
void scrubWordTree(const XMLElement& root, const WordScrubSteps& steps, const std::set<std::string>& vanishStyleIDs,
                   bool attributesDropped) {
    const bool stripAttributes = !attributesDropped && (steps.history || steps.identity || steps.timestamps);
    const bool styles = steps.comments && !vanishStyleIDs.empty();
    const bool rootIsWrapper = (roleOf(root.localNameView()) & wrapper) != 0;
    unsigned wanted = 0;
    if (steps.history) wanted |= rsidTable | moveFromRangeMarker | customMoveFromRangeMarker | droppedContent | wrapper | revisionMarker;
    if (steps.identity) wanted |= lastModifiedByText;
    if (steps.comments) wanted |= commentAnchor | vanishMarker;
    if (styles) wanted |= runOrParagraph;

    std::vector<XMLElement> rsidTables, lastModifiedBy, dropped, wrappers, doomed, markers, styleCandidates;
    std::vector<XMLElement> moveFromRanges, customMoveFromRanges;
    walkElements(root, [&](XMLElement& element) {
        if (stripAttributes)
            removeAttributes(element, [&](std::string_view name) { return wordAttributeRemoved(steps, name); });
        const unsigned role = roleOf(element.localNameView()) & wanted;
        if (!role) return;
        if (role & rsidTable) rsidTables.push_back(element);
        else if (role & lastModifiedByText) lastModifiedBy.push_back(element);
        if (role & moveFromRangeMarker) moveFromRanges.push_back(element);
        if (role & customMoveFromRangeMarker) customMoveFromRanges.push_back(element);
        if (role & droppedContent) dropped.push_back(element);
        else if ((role & wrapper) && !rootIsWrapper) wrappers.push_back(element);
        if (role & (revisionMarker | commentAnchor)) doomed.push_back(element);
        if (role & vanishMarker) markers.push_back(element);
        if (role & runOrParagraph) styleCandidates.push_back(element);
    });
    for (auto& table : rsidTables) table.detach();
    for (auto& element : lastModifiedBy) element.setStringValue("");

    if (steps.history) {
        // In the order of the base names, as acceptTrackedChanges takes them.
        if (!customMoveFromRanges.empty())
            removeContentBetweenRangeMarkers(root, "customXmlMoveFromRange", customMoveFromRanges);
        if (!moveFromRanges.empty()) removeContentBetweenRangeMarkers(root, "moveFromRange", moveFromRanges);
        for (auto& element : dropped) element.detach();
        unwrapCollected(wrappers);
    }
    for (auto& element : doomed) element.detach();
    if (steps.comments) {
        HiddenText hidden;
        std::vector<XMLNode> styled;
        for (const auto& marker : markers)
            if (within(marker, root)) hidden.collect(marker);
        for (const auto& element : styleCandidates)
            if (within(element, root) && carriesHidingStyle(element, vanishStyleIDs)) styled.push_back(element);
        hidden.apply();
        for (auto& node : styled)
            if (node.parent()) node.detach();
    }
}

}  // namespace tavrin::scrubbing
