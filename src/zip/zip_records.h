#pragma once
// The on-disk records of the ZIP format (ZIP APPNOTE 6.3), as parsed, with their serialisers.
// Fields keep the raw 32-bit values; the ZIP64 extended information supplies the real ones
// where a raw field holds the escape value 0xFFFFFFFF.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "zip/archive_error.h"

namespace tavrin {

using ZipBytes = std::vector<std::uint8_t>;

namespace zipLimits {
inline constexpr std::uint32_t escape32 = 0xFFFFFFFF;
inline constexpr std::uint16_t escape16 = 0xFFFF;
}  // namespace zipLimits

// Little-endian reads over untrusted bytes; every read past the end throws `failure`.
class ZipByteReader {
public:
    ZipByteReader(std::span<const std::uint8_t> bytes, ArchiveError::Case failure) : bytes_(bytes), failure_(failure) {}
    std::uint16_t u16();
    std::uint32_t u32();
    std::uint64_t u64();
    std::span<const std::uint8_t> take(std::size_t count);
    std::size_t position() const { return position_; }
    std::size_t remaining() const { return bytes_.size() - position_; }

private:
    std::span<const std::uint8_t> bytes_;
    std::size_t position_ = 0;
    ArchiveError::Case failure_;
};

void appendU16(ZipBytes& out, std::uint16_t value);
void appendU32(ZipBytes& out, std::uint32_t value);
void appendU64(ZipBytes& out, std::uint64_t value);
void appendBytes(ZipBytes& out, std::span<const std::uint8_t> bytes);
void appendText(ZipBytes& out, const std::string& text);
std::uint16_t readU16(const std::uint8_t* p);
std::uint32_t readU32(const std::uint8_t* p);

// Extra field 0x0001. Only the fields whose raw counterpart is escaped are present, in this order.
struct Zip64ExtendedInformation {
    static constexpr std::uint16_t headerID = 0x0001;
    std::optional<std::uint64_t> uncompressedSize;
    std::optional<std::uint64_t> compressedSize;
    std::optional<std::uint64_t> relativeOffsetOfLocalHeader;
    std::optional<std::uint32_t> diskNumberStart;

    // Finds and reads the field in `extraField`, taking only the values that the escaped raw
    // fields call for. Absent when there is no such field.
    static std::optional<Zip64ExtendedInformation> parse(std::span<const std::uint8_t> extraField, bool wantsUncompressed,
                                                         bool wantsCompressed, bool wantsOffset, bool wantsDisk);
    void append(ZipBytes& out) const;
};

// `extraField` without any ZIP64 extended information block.
ZipBytes extraFieldWithoutZip64(std::span<const std::uint8_t> extraField);

struct LocalFileHeader {
    static constexpr std::uint32_t signature = 0x04034b50;
    static constexpr std::size_t fixedSize = 30;
    std::uint16_t versionNeededToExtract = 20;
    std::uint16_t generalPurposeBitFlag = 0;
    std::uint16_t compressionMethod = 0;
    std::uint16_t lastModFileTime = 0;
    std::uint16_t lastModFileDate = 0;
    std::uint32_t crc32 = 0;
    std::uint32_t compressedSize = 0;
    std::uint32_t uncompressedSize = 0;
    std::string fileName;
    ZipBytes extraField;

