// The gate every Office part passes: decode, nesting depth, declaration rewrite and parse,
// then the shared walk, an XPath search by local name and serialisation.
#include <cstddef>
#include <cstdint>
#include <span>

#include "office/office_text_encoding.h"
#include "office/office_xml_document.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tavrin;
    const std::span<const std::uint8_t> bytes(data, size);
    if (const auto text = OfficeTextEncoding::decodeXML(bytes)) {
        (void)OfficeXMLDocument::nestingDepthWithinLimit(*text);
        (void)OfficeXMLDocument::rewriteEncodingDeclarationToUTF8(*text);
    }
    auto document = OfficeXMLDocument::parse(bytes);
    if (!document) return 0;
    if (const auto root = document->rootElement()) {
        std::size_t attributes = 0;
        forEachElement(*root, [&](XMLElement& element) {
            attributes += element.attributes().size();
            (void)element.name();
            (void)element.uri();
        });
        try {
            (void)root->nodesForXPath("//*[local-name()='t']");
        } catch (const XMLDocumentError&) {
        }
    }
    (void)OfficeXMLDocument::serialize(*document);
    return 0;
}
