#pragma once
// What a clean removes: whole categories, plus item keys to remove or keep.

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "model/metadata_model.h"

namespace tavrin {

struct PDFLinkPreservationOptions {
    bool preserveNavigation = true;
    bool preserveExternalHyperlinks = true;

    static PDFLinkPreservationOptions preserveAll() { return {true, true}; }
    auto operator<=>(const PDFLinkPreservationOptions&) const = default;
};

struct CleaningProfile {
    std::string name;
    std::set<MetadataCategory> categoriesToRemove;
    std::set<std::string> specificKeysToRemove;
    std::set<std::string> specificKeysToKeep;
    PDFLinkPreservationOptions pdfLinkPreservation = PDFLinkPreservationOptions::preserveAll();

    // Non-removable items stay; keep beats remove; specific keys beat categories. Keys match
    // the item's id or its bare key, case-sensitively.
    bool shouldRemove(const MetadataItem& item) const;
    // Union of both profiles, except that a link class survives only if both keep it.
    CleaningProfile merging(const CleaningProfile& other) const;
    // A variant that leaves document history in place; `second` tells whether anything changed.
    std::pair<CleaningProfile, bool> retainingDocumentHistory() const;

    static const CleaningProfile& maximumPrivacy();
    static const CleaningProfile& clientDeliverable();
    static const CleaningProfile& locationOnly();
    static const std::vector<CleaningProfile>& builtInPresets();
    // "maximum-privacy", "standard-sharing", "client-deliverable", "location-only"; anything
    // else gives the strictest profile.
    static CleaningProfile from(std::string_view presetName);
    // True when the name is one of the preset names above (case-insensitive).
    static bool isPresetName(std::string_view presetName);
    // The preset names above, in that order.
    static const std::vector<std::string_view>& presetNames();

    auto operator<=>(const CleaningProfile&) const = default;
    bool operator==(const CleaningProfile&) const = default;
};

// Item ids of Office properties that count as document history.
const std::set<std::string>& documentHistoryKeyIDs();

void to_json(nlohmann::json& j, const CleaningProfile& profile);
void from_json(const nlohmann::json& j, CleaningProfile& profile);
void to_json(nlohmann::json& j, const PDFLinkPreservationOptions& options);
void from_json(const nlohmann::json& j, PDFLinkPreservationOptions& options);

}  // namespace tavrin

template <>
struct std::hash<tavrin::CleaningProfile> {
    std::size_t operator()(const tavrin::CleaningProfile& p) const;
};
