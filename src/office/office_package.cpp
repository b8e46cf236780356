#include "office/office_package.h"

#include <algorithm>

#include "office/office_text_encoding.h"

namespace tavrin {

std::size_t OfficeRelationship::hash() const {
    std::size_t h = std::hash<std::string>{}(id);
    for (std::size_t part : {std::hash<std::string>{}(type), std::hash<std::string>{}(target), std::hash<bool>{}(isExternal)})
        h ^= part + 0x9e3779b97f4a7c15ULL + (h << 6) + (h >> 2);
    return h;
}

std::string lowerCasedPath(std::string_view path) {
    std::string lower(path);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) {
        return static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    });
    return lower;
}

std::optional<Entry> archiveEntry(std::string_view name, const Archive& archive) {
    if (auto exact = archive[name]) return exact;
    const std::string lower = lowerCasedPath(name);
    for (const auto& entry : archive)
        if (lowerCasedPath(entry.path()) == lower) return entry;
    return std::nullopt;
}

namespace {

template <typename Bytes>
Bytes extracted(const Archive& archive, const Entry& entry) {
    enforce(entry.uncompressedSize() <= maximumPartSize, ArchiveError::Case::entryExceedsSizeLimit);
    Bytes bytes;
    bytes.reserve(static_cast<std::size_t>(entry.uncompressedSize()));
    archive.extract(entry, Archive::defaultReadChunkSize, false, nullptr, [&](std::span<const std::uint8_t> chunk) {
        bytes.insert(bytes.end(), chunk.begin(), chunk.end());
    });
    return bytes;
}

}  // namespace

std::vector<std::uint8_t> extractEntry(const Archive& archive, const Entry& entry) {
    return extracted<std::vector<std::uint8_t>>(archive, entry);
}

std::string extractEntryText(const Archive& archive, const Entry& entry) { return extracted<std::string>(archive, entry); }

}  // namespace tavrin

namespace tavrin {

std::optional<XMLDocument> parsedPart(const Archive& archive, const Entry& entry) {
    std::optional<std::string> text;
    try {
        // Decoded where it was inflated, and parsed where it lies: one copy of the part at most.
        text = OfficeTextEncoding::decodeXML(extractEntryText(archive, entry));
    } catch (const ArchiveError&) {
        return std::nullopt;
    }
    if (!text) return std::nullopt;
    return OfficeXMLDocument::parseText(*text);
}

std::optional<std::string> partText(const Archive& archive, std::string_view name) {
    const auto entry = archiveEntry(name, archive);
    if (!entry) return std::nullopt;
    try {
        return OfficeTextEncoding::decodeXML(extractEntryText(archive, *entry));
    } catch (const ArchiveError&) {
        return std::nullopt;
    }
}

std::optional<XMLDocument> parsedPart(const Archive& archive, std::string_view name) {
    const auto entry = archiveEntry(name, archive);
    if (!entry) return std::nullopt;
    return parsedPart(archive, *entry);
}

std::optional<std::string> attributeValue(const XMLElement& element, std::string_view localName) {
    for (const auto& attribute : element.attributes())
        if (attribute.localName() == localName) return attribute.stringValue();
    return std::nullopt;
}

std::string_view lastPathComponent(std::string_view path) {
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

}  // namespace tavrin
