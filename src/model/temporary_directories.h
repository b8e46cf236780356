#pragma once
// Private temporary folders that a killed run cannot leave behind for long.
//
// Each folder "<root>/<prefix>_<UUID>" is claimed by the file "<root>/<prefix>_<UUID>.lock",
// which this process holds locked (flock) for the folder's life. The claim sits beside the folder,
// not inside it, so the folder stays wholly the caller's: a staged file may carry any name. The
// claim is made before the folder and removed after it, so a folder of ours never lacks one.
//
// A lock dies with its process, however the process ends. The next run's sweep removes every
// folder whose claim it can lock (no live process holds it). SIGINT and SIGTERM are handled
// sooner: the watcher removes this run's folders and staged files, then ends the process by the
// same signal.
//
// The registry of this run's folders is process-wide on purpose: signals are.

#include <cstddef>
#include <filesystem>
#include <string_view>

namespace tavrin::temporaries {

// $TMPDIR, or /tmp.
std::filesystem::path root();

// Creates "<root>/<prefix>_<UUID>" (mode 0700) with its claim held, and registers it for removal
// on a termination signal. The first call of a process sweeps stale folders first. Throws
// FileSystemError (also once a termination signal has arrived).
std::filesystem::path createDirectory(std::string_view prefix);
// Removes a folder made by createDirectory, then its claim, and forgets it. Quiet on failure;
// a path it did not make is simply removed.
void removeDirectory(const std::filesystem::path& directory) noexcept;

// A staged file outside the temporary root (a cross-file-system copy beside its destination)
// that a termination signal must remove too.
void trackFile(const std::filesystem::path& file);
void untrackFile(const std::filesystem::path& file) noexcept;

// Removes, under `directory`, every temporary folder whose claim no live process holds, and
// folders of our naming that lack a claim and are older than an hour (left by earlier versions).
// Returns how many folders went.
std::size_t removeStale(const std::filesystem::path& directory);

// Removes, in `folder`, staged copies (".NAME.tavrin-<UUID>") that no live process holds locked.
std::size_t removeStaleStagedFiles(const std::filesystem::path& folder);

// Blocks SIGINT, SIGTERM and SIGHUP (those not ignored already) in the calling thread, which
// threads started later inherit, and starts the watcher that cleans up on any of them. REQUIRES: called once, before any other thread
// starts (first thing in main).
void installTerminationCleanup();

}  // namespace tavrin::temporaries
