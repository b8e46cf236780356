// The gate every Office part passes: decode, nesting depth, declaration rewrite and parse,
// then the shared walk, an XPath search by local name and serialisation. The tree-less scan and
// the parse in pieces are held to the whole parse: the same refusals, the same tree, the same
// bytes out.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>

#include "office/office_text_encoding.h"
#include "office/office_xml_document.h"

namespace {

using namespace tavrin;

void compareWithWholeParse(std::span<const std::uint8_t> bytes, const std::string& text) {
    std::size_t tags = 0;
    const bool scanned = OfficeXMLDocument::scanText(text, [&](const XMLStartTag& tag) {
        ++tags;
        (void)tag.depth();
        for (std::size_t i = 0; i < tag.attributeCount(); ++i) {
            (void)tag.attributeName(i);
            (void)tag.attributeLocalName(i);
            (void)tag.attributeURI(i);
            (void)tag.attributeValue(i);
        }
        (void)tag.attributeValue("id");
    });
    auto whole = OfficeXMLDocument::parseText(text);
    if (scanned != whole.has_value()) std::abort();
    if (!whole) return;
    // Written straight into a string, a UTF-8 document gives the bytes of the buffered writer.
    const auto data = OfficeXMLDocument::serialize(*whole);
    if (whole->xmlText() != std::string(data.begin(), data.end())) std::abort();
    // Read in two pieces anywhere, the text gives the same tree.
    const std::string rewritten = OfficeXMLDocument::rewriteEncodingDeclarationToUTF8(text);
    const std::size_t cut = bytes.empty() ? 0 : bytes[0] % (rewritten.size() + 1);
    const std::string_view pieces[] = {std::string_view(rewritten).substr(0, cut), std::string_view(rewritten).substr(cut)};
    try {
        XMLDocument split(pieces, {});
        split.setCharacterEncoding("UTF-8");
        if (split.xmlText() != whole->xmlText()) std::abort();
    } catch (const XMLDocumentError&) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span<const std::uint8_t> bytes(data, size);
    if (const auto text = OfficeTextEncoding::decodeXML(bytes)) {
        (void)OfficeXMLDocument::nestingDepthWithinLimit(*text);
        (void)OfficeXMLDocument::rewriteEncodingDeclarationToUTF8(*text);
        // Bytes held in a string decode in place to the same text.
        if (OfficeTextEncoding::decodeXML(std::string(bytes.begin(), bytes.end())) != text) std::abort();
        compareWithWholeParse(bytes, *text);
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
