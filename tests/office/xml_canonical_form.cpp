#include "xml_canonical_form.h"

#include <cstdint>
#include <span>
#include <vector>

#include "office/xml_document.h"

namespace tavrin::testing {

namespace {

bool blank(std::string_view text) { return text.find_first_not_of(" \t\r\n") == std::string_view::npos; }

}  // namespace

std::string canonicalXML(std::string_view xml) {
    try {
        XMLDocument document(std::span(reinterpret_cast<const std::uint8_t*>(xml.data()), xml.size()));
        const auto root = document.rootElement();
        if (!root) return "<no root>";
        std::string out;
        // (node, closing) pairs: a closing entry writes the end of an element.
        std::vector<std::pair<XMLNode, bool>> stack{{*root, false}};
        while (!stack.empty()) {
            auto [node, closing] = stack.back();
            stack.pop_back();
            if (closing) {
                out += "}";
                continue;
            }
            if (const auto element = node.asElement()) {
                out += element->name() + "<" + element->uri() + ">";
                for (const auto& attribute : element->attributes())
                    out += " @" + attribute.name() + "<" + attribute.uri() + ">=" + attribute.stringValue();
                out += "{";
                stack.emplace_back(node, true);
                const auto children = node.children();
                for (auto child = children.rbegin(); child != children.rend(); ++child) stack.emplace_back(*child, false);
            } else if (node.kind() == XMLNode::Kind::text || node.kind() == XMLNode::Kind::cdata) {
                const std::string text = node.stringValue();
                if (!blank(text)) out += "\"" + text + "\"";
            }
        }
        return out;
    } catch (const XMLDocumentError&) {
        return "<unparseable>";
    }
}

}  // namespace tavrin::testing
