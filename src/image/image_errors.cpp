#include "image/image_errors.h"

namespace tavrin {

std::string ImageFormatError::description() const {
    switch (errorCase()) {
        case Case::unknownFormat: return withDetail("Not an image format Tavrin can read", detail());
        case Case::truncated: return withDetail("Image data ends too early", detail());
        case Case::invalidStructure: return withDetail("Image data is damaged", detail());
        case Case::limitExceeded: return withDetail("Image data exceeds a safety limit", detail());
        case Case::checksumMismatch: return withDetail("Image data fails its checksum", detail());
        case Case::decodeFailed: return withDetail("Image pixels cannot be decoded", detail());
    }
    return "";
}

std::string ImageMetadataReaderError::description() const {
    switch (errorCase()) {
        case Case::cannotCreateImageSource: return withDetail("Unable to open image file for metadata reading", detail());
    }
    return "";
}

std::string ImageWriterError::description() const {
    switch (errorCase()) {
        case Case::cannotCreateSource: return withDetail("Cannot create image source from file", detail());
        case Case::cannotCreateDestination: return withDetail("Cannot create image destination for output", detail());
        case Case::unknownImageType: return withDetail("Cannot determine image type", detail());
        case Case::losslessCopyFailed: return withDetail("Lossless JPEG metadata copy failed", detail());
        case Case::finalizationFailed: return withDetail("Image destination finalization failed", detail());
    }
    return "";
}

}  // namespace tavrin
