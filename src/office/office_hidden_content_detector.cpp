#include "office/office_hidden_content_detector.h"

namespace tavrin {

// The detector table, in the order findings are shown. Headers and footers, settings,
// printer settings, hidden sheets, rows, columns and slides come first, off-slide shapes last;
// they join this table as they are built.
std::vector<MetadataItem> OfficeHiddenContentDetector::detect(const Archive& archive) {
    using Detector = std::vector<MetadataItem> (*)(const Archive&);
    static constexpr Detector detectors[] = {
        &detectEmbeddedOLEObjects,
        &detectCustomXMLParts,
        &detectVBAMacros,
        &detectConnections,
        &detectExternalLinks,
    };
    std::vector<MetadataItem> items;
    for (Detector detector : detectors)
        for (auto& item : detector(archive)) items.push_back(std::move(item));
    return items;
}

}  // namespace tavrin
