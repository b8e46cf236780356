#include "model/cleaning_profile.h"

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>

#include "model/metadata_categorizer.h"

namespace tavrin {

bool CleaningProfile::shouldRemove(const MetadataItem& item) const {
    if (!item.isRemovable) return false;
    if (specificKeysToKeep.count(item.id) || specificKeysToKeep.count(item.key)) return false;
    if (specificKeysToRemove.count(item.id) || specificKeysToRemove.count(item.key)) return true;
    return categoriesToRemove.count(item.category) > 0;
}

CleaningProfile CleaningProfile::merging(const CleaningProfile& other) const {
    CleaningProfile merged = *this;
    merged.name = name + " + " + other.name;
    merged.categoriesToRemove.insert(other.categoriesToRemove.begin(), other.categoriesToRemove.end());
    merged.specificKeysToRemove.insert(other.specificKeysToRemove.begin(), other.specificKeysToRemove.end());
    merged.specificKeysToKeep.insert(other.specificKeysToKeep.begin(), other.specificKeysToKeep.end());
    merged.pdfLinkPreservation.preserveNavigation =
        pdfLinkPreservation.preserveNavigation && other.pdfLinkPreservation.preserveNavigation;
    merged.pdfLinkPreservation.preserveExternalHyperlinks =
        pdfLinkPreservation.preserveExternalHyperlinks && other.pdfLinkPreservation.preserveExternalHyperlinks;
    return merged;
}

const std::set<std::string>& documentHistoryKeyIDs() {
    static const std::set<std::string> ids = {
        "Core.Revision", "Core.ContentStatus", "App.TotalTime",  "App.Pages",
        "App.Words",     "App.Characters",     "App.CharactersWithSpaces", "App.Lines",
        "App.Paragraphs", "App.Slides",        "App.HiddenSlides", "App.DocSecurity",
    };
    return ids;
}

std::pair<CleaningProfile, bool> CleaningProfile::retainingDocumentHistory() const {
    std::set<std::string> historyKeys;
    for (const auto& key : specificKeysToRemove) {
        if (documentHistoryKeyIDs().count(key)) {
            historyKeys.insert(key);
            continue;
        }
        const auto dot = key.find('.');
        const std::string_view source = dot == std::string::npos ? std::string_view{} : std::string_view(key).substr(0, dot);
        const std::string_view bare = dot == std::string::npos ? std::string_view(key) : std::string_view(key).substr(dot + 1);
        if (MetadataCategorizer::categorize(bare, source) == MetadataCategory::documentHistory) historyKeys.insert(key);
    }
    if (!categoriesToRemove.count(MetadataCategory::documentHistory) && historyKeys.empty()) return {*this, false};
    CleaningProfile variant = *this;
    variant.categoriesToRemove.erase(MetadataCategory::documentHistory);
    for (const auto& key : historyKeys) variant.specificKeysToRemove.erase(key);
    return {variant, true};
}

namespace {
CleaningProfile named(std::string name, std::set<MetadataCategory> categories) {
    return CleaningProfile{std::move(name), std::move(categories), {}, {}, PDFLinkPreservationOptions::preserveAll()};
}

std::string lower(std::string_view s) {
    std::string out(s);
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return std::tolower(c); });
    return out;
}
}  // namespace

const CleaningProfile& CleaningProfile::maximumPrivacy() {
    static const CleaningProfile p = named(
        "Maximum Privacy", {metadataCategories::allCases().begin(), metadataCategories::allCases().end()});
    return p;
}

const CleaningProfile& CleaningProfile::clientDeliverable() {
    using C = MetadataCategory;
    static const CleaningProfile p =
        named("Standard Sharing", {C::authorIdentity, C::deviceInfo, C::softwareInfo, C::documentHistory,
                                   C::commentsAnnotations, C::companyInfo, C::thumbnails});
    return p;
}

const CleaningProfile& CleaningProfile::locationOnly() {
    static const CleaningProfile p = named("Location Only", {MetadataCategory::location});
    return p;
}

const std::vector<CleaningProfile>& CleaningProfile::builtInPresets() {
    static const std::vector<CleaningProfile> presets = {maximumPrivacy(), clientDeliverable(), locationOnly()};
    return presets;
}

const std::vector<std::string_view>& CleaningProfile::presetNames() {
    static const std::vector<std::string_view> names = {"maximum-privacy", "standard-sharing", "client-deliverable",
                                                        "location-only"};
    return names;
}

bool CleaningProfile::isPresetName(std::string_view presetName) {
    const std::string name = lower(presetName);
    return std::find(presetNames().begin(), presetNames().end(), name) != presetNames().end();
}

CleaningProfile CleaningProfile::from(std::string_view presetName) {
    const std::string name = lower(presetName);
    if (name == "standard-sharing" || name == "client-deliverable") return clientDeliverable();
    if (name == "location-only") return locationOnly();
    return maximumPrivacy();
}

void to_json(nlohmann::json& j, const PDFLinkPreservationOptions& o) {
    j = {{"preserveNavigation", o.preserveNavigation}, {"preserveExternalHyperlinks", o.preserveExternalHyperlinks}};
}

void from_json(const nlohmann::json& j, PDFLinkPreservationOptions& o) {
    o.preserveNavigation = j.value("preserveNavigation", true);
    o.preserveExternalHyperlinks = j.value("preserveExternalHyperlinks", true);
}

void to_json(nlohmann::json& j, const CleaningProfile& p) {
    auto categories = nlohmann::json::array();
    for (auto c : p.categoriesToRemove) categories.push_back(std::string(rawValue(c)));
    j = {{"name", p.name},
         {"categoriesToRemove", categories},
         {"specificKeysToRemove", p.specificKeysToRemove},
         {"specificKeysToKeep", p.specificKeysToKeep},
         {"pdfLinkPreservation", p.pdfLinkPreservation}};
}

void from_json(const nlohmann::json& j, CleaningProfile& p) {
    p.name = j.at("name").get<std::string>();
    p.categoriesToRemove.clear();
    for (const auto& c : j.at("categoriesToRemove")) {
        auto category = metadataCategoryFromRawValue(c.get<std::string>());
        if (!category) throw nlohmann::json::other_error::create(501, "unknown category " + c.dump(), &j);
        p.categoriesToRemove.insert(*category);
    }
    p.specificKeysToRemove = j.at("specificKeysToRemove").get<std::set<std::string>>();
    p.specificKeysToKeep = j.at("specificKeysToKeep").get<std::set<std::string>>();
    p.pdfLinkPreservation = j.contains("pdfLinkPreservation") ? j.at("pdfLinkPreservation").get<PDFLinkPreservationOptions>()
                                                               : PDFLinkPreservationOptions::preserveAll();
}

}  // namespace tavrin

std::size_t std::hash<tavrin::CleaningProfile>::operator()(const tavrin::CleaningProfile& p) const {
    std::size_t h = std::hash<std::string>{}(p.name);
    auto mix = [&h](std::size_t v) { tavrin::hashCombine(h, v); };
    for (auto c : p.categoriesToRemove) mix(static_cast<std::size_t>(c));
    for (const auto& k : p.specificKeysToRemove) mix(std::hash<std::string>{}(k));
    mix(0x5bd1e995);
    for (const auto& k : p.specificKeysToKeep) mix(std::hash<std::string>{}(k));
    mix(p.pdfLinkPreservation.preserveNavigation);
    mix(p.pdfLinkPreservation.preserveExternalHyperlinks);
    return h;
}
