#pragma once
// The gate every Office part passes before a document model exists: decode, refuse
// pathological nesting, make the declaration honest, parse. And the one element walk that
// all Office code shares.

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "office/xml_document.h"

namespace tavrin {

struct OfficeXMLDocument {
    static constexpr std::size_t maximumNestingDepth = 5000;

    // A one-pass scan, with no document model: false as soon as the open depth reaches 5001.
    // Text that ends inside a tag or quote gives true, for the parser to refuse.
    static bool nestingDepthWithinLimit(std::string_view text);
    // Replaces every encoding pseudo-attribute of a leading XML declaration with
    // encoding="UTF-8"; the rest of the text is untouched.
    static std::string rewriteEncodingDeclarationToUTF8(std::string_view text);
    // The same rewrite without copying the text: the rewritten declaration, and where the
    // untouched rest of the text begins. ("", 0) when nothing needs rewriting.
    static std::pair<std::string, std::size_t> utf8Declaration(std::string_view text);
    // Decode, depth gate, declaration rewrite, parse. Nothing when any step fails.
    static std::optional<XMLDocument> parse(std::span<const std::uint8_t> bytes);
    // The steps after decoding, on text that the parser reads in place.
    static std::optional<XMLDocument> parseText(std::string_view text, const XMLDocument::ParseOptions& options = {});
    // The same gates and parse without a tree (XMLDocument::scanStartTags): false when a step
    // fails, and whatever was visited must then be discarded.
    static bool scanText(std::string_view text, const std::function<void(const XMLStartTag&)>& visit);
    // The document as UTF-8 bytes for the package.
    static std::vector<std::uint8_t> serialize(XMLDocument& document);
};

// Calls `visit` on `root` and every element below it, in document order, with an explicit
// stack. An element's children are read after `visit` returns, so edits to its own children
// are honoured; structures elsewhere must be collected and removed after the walk.
void forEachElement(const XMLElement& root, const std::function<void(XMLElement&)>& visit);

}  // namespace tavrin
