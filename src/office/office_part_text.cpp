#include "office/office_part_text.h"

#include "office/office_text_encoding.h"
#include "office/office_xml_document.h"

namespace tavrin {

std::optional<XMLDocument> parsePartText(std::string_view text) {
    if (!OfficeXMLDocument::nestingDepthWithinLimit(text)) return std::nullopt;
    const std::string utf8 = OfficeXMLDocument::rewriteEncodingDeclarationToUTF8(text);
    try {
        XMLDocument document(std::span(reinterpret_cast<const std::uint8_t*>(utf8.data()), utf8.size()));
        if (!document.rootElement()) return std::nullopt;
        document.setCharacterEncoding("UTF-8");
        return document;
    } catch (const XMLDocumentError&) {
        return std::nullopt;
    }
}

std::optional<std::string> serializedPartText(XMLDocument& document) {
    const auto bytes = OfficeXMLDocument::serialize(document);
    return OfficeTextEncoding::decodeUTF8(bytes);
}

}  // namespace tavrin
