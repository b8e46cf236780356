// The metadata readers on arbitrary bytes: the first byte picks Exif/TIFF IFDs, IPTC-IIM,
// Photoshop resources, XMP or an ICC profile; the rest is the payload. Each is also written back.
#include <cstddef>
#include <cstdint>

#include "image/exif_metadata.h"
#include "image/icc_profile.h"
#include "image/iptc_metadata.h"
#include "image/xmp_metadata.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tavrin::image;
    if (size < 1) return 0;
    const ByteSpan payload(data + 1, size - 1);
    try {
        Properties frame;
        switch (data[0] % 5) {
            case 0: {
                const auto tiff = parseTiff(payload, 8);
                for (std::size_t i = 0; i < tiff.pages.size(); ++i) addExifProperties(tiff, i, ExifContext::tiffFile, frame);
                (void)filteredExifBlock(tiff, frame);
                break;
            }
            case 1: (void)filteredIPTC(payload, &(frame = parseIPTC(payload).properties)); break;
            case 2: addPhotoshopProperties(payload, frame); (void)filteredPhotoshop(payload, frame); break;
            case 3: {
                const auto xmp = parseXMP(payload);
                (void)serializeXMP(xmp.properties, xmp.namespaces);
                break;
            }
            case 4: (void)iccProfileDescription(payload); break;
        }
    } catch (const std::exception&) {
    }
    return 0;
}
