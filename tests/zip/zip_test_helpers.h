#pragma once
// Small helpers shared by the ZIP tests.

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "zip/archive.h"

namespace tavrin::testing {

inline std::vector<std::uint8_t> bytesOf(const std::string& text) { return {text.begin(), text.end()}; }

// The case of the ArchiveError that `body` throws, or nothing.
inline std::optional<ArchiveError::Case> failureOf(const std::function<void()>& body) {
    try {
        body();
    } catch (const ArchiveError& e) {
        return e.errorCase();
    }
    return std::nullopt;
}

// Everything an entry extracts to, checking the checksum, and that no chunk passes the buffer size.
inline std::string extractAll(const Archive& archive, const Entry& entry,
                              std::size_t bufferSize = Archive::defaultReadChunkSize) {
    std::string out;
    const auto crc = archive.extract(entry, bufferSize, false, nullptr, [&](std::span<const std::uint8_t> chunk) {
        EXPECT_LE(chunk.size(), bufferSize);
        out.append(chunk.begin(), chunk.end());
    });
    EXPECT_EQ(crc, entry.checksum());
    return out;
}

inline Archive::Provider providerOf(std::string data) {
    return [data = std::move(data)](std::int64_t position, std::size_t size) {
        return std::vector<std::uint8_t>(data.begin() + position, data.begin() + position + std::ptrdiff_t(size));
    };
}

// Adds an entry whose data is `data`, deflated unless told otherwise.
inline void addFile(Archive& archive, const std::string& path, const std::string& data,
                    CompressionMethod method = CompressionMethod::deflate, EntryType type = EntryType::file,
                    std::chrono::system_clock::time_point date = std::chrono::system_clock::now()) {
    archive.addEntry(path, type, static_cast<std::int64_t>(data.size()), date, std::nullopt, method,
                     Archive::defaultWriteChunkSize, nullptr, providerOf(data));
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
