#pragma once
// The "tavrin" URL scheme: how other processes hand files to Tavrin. Only paths cross; no file
// content. Builders keep the order of the files given; parsers never fail, they answer none or an
// empty list for anything malformed.
//
//   tavrin://app[?handoff=1]                 bring the application to the front
//   tavrin://enqueue?file=P&file=Q           add the files to the queue
//   tavrin://open?file=P                     open one file
//   tavrin://clean?file=P&...[&preset=N][&share=1]   clean the files with a named preset

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/text_encoding.h"

namespace tavrin {

// One "name=value" pair of a query, percent-decoded. `value` is absent when the pair has no "="
// or its escapes do not decode to valid UTF-8 text.
struct URLQueryItem {
    std::string name;
    std::optional<std::string> value;
    bool operator==(const URLQueryItem&) const = default;
};

// The parts of a URL that the scheme needs, as written: the scheme is not lower-cased and the
// host stays percent-encoded. Parsing is linear in the length and never fails.
struct URLParts {
    std::optional<std::string> scheme;
    std::optional<std::string> host;
    std::optional<std::vector<URLQueryItem>> queryItems;  // absent without "?"

    static URLParts parse(std::string_view url);
};

// Percent-encodes everything but unreserved characters and "/".
std::string percentEncode(std::string_view text);
// Decodes %XX escapes; absent for a broken escape.
std::optional<std::string> percentDecode(std::string_view text);

// The local files of a text/uri-list: "file://" URIs (with an empty or "localhost" host), one a
// line; comments, other schemes and undecodable lines are skipped. Bounded by `maximumItems`.
std::vector<std::filesystem::path> fileURLsFromURIList(std::string_view text, std::size_t maximumItems = 10000);

struct CleanRequest {
    std::vector<std::filesystem::path> fileURLs;
    std::optional<std::string> presetName;
    bool shareOnly = false;
    bool operator==(const CleanRequest&) const = default;
};

namespace TavrinURL {

inline constexpr std::string_view scheme = "tavrin";
inline constexpr std::size_t defaultMaximumEnqueueURLLength = 4096;
inline constexpr std::string_view mainAppBundleIdentifier = "com.halvorn.tavrin";
// The values that turn "handoff" and "share" on, compared with the value in lower case.
inline constexpr std::string_view enabledHandoffValues[] = {"1", "true", "yes"};

std::string appURL(bool requestsExternalHandoff);
// An empty list gives the bare app URL.
std::string enqueueURL(const std::vector<std::filesystem::path>& fileURLs);
std::optional<std::string> enqueueURLIfNeeded(const std::vector<std::filesystem::path>& fileURLs);
// Greedy packing in order: a file joins the current URL while that stays within the limit; a
// single path longer than the limit travels alone, over it, rather than being dropped.
std::vector<std::string> enqueueURLs(const std::vector<std::filesystem::path>& fileURLs,
                                     std::size_t maximumURLLength = defaultMaximumEnqueueURLLength);
std::string openURL(const std::filesystem::path& fileURL);
// None for an empty list. "preset" follows the files when given, then "share=1" when asked.
std::optional<std::string> cleanURL(const std::vector<std::filesystem::path>& fileURLs,
                                    const std::optional<std::string>& presetName, bool shareOnly);
std::vector<std::string> cleanURLs(const std::vector<std::filesystem::path>& fileURLs,
                                   const std::optional<std::string>& presetName, bool shareOnly,
                                   std::size_t maximumURLLength = defaultMaximumEnqueueURLLength);

std::optional<CleanRequest> cleanRequest(std::string_view url);
std::vector<std::filesystem::path> enqueueFileURLs(std::string_view url);
// The one file of an "open" URL (the first usable "file" item).
std::optional<std::filesystem::path> openFileURL(std::string_view url);
bool requestsExternalHandoff(std::string_view url);

}  // namespace TavrinURL

}  // namespace tavrin
