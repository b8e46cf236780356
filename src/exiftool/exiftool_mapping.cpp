#include "exiftool/exiftool_mapping.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <limits>

#include "model/json_nesting.h"
#include "model/pipeline_error.h"

namespace tavrin {

namespace {

bool isUpper(char c) { return c >= 'A' && c <= 'Z'; }
bool isLower(char c) { return c >= 'a' && c <= 'z'; }

std::string lowercased(std::string_view text) {
    std::string out(text);
    for (char& c : out)
        if (isUpper(c)) c = static_cast<char>(c - 'A' + 'a');
    return out;
}

bool containsAny(std::string_view text, std::initializer_list<std::string_view> needles) {
    return std::any_of(needles.begin(), needles.end(),
                       [&](std::string_view n) { return text.find(n) != std::string_view::npos; });
}

bool equalsAny(std::string_view text, std::initializer_list<std::string_view> names) {
    return std::find(names.begin(), names.end(), text) != names.end();
}

constexpr std::array<std::string_view, 18> kStructuralTags{
    "imagewidth",      "imageheight",     "imagelength",  "bitspersample", "compression",
    "photometricinterpretation",          "samplesperpixel",               "rowsperstrip",
    "stripbytecounts", "xresolution",     "yresolution",  "resolutionunit", "colorspace",
    "exifimagewidth",  "exifimageheight", "bitdepth",     "colortype",     "numchannels",
};

constexpr std::array<std::string_view, 12> kSkippedKeys{
    "SourceFile",         "ExifTool:ExifToolVersion", "File:FileName",          "File:Directory",
    "File:FileSize",      "File:FileModifyDate",      "File:FileAccessDate",    "File:FileInodeChangeDate",
    "File:FilePermissions", "File:FileType",          "File:FileTypeExtension", "File:MIMEType",
};

// Length of the well-formed UTF-8 sequence at `p` (RFC 3629: no overlongs, no surrogates,
// nothing above U+10FFFF), or 0 when there is none.
std::size_t utf8SequenceLength(const unsigned char* p, std::size_t available) {
    const unsigned char b = p[0];
    if (b < 0x80) return 1;
    std::size_t length;
    unsigned char low = 0x80, high = 0xBF;  // range of the second byte
    if (b >= 0xC2 && b <= 0xDF) length = 2;
    else if (b == 0xE0) length = 3, low = 0xA0;
    else if (b == 0xED) length = 3, high = 0x9F;
    else if (b >= 0xE1 && b <= 0xEF) length = 3;
    else if (b == 0xF0) length = 4, low = 0x90;
    else if (b >= 0xF1 && b <= 0xF3) length = 4;
    else if (b == 0xF4) length = 4, high = 0x8F;
    else return 0;
    if (available < length) return 0;
    if (p[1] < low || p[1] > high) return 0;
    for (std::size_t i = 2; i < length; ++i)
        if (p[i] < 0x80 || p[i] > 0xBF) return 0;
    return length;
}


}  // namespace

MetadataCategory exifToolCategorize(std::string_view group, std::string_view tag) {
    using C = MetadataCategory;
    const std::string g = lowercased(group);
    const std::string t = lowercased(tag);
    if (g == "gps" || containsAny(g, {"gps"}) || containsAny(t, {"gps", "location", "latitude", "longitude"}))
        return C::location;
    if (containsAny(t, {"make", "model", "serial", "lens", "camera", "device", "firmware", "bodyserial"}))
        return C::deviceInfo;
    if (containsAny(t, {"author", "artist", "creator", "copyright", "owner", "by-line", "writer", "credit"}))
        return C::authorIdentity;
    if (containsAny(t, {"date", "time", "year"})) return C::timestamps;
    if (containsAny(t, {"software", "version", "producer", "application", "encoder", "tool", "hostcomputer"}))
        return C::softwareInfo;
    if (containsAny(t, {"thumbnail", "preview"})) return C::thumbnails;
    if (containsAny(t, {"comment", "annotation", "usercomment", "description", "caption"}))
        return C::commentsAnnotations;
    if (containsAny(t, {"company", "organization", "manager", "department"})) return C::companyInfo;
    if (g == "xmp-xmpmm" || containsAny(t, {"history", "revision", "editingtime"})) return C::documentHistory;
    if (equalsAny(g, {"icc_profile", "icc-header"}) ||
        containsAny(t, {"colorspace", "whitebalance", "exposure", "fnumber", "aperture", "shutterspeed",
                        "focallength", "color", "gamut"}))
        return C::colorTechnical;
    if (equalsAny(g, {"exif", "composite"})) return C::colorTechnical;
    if (equalsAny(g, {"iptc", "xmp", "xmp-dc"})) return C::authorIdentity;
    return C::softwareInfo;
}

MetadataValue exifToolConvertToMetadataValue(const nlohmann::ordered_json& value) {
    using V = nlohmann::ordered_json::value_t;
    switch (value.type()) {
        case V::string: return MetadataValue::string(value.get<std::string>());
        case V::boolean: return MetadataValue::boolean(value.get<bool>());
        case V::number_integer: return MetadataValue::integer(value.get<std::int64_t>());
        case V::number_unsigned: {
            const auto u = value.get<std::uint64_t>();
            if (u <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
                return MetadataValue::integer(static_cast<std::int64_t>(u));
            return MetadataValue::number(static_cast<double>(u));
        }
        case V::number_float: {
            const double d = value.get<double>();
            // Integral and inside the range of a signed 64-bit integer (2^63 is exactly representable).
            if (std::isfinite(d) && d == std::trunc(d) && d >= -9223372036854775808.0 && d < 9223372036854775808.0)
                return MetadataValue::integer(static_cast<std::int64_t>(d));
            return MetadataValue::number(d);
        }
        case V::array: {
            MetadataValue::Array out;
            out.reserve(value.size());
            for (const auto& element : value) out.push_back(exifToolConvertToMetadataValue(element));
            return MetadataValue::array(std::move(out));
        }
        case V::object: {
            MetadataValue::Dictionary out;
            for (const auto& [k, v] : value.items()) out.emplace(k, exifToolConvertToMetadataValue(v));
            return MetadataValue::dictionary(std::move(out));
        }
        case V::null:
        case V::binary:
        case V::discarded: break;
    }
    return MetadataValue::string(value.dump());
}

std::string exifToolHumanReadableName(std::string_view tag) {
    // A lower-case letter followed by a capital: "ImageWidth" → "Image Width".
    std::string spaced;
    spaced.reserve(tag.size() + tag.size() / 2);
    for (std::size_t i = 0; i < tag.size(); ++i) {
        spaced.push_back(tag[i]);
        if (isLower(tag[i]) && i + 1 < tag.size() && isUpper(tag[i + 1])) spaced.push_back(' ');
    }
    // A run of capitals that ends where a word starts: "GPSLatitude" → "GPS Latitude".
    std::string out;
    out.reserve(spaced.size() + spaced.size() / 2);
    std::size_t i = 0;
    while (i < spaced.size()) {
        if (!isUpper(spaced[i])) {
            out.push_back(spaced[i++]);
            continue;
        }
        std::size_t end = i;
        while (end < spaced.size() && isUpper(spaced[end])) ++end;
        const bool wordFollows = end < spaced.size() && isLower(spaced[end]);
        if (end - i >= 2 && wordFollows) {
            out.append(spaced, i, end - i - 1);
            out.push_back(' ');
            out.push_back(spaced[end - 1]);
        } else {
            out.append(spaced, i, end - i);
        }
        i = end;
    }
    return out;
}

bool isExifToolStructuralTag(std::string_view tag) {
    const std::string t = lowercased(tag);
    return std::find(kStructuralTags.begin(), kStructuralTags.end(), t) != kStructuralTags.end();
}

bool isExifToolSkippedKey(std::string_view key) {
    return std::find(kSkippedKeys.begin(), kSkippedKeys.end(), key) != kSkippedKeys.end();
}

MetadataItem exifToolItem(std::string_view jsonKey, const nlohmann::ordered_json& value) {
    const auto colon = jsonKey.find(':');
    const std::string_view group = colon == std::string_view::npos ? std::string_view{} : jsonKey.substr(0, colon);
    const std::string_view tag = colon == std::string_view::npos ? jsonKey : jsonKey.substr(colon + 1);
    const std::string g = lowercased(group);
    const bool removable = g != "file" && g != "system" && !isExifToolStructuralTag(tag);
    const std::string id = "ExifTool." + std::string(jsonKey);
    return MetadataItem{id,
                        id,
                        exifToolHumanReadableName(tag),
                        exifToolConvertToMetadataValue(value),
                        exifToolCategorize(group, tag),
                        MetadataSource::exifTool,
                        removable};
}

std::vector<MetadataItem> parseExifToolJSON(std::string_view data, const std::filesystem::path&) {
    // exiftool prints file names and some values as the raw bytes it found; the parser insists
    // on UTF-8, so stray bytes become U+FFFD rather than failing the whole read.
    const std::string text = replacingInvalidUTF8(data);
    if (!jsonNestingWithin(text, kExifToolMaxJSONDepth))
        throw PipelineError::exifToolFailed(
            "Failed to parse ExifTool JSON: nested deeper than " + std::to_string(kExifToolMaxJSONDepth) + " levels");
    nlohmann::ordered_json root;
    try {
        root = nlohmann::ordered_json::parse(text);
    } catch (const nlohmann::json::exception& e) {
        throw PipelineError::exifToolFailed(std::string("Failed to parse ExifTool JSON: ") + e.what());
    }
    if (!root.is_array() || root.empty() || !root.front().is_object())
        throw PipelineError::exifToolFailed("Unexpected ExifTool JSON structure");

    std::vector<MetadataItem> items;
    const auto& object = root.front();
    items.reserve(object.size());
    for (const auto& [key, value] : object.items()) {
        if (isExifToolSkippedKey(key)) continue;
        items.push_back(exifToolItem(key, value));
    }
    return items;
}

std::string replacingInvalidUTF8(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    const auto* p = reinterpret_cast<const unsigned char*>(text.data());
    std::size_t i = 0;
    while (i < text.size()) {
        const std::size_t n = utf8SequenceLength(p + i, text.size() - i);
        if (n == 0) {
            out += "\xEF\xBF\xBD";
            ++i;
        } else {
            out.append(text.substr(i, n));
            i += n;
        }
    }
    return out;
}

}  // namespace tavrin
