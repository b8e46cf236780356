#pragma once
// Turns a dropped or shared mix of files and folders into the flat list of files the queue takes,
// with a hard cap. Types are not judged here: what the queue's detection rejects later counts as
// skipped in FolderIntakeSummary.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tavrin {

struct FolderExpansionSummary {
    // The files found, in order of discovery, at most the cap. Each file appears once, under the
    // first name it was reached by; a file given by a symbolic link is listed by its target.
    std::vector<std::filesystem::path> fileURLs;
    // How many of the given paths were folders.
    std::int64_t foldersExpanded = 0;
    // How many of `fileURLs` came from inside a folder.
    std::int64_t filesFoundInFolders = 0;
    // The cap was reached (reaching it exactly counts).
    bool capHit = false;
    // At least one given path was a folder.
    bool containedFolders = false;

    bool operator==(const FolderExpansionSummary&) const = default;
};

class FolderExpansionService {
public:
    static constexpr std::int64_t defaultFileCap = 2000;
    // How deep below a given folder the walk goes; deeper folders are left out like unreadable
    // ones. Each level holds one open directory.
    static constexpr std::size_t maxDepth = 128;

    // A cap below 1 is raised to 1.
    explicit FolderExpansionService(std::int64_t fileCap = defaultFileCap);
    std::int64_t fileCap() const { return fileCap_; }

    // Never fails. Given paths are taken in order: a folder is walked (hidden entries and
    // symbolic links inside it are left out, links are never followed below the top level, an
    // unreadable sub-folder costs only its own content), anything else is taken as a file. The
    // walk stops the moment the cap is reached, without reading further.
    FolderExpansionSummary expand(const std::vector<std::filesystem::path>& urls) const;

private:
    std::int64_t fileCap_;
};

}  // namespace tavrin
