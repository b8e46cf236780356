#pragma once
// What makes a ZIP an Office package that can be cleaned, and what makes a written package
// whole. Both answer with a reason in words, "<part>: <what was found there>", or nothing.
//
// A source is refused before anything is written when it is no Office Open XML package, when
// its parts would inflate past the package budget or one part past the part-size limit, or when
// one of its XML parts is not acceptable XML. A written package is whole when every part has a
// content type, every XML part parses, and every relationship target and every relationship id
// used by a part names a part that is there.

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>

#include "zip/archive.h"

namespace tavrin {

struct OfficePackageCheck {
    // All parts of one package together inflate to at most this many bytes.
    static constexpr std::uint64_t maximumInflatedPackageSize = 1'000'000'000;

    // Why this source cannot be cleaned, or nothing. Reads the central directory for the size
    // budgets, then parses every XML and relationships part once.
    static std::optional<std::string> refusalOfSource(const Archive& archive);
    // Why this ZIP is no Office Open XML package, or nothing. A reader that only looks may
    // accept a package without its package relationships.
    static std::optional<std::string> notAnOfficePackage(const Archive& archive, bool requireRelationships = true);
    // Why a written package is not whole, or nothing.
    static std::optional<std::string> inconsistency(const Archive& archive);
    // What is wrong with the bytes of one XML part, or nothing: not text, nested too deep, not
    // well-formed.
    static std::optional<std::string> xmlProblem(std::span<const std::uint8_t> bytes);

    // Parts that relationships or content-type overrides name but the package does not hold,
    // in lower case.
    static std::set<std::string> missingTargets(const Archive& archive);
    // Stored paths of the parts that no chain of relationships from the package relationships
    // reaches; content types and relationships parts are never counted.
    static std::set<std::string> unreachableParts(const Archive& archive);
    // Per owner part (lower case), the ids of its relationships whose internal target is one of
    // `gonePaths` (lower case).
    static std::map<std::string, std::set<std::string>> relationshipIdsTo(const Archive& archive,
                                                                          const std::set<std::string>& gonePaths);
    // The owner of a relationships part: "word/_rels/document.xml.rels" gives "word/document.xml",
    // "_rels/.rels" gives "". Nothing for a path outside a "_rels" folder.
    static std::optional<std::string> ownerOfRelationshipsPart(std::string_view relsPath);
    // Whether an attribute's namespace is the one of relationship ids (transitional or strict).
    static bool isRelationshipNamespace(std::string_view uri);
};

// The part's XML without what uses one of `ids` as a relationship id: the element that carries
// it (a hyperlink keeps its text and loses only the attribute), and a slide's entries in the
// section lists when its slide id goes. Counts what went. Nothing when the text does not parse.
struct RelationshipReferenceRewrite {
    std::string xml;
    int removedCount = 0;
};
std::optional<RelationshipReferenceRewrite> withoutRelationshipReferences(std::string_view xml,
                                                                          const std::set<std::string>& ids);

}  // namespace tavrin
