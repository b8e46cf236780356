#pragma once
// What every Office component needs of a package: its relationship record, case-insensitive
// part look-up, and reading a part whole under a size cap.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zip/archive.h"

namespace tavrin {

// One `Relationship` element of a ".rels" part.
struct OfficeRelationship {
    std::string id;
    std::string type;
    std::string target;
    bool isExternal = false;  // TargetMode is "external", in any letter case

    bool operator==(const OfficeRelationship&) const = default;
    std::size_t hash() const;
};

// Part paths are compared in lower case (ASCII).
std::string lowerCasedPath(std::string_view path);

// The entry stored under `name`, else the first whose path matches it in lower case.
std::optional<Entry> archiveEntry(std::string_view name, const Archive& archive);

// Parts larger than this are not read whole into memory; a real property or relationship
// part is a few kilobytes.
inline constexpr std::uint64_t maximumPartSize = 256ull << 20;

// The whole decompressed part, checksum tested. Throws ArchiveError, including
// `entryExceedsSizeLimit` for a part over `maximumPartSize`.
std::vector<std::uint8_t> extractEntry(const Archive& archive, const Entry& entry);
// The same bytes in a string, ready to be decoded in place as a part's text.
std::string extractEntryText(const Archive& archive, const Entry& entry);

}  // namespace tavrin

template <>
struct std::hash<tavrin::OfficeRelationship> {
    std::size_t operator()(const tavrin::OfficeRelationship& r) const { return r.hash(); }
};

#include "office/office_xml_document.h"

namespace tavrin {

// A part by name (exact, then in lower case), extracted and parsed under the gates of
// OfficeXMLDocument. Nothing when it is missing, unreadable, too large or not acceptable XML.
std::optional<XMLDocument> parsedPart(const Archive& archive, std::string_view name);
std::optional<XMLDocument> parsedPart(const Archive& archive, const Entry& entry);
// The decoded text of a part, for callers that read it without a tree. Nothing when it is
// missing, unreadable, too large or not text.
std::optional<std::string> partText(const Archive& archive, std::string_view name);

// The value of the first attribute of `element` with this local name, whatever its prefix.
std::optional<std::string> attributeValue(const XMLElement& element, std::string_view localName);

// The last component of a part path.
std::string_view lastPathComponent(std::string_view path);

}  // namespace tavrin
