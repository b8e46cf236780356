#pragma once
// The one writer of presets: keeps the starters in step with their definitions at each start,
// protects them from change, and announces every change.

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "data/metadata_preset.h"
#include "data/store.h"
#include "services/change_notifications.h"

namespace tavrin {

class PresetServiceError : public std::exception {
public:
    enum class Case { duplicateName, cannotModifyBuiltIn, cannotDeleteBuiltIn };

    static PresetServiceError duplicateName(std::string name);
    static PresetServiceError cannotModifyBuiltIn();
    static PresetServiceError cannotDeleteBuiltIn();

    Case errorCase() const { return case_; }
    const std::string& name() const { return name_; }
    std::string errorDescription() const;
    const char* what() const noexcept override { return text_.c_str(); }

private:
    PresetServiceError(Case c, std::string name);
    Case case_;
    std::string name_;
    std::string text_;
};

class PresetService {
public:
    PresetService(ModelContext& context, std::shared_ptr<ChangeNotifying> notificationService);

    // Brings each stored starter back to its definition and inserts the missing ones; saves only
    // when something changed. Returns true when it saved.
    bool seedBuiltInPresetsIfNeeded();

    // Takes the name as given; callers make it unique with MetadataPreset::uniqueName first.
    std::shared_ptr<MetadataPreset> createPreset(const std::string& name, const std::set<MetadataCategory>& categoriesToRemove,
                                                 const std::vector<std::string>& specificKeysToRemove,
                                                 const std::vector<std::string>& specificKeysToKeep);
    // Starters first, then custom presets, each group by name.
    std::vector<std::shared_ptr<MetadataPreset>> fetchAllPresets();
    std::vector<std::shared_ptr<MetadataPreset>> fetchCustomPresets();
    std::shared_ptr<MetadataPreset> fetchPreset(const Uuid& id);

    // An absent value leaves its field alone. Throws cannotModifyBuiltIn for a starter.
    void updatePreset(const std::shared_ptr<MetadataPreset>& preset, const std::optional<std::string>& name,
                      const std::optional<std::set<MetadataCategory>>& categoriesToRemove,
                      const std::optional<std::vector<std::string>>& specificKeysToRemove,
                      const std::optional<std::vector<std::string>>& specificKeysToKeep);
    // Its `configured` files go back to `staged`; others keep their state. Throws
    // cannotDeleteBuiltIn for a starter.
    void deletePreset(const std::shared_ptr<MetadataPreset>& preset);
    // A custom preset named name + " (Copy)" with the source's lists.
    std::shared_ptr<MetadataPreset> duplicatePreset(const std::shared_ptr<MetadataPreset>& preset);

private:
    ModelContext& context_;
    std::shared_ptr<ChangeNotifying> notificationService_;
};

}  // namespace tavrin
