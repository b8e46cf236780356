#pragma once
// The queue's services over one store, as each command (and the link handler) opens them: the
// starters are brought up to date and a dead run's files are recovered, as at the app's start.

#include <filesystem>
#include <memory>
#include <optional>

#include "data/shared_container.h"
#include "services/preset_service.h"
#include "services/queue_import_service.h"
#include "services/queue_service.h"

namespace tavrin::cli {

struct QueueSession {
    std::shared_ptr<ModelContainer> container;
    std::shared_ptr<QueueService> queue;
    std::shared_ptr<QueueImportService> import;
    std::shared_ptr<PresetService> presets;

    // The store at `store`, else the user's (or the in-memory one). Staging lives beside the
    // store. Throws StoreError, FileAccessError or FileSystemError.
    static std::unique_ptr<QueueSession> open(const std::optional<std::filesystem::path>& store);
    ModelContext& context() { return container->mainContext(); }
};

}  // namespace tavrin::cli
