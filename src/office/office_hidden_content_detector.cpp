#include "office/office_hidden_content_detector.h"

namespace tavrin {

// The detector table, in the order findings are shown: word-processing latent content and
// printer settings first, then hidden sheets, rows, columns and slides, then what the cleaner
// keeps (objects, custom XML, macros, connections, links), and off-slide shapes last.
std::vector<MetadataItem> OfficeHiddenContentDetector::detect(const Archive& archive) {
    using Detector = std::vector<MetadataItem> (*)(const Archive&);
    static constexpr Detector detectors[] = {
        &detectHeadersAndFooters,  // orphaned, then inactive: the document is read once for both
        &detectSettingsLatentData,
        &detectPrinterSettings,
        &detectHiddenWorksheets,
        &detectHiddenRowsColumns,
        &detectHiddenSlides,
        &detectEmbeddedOLEObjects,
        &detectCustomXMLParts,
        &detectVBAMacros,
        &detectConnections,
        &detectExternalLinks,
        &detectOffSlideShapes,
    };
    std::vector<MetadataItem> items;
    for (Detector detector : detectors)
        for (auto& item : detector(archive)) items.push_back(std::move(item));
    return items;
}

}  // namespace tavrin
