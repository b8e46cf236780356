#include "av/av_asset.h"

#include <array>
#include <cstring>

#include "av/aiff_walker.h"
#include "av/avformat_support.h"
#include "av/flac_walker.h"
#include "av/id3_walker.h"
#include "av/quicktime_walker.h"
#include "av/riff_walker.h"

namespace tavrin {

using Case = AVContainerError::Case;

std::vector<AVMetadataEntry> AVAssetMetadata::commonMetadata() const {
    std::vector<AVMetadataEntry> out;
    for (const auto& e : metadata)
        if (!e.commonKey.empty()) out.push_back(e);
    return out;
}

void AVAssetMetadata::add(AVMetadataEntry entry) {
    enforce(metadata.size() < avLimits::maxEntries, Case::tooManyItems);
    metadata.push_back(std::move(entry));
}

namespace {

// Seconds from 1904-01-01 to 1970-01-01, and the last second of 2199.
constexpr std::int64_t kEpochOffset1904 = 2082844800;
constexpr std::int64_t kLastSupportedSecond = 7258118399;

std::optional<Date> dateFromUnixSeconds(std::int64_t seconds) {
    if (seconds < -kEpochOffset1904 || seconds > kLastSupportedSecond) return std::nullopt;
    return Date(std::chrono::seconds(seconds));
}

bool digits(std::string_view s, std::size_t at, std::size_t n, int& value) {
    if (s.size() < at + n) return false;
    value = 0;
    for (std::size_t i = at; i < at + n; ++i) {
        if (s[i] < '0' || s[i] > '9') return false;
        value = value * 10 + (s[i] - '0');
    }
    return true;
}

}  // namespace

std::optional<Date> dateFrom1904Seconds(std::uint64_t seconds) {
    if (seconds == 0 || seconds > static_cast<std::uint64_t>(kLastSupportedSecond + kEpochOffset1904)) return std::nullopt;
    return dateFromUnixSeconds(static_cast<std::int64_t>(seconds) - kEpochOffset1904);
}

std::optional<Date> parseISO8601Date(std::string_view s) {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    if (!digits(s, 0, 4, year) || s.size() < 10 || s[4] != '-' || !digits(s, 5, 2, month) || s[7] != '-' ||
        !digits(s, 8, 2, day))
        return std::nullopt;
    const std::chrono::year_month_day ymd{std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                                          std::chrono::day(static_cast<unsigned>(day))};
    if (!ymd.ok()) return std::nullopt;
    std::size_t pos = 10;
    int offsetMinutes = 0;
    if (s.size() > pos && (s[pos] == 'T' || s[pos] == ' ')) {
        if (!digits(s, pos + 1, 2, hour) || s.size() < pos + 6 || s[pos + 3] != ':' || !digits(s, pos + 4, 2, minute))
            return std::nullopt;
        pos += 6;
        if (s.size() > pos && s[pos] == ':') {
            if (!digits(s, pos + 1, 2, second)) return std::nullopt;
            pos += 3;
            // Fractions of a second are dropped.
            if (s.size() > pos && s[pos] == '.')
                for (++pos; pos < s.size() && s[pos] >= '0' && s[pos] <= '9';) ++pos;
        }
        if (hour > 23 || minute > 59 || second > 60) return std::nullopt;
        if (s.size() > pos && s[pos] == 'Z') {
            ++pos;
        } else if (s.size() > pos && (s[pos] == '+' || s[pos] == '-')) {
            int oh = 0, om = 0;
            const int sign = s[pos] == '-' ? -1 : 1;
            if (!digits(s, pos + 1, 2, oh)) return std::nullopt;
            std::size_t m = pos + 3;
            if (s.size() > m && s[m] == ':') ++m;
            if (!digits(s, m, 2, om)) return std::nullopt;
            offsetMinutes = sign * (oh * 60 + om);
            pos = m + 2;
        }
    }
    if (pos != s.size()) return std::nullopt;
    const std::int64_t days = std::chrono::sys_days(ymd).time_since_epoch().count();
    return dateFromUnixSeconds(days * 86400 + hour * 3600 + minute * 60 + second - offsetMinutes * 60);
}

namespace avAssetLoader {

std::optional<Container> sniff(std::span<const std::uint8_t> h) {
    auto at = [&](std::size_t offset, const char* text) {
        const std::size_t n = std::strlen(text);
        return h.size() >= offset + n && std::memcmp(h.data() + offset, text, n) == 0;
    };
    for (const char* type : {"ftyp", "moov", "mdat", "free", "skip", "wide", "pnot", "uuid"})
        if (at(4, type)) return Container::quickTime;
    if (at(0, "RIFF") && (at(8, "WAVE") || at(8, "AVI "))) return Container::riff;
    if (at(0, "FORM") && (at(8, "AIFF") || at(8, "AIFC"))) return Container::aiff;
    if (at(0, "fLaC")) return Container::flac;
    if (at(0, "ID3")) return Container::mp3;
    if (h.size() >= 2 && h[0] == 0xFF && (h[1] & 0xE0) == 0xE0) return Container::mp3;
    return std::nullopt;
}

AVAssetMetadata load(const ByteSource& source) {
    std::array<std::uint8_t, 16> head{};
    const std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(source.size(), head.size()));
    source.read(0, std::span(head.data(), n));
    auto container = sniff(std::span(head.data(), n));
    if (!container) throw AVContainerError(Case::unrecognisedContainer, "");
    // An ID3 tag may also stand in front of a FLAC stream.
    if (*container == Container::mp3 && std::memcmp(head.data(), "ID3", 3) == 0) {
        const std::uint64_t tag = id3Walker::tagSize(source, 0);
        std::array<std::uint8_t, 4> marker{};
        if (tag > 0 && source.size() - tag >= 4) {
            source.read(tag, marker);
            if (std::memcmp(marker.data(), "fLaC", 4) == 0) container = Container::flac;
        }
    }
    AVAssetMetadata out;
    switch (*container) {
        case Container::quickTime: quickTimeWalker::walk(source, out); break;
        case Container::riff: riffWalker::walk(source, out); break;
        case Container::aiff: aiffWalker::walk(source, out); break;
        case Container::flac: flacWalker::walk(source, out); break;
        case Container::mp3:
            id3Walker::readTag(source, 0, out);
            id3Walker::readVersion1Tag(source, out);
            break;
    }
    // The asset's creation date: a common creation date that reads as a date, else the
    // movie header's time.
    for (const auto& e : out.metadata) {
        if (e.commonKey != "creationDate") continue;
        if (const auto* text = std::get_if<std::string>(&e.value))
            if (auto date = parseISO8601Date(*text)) {
                out.creationDate = date;
                break;
            }
    }
    return out;
}

AVAssetMetadata load(const std::filesystem::path& path) {
    const FileByteSource source(path);
    AVAssetMetadata out = load(static_cast<const ByteSource&>(source));
    std::array<std::uint8_t, 12> head{};
    if (source.size() >= head.size()) {
        source.read(0, head);
        if (std::memcmp(head.data(), "RIFF", 4) == 0 && std::memcmp(head.data() + 8, "AVI ", 4) == 0)
            avformatSupport::appendStreamTags(path, out);
    }
    return out;
}

}  // namespace avAssetLoader

}  // namespace tavrin
