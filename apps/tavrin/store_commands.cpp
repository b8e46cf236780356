#include "store_commands.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "cli.h"
#include "data/app_settings_fields.h"
#include "data/queries.h"
#include "data/shared_container.h"
#include "data/store_defaults.h"

namespace tavrin::cli {

namespace {

using nlohmann::json;

// Opens the store and brings the starter presets up to date, as the app does at each start.
std::shared_ptr<ModelContainer> openStore(const StoreCommandOptions& options) {
    auto container = options.store ? ModelContainerFactory::atURL(*options.store) : ModelContainerFactory::application();
    seedBuiltInPresetsIfNeeded(container->mainContext());
    return container;
}

std::string storeName(const ModelContainer& container) {
    const auto& configuration = container.configuration();
    return configuration.isStoredInMemoryOnly ? std::string("(in memory)") : configuration.url.string();
}

// In the record's own field order.
nlohmann::ordered_json settingsJSON(const AppSettings& settings) {
    nlohmann::ordered_json j;
    j["id"] = settings.id.uuidString();
    for (const auto& field : appSettingsFields())
        j[std::string(field.key)] = nlohmann::ordered_json::parse(field.get(settings).dump());
    return j;
}

void printSettings(const ModelContainer& container, const AppSettings& settings, bool asJSON) {
    if (asJSON) {
        std::cout << settingsJSON(settings).dump(2) << "\n";
        return;
    }
    std::cout << fmt::format("Store: {}\n", storeName(container));
    for (const auto& field : appSettingsFields())
        std::cout << fmt::format("  {:<32}{}\n", field.key, appSettingsFieldText(field, settings));
}

int showSettings(const StoreCommandOptions& options) {
    auto container = openStore(options);
    auto& context = container->mainContext();
    auto settings = currentOrNewSettings(context);
    if (context.hasChanges()) context.save();
    printSettings(*container, *settings, options.json);
    return kSuccess;
}

int setSetting(const StoreCommandOptions& options) {
    const AppSettingsField* field = appSettingsField(options.key);
    if (!field) {
        std::string keys;
        for (const auto& f : appSettingsFields()) keys += (keys.empty() ? "" : ", ") + std::string(f.key);
        std::cerr << fmt::format("tavrin: no setting \u201C{}\u201D; the settings are {}\n", options.key, keys);
        return kUsage;
    }
    auto container = openStore(options);
    auto& context = container->mainContext();
    auto settings = currentOrNewSettings(context);
    try {
        field->set(*settings, options.value);
    } catch (const SettingsValueError& e) {
        std::cerr << fmt::format("tavrin: {}: {}; it takes {}\n", field->key, e.what(), field->accepts);
        return kUsage;
    }
    context.save();
    const std::string shown = appSettingsFieldText(*field, *settings);
    if (shown != options.value)
        std::cerr << fmt::format("tavrin: {} reads as \u201C{}\u201D (it takes {})\n", field->key, shown, field->accepts);
    printSettings(*container, *settings, options.json);
    return kSuccess;
}

nlohmann::ordered_json presetJSON(const MetadataPreset& preset) {
    return {{"id", preset.id.uuidString()},
            {"name", preset.name},
            {"isBuiltIn", preset.isBuiltIn},
            {"categoriesToRemove", sortedCategoryRawValues(preset.categoriesToRemove())},
            {"specificKeysToRemove", preset.specificKeysToRemove},
            {"specificKeysToKeep", preset.specificKeysToKeep},
            {"createdAt", isoDateString(preset.createdAt)},
            {"modifiedAt", isoDateString(preset.modifiedAt)}};
}

int listPresets(const StoreCommandOptions& options) {
    auto container = openStore(options);
    auto presets = container->mainContext().fetch(PresetQueries::allPresets());
    // Starters first, then the user's own, each by name.
    std::stable_sort(presets.begin(), presets.end(), [](const auto& a, const auto& b) {
        if (a->isBuiltIn != b->isBuiltIn) return a->isBuiltIn;
        return localizedStandardCompare(a->name, b->name) < 0;
    });
    if (options.json) {
        auto list = nlohmann::ordered_json::array();
        for (const auto& p : presets) list.push_back(presetJSON(*p));
        std::cout << list.dump(2) << "\n";
        return kSuccess;
    }
    for (const auto& p : presets) {
        std::string categories;
        for (const auto& c : sortedCategoryRawValues(p->categoriesToRemove()))
            categories += (categories.empty() ? "" : ", ") + c;
        std::cout << fmt::format("{}  {:<8} {}\n    removes: {}\n", p->id.uuidString(), p->isBuiltIn ? "starter" : "custom",
                                 p->name, categories.empty() ? "nothing by category" : categories);
        if (!p->specificKeysToRemove.empty())
            std::cout << fmt::format("    also removes: {}\n", fmt::join(p->specificKeysToRemove, ", "));
        if (!p->specificKeysToKeep.empty())
            std::cout << fmt::format("    keeps: {}\n", fmt::join(p->specificKeysToKeep, ", "));
    }
    return kSuccess;
}

}  // namespace

void addStoreCommands(CLI::App& app, StoreCommandOptions& options) {
    const char* storeHelp = "Use the store at PATH instead of the user's (~/.local/share/Tavrin/Tavrin.store)";
    options.settings = app.add_subcommand("settings", "Show the settings, or change one with 'set KEY VALUE'");
    options.settings->add_flag("--json", options.json, "Print JSON");
    options.settings->add_option("--store", options.store, storeHelp);
    options.settings->require_subcommand(0, 1);
    options.settingsSet = options.settings->add_subcommand("set", "Change one setting (KEY as 'tavrin settings' shows it)");
    options.settingsSet->add_flag("--json", options.json, "Print JSON");
    options.settingsSet->add_option("--store", options.store, storeHelp);
    options.settingsSet->add_option("KEY", options.key, "The setting")->required();
    options.settingsSet->add_option("VALUE", options.value, "Its new value")->required();

    options.presets = app.add_subcommand("presets", "The cleaning presets: the starters and your own");
    options.presets->add_option("--store", options.store, storeHelp);
    options.presets->require_subcommand(1);
    options.presetsList = options.presets->add_subcommand("list", "List every preset, starters first");
    options.presetsList->add_flag("--json", options.json, "Print JSON");
    options.presetsList->add_option("--store", options.store, storeHelp);
}

std::optional<int> runStoreCommands(const StoreCommandOptions& options) {
    if (!options.settings || (!*options.settings && !*options.presets)) return std::nullopt;
    try {
        if (*options.settingsSet) return setSetting(options);
        if (*options.settings) return showSettings(options);
        return listPresets(options);
    } catch (const StoreError& e) {
        std::cerr << "tavrin: " << e.what() << "\n";
        return kFailure;
    }
}

}  // namespace tavrin::cli
