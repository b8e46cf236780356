#include "office/office_package_cleaner.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <optional>
#include <vector>

#include "model/pipeline_error.h"
#include "office/office_dropped_parts.h"
#include "office/office_hidden_content_detector.h"
#include "office/office_hidden_content_scrubber.h"
#include "office/office_hidden_sheet_remnants.h"
#include "office/office_media_scrubber.h"
#include "office/office_metadata_writer.h"
#include "office/office_package.h"
#include "office/office_package_check.h"
#include "office/office_part_classifier.h"
#include "office/office_part_text.h"
#include "office/office_property_scrubber.h"
#include "office/office_saved_path_scrubber.h"
#include "office/office_text_encoding.h"
#include "office/office_xml_document.h"
#include "office/office_xml_scrubber.h"
#include "office/office_xml_scrubber_support.h"
#include "zip/archive.h"

namespace tavrin {

namespace {

using Accumulator = OfficeCleaningAccumulator;
using Bytes = std::vector<std::uint8_t>;


Bytes bytesOf(std::string_view text) { return Bytes(text.begin(), text.end()); }

// What the profile asks of a package, worked out once.
struct Switches {
    bool removeComments, removeThumbnails, removeHidden, removeIdentity, removeHistory, removeTimes;
    explicit Switches(const CleaningProfile& profile) {
        auto has = [&](MetadataCategory c) { return profile.categoriesToRemove.count(c) > 0; };
        removeComments = has(MetadataCategory::commentsAnnotations);
        removeThumbnails = has(MetadataCategory::thumbnails);
        removeHidden = has(MetadataCategory::hiddenContent);
        removeIdentity = has(MetadataCategory::authorIdentity);
        removeHistory = has(MetadataCategory::documentHistory);
        removeTimes = has(MetadataCategory::timestamps);
    }
    bool touchesMarkup() const { return removeIdentity || removeHistory || removeComments || removeTimes; }
};

bool isThumbnailPath(const std::string& lower) { return lower.starts_with("docprops/thumbnail."); }
bool isSatellitePath(const std::string& lower) { return lower.ends_with(".rels") || lower == "[content_types].xml"; }

// One package cleaning: the walk over the source, the transforms, and what it records.
class PackageCleaner {
public:
    PackageCleaner(const Archive& source, Archive& destination, const CleaningProfile& profile, Accumulator& accumulator)
        : source_(source), destination_(destination), profile_(profile), switches_(profile), acc_(accumulator) {}

