#pragma once
// The few file operations staging performs, behind an interface so that tests inject faults (a
// full disk, a rename that fails). Every failure throws FileAccessError. None follows a symbolic
// link at the path it creates, replaces or removes.

#include <filesystem>

namespace tavrin {

class FileOperations {
public:
    virtual ~FileOperations() = default;
    // Creates `to` (it must not exist) with the content of `from`, mode 0600. A failure leaves no
    // partial `to` behind.
    virtual void copyFile(const std::filesystem::path& from, const std::filesystem::path& to) = 0;
    // Atomically puts `replacement` in the place of `target` (rename over it).
    virtual void replaceItem(const std::filesystem::path& target, const std::filesystem::path& replacement) = 0;
    // Renames `from` to `to`; fails when `to` exists.
    virtual void moveItem(const std::filesystem::path& from, const std::filesystem::path& to) = 0;
    // Removes a file, a link (not its target) or a tree.
    virtual void removeItem(const std::filesystem::path& path) = 0;
    virtual void createDirectories(const std::filesystem::path& path) = 0;
};

class PosixFileOperations final : public FileOperations {
public:
    void copyFile(const std::filesystem::path& from, const std::filesystem::path& to) override;
    void replaceItem(const std::filesystem::path& target, const std::filesystem::path& replacement) override;
    void moveItem(const std::filesystem::path& from, const std::filesystem::path& to) override;
    void removeItem(const std::filesystem::path& path) override;
    void createDirectories(const std::filesystem::path& path) override;
};

}  // namespace tavrin
