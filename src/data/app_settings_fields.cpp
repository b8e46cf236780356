#include "data/app_settings_fields.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace tavrin {

namespace {

bool parseFlag(std::string_view value) {
    if (value == "true" || value == "1" || value == "yes") return true;
    if (value == "false" || value == "0" || value == "no") return false;
    throw SettingsValueError(fmt::format("\u201C{}\u201D is not true or false", value));
}

std::int64_t parseInteger(std::string_view value) {
    const std::string text(value);
    char* end = nullptr;
    errno = 0;
    const long long parsed = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || errno != 0 || *end != '\0')
        throw SettingsValueError(fmt::format("\u201C{}\u201D is not a whole number", value));
    return parsed;
}

double parseSeconds(std::string_view value) {
    const std::string text(value);
    char* end = nullptr;
    const double parsed = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !std::isfinite(parsed) || parsed < 0 || parsed > 3600)
        throw SettingsValueError(fmt::format("\u201C{}\u201D is not a number of seconds from 0 to 3600", value));
    return parsed;
}

nlohmann::json uuidJSON(const std::optional<Uuid>& id) { return id ? nlohmann::json(id->uuidString()) : nlohmann::json(); }

#define FLAG_FIELD(name)                                                                    \
    AppSettingsField {                                                                      \
        #name, "true or false", [](const AppSettings& s) { return nlohmann::json(s.name); }, \
            [](AppSettings& s, std::string_view v) { s.name = parseFlag(v); }                \
    }

}  // namespace

const std::vector<AppSettingsField>& appSettingsFields() {
    static const std::vector<AppSettingsField> fields{
        {"defaultPresetId", "a preset's UUID, or none",
         [](const AppSettings& s) { return uuidJSON(s.defaultPresetId); },
         [](AppSettings& s, std::string_view v) {
             if (v.empty() || v == "none") {
                 s.defaultPresetId.reset();
                 return;
             }
             auto id = uuidFromString(v);
             if (!id) throw SettingsValueError(fmt::format("\u201C{}\u201D is not a UUID", v));
             s.defaultPresetId = *id;
         }},
        {"preferredEmailClient", "thunderbird, evolution or other",
         [](const AppSettings& s) { return nlohmann::json(std::string(rawValue(s.preferredEmailClient()))); },
         [](AppSettings& s, std::string_view v) {
             s.setPreferredEmailClient(preferredEmailClientFromRawValue(v).value_or(PreferredEmailClient::other));
         }},
        FLAG_FIELD(autoProcessOnAdd),
        FLAG_FIELD(launchAtLogin),
        FLAG_FIELD(showMenuBarIcon),
        {"maxConcurrentProcessing", "a whole number, kept within 1 to 8",
         [](const AppSettings& s) { return nlohmann::json(s.maxConcurrentProcessing()); },
         [](AppSettings& s, std::string_view v) { s.setMaxConcurrentProcessing(parseInteger(v)); }},
        {"cleanOutputMode", "inPlace or copy",
         [](const AppSettings& s) { return nlohmann::json(std::string(rawValue(s.cleanOutputMode()))); },
         [](AppSettings& s, std::string_view v) {
             s.setCleanOutputMode(cleanOutputModeFromRawValue(v).value_or(CleanOutputMode::copy));
         }},
        {"cleanCopySuffix", "clean, final or custom",
         [](const AppSettings& s) { return nlohmann::json(std::string(rawValue(s.cleanCopySuffix()))); },
         [](AppSettings& s, std::string_view v) {
             s.setCleanCopySuffix(cleanCopySuffixKindFromRawValue(v).value_or(CleanCopySuffixKind::clean));
         }},
        {"cleanCopyCustomSuffix", "any text",
         [](const AppSettings& s) { return nlohmann::json(s.cleanCopyCustomSuffix); },
         [](AppSettings& s, std::string_view v) { s.cleanCopyCustomSuffix = std::string(v); }},
        FLAG_FIELD(stripEditHistoryInPlace),
        FLAG_FIELD(hasCompletedFinderSetup),
        FLAG_FIELD(watchedFoldersEnabled),
        {"watchedFolderStabilityInterval", "seconds, from 0 to 3600",
         [](const AppSettings& s) { return nlohmann::json(s.watchedFolderStabilityInterval); },
         [](AppSettings& s, std::string_view v) { s.watchedFolderStabilityInterval = parseSeconds(v); }},
        {"watchedFolderDebounceInterval", "seconds, from 0 to 3600",
         [](const AppSettings& s) { return nlohmann::json(s.watchedFolderDebounceInterval); },
         [](AppSettings& s, std::string_view v) { s.watchedFolderDebounceInterval = parseSeconds(v); }},
    };
    return fields;
}

const AppSettingsField* appSettingsField(std::string_view key) {
    for (const auto& field : appSettingsFields())
        if (field.key == key) return &field;
    return nullptr;
}

std::string appSettingsFieldText(const AppSettingsField& field, const AppSettings& settings) {
    const auto value = field.get(settings);
    if (value.is_null()) return "none";
    if (value.is_string()) return value.get<std::string>();
    return value.dump();
}

}  // namespace tavrin
