#include "file_configuration.h"

#include <algorithm>
#include <fmt/core.h>

namespace tavrin::FileConfiguration {

namespace {

void erase(std::vector<std::string>& list, const std::string& value) {
    list.erase(std::remove(list.begin(), list.end(), value), list.end());
}

void add(std::vector<std::string>& list, const std::string& value) {
    if (std::find(list.begin(), list.end(), value) == list.end()) list.push_back(value);
}

bool named(const std::set<std::string>& keys, const MetadataItem& item) {
    return keys.count(item.id) || keys.count(item.key);
}

}  // namespace

CleaningProfile selectionProfile(const QueuedFile& file) {
    CleaningProfile profile;
    profile.name = "Custom";
    profile.categoriesToRemove = file.categoriesToRemove();
    profile.specificKeysToRemove.insert(file.specificKeysToRemove.begin(), file.specificKeysToRemove.end());
    profile.specificKeysToKeep.insert(file.specificKeysToKeep.begin(), file.specificKeysToKeep.end());
    return profile;
}

bool isMarkedForRemoval(const QueuedFile& file, const MetadataItem& item) {
    return selectionProfile(file).shouldRemove(item);
}

void setCategory(QueuedFile& file, MetadataCategory category, bool remove, const MetadataTree& tree) {
    auto categories = file.categoriesToRemove();
    if (remove) categories.insert(category);
    else categories.erase(category);
    file.setCategoriesToRemove(categories);
    for (const auto& item : tree.items(category)) {
        erase(file.specificKeysToRemove, item.id);
        erase(file.specificKeysToKeep, item.id);
    }
}

void setItem(QueuedFile& file, const MetadataItem& item, bool remove) {
    if (!item.isRemovable) return;
    erase(file.specificKeysToRemove, item.id);
    erase(file.specificKeysToKeep, item.id);
    const bool categoryRemoves = file.categoriesToRemove().count(item.category) > 0;
    if (remove && !categoryRemoves) add(file.specificKeysToRemove, item.id);
    if (!remove && categoryRemoves) add(file.specificKeysToKeep, item.id);
}

void selectionChanged(QueuedFile& file) {
    file.presetId.reset();
    const bool empty = file.categoriesToRemoveRaw.empty() && file.specificKeysToRemove.empty();
    file.userDidConfigureEmptySelection = empty;
    const auto status = file.status();
    if (status == QueuedFile::Status::staged || status == QueuedFile::Status::configured)
        file.setStatus(empty ? QueuedFile::Status::staged : QueuedFile::Status::configured);
}

std::string retainedReason(const MetadataItem& item, const CleaningProfile& profile) {
    if (!item.isRemovable) return "Needed to open the file";
    if (named(profile.specificKeysToKeep, item)) return "You chose to keep it";
    if (!profile.categoriesToRemove.count(item.category) && !named(profile.specificKeysToRemove, item))
        return fmt::format("{} was not selected", displayName(item.category));
    return "The format's writer keeps it";
}

std::string removedReason(const MetadataItem& item, const CleaningProfile& profile) {
    if (named(profile.specificKeysToRemove, item)) return "You chose to remove it";
    return fmt::format("{} selected", displayName(item.category));
}

}  // namespace tavrin::FileConfiguration
