#include "image/image_properties.h"

namespace tavrin::image {

const std::array<DictionaryDescriptor, 22>& dictionaryDescriptors() {
    static const std::array<DictionaryDescriptor, 22> table = {{
        {key::gps, "GPS"},
        {key::exif, "EXIF"},
        {key::tiff, "TIFF"},
        {key::iptc, "IPTC"},
        {key::exifAux, "ExifAux"},
        {key::makerApple, "MakerApple"},
        {key::makerCanon, "MakerCanon"},
        {key::makerNikon, "MakerNikon"},
        {key::makerMinolta, "MakerMinolta"},
        {key::makerFuji, "MakerFuji"},
        {key::makerOlympus, "MakerOlympus"},
        {key::makerPentax, "MakerPentax"},
        {key::photoshop, "8BIM"},
        {key::dng, "DNG"},
        {key::ciff, "CIFF"},
        {key::raw, "Raw"},
        {key::openEXR, "OpenEXR"},
        {key::png, "PNG"},
        {key::gif, "GIF"},
        {key::webp, "WebP"},
        {key::heics, "HEICS"},
        {key::xmp, "XMP"},
    }};
    return table;
}

const Properties* subDictionary(const Properties& frame, std::string_view name) {
    auto it = frame.find(std::string(name));
    if (it == frame.end() || it->second.kind() != MetadataValue::Kind::dictionary) return nullptr;
    return &it->second.asDictionary();
}

void mergeSubDictionary(Properties& frame, std::string_view name, Properties entries) {
    if (entries.empty()) return;
    if (const Properties* existing = subDictionary(frame, name)) {
        Properties merged = *existing;
        for (auto& [k, v] : entries) merged.insert_or_assign(k, std::move(v));
        entries = std::move(merged);
    }
    set(frame, name, MetadataValue::dictionary(std::move(entries)));
}

}  // namespace tavrin::image
