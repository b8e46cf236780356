#pragma once
// What the files of the XML document share and nobody else sees: the libxml2 conversions, the
// one library initialisation, and the state a parse carries through its handlers.

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <exception>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "office/xml_document.h"

namespace tavrin::xml_internal {

using Case = XMLDocumentError::Case;

inline const xmlChar* xml(const std::string& text) { return reinterpret_cast<const xmlChar*>(text.c_str()); }
inline std::string text(const xmlChar* value) { return value ? reinterpret_cast<const char*>(value) : ""; }
inline std::string_view view(const xmlChar* text) {
    return text ? std::string_view(reinterpret_cast<const char*>(text)) : std::string_view();
}

// libxml2 wants one initialisation before threads use it.
inline void initializeLibrary() {
    static std::once_flag once;
    std::call_once(once, [] { xmlInitParser(); });
}

// Errors are collected in the context, never printed.
inline void ignoreError(void*, xmlErrorPtr) {}

struct ParseState {
    bool sawDocumentType = false;
    bool unboundPrefix = false;
    const std::function<bool(std::string_view)>* dropAttribute = nullptr;
    std::vector<const xmlChar*> keptAttributes;  // scratch for a filtered attribute list
    // For a scan without a tree.
    const std::function<void(const XMLStartTag&)>* visit = nullptr;
    std::size_t depth = 0;
    std::exception_ptr failure;
};

inline ParseState& stateOf(void* context) {
    return *static_cast<ParseState*>(static_cast<xmlParserCtxtPtr>(context)->_private);
}

// The start-tag handler of a scan without a tree (xml_start_tag.cpp).
void scanStartElement(void* context, const xmlChar* localName, const xmlChar* prefix, const xmlChar* uri, int,
                      const xmlChar**, int attributeCount, int, const xmlChar** attributes);

}  // namespace tavrin::xml_internal
