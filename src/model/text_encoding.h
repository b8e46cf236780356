#pragma once
// Text at the edges: bytes from files and file names become valid UTF-8 before they reach a
// report or a snapshot, and become harmless before they reach a terminal.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace tavrin {

bool isValidUTF8(std::string_view text);

// `text` with every ill-formed UTF-8 sequence replaced by U+FFFD (one per maximal ill-formed
// subpart, as the Unicode standard recommends). Valid text comes back unchanged.
std::string validUTF8(std::string_view text);

// `text` made safe to print on a terminal: control characters (C0, DEL, C1), the bidirectional
// overrides and isolates, and bytes that are not UTF-8 are shown as escapes ("\x1b", "\u202e"),
// so a file can neither move the cursor, retitle the window, reorder a line nor fake a new one.
std::string printableText(std::string_view text);
inline std::string printablePath(const std::filesystem::path& path) { return printableText(path.native()); }

// A file name for JSON. The name as UTF-8 (ill-formed bytes as U+FFFD); when that loses bytes,
// `pathBytesBase64` gives the exact bytes of the name on disk (standard base64), which decode
// back to the very name. Absent when the text already is the exact name.
inline std::string pathText(const std::filesystem::path& path) { return validUTF8(path.native()); }
std::optional<std::string> pathBytesBase64(const std::filesystem::path& path);

std::string base64Encode(std::string_view bytes);
// Throws std::invalid_argument on text that is not base64.
std::string base64Decode(std::string_view text);

}  // namespace tavrin
