// Adding and removing entries.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <climits>

#include "zip/archive.h"

namespace tavrin {

namespace {

using Case = ArchiveError::Case;

constexpr std::uint16_t utf8NamesFlag = 1 << 11;
constexpr std::uint16_t unixHostVersion = (3 << 8) | 45;
constexpr std::uint16_t baseVersion = 20;
constexpr std::uint16_t zip64Version = 45;
constexpr std::uint32_t regularFileType = 0100000;
constexpr std::uint32_t directoryType = 0040000;
constexpr std::uint32_t symlinkType = 0120000;
constexpr std::uint32_t msDosDirectoryAttribute = 0x10;

std::string lowerCased(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) {
        return static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    });
    return lower;
}

void checkCancelled(Progress* progress) {
    if (progress && progress->isCancelled) throw ArchiveError(Case::cancelledOperation);
}

struct DeflateStream {
    z_stream stream{};
    DeflateStream() {
        enforce(deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) == Z_OK,
                Case::unwritableArchive);
    }
    ~DeflateStream() { deflateEnd(&stream); }
    DeflateStream(const DeflateStream&) = delete;
    DeflateStream& operator=(const DeflateStream&) = delete;
};

struct Trailer {
    ZipBytes bytes;
    EndOfCentralDirectoryRecord record;
    std::optional<Zip64EndOfCentralDirectory> zip64;
};

// The end records for a central directory of `count` structures at `offset`; ZIP64 records
// join when a count, size or offset passes what the classic record holds.
Trailer makeTrailer(std::uint64_t offset, std::uint64_t count, std::uint64_t size, const std::string& comment) {
    Trailer t;
    const bool needsZip64 = count >= zipLimits::escape16 || offset >= zipLimits::escape32 || size >= zipLimits::escape32;
    if (needsZip64) {
        Zip64EndOfCentralDirectory z;
        z.record.totalNumberOfEntriesOnDisk = count;
        z.record.totalNumberOfEntriesInCentralDirectory = count;
        z.record.sizeOfCentralDirectory = size;
        z.record.offsetToStartOfCentralDirectory = offset;
        z.locator.relativeOffsetOfZip64EOCDRecord = offset + size;
        z.record.append(t.bytes);
        z.locator.append(t.bytes);
        t.zip64 = z;
    }
    t.record.totalNumberOfEntriesOnDisk = static_cast<std::uint16_t>(std::min<std::uint64_t>(count, zipLimits::escape16));
    t.record.totalNumberOfEntriesInCentralDirectory = t.record.totalNumberOfEntriesOnDisk;
    t.record.sizeOfCentralDirectory = static_cast<std::uint32_t>(std::min<std::uint64_t>(size, zipLimits::escape32));
    t.record.offsetToStartOfCentralDirectory = static_cast<std::uint32_t>(std::min<std::uint64_t>(offset, zipLimits::escape32));
    t.record.zipFileCommentData = comment;
    t.record.append(t.bytes);
    return t;
}

// Whether deflated data of this size could pass 32 bits, so that the local header must hold
// room for ZIP64 sizes before the data is written (deflate adds at most a few bytes per block).
bool mayNeedZip64Sizes(std::uint64_t uncompressedSize) {
    return uncompressedSize + uncompressedSize / 1024 + 1024 >= zipLimits::escape32;
}

}  // namespace

