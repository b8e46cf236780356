#include "office/xml_document.h"

#include <libxml/SAX2.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/tree.h>
#include <libxml/xmlsave.h>
#include <libxml/xpath.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <mutex>
#include <unordered_set>

namespace tavrin {

namespace {

using Case = XMLDocumentError::Case;

const xmlChar* xml(const std::string& text) { return reinterpret_cast<const xmlChar*>(text.c_str()); }
std::string text(const xmlChar* value) { return value ? reinterpret_cast<const char*>(value) : ""; }

// libxml2 wants one initialisation before threads use it.
void initializeLibrary() {
    static std::once_flag once;
    std::call_once(once, [] { xmlInitParser(); });
}

// Errors are collected in the context, never printed.
void ignoreError(void*, xmlErrorPtr) {}

// Never XML_PARSE_RECOVER (malformed input must fail) or XML_PARSE_NOENT (no entity
// expansion); XML_PARSE_HUGE lifts libxml2's own depth cap, since our gate runs first.
// XML_PARSE_COMPACT keeps short texts inside their nodes; the tree code of libxml2 knows such
// nodes, and ours never reaches into a text node's fields.
constexpr int parseOptions = XML_PARSE_NONET | XML_PARSE_HUGE | XML_PARSE_COMPACT;

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

ParseState& stateOf(void* context) {
    return *static_cast<ParseState*>(static_cast<xmlParserCtxtPtr>(context)->_private);
}

// A DOCTYPE is where entities are declared; refusing it ends every entity attack at once.
void refuseDocumentType(void* context, const xmlChar*, const xmlChar*, const xmlChar*) {
    stateOf(context).sawDocumentType = true;
    xmlStopParser(static_cast<xmlParserCtxtPtr>(context));
}

// The parser hands a name whose prefix is not declared with the prefix and no namespace, or,
// for an unparsable qualified name, with a colon left in the local name.
bool unbound(const xmlChar* localName, const xmlChar* prefix, const xmlChar* uri) {
    return (prefix && !uri) || std::strchr(reinterpret_cast<const char*>(localName), ':');
}

// The tree builder's own start-tag handler, behind a note of unbound prefixes and the
// attribute filter of the parse options.
void startElement(void* context, const xmlChar* localName, const xmlChar* prefix, const xmlChar* uri, int namespaceCount,
                  const xmlChar** namespaces, int attributeCount, int defaultedCount, const xmlChar** attributes) {
    ParseState& state = stateOf(context);
    if (state.failure) return;
    if (unbound(localName, prefix, uri)) state.unboundPrefix = true;
    try {
        bool dropsAny = false;
        int keptDefaulted = 0;
        state.keptAttributes.clear();
        for (int i = 0; i < attributeCount; ++i) {
            const xmlChar** attribute = attributes + 5 * i;
            const bool isUnbound = unbound(attribute[0], attribute[1], attribute[2]);
            if (isUnbound) state.unboundPrefix = true;
            if (!isUnbound && state.dropAttribute &&
                (*state.dropAttribute)(reinterpret_cast<const char*>(attribute[0]))) {
                dropsAny = true;
                continue;
            }
            state.keptAttributes.insert(state.keptAttributes.end(), attribute, attribute + 5);
            // Defaulted attributes (from a document type, which is refused anyway) come last.
            if (i >= attributeCount - defaultedCount) ++keptDefaulted;
        }
        if (!dropsAny)
            xmlSAX2StartElementNs(context, localName, prefix, uri, namespaceCount, namespaces, attributeCount,
                                  defaultedCount, attributes);
        else
            xmlSAX2StartElementNs(context, localName, prefix, uri, namespaceCount, namespaces,
                                  static_cast<int>(state.keptAttributes.size() / 5), keptDefaulted,
                                  state.keptAttributes.data());
    } catch (...) {
        // Nothing may cross the parser's frames; the error reaches the caller after the parse.
        state.failure = std::current_exception();
        xmlStopParser(static_cast<xmlParserCtxtPtr>(context));
    }
}

// Feeds the parser from pieces of text that stay where they are.
struct PieceReader {
    std::span<const std::string_view> pieces;
    std::size_t piece = 0;
    std::size_t offset = 0;
};

int readPieces(void* context, char* buffer, int length) {
    auto& reader = *static_cast<PieceReader*>(context);
    std::size_t written = 0;
    const auto wanted = static_cast<std::size_t>(std::max(length, 0));
    while (written < wanted && reader.piece < reader.pieces.size()) {
        const std::string_view piece = reader.pieces[reader.piece];
        const std::size_t n = std::min(wanted - written, piece.size() - reader.offset);
        std::memcpy(buffer + written, piece.data() + reader.offset, n);
        written += n;
        reader.offset += n;
        if (reader.offset == piece.size()) {
            ++reader.piece;
            reader.offset = 0;
        }
    }
    return static_cast<int>(written);
}

// A parser over `reader` with our error handling, document type refusal and options; the
// state is attached for the handlers.
xmlParserCtxtPtr newParser(PieceReader& reader, ParseState& state) {
    xmlParserCtxtPtr parser = xmlCreateIOParserCtxt(nullptr, nullptr, readPieces, nullptr, &reader, XML_CHAR_ENCODING_NONE);
    if (!parser) throw XMLDocumentError(XMLDocumentError::Case::malformedDocument, "the parser could not be made");
    parser->_private = &state;
    parser->sax->serror = ignoreError;
    parser->sax->internalSubset = refuseDocumentType;
    xmlCtxtUseOptions(parser, parseOptions);
    return parser;
}

std::string parserReason(xmlParserCtxtPtr parser) {
    std::string reason;
    if (const xmlError* error = xmlCtxtGetLastError(parser); error && error->message) reason = error->message;
    while (!reason.empty() && (reason.back() == '\n' || reason.back() == ' ')) reason.pop_back();
    return reason;
}

void scanStartElement(void* context, const xmlChar* localName, const xmlChar* prefix, const xmlChar* uri, int, const xmlChar**,
                      int attributeCount, int, const xmlChar** attributes);
void scanEndElement(void* context, const xmlChar*, const xmlChar*, const xmlChar*) {
    ParseState& state = stateOf(context);
    if (state.depth > 0) --state.depth;
}

std::string qualifiedName(const xmlNode* node) {
    std::string name = text(node->name);
    if (node->ns && node->ns->prefix) return text(node->ns->prefix) + ":" + name;
    return name;
}

std::pair<std::string, std::string> splitName(std::string_view name) {
    const auto colon = name.find(':');
    if (colon == std::string_view::npos) return {"", std::string(name)};
    return {std::string(name.substr(0, colon)), std::string(name.substr(colon + 1))};
}

bool isChildKind(const xmlNode* node) {
    switch (node->type) {
        case XML_ELEMENT_NODE:
        case XML_TEXT_NODE:
        case XML_CDATA_SECTION_NODE:
        case XML_COMMENT_NODE:
        case XML_PI_NODE:
        case XML_ENTITY_REF_NODE:
            return true;
        default:
            return false;
    }
}

// Whether a subtree that stood under `oldParent` and now stands under `newParent` has left
// the scope of a namespace declaration. Nothing is lost when every declaring ancestor of the
// old place is an ancestor of the new one, as when an element's children move up to its parent.
bool lostDeclarations(xmlNode* oldParent, xmlNode* newParent) {
    if (!oldParent) return true;
    std::vector<xmlNode*> declaring;
    for (xmlNode* p = oldParent; p && p->type == XML_ELEMENT_NODE; p = p->parent)
        if (p->nsDef) declaring.push_back(p);
    if (declaring.empty()) return false;
    std::unordered_set<xmlNode*> newChain;
    for (xmlNode* p = newParent; p && p->type == XML_ELEMENT_NODE; p = p->parent) newChain.insert(p);
    for (xmlNode* p : declaring)
        if (!newChain.count(p)) return true;
    return false;
}

// Links `child` under `parent` before `before` (or last), without the text merging that
// xmlAddChild does: merging frees nodes that handles may still name.
void link(xmlNode* parent, xmlNode* child, xmlNode* before) {
    if (child->doc != parent->doc || !isChildKind(child) || parent->type != XML_ELEMENT_NODE)
        throw XMLDocumentError(Case::invalidEdit, "the node cannot be inserted there");
    for (const xmlNode* p = parent; p; p = p->parent)
        if (p == child) throw XMLDocumentError(Case::invalidEdit, "a node cannot contain itself");
    xmlNode* oldParent = child->parent;
    if (child->parent || child->prev || child->next) xmlUnlinkNode(child);
    child->parent = parent;
    if (before) {
        child->next = before;
        child->prev = before->prev;
        if (before->prev) before->prev->next = child;
        else parent->children = child;
        before->prev = child;
    } else {
        child->prev = parent->last;
        child->next = nullptr;
        if (parent->last) parent->last->next = child;
        else parent->children = child;
        parent->last = child;
    }
    // A moved subtree may use a namespace declared on its old ancestors; declare it again
    // where needed, so that the output never holds an unbound prefix.
    if (child->type == XML_ELEMENT_NODE && lostDeclarations(oldParent, parent)) xmlDOMWrapReconcileNamespaces(nullptr, child, 0);
    // An element made with a prefixed name takes its namespace from where it now stands.
    if (child->type == XML_ELEMENT_NODE && child->ns == nullptr) {
        const auto [prefix, local] = splitName(text(child->name));
        if (!prefix.empty()) {
            if (xmlNs* ns = xmlSearchNs(child->doc, parent, xml(prefix))) {
                xmlSetNs(child, ns);
                xmlNodeSetName(child, xml(local));
            }
        }
    }
}

xmlNode* childAt(xmlNode* parent, std::size_t index) {
    xmlNode* c = parent->children;
    for (std::size_t i = 0; c && i < index; ++i) c = c->next;
    return c;
}

}  // namespace

std::string XMLDocumentError::description() const {
    switch (case_) {
        case Case::malformedDocument: return "The XML is malformed: " + reason_;
        case Case::documentTypeNotAllowed: return "The XML declares a document type, which is not allowed here";
        case Case::invalidXPath: return "The XPath expression could not be evaluated: " + reason_;
        case Case::invalidEdit: return "The XML could not be changed: " + reason_;
    }
    return "";
}

// MARK: XMLDocument

XMLDocument::XMLDocument(std::span<const std::uint8_t> data) {
    initializeLibrary();
    if (data.size() > INT_MAX) throw XMLDocumentError(Case::malformedDocument, "the document is too large");
    xmlParserCtxtPtr parser =
        xmlCreateMemoryParserCtxt(reinterpret_cast<const char*>(data.data()), static_cast<int>(data.size()));
    if (!parser) throw XMLDocumentError(Case::malformedDocument, "the document is empty");
    ParseState state;
    parser->_private = &state;
    parser->sax->serror = ignoreError;
    parser->sax->internalSubset = refuseDocumentType;
    parser->sax->startElementNs = startElement;
    xmlCtxtUseOptions(parser, parseOptions);
    xmlParseDocument(parser);
    xmlDoc* doc = parser->myDoc;
    const bool wellFormed = parser->wellFormed != 0 && !state.sawDocumentType;
    const std::string reason = parserReason(parser);
    xmlFreeParserCtxt(parser);
    if (state.failure) {
        if (doc) xmlFreeDoc(doc);
        std::rethrow_exception(state.failure);
    }
    if (!wellFormed || !doc) {
        if (doc) xmlFreeDoc(doc);
        if (state.sawDocumentType) throw XMLDocumentError(Case::documentTypeNotAllowed);
        throw XMLDocumentError(Case::malformedDocument, reason.empty() ? "not well-formed" : reason);
    }
    doc_ = doc;
    doc_->_private = this;
    unboundPrefix_ = state.unboundPrefix;
}

XMLDocument::XMLDocument(std::span<const std::string_view> pieces, const ParseOptions& options) {
    initializeLibrary();
    PieceReader reader{pieces};
    ParseState state;
    if (options.dropAttribute) state.dropAttribute = &options.dropAttribute;
    xmlParserCtxtPtr parser = newParser(reader, state);
    parser->sax->startElementNs = startElement;
    xmlParseDocument(parser);
    xmlDoc* doc = parser->myDoc;
    const bool wellFormed = parser->wellFormed != 0 && !state.sawDocumentType;
    const std::string reason = parserReason(parser);
    xmlFreeParserCtxt(parser);
    if (state.failure) {
        if (doc) xmlFreeDoc(doc);
        std::rethrow_exception(state.failure);
    }
    if (!wellFormed || !doc) {
        if (doc) xmlFreeDoc(doc);
        if (state.sawDocumentType) throw XMLDocumentError(Case::documentTypeNotAllowed);
        throw XMLDocumentError(Case::malformedDocument, reason.empty() ? "not well-formed" : reason);
    }
    doc_ = doc;
    doc_->_private = this;
    unboundPrefix_ = state.unboundPrefix;
}

bool XMLDocument::scanStartTags(std::span<const std::string_view> pieces,
                                const std::function<void(const XMLStartTag&)>& visit) {
    initializeLibrary();
    PieceReader reader{pieces};
    ParseState state;
    state.visit = &visit;
    xmlParserCtxtPtr parser = newParser(reader, state);
    // No tree: only the start and end of elements are heard, and the refusals above.
    xmlSAXHandler* sax = parser->sax;
    const auto serror = sax->serror;
    const auto internalSubset = sax->internalSubset;
    std::memset(sax, 0, sizeof(xmlSAXHandler));
    sax->initialized = XML_SAX2_MAGIC;
    sax->serror = serror;
    sax->internalSubset = internalSubset;
    sax->startElementNs = scanStartElement;
    sax->endElementNs = scanEndElement;
    xmlParseDocument(parser);
    const bool wellFormed = parser->wellFormed != 0 && !state.sawDocumentType && !state.failure;
    if (parser->myDoc) xmlFreeDoc(parser->myDoc);
    xmlFreeParserCtxt(parser);
    if (state.failure) std::rethrow_exception(state.failure);
    return wellFormed;
}

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

// MARK: XMLNode

XMLNode::Kind XMLNode::kind() const {
    switch (node_->type) {
        case XML_ELEMENT_NODE: return Kind::element;
        case XML_ATTRIBUTE_NODE: return Kind::attribute;
        case XML_TEXT_NODE: return Kind::text;
        case XML_CDATA_SECTION_NODE: return Kind::cdata;
        case XML_COMMENT_NODE: return Kind::comment;
        case XML_PI_NODE: return Kind::processingInstruction;
        default: return Kind::other;
    }
}

std::string XMLNode::name() const {
    switch (node_->type) {
        case XML_ELEMENT_NODE:
        case XML_ATTRIBUTE_NODE: return qualifiedName(node_);
        case XML_PI_NODE: return text(node_->name);
        default: return "";
    }
}

std::string XMLNode::localName() const {
    switch (node_->type) {
        case XML_ELEMENT_NODE:
        case XML_ATTRIBUTE_NODE:
        case XML_PI_NODE: return text(node_->name);
        default: return "";
    }
}

std::string XMLNode::prefix() const {
    if ((node_->type == XML_ELEMENT_NODE || node_->type == XML_ATTRIBUTE_NODE) && node_->ns && node_->ns->prefix)
        return text(node_->ns->prefix);
    return "";
}

std::string XMLNode::uri() const {
    if ((node_->type == XML_ELEMENT_NODE || node_->type == XML_ATTRIBUTE_NODE) && node_->ns && node_->ns->href)
        return text(node_->ns->href);
    return "";
}

std::string XMLNode::stringValue() const {
    xmlChar* content = xmlNodeGetContent(node_);
    std::string value = text(content);
    xmlFree(content);
    return value;
}

void XMLNode::setStringValue(std::string_view value) {
    auto* bytes = reinterpret_cast<const xmlChar*>(value.data());
    const int length = static_cast<int>(value.size());
    switch (node_->type) {
        case XML_ELEMENT_NODE: {
            XMLDocument& document = XMLDocument::owner(node_);
            while (xmlNode* child = node_->children) {
                xmlUnlinkNode(child);
                document.keepDetached(child);
            }
            link(node_, xmlNewDocTextLen(node_->doc, bytes, length), nullptr);
            break;
        }
        case XML_ATTRIBUTE_NODE: {
            // An attribute's text children are never handed out, so they may be freed.
            xmlFreeNodeList(node_->children);
            xmlNode* child = xmlNewDocTextLen(node_->doc, bytes, length);
            child->parent = node_;
            node_->children = node_->last = child;
            break;
        }
        default:
            xmlNodeSetContentLen(node_, bytes, length);
            break;
    }
}

std::vector<XMLNode> XMLNode::children() const {
    std::vector<XMLNode> nodes;
    if (node_->type == XML_ATTRIBUTE_NODE) return nodes;
    for (xmlNode* c = node_->children; c; c = c->next) nodes.push_back(XMLNode(c));
    return nodes;
}

std::optional<XMLElement> XMLNode::asElement() const {
    if (node_->type != XML_ELEMENT_NODE) return std::nullopt;
    return XMLElement(node_);
}

std::optional<XMLNode> XMLNode::parent() const {
    if (!node_->parent) return std::nullopt;
    return XMLNode(node_->parent);
}

std::optional<XMLNode> XMLNode::firstChild() const {
    if (node_->type == XML_ATTRIBUTE_NODE || !node_->children) return std::nullopt;
    return XMLNode(node_->children);
}

std::optional<XMLNode> XMLNode::nextSibling() const {
    if (!node_->next) return std::nullopt;
    return XMLNode(node_->next);
}

std::string_view XMLNode::localNameView() const {
    switch (node_->type) {
        case XML_ELEMENT_NODE:
        case XML_ATTRIBUTE_NODE:
        case XML_PI_NODE: return node_->name ? std::string_view(reinterpret_cast<const char*>(node_->name)) : std::string_view();
        default: return {};
    }
}

void XMLNode::detach() {
    if (!node_->parent && !node_->prev && !node_->next) return;
    xmlUnlinkNode(node_);
    XMLDocument::owner(node_).keepDetached(node_);
}

std::vector<XMLNode> XMLNode::nodesForXPath(std::string_view expression) const {
    xmlXPathContextPtr context = xmlXPathNewContext(node_->doc);
    if (!context) throw XMLDocumentError(Case::invalidXPath, "no context");
    context->node = node_;
    context->error = ignoreError;
    xmlXPathObjectPtr result = xmlXPathEvalExpression(xml(std::string(expression)), context);
    std::vector<XMLNode> nodes;
    if (!result) {
        xmlXPathFreeContext(context);
        throw XMLDocumentError(Case::invalidXPath, std::string(expression));
    }
    if (result->type == XPATH_NODESET && result->nodesetval) {
        for (int i = 0; i < result->nodesetval->nodeNr; ++i) {
            xmlNode* found = result->nodesetval->nodeTab[i];
            // Namespace nodes of a node set are not tree nodes; they are never asked for.
            if (found && found->type != XML_NAMESPACE_DECL) nodes.push_back(XMLNode(found));
        }
    }
    xmlXPathFreeObject(result);
    xmlXPathFreeContext(context);
    return nodes;
}

// MARK: XMLElement

std::vector<XMLNode> XMLElement::attributes() const {
    std::vector<XMLNode> nodes;
    for (xmlAttr* a = node_->properties; a; a = a->next) nodes.push_back(XMLNode(reinterpret_cast<xmlNode*>(a)));
    return nodes;
}

std::optional<XMLNode> XMLElement::firstAttribute() const {
    if (!node_->properties) return std::nullopt;
    return XMLNode(reinterpret_cast<xmlNode*>(node_->properties));
}

std::optional<XMLNode> XMLElement::attributeForName(std::string_view name) const {
    for (xmlAttr* a = node_->properties; a; a = a->next) {
        auto* node = reinterpret_cast<xmlNode*>(a);
        if (qualifiedName(node) == name) return XMLNode(node);
    }
    return std::nullopt;
}

void XMLElement::removeAttributeForName(std::string_view name) {
    if (auto attribute = attributeForName(name)) attribute->detach();
}

void XMLElement::addAttribute(std::string_view name, std::string_view value) {
    const auto [prefix, local] = splitName(name);
    xmlNs* ns = nullptr;
    if (!prefix.empty()) {
        ns = xmlSearchNs(node_->doc, node_, xml(prefix));
        if (!ns) throw XMLDocumentError(Case::invalidEdit, "the prefix " + prefix + " is not declared");
    }
    const std::string literal(value);
    xmlSetNsProp(node_, ns, xml(local), xml(literal));
}

void XMLElement::addChild(const XMLNode& child) { link(node_, child.node_, nullptr); }

void XMLElement::insertChild(const XMLNode& child, std::size_t index) {
    xmlNode* before = childAt(node_, index);
    if (!before && index != children().size()) throw XMLDocumentError(Case::invalidEdit, "index out of range");
    if (before == child.node_) return;
    link(node_, child.node_, before);
}

void XMLElement::removeChild(std::size_t index) {
    xmlNode* child = childAt(node_, index);
    if (!child) throw XMLDocumentError(Case::invalidEdit, "index out of range");
    XMLNode(child).detach();
}

namespace {

xmlNode* firstElementFrom(xmlNode* node) {
    while (node && node->type != XML_ELEMENT_NODE) node = node->next;
    return node;
}

}  // namespace

std::optional<XMLElement> XMLElement::nextInWalk(const XMLElement& root) const {
    if (xmlNode* child = firstElementFrom(node_->children)) return XMLElement(child);
    for (xmlNode* node = node_; node != root.node_; node = node->parent) {
        if (xmlNode* sibling = firstElementFrom(node->next)) return XMLElement(sibling);
        if (!node->parent || node->parent->type != XML_ELEMENT_NODE) return std::nullopt;
    }
    return std::nullopt;
}

// MARK: XMLStartTag

namespace {

std::string_view view(const xmlChar* text) { return text ? std::string_view(reinterpret_cast<const char*>(text)) : std::string_view(); }

}  // namespace

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

namespace {

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

}  // namespace

}  // namespace tavrin
