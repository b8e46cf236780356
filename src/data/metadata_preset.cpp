#include "data/metadata_preset.h"

#include <algorithm>
#include <unordered_set>

#include "data/queued_file.h"
#include "model/metadata_model.h"

namespace tavrin {

namespace {

std::string lowerASCII(std::string text) {
    for (auto& c : text)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
    return text;
}

const TableSpec* queuedFileTable() { return &QueuedFile::table(); }

std::shared_ptr<MetadataPreset> starter(const Uuid& id, std::string name, std::set<MetadataCategory> categories, Date now) {
    return std::make_shared<MetadataPreset>(id, std::move(name), true, categories, std::vector<std::string>{},
                                            std::vector<std::string>{}, now, now);
}

}  // namespace

std::string trimmedWhitespace(std::string_view text) {
    // ASCII white space and line ends, plus the Unicode ones people paste: NEL, NBSP, the
    // line and paragraph separators and the ideographic space.
    static const std::vector<std::string_view> wide{"\xC2\x85", "\xC2\xA0", "\xE2\x80\xA8", "\xE2\x80\xA9",
                                                    "\xE3\x80\x80"};
    auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; };
    bool changed = true;
    while (changed && !text.empty()) {
        changed = false;
        if (isSpace(text.front())) { text.remove_prefix(1); changed = true; continue; }
        if (isSpace(text.back())) { text.remove_suffix(1); changed = true; continue; }
        for (auto w : wide) {
            if (text.starts_with(w)) { text.remove_prefix(w.size()); changed = true; break; }
            if (text.ends_with(w)) { text.remove_suffix(w.size()); changed = true; break; }
        }
    }
    return std::string(text);
}

std::vector<std::string> sortedCategoryRawValues(const std::set<MetadataCategory>& categories) {
    std::vector<std::string> raw;
    for (auto c : categories) raw.emplace_back(rawValue(c));
    std::sort(raw.begin(), raw.end());
    return raw;
}

std::set<MetadataCategory> categoriesFromRawValues(const std::vector<std::string>& raw) {
    std::set<MetadataCategory> out;
    for (const auto& r : raw)
        if (auto c = metadataCategoryFromRawValue(r)) out.insert(*c);
    return out;
}

MetadataPreset::MetadataPreset(Uuid id_, std::string name_, bool isBuiltIn_,
                               const std::set<MetadataCategory>& categories, std::vector<std::string> keysToRemove,
                               std::vector<std::string> keysToKeep, Date created, Date modified)
    : id(id_),
      name(std::move(name_)),
      isBuiltIn(isBuiltIn_),
      categoriesToRemoveRaw(sortedCategoryRawValues(categories)),
      specificKeysToRemove(std::move(keysToRemove)),
      specificKeysToKeep(std::move(keysToKeep)),
      createdAt(created),
      modifiedAt(modified) {}

std::set<MetadataCategory> MetadataPreset::categoriesToRemove() const {
    return categoriesFromRawValues(categoriesToRemoveRaw);
}

void MetadataPreset::setCategoriesToRemove(const std::set<MetadataCategory>& categories) {
    categoriesToRemoveRaw = sortedCategoryRawValues(categories);
}

CleaningProfile MetadataPreset::toCleaningProfile() const {
    CleaningProfile profile;
    profile.name = name;
    profile.categoriesToRemove = categoriesToRemove();
    profile.specificKeysToRemove = {specificKeysToRemove.begin(), specificKeysToRemove.end()};
    profile.specificKeysToKeep = {specificKeysToKeep.begin(), specificKeysToKeep.end()};
    profile.pdfLinkPreservation = PDFLinkPreservationOptions::preserveAll();
    return profile;
}

std::string MetadataPreset::uniqueName(std::string_view wanted, const std::vector<std::string>& existing) {
    std::string candidate = trimmedWhitespace(wanted);
    if (candidate.empty()) candidate = untitledName;
    std::unordered_set<std::string> taken;
    for (const auto& name : existing) taken.insert(lowerASCII(trimmedWhitespace(name)));
    if (!taken.count(lowerASCII(candidate))) return candidate;
    for (std::size_t n = 2;; ++n) {
        std::string numbered = candidate + " " + std::to_string(n);
        if (!taken.count(lowerASCII(numbered))) return numbered;
    }
}

