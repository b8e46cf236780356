// Macros, embedded objects, custom XML, external workbook links and data connections.
#include <algorithm>
#include <array>
#include <cstring>

#include "model/data_size.h"
#include "office/office_embedded_content_detection.h"
#include "office/office_hidden_content_detector.h"

namespace tavrin {

namespace {

constexpr std::array<std::string_view, 3> embeddedObjectPrefixes = {"word/embeddings/", "xl/embeddings/",
                                                                   "ppt/embeddings/"};
constexpr std::array<std::string_view, 6> keptConnectionKeys = {"provider", "data source", "server",
                                                               "initial catalog", "database", "dsn"};
constexpr std::string_view relationshipsNamespace = "http://schemas.openxmlformats.org/officeDocument/2006/relationships";


std::string trimmed(std::string_view text) {
    const auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; };
    std::size_t start = 0;
    std::size_t end = text.size();
    while (start < end && isSpace(text[start])) ++start;
    while (end > start && isSpace(text[end - 1])) --end;
    return std::string(text.substr(start, end - start));
}

MetadataItem finding(std::string id, std::string key, std::string displayName, std::string value) {
    return MetadataItem{std::move(id), std::move(key), std::move(displayName), MetadataValue::string(std::move(value)),
                        MetadataCategory::hiddenContent, MetadataSource::zipXML, false};
}

std::string sizeText(const Entry& entry) {
    return DataSize{static_cast<std::int64_t>(std::min<std::uint64_t>(entry.uncompressedSize(), INT64_MAX))}.formatted();
}

void sortByKey(std::vector<MetadataItem>& items) {
    std::stable_sort(items.begin(), items.end(), [](const auto& a, const auto& b) { return a.key < b.key; });
}

// Ends a head-bytes extraction once enough is held; not a failure.
struct HeadBytesDone {};

// The first `count` Unicode scalars of UTF-8 text, and whether that was all of it.
std::pair<std::string, bool> scalarPrefix(std::string_view text, std::size_t count) {
    std::size_t end = 0;
    std::size_t scalars = 0;
    while (end < text.size() && scalars < count) {
        ++end;
        while (end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) ++end;
        ++scalars;
    }
    return {std::string(text.substr(0, end)), end == text.size()};
}

}  // namespace

std::vector<OfficeRelationship> OfficeHiddenContentDetector::relationships(const Archive& archive, std::string_view atPath) {
    std::vector<OfficeRelationship> found;
    const auto document = parsedPart(archive, atPath);
    if (!document) return found;
    const auto root = document->rootElement();
    if (!root) return found;
    forEachElement(*root, [&](XMLElement& element) {
        if (element.localName() != "Relationship") return;
        const auto id = element.attributeForName("Id");
        const auto type = element.attributeForName("Type");
        const auto target = element.attributeForName("Target");
        if (!id || !type || !target) return;
        const auto mode = element.attributeForName("TargetMode");
        found.push_back(OfficeRelationship{id->stringValue(), type->stringValue(), target->stringValue(),
                                           mode && lowerCasedPath(mode->stringValue()) == "external"});
    });
    return found;
}

std::optional<std::string> OfficeHiddenContentDetector::rIdAttribute(const XMLElement& element) {
    if (auto qualified = element.attributeForName("r:id"); qualified && !qualified->stringValue().empty())
        return qualified->stringValue();
    const auto attributes = element.attributes();
    for (const auto& attribute : attributes)
        if (attribute.localName() == "id" && attribute.uri() == relationshipsNamespace && !attribute.stringValue().empty())
            return attribute.stringValue();
    for (const auto& attribute : attributes)
        if (attribute.localName() == "id") {
            auto value = attribute.stringValue();
            if (!value.empty()) return value;
            break;
        }
    return std::nullopt;
}

std::vector<std::uint8_t> OfficeHiddenContentDetector::headBytes(const Entry& entry, const Archive& archive,
                                                                  std::size_t count) {
    std::vector<std::uint8_t> head;
    if (count == 0) return head;
    try {
        archive.extract(entry, count, true, nullptr, [&](std::span<const std::uint8_t> chunk) {
            const std::size_t wanted = std::min(chunk.size(), count - head.size());
            head.insert(head.end(), chunk.begin(), chunk.begin() + static_cast<std::ptrdiff_t>(wanted));
            if (head.size() >= count) throw HeadBytesDone{};
        });
    } catch (const HeadBytesDone&) {
    }
    return head;
}

