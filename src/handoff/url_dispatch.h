#pragma once
// Carries out a "tavrin" URL: the host picks one method of a handler. The handlers that need the
// queue or the running application plug in here; the parsing and the checks on the files named
// stay in one place.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "handoff/tavrin_url.h"

namespace tavrin {

// A file named by a URL that will not be used, and why, in words.
struct RejectedFile {
    std::filesystem::path path;
    std::string reason;
};

// The files a URL names, split into those that may be read and those that are skipped. A path is
// taken only when it is absolute and names an existing regular file that the user can read (a
// symbolic link counts as what it points to); devices, FIFOs, folders and unreadable files are
// rejected. Paths are normalised first, so ".." never names anything but the file it resolves to.
struct AdmittedFiles {
    std::vector<std::filesystem::path> files;
    std::vector<RejectedFile> rejected;
};
AdmittedFiles admitFiles(const std::vector<std::filesystem::path>& candidates);

class TavrinURLHandler {
public:
    virtual ~TavrinURLHandler() = default;
    virtual int openApp(bool requestsExternalHandoff) = 0;
    virtual int enqueue(const AdmittedFiles& files) = 0;
    virtual int open(const AdmittedFiles& file) = 0;
    // `request.fileURLs` holds only the admitted files.
    virtual int clean(const CleanRequest& request, const std::vector<RejectedFile>& rejected) = 0;
    // A URL that is not one of ours, or names no file where one is needed.
    virtual int unrecognized(std::string_view url, std::string_view why) = 0;
};

// Parses `url` (never failing) and calls the matching method once; returns what it returns.
int dispatchTavrinURL(std::string_view url, TavrinURLHandler& handler);

// A path or URL made safe to print on one line: control characters, and bytes that are not
// UTF-8, appear as \xNN escapes; at most `limit` bytes are shown.
std::string printable(std::string_view text, std::size_t limit = 4096);

}  // namespace tavrin
