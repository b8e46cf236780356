#include "image/xmp_metadata.h"

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <memory>
#include <vector>

namespace tavrin::image {

namespace {

using Case = ImageFormatError::Case;

constexpr std::string_view rdfNS = "http://www.w3.org/1999/02/22-rdf-syntax-ns#";

// The usual prefixes, so that keys do not depend on the prefixes a writer happened to choose.
const std::map<std::string, std::string, std::less<>>& preferredPrefixes() {
    static const std::map<std::string, std::string, std::less<>> table = {
        {"http://purl.org/dc/elements/1.1/", "dc"},
        {"http://ns.adobe.com/xap/1.0/", "xmp"},
        {"http://ns.adobe.com/xap/1.0/mm/", "xmpMM"},
        {"http://ns.adobe.com/xap/1.0/rights/", "xmpRights"},
        {"http://ns.adobe.com/photoshop/1.0/", "photoshop"},
        {"http://ns.adobe.com/tiff/1.0/", "tiff"},
        {"http://ns.adobe.com/exif/1.0/", "exif"},
        {"http://cipa.jp/exif/1.0/", "exifEX"},
        {"http://iptc.org/std/Iptc4xmpCore/1.0/xmlns/", "Iptc4xmpCore"},
        {"http://iptc.org/std/Iptc4xmpExt/2008-02-29/", "Iptc4xmpExt"},
        {"http://ns.adobe.com/camera-raw-settings/1.0/", "crs"},
        {"http://ns.useplus.org/ldf/xmp/1.0/", "plus"},
        {"http://ns.adobe.com/xap/1.0/sType/ResourceEvent#", "stEvt"},
        {"http://ns.adobe.com/xap/1.0/sType/ResourceRef#", "stRef"},
        {"http://ns.adobe.com/xmp/1.0/DynamicMedia/", "xmpDM"},
        {"http://ns.adobe.com/pdf/1.3/", "pdf"},
        {"http://ns.google.com/photos/1.0/camera/", "GCamera"},
        {"http://ns.apple.com/faceinfo/1.0/", "apple-fi"},
        {"http://ns.adobe.com/exif/1.0/aux/", "aux"},
    };
    return table;
}

bool isRDF(const xmlNode* n, const char* local) {
    return n->type == XML_ELEMENT_NODE && n->ns && n->ns->href && rdfNS == reinterpret_cast<const char*>(n->ns->href) &&
           std::string_view(reinterpret_cast<const char*>(n->name)) == local;
}

bool isRDFAttribute(const xmlAttr* a) {
    return a->ns && a->ns->href && rdfNS == reinterpret_cast<const char*>(a->ns->href);
}

bool isXMLAttribute(const xmlAttr* a) {
    return a->ns && a->ns->prefix && std::string_view(reinterpret_cast<const char*>(a->ns->prefix)) == "xml";
}

struct Walker {
    std::map<std::string, std::string>& namespaces;

    std::string qualifiedName(const xmlNs* ns, const xmlChar* local) {
        std::string prefix = "ns";
        if (ns && ns->href) {
            const std::string uri = reinterpret_cast<const char*>(ns->href);
            auto it = preferredPrefixes().find(uri);
            if (it != preferredPrefixes().end()) prefix = it->second;
            else if (ns->prefix) prefix = reinterpret_cast<const char*>(ns->prefix);
            namespaces.emplace(prefix, uri);
        }
        return prefix + ":" + reinterpret_cast<const char*>(local);
    }

    static std::string textOf(const xmlNode* n) {
        std::string s;
        for (const xmlNode* c = n->children; c; c = c->next)
            if ((c->type == XML_TEXT_NODE || c->type == XML_CDATA_SECTION_NODE) && c->content)
                s += reinterpret_cast<const char*>(c->content);
        return s;
    }

    static const xmlNode* firstElement(const xmlNode* n) {
        for (const xmlNode* c = n->children; c; c = c->next)
            if (c->type == XML_ELEMENT_NODE) return c;
        return nullptr;
    }

