#include "pdf/pdf_xmp.h"

#include <cstring>
#include <memory>
#include <utility>

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <qpdf/Pipeline.hh>

namespace tavrin {

namespace {

constexpr const char* rdfNamespace = "http://www.w3.org/1999/02/22-rdf-syntax-ns#";
constexpr const char* metaNamespace = "adobe:ns:meta/";

// The prefix XMP writers conventionally use, whatever the packet itself chose.
std::string conventionalPrefix(const xmlNs* ns) {
    static const std::pair<const char*, const char*> known[] = {
        {"http://purl.org/dc/elements/1.1/", "dc"},
        {"http://ns.adobe.com/xap/1.0/", "xmp"},
        {"http://ns.adobe.com/pdf/1.3/", "pdf"},
        {"http://ns.adobe.com/xap/1.0/mm/", "xmpMM"},
        {"http://ns.adobe.com/xap/1.0/rights/", "xmpRights"},
        {"http://ns.adobe.com/photoshop/1.0/", "photoshop"},
    };
    if (!ns || !ns->href) return "";
    const char* href = reinterpret_cast<const char*>(ns->href);
    for (const auto& [uri, prefix] : known)
        if (std::strcmp(href, uri) == 0) return prefix;
    return ns->prefix ? reinterpret_cast<const char*>(ns->prefix) : "";
}

bool inNamespace(const xmlNs* ns, const char* uri) {
    return ns && ns->href && std::strcmp(reinterpret_cast<const char*>(ns->href), uri) == 0;
}

std::string propertyName(const xmlNs* ns, const xmlChar* local) {
    const std::string prefix = conventionalPrefix(ns);
    const std::string name = reinterpret_cast<const char*>(local);
    return prefix.empty() ? name : prefix + ":" + name;
}

std::string trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) return "";
    const auto last = text.find_last_not_of(" \t\r\n");
    return std::string(text.substr(first, last - first + 1));
}

void appendBounded(std::string& value, const std::string& part) {
    if (part.empty() || value.size() >= PDFXMP::maximumValueLength) return;
    if (!value.empty()) value += ", ";
    value += part;
    if (value.size() > PDFXMP::maximumValueLength) {
        std::size_t cut = PDFXMP::maximumValueLength;
        while (cut > 0 && (static_cast<unsigned char>(value[cut]) & 0xC0) == 0x80) --cut;
        value.resize(cut);
    }
}

// The text of every element under a property, joined: list items, structure fields.
std::string textUnder(xmlNode* property) {
    std::string value;
    std::vector<std::pair<xmlNode*, std::size_t>> pending;
    for (xmlNode* c = property->last; c; c = c->prev) pending.emplace_back(c, 1);
    while (!pending.empty()) {
        auto [node, depth] = pending.back();
        pending.pop_back();
        if (node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE) {
            if (node->content) appendBounded(value, trimmed(reinterpret_cast<const char*>(node->content)));
        } else if (node->type == XML_ELEMENT_NODE && depth < PDFXMP::maximumDepth) {
            for (xmlNode* c = node->last; c; c = c->prev) pending.emplace_back(c, depth + 1);
        }
    }
    return value;
}

// Collects the decoded stream, refusing to grow past the packet bound.
class BoundedBuffer : public Pipeline {
public:
    BoundedBuffer() : Pipeline("xmp", nullptr) {}
    void write(unsigned char const* data, size_t length) override {
        if (bytes.size() + length > PDFXMP::maximumPacketSize) throw std::runtime_error("XMP packet too large");
        bytes.insert(bytes.end(), data, data + length);
    }
    void finish() override {}
    std::vector<std::uint8_t> bytes;
};

}  // namespace

std::optional<std::vector<PDFXMP::Property>> PDFXMP::properties(std::span<const std::uint8_t> packet) {
    if (packet.empty() || packet.size() > maximumPacketSize) return std::nullopt;
    // No network, no entity substitution, no DTD loading: a packet is data, not instructions.
    std::unique_ptr<xmlDoc, void (*)(xmlDoc*)> doc(
        xmlReadMemory(reinterpret_cast<const char*>(packet.data()), static_cast<int>(packet.size()), "xmp.xml",
                      nullptr, XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING),
        xmlFreeDoc);
    if (!doc) return std::nullopt;
    xmlNode* root = xmlDocGetRootElement(doc.get());
    if (!root) return std::nullopt;

    std::vector<Property> found;
    std::vector<std::pair<xmlNode*, std::size_t>> pending{{root, 0}};
    while (!pending.empty() && found.size() < maximumProperties) {
        auto [node, depth] = pending.back();
        pending.pop_back();
        if (node->type != XML_ELEMENT_NODE || depth > maximumDepth) continue;
        const bool container = inNamespace(node->ns, rdfNamespace) || inNamespace(node->ns, metaNamespace);
        if (!container) {
            std::string value = textUnder(node);
            if (!value.empty()) found.push_back({propertyName(node->ns, node->name), std::move(value)});
            continue;
        }
        // Simple properties may be written as attributes of rdf:Description.
        for (xmlAttr* a = node->properties; a && found.size() < maximumProperties; a = a->next) {
            if (!a->ns || inNamespace(a->ns, rdfNamespace) || inNamespace(a->ns, metaNamespace)) continue;
            // Entity references stay as written (inLine 0): expanding them could multiply the text.
            std::unique_ptr<xmlChar, void (*)(void*)> text(xmlNodeListGetString(doc.get(), a->children, 0),
                                                           xmlFree);
            std::string value;
            if (text) appendBounded(value, trimmed(reinterpret_cast<const char*>(text.get())));
            if (!value.empty()) found.push_back({propertyName(a->ns, a->name), std::move(value)});
        }
        for (xmlNode* c = node->last; c; c = c->prev) pending.emplace_back(c, depth + 1);
    }
    return found;
}

std::optional<std::vector<std::uint8_t>> PDFXMP::catalogPacket(PDFDocument& document) {
    try {
        auto catalog = document.catalog();
        if (!catalog) return std::nullopt;
        QPDFObjectHandle metadata = catalog->getKey("/Metadata");
        if (!metadata.isStream()) return std::nullopt;
        BoundedBuffer buffer;
        if (!metadata.pipeStreamData(&buffer, nullptr, 0, qpdf_dl_specialized, true, false)) return std::nullopt;
        return std::move(buffer.bytes);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

std::vector<MetadataItem> PDFXMP::items(const std::vector<Property>& properties) {
    std::vector<MetadataItem> items;
    for (const auto& p : properties) {
        const auto colon = p.name.find(':');
        const std::string prefix = colon == std::string::npos ? "" : p.name.substr(0, colon);
        const std::string local = colon == std::string::npos ? p.name : p.name.substr(colon + 1);
        MetadataCategory category = MetadataCategory::documentHistory;
        if (local.find("Date") != std::string::npos) {
            category = MetadataCategory::timestamps;
        } else if (local == "CreatorTool" || local == "Producer") {
            category = MetadataCategory::softwareInfo;
        } else if (prefix == "dc" || prefix == "xmpRights" || local == "Author" || local == "Keywords" ||
                   local == "AuthorsPosition" || local == "CaptionWriter") {
            category = MetadataCategory::authorIdentity;
        }
        const std::string id = "PDF.XMP." + p.name;
        items.push_back(MetadataItem{id, id, "XMP " + p.name, MetadataValue::string(p.value), category,
                                     MetadataSource::pdfKit, true});
    }
    return items;
}

}  // namespace tavrin
