#pragma once
// A thin document model over libxml2 with the operations the Office code needs and no more:
// parse, walk, read and edit names, text and attributes, move nodes, XPath with local-name(),
// and serialise. Serialising keeps prefixes, namespace declarations, attribute order and
// element order as parsed.
//
// Parsing never recovers from malformed input, never fetches from the network and never
// expands entities: a document with a DOCTYPE is refused outright (OOXML parts carry none),
// which also defeats entity bombs. Depth is not limited here; callers run the nesting gate
// of OfficeXMLDocument first. Short texts are kept inside their nodes, which spares an
// allocation for most attribute values of a large part.
//
// Node handles are cheap, non-owning views; they stay valid as long as their document lives,
// detached nodes included (the document frees those at its end). A document is not safe to
// use from two threads at once; separate documents are.

#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "model/typed_error.h"

struct _xmlDoc;
struct _xmlNode;

namespace tavrin {

enum class XMLDocumentErrorCase { malformedDocument, documentTypeNotAllowed, invalidXPath, invalidEdit };

class XMLDocumentError : public TypedError<XMLDocumentErrorCase> {
public:
    // `reason`: what the XML library said.
    XMLDocumentError(Case c, std::string reason = "") : TypedError(c, std::move(reason)) { setText(description()); }
    std::string description() const;
};

class XMLElement;

class XMLNode {
public:
    enum class Kind { element, attribute, text, cdata, comment, processingInstruction, other };

    Kind kind() const;
    // Qualified name ("w:t"), local name ("t") and prefix ("w"); empty where a node has none.
    std::string name() const;
    std::string localName() const;
    std::string prefix() const;
    // The namespace URI of an element or attribute; empty when it has none.
    std::string uri() const;
    // The text of the node and all its descendants.
    std::string stringValue() const;
    // Replaces the node's content with the literal text (no markup is interpreted).
    void setStringValue(std::string_view text);

    // Child nodes in document order (elements, text, comments, …); none for an attribute.
    std::vector<XMLNode> children() const;
    std::optional<XMLElement> asElement() const;
    // The node that holds this one: an element, or the document node (kind `other`) above
    // the root. Nothing for a detached node.
    std::optional<XMLNode> parent() const;
    // Navigation without building lists, for walks over large parts. For an attribute the next
    // sibling is the element's next attribute.
    std::optional<XMLNode> firstChild() const;
    std::optional<XMLNode> nextSibling() const;
    // The local name without a copy; valid while the node lives.
    std::string_view localNameView() const;
    // Takes the node out of its parent; it stays usable and may be inserted again.
    void detach();
    // Evaluates an XPath 1.0 expression with this node as context. Throws invalidXPath.
    std::vector<XMLNode> nodesForXPath(std::string_view expression) const;

    bool operator==(const XMLNode& other) const { return node_ == other.node_; }
    // Identity of the node, for sets keyed by node.
    std::size_t identityHash() const { return std::hash<const void*>{}(node_); }

protected:
    friend class XMLDocument;
    friend class XMLElement;
    explicit XMLNode(_xmlNode* node) : node_(node) {}
    _xmlNode* node_;
};

class XMLElement : public XMLNode {
public:
    std::vector<XMLNode> attributes() const;
    // The first attribute; the others follow through nextSibling.
    std::optional<XMLNode> firstAttribute() const;
    // By qualified name, as written ("r:id").
    std::optional<XMLNode> attributeForName(std::string_view name) const;
    void removeAttributeForName(std::string_view name);
    // Sets the attribute `name` (qualified; its prefix must be declared in scope) to the literal
    // `value`. An existing attribute of that name keeps its place and takes the new value.
    void addAttribute(std::string_view name, std::string_view value);

    // Child edits. `child` must belong to the same document; a child that has a parent is
    // detached first. A moved element keeps its prefixes; a namespace it used from a
    // declaration out of scope at its new place is declared again on it. Throws invalidEdit for an index out of range or a node of another
    // document, or an insertion that would make a node its own ancestor.
    void addChild(const XMLNode& child);
    void insertChild(const XMLNode& child, std::size_t index);
    void removeChild(std::size_t index);

