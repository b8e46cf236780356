#pragma once
// Compares XML through the document model rather than as text: the canonical form lists
// element and attribute names (qualified, with namespace URI), attribute values and the text
// that is not only white space, so that serialisation details do not matter.

#include <string>
#include <string_view>

namespace tavrin::testing {

// The canonical form of the XML, or "<unparseable>" when it does not parse.
std::string canonicalXML(std::string_view xml);

}  // namespace tavrin::testing