    // Attributes and child elements of a description or a resource-typed property.
    void addMembers(const xmlNode* n, Properties& into, int depth) {
        for (const xmlAttr* a = n->properties; a; a = a->next) {
            if (isRDFAttribute(a) || isXMLAttribute(a) || !a->ns) continue;
            xmlChar* v = xmlNodeListGetString(n->doc, a->children, 1);
            into.insert_or_assign(qualifiedName(a->ns, a->name), MetadataValue::string(v ? reinterpret_cast<const char*>(v) : ""));
            xmlFree(v);
        }
        for (const xmlNode* c = n->children; c; c = c->next)
            if (c->type == XML_ELEMENT_NODE) into.insert_or_assign(qualifiedName(c->ns, c->name), value(c, depth + 1));
    }

    MetadataValue value(const xmlNode* n, int depth) {
        enforce(depth <= maxXMPDepth, Case::limitExceeded, "XMP is nested too deeply");
        for (const xmlAttr* a = n->properties; a; a = a->next) {
            if (!isRDFAttribute(a)) continue;
            const std::string_view name = reinterpret_cast<const char*>(a->name);
            xmlChar* v = xmlNodeListGetString(n->doc, a->children, 1);
            const std::string attr = v ? reinterpret_cast<const char*>(v) : "";
            xmlFree(v);
            if (name == "parseType" && attr == "Resource") {
                Properties members;
                addMembers(n, members, depth);
                return MetadataValue::dictionary(std::move(members));
            }
            if (name == "resource") return MetadataValue::string(attr);
        }
        const xmlNode* child = firstElement(n);
        if (!child) {
            bool hasQualifiers = false;
            for (const xmlAttr* a = n->properties; a; a = a->next)
                hasQualifiers = hasQualifiers || (!isRDFAttribute(a) && !isXMLAttribute(a) && a->ns);
            if (hasQualifiers) {
                Properties members;
                addMembers(n, members, depth);
                return MetadataValue::dictionary(std::move(members));
            }
            return MetadataValue::string(textOf(n));
        }
        if (isRDF(child, "Bag") || isRDF(child, "Seq") || isRDF(child, "Alt")) {
            MetadataValue::Array items;
            for (const xmlNode* li = child->children; li; li = li->next)
                if (isRDF(li, "li")) items.push_back(value(li, depth + 1));
            return MetadataValue::array(std::move(items));
        }
        Properties members;
        if (isRDF(child, "Description")) addMembers(child, members, depth + 1);
        else addMembers(n, members, depth);
        return MetadataValue::dictionary(std::move(members));
    }
};

struct DocFree {
    void operator()(xmlDoc* d) const { xmlFreeDoc(d); }
};

}  // namespace

XMPParse parseXMP(ByteSpan packet) {
    while (!packet.empty() && (packet.back() == 0 || packet.back() == ' ' || packet.back() == '\n')) packet = packet.first(packet.size() - 1);
    enforce(!packet.empty(), Case::invalidStructure, "XMP packet is empty");
    enforce(packet.size() < (1u << 30), Case::limitExceeded, "XMP packet is too large");
    // No XML_PARSE_NOENT (entities stay unexpanded), no XML_PARSE_RECOVER, no XML_PARSE_HUGE
    // (libxml2 keeps its own depth and size limits), and never the network.
    std::unique_ptr<xmlDoc, DocFree> doc(xmlReadMemory(reinterpret_cast<const char*>(packet.data()),
                                                       static_cast<int>(packet.size()), nullptr, nullptr,
                                                       XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING));
    enforce(doc != nullptr, Case::invalidStructure, "XMP is not well-formed XML");
    enforce(doc->intSubset == nullptr && doc->extSubset == nullptr, Case::invalidStructure,
            "XMP declares a document type");
    XMPParse out;
    Walker walker{out.namespaces};
    // Finds rdf:RDF within the first few levels (x:xmpmeta, x:xapmeta or none).
    std::vector<std::pair<const xmlNode*, int>> stack = {{xmlDocGetRootElement(doc.get()), 0}};
    while (!stack.empty()) {
        auto [n, depth] = stack.back();
        stack.pop_back();
        if (!n || depth > 4) continue;
        if (isRDF(n, "RDF")) {
            for (const xmlNode* d = n->children; d; d = d->next)
                if (isRDF(d, "Description")) walker.addMembers(d, out.properties, depth + 1);
            continue;
        }
        for (const xmlNode* c = n->children; c; c = c->next)
            if (c->type == XML_ELEMENT_NODE) stack.emplace_back(c, depth + 1);
    }
    return out;
}

namespace {

std::string escape(std::string_view s) {
    std::string out;
    for (char c : s) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += "&quot;"; break;
            default: out += c;
        }
    }
    return out;
}

