#include "image/image_structural_keys.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace tavrin::image {

namespace {

const std::set<std::string, std::less<>>& universalStructuralKeys() {
    static const std::set<std::string, std::less<>> keys = {
        "PixelXDimension", "PixelYDimension", "PixelWidth", "PixelHeight", "ColorModel", "Depth", "HasAlpha",
        "Compression", "PhotometricInterpretation", "SamplesPerPixel", "BitsPerSample", "Orientation",
        "ResolutionUnit", "XResolution", "YResolution", "DPIWidth", "DPIHeight", "PlanarConfiguration",
        "RowsPerStrip", "DelayTime", "UnclampedDelayTime", "LoopCount", "CanvasPixelWidth", "CanvasPixelHeight",
        "HasGlobalColorMap", "ImageColorMap", "FrameInfoArray",
    };
    return keys;
}

const std::map<std::string, std::set<std::string, std::less<>>, std::less<>>& sourceScopedStructuralKeys() {
    static const std::map<std::string, std::set<std::string, std::less<>>, std::less<>> keys = {
        {"PNG", {"Gamma", "InterlaceType", "sRGBIntent", "Chromaticities", "XPixelsPerMeter", "YPixelsPerMeter",
                 "ColorMap"}},
        {"GIF", {"ImageColorMap", "HasGlobalColorMap"}},
        {"WebP", {}},
        {"EXIF", {"ColorSpace", "ComponentsConfiguration", "FlashPixVersion", "ExifVersion", "SceneType"}},
    };
    return keys;
}

const std::set<std::string, std::less<>>& genericICCProfileNames() {
    static const std::set<std::string, std::less<>> names = {
        "srgb iec61966-2.1", "srgb", "display p3", "generic rgb profile", "generic gray profile",
        "generic cmyk profile", "generic lab profile", "adobe rgb (1998)", "adobe rgb", "prophoto rgb", "rec. 709",
        "rec709", "rec. 2020", "rec2020", "linear rgb", "linear srgb", "extended srgb", "extended linear srgb",
        "dci-p3", "dci p3", "gray gamma 2.2 profile", "gray gamma 1.8 profile", "iphone srgb", "iphone rgb",
        "apple wide color sharing icc profile",
    };
    return names;
}

}  // namespace

bool isGenericICCProfileName(const MetadataValue* value) {
    if (!value || value->kind() != MetadataValue::Kind::string) return true;
    std::string name = value->asString();
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
    const auto first = name.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return genericICCProfileNames().count("") > 0;
    const auto last = name.find_last_not_of(" \t\r\n");
    return genericICCProfileNames().count(name.substr(first, last - first + 1)) > 0;
}

bool isStructuralKey(std::string_view key, const MetadataValue* value) {
    std::vector<std::string_view> parts;
    std::size_t start = 0;
    while (true) {
        const auto dot = key.find('.', start);
        parts.push_back(key.substr(start, dot == std::string_view::npos ? std::string_view::npos : dot - start));
        if (dot == std::string_view::npos) break;
        start = dot + 1;
    }
    const std::string_view leaf = parts.back();
    if (leaf == "ProfileName") return isGenericICCProfileName(value);
    if (universalStructuralKeys().count(leaf)) return true;
    if (parts.size() >= 2) {
        auto it = sourceScopedStructuralKeys().find(parts[parts.size() - 2]);
        if (it != sourceScopedStructuralKeys().end()) return it->second.count(leaf) > 0;
    }
    return false;
}

}  // namespace tavrin::image
