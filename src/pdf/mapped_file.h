#pragma once
// A whole file mapped read-only, so scans of large PDFs do not copy them onto the heap.

#include <cstdint>
#include <filesystem>
#include <span>

namespace tavrin {

class MappedFile {
public:
    // Throws FileSystemError when the file cannot be opened or mapped.
    explicit MappedFile(const std::filesystem::path& path);
    ~MappedFile();
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    std::span<const std::uint8_t> bytes() const { return {data_, size_}; }

private:
    const std::uint8_t* data_ = nullptr;
    std::size_t size_ = 0;
};

}  // namespace tavrin
