#pragma once
// SHA-256 of files, as lower-case hex. Failures throw FileSystemError.

#include <filesystem>
#include <string>

namespace tavrin::FileHash {

std::string sha256(const std::filesystem::path& file);
std::string sha256Streaming(const std::filesystem::path& file, std::size_t bufferSize = 1 << 16);
bool filesMatch(const std::filesystem::path& a, const std::filesystem::path& b);

}  // namespace tavrin::FileHash