    void run() {
        if (switches_.removeComments) vanishStyleIDs_ = OfficeXMLScrubber::vanishStyleIDs(partText(source_, "word/styles.xml"));
        if (switches_.removeHidden) {
            for (const auto& path : OfficeHiddenContentDetector::pathsToRemove(source_)) hiddenPaths_.insert(lowerCasedPath(path));
            recordHiddenRowColumnFindings();
            recordDetectOnlyLatentFindings();
            const auto hiddenSheets = OfficeHiddenContentDetector::hiddenWorksheetPaths(source_);
            hiddenSheetsGo_ = !hiddenSheets.empty();
            if (hiddenSheetsGo_) {
                // Text of a hidden sheet stays in the shared strings unless no kept sheet uses it.
                std::set<std::string> keptSheets;
                for (const auto& entry : source_) {
                    const std::string lower = lowerCasedPath(entry.path());
                    if (lower.starts_with("xl/worksheets/") && lower.ends_with(".xml") && lower.find("/_rels/") == std::string::npos &&
                        !hiddenPaths_.count(lower))
                        keptSheets.insert(entry.path());
                }
                stringsInUse_ = OfficeHiddenSheetRemnants::sharedStringsUsedBy(source_, keptSheets);
            }
        }
        if (switches_.removeIdentity) collectAlternateLinkRelationships();
        // A part that no relationship reaches is shown by no consumer and reviewed by no one.
        for (const auto& path : OfficePackageCheck::unreachableParts(source_)) orphanPaths_.insert(lowerCasedPath(path));
        // References to parts the source does not hold (fonts not embedded, parts another tool
        // removed) are dropped with the parts that leave; they were broken before cleaning.
        missingPaths_ = OfficePackageCheck::missingTargets(source_);
        // Which parts leave the package depends on their paths alone, so the whole set is known
        // before anything is written; relationships and overrides that would name a dropped part
        // are then cleared as their parts are copied, and no entry is ever rewritten.
        for (const auto& entry : source_)
            if (entry.type() == EntryType::file && dropRule(entry.path())) droppedPaths_.insert(entry.path());
        // A dropped part takes its own relationships part with it, which would otherwise describe
        // a part that is not there.
        for (const auto& entry : source_) {
            const std::string lower = lowerCasedPath(entry.path());
            if (entry.type() != EntryType::file || !lower.ends_with(".rels") || dropRule(entry.path())) continue;
            if (const auto owner = OfficePackageCheck::ownerOfRelationshipsPart(lower); owner && droppedLower().count(*owner)) {
                ownedRelationships_[lower] = *dropRule(*storedDroppedPath(*owner));
                droppedPaths_.insert(entry.path());
            }
        }

        std::set<std::string> gone = droppedLower();
        gone.insert(missingPaths_.begin(), missingPaths_.end());
        relationshipIdsGone_ = OfficePackageCheck::relationshipIdsTo(source_, gone);
        for (const auto& path : missingPaths_) acc_.recordRemoval(path, "Link to Missing Content", MetadataCategory::hiddenContent);

        for (const auto& entry : source_) {
            if (entry.type() != EntryType::file) continue;
            const std::string& path = entry.path();
            if (const auto rule = dropRule(path)) {
                acc_.recordRemoval(path, rule->first, rule->second);
                continue;
            }
            Bytes data = extracted(entry);
            const std::string lower = lowerCasedPath(path);
            if (switches_.removeComments && OfficePartClassifier::isCommentRosterPart(path)) {
                data = transformRosterPart(std::move(data), path);
            } else {
                if (switches_.removeHidden) data = scrubHiddenContent(std::move(data), path);
                data = transform(std::move(data), path);
                if (switches_.removeIdentity && lower == "xl/workbook.xml") data = withoutSavedPaths(std::move(data), path);
                if (switches_.removeIdentity && isExternalLinkPart(lower)) data = withoutAlternateAddresses(std::move(data), path);
            }
            if (const auto ids = alternateLinkRelationships_.find(lower); ids != alternateLinkRelationships_.end())
                data = withoutAlternateAddressRelationships(std::move(data), path, ids->second);
            if (isSatellitePath(lower)) {
                if (!droppedPaths_.empty() || !missingPaths_.empty()) data = withoutDanglingReferences(std::move(data), path);
            } else if (const auto ids = relationshipIdsGone_.find(lower); ids != relationshipIdsGone_.end()) {
                data = withoutReferencesTo(std::move(data), path, ids->second);
            }
            write(path, data, entry.isCompressed());
        }
    }

    const std::set<std::string>& droppedPaths() const { return droppedPaths_; }

private:
    // The display name and category of a part that leaves the package, or nothing.
    std::optional<std::pair<std::string, MetadataCategory>> dropRule(const std::string& path) const {
        const std::string lower = lowerCasedPath(path);
        if (switches_.removeComments && OfficePartClassifier::isCommentContentPart(path))
            return std::pair{std::string("Comments"), MetadataCategory::commentsAnnotations};
        if (switches_.removeThumbnails && isThumbnailPath(lower))
            return std::pair{std::string("Thumbnail"), MetadataCategory::thumbnails};
        // In lower case: the notes part of a hidden slide is named by computation, not as stored.
        if ((switches_.removeHidden && hiddenPaths_.count(lower)) || orphanPaths_.count(lower))
            return std::pair{std::string("Hidden/Orphaned part"), MetadataCategory::hiddenContent};
        // The calculation chain lists the cells of every sheet by index; Excel rebuilds it.
        if (hiddenSheetsGo_ && lower == "xl/calcchain.xml")
            return std::pair{std::string("Calculation Chain"), MetadataCategory::hiddenContent};
        if (const auto owned = ownedRelationships_.find(lower); owned != ownedRelationships_.end()) return owned->second;
        return std::nullopt;
    }