std::shared_ptr<MetadataPreset> MetadataPreset::makeCustom(std::string_view name,
                                                           const std::set<MetadataCategory>& categories,
                                                           const std::vector<std::string>& existingNames, Date now) {
    return std::make_shared<MetadataPreset>(Uuid::random(), uniqueName(name, existingNames), false, categories,
                                            std::vector<std::string>{}, std::vector<std::string>{}, now, now);
}

bool MetadataPreset::syncStarterDefinition(const MetadataPreset& definition, Date now) {
    bool changed = false;
    if (name != definition.name) { name = definition.name; changed = true; }
    if (categoriesToRemoveRaw != definition.categoriesToRemoveRaw) {
        categoriesToRemoveRaw = definition.categoriesToRemoveRaw;
        changed = true;
    }
    if (specificKeysToRemove != definition.specificKeysToRemove) {
        specificKeysToRemove = definition.specificKeysToRemove;
        changed = true;
    }
    if (specificKeysToKeep != definition.specificKeysToKeep) {
        specificKeysToKeep = definition.specificKeysToKeep;
        changed = true;
    }
    if (changed) modifiedAt = now;
    return changed;
}

const Uuid& MetadataPreset::maximumPrivacyID() {
    static const Uuid id = uuidConstant("00000000-0000-0000-0000-000000000001");
    return id;
}
const Uuid& MetadataPreset::clientDeliverableID() {
    static const Uuid id = uuidConstant("00000000-0000-0000-0000-000000000002");
    return id;
}
const Uuid& MetadataPreset::locationOnlyID() {
    static const Uuid id = uuidConstant("00000000-0000-0000-0000-000000000003");
    return id;
}

std::shared_ptr<MetadataPreset> MetadataPreset::maximumPrivacy(Date now) {
    const auto& all = metadataCategories::allCases();
    return starter(maximumPrivacyID(), "Maximum Privacy", {all.begin(), all.end()}, now);
}
std::shared_ptr<MetadataPreset> MetadataPreset::clientDeliverable(Date now) {
    using enum MetadataCategory;
    return starter(clientDeliverableID(), "Standard Sharing",
                   {authorIdentity, deviceInfo, softwareInfo, documentHistory, commentsAnnotations, companyInfo, thumbnails},
                   now);
}
std::shared_ptr<MetadataPreset> MetadataPreset::locationOnly(Date now) {
    return starter(locationOnlyID(), "Location Only", {MetadataCategory::location}, now);
}

const std::vector<MetadataPreset::Factory>& MetadataPreset::builtInFactories() {
    static const std::vector<Factory> factories{&maximumPrivacy, &clientDeliverable, &locationOnly};
    return factories;
}

const TableSpec& MetadataPreset::table() {
    static const TableSpec table{
        "MetadataPreset",
        {
            {"id", ColumnKind::text},
            {"name", ColumnKind::text},
            {"isBuiltIn", ColumnKind::integer},
            {"categoriesToRemoveRaw", ColumnKind::text},
            {"specificKeysToRemove", ColumnKind::text},
            {"specificKeysToKeep", ColumnKind::text},
            {"createdAt", ColumnKind::text},
            {"modifiedAt", ColumnKind::text},
        },
        {{"MetadataPreset_isBuiltIn_name", "\"isBuiltIn\", \"name\""}},
        {{&queuedFileTable, "presetId"}},
        RecordCodec<MetadataPreset>::toRow,
        RecordCodec<MetadataPreset>::fromRow,
        RecordCodec<MetadataPreset>::assignRow,
    };
    return table;
}

StoreRow MetadataPreset::toRow() const {
    using namespace storeValue;
    return {uuid(id),
            text(name),
            flag(isBuiltIn),
            textList(categoriesToRemoveRaw),
            textList(specificKeysToRemove),
            textList(specificKeysToKeep),
            date(createdAt),
            date(modifiedAt)};
}

MetadataPreset MetadataPreset::fromRow(const StoreRow& row) {
    using namespace storeValue;
    MetadataPreset p;
    p.id = asUuid(row.at(0));
    p.name = asText(row.at(1));
    p.isBuiltIn = asFlag(row.at(2));
    p.categoriesToRemoveRaw = asTextList(row.at(3));
    p.specificKeysToRemove = asTextList(row.at(4));
    p.specificKeysToKeep = asTextList(row.at(5));
    p.createdAt = asDate(row.at(6));
    p.modifiedAt = asDate(row.at(7));
    return p;
}

}  // namespace tavrin
