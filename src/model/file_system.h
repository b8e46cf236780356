#pragma once
// Ordinary file access with errors people can read. All failures throw FileSystemError.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace tavrin::fs {

bool isReadableFile(const std::filesystem::path& path);  // exists, is not a directory, can be opened
bool isDirectory(const std::filesystem::path& path);
bool exists(const std::filesystem::path& path);          // without following a final symlink
std::int64_t fileSize(const std::filesystem::path& path);
std::vector<std::uint8_t> readFile(const std::filesystem::path& path, std::uint64_t maxBytes);
// Writes a new file; fails if it exists.
void writeNewFile(const std::filesystem::path& path, const void* data, std::size_t size);
// Publishes a file: moves it into place without ever replacing what is at `to` (an existing
// file there makes the move fail and stays as it was). The data is synced before the move and
// the folder after, so a published name never points at data a power cut could lose. Across
// file systems the data is copied into an unnamed file beside `to` (or, where the file system
// has none, a locked hidden ".NAME.tavrin-<UUID>" that a later run removes if left), synced,
// then linked into place: `to` never shows a partial file.
void moveItemNoReplace(const std::filesystem::path& from, const std::filesystem::path& to);
// Removes a file or a tree; failures are ignored.
void removeItemQuietly(const std::filesystem::path& path) noexcept;

}  // namespace tavrin::fs