    std::set<std::string> droppedLower() const {
        std::set<std::string> out;
        for (const auto& path : droppedPaths_) out.insert(lowerCasedPath(path));
        return out;
    }

    std::optional<std::string> storedDroppedPath(const std::string& lower) const {
        for (const auto& path : droppedPaths_)
            if (lowerCasedPath(path) == lower) return path;
        return std::nullopt;
    }

    // An entry's bytes; a failure names the part and what was wrong with it.
    Bytes extracted(const Entry& entry) const {
        try {
            return extractEntry(source_, entry);
        } catch (const ArchiveError& error) {
            throw PipelineError::outputVerificationFailed(source_.url().value_or(std::filesystem::path()), entry.path() + ": " +
                                                                                         Accumulator::lowerCasedFirst(error.description()));
        }
    }

    // Every entry carries the same date, before which the ZIP format has none (1980-01-01
    // 00:00:00), and no extra-field time: a package keeps neither its past dates nor the time it
    // was cleaned, and one file cleaned twice gives the same bytes.
    void write(const std::string& path, const Bytes& data, bool compressed) {
        destination_.addEntry(path, EntryType::file, static_cast<std::int64_t>(data.size()),
                              std::chrono::system_clock::time_point{}, std::nullopt,
                              compressed ? CompressionMethod::deflate : CompressionMethod::none,
                              Archive::defaultWriteChunkSize, nullptr, [&](std::int64_t position, std::size_t size) {
                                  const auto from = static_cast<std::size_t>(position);
                                  const auto to = std::min(data.size(), from + size);
                                  return Bytes(data.begin() + static_cast<std::ptrdiff_t>(from),
                                               data.begin() + static_cast<std::ptrdiff_t>(to));
                              });
    }

    void recordHiddenRowColumnFindings() {
        for (auto& item : OfficeHiddenContentDetector::detectHiddenRowsColumns(source_)) {
            acc_.warnings.push_back({item.key, item.displayName + " (" + item.value.description() +
                                                   ") — hidden rows/columns are preserved to protect formulas; review "
                                                   "them in Excel before sharing"});
            acc_.retainedItems.push_back(std::move(item));
        }
    }

    void recordDetectOnlyLatentFindings() {
        namespace D = OfficeHiddenContentDetector;
        for (auto detect : {&D::detectEmbeddedOLEObjects, &D::detectCustomXMLParts, &D::detectVBAMacros,
                            &D::detectOffSlideShapes, &D::detectConnections, &D::detectExternalLinks}) {
            for (auto& item : detect(source_)) {
                acc_.warnings.push_back({item.key, item.displayName + " (" + item.value.description() +
                                                       ") — preserved because removal would break the document or "
                                                       "its metadata cannot be verified; review it in the source app"});
                acc_.retainedItems.push_back(std::move(item));
            }
        }
    }

    // Shared wrapper of the hidden-content scrubs: a part that does not decode or parse is a
    // failure, and its bytes stay as they were.
    template <typename Scrub>
    Bytes rewriteHiddenPart(Bytes data, const std::string& path, Scrub scrub) {
        const auto text = OfficeTextEncoding::decodeXML(data);
        std::optional<std::pair<std::string, std::vector<std::string>>> result;
        if (text) result = scrub(*text);
        if (!result) {
            acc_.fail(path, "Part could not be parsed for hidden-content scrubbing");
            return data;
        }
        if (result->second.empty()) return data;
        for (auto& label : result->second) acc_.recordRemoval(path, std::move(label), MetadataCategory::hiddenContent);
        return bytesOf(result->first);
    }

