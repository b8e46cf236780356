#pragma once
// A folder whose new files are cleaned automatically.

#include <filesystem>
#include <optional>
#include <string>

#include "data/bookmark.h"
#include "data/store.h"

namespace tavrin {

struct WatchedFolder {
    // Persistent fields, in schema order.
    Uuid id;
    std::string path;  // absolute
    std::optional<Blob> bookmarkData;
    bool isEnabled = true;
    Date dateAdded{};

    std::filesystem::path pathURL() const { return std::filesystem::path(path); }
    // The last path component ("/" for the root), or the whole path when that is empty.
    std::string displayName() const;
    // The path with the home directory shortened to "~".
    std::string displayPath() const;
    std::string displayPath(const std::filesystem::path& homeDirectory) const;

    // The folder to use: the bookmark's resolution, renewing a stale bookmark (a failed renewal
    // keeps the old data); with no bookmark or one that does not resolve, `pathURL`.
    std::filesystem::path startAccessing(const Bookmarks& bookmarks = Bookmarks::standard());
    // Gives up what `startAccessing` began; nothing needs releasing on this platform.
    void stopAccessing(const std::filesystem::path& url) const;

    static const TableSpec& table();
    StoreRow toRow() const;
    static WatchedFolder fromRow(const StoreRow& row);
    void assignStored(WatchedFolder other) { *this = std::move(other); }
};

// The user's home directory: $HOME, else the password database; empty when neither answers.
std::filesystem::path homeDirectory();
// `path` with `home` shortened to "~" when it is the home directory or inside it.
std::string abbreviatingWithTilde(const std::string& path, const std::filesystem::path& home);

}  // namespace tavrin
