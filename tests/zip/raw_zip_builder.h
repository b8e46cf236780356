#pragma once
// Builds ZIP files byte by byte, including the forms our writer never makes (data descriptors,
// ZIP64 extra fields on small entries) and damaged or hostile ones, for the reader's tests.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tavrin::testing {

std::string rawDeflate(const std::string& data);

struct RawZipEntry {
    std::string name;
    std::string data;
    bool deflate = false;
    bool dataDescriptor = false;
    bool descriptorSignature = true;
    bool zip64 = false;                          // sizes and offset through the ZIP64 extra field
    std::uint16_t method = 0xFFFF;               // overrides the method field when set
    std::uint16_t flags = 0;                     // extra general purpose bits
    std::optional<std::uint32_t> crc;            // overrides the checksum
    std::optional<std::uint64_t> declaredSize;   // overrides the uncompressed size
    std::optional<std::size_t> pointAtEntry;     // the central record points at another entry's header
    std::optional<std::uint64_t> headerOffset;   // the central record points here
    std::optional<std::uint64_t> declaredCompressedSize;  // overrides the compressed size
};

struct RawZipOptions {
    std::string comment;
    bool zip64EndRecords = false;
    std::optional<std::uint64_t> entryCount;     // overrides the count in the end record
    std::optional<std::uint64_t> directoryOffset;
    std::optional<std::uint64_t> directorySize;
    // Records after the entries are placed as if this many bytes came before them, for a caller
    // that writes them that far into a sparse file.
    std::uint64_t gap = 0;
};

std::string buildRawZip(const std::vector<RawZipEntry>& entries, const RawZipOptions& options = {});

}  // namespace tavrin::testing