std::optional<std::string> OfficeHiddenContentDetector::embeddedTypeHint(const Entry& entry, const Archive& archive) {
    const std::string name(lastPathComponent(lowerCasedPath(entry.path())));
    const auto dot = name.rfind('.');
    const std::string extension = dot == std::string::npos ? "" : name.substr(dot + 1);
    if (extension == "docx" || extension == "xlsx" || extension == "pptx") return "embedded Office document";
    if (extension == "doc" || extension == "xls" || extension == "ppt") return "legacy OLE document";
    if (extension == "pdf") return "embedded PDF";
    if (extension == "xlsb") return "binary workbook";
    std::vector<std::uint8_t> head;
    try {
        head = headBytes(entry, archive, 8);
    } catch (const ArchiveError&) {
        return std::nullopt;
    }
    static constexpr std::uint8_t ole[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
    static constexpr std::uint8_t zip[4] = {0x50, 0x4B, 0x03, 0x04};
    static constexpr std::uint8_t pdf[4] = {0x25, 0x50, 0x44, 0x46};
    if (head.size() >= 8 && std::memcmp(head.data(), ole, 8) == 0) return "OLE compound object";
    if (head.size() >= 4 && std::memcmp(head.data(), zip, 4) == 0) return "packaged (ZIP) object";
    if (head.size() >= 4 && std::memcmp(head.data(), pdf, 4) == 0) return "embedded PDF";
    return std::nullopt;
}

std::vector<MetadataItem> OfficeHiddenContentDetector::detectVBAMacros(const Archive& archive) {
    std::vector<MetadataItem> items;
    for (const auto& entry : archive) {
        if (entry.type() != EntryType::file) continue;
        const std::string name(lastPathComponent(lowerCasedPath(entry.path())));
        const std::string id = "office.hidden.vba." + entry.path();
        if (name == "vbaproject.bin")
            items.push_back(finding(id, entry.path(), "VBA macro project",
                                    "may contain author paths and names (" + sizeText(entry) + ")"));
        else if (name == "vbadata.xml")
            items.push_back(finding(id, entry.path(), "VBA macro data", entry.path()));
    }
    sortByKey(items);
    return items;
}

std::vector<MetadataItem> OfficeHiddenContentDetector::detectEmbeddedOLEObjects(const Archive& archive) {
    std::vector<MetadataItem> items;
    for (const auto& entry : archive) {
        if (entry.type() != EntryType::file) continue;
        const std::string lower = lowerCasedPath(entry.path());
        const bool underEmbeddings = std::any_of(embeddedObjectPrefixes.begin(), embeddedObjectPrefixes.end(),
                                                 [&](std::string_view prefix) { return lower.starts_with(prefix); });
        if (!underEmbeddings && !lastPathComponent(lower).starts_with("oleobject")) continue;
        const auto hint = embeddedTypeHint(entry, archive);
        const std::string size = sizeText(entry);
        items.push_back(finding("office.hidden.embedded." + entry.path(), entry.path(),
                                "Embedded Object: " + std::string(lastPathComponent(entry.path())),
                                hint ? *hint + ", " + size : size));
    }
    sortByKey(items);
    return items;
}

std::optional<std::string> OfficeHiddenContentDetector::customXMLRootDescriptor(const Entry& entry,
                                                                               const Archive& archive) {
    const auto document = parsedPart(archive, entry);
    if (!document) return std::nullopt;
    const auto root = document->rootElement();
    if (!root) return std::nullopt;
    std::string name = root->name();
    if (name.empty()) name = root->localName();
    if (name.empty()) name = "root";
    const std::string uri = root->uri();
    return uri.empty() ? name : name + ", " + uri;
}

std::vector<MetadataItem> OfficeHiddenContentDetector::detectCustomXMLParts(const Archive& archive) {
    std::vector<MetadataItem> items;
    for (const auto& entry : archive) {
        if (entry.type() != EntryType::file) continue;
        const std::string lower = lowerCasedPath(entry.path());
        const std::string_view name = lastPathComponent(lower);
        if (!lower.starts_with("customxml/") || !lower.ends_with(".xml") || lower.find("/_rels/") != std::string::npos ||
            !name.starts_with("item") || name.starts_with("itemprops"))
            continue;
        const auto descriptor = customXMLRootDescriptor(entry, archive);
        items.push_back(finding("office.hidden.customXml." + entry.path(), entry.path(),
                                descriptor ? "Custom XML data (" + *descriptor + ")" : "Custom XML data",
                                descriptor.value_or(entry.path())));
    }
    sortByKey(items);
    return items;
}

std::string OfficeHiddenContentDetector::sanitizedTarget(std::string_view target) {
    // scheme ":" [ "//" [userinfo "@"] host ] path [ "?" query ] [ "#" fragment ]. Unlike a
    // strict URL parser this also takes targets with spaces or backslashes, so that a
    // password in a sloppy link is still dropped.
    const auto colon = target.find(':');
    if (colon == std::string_view::npos || colon == 0 || !std::isalpha(static_cast<unsigned char>(target[0])))
        return std::string(target);
    for (std::size_t i = 1; i < colon; ++i) {
        const char c = target[i];
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '+' && c != '-' && c != '.') return std::string(target);
    }
    std::string_view rest = target.substr(colon + 1);
    rest = rest.substr(0, rest.find_first_of("?#"));
    std::string result(target.substr(0, colon + 1));
    if (rest.starts_with("//")) {
        const std::string_view afterSlashes = rest.substr(2);
        const auto authorityEnd = afterSlashes.find('/');
        std::string_view authority = afterSlashes.substr(0, authorityEnd);
        if (const auto at = authority.rfind('@'); at != std::string_view::npos) authority = authority.substr(at + 1);
        result += "//";
        result += authority;
        if (authorityEnd != std::string_view::npos) result += afterSlashes.substr(authorityEnd);
    } else {
        result += rest;
    }
    return result;
}

