#include "exiftool/exiftool_formats.h"

#include "exiftool/exiftool_reader.h"
#include "exiftool/exiftool_writer.h"
#include "model/file_type.h"

namespace tavrin {

void registerExifToolFormats(FormatRegistry& registry, const std::string& exifToolPath,
                             std::chrono::seconds timeout) {
    ProcessLimits limits;
    limits.timeout = timeout;
    auto reader = std::make_shared<const ExifToolReader>(exifToolPath, limits);
    auto writer = std::make_shared<const ExifToolWriter>(exifToolPath, limits);
    // Registered one type at a time, so that the native component of a type stays in place.
    for (FileType type : fileTypes::allCases()) {
        const auto capabilities = FormatCapabilities::capabilities(type);
        if (!capabilities.canReadNatively || !registry.hasReader(type)) registry.registerReaderFor(type, reader);
        if (!capabilities.canWriteNatively || !registry.hasWriter(type)) registry.registerWriterFor(type, writer);
    }
}

}  // namespace tavrin
