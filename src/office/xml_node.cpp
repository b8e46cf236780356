#include "office/xml_document.h"

#include <libxml/tree.h>
#include <libxml/xpath.h>

#include <unordered_set>

#include "office/xml_document_internal.h"

namespace tavrin {

using namespace xml_internal;

namespace {

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

}  // namespace tavrin
