#pragma once
// The classes of metadata that profiles remove, and the reader families that find them.

namespace tavrin {

enum class PrivacyLevel { low = 0, medium = 1, high = 2, critical = 3 };

// Declared order decides the order of tree nodes.
enum class MetadataCategory {
    location, deviceInfo, authorIdentity, timestamps, softwareInfo, documentHistory,
    commentsAnnotations, companyInfo, thumbnails, colorTechnical, hiddenContent,
};

enum class MetadataSource { imageIO, pdfKit, avFoundation, zipXML, exifTool, unknown };

}  // namespace tavrin