    Bytes scrubHiddenContent(Bytes data, const std::string& path) {
        using S = OfficeHiddenContentScrubber;
        using Labelled = std::optional<std::pair<std::string, std::vector<std::string>>>;
        const std::string lower = lowerCasedPath(path);
        if (lower == "xl/workbook.xml") {
            return rewriteHiddenPart(std::move(data), path, [](const std::string& xml) -> Labelled {
                // The names that belong to hidden sheets go first, while the sheets still say
                // which indices they had.
                const auto names = OfficeHiddenSheetRemnants::workbookWithoutHiddenSheetNames(xml);
                if (!names) return std::nullopt;
                auto out = S::scrubHiddenSheets(names->xml);
                if (!out) return std::nullopt;
                if (*out == xml) return std::pair{xml, std::vector<std::string>{}};
                std::vector<std::string> labels{"Hidden Worksheet"};
                labels.insert(labels.end(), static_cast<std::size_t>(names->removedCount), "Hidden Sheet Defined Name");
                return std::pair{std::move(*out), std::move(labels)};
            });
        }
        if (lower == "xl/sharedstrings.xml" && hiddenSheetsGo_) {
            return rewriteHiddenPart(std::move(data), path, [&](const std::string& xml) -> Labelled {
                if (!stringsInUse_) return std::nullopt;
                auto out = OfficeHiddenSheetRemnants::blankedSharedStrings(xml, *stringsInUse_);
                if (!out) return std::nullopt;
                if (out->removedCount == 0) return std::pair{xml, std::vector<std::string>{}};
                return std::pair{std::move(out->xml), std::vector<std::string>{"Hidden Sheet Text"}};
            });
        }
        if (lower == "ppt/presentation.xml") {
            return rewriteHiddenPart(std::move(data), path, [](const std::string& xml) -> Labelled {
                auto out = S::scrubHiddenSlides(xml);
                if (!out) return std::nullopt;
                if (*out == xml) return std::pair{xml, std::vector<std::string>{}};
                return std::pair{std::move(*out), std::vector<std::string>{"Hidden Slide"}};
            });
        }
        if (lower == "word/document.xml") {
            const bool evenAndOdd = OfficeHiddenContentDetector::evenAndOddHeadersEnabled(source_);
            return rewriteHiddenPart(std::move(data), path, [&](const std::string& xml) -> Labelled {
                auto out = S::scrubInactiveHeaderFooterReferences(xml, evenAndOdd);
                if (!out) return std::nullopt;
                std::vector<std::string> labels(static_cast<std::size_t>(out->removedCount),
                                                "Inactive Header/Footer Reference");
                return std::pair{std::move(out->xml), std::move(labels)};
            });
        }
        if (lower == "word/settings.xml") {
            return rewriteHiddenPart(std::move(data), path, [](const std::string& xml) -> Labelled {
                auto out = S::scrubLatentSettings(xml);
                if (!out) return std::nullopt;
                return std::pair{std::move(out->xml), std::move(out->removedLabels)};
            });
        }
        if (lower.starts_with("word/_rels/")) {
            return rewriteHiddenPart(std::move(data), path, [](const std::string& xml) -> Labelled {
                auto out = S::scrubLatentRelationships(xml);
                if (!out) return std::nullopt;
                if (!out->removedAny) return std::pair{xml, std::vector<std::string>{}};
                return std::pair{std::move(out->xml), std::vector<std::string>{"Latent Relationship"}};
            });
        }
        if (lower.starts_with("xl/worksheets/") && lower.find("/_rels/") == std::string::npos) {
            const auto rIds = OfficeHiddenContentDetector::printerSettingsRIds(path, droppedPaths_, source_);
            if (rIds.empty()) return data;
            return rewriteHiddenPart(std::move(data), path, [&](const std::string& xml) -> Labelled {
                auto out = S::scrubPrinterSettingsReferences(xml, rIds);
                if (!out) return std::nullopt;
                if (!out->removedAny) return std::pair{xml, std::vector<std::string>{}};
                return std::pair{std::move(out->xml), std::vector<std::string>{"Printer Settings Reference"}};
            });
        }
        return data;
    }

