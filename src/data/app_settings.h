#pragma once
// The one settings record, and the enumerations it stores as raw text.

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "data/store.h"
#include "model/uuid.h"

namespace tavrin {

enum class CleanOutputMode { inPlace, copy };
enum class CleanCopySuffixKind { clean, final, custom };
// The mail programs of this platform; an unknown stored text reads as `other`, the default.
enum class PreferredEmailClient { thunderbird, evolution, other };

namespace cleanOutputModes {
const std::array<CleanOutputMode, 2>& allCases();
}
namespace cleanCopySuffixKinds {
const std::array<CleanCopySuffixKind, 3>& allCases();
}
namespace preferredEmailClients {
const std::array<PreferredEmailClient, 3>& allCases();
}

std::string_view rawValue(CleanOutputMode mode);
std::string_view displayName(CleanOutputMode mode);  // "Clean in Place", "Always Create a Clean Copy"
bool preservesOriginal(CleanOutputMode mode);
std::optional<CleanOutputMode> cleanOutputModeFromRawValue(std::string_view raw);

std::string_view rawValue(CleanCopySuffixKind kind);
std::string_view displayName(CleanCopySuffixKind kind);  // "-clean", "-final", "Custom…"
std::optional<CleanCopySuffixKind> cleanCopySuffixKindFromRawValue(std::string_view raw);

std::string_view rawValue(PreferredEmailClient client);
std::string_view displayName(PreferredEmailClient client);  // "Thunderbird", "Evolution", "Other (Default)"
std::optional<PreferredEmailClient> preferredEmailClientFromRawValue(std::string_view raw);

struct AppSettings {
    // The schema-level defaults: a store written before these fields existed reads them.
    struct Defaults {
        static constexpr CleanOutputMode cleanOutputMode = CleanOutputMode::copy;
        static constexpr CleanCopySuffixKind cleanCopySuffix = CleanCopySuffixKind::clean;
        static constexpr std::string_view cleanCopyCustomSuffix = "-clean";
        static constexpr bool stripEditHistoryInPlace = false;
        static constexpr bool hasCompletedFinderSetup = false;
        static constexpr bool watchedFoldersEnabled = false;
        // Watched folders: how long a file's size and time must stay still before it counts
        // as finished, and how long a burst of events is gathered before acting on it.
        static constexpr double watchedFolderStabilityInterval = 2.0;
        static constexpr double watchedFolderDebounceInterval = 0.5;
    };
    static constexpr std::int64_t minimumConcurrentProcessing = 1;
    static constexpr std::int64_t maximumConcurrentProcessing = 8;

    // Persistent fields, in schema order.
    Uuid id;
    std::optional<Uuid> defaultPresetId;
    std::string preferredEmailClientRaw{rawValue(PreferredEmailClient::other)};
    bool autoProcessOnAdd = false;
    bool launchAtLogin = false;
    bool showMenuBarIcon = false;
    std::int64_t maxConcurrentProcessingValue = 4;
    std::string cleanOutputModeRaw{rawValue(Defaults::cleanOutputMode)};
    std::string cleanCopySuffixTokenRaw{rawValue(Defaults::cleanCopySuffix)};
    std::string cleanCopyCustomSuffix{Defaults::cleanCopyCustomSuffix};
    bool stripEditHistoryInPlace = Defaults::stripEditHistoryInPlace;
    bool hasCompletedFinderSetup = Defaults::hasCompletedFinderSetup;
    bool watchedFoldersEnabled = Defaults::watchedFoldersEnabled;
    double watchedFolderStabilityInterval = Defaults::watchedFolderStabilityInterval;
    double watchedFolderDebounceInterval = Defaults::watchedFolderDebounceInterval;

    // "AAAAAAAA-AAAA-AAAA-AAAA-AAAAAAAAAAAA".
    static const Uuid& singletonID();
    // A new, not yet inserted record with the singleton id and the default values.
    static std::shared_ptr<AppSettings> makeDefault();
    // The initializer of the non-raw forms; `maxConcurrentProcessing` is clamped to 1 through 8.
    static std::shared_ptr<AppSettings> make(Uuid id, std::optional<Uuid> defaultPresetId,
                                             PreferredEmailClient preferredEmailClient, bool autoProcessOnAdd,
                                             bool launchAtLogin, bool showMenuBarIcon,
                                             std::int64_t maxConcurrentProcessing, CleanOutputMode cleanOutputMode,
                                             CleanCopySuffixKind cleanCopySuffix, std::string cleanCopyCustomSuffix,
                                             bool stripEditHistoryInPlace, bool hasCompletedFinderSetup,
                                             bool watchedFoldersEnabled);

    // Views. An unknown raw value reads as the fall-back; the stored text stays until a write.
    PreferredEmailClient preferredEmailClient() const;  // fall-back `other`
    void setPreferredEmailClient(PreferredEmailClient client);
    CleanOutputMode cleanOutputMode() const;  // fall-back `copy`
    void setCleanOutputMode(CleanOutputMode mode);
    CleanCopySuffixKind cleanCopySuffix() const;  // fall-back `clean`
    void setCleanCopySuffix(CleanCopySuffixKind kind);
    // Read as stored, unclamped; written clamped to 1 through 8.
    std::int64_t maxConcurrentProcessing() const { return maxConcurrentProcessingValue; }
    void setMaxConcurrentProcessing(std::int64_t value);

    static const TableSpec& table();
    StoreRow toRow() const;
    static AppSettings fromRow(const StoreRow& row);
    void assignStored(AppSettings other) { *this = std::move(other); }
};

}  // namespace tavrin
