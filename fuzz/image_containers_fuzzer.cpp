// The image containers on arbitrary bytes: sniffing, every frame's properties, the reader's item
// walk, both writing paths, and the in-memory clean with its proof.
#include <cstddef>
#include <cstdint>

#include "engine/cleaning_profile.h"
#include "image/image_metadata_reader.h"
#include "image/image_metadata_writer.h"
#include "image/image_source.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tavrin;
    const image::ByteSpan bytes(data, size);
    try {
        const auto source = image::ImageSource::create(image::Bytes(bytes.begin(), bytes.end()));
        for (std::size_t i = 0; i < source.count(); ++i) (void)ImageMetadataReader::frameItems(source.propertiesAt(i));
        const auto filtered = ImageMetadataWriter::buildFilteredProperties(source.propertiesAt(0), CleaningProfile::maximumPrivacy());
        (void)image::writeImage(source, {filtered.properties});
        if (source.format() == image::ImageFormat::jpeg) (void)image::writeLosslessJPEG(source);
    } catch (const std::exception&) {
        // Damaged containers end in our own errors; the fuzzer only cares that nothing crashes.
    }
    if (size < 4096) (void)ImageMetadataWriter::cleanedImageData(bytes, CleaningProfile::maximumPrivacy());
    (void)ImageMetadataWriter::isDecodableImageData(bytes);
    return 0;
}