    bool xmlPartIsInScope(const std::string& path) const {
        const std::string lower = lowerCasedPath(path);
        if (lower == "docprops/core.xml" || lower == "docprops/app.xml" || lower == "docprops/custom.xml") return true;
        if (!switches_.touchesMarkup()) return false;
        if (lower == "xl/revisions/usernames.xml") return true;
        // Comments and rosters outside the Word vocabulary name people too; left out of scope,
        // a profile that removes authors would find them again in verification.
        if (OfficePartClassifier::isCommentContentPart(path) || OfficePartClassifier::isCommentRosterPart(path)) return true;
        if (lower.starts_with("xl/revisions/") && lower.ends_with(".xml")) return switches_.removeHistory;
        if (lower.starts_with("ppt/notesslides/") && lower.ends_with(".xml")) return true;
        return OfficePartClassifier::isWordMarkupPart(path);
    }

    Bytes transform(Bytes data, const std::string& path) {
        if (OfficeMediaScrubber::isEmbeddedMedia(path, data)) return transformMedia(std::move(data), path);
        const std::string lower = lowerCasedPath(path);
        if (!lower.ends_with(".xml")) return data;
        if (!xmlPartIsInScope(path)) return data;
        const auto text = OfficeTextEncoding::decodeXML(data);
        if (!text) {
            acc_.fail(path, "XML part could not be decoded for scrubbing");
            return data;
        }
        if (OfficePartClassifier::isCommentContentPart(path) || OfficePartClassifier::isCommentRosterPart(path) ||
            lower == "xl/revisions/usernames.xml")
            return transformIdentityPart(std::move(data), *text, path, "Comment/author part could not be parsed for scrubbing",
                                         "Comment Author");
        if (lower.starts_with("xl/revisions/")) {
            return applyScrub(std::move(data), path, OfficeXMLScrubber::emptiedRevisionPart(*text),
                              "Excel revision part could not be parsed for scrubbing", "Excel Revision History",
                              MetadataCategory::documentHistory);
        }
        if (lower.starts_with("ppt/notesslides/")) {
            return applyScrub(std::move(data), path, OfficeXMLScrubber::scrubGenericOfficePart(*text, profile_, false),
                              "Office content part could not be parsed for scrubbing");
        }
        if (lower == "docprops/core.xml" || lower == "docprops/app.xml" || lower == "docprops/custom.xml")
            return transformProperties(std::move(data), *text, path, lower);
        if (!OfficePartClassifier::isWordMarkupPart(path)) return data;
        return applyScrub(std::move(data), path, OfficeXMLScrubber::scrubWordPart(*text, profile_, vanishStyleIDs_),
                          "WordprocessingML part could not be parsed for scrubbing");
    }

    // A scrubber's answer turned into bytes: a refusal fails the part and keeps its bytes.
    Bytes applyScrub(Bytes data, const std::string& path, std::optional<std::string> scrubbed,
                     const std::string& failure, std::string itemName = {},
                     MetadataCategory category = MetadataCategory::authorIdentity) {
        if (!scrubbed) {
            acc_.fail(path, failure);
            return data;
        }
        if (!itemName.empty()) acc_.recordRemoval(path, std::move(itemName), category);
        return bytesOf(*scrubbed);
    }

    Bytes transformIdentityPart(Bytes data, const std::string& text, const std::string& path, const std::string& failure,
                                std::string itemName) {
        return applyScrub(std::move(data), path,
                          OfficeXMLScrubber::scrubIdentityFields(text, switches_.removeIdentity, switches_.removeTimes),
                          failure, std::move(itemName), MetadataCategory::authorIdentity);
    }

    Bytes transformRosterPart(Bytes data, const std::string& path) {
        const auto text = OfficeTextEncoding::decodeXML(data);
        if (!text) {
            acc_.fail(path, "Roster part could not be decoded for scrubbing");
            return data;
        }
        // A roster exists to name people: with comments gone it is blanked whatever else the
        // profile keeps.
        return applyScrub(std::move(data), path, OfficeXMLScrubber::scrubIdentityFields(*text, true, switches_.removeTimes),
                          "Roster part could not be parsed for scrubbing", "Comment Author Roster",
                          MetadataCategory::authorIdentity);
    }

