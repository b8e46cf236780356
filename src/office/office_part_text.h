#pragma once
// The frame every text-in, text-out part rewrite shares: gate and parse the text of one part,
// and give the edited document back as UTF-8 text.

#include <optional>
#include <string>
#include <string_view>

#include "office/xml_document.h"

namespace tavrin {

// The nesting gate, the encoding declaration made honest, then the parse. Nothing when any step
// fails or the document has no root element.
std::optional<XMLDocument> parsePartText(std::string_view text);

// The document serialised as UTF-8; nothing when the bytes are not valid UTF-8.
std::optional<std::string> serializedPartText(XMLDocument& document);

}  // namespace tavrin
