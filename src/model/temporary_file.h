#pragma once
// Paths under the system's temporary directory that the facade and services stage through.

#include <filesystem>
#include <string>
#include <string_view>

namespace tavrin {

class TemporaryFile {
public:
    // Computes "<tmp>/<prefix>_<uuid>.<extension>"; creates nothing.
    TemporaryFile(std::string_view prefix, std::string_view extension, bool autoDelete);
    // Copies `source` to "<tmp>/tavrin_<uuid>.<ext>". Throws FileSystemError on failure.
    TemporaryFile(const std::filesystem::path& copyOf, bool autoDelete);
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::filesystem::path& url() const { return url_; }
    bool autoDelete() const { return autoDelete_; }

    // Creates "<tmp>/<prefix>_<uuid>" (mode 0700), claimed by this process so that a later run
    // removes it should this one be killed (see temporary_directories.h), and returns it.
    // Remove it with removeTemporaryDirectory (or a ScopedDirectory), which also drops the claim.
    // Throws FileSystemError.
    static std::filesystem::path makeTemporaryDirectory(std::string_view prefix);
    static void removeTemporaryDirectory(const std::filesystem::path& directory) noexcept;

private:
    std::filesystem::path url_;
    bool autoDelete_;
};

// Removes a directory tree (and its claim, when it is a temporary folder) on scope exit, ignoring
// failures.
class ScopedDirectory {
public:
    explicit ScopedDirectory(std::filesystem::path path) : path_(std::move(path)) {}
    ~ScopedDirectory();
    ScopedDirectory(const ScopedDirectory&) = delete;
    ScopedDirectory& operator=(const ScopedDirectory&) = delete;
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

}  // namespace tavrin
