#pragma once
// The property tree of one frame: what the image layer reports about an image. Sub-dictionaries
// sit under "{GPS}", "{Exif}", "{TIFF}", …; the structural facts (PixelWidth, Orientation, ProfileName, …) sit at the top level.

#include <array>
#include <string>
#include <string_view>

#include "model/metadata_value.h"
#include "image/image_bytes.h"

namespace tavrin::image {

using Properties = MetadataValue::Dictionary;

namespace key {
inline constexpr std::string_view pixelWidth = "PixelWidth";
inline constexpr std::string_view pixelHeight = "PixelHeight";
inline constexpr std::string_view dpiWidth = "DPIWidth";
inline constexpr std::string_view dpiHeight = "DPIHeight";
inline constexpr std::string_view colorModel = "ColorModel";
inline constexpr std::string_view depth = "Depth";
inline constexpr std::string_view orientation = "Orientation";
inline constexpr std::string_view profileName = "ProfileName";
inline constexpr std::string_view hasAlpha = "HasAlpha";

inline constexpr std::string_view gps = "{GPS}";
inline constexpr std::string_view exif = "{Exif}";
inline constexpr std::string_view tiff = "{TIFF}";
inline constexpr std::string_view iptc = "{IPTC}";
inline constexpr std::string_view exifAux = "{ExifAux}";
inline constexpr std::string_view makerApple = "{MakerApple}";
inline constexpr std::string_view makerCanon = "{MakerCanon}";
inline constexpr std::string_view makerNikon = "{MakerNikon}";
inline constexpr std::string_view makerMinolta = "{MakerMinolta}";
inline constexpr std::string_view makerFuji = "{MakerFuji}";
inline constexpr std::string_view makerOlympus = "{MakerOlympus}";
inline constexpr std::string_view makerPentax = "{MakerPentax}";
inline constexpr std::string_view photoshop = "{8BIM}";
inline constexpr std::string_view dng = "{DNG}";
inline constexpr std::string_view ciff = "{CIFF}";
inline constexpr std::string_view raw = "{Raw}";
inline constexpr std::string_view openEXR = "{OpenEXR}";
inline constexpr std::string_view png = "{PNG}";
inline constexpr std::string_view gif = "{GIF}";
inline constexpr std::string_view webp = "{WebP}";
inline constexpr std::string_view heics = "{HEICS}";
inline constexpr std::string_view xmp = "{XMP}";
}  // namespace key

// One sub-dictionary that the reader and the writer walk, with the prefix of its item keys.
struct DictionaryDescriptor {
    std::string_view key;
    std::string_view prefix;
};

// The 22 sub-dictionaries, in the order both walks use.
const std::array<DictionaryDescriptor, 22>& dictionaryDescriptors();

// The sub-dictionary under `name`, or null when absent or not a dictionary.
const Properties* subDictionary(const Properties& frame, std::string_view name);

// Stores `entries` under `name`, merging into what is there; an empty dictionary is not stored.
void mergeSubDictionary(Properties& frame, std::string_view name, Properties entries);

inline void set(Properties& dict, std::string_view name, MetadataValue value) {
    dict.insert_or_assign(std::string(name), std::move(value));
}

}  // namespace tavrin::image
