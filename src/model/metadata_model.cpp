#include "model/metadata_model.h"

#include <algorithm>

namespace tavrin {

namespace {

struct CategoryRow {
    std::string_view raw, displayName, systemImage, description;
    PrivacyLevel level;
    std::set<FileTypeCategory> applicable;
};

const std::vector<CategoryRow>& categoryTable() {
    using F = FileTypeCategory;
    const std::set<F> all{F::image, F::document, F::officeDocument, F::legacyOfficeDocument, F::video, F::audio};
    const std::set<F> documents{F::document, F::officeDocument, F::legacyOfficeDocument};
    static const std::vector<CategoryRow> rows = {
        {"location", "Location Data", "location.fill", "GPS coordinates, altitude, location name, geotag information",
         PrivacyLevel::critical, {F::image, F::video}},
        {"deviceInfo", "Device Information", "camera.fill",
         "Camera make/model, serial number, lens information, device identifiers", PrivacyLevel::high,
         {F::image, F::video, F::audio}},
        {"authorIdentity", "Author & Identity", "person.fill", "Author name, creator, company name, email addresses",
         PrivacyLevel::critical, all},
        {"timestamps", "Timestamps", "calendar.badge.clock", "Creation date, modification date, original capture date",
         PrivacyLevel::medium, all},
        {"softwareInfo", "Software Information", "terminal.fill",
         "Creating application, version, operating system, PDF producer", PrivacyLevel::medium, all},
        {"documentHistory", "Document History", "doc.badge.clock",
         "Revision count, editing time, tracked changes, version history", PrivacyLevel::high, documents},
        {"commentsAnnotations", "Comments & Annotations", "text.bubble.fill",
         "Embedded comments, annotations, notes, hidden text", PrivacyLevel::high, documents},
        {"companyInfo", "Company Information", "building.2.fill",
         "Company name, organization, department, custom properties", PrivacyLevel::high, documents},
        {"thumbnails", "Thumbnails & Previews", "photo.fill", "Embedded thumbnail images, preview data",
         PrivacyLevel::medium, {F::image, F::document, F::officeDocument}},
        {"colorTechnical", "Color & Technical", "paintpalette.fill",
         "Color space, ICC profile, white balance, exposure settings", PrivacyLevel::low, {F::image}},
        {"hiddenContent", "Hidden & Orphaned Content", "eye.slash.fill",
         "Hidden sheets/rows/columns, hidden slides, orphaned or inactive headers/footers, document variables, "
         "mail-merge and template references, printer settings, embedded scripts and forms",
         PrivacyLevel::high, {F::officeDocument, F::document}},
    };
    return rows;
}

const CategoryRow& row(MetadataCategory c) { return categoryTable()[static_cast<std::size_t>(c)]; }

}  // namespace

const std::array<MetadataCategory, 11>& metadataCategories::allCases() {
    static const std::array<MetadataCategory, 11> all = [] {
        std::array<MetadataCategory, 11> a{};
        for (std::size_t i = 0; i < a.size(); ++i) a[i] = static_cast<MetadataCategory>(i);
        return a;
    }();
    return all;
}

std::string_view rawValue(MetadataCategory c) { return row(c).raw; }
std::string_view displayName(MetadataCategory c) { return row(c).displayName; }
std::string_view systemImage(MetadataCategory c) { return row(c).systemImage; }
std::string_view description(MetadataCategory c) { return row(c).description; }
PrivacyLevel privacyLevel(MetadataCategory c) { return row(c).level; }
const std::set<FileTypeCategory>& applicableFileTypes(MetadataCategory c) { return row(c).applicable; }

std::optional<MetadataCategory> metadataCategoryFromRawValue(std::string_view raw) {
    for (auto c : metadataCategories::allCases())
        if (rawValue(c) == raw) return c;
    return std::nullopt;
}

std::string_view displayName(PrivacyLevel level) {
    switch (level) {
        case PrivacyLevel::low: return "Low";
        case PrivacyLevel::medium: return "Medium";
        case PrivacyLevel::high: return "High";
        case PrivacyLevel::critical: return "Critical";
    }
    return {};
}

std::string_view rawValue(MetadataSource s) {
    switch (s) {
        case MetadataSource::imageIO: return "imageIO";
        case MetadataSource::pdfKit: return "pdfKit";
        case MetadataSource::avFoundation: return "avFoundation";
        case MetadataSource::zipXML: return "zipXML";
        case MetadataSource::exifTool: return "exifTool";
        case MetadataSource::unknown: return "unknown";
    }
    return {};
}

std::string_view displayName(MetadataSource s) {
    switch (s) {
        case MetadataSource::imageIO: return "ImageIO";
        case MetadataSource::pdfKit: return "PDFKit";
        case MetadataSource::avFoundation: return "AVFoundation";
        case MetadataSource::zipXML: return "Office XML";
        case MetadataSource::exifTool: return "ExifTool";
        case MetadataSource::unknown: return "Unknown";
    }
    return {};
}

std::optional<MetadataSource> metadataSourceFromRawValue(std::string_view raw) {
    for (auto s : {MetadataSource::imageIO, MetadataSource::pdfKit, MetadataSource::avFoundation,
                   MetadataSource::zipXML, MetadataSource::exifTool, MetadataSource::unknown})
        if (rawValue(s) == raw) return s;
    return std::nullopt;
}

std::size_t MetadataItem::hash() const {
    std::size_t h = std::hash<std::string>{}(id);
    auto mix = [&h](std::size_t v) { hashCombine(h, v); };
    mix(std::hash<std::string>{}(key));
    mix(std::hash<std::string>{}(displayName));
    mix(value.hash());
    mix(static_cast<std::size_t>(category));
    mix(static_cast<std::size_t>(source));
    mix(isRemovable);
    return h;
}

std::vector<MetadataItem> MetadataTreeNode::allItems() const {
    // Pre-order with an explicit stack: trees may come from decoded snapshots of any depth.
    std::vector<MetadataItem> out;
    std::vector<const MetadataTreeNode*> stack{this};
    while (!stack.empty()) {
        const MetadataTreeNode* node = stack.back();
        stack.pop_back();
        if (node->item) out.push_back(*node->item);
        for (auto it = node->children.rbegin(); it != node->children.rend(); ++it) stack.push_back(&*it);
    }
    return out;
}

std::vector<MetadataItem> MetadataTree::allItems() const {
    std::vector<MetadataItem> out;
    for (const auto& node : rootNodes) {
        auto items = node.allItems();
        out.insert(out.end(), std::make_move_iterator(items.begin()), std::make_move_iterator(items.end()));
    }
    return out;
}

std::size_t MetadataTree::totalItemCount() const { return allItems().size(); }

std::vector<MetadataItem> MetadataTree::items(MetadataCategory category) const {
    std::vector<MetadataItem> out;
    for (auto& item : allItems())
        if (item.category == category) out.push_back(std::move(item));
    return out;
}

std::map<MetadataCategory, std::vector<MetadataItem>> MetadataTree::categoryGroups() const {
    std::map<MetadataCategory, std::vector<MetadataItem>> groups;
    for (auto& item : allItems()) groups[item.category].push_back(std::move(item));
    return groups;
}

std::vector<MetadataCategory> MetadataTree::presentCategories() const {
    const auto groups = categoryGroups();
    std::vector<MetadataCategory> out;
    for (auto c : metadataCategories::allCases())
        if (groups.count(c)) out.push_back(c);
    return out;
}

MetadataTree MetadataTree::empty(std::filesystem::path sourceURL, FileType fileType) {
    return MetadataTree{{}, std::move(sourceURL), fileType};
}

MetadataTree MetadataTree::build(const std::vector<MetadataItem>& items, std::filesystem::path url, FileType fileType) {
    std::map<MetadataCategory, std::vector<const MetadataItem*>> groups;
    for (const auto& item : items) groups[item.category].push_back(&item);
    MetadataTree tree = empty(std::move(url), fileType);
    for (auto c : metadataCategories::allCases()) {
        auto it = groups.find(c);
        if (it == groups.end() || it->second.empty()) continue;
        MetadataTreeNode group{"category." + std::string(rawValue(c)), std::string(displayName(c)), std::nullopt, {}, c};
        for (const MetadataItem* item : it->second)
            group.children.push_back(
                MetadataTreeNode{item->id, item->displayName + ": " + item->value.description(), *item, {}, c});
        tree.rootNodes.push_back(std::move(group));
    }
    return tree;
}

MetadataSummary MetadataSummary::from(const MetadataTree& tree) {
    MetadataSummary summary;
    for (const auto& item : tree.allItems())
        if (item.isRemovable) ++summary.removableCounts[std::string(rawValue(item.category))];
    return summary;
}

std::int64_t MetadataSummary::count(MetadataCategory category) const {
    auto it = removableCounts.find(std::string(rawValue(category)));
    return it == removableCounts.end() ? 0 : it->second;
}

std::int64_t MetadataSummary::totalRemovable() const {
    std::int64_t total = 0;
    for (const auto& [_, n] : removableCounts) total += n;
    return total;
}

std::vector<MetadataCategory> MetadataSummary::presentCategories() const {
    std::vector<MetadataCategory> out;
    for (auto c : metadataCategories::allCases())
        if (count(c) > 0) out.push_back(c);
    std::stable_sort(out.begin(), out.end(),
                     [](MetadataCategory a, MetadataCategory b) { return privacyLevel(a) > privacyLevel(b); });
    return out;
}

std::optional<PrivacyLevel> MetadataSummary::topPrivacyLevel() const {
    auto present = presentCategories();
    if (present.empty()) return std::nullopt;
    return privacyLevel(present.front());
}

}  // namespace tavrin
