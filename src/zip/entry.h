#pragma once
// One entry of a ZIP archive, as its records describe it. The central directory is the
// authority for sizes, checksum and method; the local header only places the data.

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "zip/zip_records.h"

namespace tavrin {

enum class EntryType { file, directory, symlink };

enum class CompressionMethod : std::uint16_t { none = 0, deflate = 8 };

struct Entry {
    CentralDirectoryStructure centralDirectoryStructure;
    LocalFileHeader localFileHeader;
    std::optional<DataDescriptor> dataDescriptor;
    std::optional<Zip64DataDescriptor> zip64DataDescriptor;

    // The path as stored, byte for byte.
    const std::string& path() const { return centralDirectoryStructure.fileName; }
    EntryType type() const;
    bool isCompressed() const { return centralDirectoryStructure.compressionMethod != 0; }
    std::uint32_t checksum() const { return centralDirectoryStructure.crc32; }
    std::uint64_t compressedSize() const { return centralDirectoryStructure.effectiveCompressedSize(); }
    std::uint64_t uncompressedSize() const { return centralDirectoryStructure.effectiveUncompressedSize(); }
    // The POSIX mode (type and permission bits) kept by Unix writers; 0 when the entry has none.
    std::uint32_t fileAttributes() const;
    std::chrono::system_clock::time_point modificationDate() const;

    // Where the local header starts, where its data starts, and where the entry (with any data
    // descriptor) ends.
    std::uint64_t localHeaderOffset() const { return centralDirectoryStructure.effectiveRelativeOffsetOfLocalHeader(); }
    std::uint64_t dataOffset() const { return localHeaderOffset() + localFileHeader.size(); }
    std::uint64_t endOffset() const;

    bool operator==(const Entry& other) const { return localHeaderOffset() == other.localHeaderOffset() && path() == other.path(); }
};

// MS-DOS time and date fields in local time, as both headers carry them. Dates before 1980
// are written as 1980-01-01.
struct DOSDateTime {
    std::uint16_t time = 0;
    std::uint16_t date = 0;
    static DOSDateTime from(std::chrono::system_clock::time_point moment);
    std::chrono::system_clock::time_point toTimePoint() const;
};

}  // namespace tavrin