    Bytes transformProperties(Bytes data, const std::string& text, const std::string& path, const std::string& lower) {
        std::optional<OfficePropertyScrubber::Result> result;
        if (lower == "docprops/core.xml")
            result = OfficePropertyScrubber::scrubProperties(text, profile_, OfficePropertyScrubber::coreMappings());
        else if (lower == "docprops/app.xml")
            result = OfficePropertyScrubber::scrubProperties(text, profile_, OfficePropertyScrubber::appMappings());
        else
            result = OfficePropertyScrubber::scrubCustom(text, profile_);
        if (!result) {
            acc_.fail(path, "Property part could not be parsed for scrubbing");
            return data;
        }
        bool removedAny = !result->removed.empty();
        if (lower == "docprops/app.xml" && switches_.removeHidden && !hiddenPaths_.empty()) {
            // The part lists every sheet's name and slide's title; with hidden ones dropped it
            // would still name them. Office rebuilds both lists when it next saves.
            auto withoutTitles = OfficePropertyScrubber::withoutPartTitles(result->xml);
            if (!withoutTitles) {
                acc_.fail(path, "Property part could not be parsed for scrubbing");
                return data;
            }
            if (*withoutTitles != result->xml) {
                result->xml = std::move(*withoutTitles);
                acc_.recordRemoval(path, "Titles of Parts", MetadataCategory::hiddenContent);
                removedAny = true;
            }
        }
        for (auto& item : result->removed) acc_.removedItems.push_back(std::move(item));
        for (auto& item : result->retained) acc_.retainedItems.push_back(std::move(item));
        return removedAny ? bytesOf(result->xml) : data;
    }

    Bytes transformMedia(Bytes data, const std::string& path) {
        auto outcome = OfficeMediaScrubber::scrub(data, path, profile_);
        switch (outcome.kind) {
            case OfficeMediaScrubber::Outcome::Kind::unchanged: return data;
            case OfficeMediaScrubber::Outcome::Kind::unverifiable:
                acc_.fail(path, "Embedded media could not be verified free of metadata");
                return data;
            case OfficeMediaScrubber::Outcome::Kind::cleaned:
                // An image that was already clean comes back as it was and is not reported.
                if (outcome.data != data) acc_.recordRemoval(path, "Embedded Image Metadata", MetadataCategory::deviceInfo);
                return std::move(outcome.data);
        }
        return data;
    }

    static bool isExternalLinkPart(const std::string& lower) {
        return lower.starts_with("xl/externallinks/") && lower.ends_with(".xml") && lower.find("/_rels/") == std::string::npos;
    }

    // The relationships that the alternate addresses of each external link use, by the
    // lower-cased path of the link's relationships part; they leave with the addresses.
    void collectAlternateLinkRelationships() {
        for (const auto& entry : source_) {
            const std::string lower = lowerCasedPath(entry.path());
            if (entry.type() != EntryType::file || !isExternalLinkPart(lower)) continue;
            const auto text = partText(source_, entry.path());
            const auto rewrite = text ? OfficeSavedPathScrubber::scrubExternalLink(*text) : std::nullopt;
            if (!rewrite || rewrite->relationshipIds.empty()) continue;
            const auto slash = lower.rfind('/');
            alternateLinkRelationships_[lower.substr(0, slash) + "/_rels/" + lower.substr(slash + 1) + ".rels"] =
                rewrite->relationshipIds;
        }
    }

    // The part's text rewritten by `rewrite`; when the part does not decode or `rewrite` cannot
    // parse it, the part stays as it was and `failure` refuses the result.
    template <typename Rewrite>
    Bytes rewritten(Bytes data, const std::string& path, const char* failure, Rewrite rewrite) {
        const auto text = OfficeTextEncoding::decodeXML(data);
        const std::optional<std::string> result = text ? rewrite(*text) : std::nullopt;
        if (!result) {
            acc_.fail(path, failure);
            return data;
        }
        return *result == *text ? data : bytesOf(*result);
    }

