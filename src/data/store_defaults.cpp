#include "data/store_defaults.h"

#include <map>

#include "data/queries.h"
#include "data/store_error.h"

namespace tavrin {

bool seedBuiltInPresetsIfNeeded(ModelContext& context, Date now) {
    std::map<std::string, std::shared_ptr<MetadataPreset>> stored;
    for (auto& preset : context.fetch(PresetQueries::builtInPresets())) stored[preset->id.uuidString()] = preset;
    bool changed = false;
    for (const auto factory : MetadataPreset::builtInFactories()) {
        auto definition = factory(now);
        auto it = stored.find(definition->id.uuidString());
        if (it != stored.end()) {
            changed = it->second->syncStarterDefinition(*definition, now) || changed;
        } else {
            context.insert(definition);
            changed = true;
        }
    }
    if (changed) context.save();
    return changed;
}

std::shared_ptr<AppSettings> currentSettings(ModelContext& context) {
    std::vector<std::shared_ptr<AppSettings>> all;
    try {
        all = context.fetch(SettingsQueries::allSettings());
    } catch (const StoreError&) {
        return nullptr;
    }
    for (auto& s : all)
        if (s->id == AppSettings::singletonID()) return s;
    return all.empty() ? nullptr : all.front();
}

std::shared_ptr<AppSettings> currentOrNewSettings(ModelContext& context) {
    if (auto settings = currentSettings(context)) return settings;
    auto settings = AppSettings::makeDefault();
    context.insert(settings);
    return settings;
}

}  // namespace tavrin
