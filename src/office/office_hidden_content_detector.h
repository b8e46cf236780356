#pragma once
// Finds what an Office package carries besides its visible content: macros, embedded
// objects, custom XML, links to other workbooks and external data connections. The cleaner
// removes none of these; every finding here is reported as not removable.
//
// Detectors never fail: a part that cannot be read or parsed yields no finding, or a finding
// with less detail. They only read through the archive they are given.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/metadata_model.h"
#include "office/office_package.h"
#include "zip/archive.h"

namespace tavrin {

struct OfficeHiddenContentDetector {
    // Every detector's findings, in the fixed order of the detector table.
    static std::vector<MetadataItem> detect(const Archive& archive);

    static std::vector<MetadataItem> detectVBAMacros(const Archive& archive);
    static std::vector<MetadataItem> detectEmbeddedOLEObjects(const Archive& archive);
    static std::vector<MetadataItem> detectCustomXMLParts(const Archive& archive);
    static std::vector<MetadataItem> detectExternalLinks(const Archive& archive);
    static std::vector<MetadataItem> detectConnections(const Archive& archive);

    // What kind of object an embedded entry is, by extension, else by its first bytes.
    static std::optional<std::string> embeddedTypeHint(const Entry& entry, const Archive& archive);
    // "name, namespace" of a custom XML part's root element; never its content.
    static std::optional<std::string> customXMLRootDescriptor(const Entry& entry, const Archive& archive);
    // The external targets of a part's relationships, sanitised.
    static std::vector<std::string> externalLinkTargets(std::string_view forPart, const Archive& archive);
    // A URL keeps its scheme, host and path; user, password, query and fragment go. Text
    // without a scheme comes back unchanged.
    static std::string sanitizedTarget(std::string_view target);
    // Keeps only the allow-listed keys of a connection string, so that no password or user
    // name reaches a report.
    static std::string sanitizedConnectionString(std::string_view connection);
    static std::string sanitizedConnectionTarget(const XMLElement& connection);
    // At most `count` leading bytes of the entry, inflating no more than that. Throws
    // ArchiveError when the entry cannot be read.
    static std::vector<std::uint8_t> headBytes(const Entry& entry, const Archive& archive, std::size_t count);

    // The relationships of a ".rels" part in file order; empty when it is missing or bad.
    static std::vector<OfficeRelationship> relationships(const Archive& archive, std::string_view atPath);
    // The relationship id of an element: "r:id", else "id" in the relationships namespace,
    // else any attribute with local name "id".
    static std::optional<std::string> rIdAttribute(const XMLElement& element);
};

}  // namespace tavrin
