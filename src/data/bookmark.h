#pragma once
// Bookmarks of files and folders: the path with the device and inode it had, as a small JSON
// blob ({"path": …, "device": …, "inode": …}). A bookmark resolves to its path while something
// is there; it is stale when the thing at the path is another file (another device or inode).
// Access needs no scope on this platform, so starting and stopping access do nothing.

#include <filesystem>
#include <stdexcept>

#include "data/store_values.h"

namespace tavrin {

class BookmarkError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct BookmarkResolution {
    std::filesystem::path url;
    bool isStale = false;
};

// The bookmark facility, behind an interface so that tests can make it fail.
class Bookmarks {
public:
    virtual ~Bookmarks() = default;
    // Throws BookmarkError when the path cannot be examined.
    virtual Blob create(const std::filesystem::path& url) const;
    // Throws BookmarkError for data that is no bookmark or a path where nothing is.
    virtual BookmarkResolution resolve(const Blob& data) const;

    static const Bookmarks& standard();
};

}  // namespace tavrin
