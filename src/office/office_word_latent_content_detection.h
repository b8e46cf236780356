#pragma once
// What a word-processing document carries without showing it: inactive and orphaned headers and
// footers, document variables, mail merge, the attached template, and printer settings in any
// Office format. All of it is removable, with path sets that say which parts go.

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "model/metadata_model.h"
#include "office/office_package.h"
#include "zip/archive.h"

namespace tavrin::OfficeHiddenContentDetector {

// MARK: Word latent content

struct HeaderFooterReference {
    std::string kind;  // "headerReference" or "footerReference"
    std::string type;  // its "type", or "default"
    std::optional<std::string> rId;
    XMLElement element;
};
struct InactiveReferenceInfo {
    std::string kind;
    std::string type;
    std::string partPath;  // the stored archive path, empty when it does not resolve
};
struct InactiveHeaderFooterAnalysis {
    std::vector<InactiveReferenceInfo> inactiveReferences;  // document order
    std::set<std::string> pathsToDrop;                      // parts only inactive references use
};
struct HeaderFooterClassification {
    std::vector<HeaderFooterReference> active;
    std::vector<HeaderFooterReference> inactive;
};

// Orphaned header and footer parts and inactive references, from one reading of the document.
struct HeaderFooterFindings {
    std::vector<MetadataItem> orphaned;     // detectOrphanedHeadersFooters
    InactiveHeaderFooterAnalysis inactive;  // inactiveHeaderFooterAnalysis
};

InactiveHeaderFooterAnalysis inactiveHeaderFooterAnalysis(const Archive& archive);
HeaderFooterFindings headerFooterFindings(const Archive& archive);
// detectOrphanedHeadersFooters followed by detectInactiveHeaderFooterReferences.
std::vector<MetadataItem> detectHeadersAndFooters(const Archive& archive);
// Per section: "first" references are inactive without a title page, "even" references
// without even-and-odd headers; everything else is active.
HeaderFooterClassification classifyHeaderFooterReferences(const XMLElement& documentRoot,
                                                          bool evenAndOddEnabled);
// False without settings; true when the settings cannot be judged, so that even-page
// headers are kept.
bool evenAndOddHeadersEnabled(const Archive& archive);
std::vector<MetadataItem> detectInactiveHeaderFooterReferences(const Archive& archive);
MetadataItem inactiveReferenceItem(const InactiveReferenceInfo& info, std::size_t index);
std::vector<MetadataItem> detectOrphanedHeadersFooters(const Archive& archive);
// Lower-cased paths of the parts the document references; nothing when it cannot tell.
std::optional<std::set<std::string>> referencedHeaderFooterPaths(const Archive& archive);
std::vector<MetadataItem> detectSettingsLatentData(const Archive& archive);
// "word/settings.xml" parsed; its root element is the settings root.
std::optional<XMLDocument> parsedSettingsRoot(const Archive& archive);
std::vector<MetadataItem> docVarItems(const XMLElement& root);
std::vector<MetadataItem> attachedTemplateItems(const XMLElement& root,
                                                const std::map<std::string, std::string>& rIdToTarget,
                                                std::set<std::string>& consumedRIds);
std::vector<MetadataItem> mailMergeItems(const XMLElement& root,
                                         const std::map<std::string, std::string>& rIdToTarget,
                                         std::set<std::string>& consumedRIds);
std::vector<MetadataItem> latentRelationshipItems(const Archive& archive,
                                                  const std::set<std::string>& consumedRIds);
// Stored paths of internal template and data-source parts that latent relationships name.
std::set<std::string> latentDataSourcePartsToDrop(const Archive& archive);
std::vector<MetadataItem> detectPrinterSettings(const Archive& archive);
std::set<std::string> printerSettingsPaths(const Archive& archive);
// Ids of the worksheet's relationships whose targets are among `droppedPaths`.
std::set<std::string> printerSettingsRIds(std::string_view forWorksheetAt,
                                          const std::set<std::string>& droppedPaths, const Archive& archive);
// A package path with "." and ".." collapsed as in an absolute path; never climbs above
// the package root ("word/../../etc/passwd" gives "etc/passwd").
std::string standardizedPartPath(std::string_view path);

}  // namespace tavrin::OfficeHiddenContentDetector
