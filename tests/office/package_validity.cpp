#include "package_validity.h"

#include <map>
#include <set>

#include "office/office_package.h"
#include "office/office_text_encoding.h"
#include "office/xml_document.h"
#include "zip/archive.h"

namespace tavrin::testing {

namespace {

constexpr std::string_view officeRelationshipsNamespace =
    "http://schemas.openxmlformats.org/officeDocument/2006/relationships";

std::optional<XMLDocument> parse(const std::vector<std::uint8_t>& bytes) {
    const auto text = OfficeTextEncoding::decodeXML(bytes);
    if (!text) return std::nullopt;
    try {
        return XMLDocument(std::span(reinterpret_cast<const std::uint8_t*>(text->data()), text->size()));
    } catch (const XMLDocumentError&) {
        return std::nullopt;
    }
}

void walk(const XMLElement& root, const std::function<void(const XMLElement&)>& visit) {
    std::vector<XMLElement> stack{root};
    while (!stack.empty()) {
        XMLElement element = stack.back();
        stack.pop_back();
        visit(element);
        const auto children = element.children();
        for (auto child = children.rbegin(); child != children.rend(); ++child)
            if (auto e = child->asElement()) stack.push_back(*e);
    }
}

// Resolves a relationship target against the folder of its source part, the way a consumer
// does: "/" starts at the package root, ".." climbs.
std::string resolve(const std::string& sourceFolder, std::string target) {
    target = target.substr(0, target.find('#'));
    std::string joined = !target.empty() && target[0] == '/' ? target.substr(1) : sourceFolder + target;
    std::vector<std::string> components;
    std::size_t start = 0;
    while (start <= joined.size()) {
        const auto slash = joined.find('/', start);
        const std::string component = joined.substr(start, slash == std::string::npos ? std::string::npos : slash - start);
        if (component == "..") {
            if (!components.empty()) components.pop_back();
        } else if (!component.empty() && component != ".") {
            components.push_back(component);
        }
        if (slash == std::string::npos) break;
        start = slash + 1;
    }
    std::string out;
    for (const auto& c : components) out += (out.empty() ? "" : "/") + c;
    return out;
}

// "word/_rels/document.xml.rels" belongs to "word/document.xml".
std::string ownerOfRels(const std::string& relsPath) {
    const auto slash = relsPath.rfind('/');
    const std::string folder = relsPath.substr(0, slash);
    const std::string name = relsPath.substr(slash + 1, relsPath.size() - slash - 1 - 5);
    const std::string parent = folder.size() > 5 ? folder.substr(0, folder.size() - 5) : "";
    return parent + name;
}

std::string folderOf(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? "" : path.substr(0, slash + 1);
}

}  // namespace

std::vector<std::string> packageValidityProblems(const std::vector<std::uint8_t>& package) {
    std::vector<std::string> problems;
    std::optional<Archive> archive;
    try {
        // The reader refuses duplicate names, overlapping entries and unsafe paths.
        archive.emplace(package, Archive::AccessMode::read);
    } catch (const std::exception& e) {
        return {std::string("archive does not open: ") + e.what()};
    }
    std::map<std::string, std::vector<std::uint8_t>> parts;  // by lower-cased name
    std::map<std::string, std::string> storedName;
    std::set<std::string> seen;
    for (const auto& entry : *archive) {
        if (entry.type() != EntryType::file) continue;
        const std::string lower = lowerCasedPath(entry.path());
        if (!seen.insert(lower).second) problems.push_back("two entries named " + lower + " in some letter case");
        try {
            parts[lower] = extractEntry(*archive, entry);  // tests the CRC
            storedName[lower] = entry.path();
        } catch (const std::exception& e) {
            problems.push_back(entry.path() + ": " + e.what());
        }
    }

    std::map<std::string, std::optional<XMLDocument>> xml;
    for (const auto& [name, bytes] : parts) {
        if (!name.ends_with(".xml") && !name.ends_with(".rels")) continue;
        xml[name] = parse(bytes);
        if (!xml[name] || !xml[name]->rootElement()) problems.push_back(name + " does not parse");
    }

    // Content types.
    std::set<std::string> defaults, overrides;
    if (auto it = xml.find("[content_types].xml"); it != xml.end() && it->second && it->second->rootElement()) {
        walk(*it->second->rootElement(), [&](const XMLElement& element) {
            for (const auto& attribute : element.attributes()) {
                if (element.localName() == "Default" && attribute.localName() == "Extension")
                    defaults.insert(lowerCasedPath(attribute.stringValue()));
                if (element.localName() == "Override" && attribute.localName() == "PartName") {
                    std::string name = lowerCasedPath(attribute.stringValue());
                    if (!name.empty() && name[0] == '/') name.erase(0, 1);
                    overrides.insert(name);
                }
            }
        });
    } else {
        problems.push_back("no usable [Content_Types].xml");
    }
    for (const auto& name : overrides)
        if (!parts.count(name)) problems.push_back("override names missing part " + name);
    for (const auto& [name, bytes] : parts) {
        if (name == "[content_types].xml" || overrides.count(name)) continue;
        const auto dot = name.rfind('.');
        const auto slash = name.rfind('/');
        const bool hasExtension = dot != std::string::npos && (slash == std::string::npos || dot > slash);
        if (!hasExtension || !defaults.count(name.substr(dot + 1))) problems.push_back(name + " has no content type");
    }

    // Relationships, and the ids that parts use.
    std::map<std::string, std::set<std::string>> idsOfPart;  // lower-cased part name -> relationship ids
    for (const auto& [name, document] : xml) {
        if (!name.ends_with(".rels") || !document || !document->rootElement()) continue;
        const std::string owner = ownerOfRels(storedName[name]);
        if (!owner.empty() && !parts.count(lowerCasedPath(owner)))
            problems.push_back(name + " belongs to missing part " + owner);
        auto& ids = idsOfPart[lowerCasedPath(owner)];
        walk(*document->rootElement(), [&](const XMLElement& element) {
            if (element.localName() != "Relationship") return;
            const auto id = attributeValue(element, "Id");
            const auto target = attributeValue(element, "Target");
            const auto mode = attributeValue(element, "TargetMode");
            if (!id || !target) {
                problems.push_back(name + ": relationship without Id or Target");
                return;
            }
            if (!ids.insert(*id).second) problems.push_back(name + ": duplicate relationship id " + *id);
            if (mode && lowerCasedPath(*mode) == "external") return;
            const std::string resolved = resolve(folderOf(owner), *target);
            if (!parts.count(lowerCasedPath(resolved)))
                problems.push_back(name + ": " + *id + " targets missing part " + resolved);
        });
    }
    for (const auto& [name, document] : xml) {
        if (name.ends_with(".rels") || !document || !document->rootElement()) continue;
        const auto& ids = idsOfPart[name];
        walk(*document->rootElement(), [&](const XMLElement& element) {
            for (const auto& attribute : element.attributes()) {
                if (attribute.uri() != officeRelationshipsNamespace) continue;
                const std::string value = attribute.stringValue();
                if (!value.empty() && !ids.count(value))
                    problems.push_back(name + ": " + attribute.name() + "=\"" + value + "\" does not resolve");
            }
        });
    }
    return problems;
}

std::string visibleText(const std::vector<std::uint8_t>& package) {
    const Archive archive(package, Archive::AccessMode::read);
    std::string text;
    for (const auto& entry : archive) {
        const std::string lower = lowerCasedPath(entry.path());
        if (!lower.ends_with(".xml") || lower.starts_with("docprops/")) continue;
        auto document = parse(extractEntry(archive, entry));
        if (!document || !document->rootElement()) continue;
        walk(*document->rootElement(), [&](const XMLElement& element) {
            const std::string name = element.localName();
            if (name == "t" || name == "v") text += element.stringValue() + "|";
        });
    }
    return text;
}

}  // namespace tavrin::testing
