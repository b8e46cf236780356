#include "data/bookmark.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace tavrin {

namespace {
constexpr std::size_t kMaximumBookmarkSize = 64 * 1024;
}

Blob Bookmarks::create(const std::filesystem::path& url) const {
    struct stat st {};
    if (url.empty() || !url.is_absolute()) throw BookmarkError(fmt::format("Cannot bookmark \u201C{}\u201D: not a full path", url.string()));
    if (::stat(url.c_str(), &st) != 0)
        throw BookmarkError(fmt::format("Cannot bookmark \u201C{}\u201D: {}", url.string(), std::strerror(errno)));
    const nlohmann::json j{{"path", url.string()},
                           {"device", static_cast<std::uint64_t>(st.st_dev)},
                           {"inode", static_cast<std::uint64_t>(st.st_ino)}};
    const std::string text = j.dump();
    return Blob(text.begin(), text.end());
}

BookmarkResolution Bookmarks::resolve(const Blob& data) const {
    if (data.size() > kMaximumBookmarkSize) throw BookmarkError("The bookmark is too large");
    const std::string_view text(reinterpret_cast<const char*>(data.data()), data.size());
    if (!jsonNestingWithin(text, 2)) throw BookmarkError("The bookmark is unreadable");
    const auto j = nlohmann::json::parse(text, nullptr, false);
    if (!j.is_object() || !j.contains("path") || !j["path"].is_string() || !j.contains("device") ||
        !j["device"].is_number_unsigned() || !j.contains("inode") || !j["inode"].is_number_unsigned())
        throw BookmarkError("The bookmark is unreadable");
    const std::filesystem::path url = j["path"].get<std::string>();
    if (!url.is_absolute()) throw BookmarkError("The bookmark holds no full path");
    struct stat st {};
    if (::stat(url.c_str(), &st) != 0)
        throw BookmarkError(fmt::format("The bookmarked item \u201C{}\u201D cannot be found: {}", url.string(),
                                        std::strerror(errno)));
    const bool stale = static_cast<std::uint64_t>(st.st_dev) != j["device"].get<std::uint64_t>() ||
                       static_cast<std::uint64_t>(st.st_ino) != j["inode"].get<std::uint64_t>();
    return {url, stale};
}

const Bookmarks& Bookmarks::standard() {
    static const Bookmarks bookmarks;
    return bookmarks;
}

}  // namespace tavrin
