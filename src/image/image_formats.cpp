#include "image/image_formats.h"

#include "image/image_metadata_reader.h"
#include "image/image_metadata_writer.h"

namespace tavrin {

void registerImageFormats(FormatRegistry& registry) {
    registry.registerReader(std::make_shared<ImageMetadataReader>());
    registry.registerWriter(std::make_shared<ImageMetadataWriter>());
}

}  // namespace tavrin
