#pragma once
// A ZIP archive (ZIP APPNOTE 6.3, with ZIP64): random access to its entries, streaming
// extraction, and the two edits the Office writer needs, adding and removing entries.
//
// The archive is never loaded whole: opening reads the end records, the central directory and
// each local header; extraction passes an entry's bytes to a consumer in bounded chunks.
// Untrusted structure is checked before use: record counts, offsets and sizes against the file,
// entry paths (no absolute paths, no "..", no NUL, no duplicates), entries whose data overlap,
// and inflated data that would pass its declared size.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "zip/archive_error.h"
#include "zip/archive_storage.h"
#include "zip/entry.h"

namespace tavrin {

// Reports how far a long operation is and lets another thread cancel it; the operation then
// fails with `cancelledOperation`.
struct Progress {
    std::atomic<std::int64_t> totalUnitCount{0};
    std::atomic<std::int64_t> completedUnitCount{0};
    std::atomic<bool> isCancelled{false};
    void cancel() { isCancelled = true; }
};

class Archive {
public:
    enum class AccessMode { create, read, update };

    static constexpr std::size_t defaultReadChunkSize = 16384;
    static constexpr std::size_t defaultWriteChunkSize = 16384;
    static constexpr std::uint16_t defaultFilePermissions = 0644;
    static constexpr std::uint16_t defaultDirectoryPermissions = 0755;

    // Receives an entry's bytes, a chunk at a time. May throw to stop the extraction; the
    // error reaches the caller unchanged.
    using Consumer = std::function<void(std::span<const std::uint8_t> chunk)>;
    // Returns `size` bytes of the new entry's data from `position`.
    using Provider = std::function<std::vector<std::uint8_t>(std::int64_t position, std::size_t size)>;

    // A file-backed archive. `create` makes a new, empty archive and fails when a file exists.
    // Throws ArchiveError.
    Archive(const std::filesystem::path& url, AccessMode mode);
    // An archive in memory. `create` starts empty whatever `data` holds.
    Archive(std::vector<std::uint8_t> data, AccessMode mode);
    ~Archive();
    Archive(Archive&&) noexcept;
    Archive& operator=(Archive&&) noexcept;
    Archive(const Archive&) = delete;
    Archive& operator=(const Archive&) = delete;

    const std::optional<std::filesystem::path>& url() const { return url_; }
    AccessMode accessMode() const { return accessMode_; }
    const EndOfCentralDirectoryRecord& endOfCentralDirectoryRecord() const { return endRecord_; }
    const std::optional<Zip64EndOfCentralDirectory>& zip64EndOfCentralDirectory() const { return zip64End_; }
    // The archive's bytes, for an in-memory archive; null for a file.
    const std::vector<std::uint8_t>* data() const { return storage_->memory(); }

    // Entries in central directory order.
    const std::vector<Entry>& entries() const { return entries_; }
    std::vector<Entry>::const_iterator begin() const { return entries_.begin(); }
    std::vector<Entry>::const_iterator end() const { return entries_.end(); }
    // By exact comparison of the stored path.
    std::optional<Entry> operator[](std::string_view path) const;

    // Passes the entry's decompressed bytes to `consumer` in chunks of at most `bufferSize`, and
    // returns their CRC-32. Fails with `invalidCRC32` on a mismatch unless `skipCRC32`, and with
    // `invalidEntrySize` as soon as the data would pass the declared size. Safe to call from
    // several threads at once.
    std::uint32_t extract(const Entry& entry, std::size_t bufferSize, bool skipCRC32, Progress* progress,
                          const Consumer& consumer) const;

    // Appends an entry. On failure the archive is rolled back to what it was before the call.
    void addEntry(const std::string& path, EntryType type, std::int64_t uncompressedSize,
                  std::chrono::system_clock::time_point modificationDate, std::optional<std::uint16_t> permissions,
                  CompressionMethod compressionMethod, std::size_t bufferSize, Progress* progress,
                  const Provider& provider);
    // Rewrites the archive without `entry`, copying the others unchanged. The archive is left as
    // it was when this fails.
    void remove(const Entry& entry, std::size_t bufferSize = defaultReadChunkSize, Progress* progress = nullptr);

    // Whether a stored path is safe to hand on: not empty, not absolute, no ".." component,
    // no NUL.
    static bool isSafeEntryPath(std::string_view path);

private:
    void load();
    std::uint64_t centralDirectoryOffset() const;
    std::uint64_t centralDirectorySize() const;

    std::optional<std::filesystem::path> url_;
    AccessMode accessMode_;
    std::unique_ptr<ArchiveStorage> storage_;
    EndOfCentralDirectoryRecord endRecord_;
    std::optional<Zip64EndOfCentralDirectory> zip64End_;
    std::vector<Entry> entries_;
};

}  // namespace tavrin
