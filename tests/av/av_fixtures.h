#pragma once
// Media made in code for the audio and video tests: byte builders for QuickTime atoms, ID3 frames,
// RIFF and AIFF chunks and FLAC blocks, and whole files muxed by libavformat from packets made here.

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tavrin::testing::av {

using S = std::string;
using Fields = std::vector<std::pair<std::string, std::string>>;

// Big- and little-endian integers as bytes.
inline S be16(std::uint32_t v) { return {char(v >> 8), char(v)}; }
inline S be32(std::uint32_t v) { return be16(v >> 16) + be16(v & 0xFFFF); }
inline S be64(std::uint64_t v) { return be32(std::uint32_t(v >> 32)) + be32(std::uint32_t(v)); }
inline S le32(std::uint32_t v) { return {char(v), char(v >> 8), char(v >> 16), char(v >> 24)}; }
inline std::uint32_t size32(std::string_view s) { return static_cast<std::uint32_t>(s.size()); }
// A four-character code that starts with the © byte (0xA9): cr("xyz") is "©xyz".
inline S cr(std::string_view rest) { return "\xA9" + S(rest); }

// --- QuickTime / ISO base media ---
inline S box(std::string_view type, std::string_view payload) { return be32(8 + size32(payload)) + S(type) + S(payload); }
inline S fullBox(std::string_view type, std::uint8_t version, std::string_view payload) {
    return box(type, S(1, char(version)) + S(3, '\0') + S(payload));
}
// A QuickTime user data text atom: (length, language, text).
inline S userDataText(std::string_view type, std::string_view text) {
    return box(type, be16(size32(text)) + be16(0x15C7) + S(text));
}
// A `data` atom with a type indicator (1 UTF-8, 21 signed integer, 23 float, 13 JPEG …).
inline S dataAtom(std::uint32_t type, std::string_view value) { return box("data", be32(type) + be32(0) + S(value)); }
inline S handler(std::string_view type) { return fullBox("hdlr", 0, be32(0) + S(type) + S(13, '\0')); }
// `meta` with an `mdta` handler, `keys` and `ilst` of UTF-8 values.
inline S quickTimeMeta(const Fields& keyValues) {
    S keys = be32(std::uint32_t(keyValues.size())), items;
    for (std::uint32_t i = 0; i < keyValues.size(); ++i) {
        keys += be32(8 + size32(keyValues[i].first)) + "mdta" + keyValues[i].first;
        items += box(be32(i + 1), dataAtom(1, keyValues[i].second));
    }
    return box("meta", handler("mdta") + fullBox("keys", 0, keys) + box("ilst", items));
}
// `meta` (full box) with an `mdir` handler and `ilst` items, each a fourcc with a data atom.
inline S iTunesMeta(const Fields& items) {
    S list;
    for (const auto& [type, value] : items) list += box(type, dataAtom(1, value));
    return fullBox("meta", 0, handler("mdir") + box("ilst", list));
}
// `mvhd`, `tkhd` or `mdhd` (version 0) with times in seconds since 1904.
inline S headerBox(std::string_view type, std::uint32_t created, std::uint32_t modified) {
    return fullBox(type, 0, be32(created) + be32(modified) + be32(600) + be32(0) + S(16, '\0'));
}
// ftyp + moov(payload) + a small mdat.
inline S quickTimeFile(std::string_view moovPayload, std::string_view brand = "qt  ") {
    return box("ftyp", S(brand) + be32(0) + S(brand)) + box("moov", moovPayload) + box("mdat", S(64, '\x55'));
}

// --- ID3 ---
inline S syncsafe(std::uint32_t v) {
    return {char((v >> 21) & 0x7F), char((v >> 14) & 0x7F), char((v >> 7) & 0x7F), char(v & 0x7F)};
}
// A version 2.2, 2.3 or 2.4 frame (2.4 gets a syncsafe size); text frames take an encoding byte.
inline S id3Frame(int version, std::string_view id, std::string_view body, std::uint16_t flags = 0) {
    if (version == 2) return S(id) + be32(size32(body)).substr(1) + S(body);
    return S(id) + (version == 4 ? syncsafe(size32(body)) : be32(size32(body))) + be16(flags) + S(body);
}
inline S id3TextFrame(int version, std::string_view id, std::string_view text) {
    return id3Frame(version, id, "\x03" + S(text));
}
inline S id3Tag(int version, std::string_view frames, std::uint8_t flags = 0) {
    return S("ID3") + char(version) + '\0' + char(flags) + syncsafe(size32(frames)) + S(frames);
}
inline S id3v1(std::string_view title, std::string_view artist, std::string_view year, std::uint8_t genre) {
    auto field = [](std::string_view s, std::size_t n) { return S(s.substr(0, n)) + S(n - std::min(n, s.size()), '\0'); };
    return "TAG" + field(title, 30) + field(artist, 30) + field("", 30) + field(year, 4) + field("", 30) + char(genre);
}
// One silent MPEG-1 Layer III frame (128 kbit/s, 44.1 kHz), 417 bytes.
inline S mp3Frame() { return S("\xFF\xFB\x90\x64", 4) + S(413, '\0'); }

// --- RIFF, AIFF, FLAC (chunks of odd size are padded) ---
inline S riffChunk(std::string_view id, std::string_view payload) {
    return S(id) + le32(size32(payload)) + S(payload) + S(payload.size() & 1, '\0');
}
inline S riffFile(std::string_view form, std::string_view chunks) {
    return "RIFF" + le32(4 + size32(chunks)) + S(form) + S(chunks);
}
inline S infoList(const Fields& fields) {
    S list = "INFO";
    for (const auto& [id, text] : fields) list += riffChunk(id, text + '\0');
    return riffChunk("LIST", list);
}
inline S aiffChunk(std::string_view id, std::string_view payload) {
    return S(id) + be32(size32(payload)) + S(payload) + S(payload.size() & 1, '\0');
}
inline S aiffFile(std::string_view chunks) {
    const S comm = aiffChunk("COMM", be16(1) + be32(0) + be16(16) + S("\x40\x0B\xAC\x44", 4) + S(6, '\0'));
    return "FORM" + be32(4 + size32(comm) + size32(chunks)) + "AIFF" + comm + S(chunks);
}
inline S flacBlock(int type, bool last, std::string_view payload) {
    return S(1, char((last ? 0x80 : 0) | type)) + be32(size32(payload)).substr(1) + S(payload);
}
inline S vorbisComment(std::string_view vendor, const std::vector<S>& comments) {
    S b = le32(size32(vendor)) + S(vendor) + le32(std::uint32_t(comments.size()));
    for (const auto& c : comments) b += le32(size32(c)) + c;
    return b;
}
inline S flacPicture(std::string_view mime, std::string_view data) {
    return be32(3) + be32(size32(mime)) + S(mime) + be32(0) + be32(1) + be32(1) + be32(24) + be32(0) +
           be32(size32(data)) + S(data);
}
inline S flacFile(std::string_view blocks) {
    return "fLaC" + flacBlock(0, false, S(34, '\0')) + S(blocks) + S("\xFF\xF8\x00\x00", 4);
}

// --- Real media through libavformat ---
enum class Audio { none, pcm, mp3, aac };
struct MediaRecipe {
    std::string muxer;  // "mov", "mp4", "ipod", "wav", "aiff", "mp3", "avi"
    bool video = false;  // three 16×16 MJPEG packets
    Audio audio = Audio::pcm;
    Fields tags;  // the library's tag names
};
// Writes the file. Aborts the test (throws std::runtime_error) when the library fails.
void makeMedia(const std::filesystem::path& path, const MediaRecipe& recipe);
// Appends atoms to the top-level `moov` of a file whose `moov` comes after its `mdat`.
void appendToMoov(const std::filesystem::path& path, std::string_view atoms);

struct StreamInfo {
    std::string codec;
    std::string type;  // "audio", "video"
    bool operator==(const StreamInfo&) const = default;
};
struct ProbedMedia {
    std::vector<StreamInfo> streams;
    std::int64_t packets = 0;
    // Every container and stream tag libavformat sees, as "key=value".
    std::vector<std::string> tags;
};
// What libavformat reads back from a file.
ProbedMedia probe(const std::filesystem::path& path);

}  // namespace tavrin::testing::av
