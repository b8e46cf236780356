// The image containers on arbitrary bytes: sniffing, every frame's properties, the reader's item
// walk, both writing paths, bitmap and GIF decoding, and the in-memory clean with its proof.
#include <cstddef>
#include <cstdint>

#include "model/cleaning_profile.h"
#include "image/frame_decoder.h"
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
        // Our own bitmap decoder and the frame-by-frame GIF walk, on the input itself.
        if (source.format() == image::ImageFormat::bmp || source.format() == image::ImageFormat::gif)
            (void)image::decodeAllFrames(source.format(), bytes);
    } catch (const std::exception&) {
        // Damaged containers end in our own errors; the fuzzer only cares that nothing crashes.
    }
    if (size < 4096) (void)ImageMetadataWriter::cleanedImageData(bytes, CleaningProfile::maximumPrivacy());
    (void)ImageMetadataWriter::isDecodableImageData(bytes);
    return 0;
}
