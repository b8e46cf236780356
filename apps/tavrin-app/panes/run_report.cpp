#include "run_report.h"

#include "services/queue_service.h"

namespace tavrin {

void RunReport::add(const QueueFileOutcome& outcome) {
    if (!outcome.file) return;
    if (outcome.result) {
        const auto copy = outcome.file->cleanedFileURL();
        cleaned.push_back(copy ? *copy : outcome.result->outputURL);
        return;
    }
    std::string reason = outcome.file->errorMessage.value_or("");
    if (reason.empty() && outcome.error) {
        try {
            std::rethrow_exception(outcome.error);
        } catch (const std::exception& e) {
            reason = e.what();
        } catch (...) {
            reason = "Unknown error";
        }
    }
    if (reason.empty()) reason = QueueService::noConfigurationMessage;
    const auto& file = *outcome.file;
    // The user's own file, not the staged copy the queue worked on.
    std::filesystem::path source = file.originalSourcePath
                                       ? std::filesystem::path(*file.originalSourcePath)
                                       : std::filesystem::path(file.fileName + (file.fileExtension.empty() ? "" : "." + file.fileExtension));
    failed.push_back({source, reason});
}

}  // namespace tavrin
