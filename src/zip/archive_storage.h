#pragma once
// Where an archive's bytes live: an open file, used through positioned reads and writes so that
// concurrent extractions need no shared file position, or a buffer in memory.

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <vector>

namespace tavrin {

class ArchiveStorage {
public:
    virtual ~ArchiveStorage() = default;
    virtual std::uint64_t size() const = 0;
    // Fills `into` from `offset`; throws `unreadableArchive` when the bytes are not there.
    virtual void read(std::uint64_t offset, std::span<std::uint8_t> into) const = 0;
    // Throws `unwritableArchive` on failure.
    virtual void write(std::uint64_t offset, std::span<const std::uint8_t> bytes) = 0;
    virtual void truncate(std::uint64_t size) = 0;
    virtual void sync() = 0;

    enum class OpenMode { read, update, createNew };
    // Throws `unreadableArchive` (or `unwritableArchive` for the writing modes).
    static std::unique_ptr<ArchiveStorage> openFile(const std::filesystem::path& url, OpenMode mode);
    static std::unique_ptr<ArchiveStorage> inMemory(std::vector<std::uint8_t> bytes, bool writable);
    // The bytes of an in-memory storage; empty for a file.
    virtual const std::vector<std::uint8_t>* memory() const { return nullptr; }
};

}  // namespace tavrin
