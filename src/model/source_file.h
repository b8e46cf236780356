#pragma once
// The one way the pipeline opens a source: checked before a byte is read.

#include <cstddef>
#include <cstdint>
#include <filesystem>

#include "model/file_type.h"

namespace tavrin {

class SourceFile {
public:
    // Opens `path` read-only without blocking, so a named pipe or a device never stalls the open
    // (a symlink is followed to what it names), then checks the open descriptor and refuses what
    // is not a regular file. Throws PipelineError::sourceFileNotAccessible with the reason.
    static SourceFile open(const std::filesystem::path& path);
    ~SourceFile();
    SourceFile(SourceFile&& other) noexcept;
    SourceFile& operator=(SourceFile&&) = delete;
    SourceFile(const SourceFile&) = delete;
    SourceFile& operator=(const SourceFile&) = delete;

    const std::filesystem::path& path() const { return path_; }
    int descriptor() const { return fd_; }
    std::uint64_t size() const { return size_; }

    // Throws PipelineError::sourceFileNotAccessible when the file is larger than `type` allows
    // (sourceSizeLimit), naming the size, the limit and its reason.
    void requireWithinSizeLimit(FileType type) const;
    // Up to `max` bytes from the start of the file, by positioned reads; returns how many.
    std::size_t readHead(std::uint8_t* buffer, std::size_t max) const;

private:
    SourceFile(std::filesystem::path path, int fd, std::uint64_t size)
        : path_(std::move(path)), fd_(fd), size_(size) {}
    std::filesystem::path path_;
    int fd_ = -1;
    std::uint64_t size_ = 0;
};

}  // namespace tavrin
