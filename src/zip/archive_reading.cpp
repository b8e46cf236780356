// Opening an archive and extracting its entries.
#include <zlib.h>

#include <algorithm>
#include <climits>
#include <unordered_set>

#include "zip/archive.h"

namespace tavrin {

namespace {

using Case = ArchiveError::Case;

constexpr std::uint16_t encryptedFlag = 1 << 0;
constexpr std::uint16_t dataDescriptorFlag = 1 << 3;

std::string lowerCased(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) {
        return static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    });
    return lower;
}

std::vector<std::uint8_t> readAt(const ArchiveStorage& storage, std::uint64_t offset, std::uint64_t count) {
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(count));
    storage.read(offset, bytes);
    return bytes;
}

void checkCancelled(Progress* progress) {
    if (progress && progress->isCancelled) throw ArchiveError(Case::cancelledOperation);
}

// Ends the inflate stream on every way out.
struct InflateStream {
    z_stream stream{};
    InflateStream() { enforce(inflateInit2(&stream, -MAX_WBITS) == Z_OK, Case::unreadableArchive); }
    ~InflateStream() { inflateEnd(&stream); }
    InflateStream(const InflateStream&) = delete;
    InflateStream& operator=(const InflateStream&) = delete;
};

}  // namespace

bool Archive::isSafeEntryPath(std::string_view path) {
    if (path.empty() || path.find('\0') != std::string_view::npos) return false;
    if (path.front() == '/' || path.front() == '\\') return false;
    // A drive letter makes a Windows path absolute.
    if (path.size() >= 2 && path[1] == ':' && std::isalpha(static_cast<unsigned char>(path[0]))) return false;
    std::size_t start = 0;
    while (start <= path.size()) {
        const std::size_t end = path.find_first_of("/\\", start);
        const std::string_view component = path.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start);
        if (component == "..") return false;
        if (end == std::string_view::npos) break;
        start = end + 1;
    }
    return true;
}

Archive::Archive(const std::filesystem::path& url, AccessMode mode) : url_(url), accessMode_(mode) {
    switch (mode) {
        case AccessMode::read:
            storage_ = ArchiveStorage::openFile(url, ArchiveStorage::OpenMode::read);
            break;
        case AccessMode::update:
            storage_ = ArchiveStorage::openFile(url, ArchiveStorage::OpenMode::update);
            break;
        case AccessMode::create: {
            storage_ = ArchiveStorage::openFile(url, ArchiveStorage::OpenMode::createNew);
            ZipBytes empty;
            EndOfCentralDirectoryRecord{}.append(empty);
            try {
                storage_->write(0, empty);
            } catch (...) {
                storage_.reset();
                std::error_code ignored;
                std::filesystem::remove(url, ignored);
                throw;
            }
            break;
        }
    }
    load();
}

Archive::Archive(std::vector<std::uint8_t> data, AccessMode mode) : accessMode_(mode) {
    if (mode == AccessMode::create) {
        data.clear();
        ZipBytes empty;
        EndOfCentralDirectoryRecord{}.append(empty);
        data = std::move(empty);
    }
    storage_ = ArchiveStorage::inMemory(std::move(data), mode != AccessMode::read);
    load();
}

Archive::~Archive() = default;
Archive::Archive(Archive&&) noexcept = default;
Archive& Archive::operator=(Archive&&) noexcept = default;

std::uint64_t Archive::centralDirectoryOffset() const {
    return zip64End_ ? zip64End_->record.offsetToStartOfCentralDirectory : endRecord_.offsetToStartOfCentralDirectory;
}

std::uint64_t Archive::centralDirectorySize() const {
    return zip64End_ ? zip64End_->record.sizeOfCentralDirectory : endRecord_.sizeOfCentralDirectory;
}

