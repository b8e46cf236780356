#pragma once
// Outputs that exist only to be handed to another application and are to disappear again: each
// in a private sub-directory named by a UUID under "<base>/TavrinTempShare", removed after use or
// swept by age.

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>

namespace tavrin {

class TemporaryShareStore {
public:
    static constexpr double defaultRetention = 3600.0;
    static constexpr const char* directoryName = "TavrinTempShare";
    using WallClock = std::function<std::chrono::system_clock::time_point()>;

    // `now` gives the time the sweep measures ages against.
    explicit TemporaryShareStore(const std::filesystem::path& baseDirectory,
                                 WallClock now = [] { return std::chrono::system_clock::now(); });

    const std::filesystem::path& rootURL() const { return rootURL_; }

    // Creates the root when missing and returns it. Throws FileAccessError.
    std::filesystem::path ensureDirectory() const;
    // "<root>/<UUID>/<name>", the UUID directory created; "Cleaned file" stands for an empty
    // name, and a name that is not a single file name (holding "/", or "." or "..") is reduced to
    // its last component so that nothing lands outside that directory. Throws FileAccessError.
    std::filesystem::path makeDestinationURL(const std::string& originalName) const;
    // Removes `url` with its UUID directory when it sits directly in one, else `url` alone, when
    // it lies inside the root. A path outside the store is never touched. Never throws.
    void remove(const std::filesystem::path& url) const noexcept;
    // Removes every entry of the root created (or, lacking that date, modified) before now minus
    // `olderThan` seconds; an entry with neither date counts as stale. Never throws.
    void sweepStaleFiles(double olderThan = defaultRetention) const noexcept;

private:
    std::filesystem::path rootURL_;
    WallClock now_;
};

}  // namespace tavrin
