#pragma once
// --jsonl: one JSON report per line, written and flushed as each file finishes, so the log of a
// run that is killed part-way holds only whole lines.

#include <mutex>
#include <ostream>

#include <nlohmann/json.hpp>

namespace tavrin::cli {

class JsonLinesWriter {
public:
    explicit JsonLinesWriter(std::ostream& out) : out_(out) {}
    // Safe to call from several threads; each call writes one whole line.
    void write(const nlohmann::json& report);

private:
    std::ostream& out_;
    std::mutex mutex_;
};

}  // namespace tavrin::cli
