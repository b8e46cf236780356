#pragma once
// Starts an external program without a shell and collects what it prints, within limits: a
// program that hangs is killed after a time-out, and output beyond a cap is refused before it
// is all read into memory.

#include <chrono>
#include <cstddef>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

#include "model/typed_error.h"

namespace tavrin {

struct ProcessLimits {
    std::chrono::milliseconds timeout = std::chrono::seconds(60);
    // Standard output beyond this many bytes makes the run fail.
    std::size_t maxOutputBytes = std::size_t{64} << 20;
    // Standard error beyond this many bytes is read and dropped, not kept.
    std::size_t maxErrorBytes = std::size_t{1} << 20;
};

struct ProcessOutput {
    int exitCode = 0;
    std::string standardOutput;
    std::string standardError;
};

enum class ProcessErrorCase { launchFailed, timedOut, outputTooLarge, terminatedBySignal, communicationFailed };

class ProcessError : public TypedError<ProcessErrorCase> {
public:
    static ProcessError launchFailed(std::string program, std::string reason);
    static ProcessError timedOut(std::string program, std::chrono::milliseconds timeout);
    static ProcessError outputTooLarge(std::string program, std::size_t limit);
    static ProcessError terminatedBySignal(std::string program, int signal);
    static ProcessError communicationFailed(std::string program, std::string reason);

    // The system's reason for `launchFailed` and `communicationFailed` ("Permission denied").
    const std::string& reason() const { return detail(); }
    std::string description() const;

private:
    ProcessError(Case c, std::string program, std::string reason, long long number);
    std::string program_;
    long long number_;  // milliseconds, bytes or signal, by case
};

// True for a regular file (after following links) that this process may execute.
bool isExecutableFile(const std::filesystem::path& path);

// Runs `executable` with `arguments` (argv[1] onwards) and the current environment; standard
// input is /dev/null. The program runs in a process group of its own, and the whole group is
// killed when a limit is hit. Any exit status is returned; the caller decides what it means.
// Throws ProcessError.
ProcessOutput runProcess(const std::filesystem::path& executable, const std::vector<std::string>& arguments,
                         const ProcessLimits& limits = {});

}  // namespace tavrin
