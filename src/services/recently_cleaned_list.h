#pragma once
// The short list of recently cleaned files that menus and panels show, one entry per output,
// with what can still be done with each. It reads the store and never writes or creates it, so
// a process beside the app can show it.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "data/processing_history.h"
#include "data/store_values.h"

namespace tavrin {

struct RecentlyCleanedItem {
    Uuid id;  // the history record's
    std::string fileName;
    Date processedAt{};
    std::string presetName;
    std::int64_t bytesSaved = 0;  // never below 0
    std::optional<std::filesystem::path> fileURL;          // present only while the file exists
    std::optional<std::filesystem::path> originalFileURL;  // likewise
    bool isEphemeralShare = false;  // the output was temporary and was not kept

    bool canRevealOrDrag() const { return fileURL.has_value(); }
    bool canCleanAgain() const { return originalFileURL.has_value(); }
};

namespace RecentlyCleanedList {

// The store-independent form of a history record.
struct Record {
    Uuid id;
    std::string fileName;  // the output's last component, else the record's file name
    Date processedAt{};
    std::string presetName;
    std::int64_t bytesSaved = 0;
    std::optional<std::string> cleanedFilePath;
    std::optional<std::string> originalFilePath;
    bool outputRetained = true;

    static Record from(const ProcessingHistory& history);
};

using FileExists = std::function<bool(const std::string& path)>;
bool fileExistsAtPath(const std::string& path);

// Newest first, at most `limit` (none below 1); the newest record of an output path stands for
// the older ones (paths compared standardized), records without an output are all kept.
std::vector<RecentlyCleanedItem> items(const std::vector<ProcessingHistory>& history, std::int64_t limit,
                                       const FileExists& fileExists = fileExistsAtPath);
std::vector<RecentlyCleanedItem> items(std::vector<Record> records, std::int64_t limit,
                                       const FileExists& fileExists = fileExistsAtPath);

}  // namespace RecentlyCleanedList

// A read-only view of the store. A store file that does not exist is not created: the view then
// has no store and gives empty lists.
class RecentlyCleanedStore {
public:
    static constexpr std::int64_t maximumLimit = 1000;

    explicit RecentlyCleanedStore(std::filesystem::path storeURL);
    // The user's store.
    RecentlyCleanedStore();

    bool hasStore() const { return storeURL_.has_value(); }
    // `limit` clamped to 0 through 1000; reads three times that many records, so that outputs
    // listed twice still leave `limit` items. Any failure gives an empty list.
    std::vector<RecentlyCleanedItem> recentItems(std::int64_t limit) const;

private:
    std::optional<std::filesystem::path> storeURL_;
};

// What a drag of a recent file offers, and the check at the moment of the drop.
class RecentFileDragError : public std::exception {
public:
    static RecentFileDragError fileNoLongerAvailable(const std::filesystem::path& url);
    const std::filesystem::path& url() const { return url_; }
    // "“name” is no longer available to drag."
    std::string errorDescription() const;
    const char* what() const noexcept override { return text_.c_str(); }

private:
    explicit RecentFileDragError(std::filesystem::path url);
    std::filesystem::path url_;
    std::string text_;
};

namespace RecentFileDragProvider {

struct DragItem {
    std::filesystem::path url;
    std::string suggestedName;          // the last path component
    std::string contentTypeIdentifier;  // the type of the extension, else "public.data"
};

// Absent when no file exists at the path.
std::optional<DragItem> itemProvider(const std::filesystem::path& url);
// At the drop: the file when it still exists; otherwise RecentFileDragError.
std::filesystem::path loadFile(const std::filesystem::path& url);
std::string contentTypeIdentifier(const std::filesystem::path& url);

}  // namespace RecentFileDragProvider

}  // namespace tavrin
