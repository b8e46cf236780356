#pragma once
// What a run of the queue, or a batch of a watched folder, did: the files it cleaned and the
// ones it could not, with the reason for each.

#include <filesystem>
#include <string>
#include <vector>

namespace tavrin {

struct QueueFileOutcome;

struct RunReport {
    struct Failure {
        std::filesystem::path source;
        std::string reason;
    };
    std::vector<std::filesystem::path> cleaned;  // the outputs
    std::vector<Failure> failed;

    bool empty() const { return cleaned.empty() && failed.empty(); }
    // Adds one file of a queue run: its copy when it was cleaned, else the original with the
    // reason it failed (the record's message, else the error's).
    void add(const QueueFileOutcome& outcome);
};

}  // namespace tavrin
