#include "queue_url_handler.h"

#include <fmt/core.h>
#include <iostream>

#include "cli.h"
#include "queue_session.h"

namespace tavrin::cli {

int QueueURLHandler::enqueue(const AdmittedFiles& files) {
    for (const auto& file : files.rejected)
        std::cout << fmt::format("Skipped {}: {}\n", printable(file.path.string()), file.reason);
    if (files.files.empty()) {
        std::cerr << "tavrin: the link names no file that can be added to the queue\n";
        return kFailure;
    }
    try {
        auto session = QueueSession::open(std::nullopt);
        const auto added = session->import->importFiles(files.files);
        for (const auto& f : added)
            std::cout << fmt::format("Added to the queue: {} ({})\n", printable(f->originalSourcePath.value_or(f->fullFileName())),
                                     displayName(f->status()));
        return added.empty() ? kFailure : kSuccess;
    } catch (const std::exception& e) {
        std::cerr << "tavrin: nothing was added to the queue: " << e.what() << "\n";
        return kFailure;
    }
}

}  // namespace tavrin::cli
