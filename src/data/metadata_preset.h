#pragma once
// A named set of what to remove: the stored form of a cleaning profile. Three starter presets
// ship with fixed ids and are kept in step with their definitions.

#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "data/store.h"
#include "model/cleaning_profile.h"
#include "model/metadata_category.h"

namespace tavrin {

struct MetadataPreset {
    // Persistent fields, in schema order. The to-many `queuedFiles` relationship is the
    // `QueuedFile.presetId` column read from the other side (`QueueQueries::filesUsingPreset`);
    // deleting a preset nullifies it.
    Uuid id;
    std::string name;
    bool isBuiltIn = false;
    std::vector<std::string> categoriesToRemoveRaw;  // sorted raw values
    std::vector<std::string> specificKeysToRemove;
    std::vector<std::string> specificKeysToKeep;
    Date createdAt{};
    Date modifiedAt{};

    static constexpr std::string_view untitledName = "Untitled Preset";

    MetadataPreset() = default;
    MetadataPreset(Uuid id, std::string name, bool isBuiltIn, const std::set<MetadataCategory>& categoriesToRemove,
                   std::vector<std::string> specificKeysToRemove, std::vector<std::string> specificKeysToKeep,
                   Date createdAt, Date modifiedAt);

    // Texts that are no category are dropped on reading and stay in the store.
    std::set<MetadataCategory> categoriesToRemove() const;
    // Stores the raw values sorted ascending, so equal sets give equal lists.
    void setCategoriesToRemove(const std::set<MetadataCategory>& categories);

    // Name, categories, both key lists as sets, and every link preserved.
    CleaningProfile toCleaningProfile() const;

    // Trimmed (empty becomes "Untitled Preset"); if it is taken, ignoring case and surrounding
    // blanks, " 2", " 3", … is appended until it is free.
    static std::string uniqueName(std::string_view wanted, const std::vector<std::string>& existing);
    static std::shared_ptr<MetadataPreset> makeCustom(std::string_view name, const std::set<MetadataCategory>& categories,
                                                      const std::vector<std::string>& existingNames,
                                                      Date now = std::chrono::system_clock::now());
    // Brings this stored starter back to `definition` field by field (name, categories, both key
    // lists); sets `modifiedAt` to `now` and returns true only when something was copied.
    bool syncStarterDefinition(const MetadataPreset& definition, Date now = std::chrono::system_clock::now());

    // The starters.
    static const Uuid& maximumPrivacyID();     // 00000000-0000-0000-0000-000000000001
    static const Uuid& clientDeliverableID();  // 00000000-0000-0000-0000-000000000002
    static const Uuid& locationOnlyID();       // 00000000-0000-0000-0000-000000000003
    static std::shared_ptr<MetadataPreset> maximumPrivacy(Date now = std::chrono::system_clock::now());
    static std::shared_ptr<MetadataPreset> clientDeliverable(Date now = std::chrono::system_clock::now());  // "Standard Sharing"
    static std::shared_ptr<MetadataPreset> locationOnly(Date now = std::chrono::system_clock::now());
    using Factory = std::shared_ptr<MetadataPreset> (*)(Date);
    static const std::vector<Factory>& builtInFactories();

    static const TableSpec& table();
    StoreRow toRow() const;
    static MetadataPreset fromRow(const StoreRow& row);
    void assignStored(MetadataPreset other) { *this = std::move(other); }
};

// The canonical stored list of a set of categories.
std::vector<std::string> sortedCategoryRawValues(const std::set<MetadataCategory>& categories);
std::set<MetadataCategory> categoriesFromRawValues(const std::vector<std::string>& raw);
// White space and line ends at both ends removed.
std::string trimmedWhitespace(std::string_view text);

}  // namespace tavrin
