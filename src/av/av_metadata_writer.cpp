#include "av/av_metadata_writer.h"

#include <algorithm>
#include <chrono>
#include <fmt/chrono.h>
#include <fmt/core.h>
#include <map>
#include <set>
#include <system_error>

#include "av/av_errors.h"
#include "av/av_metadata_reader.h"
#include "av/avformat_support.h"
#include "model/cleaning_result_builder.h"
#include "model/pipeline_error.h"

namespace tavrin {

std::set<FileType> AVMetadataWriter::supportedTypes() const {
    return {FileType::mov, FileType::mp4, FileType::mp3, FileType::m4a, FileType::wav, FileType::aiff};
}

std::optional<std::string> AVMetadataWriter::avFileType(const std::filesystem::path& url) {
    std::string ext = url.extension().string();
    if (!ext.empty()) ext.erase(0, 1);
    for (char& c : ext)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    static const std::map<std::string, std::string> muxers = {
        {"mov", "mov"}, {"mp4", "mp4"},   {"m4v", "mp4"},   {"m4a", "ipod"},
        {"wav", "wav"}, {"aiff", "aiff"}, {"aif", "aiff"},  {"mp3", "mp3"},
    };
    auto it = muxers.find(ext);
    if (it == muxers.end()) return std::nullopt;
    return it->second;
}

bool AVMetadataWriter::isFullStrip(const CleaningProfile& profile) {
    for (MetadataCategory c : {MetadataCategory::location, MetadataCategory::deviceInfo, MetadataCategory::authorIdentity,
                               MetadataCategory::timestamps, MetadataCategory::softwareInfo})
        if (!profile.categoriesToRemove.count(c)) return false;
    return profile.specificKeysToRemove.empty() && profile.specificKeysToKeep.empty();
}

std::string AVMetadataWriter::metadataKey(const AVMetadataEntry& entry) {
    if (entry.identifier.empty()) return "AV.unknown";
    return AVMetadataReader::resolveKeySpaceName(entry.identifier, std::nullopt) + "." +
           AVMetadataReader::keyName(entry.identifier);
}

MetadataCategory AVMetadataWriter::categorize(const AVMetadataEntry& entry) {
    // The common key decides first where it names a place or a device: the user data location
    // ("qtud/©xyz") says "location" neither in its identifier nor in its key, and a profile
    // that removes locations must not keep it.
    if (entry.commonKey == "location") return MetadataCategory::location;
    if (entry.commonKey == "make" || entry.commonKey == "model") return MetadataCategory::deviceInfo;
    const std::string& i = entry.identifier;
    std::string k = AVMetadataReader::keyName(entry.identifier);
    for (char& c : k)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    auto in = [](const std::string& text, std::initializer_list<std::string_view> words) {
        return std::any_of(words.begin(), words.end(), [&](std::string_view w) { return text.find(w) != std::string::npos; });
    };
    if (in(i, {"location"}) || in(k, {"gps", "location", "coordinates"})) return MetadataCategory::location;
    if (in(i, {"make", "model"}) || in(k, {"make", "model", "camera", "device", "serial"}))
        return MetadataCategory::deviceInfo;
    if (in(i, {"author", "artist", "albumArtist", "composer"}) || in(k, {"author", "artist", "creator", "copyright", "owner"}))
        return MetadataCategory::authorIdentity;
    if (in(i, {"creationDate", "date"}) || in(k, {"date", "time", "year"})) return MetadataCategory::timestamps;
    // "software", "encoder", "tool" and "handler" land here as well.
    return MetadataCategory::softwareInfo;
}

std::pair<std::vector<AVMetadataEntry>, std::vector<AVMetadataEntry>> AVMetadataWriter::filterMetadata(
    const std::vector<AVMetadataEntry>& entries, const CleaningProfile& profile) {
    std::vector<AVMetadataEntry> kept;
    std::vector<AVMetadataEntry> removed;
    for (const auto& entry : entries) {
        const std::string key = metadataKey(entry);
        if (profile.specificKeysToKeep.count(key)) {
            kept.push_back(entry);
        } else if (profile.specificKeysToRemove.count(key) || profile.categoriesToRemove.count(categorize(entry))) {
            removed.push_back(entry);
        } else {
            kept.push_back(entry);
        }
    }
    return {std::move(kept), std::move(removed)};
}

MetadataItem AVMetadataWriter::convertAVMetadataItem(const AVMetadataEntry& entry, MetadataCategory category) {
    MetadataValue value;
    if (const auto* s = std::get_if<std::string>(&entry.value)) value = MetadataValue::string(*s);
    else if (const auto* d = std::get_if<double>(&entry.value)) value = MetadataValue::number(*d);
    else if (const auto* t = std::get_if<Date>(&entry.value)) value = MetadataValue::date(*t);
    else if (const auto* b = std::get_if<std::vector<std::uint8_t>>(&entry.value)) value = MetadataValue::data(*b);
    else throw AVMetadataReaderError(AVMetadataReaderError::Case::propertyLoadFailed, "value");
    const std::string key = metadataKey(entry);
    return {key, key, entry.commonKey.empty() ? key : entry.commonKey, std::move(value), category,
            MetadataSource::avFoundation, true};
}

namespace {

std::optional<std::string> tagText(const AVRawValue& value) {
    if (const auto* s = std::get_if<std::string>(&value)) return *s;
    if (const auto* d = std::get_if<double>(&value)) return fmt::format("{}", *d);
    if (const auto* t = std::get_if<Date>(&value))
        return fmt::format("{:%Y-%m-%dT%H:%M:%S}Z", std::chrono::floor<std::chrono::seconds>(*t));
    return std::nullopt;
}

bool isQuickTimeFamily(const std::string& muxer) { return muxer == "mov" || muxer == "mp4" || muxer == "ipod"; }

}  // namespace

std::optional<std::pair<std::string, std::string>> AVMetadataWriter::libraryTag(const AVMetadataEntry& entry,
                                                                                const std::string& muxer) {
    const auto text = tagText(entry.value);
    if (!text) return std::nullopt;
    const std::string name = AVMetadataReader::keyName(entry.identifier);
    if (isQuickTimeFamily(muxer)) {
        if (entry.identifier.starts_with("mdta/")) return std::pair{name, *text};
        if (entry.identifier == "mvhd/movieCreationDate") return std::pair{std::string("creation_time"), *text};
    }
    if (muxer == "mp3" && entry.identifier.starts_with("id3/") && name.size() == 4 && name[0] == 'T' && name != "TXXX")
        return std::pair{name, *text};
    // The library's generic names, which every muxer maps to its own fields.
    static const std::map<std::string, std::string> common = {
        {"title", "title"},         {"artist", "artist"},       {"album", "album"},
        {"author", "author"},       {"creationDate", "date"},   {"copyrights", "copyright"},
        {"description", "comment"}, {"software", "encoder"},    {"location", "location"},
        {"publisher", "publisher"}, {"creator", "composer"},
    };
    if (auto it = common.find(entry.commonKey); it != common.end()) return std::pair{it->second, *text};
    return std::nullopt;
}

CleaningResult AVMetadataWriter::cleanMetadata(const std::filesystem::path& source,
                                               const std::filesystem::path& destination,
                                               const CleaningProfile& profile) const {
    const auto started = std::chrono::steady_clock::now();
    const auto muxer = avFileType(source);
    if (!muxer) {
        const std::string ext = source.extension().string();
        throw PipelineError::writeFailed(
            source, std::make_exception_ptr(AVWriterError(AVWriterError::Case::unsupportedFormat,
                                                          ext.empty() ? ext : ext.substr(1))));
    }
    AVAssetMetadata asset;
    try {
        asset = avAssetLoader::load(source);
    } catch (...) {
        throw PipelineError::readFailed(source, std::current_exception());
    }

    std::vector<CleaningWarning> warnings;
    std::vector<AVMetadataEntry> kept;
    std::vector<AVMetadataEntry> removed;
    if (isFullStrip(profile)) {
        // A full strip keeps nothing a walker can name.
        removed = asset.metadata;
    } else {
        std::tie(kept, removed) = filterMetadata(asset.metadata, profile);
    }

    auto report = [&](const std::vector<AVMetadataEntry>& entries, std::vector<MetadataItem>& into, const char* what) {
        for (const auto& entry : entries) {
            try {
                into.push_back(convertAVMetadataItem(entry, categorize(entry)));
            } catch (const std::exception& e) {
                warnings.push_back(
                    {"AVMetadataReporting", fmt::format("Could not read {} metadata item for reporting: {}", what, e.what())});
            }
        }
    };
    // A kept entry the copy does not hold is reported as removed, with a warning.
    auto leftOut = [&](AVMetadataEntry& entry) {
        warnings.push_back(
            {"AVExport", "Retained metadata item could not be carried into the copy: " + metadataKey(entry)});
        removed.push_back(std::move(entry));
    };
    avformatSupport::RemuxRequest request{source, destination, *muxer, {}, false};
    std::vector<AVMetadataEntry> carried;
    for (auto& entry : kept) {
        if (auto tag = libraryTag(entry, *muxer)) {
            request.writeMetadataKeys |= entry.identifier.starts_with("mdta/");
            request.metadata.push_back(std::move(*tag));
            carried.push_back(std::move(entry));
        } else {
            leftOut(entry);
        }
    }
    avformatSupport::RemuxOutcome outcome;
    try {
        outcome = avformatSupport::remux(request);
    } catch (...) {
        throw PipelineError::writeFailed(destination, std::current_exception());
    }
    // A muxer may still leave a tag out (an encoder name under bit-exact output, say): what the
    // copy does not hold is reported as removed, not as kept. A copy our walkers cannot read
    // proves nothing gone, so its items stay reported as kept.
    std::optional<std::set<std::string>> written;
    if (!carried.empty()) {
        try {
            written.emplace();
            for (const auto& entry : avAssetLoader::load(destination).metadata)
                if (auto text = tagText(entry.value)) written->insert(std::move(*text));
        } catch (const std::exception&) {
            written.reset();
        }
    }
    if (written) {
        std::vector<AVMetadataEntry> present;
        for (auto& entry : carried) {
            const auto text = tagText(entry.value);
            if (text && written->count(*text)) present.push_back(std::move(entry));
            else leftOut(entry);
        }
        carried = std::move(present);
    }
    std::vector<MetadataItem> removedItems;
    std::vector<MetadataItem> retainedItems;
    report(removed, removedItems, "removed");
    report(carried, retainedItems, "retained");
    if (outcome.droppedStreams > 0)
        warnings.push_back({"AVExport", fmt::format("Left out {} stream(s) without audio or video (cover art, "
                                                    "timecode or data tracks)",
                                                    outcome.droppedStreams)});

    CleaningResult result = buildCleaningResult(source, destination, profile, std::move(removedItems),
                                                std::move(retainedItems), false);
    result.warnings = std::move(warnings);
    result.duration = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    return result;
}

}  // namespace tavrin
