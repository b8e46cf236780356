#pragma once
// The stored JSON forms of the metadata model. A value is an object with exactly one key, its
// case name, around {"_0": payload}; `null` is {"null": {}}. Dates are seconds since
// 2001-01-01 UTC and bytes are base64 text, the forms earlier stores were written with.

#include <nlohmann/json.hpp>

#include "model/metadata_model.h"

namespace tavrin {

void to_json(nlohmann::json& j, const MetadataValue& value);
void from_json(const nlohmann::json& j, MetadataValue& value);  // throws nlohmann::json::exception
void to_json(nlohmann::json& j, const MetadataItem& item);
void from_json(const nlohmann::json& j, MetadataItem& item);
void to_json(nlohmann::json& j, const MetadataTreeNode& node);
void from_json(const nlohmann::json& j, MetadataTreeNode& node);
void to_json(nlohmann::json& j, const MetadataTree& tree);
void from_json(const nlohmann::json& j, MetadataTree& tree);
void to_json(nlohmann::json& j, const MetadataSummary& summary);
void from_json(const nlohmann::json& j, MetadataSummary& summary);

// "file:///a/b%20c.jpg" and back; plain paths are accepted on the way in.
std::string fileURLString(const std::filesystem::path& path);
std::filesystem::path pathFromFileURLString(const std::string& text);

}  // namespace tavrin
