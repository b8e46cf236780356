#include "office/office_xml_scrubber_support.h"

#include "office/office_text_encoding.h"
#include "office/office_xml_document.h"

namespace tavrin::scrubbing {

std::optional<XMLDocument> parsedPartText(std::string_view xml, const XMLDocument::ParseOptions& options) {
    auto document = OfficeXMLDocument::parseText(xml, options);
    if (!document) return std::nullopt;
    document->setCharacterEncoding("UTF-8");
    // The parser keeps an element or attribute whose prefix is not declared under its whole
    // name ("w:del"), so that no local-name test would ever see it. Such a part is refused
    // rather than passed through with its revisions unseen.
    if (!document->rootElement() || document->hasUnboundPrefix()) return std::nullopt;
    return document;
}

std::optional<std::string> serializedPartText(XMLDocument& document, std::size_t expectedSize) {
    document.setCharacterEncoding("UTF-8");
    std::string text = document.xmlText(expectedSize);
    if (!OfficeTextEncoding::isValidUTF8(text)) return std::nullopt;
    return text;
}

namespace {

bool isUnicodeWhitespace(char32_t c) {
    return (c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 || c == 0x1680 ||
           (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F || c == 0x3000;
}

}  // namespace

bool containsNonWhitespace(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size()) {
        const auto lead = static_cast<unsigned char>(text[i]);
        std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        if (i + length > text.size()) return true;
        char32_t c = length == 1 ? lead : length == 2 ? lead & 0x1F : length == 3 ? lead & 0x0F : lead & 0x07;
        for (std::size_t k = 1; k < length; ++k) c = (c << 6) | (static_cast<unsigned char>(text[i + k]) & 0x3F);
        if (!isUnicodeWhitespace(c)) return true;
        i += length;
    }
    return false;
}

}  // namespace tavrin::scrubbing
