#pragma once
// Finds what an Office package carries besides its visible content: macros, embedded
// objects, custom XML, links to other workbooks and external data connections, which the
// cleaner never removes (findings not removable); hidden sheets, rows, columns and slides and
// shapes placed off the slide; and what a word-processing document carries without showing
// it: inactive and orphaned headers and footers, document variables, mail merge, the attached
// template, and printer settings in any Office format. Hidden sheets and slides and all of the
// word-processing latent content are removable, and have path sets that say which parts go;
// hidden rows, columns and off-slide shapes are reported only.
//
// Detectors never fail: a part that cannot be read or parsed yields no finding, or a finding
// with less detail. They only read through the archive they are given.

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

namespace tavrin {

struct OfficeHiddenContentDetector {
    // Every detector's findings, in the fixed order of the detector table.
    static std::vector<MetadataItem> detect(const Archive& archive);

    static std::vector<MetadataItem> detectVBAMacros(const Archive& archive);
    static std::vector<MetadataItem> detectEmbeddedOLEObjects(const Archive& archive);
    static std::vector<MetadataItem> detectCustomXMLParts(const Archive& archive);
    static std::vector<MetadataItem> detectExternalLinks(const Archive& archive);
    static std::vector<MetadataItem> detectConnections(const Archive& archive);

    // What kind of object an embedded entry is, by extension, else by its first bytes.
    static std::optional<std::string> embeddedTypeHint(const Entry& entry, const Archive& archive);
    // "name, namespace" of a custom XML part's root element; never its content.
    static std::optional<std::string> customXMLRootDescriptor(const Entry& entry, const Archive& archive);
    // The external targets of a part's relationships, sanitised.
    static std::vector<std::string> externalLinkTargets(std::string_view forPart, const Archive& archive);
    // A URL keeps its scheme, host and path; user, password, query and fragment go. Text
    // without a scheme comes back unchanged.
    static std::string sanitizedTarget(std::string_view target);
    // Keeps only the allow-listed keys of a connection string, so that no password or user
    // name reaches a report.
    static std::string sanitizedConnectionString(std::string_view connection);
    static std::string sanitizedConnectionTarget(const XMLElement& connection);
    // At most `count` leading bytes of the entry, inflating no more than that. Throws
    // ArchiveError when the entry cannot be read.
    static std::vector<std::uint8_t> headBytes(const Entry& entry, const Archive& archive, std::size_t count);

    // MARK: Hidden sheets, rows, columns, slides and off-slide shapes

    // A shape's place on the slide, in the file's units (EMU).
    struct Box {
        std::int64_t left;
        std::int64_t top;
        std::int64_t width;
        std::int64_t height;
    };
    struct SheetEntry {
        std::string name;
        std::string path;
    };
    struct HiddenRowsAndColumns {
        std::vector<std::int64_t> rows;
        std::vector<std::pair<std::int64_t, std::int64_t>> columns;  // min, max
    };

    static std::vector<MetadataItem> detectHiddenWorksheets(const Archive& archive);
    // "xl/" + target of each hidden or very-hidden sheet whose relationship resolves.
    static std::set<std::string> hiddenWorksheetPaths(const Archive& archive);
    // Sheets without a state or with state "visible", in workbook order.
    static std::vector<SheetEntry> visibleSheets(const Archive& archive);
    static std::vector<MetadataItem> detectHiddenRowsColumns(const Archive& archive);
    static HiddenRowsAndColumns hiddenRowsAndColumns(const XMLElement& root);
    // Sorted, merged ranges: 7, 3, 4, 5 give "3–5, 7".
    static std::string rangesDescription(const std::vector<std::int64_t>& fromValues);
    static std::string rangesDescription(std::vector<std::pair<std::int64_t, std::int64_t>> fromRanges);
    static std::vector<MetadataItem> detectHiddenSlides(const Archive& archive);
    // Hidden slides and the notes part of each (by its computed name, when a part of that name
    // exists in any letter case).
    static std::set<std::string> hiddenSlidePaths(const Archive& archive);
    static std::vector<MetadataItem> detectOffSlideShapes(const Archive& archive);
    // The last usable sldSz of the presentation; no default is assumed.
    static std::optional<std::pair<std::int64_t, std::int64_t>> slideCanvasSize(const Archive& archive);
    // Shapes, outside groups, placed entirely off a canvas of `slideSize` (width, height).
    static std::size_t offSlideShapeCount(const XMLElement& root, std::pair<std::int64_t, std::int64_t> slideSize);
    // Nothing when the shape cannot be judged with confidence: rotated, flipped, no usable
    // offset or extent.
    static std::optional<Box> ownTransformBox(const XMLElement& element);
    // An xfrm child, or the first xfrm child of an spPr or grpSpPr child; two levels only.
    static std::optional<XMLElement> firstDescendantXfrm(const XMLElement& element);
    // Both attributes as signed 64-bit integers ("+" or "-" allowed; overflow fails).
    static std::optional<std::pair<std::int64_t, std::int64_t>> intPair(const XMLElement& element,
                                                                        std::string_view firstName,
                                                                        std::string_view secondName);
    // Relationship id to target of the workbook and of the presentation.
    static std::map<std::string, std::string> workbookRels(const Archive& archive);
    static std::map<std::string, std::string> presentationRels(const Archive& archive);

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

