#include "office/office_part_text.h"

#include "office/office_text_encoding.h"
#include "office/office_xml_document.h"

namespace tavrin {

std::optional<XMLDocument> parsePartText(std::string_view text) {
    // Read in place: no copy of the part is made for the parser.
    auto document = OfficeXMLDocument::parseText(text);
    if (!document || !document->rootElement()) return std::nullopt;
    document->setCharacterEncoding("UTF-8");
    return document;
}

std::optional<std::string> serializedPartText(XMLDocument& document) {
    document.setCharacterEncoding("UTF-8");
    std::string text = document.xmlText();
    if (!OfficeTextEncoding::isValidUTF8(text)) return std::nullopt;
    return text;
}

}  // namespace tavrin
