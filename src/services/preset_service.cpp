#include "services/preset_service.h"

#include <algorithm>
#include <map>

#include "data/queries.h"
#include "data/queued_file.h"

namespace tavrin {

PresetServiceError::PresetServiceError(Case c, std::string name) : case_(c), name_(std::move(name)) {
    text_ = errorDescription();
}
PresetServiceError PresetServiceError::duplicateName(std::string name) { return {Case::duplicateName, std::move(name)}; }
PresetServiceError PresetServiceError::cannotModifyBuiltIn() { return {Case::cannotModifyBuiltIn, {}}; }
PresetServiceError PresetServiceError::cannotDeleteBuiltIn() { return {Case::cannotDeleteBuiltIn, {}}; }

std::string PresetServiceError::errorDescription() const {
    switch (case_) {
        case Case::duplicateName: return "A preset named \"" + name_ + "\" already exists.";
        case Case::cannotModifyBuiltIn:
            return "Starter presets cannot be modified. Duplicate it to create a custom version.";
        case Case::cannotDeleteBuiltIn: return "Starter presets cannot be deleted.";
    }
    return {};
}

PresetService::PresetService(ModelContext& context, std::shared_ptr<ChangeNotifying> notificationService)
    : context_(context),
      notificationService_(notificationService ? std::move(notificationService)
                                               : std::make_shared<SilentChangeNotifier>()) {}

bool PresetService::seedBuiltInPresetsIfNeeded() {
    const Date now = std::chrono::system_clock::now();
    std::map<std::string, std::shared_ptr<MetadataPreset>> stored;
    for (auto& preset : context_.fetch(PresetQueries::builtInPresets())) stored[preset->id.uuidString()] = preset;
    bool changed = false;
    for (const auto factory : MetadataPreset::builtInFactories()) {
        auto definition = factory(now);
        const auto it = stored.find(definition->id.uuidString());
        if (it != stored.end()) {
            changed = it->second->syncStarterDefinition(*definition, now) || changed;
        } else {
            context_.insert(definition);
            changed = true;
        }
    }
    if (changed) context_.save();
    return changed;
}

std::shared_ptr<MetadataPreset> PresetService::createPreset(const std::string& name,
                                                            const std::set<MetadataCategory>& categoriesToRemove,
                                                            const std::vector<std::string>& specificKeysToRemove,
                                                            const std::vector<std::string>& specificKeysToKeep) {
    const Date now = std::chrono::system_clock::now();
    auto preset = std::make_shared<MetadataPreset>(Uuid::random(), name, false, categoriesToRemove, specificKeysToRemove,
                                                   specificKeysToKeep, now, now);
    context_.insert(preset);
    context_.save();
    notificationService_->postPresetChanged();
    return preset;
}

std::vector<std::shared_ptr<MetadataPreset>> PresetService::fetchAllPresets() {
    auto presets = context_.fetch(PresetQueries::allPresets());
    std::stable_sort(presets.begin(), presets.end(), [](const auto& a, const auto& b) {
        if (a->isBuiltIn != b->isBuiltIn) return a->isBuiltIn;
        return localizedStandardCompare(a->name, b->name) < 0;
    });
    return presets;
}

std::vector<std::shared_ptr<MetadataPreset>> PresetService::fetchCustomPresets() {
    return context_.fetch(PresetQueries::customPresets());
}

std::shared_ptr<MetadataPreset> PresetService::fetchPreset(const Uuid& id) {
    const auto found = context_.fetch(PresetQueries::preset(id));
    return found.empty() ? nullptr : found.front();
}

void PresetService::updatePreset(const std::shared_ptr<MetadataPreset>& preset, const std::optional<std::string>& name,
                                 const std::optional<std::set<MetadataCategory>>& categoriesToRemove,
                                 const std::optional<std::vector<std::string>>& specificKeysToRemove,
                                 const std::optional<std::vector<std::string>>& specificKeysToKeep) {
    if (preset->isBuiltIn) throw PresetServiceError::cannotModifyBuiltIn();
    if (name) preset->name = *name;
    if (categoriesToRemove) preset->setCategoriesToRemove(*categoriesToRemove);
    if (specificKeysToRemove) preset->specificKeysToRemove = *specificKeysToRemove;
    if (specificKeysToKeep) preset->specificKeysToKeep = *specificKeysToKeep;
    preset->modifiedAt = std::chrono::system_clock::now();
    context_.save();
    notificationService_->postPresetChanged();
}

void PresetService::deletePreset(const std::shared_ptr<MetadataPreset>& preset) {
    if (preset->isBuiltIn) throw PresetServiceError::cannotDeleteBuiltIn();
    for (const auto& file : context_.fetch(QueueQueries::filesUsingPreset(preset->id))) {
        file->presetId.reset();
        if (file->status() == QueuedFile::Status::configured) file->setStatus(QueuedFile::Status::staged);
    }
    context_.deleteRecord(preset);
    context_.save();
    notificationService_->postPresetChanged();
}

std::shared_ptr<MetadataPreset> PresetService::duplicatePreset(const std::shared_ptr<MetadataPreset>& preset) {
    return createPreset(preset->name + " (Copy)", preset->categoriesToRemove(), preset->specificKeysToRemove,
                        preset->specificKeysToKeep);
}

}  // namespace tavrin
