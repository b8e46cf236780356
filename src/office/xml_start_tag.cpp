#include "office/xml_document.h"

#include <libxml/parser.h>

#include <algorithm>

#include "office/xml_document_internal.h"

namespace tavrin {

using namespace xml_internal;

// MARK: XMLStartTag

std::string XMLStartTag::attributeLocalName(std::size_t index) const {
    const xmlChar** attribute = attributes_ + 5 * index;
    // An unbound prefix stays in the name, as the tree keeps it.
    if (attribute[1] && !attribute[2]) return attributeName(index);
    return std::string(view(attribute[0]));
}

std::string XMLStartTag::attributeName(std::size_t index) const {
    const xmlChar** attribute = attributes_ + 5 * index;
    if (attribute[1]) return std::string(view(attribute[1])) + ":" + std::string(view(attribute[0]));
    return std::string(view(attribute[0]));
}

std::string_view XMLStartTag::attributeURI(std::size_t index) const {
    return view(attributes_[5 * index + 2]);
}

std::string XMLStartTag::attributeValue(std::size_t index) const {
    const xmlChar** attribute = attributes_ + 5 * index;
    const std::string_view raw(reinterpret_cast<const char*>(attribute[3]), static_cast<std::size_t>(attribute[4] - attribute[3]));
    // The parser has replaced every reference but those that stand for "&", which it hands on
    // as "&#38;" for the tree builder to resolve; nothing else in a value starts with "&".
    static constexpr std::string_view ampersand = "&#38;";
    std::string value;
    value.reserve(raw.size());
    for (std::size_t i = 0; i < raw.size();) {
        if (raw.compare(i, ampersand.size(), ampersand) == 0) {
            value.push_back('&');
            i += ampersand.size();
        } else {
            value.push_back(raw[i++]);
        }
    }
    return value;
}

std::optional<std::string> XMLStartTag::attributeValue(std::string_view localName) const {
    for (std::size_t i = 0; i < attributeCount_; ++i) {
        const xmlChar** attribute = attributes_ + 5 * i;
        const bool isUnbound = attribute[1] && !attribute[2];
        const bool matches = isUnbound ? attributeName(i) == localName : view(attribute[0]) == localName;
        if (matches) return attributeValue(i);
    }
    return std::nullopt;
}

struct XMLStartTagAccess {
    static XMLStartTag make(const xmlChar* localName, const xmlChar* prefix, const xmlChar* uri, std::size_t depth,
                            int attributeCount, const xmlChar** attributes) {
        XMLStartTag tag;
        tag.localName_ = view(localName);
        if (prefix && !uri) tag.unboundName_ = std::string(view(prefix)) + ":" + std::string(view(localName));
        tag.depth_ = depth;
        tag.attributeCount_ = static_cast<std::size_t>(std::max(attributeCount, 0));
        tag.attributes_ = attributes;
        return tag;
    }
};

namespace xml_internal {

void scanStartElement(void* context, const xmlChar* localName, const xmlChar* prefix, const xmlChar* uri, int,
                      const xmlChar**, int attributeCount, int, const xmlChar** attributes) {
    ParseState& state = stateOf(context);
    if (state.failure) return;
    const std::size_t depth = state.depth++;
    try {
        (*state.visit)(XMLStartTagAccess::make(localName, prefix, uri, depth, attributeCount, attributes));
    } catch (...) {
        // The visitor's error reaches the caller once the parser has been released.
        state.failure = std::current_exception();
        xmlStopParser(static_cast<xmlParserCtxtPtr>(context));
    }
}

}  // namespace xml_internal

}  // namespace tavrin
