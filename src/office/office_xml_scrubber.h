#pragma once
// Takes private data out of one XML part of an OOXML package: identity attributes and
// roster entries, tracked changes, revision identifiers, comment markup, hidden text and
// dates, each as the profile's categories say:
//
//   documentHistory      revision identifiers, tracked changes
//   authorIdentity       person names, user ids, the last-modified-by text
//   commentsAnnotations  comment markup and hidden text
//   timestamps           date attributes
//
// Operations on part text parse under the gates of OfficeXMLDocument, edit the tree and
// serialise it again. They never throw: an empty optional is a refusal (depth over the limit,
// text that does not parse, no root element, output that does not decode), and the caller
// decides what a refused part means. Parts are never edited as text.
//
// Elements and attributes are matched by local name, case-sensitively, whatever their prefix
// or namespace. Walks are iterative; removals are collected during a walk and applied after
// it. The operations keep no state and may run on any thread, each on its own tree.

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "model/cleaning_profile.h"
#include "office/xml_document.h"

namespace tavrin {

struct OfficeXMLScrubber {
    using NameSet = std::set<std::string, std::less<>>;

    // Start and end indices into a node list, and markers that found no partner.
    struct RangeSpans {
        std::vector<std::pair<std::size_t, std::size_t>> spans;
        std::vector<std::size_t> unmatched;
    };

    // MARK: Name sets

    static const NameSet& droppedContentMarkers();       // del, delText, delInstrText, moveFrom
    static const NameSet& unwrappedMarkers();            // ins, moveTo
    static const NameSet& revisionPropertyMarkers();     // rPrChange, pPrChange, … cellMerge
    static const NameSet& rangeMarkerBases();            // customXmlInsRange, … moveToRange
    static const NameSet& contentBearingRangeBases();    // moveFromRange, customXmlMoveFromRange
    static const NameSet& rangeMarkerNames();            // every base + "Start" and + "End"
    static const NameSet& commentReferenceElementNames();
    static const NameSet& authorshipAttributeNames();    // author, userId, initials
    // Shared with the residue verifier, which checks the rewritten parts against them.
    static const NameSet& universalIdentityNames();      // author, userId, initials, email
    static const NameSet& rosterScopedIdentityNames();   // name, displayName, providerId, …
    static const NameSet& rosterAuthorElementNames();    // author, person, people, userinfo, presenceinfo
    static const NameSet& timestampAttributeNames();     // date, dateUtc, dt, dT
    static const NameSet& commentElementNames();         // comment, comments, commentList, … cmLst

    // An element that lists people: its lower-cased local name is in rosterAuthorElementNames
    // or ends with "author", "person" or "userinfo".
    static bool isRosterAuthorElement(const XMLElement& element);

    // MARK: Operations on part text

    // A word-processing part that holds body content (document, headers, footers, notes).
    static std::optional<std::string> scrubWordPart(std::string_view xml, const CleaningProfile& profile,
                                                    const std::set<std::string>& vanishStyleIDs);
    // Any other XML part to be cleaned; `isWMLPart` says it uses the word-processing vocabulary
    // and so may hold hidden text.
    static std::optional<std::string> scrubGenericOfficePart(std::string_view xml, const CleaningProfile& profile,
                                                             bool isWMLPart);
    // The identity and date walk alone, for roster and identity parts.
    static std::optional<std::string> scrubIdentityFields(std::string_view xml, bool removeIdentity,
                                                          bool removeTimestamps);
    // The root element, with its name, declarations and attributes, and nothing under it.
    static std::optional<std::string> emptiedRevisionPart(std::string_view xml);
    // Identifiers of the styles that hide text, through any chain of basedOn. An absent or
    // unusable styles part hides nothing.
    static std::set<std::string> vanishStyleIDs(const std::optional<std::string>& fromStylesXML);

    // MARK: Operations on a parsed tree

    static void removeIdentityAttributes(XMLElement& from, bool removeIdentity, bool removeTimestamps, bool isRoster);
    static void blankIdentityElementText(XMLElement& element, bool isRoster);
    static void blankLastModifiedBy(const XMLElement& root);
    static void stripRSIDAttributes(const XMLElement& root);
    static void stripTimestampAttributes(const XMLElement& root);
    static void stripAuthorshipAttributes(const XMLElement& root);
    // Deleted and moved-away content goes, inserted content stays without its wrapper, old
    // formatting snapshots and range markers go.
    static void acceptTrackedChanges(const XMLElement& root);
    // Runs hidden by a direct vanish marker go; switched-off markers and paragraph-mark
    // markers go without their runs.
    static void removeHiddenTextRuns(const XMLElement& root);
    static void removeStyleVanishRuns(const XMLElement& root, const std::set<std::string>& vanishStyleIDs);
    // Read-only: whether a run or paragraph still carries a hiding style.
    static bool containsStyleVanishResidue(const XMLElement& root, const std::set<std::string>& vanishStyleIDs);
    // Whether an on/off value of the OOXML vocabulary means off: "0", "false", "off", "no"
    // or "n", in any letter case. Everything else, the empty text included, is on.
    static bool isSTOnOffFalse(std::string_view value);
    static RangeSpans rangeSpans(const std::vector<XMLNode>& nodes, std::string_view base);
    static void removeContentBetweenRange(const XMLElement& root, std::string_view base);
    static void removeElements(const XMLElement& root, const NameSet& localNames);
    // Replaces each matching element below the root by its children; a matching root stops it.
    static void unwrapElements(const XMLElement& root, const NameSet& localNames);
    // Every node below the root, of every kind, in document order, the root excluded.
    static std::vector<XMLNode> documentOrderNodes(const XMLElement& root);
    // The parent, its parent and so on, up to the top.
    static std::vector<XMLNode> ancestors(const XMLNode& of);
};

}  // namespace tavrin
