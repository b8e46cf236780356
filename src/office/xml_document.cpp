#include "office/xml_document.h"

#include <libxml/tree.h>
#include <libxml/xmlsave.h>

#include <cstring>

#include "office/xml_document_internal.h"

namespace tavrin {

using namespace xml_internal;

// MARK: XMLDocument

void XMLDocument::release() {
    if (!doc_) return;
    // Free the detached subtrees that were not inserted again; all nodes are still alive here.
    std::sort(detached_.begin(), detached_.end());
    detached_.erase(std::unique(detached_.begin(), detached_.end()), detached_.end());
    std::vector<xmlNode*> roots;
    for (xmlNode* node : detached_)
        if (node->parent == nullptr) roots.push_back(node);
    for (xmlNode* node : roots) xmlFreeNode(node);
    detached_.clear();
    xmlFreeDoc(doc_);
    doc_ = nullptr;
}

XMLDocument::~XMLDocument() { release(); }

XMLDocument::XMLDocument(XMLDocument&& other) noexcept
    : doc_(other.doc_), detached_(std::move(other.detached_)), unboundPrefix_(other.unboundPrefix_) {
    other.doc_ = nullptr;
    other.detached_.clear();
    if (doc_) doc_->_private = this;
}

XMLDocument& XMLDocument::operator=(XMLDocument&& other) noexcept {
    if (this != &other) {
        release();
        doc_ = other.doc_;
        detached_ = std::move(other.detached_);
        unboundPrefix_ = other.unboundPrefix_;
        other.doc_ = nullptr;
        other.detached_.clear();
        if (doc_) doc_->_private = this;
    }
    return *this;
}

XMLDocument& XMLDocument::owner(xmlNode* node) { return *static_cast<XMLDocument*>(node->doc->_private); }

void XMLDocument::keepDetached(xmlNode* node) { detached_.push_back(node); }

std::optional<XMLElement> XMLDocument::rootElement() const {
    xmlNode* root = xmlDocGetRootElement(doc_);
    if (!root) return std::nullopt;
    return XMLElement(root);
}

void XMLDocument::setCharacterEncoding(std::string_view encoding) {
    if (doc_->encoding) xmlFree(const_cast<xmlChar*>(doc_->encoding));
    doc_->encoding = xmlStrndup(reinterpret_cast<const xmlChar*>(encoding.data()), static_cast<int>(encoding.size()));
}

std::vector<std::uint8_t> XMLDocument::xmlData() const {
    xmlChar* memory = nullptr;
    int size = 0;
    xmlDocDumpMemoryEnc(doc_, &memory, &size, reinterpret_cast<const char*>(doc_->encoding));
    std::vector<std::uint8_t> bytes(memory, memory + (memory ? size : 0));
    xmlFree(memory);
    return bytes;
}

namespace {

int appendToString(void* context, const char* buffer, int length) {
    try {
        static_cast<std::string*>(context)->append(buffer, static_cast<std::size_t>(std::max(length, 0)));
        return length;
    } catch (...) {
        return -1;
    }
}

}  // namespace

std::string XMLDocument::xmlText(std::size_t expectedSize) const {
    // The serialiser of xmlData with the same encoding and options, writing through a small
    // buffer into the string instead of building the whole text in memory twice.
    std::string text;
    text.reserve(expectedSize);
    // A UTF-8 document is written as it is held, with no converter pass over the output; the
    // declaration and the escaping are those of the converting path.
    const char* encoding = reinterpret_cast<const char*>(doc_->encoding);
    if (encoding && std::strcmp(encoding, "UTF-8") == 0) encoding = nullptr;
    xmlSaveCtxtPtr save = xmlSaveToIO(appendToString, nullptr, &text, encoding, XML_SAVE_AS_XML);
    if (!save) throw XMLDocumentError(Case::invalidEdit, "the document could not be written");
    const long written = xmlSaveDoc(save, doc_);
    const int closed = xmlSaveClose(save);
    if (written < 0 || closed < 0) throw XMLDocumentError(Case::invalidEdit, "the document could not be written");
    return text;
}

XMLElement XMLDocument::createElement(std::string_view name) {
    xmlNode* node = xmlNewDocNode(doc_, nullptr, xml(std::string(name)), nullptr);
    keepDetached(node);
    return XMLElement(node);
}

XMLNode XMLDocument::createText(std::string_view value) {
    xmlNode* node = xmlNewDocTextLen(doc_, reinterpret_cast<const xmlChar*>(value.data()), static_cast<int>(value.size()));
    keepDetached(node);
    return XMLNode(node);
}

}  // namespace tavrin