    std::uint64_t size() const { return fixedSize + fileName.size() + extraField.size(); }
    // Throws `invalidLocalHeaderSize` for a damaged header.
    static LocalFileHeader parse(std::span<const std::uint8_t> bytes);
    void append(ZipBytes& out) const;
};

struct DataDescriptor {
    static constexpr std::uint32_t signature = 0x08074b50;
    bool hasSignature = true;
    std::uint32_t crc32 = 0;
    std::uint32_t compressedSize = 0;
    std::uint32_t uncompressedSize = 0;
    std::uint64_t size() const { return (hasSignature ? 4 : 0) + 12; }
};

struct Zip64DataDescriptor {
    bool hasSignature = true;
    std::uint32_t crc32 = 0;
    std::uint64_t compressedSize = 0;
    std::uint64_t uncompressedSize = 0;
    std::uint64_t size() const { return (hasSignature ? 4 : 0) + 20; }
};

struct CentralDirectoryStructure {
    static constexpr std::uint32_t signature = 0x02014b50;
    static constexpr std::size_t fixedSize = 46;
    std::uint16_t versionMadeBy = 0;
    std::uint16_t versionNeededToExtract = 20;
    std::uint16_t generalPurposeBitFlag = 0;
    std::uint16_t compressionMethod = 0;
    std::uint16_t lastModFileTime = 0;
    std::uint16_t lastModFileDate = 0;
    std::uint32_t crc32 = 0;
    std::uint32_t compressedSize = 0;
    std::uint32_t uncompressedSize = 0;
    std::uint16_t diskNumberStart = 0;
    std::uint16_t internalFileAttributes = 0;
    std::uint32_t externalFileAttributes = 0;
    std::uint32_t relativeOffsetOfLocalHeader = 0;
    std::string fileName;
    ZipBytes extraField;
    std::string fileComment;
    std::optional<Zip64ExtendedInformation> zip64ExtendedInformation;

    std::uint64_t effectiveCompressedSize() const;
    std::uint64_t effectiveUncompressedSize() const;
    std::uint64_t effectiveRelativeOffsetOfLocalHeader() const;
    std::uint64_t size() const { return fixedSize + fileName.size() + extraField.size() + fileComment.size(); }

    // Reads one structure at the reader's position; absent when it is unreadable.
    static std::optional<CentralDirectoryStructure> parse(ZipByteReader& reader);
    void append(ZipBytes& out) const;
    // A copy whose sizes and offset are the given ones, escaped into a fresh ZIP64 field where
    // they pass 32 bits; other extra fields are kept.
    CentralDirectoryStructure withValues(std::uint64_t compressed, std::uint64_t uncompressed, std::uint64_t offset) const;
};

struct EndOfCentralDirectoryRecord {
    static constexpr std::uint32_t signature = 0x06054b50;
    static constexpr std::size_t fixedSize = 22;
    std::uint16_t numberOfDisk = 0;
    std::uint16_t numberOfDiskStart = 0;
    std::uint16_t totalNumberOfEntriesOnDisk = 0;
    std::uint16_t totalNumberOfEntriesInCentralDirectory = 0;
    std::uint32_t sizeOfCentralDirectory = 0;
    std::uint32_t offsetToStartOfCentralDirectory = 0;
    std::string zipFileCommentData;

    static EndOfCentralDirectoryRecord parse(std::span<const std::uint8_t> bytes);
    void append(ZipBytes& out) const;
};

struct Zip64EndOfCentralDirectoryRecord {
    static constexpr std::uint32_t signature = 0x06064b50;
    static constexpr std::size_t fixedSize = 56;
    std::uint64_t sizeOfZip64EndOfCentralDirectoryRecord = fixedSize - 12;
    std::uint16_t versionMadeBy = 45;
    std::uint16_t versionNeededToExtract = 45;
    std::uint32_t numberOfDisk = 0;
    std::uint32_t numberOfDiskStart = 0;
    std::uint64_t totalNumberOfEntriesOnDisk = 0;
    std::uint64_t totalNumberOfEntriesInCentralDirectory = 0;
    std::uint64_t sizeOfCentralDirectory = 0;
    std::uint64_t offsetToStartOfCentralDirectory = 0;

    static Zip64EndOfCentralDirectoryRecord parse(std::span<const std::uint8_t> bytes);
    void append(ZipBytes& out) const;
};

struct Zip64EndOfCentralDirectoryLocator {
    static constexpr std::uint32_t signature = 0x07064b50;
    static constexpr std::size_t fixedSize = 20;
    std::uint32_t numberOfDiskWithZip64EOCDRecordStart = 0;
    std::uint64_t relativeOffsetOfZip64EOCDRecord = 0;
    std::uint32_t totalNumberOfDisk = 1;

    static Zip64EndOfCentralDirectoryLocator parse(std::span<const std::uint8_t> bytes);
    void append(ZipBytes& out) const;
};

struct Zip64EndOfCentralDirectory {
    Zip64EndOfCentralDirectoryRecord record;
    Zip64EndOfCentralDirectoryLocator locator;
};

}  // namespace tavrin
