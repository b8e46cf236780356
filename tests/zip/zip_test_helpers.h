#pragma once
// Small helpers shared by the ZIP tests.

#include <string>
#include <vector>

#include "zip/archive.h"

namespace tavrin::testing {

inline std::vector<std::uint8_t> bytesOf(const std::string& text) { return {text.begin(), text.end()}; }

// Everything an entry extracts to, checking the checksum.
inline std::string extractAll(const Archive& archive, const Entry& entry,
                              std::size_t bufferSize = Archive::defaultReadChunkSize) {
    std::string out;
    archive.extract(entry, bufferSize, false, nullptr,
                    [&](std::span<const std::uint8_t> chunk) { out.append(chunk.begin(), chunk.end()); });
    return out;
}

// Adds a file entry whose data is `data`, deflated unless told otherwise.
inline void addFile(Archive& archive, const std::string& path, const std::string& data,
                    CompressionMethod method = CompressionMethod::deflate) {
    archive.addEntry(path, EntryType::file, static_cast<std::int64_t>(data.size()), std::chrono::system_clock::now(),
                     std::nullopt, method, Archive::defaultWriteChunkSize, nullptr,
                     [&](std::int64_t position, std::size_t size) {
                         return std::vector<std::uint8_t>(data.begin() + position, data.begin() + position + static_cast<std::ptrdiff_t>(size));
                     });
}

// A text that deflate cannot shrink much, so that it spans several chunks either way.
inline std::string noise(std::size_t size, unsigned variant = 1) {
    std::string out(size, '\0');
    unsigned state = variant;
    for (auto& c : out) {
        state = state * 1103515245u + 12345u;
        c = static_cast<char>(state >> 16);
    }
    return out;
}

}  // namespace tavrin::testing
