#include "av/av_metadata_reader.h"

#include <cmath>
#include <map>
#include <set>

namespace tavrin {

std::set<FileType> AVMetadataReader::supportedTypes() const {
    return {FileType::mov, FileType::mp4, FileType::avi, FileType::mp3,
            FileType::m4a, FileType::wav, FileType::aiff, FileType::flac};
}

MetadataTree AVMetadataReader::readMetadata(const std::filesystem::path& url) const {
    const FileType type = detectFileType(url);
    return buildTree(loadMetadataSync(url), url, type);
}

// The platform loads asynchronously and blocks here on a semaphore; our walkers are
// synchronous, so the load simply runs on the calling thread.
std::vector<MetadataItem> AVMetadataReader::loadMetadataSync(const std::filesystem::path& url) {
    return items(avAssetLoader::load(url));
}

std::vector<MetadataItem> AVMetadataReader::items(const AVAssetMetadata& asset) {
    std::vector<MetadataItem> out;
    std::set<std::string> seen;
    auto walk = [&](const std::vector<AVMetadataEntry>& entries, std::optional<std::string_view> fallback) {
        for (const auto& entry : entries) {
            if (entry.identifier.empty()) continue;
            const std::string space = resolveKeySpaceName(entry.identifier, fallback);
            const std::string name = keyName(entry.identifier);
            const std::string key = space + "." + name;
            if (!seen.insert(key).second) continue;
            out.push_back({key, key, humanReadableName(name, space), extractValue(entry.value),
                           categorizeAVMetadata(name, space), MetadataSource::avFoundation, true});
        }
    };
    walk(asset.commonMetadata(), "common");
    walk(asset.metadata, std::nullopt);
    if (!seen.count("AVAsset.creationDate") && asset.creationDate)
        out.push_back({"AVAsset.creationDate", "AVAsset.creationDate", "Creation Date",
                       MetadataValue::date(*asset.creationDate), MetadataCategory::timestamps,
                       MetadataSource::avFoundation, true});
    return out;
}

MetadataValue AVMetadataReader::extractValue(const AVRawValue& value) {
    if (const auto* s = std::get_if<std::string>(&value)) return MetadataValue::string(*s);
    if (const auto* d = std::get_if<double>(&value)) {
        // Whole numbers within the range of a 64-bit integer read as integers.
        if (std::isfinite(*d) && std::trunc(*d) == *d && std::fabs(*d) < 9.0e18)
            return MetadataValue::integer(static_cast<std::int64_t>(*d));
        return MetadataValue::number(*d);
    }
    if (const auto* t = std::get_if<Date>(&value)) return MetadataValue::date(*t);
    if (const auto* b = std::get_if<std::vector<std::uint8_t>>(&value)) return MetadataValue::data(*b);
    return MetadataValue::null();
}

MetadataCategory AVMetadataReader::categorizeAVMetadata(std::string_view keyName, std::string_view keySpace) {
    std::string k(keyName);
    for (char& c : k)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    auto any = [&](std::initializer_list<std::string_view> words) {
        for (auto w : words)
            if (k.find(w) != std::string::npos) return true;
        return false;
    };
    if (any({"location", "gps"}) || k == "com.apple.quicktime.location.iso6709") return MetadataCategory::location;
    if (any({"make", "model", "camera", "device", "com.apple.quicktime.make", "com.apple.quicktime.model"}))
        return MetadataCategory::deviceInfo;
    if (any({"author", "artist", "creator", "albumartist", "composer", "performer", "publisher", "copyright", "owner"}))
        return MetadataCategory::authorIdentity;
    if (any({"date", "creation", "year", "time", "recorded"})) return MetadataCategory::timestamps;
    if (any({"software", "encoder", "tool", "handler", "com.apple.quicktime.software"}))
        return MetadataCategory::softwareInfo;
    if (keySpace == "ID3" || keySpace == "iTunes") return MetadataCategory::authorIdentity;
    return MetadataCategory::softwareInfo;
}

namespace {

std::string upperFirst(std::string s) {
    if (!s.empty() && s[0] >= 'a' && s[0] <= 'z') s[0] = static_cast<char>(s[0] - 'a' + 'A');
    return s;
}

}  // namespace

std::string AVMetadataReader::humanReadableName(std::string_view key, std::string_view /*keySpace*/) {
    if (const auto dot = key.rfind('.'); dot != std::string_view::npos) return upperFirst(std::string(key.substr(dot + 1)));
    std::string rest(key);
    static constexpr std::string_view copyrightSign = "\u00a9";
    if (rest.starts_with(copyrightSign)) rest.erase(0, copyrightSign.size());
    static const std::map<std::string, std::string, std::less<>> names = {
        {"ART", "Artist"}, {"nam", "Title"},    {"alb", "Album"},         {"gen", "Genre"},
        {"day", "Date"},   {"cmt", "Comment"},  {"wrt", "Composer"},      {"too", "Encoding Tool"},
        {"grp", "Grouping"}, {"lyr", "Lyrics"}, {"des", "Description"},   {"pub", "Publisher"},
    };
    if (auto it = names.find(rest); it != names.end()) return it->second;
    // "([a-z])([A-Z])" replaced by "$1 $2", matched left to right without overlap.
    std::string spaced;
    for (std::size_t i = 0; i < rest.size(); ++i) {
        spaced += rest[i];
        const bool lower = rest[i] >= 'a' && rest[i] <= 'z';
        if (lower && i + 1 < rest.size() && rest[i + 1] >= 'A' && rest[i + 1] <= 'Z') {
            spaced += ' ';
            spaced += rest[++i];
        }
    }
    return upperFirst(spaced);
}

std::string AVMetadataReader::resolveKeySpaceName(std::string_view identifier, std::optional<std::string_view> fallback) {
    auto starts = [&](std::string_view p) { return identifier.substr(0, p.size()) == p; };
    if (starts("mdta/")) return "QuickTimeMetadata";
    if (starts("qtud/") || starts("uiso/")) return "QuickTimeUserData";
    if (starts("itsk/") || starts("itlk/")) return "iTunes";
    if (starts("id3/")) return "ID3";
    if (starts("comn/")) return "Common";
    return fallback ? std::string(*fallback) : "AV";
}

std::string AVMetadataReader::keyName(std::string_view identifier) {
    const auto slash = identifier.find('/');
    return std::string(slash == std::string_view::npos ? identifier : identifier.substr(slash + 1));
}

}  // namespace tavrin
