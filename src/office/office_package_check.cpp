#include "office/office_package_check.h"

#include <deque>
#include <fmt/format.h>
#include <vector>

#include "office/office_dropped_parts.h"
#include "office/office_package.h"
#include "office/office_text_encoding.h"
#include "office/office_xml_document.h"

namespace tavrin {

namespace {

using Bytes = std::vector<std::uint8_t>;


bool isXMLPath(const std::string& lower) { return lower.ends_with(".xml") || lower.ends_with(".rels"); }

// Decimal units, as sizes are shown everywhere else.
std::string megabytes(std::uint64_t bytes) {
    if (bytes % 1'000'000'000 == 0) return fmt::format("{} GB", bytes / 1'000'000'000);
    return fmt::format("{} MB", (bytes + 500'000) / 1'000'000);
}

// One internal or external relationship as the package states it.
struct Relationship {
    std::string id;
    std::string target;  // resolved part path as written, fragment removed; empty for external
    bool external = false;
};

// The relationships of one ".rels" part; nothing when it does not parse.
std::optional<std::vector<Relationship>> relationshipsOf(const Archive& archive, const Entry& relsEntry) {
    const auto owner = OfficePackageCheck::ownerOfRelationshipsPart(relsEntry.path());
    if (!owner) return std::nullopt;
    const auto slash = owner->rfind('/');
    const std::string base = slash == std::string::npos ? std::string() : owner->substr(0, slash + 1);
    auto document = parsedPart(archive, relsEntry);
    if (!document || !document->rootElement()) return std::nullopt;
    std::vector<Relationship> out;
    forEachElement(*document->rootElement(), [&](XMLElement& element) {
        if (element.localName() != "Relationship") return;
        Relationship relationship;
        relationship.id = attributeValue(element, "Id").value_or("");
        const auto mode = attributeValue(element, "TargetMode");
        relationship.external = mode && lowerCasedPath(*mode) == "external";
        if (!relationship.external) {
            std::string target = attributeValue(element, "Target").value_or("");
            // A fragment or query names a place inside a part, not another part.
            target = target.substr(0, target.find_first_of("#?"));
            if (!target.empty())
                relationship.target = target.front() == '/' ? resolvedPartPath("", target.substr(1))
                                                            : resolvedPartPath(base, target);
        }
        out.push_back(std::move(relationship));
    });
    return out;
}

struct ContentTypes {
    std::set<std::string> defaults;   // extensions, lower case
    std::set<std::string> overrides;  // part names without the leading "/", lower case
};

std::optional<ContentTypes> contentTypesOf(const Archive& archive) {
    const auto entry = archiveEntry("[Content_Types].xml", archive);
    if (!entry) return std::nullopt;
    auto document = parsedPart(archive, *entry);
    if (!document || !document->rootElement()) return std::nullopt;
    ContentTypes types;
    forEachElement(*document->rootElement(), [&](XMLElement& element) {
        if (element.localName() == "Default") {
            if (auto extension = attributeValue(element, "Extension")) types.defaults.insert(lowerCasedPath(*extension));
        } else if (element.localName() == "Override") {
            if (auto name = attributeValue(element, "PartName")) {
                if (!name->empty() && name->front() == '/') name->erase(0, 1);
                types.overrides.insert(lowerCasedPath(*name));
            }
        }
    });
    return types;
}

std::set<std::string> storedLowerPaths(const Archive& archive) {
    std::set<std::string> paths;
    for (const auto& entry : archive)
        if (entry.type() == EntryType::file) paths.insert(lowerCasedPath(entry.path()));
    return paths;
}

std::string relsPathOf(const std::string& part) {
    const auto slash = part.rfind('/');
    if (slash == std::string::npos) return "_rels/" + part + ".rels";
    return part.substr(0, slash) + "/_rels/" + part.substr(slash + 1) + ".rels";
}

// A slide list that names one relationship twice shows one slide twice and leaves no way to
// tell which entry a removal should take.
std::optional<std::string> duplicateSlideReference(const Archive& archive) {
    const auto entry = archiveEntry("ppt/presentation.xml", archive);
    if (!entry) return std::nullopt;
    auto document = parsedPart(archive, *entry);
    if (!document || !document->rootElement()) return std::nullopt;
    std::set<std::string> seen;
    std::optional<std::string> duplicate;
    forEachElement(*document->rootElement(), [&](XMLElement& element) {
        if (duplicate || element.localName() != "sldId") return;
        for (const auto& attribute : element.attributes()) {
            if (!OfficePackageCheck::isRelationshipNamespace(attribute.uri())) continue;
            if (!seen.insert(attribute.stringValue()).second) duplicate = attribute.stringValue();
        }
    });
    if (!duplicate) return std::nullopt;
    return fmt::format("{}: the slide list names relationship {} twice", entry->path(), *duplicate);
}

// Reads an XML part into `bytes`; what makes it unreadable or ill-formed, if anything, named
// with the part.
std::optional<std::string> readWellFormedXML(const Archive& archive, const Entry& entry, Bytes& bytes) {
    try {
        bytes = extractEntry(archive, entry);
    } catch (const ArchiveError& error) {
        return entry.path() + ": " + error.description();
    }
    if (auto problem = OfficePackageCheck::xmlProblem(bytes)) return entry.path() + ": " + *problem;
    return std::nullopt;
}

}  // namespace

bool OfficePackageCheck::isRelationshipNamespace(std::string_view uri) {
    return uri == "http://schemas.openxmlformats.org/officeDocument/2006/relationships" ||
           uri == "http://purl.oclc.org/ooxml/officeDocument/relationships";
}

std::optional<std::string> OfficePackageCheck::ownerOfRelationshipsPart(std::string_view relsPath) {
    const auto slash = relsPath.rfind('/');
    if (slash == std::string_view::npos) return std::nullopt;
    const std::string_view folder = relsPath.substr(0, slash);
    if (!(lowerCasedPath(folder) == "_rels" || lowerCasedPath(folder).ends_with("/_rels"))) return std::nullopt;
    const std::string_view name = relsPath.substr(slash + 1);
    if (!lowerCasedPath(name).ends_with(".rels")) return std::nullopt;
    return std::string(folder.substr(0, folder.size() - 5)) + std::string(name.substr(0, name.size() - 5));
}

std::optional<std::string> OfficePackageCheck::xmlProblem(std::span<const std::uint8_t> bytes) {
    const auto text = OfficeTextEncoding::decodeXML(bytes);
    if (!text) return "not XML: its bytes are not text";
    if (!OfficeXMLDocument::nestingDepthWithinLimit(*text))
        return fmt::format("elements nested more than {} deep", OfficeXMLDocument::maximumNestingDepth);
    if (!OfficeXMLDocument::parseText(*text)) return "not well-formed XML";
    return std::nullopt;
}

std::optional<std::string> OfficePackageCheck::notAnOfficePackage(const Archive& archive, bool requireRelationships) {
    if (const auto mimetype = archive["mimetype"]) {
        std::string type;
        try {
            if (mimetype->uncompressedSize() <= 256) type = extractEntryText(archive, *mimetype);
        } catch (const ArchiveError&) {
        }
        if (type.rfind("application/vnd.oasis.opendocument", 0) == 0) return "it is an OpenDocument file, " + type;
    }
    if (!archiveEntry("[Content_Types].xml", archive)) return "it has no [Content_Types].xml";
    if (requireRelationships && !archiveEntry("_rels/.rels", archive)) return "it has no package relationships (_rels/.rels)";
    return std::nullopt;
}

std::optional<std::string> OfficePackageCheck::refusalOfSource(const Archive& archive) {
    if (auto reason = notAnOfficePackage(archive)) return "not an Office Open XML package: " + *reason;
    // Declared sizes are honest or extraction fails, so the budgets hold before one byte is
    // inflated.
    std::uint64_t total = 0;
    for (const auto& entry : archive) {
        if (entry.type() != EntryType::file) continue;
        if (entry.uncompressedSize() > maximumPartSize)
            return fmt::format("{}: inflates to {}, over the {} part-size limit", entry.path(),
                               megabytes(entry.uncompressedSize()), megabytes(maximumPartSize));
        total += entry.uncompressedSize();
        if (total > maximumInflatedPackageSize)
            return fmt::format("the parts inflate to more than {} together, over the package limit",
                               megabytes(maximumInflatedPackageSize));
    }
    for (const auto& entry : archive) {
        if (entry.type() != EntryType::file || !isXMLPath(lowerCasedPath(entry.path()))) continue;
        Bytes bytes;
        if (auto problem = readWellFormedXML(archive, entry, bytes)) return problem;
    }
    return duplicateSlideReference(archive);
}

std::set<std::string> OfficePackageCheck::missingTargets(const Archive& archive) {
    const auto stored = storedLowerPaths(archive);
    std::set<std::string> missing;
    for (const auto& entry : archive) {
        if (entry.type() != EntryType::file || !lowerCasedPath(entry.path()).ends_with(".rels")) continue;
        for (const auto& relationship : relationshipsOf(archive, entry).value_or(std::vector<Relationship>{}))
            if (!relationship.external && !relationship.target.empty() && !stored.count(lowerCasedPath(relationship.target)))
                missing.insert(lowerCasedPath(relationship.target));
    }
    if (const auto types = contentTypesOf(archive))
        for (const auto& name : types->overrides)
            if (!stored.count(name)) missing.insert(name);
    return missing;
}

std::set<std::string> OfficePackageCheck::unreachableParts(const Archive& archive) {
    std::map<std::string, Entry> byLower;
    for (const auto& entry : archive)
        if (entry.type() == EntryType::file) byLower.emplace(lowerCasedPath(entry.path()), entry);
    std::set<std::string> reached{"[content_types].xml"};
    std::deque<std::string> queue{""};  // the package root owns "_rels/.rels"
    while (!queue.empty()) {
        const std::string part = queue.front();
        queue.pop_front();
        const auto rels = byLower.find(lowerCasedPath(relsPathOf(part)));
        if (rels == byLower.end()) continue;
        reached.insert(rels->first);
        for (const auto& relationship : relationshipsOf(archive, rels->second).value_or(std::vector<Relationship>{})) {
            if (relationship.external || relationship.target.empty()) continue;
            const auto target = byLower.find(lowerCasedPath(relationship.target));
            if (target == byLower.end() || !reached.insert(target->first).second) continue;
            queue.push_back(target->second.path());
        }
    }
    std::set<std::string> unreachable;
    for (const auto& [lower, entry] : byLower)
        if (!reached.count(lower)) unreachable.insert(entry.path());
    return unreachable;
}

std::map<std::string, std::set<std::string>> OfficePackageCheck::relationshipIdsTo(const Archive& archive,
                                                                                   const std::set<std::string>& gonePaths) {
    std::map<std::string, std::set<std::string>> ids;
    for (const auto& entry : archive) {
        if (entry.type() != EntryType::file || !lowerCasedPath(entry.path()).ends_with(".rels")) continue;
        const auto owner = ownerOfRelationshipsPart(entry.path());
        if (!owner) continue;
        for (const auto& relationship : relationshipsOf(archive, entry).value_or(std::vector<Relationship>{}))
            if (!relationship.external && gonePaths.count(lowerCasedPath(relationship.target)))
                ids[lowerCasedPath(*owner)].insert(relationship.id);
    }
    return ids;
}

std::optional<std::string> OfficePackageCheck::inconsistency(const Archive& archive) {
    if (auto reason = notAnOfficePackage(archive)) return "not an Office Open XML package: " + *reason;
    const auto stored = storedLowerPaths(archive);
    const auto types = contentTypesOf(archive);
    if (!types) return "[Content_Types].xml: not well-formed XML";
    std::map<std::string, std::set<std::string>> idsByOwner;  // lower-cased owner → relationship ids
    for (const auto& entry : archive) {
        if (entry.type() != EntryType::file) continue;
        const std::string& path = entry.path();
        const std::string lower = lowerCasedPath(path);
        if (lower != "[content_types].xml") {
            const auto dot = lower.rfind('.');
            const bool typed = types->overrides.count(lower) ||
                               (dot != std::string::npos && lower.find('/', dot) == std::string::npos &&
                                types->defaults.count(lower.substr(dot + 1)));
            if (!typed) return path + ": the part has no content type";
        }
        if (!lower.ends_with(".rels")) continue;
        const auto owner = ownerOfRelationshipsPart(path);
        if (!owner) return path + ": a relationships part outside a _rels folder";
        if (!owner->empty() && !stored.count(lowerCasedPath(*owner)))
            return path + ": describes " + *owner + ", which is not in the package";
        const auto relationships = relationshipsOf(archive, entry);
        if (!relationships) return path + ": not well-formed XML";
        auto& ids = idsByOwner[lowerCasedPath(*owner)];
        for (const auto& relationship : *relationships) {
            ids.insert(relationship.id);
            if (relationship.external || relationship.target.empty()) continue;
            const std::string target = lowerCasedPath(relationship.target);
            if (!archive[relationship.target])
                return fmt::format("{}: the target {} is not in the package", path, relationship.target);
            if (target.ends_with(".rels") || target == lowerCasedPath(*owner))
                return fmt::format("{}: the target {} is not a part it may name", path, relationship.target);
        }
    }
    for (const auto& entry : archive) {
        const std::string lower = lowerCasedPath(entry.path());
        if (entry.type() != EntryType::file || !isXMLPath(lower)) continue;
        Bytes bytes;
        if (auto problem = readWellFormedXML(archive, entry, bytes)) return problem;
        if (lower.ends_with(".rels") || lower == "[content_types].xml") continue;
        const auto text = OfficeTextEncoding::decodeXML(bytes);
        const auto owned = idsByOwner.find(lower);
        std::optional<std::string> dangling;
        const bool scanned = text && OfficeXMLDocument::scanText(*text, [&](const XMLStartTag& tag) {
            for (std::size_t i = 0; !dangling && i < tag.attributeCount(); ++i) {
                if (!isRelationshipNamespace(tag.attributeURI(i))) continue;
                const std::string id = tag.attributeValue(i);
                if (id.empty() || (owned != idsByOwner.end() && owned->second.count(id))) continue;
                dangling = fmt::format("{}: {} names relationship {}, which {} does not hold", entry.path(),
                                       tag.attributeName(i), id, relsPathOf(entry.path()));
            }
        });
        if (!scanned) return entry.path() + ": not well-formed XML";
        if (dangling) return dangling;
    }
    return std::nullopt;
}

std::optional<RelationshipReferenceRewrite> withoutRelationshipReferences(std::string_view xml,
                                                                          const std::set<std::string>& ids) {
    auto document = OfficeXMLDocument::parseText(xml);
    if (!document || !document->rootElement()) return std::nullopt;
    std::vector<XMLElement> doomed;
    std::vector<std::pair<XMLElement, std::string>> doomedAttributes;
    std::set<std::string> goneSlideIds;
    forEachElement(*document->rootElement(), [&](XMLElement& element) {
        bool hasRelationship = false;
        for (const auto& attribute : element.attributes()) {
            if (!OfficePackageCheck::isRelationshipNamespace(attribute.uri())) continue;
            hasRelationship = true;
            if (!ids.count(attribute.stringValue())) continue;
            // A hyperlink whose target went keeps its text.
            if (element.localName() == "hyperlink" || element.localName() == "hlinkClick" ||
                element.localName() == "hlinkHover") {
                doomedAttributes.emplace_back(element, attribute.name());
                continue;
            }
            if (element.localName() == "sldId")
                if (auto id = attributeValue(element, "id")) goneSlideIds.insert(*id);
            doomed.push_back(element);
            return;
        }
        // A section list names slides by their slide id; it follows the slide list.
        if (element.localName() == "sldId" && !goneSlideIds.empty()) {
            const auto id = attributeValue(element, "id");
            if (!hasRelationship && id && goneSlideIds.count(*id)) doomed.push_back(element);
        }
    });
    if (doomed.empty() && doomedAttributes.empty()) return RelationshipReferenceRewrite{std::string(xml), 0};
    for (auto& [element, name] : doomedAttributes) element.removeAttributeForName(name);
    for (auto& element : doomed)
        if (element.parent()) element.detach();
    const auto bytes = OfficeXMLDocument::serialize(*document);
    return RelationshipReferenceRewrite{std::string(bytes.begin(), bytes.end()),
                                        static_cast<int>(doomed.size() + doomedAttributes.size())};
}

}  // namespace tavrin