void Archive::load() {
    const std::uint64_t fileSize = storage_->size();
    enforce(fileSize >= EndOfCentralDirectoryRecord::fixedSize, Case::missingEndOfCentralDirectoryRecord);

    // Scan backwards, a window at a time and as far as the start of the file, for the first
    // signature whose record, comment included, fits in the file. Data appended after an
    // archive (a signature block, say) is passed over like a comment.
    constexpr std::uint64_t fixed = EndOfCentralDirectoryRecord::fixedSize;
    // The first window covers a maximal comment, where the record nearly always is.
    std::uint64_t window = fixed + 0xFFFF;
    std::optional<std::uint64_t> recordOffset;
    std::uint64_t commentLength = 0;
    for (std::uint64_t high = fileSize - fixed + 1; high > 0 && !recordOffset;) {  // candidates below `high`
        const std::uint64_t low = high > window ? high - window : 0;
        const auto bytes = readAt(*storage_, low, high - low + fixed - 1);
        for (std::uint64_t p = high - low; p-- > 0;) {
            if (readU32(bytes.data() + p) != EndOfCentralDirectoryRecord::signature) continue;
            commentLength = readU16(bytes.data() + p + 20);
            if (low + p + fixed + commentLength <= fileSize) {
                recordOffset = low + p;
                break;
            }
        }
        high = low;
        window = 1 << 20;
    }
    enforce(recordOffset.has_value(), Case::missingEndOfCentralDirectoryRecord);
    endRecord_ = EndOfCentralDirectoryRecord::parse(readAt(*storage_, *recordOffset, fixed + commentLength));

    zip64End_.reset();
    std::uint64_t limit = *recordOffset;  // everything before the end records
    if (*recordOffset >= Zip64EndOfCentralDirectoryLocator::fixedSize) {
        const std::uint64_t locatorOffset = *recordOffset - Zip64EndOfCentralDirectoryLocator::fixedSize;
        const auto locatorBytes = readAt(*storage_, locatorOffset, Zip64EndOfCentralDirectoryLocator::fixedSize);
        if (readU32(locatorBytes.data()) == Zip64EndOfCentralDirectoryLocator::signature) {
            Zip64EndOfCentralDirectory z;
            z.locator = Zip64EndOfCentralDirectoryLocator::parse(locatorBytes);
            const std::uint64_t zip64Offset = z.locator.relativeOffsetOfZip64EOCDRecord;
            enforce(zip64Offset <= locatorOffset &&
                        locatorOffset - zip64Offset >= Zip64EndOfCentralDirectoryRecord::fixedSize,
                    Case::invalidCentralDirectoryOffset);
            z.record = Zip64EndOfCentralDirectoryRecord::parse(
                readAt(*storage_, zip64Offset, Zip64EndOfCentralDirectoryRecord::fixedSize));
            zip64End_ = z;
            limit = zip64Offset;
        }
    }
    if (zip64End_)
        enforce(zip64End_->record.numberOfDisk == 0 && zip64End_->record.numberOfDiskStart == 0 &&
                    zip64End_->record.totalNumberOfEntriesOnDisk ==
                        zip64End_->record.totalNumberOfEntriesInCentralDirectory,
                Case::unreadableArchive);
    else
        enforce(endRecord_.numberOfDisk == 0 && endRecord_.numberOfDiskStart == 0 &&
                    endRecord_.totalNumberOfEntriesOnDisk == endRecord_.totalNumberOfEntriesInCentralDirectory,
                Case::unreadableArchive);

    const std::uint64_t count = zip64End_ ? zip64End_->record.totalNumberOfEntriesInCentralDirectory
                                          : endRecord_.totalNumberOfEntriesInCentralDirectory;
    const std::uint64_t cdOffset = centralDirectoryOffset();
    const std::uint64_t cdSize = centralDirectorySize();
    enforce(cdOffset <= limit, Case::invalidCentralDirectoryOffset);
    enforce(cdSize <= limit - cdOffset, Case::invalidCentralDirectorySize);
    enforce(count <= cdSize / CentralDirectoryStructure::fixedSize, Case::invalidCentralDirectoryEntryCount);

    const auto directory = readAt(*storage_, cdOffset, cdSize);
    ZipByteReader reader(directory, Case::invalidCentralDirectorySize);
    std::vector<Entry> entries;
    entries.reserve(static_cast<std::size_t>(count));
    std::unordered_set<std::string> seenPaths;
    for (std::uint64_t i = 0; i < count; ++i) {
        auto structure = CentralDirectoryStructure::parse(reader);
        if (!structure) break;  // an unreadable structure ends the list; the entries before it stay
        Entry entry;
        entry.centralDirectoryStructure = std::move(*structure);
        enforce(isSafeEntryPath(entry.path()), Case::invalidEntryPath);
        // Part names are case-insensitive; two spellings of one name would let a consumer see
        // another entry than the one we inspected.
        enforce(seenPaths.insert(lowerCased(entry.path())).second, Case::invalidEntryPath);

        const std::uint64_t headerOffset = entry.localHeaderOffset();
        enforce(headerOffset <= cdOffset && cdOffset - headerOffset >= LocalFileHeader::fixedSize,
                Case::invalidLocalHeaderDataOffset);
        const auto fixed = readAt(*storage_, headerOffset, LocalFileHeader::fixedSize);
        const std::uint64_t headerSize =
            LocalFileHeader::fixedSize + std::uint64_t{readU16(fixed.data() + 26)} + readU16(fixed.data() + 28);
        enforce(headerSize <= cdOffset - headerOffset, Case::invalidLocalHeaderSize);
        entry.localFileHeader = LocalFileHeader::parse(readAt(*storage_, headerOffset, headerSize));

        const std::uint64_t dataOffset = entry.dataOffset();
        enforce(entry.compressedSize() <= cdOffset - dataOffset, Case::invalidEntrySize);
        if (entry.centralDirectoryStructure.generalPurposeBitFlag & dataDescriptorFlag) {
            const std::uint64_t descriptorOffset = dataOffset + entry.compressedSize();
            const std::uint64_t available = cdOffset - descriptorOffset;
            const auto head = readAt(*storage_, descriptorOffset, std::min<std::uint64_t>(available, 24));
            const bool hasSignature = head.size() >= 4 && readU32(head.data()) == DataDescriptor::signature;
            ZipByteReader d{std::span<const std::uint8_t>(head).subspan(hasSignature ? 4 : 0), Case::invalidEntrySize};
            const auto& zip64 = entry.centralDirectoryStructure.zip64ExtendedInformation;
            if (zip64 && (zip64->compressedSize || zip64->uncompressedSize)) {
                Zip64DataDescriptor descriptor{hasSignature, d.u32(), d.u64(), d.u64()};
                entry.zip64DataDescriptor = descriptor;
            } else {
                DataDescriptor descriptor{hasSignature, d.u32(), d.u32(), d.u32()};
                entry.dataDescriptor = descriptor;
            }
        }
        entries.push_back(std::move(entry));
    }

    // Two entries sharing bytes is the construction of overlapping zip bombs; no writer we
    // need to read produces it.
    std::vector<std::pair<std::uint64_t, std::uint64_t>> spans;
    spans.reserve(entries.size());
    for (const auto& e : entries) spans.emplace_back(e.localHeaderOffset(), e.endOffset());
    std::sort(spans.begin(), spans.end());
    for (std::size_t i = 1; i < spans.size(); ++i)
        enforce(spans[i - 1].second <= spans[i].first, Case::invalidLocalHeaderDataOffset);

    entries_ = std::move(entries);
}

