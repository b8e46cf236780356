#pragma once
// What the container walkers find in a media file: metadata entries named the way the
// platform's media framework names them, with key space, "/", and key ("mdta/com.apple.
// quicktime.make", "qtud/©xyz", "itsk/©nam", "id3/TPE1", "comn/artist"), and the asset's
// creation date.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "av/byte_source.h"
#include "model/metadata_value.h"

namespace tavrin {

// An entry's value as the container holds it; `monostate` when it could not be read.
using AVRawValue = std::variant<std::monostate, std::string, double, Date, std::vector<std::uint8_t>>;

struct AVMetadataEntry {
    std::string identifier;
    std::string commonKey;  // "title", "artist", "location", "make", …; empty when the entry has none
    AVRawValue value;

    bool operator==(const AVMetadataEntry&) const = default;
};

struct AVAssetMetadata {
    // Every entry in file order.
    std::vector<AVMetadataEntry> metadata;
    std::optional<Date> creationDate;

    // The entries that carry a common key, in file order; the same entries as in `metadata`.
    std::vector<AVMetadataEntry> commonMetadata() const;

    // Appends an entry; throws AVContainerError::tooManyItems past `avLimits::maxEntries`.
    void add(AVMetadataEntry entry);
};

// Bounds on what a walker will take from a file; nothing a real file needs comes near them.
namespace avLimits {
inline constexpr int maxDepth = 32;                                // atom nesting
inline constexpr std::size_t maxEntries = 10000;                   // entries in one file
inline constexpr std::uint64_t maxValueBytes = 16u << 20;          // one value (cover art)
inline constexpr std::uint64_t maxStructureBytes = 64u << 20;      // one tag, key table or chunk list
inline constexpr std::size_t maxBlocks = 100000;                   // FLAC blocks, chunks
}  // namespace avLimits

// Seconds since 1904-01-01 (QuickTime and AIFF time stamps) as a date; none for 0 and for
// values outside the years 1904–2199.
std::optional<Date> dateFrom1904Seconds(std::uint64_t seconds);
// "2024-03-05", "2024-03-05T14:02", "2024-03-05T14:02:11Z", "…+0100", "…+01:00".
std::optional<Date> parseISO8601Date(std::string_view text);

namespace avAssetLoader {

enum class Container { quickTime, mp3, riff, aiff, flac };

// The container the first bytes announce, or none.
std::optional<Container> sniff(std::span<const std::uint8_t> head);

// Walks the container's metadata with our own walkers. Throws AVContainerError.
AVAssetMetadata load(const ByteSource& source);

// As above for a file, adding the stream-level tags of an AVI that only the media library
// reads. Throws AVContainerError, or AVMetadataReaderError when the library fails.
AVAssetMetadata load(const std::filesystem::path& path);

}  // namespace avAssetLoader

}  // namespace tavrin
