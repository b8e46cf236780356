#include "av/flac_walker.h"

#include <array>
#include <cstring>
#include <fmt/core.h>
#include <map>

#include "av/id3_walker.h"

namespace tavrin::flacWalker {

using bytes::be24;
using bytes::be32;
using bytes::le32;
using Case = AVContainerError::Case;

namespace {

std::string commonKeyForComment(const std::string& upper) {
    static const std::map<std::string, std::string> table = {
        {"TITLE", "title"},         {"ARTIST", "artist"},        {"ALBUM", "album"},
        {"DATE", "creationDate"},   {"COPYRIGHT", "copyrights"}, {"DESCRIPTION", "description"},
        {"ENCODER", "software"},    {"ORGANIZATION", "publisher"}, {"LOCATION", "location"},
        {"COMPOSER", "creator"},
    };
    auto it = table.find(upper);
    return it == table.end() ? "" : it->second;
}

void readVorbisComment(std::span<const std::uint8_t> b, AVAssetMetadata& out) {
    enforce(b.size() >= 4, Case::truncated, "Vorbis comment");
    const std::uint32_t vendorLength = le32(b.data());
    enforce(vendorLength <= b.size() - 4, Case::truncated, "Vorbis vendor string");
    const std::string vendor = avBytes::trimmed(avBytes::textFromBytes(b.subspan(4, vendorLength)));
    if (!vendor.empty()) out.add({"flac/vendor", "", vendor});
    std::size_t pos = 4 + vendorLength;
    enforce(b.size() - pos >= 4, Case::truncated, "Vorbis comment count");
    const std::uint32_t count = le32(b.data() + pos);
    pos += 4;
    enforce(count <= (b.size() - pos) / 4, Case::truncated, "Vorbis comment count");
    for (std::uint32_t i = 0; i < count; ++i) {
        enforce(b.size() - pos >= 4, Case::truncated, "Vorbis comment");
        const std::uint32_t length = le32(b.data() + pos);
        enforce(length <= b.size() - pos - 4, Case::truncated, "Vorbis comment");
        const std::string field = avBytes::textFromBytes(b.subspan(pos + 4, length));
        pos += 4 + length;
        const auto eq = field.find('=');
        if (eq == std::string::npos || eq == 0) continue;
        std::string name = field.substr(0, eq);
        for (char& ch : name)
            if (ch >= 'a' && ch <= 'z') ch = static_cast<char>(ch - 'a' + 'A');
        const std::string common = commonKeyForComment(name);
        out.add({common.empty() ? "vorb/" + name : "comn/" + common, common, field.substr(eq + 1)});
    }
}

void readPicture(std::span<const std::uint8_t> b, AVAssetMetadata& out) {
    // type, MIME length and text, description length and text, width, height, depth, colours,
    // data length, data.
    std::size_t pos = 4;
    auto skipString = [&] {
        enforce(b.size() >= pos + 4, Case::truncated, "FLAC picture");
        const std::uint32_t n = be32(b.data() + pos);
        enforce(n <= b.size() - pos - 4, Case::truncated, "FLAC picture");
        pos += 4 + n;
    };
    skipString();
    skipString();
    enforce(b.size() >= pos + 20, Case::truncated, "FLAC picture");
    pos += 16;
    const std::uint32_t n = be32(b.data() + pos);
    enforce(n <= b.size() - pos - 4, Case::truncated, "FLAC picture data");
    const auto data = b.subspan(pos + 4, n);
    out.add({"comn/artwork", "artwork", std::vector<std::uint8_t>(data.begin(), data.end())});
}

}  // namespace

void walk(const ByteSource& src, AVAssetMetadata& out) {
    std::uint64_t pos = 0;
    // Some taggers put an ID3v2 tag in front of the stream marker.
    if (const std::uint64_t tag = id3Walker::readTag(src, 0, out); tag > 0) pos = tag;
    std::array<std::uint8_t, 4> marker{};
    enforce(src.size() - pos >= 4, Case::truncated, "FLAC marker");
    src.read(pos, marker);
    enforce(std::memcmp(marker.data(), "fLaC", 4) == 0, Case::unrecognisedContainer, "no fLaC marker");
    pos += 4;
    for (std::size_t count = 0;; ++count) {
        enforce(count < avLimits::maxBlocks, Case::tooManyItems, "FLAC blocks");
        if (src.size() - pos < 4)
            throw AVContainerError(Case::unterminatedBlockChain, fmt::format("end of file at offset {}", pos));
        std::array<std::uint8_t, 4> h{};
        src.read(pos, h);
        // Audio frames start with the sync code 0xFFF8 or 0xFFF9; a block header never does.
        if (h[0] == 0xFF && (h[1] & 0xFE) == 0xF8)
            throw AVContainerError(Case::unterminatedBlockChain, fmt::format("audio frame at offset {}", pos));
        const bool last = h[0] & 0x80;
        const int type = h[0] & 0x7F;
        const std::uint64_t length = be24(h.data() + 1);
        if (length > src.size() - pos - 4)
            throw AVContainerError(Case::chunkSizePastEnd, fmt::format("FLAC block at offset {}", pos));
        enforce(type != 127, Case::unrecognisedContainer, "invalid FLAC block type");
        if (type == 4) readVorbisComment(src.readBytes(pos + 4, length, avLimits::maxStructureBytes), out);
        if (type == 6) {
            if (length <= avLimits::maxValueBytes) readPicture(src.readBytes(pos + 4, length, avLimits::maxValueBytes), out);
            else out.add({"comn/artwork", "artwork", {}});
        }
        pos += 4 + length;
        if (last) break;
    }
}

}  // namespace tavrin::flacWalker
