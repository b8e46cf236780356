#pragma once
// How exiftool's JSON becomes metadata items: one item per "Group:Tag" key, with a category
// from the group and tag names, and a value converted from the JSON. Shared by the reader and
// the writer, which compares what it reads before and after a run.

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "model/metadata_model.h"

namespace tavrin {

// Deeper JSON than this is refused: exiftool's own output is flat, so depth means a bad tool.
inline constexpr int kExifToolMaxJSONDepth = 64;

// The first rule that holds decides; group and tag are compared in lower case.
MetadataCategory exifToolCategorize(std::string_view group, std::string_view tag);

// Strings stay text; true and false become booleans; numbers become integers when integral and
// within range, otherwise numbers; arrays and objects convert element by element.
MetadataValue exifToolConvertToMetadataValue(const nlohmann::ordered_json& value);

// "GPSLatitude" → "GPS Latitude", "ExifImageWidth" → "Exif Image Width".
std::string exifToolHumanReadableName(std::string_view tag);

// Facts about the image's layout (width, compression, colour space, …), kept by every profile.
bool isExifToolStructuralTag(std::string_view tag);
// The tool's own bookkeeping and the file system's facts, which are not metadata of the file.
bool isExifToolSkippedKey(std::string_view key);

// The item of one JSON key: id and key are "ExifTool." and the whole JSON key; the text before
// the first ":" is the group (empty when there is none), the rest the tag.
MetadataItem exifToolItem(std::string_view jsonKey, const nlohmann::ordered_json& value);

// Parses the tool's output for one file (an array whose first element is an object) into items
// in the order of the keys. Throws PipelineError::exifToolFailed.
std::vector<MetadataItem> parseExifToolJSON(std::string_view data, const std::filesystem::path& url);

// `text` with every byte sequence that is not well-formed UTF-8 replaced by U+FFFD.
std::string replacingInvalidUTF8(std::string_view text);

}  // namespace tavrin
