#include "data/app_settings.h"

#include <algorithm>

namespace tavrin {

namespace cleanOutputModes {
const std::array<CleanOutputMode, 2>& allCases() {
    static const std::array<CleanOutputMode, 2> all{CleanOutputMode::inPlace, CleanOutputMode::copy};
    return all;
}
}  // namespace cleanOutputModes
namespace cleanCopySuffixKinds {
const std::array<CleanCopySuffixKind, 3>& allCases() {
    static const std::array<CleanCopySuffixKind, 3> all{CleanCopySuffixKind::clean, CleanCopySuffixKind::final,
                                                         CleanCopySuffixKind::custom};
    return all;
}
}  // namespace cleanCopySuffixKinds
namespace preferredEmailClients {
const std::array<PreferredEmailClient, 3>& allCases() {
    static const std::array<PreferredEmailClient, 3> all{PreferredEmailClient::thunderbird,
                                                          PreferredEmailClient::evolution, PreferredEmailClient::other};
    return all;
}
}  // namespace preferredEmailClients

std::string_view rawValue(CleanOutputMode mode) {
    switch (mode) {
        case CleanOutputMode::inPlace: return "inPlace";
        case CleanOutputMode::copy: return "copy";
    }
    return {};
}
std::string_view displayName(CleanOutputMode mode) {
    switch (mode) {
        case CleanOutputMode::inPlace: return "Clean in Place";
        case CleanOutputMode::copy: return "Always Create a Clean Copy";
    }
    return {};
}
bool preservesOriginal(CleanOutputMode mode) { return mode == CleanOutputMode::copy; }
std::optional<CleanOutputMode> cleanOutputModeFromRawValue(std::string_view raw) {
    for (auto m : cleanOutputModes::allCases())
        if (rawValue(m) == raw) return m;
    return std::nullopt;
}

std::string_view rawValue(CleanCopySuffixKind kind) {
    switch (kind) {
        case CleanCopySuffixKind::clean: return "clean";
        case CleanCopySuffixKind::final: return "final";
        case CleanCopySuffixKind::custom: return "custom";
    }
    return {};
}
std::string_view displayName(CleanCopySuffixKind kind) {
    switch (kind) {
        case CleanCopySuffixKind::clean: return "-clean";
        case CleanCopySuffixKind::final: return "-final";
        case CleanCopySuffixKind::custom: return "Custom\u2026";
    }
    return {};
}
std::optional<CleanCopySuffixKind> cleanCopySuffixKindFromRawValue(std::string_view raw) {
    for (auto k : cleanCopySuffixKinds::allCases())
        if (rawValue(k) == raw) return k;
    return std::nullopt;
}

std::string_view rawValue(PreferredEmailClient client) {
    switch (client) {
        case PreferredEmailClient::thunderbird: return "thunderbird";
        case PreferredEmailClient::evolution: return "evolution";
        case PreferredEmailClient::other: return "other";
    }
    return {};
}
std::string_view displayName(PreferredEmailClient client) {
    switch (client) {
        case PreferredEmailClient::thunderbird: return "Thunderbird";
        case PreferredEmailClient::evolution: return "Evolution";
        case PreferredEmailClient::other: return "Other (Default)";
    }
    return {};
}
std::optional<PreferredEmailClient> preferredEmailClientFromRawValue(std::string_view raw) {
    for (auto c : preferredEmailClients::allCases())
        if (rawValue(c) == raw) return c;
    return std::nullopt;
}

const Uuid& AppSettings::singletonID() {
    static const Uuid id = uuidConstant("AAAAAAAA-AAAA-AAAA-AAAA-AAAAAAAAAAAA");
    return id;
}

std::shared_ptr<AppSettings> AppSettings::makeDefault() {
    auto settings = std::make_shared<AppSettings>();
    settings->id = singletonID();
    return settings;
}

std::shared_ptr<AppSettings> AppSettings::make(Uuid id, std::optional<Uuid> defaultPresetId,
                                               PreferredEmailClient preferredEmailClient, bool autoProcessOnAdd,
                                               bool launchAtLogin, bool showMenuBarIcon,
                                               std::int64_t maxConcurrentProcessing, CleanOutputMode cleanOutputMode,
                                               CleanCopySuffixKind cleanCopySuffix, std::string cleanCopyCustomSuffix,
                                               bool stripEditHistoryInPlace, bool hasCompletedFinderSetup,
                                               bool watchedFoldersEnabled) {
    auto s = std::make_shared<AppSettings>();
    s->id = id;
    s->defaultPresetId = defaultPresetId;
    s->setPreferredEmailClient(preferredEmailClient);
    s->autoProcessOnAdd = autoProcessOnAdd;
    s->launchAtLogin = launchAtLogin;
    s->showMenuBarIcon = showMenuBarIcon;
    s->setMaxConcurrentProcessing(maxConcurrentProcessing);
    s->setCleanOutputMode(cleanOutputMode);
    s->setCleanCopySuffix(cleanCopySuffix);
    s->cleanCopyCustomSuffix = std::move(cleanCopyCustomSuffix);
    s->stripEditHistoryInPlace = stripEditHistoryInPlace;
    s->hasCompletedFinderSetup = hasCompletedFinderSetup;
    s->watchedFoldersEnabled = watchedFoldersEnabled;
    return s;
}

PreferredEmailClient AppSettings::preferredEmailClient() const {
    return preferredEmailClientFromRawValue(preferredEmailClientRaw).value_or(PreferredEmailClient::other);
}
void AppSettings::setPreferredEmailClient(PreferredEmailClient client) { preferredEmailClientRaw = rawValue(client); }
CleanOutputMode AppSettings::cleanOutputMode() const {
    return cleanOutputModeFromRawValue(cleanOutputModeRaw).value_or(CleanOutputMode::copy);
}
void AppSettings::setCleanOutputMode(CleanOutputMode mode) { cleanOutputModeRaw = rawValue(mode); }
CleanCopySuffixKind AppSettings::cleanCopySuffix() const {
    return cleanCopySuffixKindFromRawValue(cleanCopySuffixTokenRaw).value_or(CleanCopySuffixKind::clean);
}
void AppSettings::setCleanCopySuffix(CleanCopySuffixKind kind) { cleanCopySuffixTokenRaw = rawValue(kind); }
void AppSettings::setMaxConcurrentProcessing(std::int64_t value) {
    maxConcurrentProcessingValue = std::clamp(value, minimumConcurrentProcessing, maximumConcurrentProcessing);
}

const TableSpec& AppSettings::table() {
    static const TableSpec table{
        "AppSettings",
        {
            {"id", ColumnKind::text},
            {"defaultPresetId", ColumnKind::text, true},
            {"preferredEmailClientRaw", ColumnKind::text},
            {"autoProcessOnAdd", ColumnKind::integer},
            {"launchAtLogin", ColumnKind::integer},
            {"showMenuBarIcon", ColumnKind::integer},
            {"maxConcurrentProcessingValue", ColumnKind::integer},
            {"cleanOutputModeRaw", ColumnKind::text, false, "'copy'"},
            {"cleanCopySuffixTokenRaw", ColumnKind::text, false, "'clean'"},
            {"cleanCopyCustomSuffix", ColumnKind::text, false, "'-clean'"},
            {"stripEditHistoryInPlace", ColumnKind::integer, false, "0"},
            {"hasCompletedFinderSetup", ColumnKind::integer, false, "0"},
            {"watchedFoldersEnabled", ColumnKind::integer, false, "0"},
            {"watchedFolderStabilityInterval", ColumnKind::real, false, "2.0"},
            {"watchedFolderDebounceInterval", ColumnKind::real, false, "0.5"},
        },
        {},
        {},
        RecordCodec<AppSettings>::toRow,
        RecordCodec<AppSettings>::fromRow,
        RecordCodec<AppSettings>::assignRow,
    };
    return table;
}

StoreRow AppSettings::toRow() const {
    using namespace storeValue;
    return {uuid(id),
            optionalUuid(defaultPresetId),
            text(preferredEmailClientRaw),
            flag(autoProcessOnAdd),
            flag(launchAtLogin),
            flag(showMenuBarIcon),
            integer(maxConcurrentProcessingValue),
            text(cleanOutputModeRaw),
            text(cleanCopySuffixTokenRaw),
            text(cleanCopyCustomSuffix),
            flag(stripEditHistoryInPlace),
            flag(hasCompletedFinderSetup),
            flag(watchedFoldersEnabled),
            real(watchedFolderStabilityInterval),
            real(watchedFolderDebounceInterval)};
}

AppSettings AppSettings::fromRow(const StoreRow& row) {
    using namespace storeValue;
    AppSettings s;
    s.id = asUuid(row.at(0));
    s.defaultPresetId = asOptionalUuid(row.at(1));
    s.preferredEmailClientRaw = asText(row.at(2), rawValue(PreferredEmailClient::other));
    s.autoProcessOnAdd = asFlag(row.at(3));
    s.launchAtLogin = asFlag(row.at(4));
    s.showMenuBarIcon = asFlag(row.at(5));
    s.maxConcurrentProcessingValue = asInteger(row.at(6), 4);
    s.cleanOutputModeRaw = asText(row.at(7), rawValue(Defaults::cleanOutputMode));
    s.cleanCopySuffixTokenRaw = asText(row.at(8), rawValue(Defaults::cleanCopySuffix));
    s.cleanCopyCustomSuffix = asText(row.at(9), Defaults::cleanCopyCustomSuffix);
    s.stripEditHistoryInPlace = asFlag(row.at(10), Defaults::stripEditHistoryInPlace);
    s.hasCompletedFinderSetup = asFlag(row.at(11), Defaults::hasCompletedFinderSetup);
    s.watchedFoldersEnabled = asFlag(row.at(12), Defaults::watchedFoldersEnabled);
    s.watchedFolderStabilityInterval = asReal(row.at(13), Defaults::watchedFolderStabilityInterval);
    s.watchedFolderDebounceInterval = asReal(row.at(14), Defaults::watchedFolderDebounceInterval);
    return s;
}

}  // namespace tavrin
