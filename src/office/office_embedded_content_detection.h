#pragma once
// Macros, embedded objects, custom XML, links to other workbooks and external data connections:
// what a package carries besides its visible content and the cleaner never removes (findings not
// removable). Targets and connection strings are reported without credentials.

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "model/metadata_model.h"
#include "office/office_package.h"
#include "zip/archive.h"

namespace tavrin::OfficeHiddenContentDetector {

std::vector<MetadataItem> detectVBAMacros(const Archive& archive);
std::vector<MetadataItem> detectEmbeddedOLEObjects(const Archive& archive);
std::vector<MetadataItem> detectCustomXMLParts(const Archive& archive);
std::vector<MetadataItem> detectExternalLinks(const Archive& archive);
std::vector<MetadataItem> detectConnections(const Archive& archive);

// What kind of object an embedded entry is, by extension, else by its first bytes.
std::optional<std::string> embeddedTypeHint(const Entry& entry, const Archive& archive);
// "name, namespace" of a custom XML part's root element; never its content.
std::optional<std::string> customXMLRootDescriptor(const Entry& entry, const Archive& archive);
// The external targets of a part's relationships, sanitised.
std::vector<std::string> externalLinkTargets(std::string_view forPart, const Archive& archive);
// A URL keeps its scheme, host and path; user, password, query and fragment go. Text
// without a scheme comes back unchanged.
std::string sanitizedTarget(std::string_view target);
// Keeps only the allow-listed keys of a connection string, so that no password or user
// name reaches a report.
std::string sanitizedConnectionString(std::string_view connection);
std::string sanitizedConnectionTarget(const XMLElement& connection);
// At most `count` leading bytes of the entry, inflating no more than that. Throws
// ArchiveError when the entry cannot be read.
std::vector<std::uint8_t> headBytes(const Entry& entry, const Archive& archive, std::size_t count);

// The relationships of a ".rels" part in file order; empty when it is missing or bad.
std::vector<OfficeRelationship> relationships(const Archive& archive, std::string_view atPath);
// The relationship id of an element: "r:id", else "id" in the relationships namespace,
// else any attribute with local name "id".
std::optional<std::string> rIdAttribute(const XMLElement& element);

}  // namespace tavrin::OfficeHiddenContentDetector
