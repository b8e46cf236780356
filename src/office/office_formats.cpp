#include "office/office_formats.h"

#include "office/office_metadata_reader.h"
#include "office/office_metadata_writer.h"

namespace tavrin {

void registerOfficeFormats(FormatRegistry& registry) {
    registry.registerReader(std::make_shared<OfficeMetadataReader>());
    registry.registerWriter(std::make_shared<OfficeMetadataWriter>());
}

}  // namespace tavrin