void Archive::addEntry(const std::string& path, EntryType type, std::int64_t uncompressedSize,
                       std::chrono::system_clock::time_point modificationDate, std::optional<std::uint16_t> permissions,
                       CompressionMethod compressionMethod, std::size_t bufferSize, Progress* progress,
                       const Provider& provider) {
    enforce(accessMode_ != AccessMode::read, Case::unwritableArchive);
    enforce(isSafeEntryPath(path) && path.size() <= zipLimits::escape16, Case::invalidEntryPath);
    const std::string lowerPath = lowerCased(path);
    for (const auto& e : entries_) enforce(lowerCased(e.path()) != lowerPath, Case::invalidEntryPath);
    enforce(bufferSize > 0 && bufferSize <= UINT_MAX, Case::invalidBufferSize);
    enforce(uncompressedSize >= 0, Case::invalidEntrySize);
    if (type == EntryType::directory) {
        uncompressedSize = 0;
        compressionMethod = CompressionMethod::none;
    }
    const std::uint16_t mode = permissions.value_or(type == EntryType::directory ? defaultDirectoryPermissions
                                                                                   : defaultFilePermissions);
    const auto size = static_cast<std::uint64_t>(uncompressedSize);

    // The new entry goes where the central directory starts; the directory and end records are
    // kept aside so that a failure can put them back.
    const std::uint64_t start = centralDirectoryOffset();
    const std::uint64_t oldDirectorySize = centralDirectorySize();
    std::vector<std::uint8_t> saved(static_cast<std::size_t>(storage_->size() - start));
    storage_->read(start, saved);
    if (progress) progress->totalUnitCount = uncompressedSize;

    try {
        const DOSDateTime dos = DOSDateTime::from(modificationDate);
        const bool wideSizes = mayNeedZip64Sizes(size);
        LocalFileHeader header;
        header.versionNeededToExtract = wideSizes ? zip64Version : baseVersion;
        header.generalPurposeBitFlag =
            std::any_of(path.begin(), path.end(), [](char c) { return static_cast<unsigned char>(c) >= 0x80; })
                ? utf8NamesFlag
                : 0;
        header.compressionMethod = static_cast<std::uint16_t>(compressionMethod);
        header.lastModFileTime = dos.time;
        header.lastModFileDate = dos.date;
        header.fileName = path;
        const auto setSizes = [&](std::uint64_t compressed, std::uint64_t uncompressed) {
            if (!wideSizes) {
                header.compressedSize = static_cast<std::uint32_t>(compressed);
                header.uncompressedSize = static_cast<std::uint32_t>(uncompressed);
                return;
            }
            header.compressedSize = header.uncompressedSize = zipLimits::escape32;
            Zip64ExtendedInformation info;
            info.uncompressedSize = uncompressed;
            info.compressedSize = compressed;
            header.extraField.clear();
            info.append(header.extraField);
        };
        setSizes(0, 0);
        ZipBytes headerBytes;
        header.append(headerBytes);
        storage_->write(start, headerBytes);

        const std::uint64_t dataStart = start + headerBytes.size();
        std::uint64_t writePosition = dataStart;
        uLong crc = crc32(0, nullptr, 0);
        std::optional<DeflateStream> deflater;
        if (compressionMethod == CompressionMethod::deflate) deflater.emplace();
        else enforce(compressionMethod == CompressionMethod::none, Case::invalidCompressionMethod);
        std::vector<std::uint8_t> output(bufferSize);
        const auto drain = [&](int flush) {
            z_stream& z = deflater->stream;
            int status = Z_OK;
            do {
                z.next_out = output.data();
                z.avail_out = static_cast<uInt>(output.size());
                status = deflate(&z, flush);
                enforce(status != Z_STREAM_ERROR, Case::unwritableArchive);
                const std::size_t produced = output.size() - z.avail_out;
                storage_->write(writePosition, std::span(output).first(produced));
                writePosition += produced;
            } while (z.avail_out == 0 || (flush == Z_FINISH && status != Z_STREAM_END));
        };

        for (std::uint64_t position = 0; position < size;) {
            checkCancelled(progress);
            const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(bufferSize, size - position));
            const std::vector<std::uint8_t> chunk = provider(static_cast<std::int64_t>(position), count);
            enforce(chunk.size() == count, Case::invalidEntrySize);
            crc = crc32(crc, chunk.data(), static_cast<uInt>(count));
            if (deflater) {
                deflater->stream.next_in = const_cast<Bytef*>(chunk.data());
                deflater->stream.avail_in = static_cast<uInt>(count);
                drain(Z_NO_FLUSH);
            } else {
                storage_->write(writePosition, chunk);
                writePosition += count;
            }
            position += count;
            if (progress) progress->completedUnitCount = static_cast<std::int64_t>(position);
        }
        if (deflater) drain(Z_FINISH);

        const std::uint64_t compressed = writePosition - dataStart;
        enforce(wideSizes || compressed < zipLimits::escape32, Case::invalidEntrySize);
        header.crc32 = static_cast<std::uint32_t>(crc);
        setSizes(compressed, size);
        headerBytes.clear();
        header.append(headerBytes);
        storage_->write(start, headerBytes);

        CentralDirectoryStructure structure;
        structure.versionMadeBy = unixHostVersion;
        structure.versionNeededToExtract = header.versionNeededToExtract;
        structure.generalPurposeBitFlag = header.generalPurposeBitFlag;
        structure.compressionMethod = header.compressionMethod;
        structure.lastModFileTime = dos.time;
        structure.lastModFileDate = dos.date;
        structure.crc32 = header.crc32;
        const std::uint32_t typeBits =
            type == EntryType::directory ? directoryType : type == EntryType::symlink ? symlinkType : regularFileType;
        structure.externalFileAttributes =
            ((typeBits | mode) << 16) | (type == EntryType::directory ? msDosDirectoryAttribute : 0);
        structure.fileName = path;
        structure = structure.withValues(compressed, size, start);

        ZipBytes directory(saved.begin(), saved.begin() + static_cast<std::ptrdiff_t>(oldDirectorySize));
        structure.append(directory);
        const std::uint64_t directoryOffset = writePosition;
        Trailer trailer =
            makeTrailer(directoryOffset, entries_.size() + 1, directory.size(), endRecord_.zipFileCommentData);
        directory.insert(directory.end(), trailer.bytes.begin(), trailer.bytes.end());
        storage_->write(directoryOffset, directory);
        storage_->truncate(directoryOffset + directory.size());

        Entry entry;
        entry.centralDirectoryStructure = std::move(structure);
        entry.localFileHeader = std::move(header);
        entries_.push_back(std::move(entry));
        endRecord_ = std::move(trailer.record);
        zip64End_ = std::move(trailer.zip64);
    } catch (...) {
        try {
            storage_->truncate(start);
            storage_->write(start, saved);
        } catch (...) {
            // The original failure is the one to report.
        }
        throw;
    }
}

