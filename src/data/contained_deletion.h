#pragma once
// Paths that the store holds may be deleted only inside the staging or temporary directories.
// Every deletion of such a path goes through `removeItem`, which compares canonical paths, so
// neither ".." nor a symbolic link leads it outside.

#include <filesystem>
#include <vector>

namespace tavrin {

struct SharedContainer;

class DeletionContainment {
public:
    explicit DeletionContainment(std::vector<std::filesystem::path> allowedRoots);
    // The container's "Staging" directory and the system's temporary directory.
    static DeletionContainment forContainer(const SharedContainer& container);

    // True when `path`, with every symbolic link and ".." resolved, lies strictly inside one of
    // the roots (resolved likewise). A relative path is never contained.
    bool contains(const std::filesystem::path& path) const;
    // Removes the file or tree at `path` when it is contained; true when something was removed.
    // Errors are dropped: such deletions are not critical.
    bool removeItem(const std::filesystem::path& path) const noexcept;

    const std::vector<std::filesystem::path>& allowedRoots() const { return roots_; }

private:
    std::vector<std::filesystem::path> roots_;
};

}  // namespace tavrin
