#include "image/tiff_container.h"

#include "image/exif_metadata.h"
#include "image/iptc_metadata.h"
#include "image/tiff_structure.h"
#include "image/xmp_metadata.h"

namespace tavrin::image::tiffContainer {

namespace {

using Case = ImageFormatError::Case;

constexpr std::size_t maxPages = 65536;

}  // namespace

std::vector<Properties> readFrames(ByteSpan d) {
    const TiffStructure tiff = parseTiff(d, maxPages);
    std::vector<Properties> frames(tiff.pages.size());
    for (std::size_t i = 0; i < tiff.pages.size(); ++i) addExifProperties(tiff, i, ExifContext::tiffFile, frames[i]);
    return frames;
}

Properties readRawProperties(ByteSpan d) {
    const TiffStructure tiff = parseTiff(d, 1);
    Properties frame;
    addExifProperties(tiff, 0, ExifContext::tiffFile, frame);
    return frame;
}

Bytes rebuild(ByteSpan d, const std::vector<Properties>& filteredFrames) {
    const TiffStructure tiff = parseTiff(d, maxPages);
    std::vector<TiffOutPage> pages;
    for (std::size_t i = 0; i < tiff.pages.size(); ++i) {
        const Properties& filtered = filteredFrames[std::min(i, filteredFrames.size() - 1)];
        const TiffDirectory& source = tiff.pages[i].main;
        TiffOutPage page = filteredExifPage(tiff, i, ExifContext::tiffFile, filtered);

        const TiffEntry* offsets = source.find(tiffTag::stripOffsets);
        const TiffEntry* counts = source.find(tiffTag::stripByteCounts);
        page.offsetsTag = tiffTag::stripOffsets;
        if (!offsets) {
            offsets = source.find(tiffTag::tileOffsets);
            counts = source.find(tiffTag::tileByteCounts);
            page.offsetsTag = tiffTag::tileOffsets;
        }
        enforce(offsets && counts && offsets->count == counts->count && offsets->count > 0, Case::invalidStructure,
                "a TIFF page has no strips or tiles");
        enforce(!source.find(513), Case::invalidStructure, "old-style JPEG compression in TIFF is not supported");
        for (std::size_t s = 0; s < offsets->count; ++s) {
            const auto at = tiff.unsignedValue(*offsets, s), size = tiff.unsignedValue(*counts, s);
            enforce(at && size, Case::invalidStructure, "a TIFF strip offset is not a number");
            page.imageData.push_back(slice(tiff.data, *at, *size));
        }
        // Metadata blobs come back rebuilt from what survived, never copied.
        if (const TiffEntry* x = source.find(700)) {
            const std::string packet = filteredXMPPacket(x->value, subDictionary(filtered, key::xmp));
            if (!packet.empty())
                page.main.entries.push_back({700, 1, static_cast<std::uint32_t>(packet.size()), Bytes(packet.begin(), packet.end())});
        }
        if (const TiffEntry* iptc = source.find(33723)) {
            const Bytes records = filteredIPTC(iptc->value, subDictionary(filtered, key::iptc));
            if (!records.empty()) page.main.entries.push_back({33723, 7, static_cast<std::uint32_t>(records.size()), records});
        }
        if (const TiffEntry* ps = source.find(34377)) {
            const Bytes resources = filteredPhotoshop(ps->value, filtered);
            if (!resources.empty())
                page.main.entries.push_back({34377, 1, static_cast<std::uint32_t>(resources.size()), resources});
        }
        pages.push_back(std::move(page));
    }
    return writeTiff(tiff.endian, pages);
}

}  // namespace tavrin::image::tiffContainer