    // The element after this one in a pre-order walk of `root`'s subtree, or nothing at the
    // end. It reads this element's children when called, so a walk that edits an element's
    // own children before stepping on follows the edited children. One step of the walks over
    // large parts; this element must still stand in `root`'s subtree.
    std::optional<XMLElement> nextInWalk(const XMLElement& root) const;

private:
    friend class XMLNode;
    friend class XMLDocument;
    explicit XMLElement(_xmlNode* node) : XMLNode(node) {}
};

// One start tag as a tree-less scan meets it (XMLDocument::scanStartTags). Names are given as
// the tree would give them: an element or attribute whose prefix no declaration binds keeps
// its whole qualified name as its local name. Valid only during the visit.
class XMLStartTag {
public:
    std::string_view localName() const { return unboundName_.empty() ? localName_ : std::string_view(unboundName_); }
    // 0 for the root element.
    std::size_t depth() const { return depth_; }
    std::size_t attributeCount() const { return attributeCount_; }
    std::string attributeLocalName(std::size_t index) const;
    // Qualified, as written ("r:id").
    std::string attributeName(std::size_t index) const;
    std::string_view attributeURI(std::size_t index) const;
    // The value as the tree's stringValue gives it.
    std::string attributeValue(std::size_t index) const;
    // The value of the first attribute with this local name, whatever its prefix.
    std::optional<std::string> attributeValue(std::string_view localName) const;

private:
    friend struct XMLStartTagAccess;
    std::string_view localName_;
    std::size_t depth_ = 0;
    std::size_t attributeCount_ = 0;
    const unsigned char** attributes_ = nullptr;  // five pointers per attribute, as the parser hands them
    std::string unboundName_;                      // storage of a local name with an unbound prefix
};

class XMLDocument {
public:
    struct ParseOptions {
        // Attributes whose local name passes this test are left out of the tree, with the same
        // result as removing them from every element right after the parse. Attributes whose
        // prefix no declaration binds are always kept.
        std::function<bool(std::string_view localName)> dropAttribute;
    };

    // Parses `data`. Throws XMLDocumentError for malformed XML or a document type declaration.
    explicit XMLDocument(std::span<const std::uint8_t> data);
    // Parses the concatenation of `pieces` (a rewritten declaration and the rest of a part, for
    // instance) where they lie: the parser reads them a little at a time, so that no copy of
    // a large part is made. Throws like the constructor above, or what `dropAttribute` throws.
    XMLDocument(std::span<const std::string_view> pieces, const ParseOptions& options);
    ~XMLDocument();
    XMLDocument(XMLDocument&& other) noexcept;
    XMLDocument& operator=(XMLDocument&& other) noexcept;
    XMLDocument(const XMLDocument&) = delete;
    XMLDocument& operator=(const XMLDocument&) = delete;

    std::optional<XMLElement> rootElement() const;
    void setCharacterEncoding(std::string_view encoding);
    // The document as bytes, in its character encoding, with an XML declaration.
    std::vector<std::uint8_t> xmlData() const;
    // The same bytes written straight into a string, without intermediate buffers of the
    // document's size. `expectedSize` is reserved up front, to spare a large text its growth.
    std::string xmlText(std::size_t expectedSize = 0) const;

    // Whether an element or attribute name carries a prefix that no declaration binds. The
    // parser keeps such a name whole ("w:del") as the local name, so that no local-name test
    // would see it.
    bool hasUnboundPrefix() const { return unboundPrefix_; }

    // Parses `pieces` as the constructor does, with the same refusals, but builds no tree:
    // `visit` is called with each start tag in document order. False when the text is not
    // well-formed or declares a document type; whatever was visited must then be discarded.
    // For reading a few facts out of a large part at a fraction of the cost of a tree.
    static bool scanStartTags(std::span<const std::string_view> pieces,
                              const std::function<void(const XMLStartTag&)>& visit);

    // New, detached nodes of this document, to be inserted with addChild or insertChild.
    // `name` may carry a prefix declared where the element will be inserted.
    XMLElement createElement(std::string_view name);
    XMLNode createText(std::string_view text);

private:
    friend class XMLNode;
    friend class XMLElement;
    void keepDetached(_xmlNode* node);
    static XMLDocument& owner(_xmlNode* node);
    void release();

    _xmlDoc* doc_ = nullptr;
    // Every node ever detached, duplicates included; release frees those still detached.
    std::vector<_xmlNode*> detached_;
    bool unboundPrefix_ = false;
};

}  // namespace tavrin
