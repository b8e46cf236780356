// What a word-processing document carries without showing it: headers and footers no page
// displays, document variables, mail merge settings, the attached template, relationships to
// data sources; and printer settings in any Office format.
#include <algorithm>
#include <array>

#include "office/office_word_latent_content_detection.h"
#include "office/office_hidden_content_detector.h"
#include "office/office_xml_scrubber.h"

namespace tavrin {

namespace {

namespace D = OfficeHiddenContentDetector;

constexpr std::array<std::string_view, 2> wordLatentRelsPaths = {"word/_rels/settings.xml.rels",
                                                                 "word/_rels/document.xml.rels"};
constexpr std::array<std::string_view, 4> latentRelationshipTypeSuffixes = {"attachedtemplate", "mailmergesource",
                                                                            "mailmergeheadersource", "recipientdata"};
constexpr std::array<std::string_view, 3> printerSettingsPrefixes = {"word/printersettings/", "xl/printersettings/",
                                                                     "ppt/printersettings/"};


std::string trimmedSlashes(std::string_view text) {
    while (!text.empty() && text.front() == '/') text.remove_prefix(1);
    while (!text.empty() && text.back() == '/') text.remove_suffix(1);
    return std::string(text);
}

MetadataItem finding(std::string id, std::string key, std::string displayName, std::string value) {
    return MetadataItem{std::move(id), std::move(key), std::move(displayName), MetadataValue::string(std::move(value)),
                        MetadataCategory::hiddenContent, MetadataSource::zipXML, true};
}

// Attributes are matched by local name, whatever their prefix.
std::optional<std::string> attribute(const XMLElement& element, std::string_view name) {
    return attributeValue(element, name);
}

std::map<std::string, std::string> firstTargetByID(const std::vector<OfficeRelationship>& relationships) {
    std::map<std::string, std::string> targets;
    for (const auto& relationship : relationships) targets.emplace(relationship.id, relationship.target);
    return targets;
}

// The stored path of the entry a package path names, exactly or in lower case.
std::string storedPath(std::string_view path, const Archive& archive) {
    if (path.empty()) return "";
    const auto entry = archiveEntry(path, archive);
    return entry ? entry->path() : "";
}

bool isLatentRelationshipType(std::string_view type) {
    const std::string lower = lowerCasedPath(type);
    const std::string_view suffix = lastPathComponent(lower);
    return std::find(latentRelationshipTypeSuffixes.begin(), latentRelationshipTypeSuffixes.end(), suffix) !=
           latentRelationshipTypeSuffixes.end();
}

// What word/document.xml says about headers and footers, read in one pass without a tree: a
// large document costs a fraction of its tree to scan, and the detectors share one scan.
struct DocumentReferences {
    struct Reference {
        std::string kind;  // "headerReference" or "footerReference"
        std::string type;  // its "type", or "default"
        std::optional<std::string> rId;
    };
    struct Section {
        bool titlePage = false;
        std::vector<Reference> references;
    };
    // The attribute with local name "id" of every reference, wherever it stands.
    std::vector<std::optional<std::string>> referenceIds;
    // Each sectPr in document order (an outer one before those inside it) with its own references.
    std::vector<Section> sections;
};

// The relationship id of a start tag, by the rule of rIdAttribute.
std::optional<std::string> rIdOf(const XMLStartTag& tag) {
    static constexpr std::string_view relationshipsNamespace =
        "http://schemas.openxmlformats.org/officeDocument/2006/relationships";
    for (std::size_t i = 0; i < tag.attributeCount(); ++i)
        if (tag.attributeName(i) == "r:id") {
            if (auto value = tag.attributeValue(i); !value.empty()) return value;
            break;
        }
    for (std::size_t i = 0; i < tag.attributeCount(); ++i)
        if (tag.attributeLocalName(i) == "id" && tag.attributeURI(i) == relationshipsNamespace)
            if (auto value = tag.attributeValue(i); !value.empty()) return value;
    for (std::size_t i = 0; i < tag.attributeCount(); ++i)
        if (tag.attributeLocalName(i) == "id") {
            if (auto value = tag.attributeValue(i); !value.empty()) return value;
            break;
        }
    return std::nullopt;
}

// Nothing when the document is missing or unusable, as a document that does not parse.
std::optional<DocumentReferences> scanDocumentReferences(const Archive& archive) {
    const auto text = partText(archive, "word/document.xml");
    if (!text) return std::nullopt;
    DocumentReferences found;
    // For each open element, the index of its section when it is a sectPr, else none.
    constexpr std::size_t none = static_cast<std::size_t>(-1);
    std::vector<std::size_t> open;
    const bool usable = OfficeXMLDocument::scanText(*text, [&](const XMLStartTag& tag) {
        open.resize(tag.depth());
        const std::size_t section = open.empty() ? none : open.back();
        const std::string_view name = tag.localName();
        if (name == "headerReference" || name == "footerReference") {
            found.referenceIds.push_back(tag.attributeValue("id"));
            if (section != none)
                found.sections[section].references.push_back(
                    {std::string(name), tag.attributeValue("type").value_or("default"), rIdOf(tag)});
        } else if (name == "titlePg" && section != none) {
            const auto value = tag.attributeValue("val");
            if (!value || !OfficeXMLScrubber::isSTOnOffFalse(*value)) found.sections[section].titlePage = true;
        }
        std::size_t own = none;
        if (name == "sectPr") {
            own = found.sections.size();
            found.sections.emplace_back();
        }
        open.push_back(own);
    });
    if (!usable) return std::nullopt;
    return found;
}

// The rule of classifyHeaderFooterReferences: first-page references need a title page, even-page
// references need even-and-odd headers, all others are active.
bool isInactiveReference(std::string_view type, bool titlePage, bool evenAndOddEnabled) {
    return (type == "first" && !titlePage) || (type == "even" && !evenAndOddEnabled);
}

std::optional<std::set<std::string>> referencedPaths(const Archive& archive,
                                                     const std::optional<DocumentReferences>& document) {
    if (!document) return std::nullopt;
    const auto rels = parsedPart(archive, "word/_rels/document.xml.rels");
    if (!rels) return std::nullopt;
    std::map<std::string, std::string> targets;
    forEachElement(*rels->rootElement(), [&](XMLElement& element) {
        if (element.localName() != "Relationship") return;
        const auto id = attribute(element, "Id");
        const auto target = attribute(element, "Target");
        // Joined without resolving: an absolute target does not match its part here.
        if (id && target) targets.emplace(*id, lowerCasedPath("word/" + trimmedSlashes(*target)));
    });
    std::set<std::string> referenced;
    for (const auto& id : document->referenceIds)
        if (id)
            if (const auto target = targets.find(*id); target != targets.end()) referenced.insert(target->second);
    return referenced;
}

D::InactiveHeaderFooterAnalysis inactiveAnalysis(const Archive& archive, const std::optional<DocumentReferences>& document) {
    D::InactiveHeaderFooterAnalysis analysis;
    if (!document) return analysis;
    const bool evenAndOdd = D::evenAndOddHeadersEnabled(archive);
    const auto targets = firstTargetByID(D::relationships(archive, "word/_rels/document.xml.rels"));
    const auto partPath = [&](const DocumentReferences::Reference& reference) -> std::string {
        if (!reference.rId) return "";
        const auto target = targets.find(*reference.rId);
        if (target == targets.end()) return "";
        const std::string& t = target->second;
        return storedPath(D::standardizedPartPath(t.starts_with("/") ? t : "word/" + t), archive);
    };
    std::set<std::string> active;
    std::vector<std::string> candidates;
    // All active references first, as the classification lists them, then the inactive ones.
    for (const auto& section : document->sections)
        for (const auto& reference : section.references)
            if (!isInactiveReference(reference.type, section.titlePage, evenAndOdd))
                if (auto path = partPath(reference); !path.empty()) active.insert(lowerCasedPath(path));
    for (const auto& section : document->sections)
        for (const auto& reference : section.references) {
            if (!isInactiveReference(reference.type, section.titlePage, evenAndOdd)) continue;
            auto path = partPath(reference);
            if (!path.empty()) candidates.push_back(path);
            analysis.inactiveReferences.push_back(D::InactiveReferenceInfo{reference.kind, reference.type, std::move(path)});
        }
    // A part that an active reference also shows stays; only the inactive reference goes.
    for (auto& candidate : candidates)
        if (!active.count(lowerCasedPath(candidate))) analysis.pathsToDrop.insert(std::move(candidate));
    return analysis;
}

// Header and footer parts of the package, by their stored paths.
std::vector<std::string> headerFooterParts(const Archive& archive) {
    std::vector<std::string> parts;
    for (const auto& entry : archive) {
        if (entry.type() != EntryType::file) continue;
        const std::string lower = lowerCasedPath(entry.path());
        const std::string_view name = lastPathComponent(lower);
        if (lower.starts_with("word/") && name.ends_with(".xml") && (name.starts_with("header") || name.starts_with("footer")))
            parts.push_back(entry.path());
    }
    return parts;
}

std::vector<MetadataItem> orphanedItems(const std::vector<std::string>& candidates,
                                        const std::optional<std::set<std::string>>& referenced) {
    std::vector<MetadataItem> items;
    // Without a reliable picture of what is referenced, nothing is called orphaned.
    if (!referenced) return items;
    for (const auto& path : candidates) {
        const std::string lower = lowerCasedPath(path);
        if (referenced->count(lower)) continue;
        const std::string_view name = lastPathComponent(lower);
        const char* word = name.starts_with("header") ? "Header" : name.starts_with("footer") ? "Footer" : "part";
        items.push_back(finding("office.hidden." + path, path, std::string("Orphaned ") + word, path));
    }
    return items;
}

}  // namespace

std::string OfficeHiddenContentDetector::standardizedPartPath(std::string_view path) {
    std::vector<std::string_view> segments;
    std::size_t start = 0;
    while (start <= path.size()) {
        std::size_t slash = path.find('/', start);
        if (slash == std::string_view::npos) slash = path.size();
        const std::string_view segment = path.substr(start, slash - start);
        if (segment == "..") {
            // Above the root there is nothing to climb to: the path stays in the package.
            if (!segments.empty()) segments.pop_back();
        } else if (!segment.empty() && segment != ".") {
            segments.push_back(segment);
        }
        start = slash + 1;
    }
    std::string joined;
    for (const auto& segment : segments) {
        if (!joined.empty()) joined += '/';
        joined += segment;
    }
    return joined;
}

// MARK: Headers and footers

bool OfficeHiddenContentDetector::evenAndOddHeadersEnabled(const Archive& archive) {
    if (!archiveEntry("word/settings.xml", archive)) return false;
    const auto settings = parsedPart(archive, "word/settings.xml");
    // Settings that cannot be judged keep even-page headers active.
    if (!settings) return true;
    bool enabled = false;
    forEachElement(*settings->rootElement(), [&](XMLElement& element) {
        if (enabled || element.localName() != "evenAndOddHeaders") return;
        for (const auto& a : element.attributes())
            if (a.localName() == "val") {
                enabled = !OfficeXMLScrubber::isSTOnOffFalse(a.stringValue());
                return;
            }
        enabled = true;
    });
    return enabled;
}

OfficeHiddenContentDetector::HeaderFooterClassification OfficeHiddenContentDetector::classifyHeaderFooterReferences(
    const XMLElement& documentRoot, bool evenAndOddEnabled) {
    HeaderFooterClassification result;
    forEachElement(documentRoot, [&](XMLElement& section) {
        if (section.localName() != "sectPr") return;
        bool titlePage = false;
        std::vector<HeaderFooterReference> references;
        for (const auto& child : section.children()) {
            const auto element = child.asElement();
            if (!element) continue;
            const std::string name = element->localName();
            if (name == "titlePg") {
                const auto value = attributeValue(*element, "val");
                if (!value || !OfficeXMLScrubber::isSTOnOffFalse(*value)) titlePage = true;
            } else if (name == "headerReference" || name == "footerReference") {
                references.push_back(HeaderFooterReference{name, attribute(*element, "type").value_or("default"),
                                                           rIdAttribute(*element), *element});
            }
        }
        for (auto& reference : references) {
            const bool inactive = (reference.type == "first" && !titlePage) || (reference.type == "even" && !evenAndOddEnabled);
            (inactive ? result.inactive : result.active).push_back(std::move(reference));
        }
    });
    return result;
}

OfficeHiddenContentDetector::InactiveHeaderFooterAnalysis OfficeHiddenContentDetector::inactiveHeaderFooterAnalysis(
    const Archive& archive) {
    return inactiveAnalysis(archive, scanDocumentReferences(archive));
}

MetadataItem OfficeHiddenContentDetector::inactiveReferenceItem(const InactiveReferenceInfo& info, std::size_t index) {
    const std::string pageWord = info.type == "first" ? "First-Page" : "Even-Page";
    const std::string partWord = info.kind == "headerReference" ? "Header" : "Footer";
    const std::string lowerPartWord = info.kind == "headerReference" ? "header" : "footer";
    const std::string i = std::to_string(index);
    return finding("office.hidden.inactiveRef." + i + "." + info.type + "." + info.kind,
                   info.partPath.empty() ? "word/document.xml#" + info.type + "." + info.kind + "." + i : info.partPath,
                   "Inactive " + pageWord + " " + partWord,
                   info.partPath.empty() ? info.type + " " + lowerPartWord + " reference" : info.partPath);
}

std::vector<MetadataItem> OfficeHiddenContentDetector::detectInactiveHeaderFooterReferences(const Archive& archive) {
    std::vector<MetadataItem> items;
    const auto analysis = inactiveHeaderFooterAnalysis(archive);
    for (std::size_t i = 0; i < analysis.inactiveReferences.size(); ++i)
        items.push_back(inactiveReferenceItem(analysis.inactiveReferences[i], i));
    return items;
}

std::optional<std::set<std::string>> OfficeHiddenContentDetector::referencedHeaderFooterPaths(const Archive& archive) {
    return referencedPaths(archive, scanDocumentReferences(archive));
}

std::vector<MetadataItem> OfficeHiddenContentDetector::detectOrphanedHeadersFooters(const Archive& archive) {
    const auto candidates = headerFooterParts(archive);
    if (candidates.empty()) return {};
    return orphanedItems(candidates, referencedHeaderFooterPaths(archive));
}

OfficeHiddenContentDetector::HeaderFooterFindings OfficeHiddenContentDetector::headerFooterFindings(const Archive& archive) {
    const auto document = scanDocumentReferences(archive);
    HeaderFooterFindings findings;
    if (const auto candidates = headerFooterParts(archive); !candidates.empty())
        findings.orphaned = orphanedItems(candidates, referencedPaths(archive, document));
    findings.inactive = inactiveAnalysis(archive, document);
    return findings;
}

std::vector<MetadataItem> OfficeHiddenContentDetector::detectHeadersAndFooters(const Archive& archive) {
    auto findings = headerFooterFindings(archive);
    auto items = std::move(findings.orphaned);
    for (std::size_t i = 0; i < findings.inactive.inactiveReferences.size(); ++i)
        items.push_back(inactiveReferenceItem(findings.inactive.inactiveReferences[i], i));
    return items;
}

// MARK: Settings

std::optional<XMLDocument> OfficeHiddenContentDetector::parsedSettingsRoot(const Archive& archive) {
    return parsedPart(archive, "word/settings.xml");
}

std::vector<MetadataItem> OfficeHiddenContentDetector::docVarItems(const XMLElement& root) {
    std::vector<MetadataItem> items;
    forEachElement(root, [&](XMLElement& element) {
        if (element.localName() != "docVar") return;
        const std::string name = attributeValue(element, "name").value_or("unnamed");
        const std::string index = std::to_string(items.size());
        items.push_back(finding("office.hidden.docvar." + index + "." + name, "word/settings.xml#docVar:" + name,
                                "Document Variable: " + name, attributeValue(element, "val").value_or("")));
    });
    return items;
}

std::vector<MetadataItem> OfficeHiddenContentDetector::attachedTemplateItems(
    const XMLElement& root, const std::map<std::string, std::string>& rIdToTarget, std::set<std::string>& consumedRIds) {
    std::vector<MetadataItem> items;
    forEachElement(root, [&](XMLElement& element) {
        if (element.localName() != "attachedTemplate") return;
        std::optional<std::string> target;
        if (const auto rId = rIdAttribute(element)) {
            consumedRIds.insert(*rId);
            if (const auto found = rIdToTarget.find(*rId); found != rIdToTarget.end()) target = found->second;
        }
        items.push_back(finding("office.hidden.attachedTemplate", "word/settings.xml#attachedTemplate",
                                "Attached Template", target.value_or("attached template reference")));
    });
    return items;
}

std::vector<MetadataItem> OfficeHiddenContentDetector::mailMergeItems(
    const XMLElement& root, const std::map<std::string, std::string>& rIdToTarget, std::set<std::string>& consumedRIds) {
    std::optional<XMLElement> mailMerge;
    forEachElement(root, [&](XMLElement& element) {
        if (!mailMerge && element.localName() == "mailMerge") mailMerge = element;
    });
    if (!mailMerge) return {};
    std::vector<std::string> parts;
    forEachElement(*mailMerge, [&](XMLElement& element) {
        if (const auto rId = rIdAttribute(element)) {
            consumedRIds.insert(*rId);
            if (const auto found = rIdToTarget.find(*rId); found != rIdToTarget.end() && !found->second.empty())
                parts.push_back(found->second);
        }
        const std::string name = element.localName();
        if (name == "query" || name == "connectString")
            if (auto value = attributeValue(element, "val"); value && !value->empty()) parts.push_back(*value);
    });
    std::string value;
    for (const auto& part : parts) value += (value.empty() ? "" : "; ") + part;
    return {finding("office.hidden.mailMerge", "word/settings.xml#mailMerge", "Mail Merge Data Source",
                    value.empty() ? "Mail merge configuration" : value)};
}

std::vector<MetadataItem> OfficeHiddenContentDetector::latentRelationshipItems(const Archive& archive,
                                                                              const std::set<std::string>& consumedRIds) {
    std::vector<MetadataItem> items;
    for (const auto relsPath : wordLatentRelsPaths) {
        const bool isSettings = relsPath == wordLatentRelsPaths[0];
        for (const auto& relationship : relationships(archive, relsPath)) {
            if (!isLatentRelationshipType(relationship.type)) continue;
            if (isSettings && consumedRIds.count(relationship.id)) continue;
            const bool isTemplate = lastPathComponent(lowerCasedPath(relationship.type)) == "attachedtemplate";
            items.push_back(finding("office.hidden.latentRel." + std::string(relsPath) + "." + relationship.id,
                                    std::string(relsPath) + "#" + relationship.id,
                                    isTemplate ? "Attached Template Reference" : "Mail Merge Data Source Reference",
                                    relationship.target));
        }
    }
    return items;
}

std::vector<MetadataItem> OfficeHiddenContentDetector::detectSettingsLatentData(const Archive& archive) {
    const auto targets = firstTargetByID(relationships(archive, wordLatentRelsPaths[0]));
    std::set<std::string> consumed;
    std::vector<MetadataItem> items;
    if (const auto settings = parsedSettingsRoot(archive)) {
        const auto root = *settings->rootElement();
        auto vars = docVarItems(root);
        items.insert(items.end(), vars.begin(), vars.end());
        auto templates = attachedTemplateItems(root, targets, consumed);
        items.insert(items.end(), templates.begin(), templates.end());
        auto merge = mailMergeItems(root, targets, consumed);
        items.insert(items.end(), merge.begin(), merge.end());
    }
    auto latent = latentRelationshipItems(archive, consumed);
    items.insert(items.end(), latent.begin(), latent.end());
    return items;
}

std::set<std::string> OfficeHiddenContentDetector::latentDataSourcePartsToDrop(const Archive& archive) {
    std::set<std::string> paths;
    for (const auto relsPath : wordLatentRelsPaths)
        for (const auto& relationship : relationships(archive, relsPath)) {
            if (relationship.isExternal || !isLatentRelationshipType(relationship.type)) continue;
            const std::string path = storedPath(standardizedPartPath("word/" + trimmedSlashes(relationship.target)), archive);
            if (!path.empty()) paths.insert(path);
        }
    return paths;
}

// MARK: Printer settings

std::set<std::string> OfficeHiddenContentDetector::printerSettingsPaths(const Archive& archive) {
    std::set<std::string> paths;
    for (const auto& entry : archive) {
        if (entry.type() != EntryType::file) continue;
        const std::string lower = lowerCasedPath(entry.path());
        if (std::any_of(printerSettingsPrefixes.begin(), printerSettingsPrefixes.end(),
                        [&](std::string_view prefix) { return lower.starts_with(prefix); }))
            paths.insert(entry.path());
    }
    return paths;
}

std::vector<MetadataItem> OfficeHiddenContentDetector::detectPrinterSettings(const Archive& archive) {
    std::vector<MetadataItem> items;
    for (const auto& path : printerSettingsPaths(archive))  // a set: already in ascending order
        items.push_back(finding("office.hidden.printerSettings." + path, path, "Printer Settings", path));
    return items;
}

std::set<std::string> OfficeHiddenContentDetector::printerSettingsRIds(std::string_view forWorksheetAt,
                                                                      const std::set<std::string>& droppedPaths,
                                                                      const Archive& archive) {
    const auto slash = forWorksheetAt.rfind('/');
    const std::string file(lastPathComponent(forWorksheetAt));
    const std::string directory = slash == std::string_view::npos ? "" : std::string(forWorksheetAt.substr(0, slash));
    const std::string relsPath = directory.empty() ? "_rels/" + file + ".rels" : directory + "/_rels/" + file + ".rels";
    const std::string base = directory.empty() ? "" : directory + "/";
    std::set<std::string> dropped;
    for (const auto& path : droppedPaths) dropped.insert(lowerCasedPath(path));
    std::set<std::string> ids;
    for (const auto& relationship : relationships(archive, relsPath)) {
        if (relationship.isExternal) continue;
        const std::string& target = relationship.target;
        const std::string joined = target.starts_with("/") ? target.substr(1) : base + target;
        if (dropped.count(lowerCasedPath(standardizedPartPath(joined)))) ids.insert(relationship.id);
    }
    return ids;
}

}  // namespace tavrin
