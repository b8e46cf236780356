#pragma once
// Media made in code for the audio and video tests: byte builders for QuickTime atoms, ID3
// frames, RIFF and AIFF chunks and FLAC blocks, and real playable files muxed by libavformat
// from generated frames.

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tavrin::testing::av {

// Big- and little-endian integers as bytes.
std::string be16(std::uint32_t v);
std::string be32(std::uint32_t v);
std::string be64(std::uint64_t v);
std::string le16(std::uint32_t v);
std::string le32(std::uint32_t v);
// A four-character code that starts with the © byte (0xA9): cr("xyz") is "©xyz".
std::string cr(std::string_view rest);

// --- QuickTime / ISO base media ---
std::string box(std::string_view type, std::string_view payload);
std::string fullBox(std::string_view type, std::uint8_t version, std::string_view payload);
// A QuickTime user data text atom: (length, language, text).
std::string userDataText(std::string_view type, std::string_view text);
// A `data` atom with a type indicator (1 UTF-8, 21 signed integer, 23 float, 13 JPEG …).
std::string dataAtom(std::uint32_t type, std::string_view value);
// `meta` with an `mdta` handler, `keys` and `ilst` of UTF-8 values.
std::string quickTimeMeta(const std::vector<std::pair<std::string, std::string>>& keyValues);
// `meta` (full box) with an `mdir` handler and `ilst` items, each a fourcc with a data atom.
std::string iTunesMeta(const std::vector<std::pair<std::string, std::string>>& items);
// `mvhd`, `tkhd` or `mdhd` (version 0) with times in seconds since 1904.
std::string headerBox(std::string_view type, std::uint32_t created, std::uint32_t modified);
// ftyp + moov(payload) + a small mdat.
std::string quickTimeFile(std::string_view moovPayload, std::string_view brand = "qt  ");

// --- ID3 ---
std::string syncsafe(std::uint32_t v);
// A version 2.3 or 2.4 frame (2.4 gets a syncsafe size); text frames take an encoding byte.
std::string id3Frame(int version, std::string_view id, std::string_view body, std::uint16_t flags = 0);
std::string id3TextFrame(int version, std::string_view id, std::string_view text);
std::string id3Tag(int version, std::string_view frames, std::uint8_t flags = 0);
std::string id3v1(std::string_view title, std::string_view artist, std::string_view year, std::uint8_t genre);
// One silent MPEG-1 Layer III frame (128 kbit/s, 44.1 kHz), 417 bytes.
std::string mp3Frame();

// --- RIFF, AIFF, FLAC ---
std::string riffChunk(std::string_view id, std::string_view payload);
std::string riffFile(std::string_view form, std::string_view chunks);
std::string infoList(const std::vector<std::pair<std::string, std::string>>& fields);
std::string aiffChunk(std::string_view id, std::string_view payload);
std::string aiffFile(std::string_view chunks);
std::string flacBlock(int type, bool last, std::string_view payload);
std::string vorbisComment(std::string_view vendor, const std::vector<std::string>& comments);
std::string flacPicture(std::string_view mime, std::string_view data);
std::string flacFile(std::string_view blocks);

// --- Real media through libavformat ---
enum class Audio { none, pcm, mp3, aac };
struct MediaRecipe {
    std::string muxer;  // "mov", "mp4", "ipod", "wav", "aiff", "mp3", "avi"
    bool video = false;  // three 16×16 MJPEG frames
    Audio audio = Audio::pcm;
    std::vector<std::pair<std::string, std::string>> tags;  // the library's tag names
    bool metadataKeys = false;  // QuickTime: write tags as mdta keys
};
// Writes a playable file. Aborts the test (throws std::runtime_error) when the library fails.
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
    std::map<std::string, std::string> formatTags;
    std::vector<std::map<std::string, std::string>> streamTags;
    std::int64_t packets = 0;
};
// What libavformat reads back from a file.
ProbedMedia probe(const std::filesystem::path& path);

}  // namespace tavrin::testing::av
