#include "zip/zip_records.h"

#include <cstring>

namespace tavrin {

using Case = ArchiveError::Case;

std::uint16_t readU16(const std::uint8_t* p) { return static_cast<std::uint16_t>(p[0] | (p[1] << 8)); }

std::uint32_t readU32(const std::uint8_t* p) {
    return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
           (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}

std::span<const std::uint8_t> ZipByteReader::take(std::size_t count) {
    enforce(count <= remaining(), failure_);
    auto slice = bytes_.subspan(position_, count);
    position_ += count;
    return slice;
}

std::uint16_t ZipByteReader::u16() { return readU16(take(2).data()); }
std::uint32_t ZipByteReader::u32() { return readU32(take(4).data()); }
std::uint64_t ZipByteReader::u64() {
    const auto* p = take(8).data();
    return static_cast<std::uint64_t>(readU32(p)) | (static_cast<std::uint64_t>(readU32(p + 4)) << 32);
}

void appendU16(ZipBytes& out, std::uint16_t value) {
    out.push_back(static_cast<std::uint8_t>(value));
    out.push_back(static_cast<std::uint8_t>(value >> 8));
}
void appendU32(ZipBytes& out, std::uint32_t value) {
    for (int i = 0; i < 4; ++i) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}
void appendU64(ZipBytes& out, std::uint64_t value) {
    for (int i = 0; i < 8; ++i) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}
void appendBytes(ZipBytes& out, std::span<const std::uint8_t> bytes) { out.insert(out.end(), bytes.begin(), bytes.end()); }
void appendText(ZipBytes& out, const std::string& text) { out.insert(out.end(), text.begin(), text.end()); }

namespace {

std::string textOf(std::span<const std::uint8_t> bytes) { return std::string(bytes.begin(), bytes.end()); }

// Calls `visit(headerID, data)` for each well-formed block of an extra field; a block that runs
// past the end stops the walk, as other readers do.
template <typename Visit>
void forEachExtraBlock(std::span<const std::uint8_t> extra, Visit visit) {
    std::size_t position = 0;
    while (extra.size() - position >= 4) {
        const std::uint16_t id = readU16(extra.data() + position);
        const std::uint16_t length = readU16(extra.data() + position + 2);
        if (extra.size() - position - 4 < length) return;
        visit(id, extra.subspan(position, 4u + length), extra.subspan(position + 4, length));
        position += 4u + length;
    }
}

}  // namespace

std::optional<Zip64ExtendedInformation> Zip64ExtendedInformation::parse(std::span<const std::uint8_t> extraField,
                                                                        bool wantsUncompressed, bool wantsCompressed,
                                                                        bool wantsOffset, bool wantsDisk) {
    std::optional<Zip64ExtendedInformation> found;
    forEachExtraBlock(extraField, [&](std::uint16_t id, auto, std::span<const std::uint8_t> data) {
        if (id != headerID || found) return;
        ZipByteReader reader(data, Case::invalidEntrySize);
        Zip64ExtendedInformation info;
        if (wantsUncompressed) info.uncompressedSize = reader.u64();
        if (wantsCompressed) info.compressedSize = reader.u64();
        if (wantsOffset) info.relativeOffsetOfLocalHeader = reader.u64();
        if (wantsDisk) info.diskNumberStart = reader.u32();
        found = info;
    });
    return found;
}

void Zip64ExtendedInformation::append(ZipBytes& out) const {
    std::uint16_t length = 0;
    if (uncompressedSize) length += 8;
    if (compressedSize) length += 8;
    if (relativeOffsetOfLocalHeader) length += 8;
    if (diskNumberStart) length += 4;
    appendU16(out, headerID);
    appendU16(out, length);
    if (uncompressedSize) appendU64(out, *uncompressedSize);
    if (compressedSize) appendU64(out, *compressedSize);
    if (relativeOffsetOfLocalHeader) appendU64(out, *relativeOffsetOfLocalHeader);
    if (diskNumberStart) appendU32(out, *diskNumberStart);
}

ZipBytes extraFieldWithoutZip64(std::span<const std::uint8_t> extraField) {
    ZipBytes kept;
    forEachExtraBlock(extraField, [&](std::uint16_t id, std::span<const std::uint8_t> block, auto) {
        if (id != Zip64ExtendedInformation::headerID) appendBytes(kept, block);
    });
    return kept;
}

LocalFileHeader LocalFileHeader::parse(std::span<const std::uint8_t> bytes) {
    ZipByteReader r(bytes, Case::invalidLocalHeaderSize);
    enforce(r.u32() == signature, Case::invalidLocalHeaderSize);
    LocalFileHeader h;
    h.versionNeededToExtract = r.u16();
    h.generalPurposeBitFlag = r.u16();
    h.compressionMethod = r.u16();
    h.lastModFileTime = r.u16();
    h.lastModFileDate = r.u16();
    h.crc32 = r.u32();
    h.compressedSize = r.u32();
    h.uncompressedSize = r.u32();
    const std::uint16_t nameLength = r.u16();
    const std::uint16_t extraLength = r.u16();
    h.fileName = textOf(r.take(nameLength));
    auto extra = r.take(extraLength);
    h.extraField.assign(extra.begin(), extra.end());
    return h;
}

void LocalFileHeader::append(ZipBytes& out) const {
    appendU32(out, signature);
    appendU16(out, versionNeededToExtract);
    appendU16(out, generalPurposeBitFlag);
    appendU16(out, compressionMethod);
    appendU16(out, lastModFileTime);
    appendU16(out, lastModFileDate);
    appendU32(out, crc32);
    appendU32(out, compressedSize);
    appendU32(out, uncompressedSize);
    appendU16(out, static_cast<std::uint16_t>(fileName.size()));
    appendU16(out, static_cast<std::uint16_t>(extraField.size()));
    appendText(out, fileName);
    appendBytes(out, extraField);
}

std::uint64_t CentralDirectoryStructure::effectiveCompressedSize() const {
    if (compressedSize == zipLimits::escape32 && zip64ExtendedInformation && zip64ExtendedInformation->compressedSize)
        return *zip64ExtendedInformation->compressedSize;
    return compressedSize;
}

std::uint64_t CentralDirectoryStructure::effectiveUncompressedSize() const {
    if (uncompressedSize == zipLimits::escape32 && zip64ExtendedInformation && zip64ExtendedInformation->uncompressedSize)
        return *zip64ExtendedInformation->uncompressedSize;
    return uncompressedSize;
}

std::uint64_t CentralDirectoryStructure::effectiveRelativeOffsetOfLocalHeader() const {
    if (relativeOffsetOfLocalHeader == zipLimits::escape32 && zip64ExtendedInformation &&
        zip64ExtendedInformation->relativeOffsetOfLocalHeader)
        return *zip64ExtendedInformation->relativeOffsetOfLocalHeader;
    return relativeOffsetOfLocalHeader;
}

std::optional<CentralDirectoryStructure> CentralDirectoryStructure::parse(ZipByteReader& r) {
    try {
        if (r.u32() != signature) return std::nullopt;
        CentralDirectoryStructure s;
        s.versionMadeBy = r.u16();
        s.versionNeededToExtract = r.u16();
        s.generalPurposeBitFlag = r.u16();
        s.compressionMethod = r.u16();
        s.lastModFileTime = r.u16();
        s.lastModFileDate = r.u16();
        s.crc32 = r.u32();
        s.compressedSize = r.u32();
        s.uncompressedSize = r.u32();
        const std::uint16_t nameLength = r.u16();
        const std::uint16_t extraLength = r.u16();
        const std::uint16_t commentLength = r.u16();
        s.diskNumberStart = r.u16();
        s.internalFileAttributes = r.u16();
        s.externalFileAttributes = r.u32();
        s.relativeOffsetOfLocalHeader = r.u32();
        s.fileName = textOf(r.take(nameLength));
        auto extra = r.take(extraLength);
        s.extraField.assign(extra.begin(), extra.end());
        s.fileComment = textOf(r.take(commentLength));
        const bool wantsUncompressed = s.uncompressedSize == zipLimits::escape32;
        const bool wantsCompressed = s.compressedSize == zipLimits::escape32;
        const bool wantsOffset = s.relativeOffsetOfLocalHeader == zipLimits::escape32;
        const bool wantsDisk = s.diskNumberStart == zipLimits::escape16;
        if (wantsUncompressed || wantsCompressed || wantsOffset || wantsDisk)
            s.zip64ExtendedInformation = Zip64ExtendedInformation::parse(s.extraField, wantsUncompressed,
                                                                         wantsCompressed, wantsOffset, wantsDisk);
        return s;
    } catch (const ArchiveError&) {
        return std::nullopt;
    }
}

void CentralDirectoryStructure::append(ZipBytes& out) const {
    appendU32(out, signature);
    appendU16(out, versionMadeBy);
    appendU16(out, versionNeededToExtract);
    appendU16(out, generalPurposeBitFlag);
    appendU16(out, compressionMethod);
    appendU16(out, lastModFileTime);
    appendU16(out, lastModFileDate);
    appendU32(out, crc32);
    appendU32(out, compressedSize);
    appendU32(out, uncompressedSize);
    appendU16(out, static_cast<std::uint16_t>(fileName.size()));
    appendU16(out, static_cast<std::uint16_t>(extraField.size()));
    appendU16(out, static_cast<std::uint16_t>(fileComment.size()));
    appendU16(out, diskNumberStart);
    appendU16(out, internalFileAttributes);
    appendU32(out, externalFileAttributes);
    appendU32(out, relativeOffsetOfLocalHeader);
    appendText(out, fileName);
    appendBytes(out, extraField);
    appendText(out, fileComment);
}

CentralDirectoryStructure CentralDirectoryStructure::withValues(std::uint64_t compressed, std::uint64_t uncompressed,
                                                                std::uint64_t offset) const {
    CentralDirectoryStructure s = *this;
    Zip64ExtendedInformation info;
    const auto escapeIfLarge = [](std::uint64_t value, std::uint32_t& raw, std::optional<std::uint64_t>& wide) {
        if (value >= zipLimits::escape32) {
            raw = zipLimits::escape32;
            wide = value;
        } else {
            raw = static_cast<std::uint32_t>(value);
        }
    };
    escapeIfLarge(uncompressed, s.uncompressedSize, info.uncompressedSize);
    escapeIfLarge(compressed, s.compressedSize, info.compressedSize);
    escapeIfLarge(offset, s.relativeOffsetOfLocalHeader, info.relativeOffsetOfLocalHeader);
    s.diskNumberStart = 0;
    s.extraField = extraFieldWithoutZip64(extraField);
    if (info.uncompressedSize || info.compressedSize || info.relativeOffsetOfLocalHeader) {
        ZipBytes block;
        info.append(block);
        s.extraField.insert(s.extraField.begin(), block.begin(), block.end());
        s.zip64ExtendedInformation = info;
        s.versionNeededToExtract = std::max<std::uint16_t>(s.versionNeededToExtract, 45);
    } else {
        s.zip64ExtendedInformation.reset();
    }
    return s;
}

EndOfCentralDirectoryRecord EndOfCentralDirectoryRecord::parse(std::span<const std::uint8_t> bytes) {
    ZipByteReader r(bytes, Case::missingEndOfCentralDirectoryRecord);
    enforce(r.u32() == signature, Case::missingEndOfCentralDirectoryRecord);
    EndOfCentralDirectoryRecord e;
    e.numberOfDisk = r.u16();
    e.numberOfDiskStart = r.u16();
    e.totalNumberOfEntriesOnDisk = r.u16();
    e.totalNumberOfEntriesInCentralDirectory = r.u16();
    e.sizeOfCentralDirectory = r.u32();
    e.offsetToStartOfCentralDirectory = r.u32();
    const std::uint16_t commentLength = r.u16();
    e.zipFileCommentData = textOf(r.take(commentLength));
    return e;
}

void EndOfCentralDirectoryRecord::append(ZipBytes& out) const {
    appendU32(out, signature);
    appendU16(out, numberOfDisk);
    appendU16(out, numberOfDiskStart);
    appendU16(out, totalNumberOfEntriesOnDisk);
    appendU16(out, totalNumberOfEntriesInCentralDirectory);
    appendU32(out, sizeOfCentralDirectory);
    appendU32(out, offsetToStartOfCentralDirectory);
    appendU16(out, static_cast<std::uint16_t>(zipFileCommentData.size()));
    appendText(out, zipFileCommentData);
}

Zip64EndOfCentralDirectoryRecord Zip64EndOfCentralDirectoryRecord::parse(std::span<const std::uint8_t> bytes) {
    ZipByteReader r(bytes, Case::invalidCentralDirectoryOffset);
    enforce(r.u32() == signature, Case::invalidCentralDirectoryOffset);
    Zip64EndOfCentralDirectoryRecord z;
    z.sizeOfZip64EndOfCentralDirectoryRecord = r.u64();
    z.versionMadeBy = r.u16();
    z.versionNeededToExtract = r.u16();
    z.numberOfDisk = r.u32();
    z.numberOfDiskStart = r.u32();
    z.totalNumberOfEntriesOnDisk = r.u64();
    z.totalNumberOfEntriesInCentralDirectory = r.u64();
    z.sizeOfCentralDirectory = r.u64();
    z.offsetToStartOfCentralDirectory = r.u64();
    return z;
}

void Zip64EndOfCentralDirectoryRecord::append(ZipBytes& out) const {
    appendU32(out, signature);
    appendU64(out, fixedSize - 12);
    appendU16(out, versionMadeBy);
    appendU16(out, versionNeededToExtract);
    appendU32(out, numberOfDisk);
    appendU32(out, numberOfDiskStart);
    appendU64(out, totalNumberOfEntriesOnDisk);
    appendU64(out, totalNumberOfEntriesInCentralDirectory);
    appendU64(out, sizeOfCentralDirectory);
    appendU64(out, offsetToStartOfCentralDirectory);
}

Zip64EndOfCentralDirectoryLocator Zip64EndOfCentralDirectoryLocator::parse(std::span<const std::uint8_t> bytes) {
    ZipByteReader r(bytes, Case::invalidCentralDirectoryOffset);
    enforce(r.u32() == signature, Case::invalidCentralDirectoryOffset);
    Zip64EndOfCentralDirectoryLocator l;
    l.numberOfDiskWithZip64EOCDRecordStart = r.u32();
    l.relativeOffsetOfZip64EOCDRecord = r.u64();
    l.totalNumberOfDisk = r.u32();
    return l;
}

void Zip64EndOfCentralDirectoryLocator::append(ZipBytes& out) const {
    appendU32(out, signature);
    appendU32(out, numberOfDiskWithZip64EOCDRecordStart);
    appendU64(out, relativeOffsetOfZip64EOCDRecord);
    appendU32(out, totalNumberOfDisk);
}

}  // namespace tavrin
