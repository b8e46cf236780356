#include "office/xml_document.h"

#include <libxml/SAX2.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/tree.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "office/xml_document_internal.h"

namespace tavrin {

using namespace xml_internal;

namespace {


// Never XML_PARSE_RECOVER (malformed input must fail) or XML_PARSE_NOENT (no entity
// expansion); XML_PARSE_HUGE lifts libxml2's own depth cap, since our gate runs first.
// XML_PARSE_COMPACT keeps short texts inside their nodes; the tree code of libxml2 knows such
// nodes, and ours never reaches into a text node's fields.
constexpr int parseOptions = XML_PARSE_NONET | XML_PARSE_HUGE | XML_PARSE_COMPACT;

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

void scanEndElement(void* context, const xmlChar*, const xmlChar*, const xmlChar*) {
    ParseState& state = stateOf(context);
    if (state.depth > 0) --state.depth;
}

// The one ending of every parse into a tree: the handlers' error first, then the parser's
// verdict. The document when it is well-formed; the parser is freed either way.
xmlDoc* finishParse(xmlParserCtxtPtr parser, const ParseState& state) {
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
    return doc;
}

}  // namespace

std::string XMLDocumentError::description() const {
    switch (errorCase()) {
        case Case::malformedDocument: return "The XML is malformed: " + detail();
        case Case::documentTypeNotAllowed: return "The XML declares a document type, which is not allowed here";
        case Case::invalidXPath: return "The XPath expression could not be evaluated: " + detail();
        case Case::invalidEdit: return "The XML could not be changed: " + detail();
    }
    return "";
}

// MARK: Parsing into a tree and scanning

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
    doc_ = finishParse(parser, state);
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
    doc_ = finishParse(parser, state);
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
}  // namespace tavrin
