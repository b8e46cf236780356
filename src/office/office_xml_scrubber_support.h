#pragma once
// The frame shared by the scrubbers' operations on part text: the gates of OfficeXMLDocument
// on text already decoded, and serialising back to UTF-8 text.

#include <optional>
#include <string>
#include <string_view>

#include "office/xml_document.h"

namespace tavrin::scrubbing {

// Depth gate, declaration rewrite, parse, encoding set to UTF-8. Nothing when a step fails,
// the document has no root element, or a name uses a prefix that is not declared.
std::optional<XMLDocument> parsedPartText(std::string_view xml);

// The document serialised as UTF-8, or nothing when the output is not valid UTF-8.
std::optional<std::string> serializedPartText(XMLDocument& document);

// Whether the UTF-8 text holds a character that is not white space in Unicode's sense.
bool containsNonWhitespace(std::string_view text);

}  // namespace tavrin::scrubbing