    static InactiveHeaderFooterAnalysis inactiveHeaderFooterAnalysis(const Archive& archive);
    static HeaderFooterFindings headerFooterFindings(const Archive& archive);
    // detectOrphanedHeadersFooters followed by detectInactiveHeaderFooterReferences.
    static std::vector<MetadataItem> detectHeadersAndFooters(const Archive& archive);
    // Per section: "first" references are inactive without a title page, "even" references
    // without even-and-odd headers; everything else is active.
    static HeaderFooterClassification classifyHeaderFooterReferences(const XMLElement& documentRoot,
                                                                     bool evenAndOddEnabled);
    // False without settings; true when the settings cannot be judged, so that even-page
    // headers are kept.
    static bool evenAndOddHeadersEnabled(const Archive& archive);
    static std::vector<MetadataItem> detectInactiveHeaderFooterReferences(const Archive& archive);
    static MetadataItem inactiveReferenceItem(const InactiveReferenceInfo& info, std::size_t index);
    static std::vector<MetadataItem> detectOrphanedHeadersFooters(const Archive& archive);
    // Lower-cased paths of the parts the document references; nothing when it cannot tell.
    static std::optional<std::set<std::string>> referencedHeaderFooterPaths(const Archive& archive);
    static std::vector<MetadataItem> detectSettingsLatentData(const Archive& archive);
    // "word/settings.xml" parsed; its root element is the settings root.
    static std::optional<XMLDocument> parsedSettingsRoot(const Archive& archive);
    static std::vector<MetadataItem> docVarItems(const XMLElement& root);
    static std::vector<MetadataItem> attachedTemplateItems(const XMLElement& root,
                                                           const std::map<std::string, std::string>& rIdToTarget,
                                                           std::set<std::string>& consumedRIds);
    static std::vector<MetadataItem> mailMergeItems(const XMLElement& root,
                                                    const std::map<std::string, std::string>& rIdToTarget,
                                                    std::set<std::string>& consumedRIds);
    static std::vector<MetadataItem> latentRelationshipItems(const Archive& archive,
                                                             const std::set<std::string>& consumedRIds);
    // Stored paths of internal template and data-source parts that latent relationships name.
    static std::set<std::string> latentDataSourcePartsToDrop(const Archive& archive);
    static std::vector<MetadataItem> detectPrinterSettings(const Archive& archive);
    static std::set<std::string> printerSettingsPaths(const Archive& archive);
    // Ids of the worksheet's relationships whose targets are among `droppedPaths`.
    static std::set<std::string> printerSettingsRIds(std::string_view forWorksheetAt,
                                                     const std::set<std::string>& droppedPaths, const Archive& archive);
    // A package path with "." and ".." collapsed as in an absolute path; never climbs above
    // the package root ("word/../../etc/passwd" gives "etc/passwd").
    static std::string standardizedPartPath(std::string_view path);

    // Every entry that leaves the package when hidden content is removed: orphaned and inactive
    // headers and footers, printer settings, latent data sources, hidden sheets and slides.
    static std::set<std::string> pathsToRemove(const Archive& archive);

    // The relationships of a ".rels" part in file order; empty when it is missing or bad.
    static std::vector<OfficeRelationship> relationships(const Archive& archive, std::string_view atPath);
    // The relationship id of an element: "r:id", else "id" in the relationships namespace,
    // else any attribute with local name "id".
    static std::optional<std::string> rIdAttribute(const XMLElement& element);
};

}  // namespace tavrin
