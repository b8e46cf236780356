#include "image/image_errors.h"

namespace tavrin {

namespace {
std::string withDetail(std::string text, const std::string& detail) {
    if (!detail.empty()) text += " (" + detail + ")";
    return text;
}
}  // namespace

std::string ImageFormatError::description() const {
    switch (case_) {
        case Case::unknownFormat: return withDetail("Not an image format Tavrin can read", detail_);
        case Case::truncated: return withDetail("Image data ends too early", detail_);
        case Case::invalidStructure: return withDetail("Image data is damaged", detail_);
        case Case::limitExceeded: return withDetail("Image data exceeds a safety limit", detail_);
        case Case::checksumMismatch: return withDetail("Image data fails its checksum", detail_);
        case Case::decodeFailed: return withDetail("Image pixels cannot be decoded", detail_);
    }
    return "";
}

std::string ImageMetadataReaderError::description() const {
    switch (case_) {
        case Case::cannotCreateImageSource: return withDetail("Unable to open image file for metadata reading", detail_);
    }
    return "";
}

std::string ImageWriterError::description() const {
    switch (case_) {
        case Case::cannotCreateSource: return withDetail("Cannot create image source from file", detail_);
        case Case::cannotCreateDestination: return withDetail("Cannot create image destination for output", detail_);
        case Case::unknownImageType: return withDetail("Cannot determine image type", detail_);
        case Case::losslessCopyFailed: return withDetail("Lossless JPEG metadata copy failed", detail_);
        case Case::finalizationFailed: return withDetail("Image destination finalization failed", detail_);
    }
    return "";
}

}  // namespace tavrin