std::string prefixOf(std::string_view name) {
    const auto colon = name.find(':');
    return colon == std::string_view::npos ? std::string() : std::string(name.substr(0, colon));
}

struct Serializer {
    const std::map<std::string, std::string>& namespaces;
    std::map<std::string, std::string> used;

    bool known(std::string_view name) {
        const std::string prefix = prefixOf(name);
        auto it = namespaces.find(prefix);
        if (prefix.empty() || it == namespaces.end()) return false;
        used.emplace(prefix, it->second);
        return true;
    }

    std::string scalar(const MetadataValue& v) {
        switch (v.kind()) {
            case MetadataValue::Kind::string: return escape(v.asString());
            case MetadataValue::Kind::boolean: return v.asBool() ? "True" : "False";
            default: return escape(v.description());
        }
    }

    // The content of a property element; depth bounded by the parse that built the tree.
    std::string content(const MetadataValue& v, std::string& attributes, int depth) {
        if (depth > maxXMPDepth) return {};
        if (v.kind() == MetadataValue::Kind::dictionary) {
            attributes = " rdf:parseType=\"Resource\"";
            return members(v.asDictionary(), depth + 1);
        }
        if (v.kind() == MetadataValue::Kind::array) {
            std::string s = "<rdf:Seq>";
            for (const auto& item : v.asArray()) {
                std::string liAttributes;
                const std::string inner = content(item, liAttributes, depth + 1);
                s += "<rdf:li" + liAttributes + ">" + inner + "</rdf:li>";
            }
            return s + "</rdf:Seq>";
        }
        return scalar(v);
    }

    std::string members(const Properties& dict, int depth) {
        std::string s;
        for (const auto& [name, v] : dict) {
            if (!known(name)) continue;
            std::string attributes;
            const std::string inner = content(v, attributes, depth);
            s += "<" + name + attributes + ">" + inner + "</" + name + ">";
        }
        return s;
    }
};

}  // namespace

std::string serializeXMP(const Properties& filtered, const std::map<std::string, std::string>& namespaces) {
    if (filtered.empty()) return {};
    Serializer s{namespaces, {}};
    const std::string body = s.members(filtered, 0);
    if (body.empty()) return {};
    std::string out = "<?xpacket begin=\"\xEF\xBB\xBF\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>"
                      "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"><rdf:RDF xmlns:rdf=\"";
    out += rdfNS;
    out += "\"><rdf:Description rdf:about=\"\"";
    for (const auto& [prefix, uri] : s.used) out += " xmlns:" + prefix + "=\"" + escape(uri) + "\"";
    out += ">" + body + "</rdf:Description></rdf:RDF></x:xmpmeta><?xpacket end=\"w\"?>";
    return out;
}

std::string filteredXMPPacket(ByteSpan source, const Properties* filtered) {
    if (!filtered || filtered->empty()) return {};
    return serializeXMP(*filtered, parseXMP(source).namespaces);
}

}  // namespace tavrin::image
