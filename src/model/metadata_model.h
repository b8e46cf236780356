#pragma once
// The shared vocabulary of every reader and writer: items, categories, trees and summaries.

#include <array>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/file_type.h"
#include "model/metadata_category.h"
#include "model/metadata_value.h"

namespace tavrin {

namespace metadataCategories {
const std::array<MetadataCategory, 11>& allCases();
}

std::string_view rawValue(MetadataCategory category);
std::optional<MetadataCategory> metadataCategoryFromRawValue(std::string_view raw);
std::string_view displayName(MetadataCategory category);
std::string_view systemImage(MetadataCategory category);
std::string_view description(MetadataCategory category);
PrivacyLevel privacyLevel(MetadataCategory category);
const std::set<FileTypeCategory>& applicableFileTypes(MetadataCategory category);

std::string_view displayName(PrivacyLevel level);

std::string_view rawValue(MetadataSource source);
std::optional<MetadataSource> metadataSourceFromRawValue(std::string_view raw);
std::string_view displayName(MetadataSource source);

struct MetadataItem {
    std::string id;   // prefix "." key; unique in a tree, stable between reads
    std::string key;  // the raw key in the format's own spelling
    std::string displayName;
    MetadataValue value;
    MetadataCategory category;
    MetadataSource source;
    bool isRemovable;

    bool operator==(const MetadataItem&) const = default;
    std::size_t hash() const;
};

struct MetadataTreeNode {
    std::string id;
    std::string label;
    std::optional<MetadataItem> item;
    std::vector<MetadataTreeNode> children;
    std::optional<MetadataCategory> category;

    bool isLeaf() const { return children.empty() && item.has_value(); }
    bool isGroup() const { return !children.empty(); }
    // Pre-order: own item, then each child's items.
    std::vector<MetadataItem> allItems() const;

    bool operator==(const MetadataTreeNode&) const = default;
};

struct MetadataTree {
    std::vector<MetadataTreeNode> rootNodes;
    std::filesystem::path sourceURL;
    FileType fileType;

    std::vector<MetadataItem> allItems() const;
    std::size_t totalItemCount() const;
    std::vector<MetadataItem> items(MetadataCategory category) const;
    std::map<MetadataCategory, std::vector<MetadataItem>> categoryGroups() const;
    std::vector<MetadataCategory> presentCategories() const;

    static MetadataTree empty(std::filesystem::path sourceURL, FileType fileType);
    // Groups items by category in declared order; items keep input order inside a group.
    static MetadataTree build(const std::vector<MetadataItem>& items, std::filesystem::path url, FileType fileType);

    bool operator==(const MetadataTree&) const = default;
};

struct MetadataSummary {
    std::map<std::string, std::int64_t> removableCounts;  // category raw value → removable items

    static MetadataSummary from(const MetadataTree& tree);
    std::int64_t count(MetadataCategory category) const;
    std::int64_t totalRemovable() const;
    // Categories with a count, highest privacy level first; ties keep declared order.
    std::vector<MetadataCategory> presentCategories() const;
    std::optional<PrivacyLevel> topPrivacyLevel() const;

    bool operator==(const MetadataSummary&) const = default;
};

}  // namespace tavrin

template <>
struct std::hash<tavrin::MetadataItem> {
    std::size_t operator()(const tavrin::MetadataItem& item) const { return item.hash(); }
};
template <>
struct std::hash<tavrin::MetadataValue> {
    std::size_t operator()(const tavrin::MetadataValue& v) const { return v.hash(); }
};
