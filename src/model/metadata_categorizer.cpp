#include "model/metadata_categorizer.h"

#include <algorithm>
#include <cctype>
#include <string>

namespace tavrin {

namespace {

std::string lower(std::string_view s) {
    std::string out(s);
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return std::tolower(c); });
    return out;
}

bool containsAny(const std::string& text, std::initializer_list<std::string_view> words) {
    return std::any_of(words.begin(), words.end(), [&](std::string_view w) { return text.find(w) != std::string::npos; });
}

// Keys often contain several of these words, so the row order decides ("datecreated" is a
// timestamp only because no earlier row matches it).
const std::vector<std::pair<MetadataCategory, std::vector<std::string_view>>>& patternRows() {
    using C = MetadataCategory;
    static const std::vector<std::pair<C, std::vector<std::string_view>>> rows = {
        {C::location, {"gps", "latitude", "longitude", "altitude", "location", "geotag"}},
        {C::deviceInfo,
         {"make", "model", "serial", "lens", "camera", "device", "firmware", "uniqueid", "bodyserial",
          "internalserialnumber"}},
        {C::authorIdentity,
         {"author", "artist", "creator", "copyright", "owner", "by-line", "byline", "writer", "credit", "contact",
          "email"}},
        {C::timestamps, {"date", "time", "created", "modified"}},
        {C::softwareInfo,
         {"software", "version", "producer", "application", "encoder", "tool", "hostcomputer", "processingsoft"}},
        {C::thumbnails, {"thumbnail", "preview", "jpeginterchangeformat"}},
        {C::commentsAnnotations, {"comment", "annotation", "note", "remark", "description", "caption"}},
        {C::companyInfo, {"company", "organization", "department", "manager"}},
        {C::documentHistory, {"history", "revision", "editingtime", "numberofrevisions"}},
    };
    return rows;
}

}  // namespace

MetadataCategory MetadataCategorizer::categorize(std::string_view key, std::string_view sourceText) {
    const std::string source = lower(sourceText);
    if (source == "gps") return MetadataCategory::location;
    if (source == "makerapple") {
        const std::string k = lower(key);
        if (containsAny(k, {"acceleration", "hdrimagetype", "burstid", "scene"})) return MetadataCategory::deviceInfo;
        if (containsAny(k, {"rundate", "timestamp"})) return MetadataCategory::timestamps;
        return MetadataCategory::deviceInfo;
    }
    std::optional<MetadataCategory> hit;
    if (source == "exif" || source == "tiff") hit = ExifKeyMap::lookup(key);
    else if (source == "iptc") hit = IPTCKeyMap::lookup(key);
    else if (source == "xmp") hit = XMPKeyMap::lookup(key);
    if (hit) return *hit;
    if ((hit = ExifKeyMap::lookup(key))) return *hit;
    if ((hit = IPTCKeyMap::lookup(key))) return *hit;
    if ((hit = XMPKeyMap::lookup(key))) return *hit;

    const std::string k = lower(key);
    for (const auto& [category, patterns] : patternRows())
        for (auto p : patterns)
            if (k.find(p) != std::string::npos) return category;
    return (source == "exif" || source == "tiff") ? MetadataCategory::colorTechnical : MetadataCategory::softwareInfo;
}

}  // namespace tavrin