    // A scrubber's rewrite, recorded as one removed item when it removed anything.
    template <typename Rewrite>
    std::optional<std::string> recorded(const std::optional<Rewrite>& rewrite, const std::string& path,
                                        const char* displayName, const std::string& text) {
        if (!rewrite) return std::nullopt;
        if (!rewrite->removedAny) return text;
        acc_.recordRemoval(path, displayName, MetadataCategory::authorIdentity);
        return rewrite->xml;
    }

    Bytes withoutAlternateAddresses(Bytes data, const std::string& path) {
        return rewritten(std::move(data), path,
                         "External link could not be parsed to remove the linked workbook's other addresses",
                         [&](const std::string& text) {
                             return recorded(OfficeSavedPathScrubber::scrubExternalLink(text), path,
                                             "Linked Workbook Addresses", text);
                         });
    }

    Bytes withoutAlternateAddressRelationships(Bytes data, const std::string& path, const std::set<std::string>& ids) {
        return rewritten(std::move(data), path,
                         "Relationships could not be parsed to remove the linked workbook's other addresses",
                         [&](const std::string& text) { return OfficeSavedPathScrubber::withoutRelationships(text, ids); });
    }

    Bytes withoutSavedPaths(Bytes data, const std::string& path) {
        return rewritten(std::move(data), path, "Workbook could not be parsed to remove the path it was saved under",
                         [&](const std::string& text) {
                             return recorded(OfficeSavedPathScrubber::scrubWorkbook(text), path, "Saved File Path", text);
                         });
    }

    // A part without the elements that use a relationship whose target left or never was.
    Bytes withoutReferencesTo(Bytes data, const std::string& path, const std::set<std::string>& ids) {
        return rewritten(std::move(data), path, "Could not be read as XML to remove links to removed content",
                         [&](const std::string& text) -> std::optional<std::string> {
                             auto rewrite = withoutRelationshipReferences(text, ids);
                             if (!rewrite) return std::nullopt;
                             return rewrite->removedCount == 0 ? text : rewrite->xml;
                         });
    }

    Bytes withoutDanglingReferences(Bytes data, const std::string& path) {
        const auto text = OfficeTextEncoding::decodeXML(data);
        if (!text) throw OfficeWriterError::satelliteDecodeFailed(path);
        const std::string lower = lowerCasedPath(path);
        std::set<std::string> gone = droppedPaths_;
        gone.insert(missingPaths_.begin(), missingPaths_.end());
        const auto scrubbed = lower == "[content_types].xml"
                                  ? scrubDanglingContentTypeOverrides(*text, gone)
                                  : scrubDanglingRelationships(*text, path, gone);
        if (!scrubbed) {
            // Left as it is, the part could still name a dropped part.
            acc_.fail(path, "Relationships could not be parsed for dangling reference cleanup");
            return data;
        }
        if (*scrubbed == *text) return data;
        return bytesOf(*scrubbed);
    }

    const Archive& source_;
    Archive& destination_;
    const CleaningProfile& profile_;
    Switches switches_;
    Accumulator& acc_;
    std::set<std::string> vanishStyleIDs_;
    std::set<std::string> hiddenPaths_;
    std::set<std::string> droppedPaths_;
    bool hiddenSheetsGo_ = false;
    std::map<std::string, std::set<std::string>> alternateLinkRelationships_;  // by lower-cased rels path
    std::optional<std::set<std::size_t>> stringsInUse_;
    std::set<std::string> orphanPaths_;   // lower case
    std::set<std::string> missingPaths_;  // lower case
    std::map<std::string, std::set<std::string>> relationshipIdsGone_;                    // by lower-cased owner
    std::map<std::string, std::pair<std::string, MetadataCategory>> ownedRelationships_;  // by lower-cased path
};

}  // namespace

void cleanOfficePackage(const Archive& source, Archive& destination, const CleaningProfile& profile,
                        OfficeCleaningAccumulator& accumulator) {
    PackageCleaner(source, destination, profile, accumulator).run();
}

}  // namespace tavrin
