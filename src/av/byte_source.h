#pragma once
// Bounded random access to the bytes of a media file. The walkers read headers and the few
// metadata payloads they need through it, so a movie's sample data is never read.

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include "av/av_errors.h"
#include "model/byte_order.h"
#include "model/enforce.h"

namespace tavrin {

class ByteSource {
public:
    virtual ~ByteSource() = default;
    virtual std::uint64_t size() const = 0;
    // Fills `out` from `offset`. Throws AVContainerError::truncated when the range passes the end.
    virtual void read(std::uint64_t offset, std::span<std::uint8_t> out) const = 0;

    // `length` bytes from `offset`; throws structureTooLarge when `length` exceeds `limit`.
    std::vector<std::uint8_t> readBytes(std::uint64_t offset, std::uint64_t length, std::uint64_t limit) const;
};

// A file opened read-only; reads are positioned, so one source may serve several walks.
class FileByteSource : public ByteSource {
public:
    // Throws AVContainerError::cannotOpen.
    explicit FileByteSource(const std::filesystem::path& path);
    ~FileByteSource() override;
    FileByteSource(const FileByteSource&) = delete;
    FileByteSource& operator=(const FileByteSource&) = delete;

    std::uint64_t size() const override { return size_; }
    void read(std::uint64_t offset, std::span<std::uint8_t> out) const override;

private:
    int fd_ = -1;
    std::uint64_t size_ = 0;
};

// Bytes already in memory: an embedded tag, or a fuzzer's input. REQUIRES: they outlive the source.
class MemoryByteSource : public ByteSource {
public:
    explicit MemoryByteSource(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}
    std::uint64_t size() const override { return bytes_.size(); }
    void read(std::uint64_t offset, std::span<std::uint8_t> out) const override;

private:
    std::span<const std::uint8_t> bytes_;
};

namespace avBytes {

// A four-character code as text: printable ASCII as is, 0xA9 as a literal ©, anything else as
// a hexadecimal escape, so that every identifier is valid UTF-8.
std::string fourCCText(const std::uint8_t* p);

// Text in Latin-1 (or Mac Roman, whose © is the same byte) as UTF-8.
std::string latin1ToUTF8(std::span<const std::uint8_t> bytes);
// UTF-8 as is when valid, otherwise read as Latin-1.
std::string textFromBytes(std::span<const std::uint8_t> bytes);
// UTF-16 with the given byte order; unpaired surrogates become U+FFFD.
std::string utf16ToUTF8(std::span<const std::uint8_t> bytes, bool bigEndian);
// Drops trailing NUL characters and blanks.
std::string trimmed(std::string text);

}  // namespace avBytes

}  // namespace tavrin