std::optional<Entry> Archive::operator[](std::string_view path) const {
    for (const auto& entry : entries_)
        if (entry.path() == path) return entry;
    return std::nullopt;
}

std::uint32_t Archive::extract(const Entry& entry, std::size_t bufferSize, bool skipCRC32, Progress* progress,
                               const Consumer& consumer) const {
    enforce(bufferSize > 0 && bufferSize <= UINT_MAX, Case::invalidBufferSize);
    const auto& structure = entry.centralDirectoryStructure;
    enforce((structure.generalPurposeBitFlag & encryptedFlag) == 0, Case::invalidCompressionMethod);
    const std::uint64_t expected = entry.uncompressedSize();
    std::uint64_t remainingInput = entry.compressedSize();
    std::uint64_t position = entry.dataOffset();
    std::uint64_t produced = 0;
    uLong crc = crc32(0, nullptr, 0);
    if (progress) progress->totalUnitCount = static_cast<std::int64_t>(expected);

    const auto deliver = [&](const std::uint8_t* bytes, std::size_t count) {
        enforce(count <= expected - produced, Case::invalidEntrySize);
        if (!skipCRC32) crc = crc32(crc, bytes, static_cast<uInt>(count));
        produced += count;
        consumer(std::span<const std::uint8_t>(bytes, count));
        if (progress) progress->completedUnitCount = static_cast<std::int64_t>(produced);
    };

    switch (structure.compressionMethod) {
        case static_cast<std::uint16_t>(CompressionMethod::none): {
            enforce(remainingInput == expected, Case::invalidEntrySize);
            std::vector<std::uint8_t> buffer(static_cast<std::size_t>(std::min<std::uint64_t>(bufferSize, remainingInput)));
            while (remainingInput > 0) {
                checkCancelled(progress);
                const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), remainingInput));
                storage_->read(position, std::span(buffer).first(count));
                position += count;
                remainingInput -= count;
                deliver(buffer.data(), count);
            }
            break;
        }
        case static_cast<std::uint16_t>(CompressionMethod::deflate): {
            InflateStream inflater;
            z_stream& z = inflater.stream;
            std::vector<std::uint8_t> input(static_cast<std::size_t>(std::min<std::uint64_t>(bufferSize, std::max<std::uint64_t>(remainingInput, 1))));
            std::vector<std::uint8_t> output(bufferSize);
            for (;;) {
                checkCancelled(progress);
                if (z.avail_in == 0 && remainingInput > 0) {
                    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(input.size(), remainingInput));
                    storage_->read(position, std::span(input).first(count));
                    position += count;
                    remainingInput -= count;
                    z.next_in = input.data();
                    z.avail_in = static_cast<uInt>(count);
                }
                z.next_out = output.data();
                z.avail_out = static_cast<uInt>(output.size());
                const int status = inflate(&z, Z_NO_FLUSH);
                // Damaged compressed data fails the same integrity test as a checksum mismatch.
                enforce(status == Z_OK || status == Z_STREAM_END || status == Z_BUF_ERROR, Case::invalidCRC32);
                const std::size_t count = output.size() - z.avail_out;
                if (count > 0) deliver(output.data(), count);
                if (status == Z_STREAM_END) break;
                // No input left and no progress: the stream is cut short.
                enforce(!(z.avail_in == 0 && remainingInput == 0 && count == 0), Case::invalidEntrySize);
            }
            break;
        }
        default:
            throw ArchiveError(Case::invalidCompressionMethod);
    }
    enforce(produced == expected, Case::invalidEntrySize);
    const auto checksum = static_cast<std::uint32_t>(crc);
    if (!skipCRC32) enforce(checksum == entry.checksum(), Case::invalidCRC32);
    return skipCRC32 ? 0 : checksum;
}

}  // namespace tavrin
