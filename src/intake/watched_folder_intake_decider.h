#pragma once
// The rules of a watched folder: which files it leaves alone, and when a file has finished
// arriving. Pure logic; the watcher feeds it names, flags and sizes.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tavrin {

// What a listing says about a file: its size in bytes and its modification time in seconds.
struct WatchedFolderFileState {
    std::int64_t size = 0;
    double modificationTime = 0;
    bool operator==(const WatchedFolderFileState&) const = default;
};

enum class IgnoreReason { hidden, temporary, unsupportedType, notVerifiedCleanable, tavrinOutput, notARegularFile };

// "hidden", "temporary", "unsupportedType", "notVerifiedCleanable", "tavrinOutput",
// "notARegularFile".
std::string_view rawValue(IgnoreReason reason);

class WatchedFolderIntakeVerdict {
public:
    enum class Kind { ignore, waitForStability, enqueue };

    static WatchedFolderIntakeVerdict ignore(IgnoreReason reason) { return {Kind::ignore, reason}; }
    static WatchedFolderIntakeVerdict waitForStability() { return {Kind::waitForStability, std::nullopt}; }
    static WatchedFolderIntakeVerdict enqueue() { return {Kind::enqueue, std::nullopt}; }

    Kind kind() const { return kind_; }
    // Present exactly for `ignore`.
    std::optional<IgnoreReason> ignoreReason() const { return reason_; }
    bool operator==(const WatchedFolderIntakeVerdict&) const = default;

private:
    WatchedFolderIntakeVerdict(Kind kind, std::optional<IgnoreReason> reason) : kind_(kind), reason_(reason) {}
    Kind kind_;
    std::optional<IgnoreReason> reason_;
};

// For test messages: "ignore(hidden)", "waitForStability", "enqueue".
std::string describe(const WatchedFolderIntakeVerdict& verdict);

class WatchedFolderIntakeDecider {
public:
    // Compared with lower-cased names.
    static const std::vector<std::string_view>& temporaryPrefixes();  // "~$", ".~lock", "~"
    static const std::vector<std::string_view>& temporarySuffixes();  // ".partial", ".download", ".crdownload", ".tmp", ".part"

    // A negative interval counts as 0. The suffixes are "-clean" and "-final" followed by the given
    // ones, each trimmed and lower-cased, empty ones dropped, each kept once in first-seen order:
    // whatever suffix the auto-cleaner writes must be among them, so a copy is never cleaned again.
    explicit WatchedFolderIntakeDecider(double stabilityInterval = 2.0, const std::vector<std::string>& outputSuffixes = {});

    double stabilityInterval() const { return stabilityInterval_; }
    const std::vector<std::string>& outputSuffixes() const { return outputSuffixes_; }

    // The first matching rule: not a regular file, hidden, a temporary name, our own output, a
    // type we do not know, a type we cannot clean with verification. Otherwise waitForStability.
    WatchedFolderIntakeVerdict filterVerdict(const std::filesystem::path& url, bool isRegularFile) const;

    // `enqueue` once the file was seen with the same size and time at least the stability
    // interval ago; `waitForStability` otherwise, and with no earlier sighting.
    WatchedFolderIntakeVerdict stabilityVerdict(double now, const WatchedFolderFileState& current,
                                                const std::optional<std::pair<WatchedFolderFileState, double>>& previous) const;

    // The name without its extension, lower-cased, ends with one of the output suffixes. A user's
    // own "report-final.pdf" counts too.
    bool isTavrinOutput(std::string_view fileName) const;

    // A text that changes whenever the rules change: watchers built with another key restart.
    std::string key() const;

private:
    double stabilityInterval_;
    std::vector<std::string> outputSuffixes_;
};

}  // namespace tavrin