std::string OfficeHiddenContentDetector::sanitizedConnectionString(std::string_view connection) {
    std::vector<std::string> kept;
    std::size_t start = 0;
    while (start <= connection.size()) {
        const auto end = connection.find(';', start);
        const std::string_view piece = connection.substr(start, end == std::string_view::npos ? end : end - start);
        if (!piece.empty()) {
            std::string_view keyPart = piece;
            while (!keyPart.empty() && keyPart.front() == '=') keyPart.remove_prefix(1);
            keyPart = keyPart.substr(0, keyPart.find('='));
            const std::string key = lowerCasedPath(trimmed(keyPart));
            if (std::find(keptConnectionKeys.begin(), keptConnectionKeys.end(), key) != keptConnectionKeys.end())
                kept.push_back(trimmed(piece));
        }
        if (end == std::string_view::npos) break;
        start = end + 1;
    }
    if (kept.empty()) return "connection string (redacted)";
    std::string joined;
    for (const auto& piece : kept) joined += (joined.empty() ? "" : "; ") + piece;
    return joined;
}

std::string OfficeHiddenContentDetector::sanitizedConnectionTarget(const XMLElement& connection) {
    if (auto source = attributeValue(connection, "sourceFile"); source && !source->empty())
        return "file: " + sanitizedTarget(*source);
    if (auto odc = attributeValue(connection, "odcFile"); odc && !odc->empty())
        return "office data connection: " + sanitizedTarget(*odc);
    std::vector<std::string> pieces;
    forEachElement(connection, [&](XMLElement& element) {
        if (element.localName() != "dbPr") return;
        if (auto text = attributeValue(element, "connection"); text && !text->empty())
            pieces.push_back(sanitizedConnectionString(*text));
        if (auto command = attributeValue(element, "command"); command && !command->empty()) {
            auto [prefix, whole] = scalarPrefix(*command, 80);
            pieces.push_back("command: " + (whole ? *command : prefix + "\u2026"));
        }
    });
    if (pieces.empty()) return "external data connection";
    std::string joined;
    for (const auto& piece : pieces) joined += (joined.empty() ? "" : "; ") + piece;
    return joined;
}

std::vector<MetadataItem> OfficeHiddenContentDetector::detectConnections(const Archive& archive) {
    std::vector<MetadataItem> items;
    const auto document = parsedPart(archive, "xl/connections.xml");
    if (!document || !document->rootElement()) return items;
    int counter = 0;
    forEachElement(*document->rootElement(), [&](XMLElement& element) {
        if (element.localName() != "connection") return;
        std::string name;
        if (auto n = attributeValue(element, "name")) name = *n;
        else if (auto id = attributeValue(element, "id")) name = *id;
        else name = "connection" + std::to_string(counter);
        items.push_back(finding("office.hidden.connection." + std::to_string(counter) + "." + name,
                                "xl/connections.xml#" + name, "External Data Connection: " + name,
                                sanitizedConnectionTarget(element)));
        ++counter;
    });
    return items;
}

std::vector<std::string> OfficeHiddenContentDetector::externalLinkTargets(std::string_view forPart,
                                                                         const Archive& archive) {
    const auto slash = forPart.rfind('/');
    const std::string relsPath = slash == std::string_view::npos
                                     ? "_rels/" + std::string(forPart) + ".rels"
                                     : std::string(forPart.substr(0, slash)) + "/_rels/" +
                                           std::string(forPart.substr(slash + 1)) + ".rels";
    std::vector<std::string> targets;
    for (const auto& relationship : relationships(archive, relsPath))
        if (relationship.isExternal) targets.push_back(sanitizedTarget(relationship.target));
    return targets;
}

std::vector<MetadataItem> OfficeHiddenContentDetector::detectExternalLinks(const Archive& archive) {
    std::vector<MetadataItem> items;
    for (const auto& entry : archive) {
        if (entry.type() != EntryType::file) continue;
        const std::string lower = lowerCasedPath(entry.path());
        if (!lower.starts_with("xl/externallinks/") || !lower.ends_with(".xml") ||
            lower.find("/_rels/") != std::string::npos || !lastPathComponent(lower).starts_with("externallink"))
            continue;
        const auto targets = externalLinkTargets(entry.path(), archive);
        std::string value;
        for (const auto& target : targets) value += (value.empty() ? "" : "; ") + target;
        items.push_back(finding("office.hidden.externalLink." + entry.path(), entry.path(),
                                "External Workbook Link: " + std::string(lastPathComponent(entry.path())),
                                targets.empty() ? entry.path() : value));
    }
    sortByKey(items);
    return items;
}

}  // namespace tavrin