void Archive::remove(const Entry& entry, std::size_t bufferSize, Progress* progress) {
    enforce(accessMode_ != AccessMode::read, Case::unwritableArchive);
    enforce(bufferSize > 0, Case::invalidBufferSize);
    const auto found = std::find(entries_.begin(), entries_.end(), entry);
    enforce(found != entries_.end(), Case::invalidEntryPath);

    std::unique_ptr<ArchiveStorage> target;
    std::filesystem::path temporaryPath;
    if (url_) {
        std::string pattern = (url_->parent_path() / ("." + url_->filename().string() + ".XXXXXX")).string();
        const int fd = ::mkstemp(pattern.data());
        enforce(fd >= 0, Case::unwritableArchive);
        struct stat info {};
        if (::stat(url_->c_str(), &info) == 0) (void)::fchmod(fd, info.st_mode & 07777);
        ::close(fd);
        temporaryPath = pattern;
    }
    try {
        target = url_ ? ArchiveStorage::openFile(temporaryPath, ArchiveStorage::OpenMode::update)
                      : ArchiveStorage::inMemory({}, true);
        if (progress) progress->totalUnitCount = static_cast<std::int64_t>(entries_.size());
        ZipBytes directory;
        std::uint64_t position = 0;
        std::vector<std::uint8_t> buffer(bufferSize);
        std::uint64_t kept = 0;
        for (const auto& e : entries_) {
            checkCancelled(progress);
            if (e == entry) continue;
            const std::uint64_t from = e.localHeaderOffset();
            const std::uint64_t length = e.endOffset() - from;
            for (std::uint64_t done = 0; done < length;) {
                const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(bufferSize, length - done));
                storage_->read(from + done, std::span(buffer).first(count));
                target->write(position + done, std::span(buffer).first(count));
                done += count;
            }
            e.centralDirectoryStructure.withValues(e.compressedSize(), e.uncompressedSize(), position).append(directory);
            position += length;
            ++kept;
            if (progress) ++progress->completedUnitCount;
        }
        const Trailer trailer = makeTrailer(position, kept, directory.size(), endRecord_.zipFileCommentData);
        directory.insert(directory.end(), trailer.bytes.begin(), trailer.bytes.end());
        target->write(position, directory);
        target->truncate(position + directory.size());
        if (url_) {
            target->sync();
            enforce(::rename(temporaryPath.c_str(), url_->c_str()) == 0, Case::unwritableArchive);
            temporaryPath.clear();
        }
    } catch (...) {
        if (!temporaryPath.empty()) {
            std::error_code ignored;
            std::filesystem::remove(temporaryPath, ignored);
        }
        throw;
    }
    storage_ = std::move(target);
    load();
}

}  // namespace tavrin
