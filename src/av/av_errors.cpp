#include "av/av_errors.h"

namespace tavrin {

std::string AVContainerError::description() const {
    std::string text;
    switch (errorCase()) {
        case Case::cannotOpen: text = "The media file cannot be opened"; break;
        case Case::truncated: text = "The media file ends inside a metadata structure"; break;
        case Case::invalidAtomSize: text = "An atom has an invalid size"; break;
        case Case::nestingTooDeep: text = "Atoms are nested too deeply"; break;
        case Case::tagSizePastEnd: text = "An ID3 tag runs past the end of its file"; break;
        case Case::invalidSyncsafeInteger: text = "An ID3 size is not a valid syncsafe integer"; break;
        case Case::unterminatedBlockChain: text = "The FLAC metadata blocks end without a last-block flag"; break;
        case Case::chunkSizePastEnd: text = "A chunk runs past the end of its container"; break;
        case Case::unrecognisedContainer: text = "The file is not an audio or video container Tavrin can read"; break;
        case Case::tooManyItems: text = "The file holds too many metadata items"; break;
        case Case::structureTooLarge: text = "A metadata structure is too large to read"; break;
    }
    return withDetail(std::move(text), detail());
}

std::string AVMetadataReaderError::description() const {
    switch (errorCase()) {
        case Case::propertyLoadFailed: return "Failed to load AV metadata property: " + detail();
        case Case::assetLoadFailed: return "Unable to load AV asset for metadata reading";
    }
    return "";
}

std::string AVWriterError::description() const {
    switch (errorCase()) {
        case Case::unsupportedFormat: return "Unsupported AV format: " + detail();
        case Case::cannotCreateExportSession:
            return withDetail("Cannot create AVAssetExportSession for passthrough export", detail());
        case Case::exportFailed: return withDetail("AV metadata export failed", detail());
    }
    return "";
}

}  // namespace tavrin
