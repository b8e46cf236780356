#include "av/av_formats.h"

#include "av/av_metadata_reader.h"
#include "av/av_metadata_writer.h"

namespace tavrin {

void registerAVFormats(FormatRegistry& registry) {
    registry.registerReader(std::make_shared<AVMetadataReader>());
    registry.registerWriter(std::make_shared<AVMetadataWriter>());
}

}  // namespace tavrin
