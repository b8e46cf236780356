#pragma once
// The frame shared by the scrubbers' operations on part text: the gates of OfficeXMLDocument
// on text already decoded, and serialising back to UTF-8 text.

#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "office/xml_document.h"

namespace tavrin::scrubbing {

// Depth gate, declaration rewrite, parse, encoding set to UTF-8. Nothing when a step fails,
// the document has no root element, or a name uses a prefix that is not declared. The text is
// read in place. `options` may leave out attributes that the caller would remove anyway.
std::optional<XMLDocument> parsedPartText(std::string_view xml, const XMLDocument::ParseOptions& options = {});

// The document serialised as UTF-8, or nothing when the output is not valid UTF-8.
// `expectedSize`, the size of the text parsed, is room reserved for the output.
std::optional<std::string> serializedPartText(XMLDocument& document, std::size_t expectedSize = 0);

// The shared pre-order element walk, with the root, over parent and sibling links instead of
// child lists: iterative, and free of allocation for the large parts the scrubbers rewrite.
// An element's children are read after `visit` returns, so edits to its own children are
// honoured; `visit` must not detach the element it is given.
template <typename Visit>
void walkElements(const XMLElement& root, Visit&& visit) {
    for (std::optional<XMLElement> current = root; current; current = current->nextInWalk(root)) visit(*current);
}

// Removes, during a walk, each attribute of `element` whose local name passes `doomed`.
template <typename Test>
void removeAttributes(XMLElement& element, Test&& doomed) {
    for (auto attribute = element.firstAttribute(); attribute;) {
        auto next = attribute->nextSibling();
        if (doomed(attribute->localNameView())) attribute->detach();
        attribute = next;
    }
}

// Which categories a word-processing part is scrubbed for.
struct WordScrubSteps {
    bool history = false;
    bool identity = false;
    bool comments = false;
    bool timestamps = false;
};

// Whether the word-processing path removes every attribute of this local name, wherever it
// stands: revision ids with history, dates with timestamps, authorship with identity alone.
bool wordAttributeRemoved(const WordScrubSteps& steps, std::string_view localName);

// The whole word-processing path on a parsed tree, with the effect of the public steps in
// their required order. `attributesDropped` says that the parse has already left out every
// attribute that wordAttributeRemoved names.
void scrubWordTree(const XMLElement& root, const WordScrubSteps& steps, const std::set<std::string>& vanishStyleIDs,
                   bool attributesDropped = false);

// Whether the UTF-8 text holds a character that is not white space in Unicode's sense.
bool containsNonWhitespace(std::string_view text);

}  // namespace tavrin::scrubbing
