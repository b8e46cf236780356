#include "data/watched_folder.h"

#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

namespace tavrin {

std::filesystem::path homeDirectory() {
    if (const char* home = std::getenv("HOME"); home && *home) return home;
    if (const passwd* pw = ::getpwuid(::getuid()); pw && pw->pw_dir) return pw->pw_dir;
    return {};
}

std::string abbreviatingWithTilde(const std::string& path, const std::filesystem::path& home) {
    std::string h = home.string();
    while (h.size() > 1 && h.back() == '/') h.pop_back();
    if (h.empty() || h == "/") return path;
    if (path == h) return "~";
    if (path.size() > h.size() && path.compare(0, h.size(), h) == 0 && path[h.size()] == '/')
        return "~" + path.substr(h.size());
    return path;
}

std::string WatchedFolder::displayName() const {
    // As a file URL reports its last component: trailing slashes do not count, the root is "/".
    std::string trimmed = path;
    while (trimmed.size() > 1 && trimmed.back() == '/') trimmed.pop_back();
    if (trimmed == "/") return "/";
    const auto slash = trimmed.rfind('/');
    std::string last = slash == std::string::npos ? trimmed : trimmed.substr(slash + 1);
    return last.empty() ? path : last;
}

std::string WatchedFolder::displayPath() const { return displayPath(homeDirectory()); }
std::string WatchedFolder::displayPath(const std::filesystem::path& home) const { return abbreviatingWithTilde(path, home); }

std::filesystem::path WatchedFolder::startAccessing(const Bookmarks& bookmarks) {
    if (!bookmarkData) return pathURL();
    BookmarkResolution resolution;
    try {
        resolution = bookmarks.resolve(*bookmarkData);
    } catch (const BookmarkError&) {
        // An unreadable bookmark is no error here: the caller gets the plain path, and the file
        // operation that follows fails if it must.
        return pathURL();
    }
    if (resolution.url.empty()) return pathURL();
    if (resolution.isStale) {
        try {
            bookmarkData = bookmarks.create(resolution.url);
        } catch (const BookmarkError&) {
        }
    }
    return resolution.url;
}

void WatchedFolder::stopAccessing(const std::filesystem::path&) const {}

const TableSpec& WatchedFolder::table() {
    static const TableSpec table{
        "WatchedFolder",
        {
            {"id", ColumnKind::text},
            {"path", ColumnKind::text},
            {"bookmarkData", ColumnKind::blob, true},
            {"isEnabled", ColumnKind::integer},
            {"dateAdded", ColumnKind::text},
        },
        {{"WatchedFolder_dateAdded", "\"dateAdded\""}},
        {},
        RecordCodec<WatchedFolder>::toRow,
        RecordCodec<WatchedFolder>::fromRow,
        RecordCodec<WatchedFolder>::assignRow,
    };
    return table;
}

StoreRow WatchedFolder::toRow() const {
    using namespace storeValue;
    return {uuid(id), text(path), bytes(bookmarkData), flag(isEnabled), date(dateAdded)};
}

WatchedFolder WatchedFolder::fromRow(const StoreRow& row) {
    using namespace storeValue;
    WatchedFolder f;
    f.id = asUuid(row.at(0));
    f.path = asText(row.at(1));
    f.bookmarkData = asBytes(row.at(2));
    f.isEnabled = asFlag(row.at(3));
    f.dateAdded = asDate(row.at(4));
    return f;
}

}  // namespace tavrin
