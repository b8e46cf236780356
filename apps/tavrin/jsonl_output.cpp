#include "jsonl_output.h"

namespace tavrin::cli {

void JsonLinesWriter::write(const nlohmann::json& report) {
    // Compact dump: JSON escapes newlines inside strings, so a report is always one line. Invalid
    // UTF-8 in a path is replaced rather than thrown on.
    std::string line = report.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    line += '\n';
    std::lock_guard lock(mutex_);
    out_.write(line.data(), static_cast<std::streamsize>(line.size()));
    out_.flush();
}

}  // namespace tavrin::cli
