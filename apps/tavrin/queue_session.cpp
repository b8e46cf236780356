#include "queue_session.h"

#include "data/store_defaults.h"

namespace tavrin::cli {

std::unique_ptr<QueueSession> QueueSession::open(const std::optional<std::filesystem::path>& store) {
    auto session = std::make_unique<QueueSession>();
    std::optional<SharedContainer> places;
    std::shared_ptr<QueueRunLock> lock;
    if (store) {
        session->container = ModelContainerFactory::atURL(*store);
        places.emplace(std::filesystem::absolute(*store).parent_path());
    } else {
        session->container = ModelContainerFactory::application();
        places.emplace(SharedContainer::current());
    }
    places->ensureDirectories();
    const auto& configuration = session->container->configuration();
    // Runs of other processes can share only a store on disk.
    if (!configuration.isStoredInMemoryOnly)
        lock = std::make_shared<QueueRunLock>(configuration.url.string() + ".run-lock");

    auto& context = session->container->mainContext();
    session->presets = std::make_shared<PresetService>(context, nullptr);
    session->presets->seedBuiltInPresetsIfNeeded();
    std::int64_t concurrency = 4;
    if (auto settings = currentSettings(context)) concurrency = settings->maxConcurrentProcessing();
    auto processing = std::make_shared<ProcessingService>(static_cast<int>(std::clamp<std::int64_t>(concurrency, 1, 8)),
                                                          EngineConfiguration::standard());
    auto staging = std::make_shared<StagingService>(places->stagingDirectoryURL);
    session->queue = std::make_shared<QueueService>(context, processing, nullptr, staging, lock);
    session->queue->recoverInterruptedRun();
    session->queue->refreshCounts();
    session->import = std::make_shared<QueueImportService>(context, session->queue);
    return session;
}

}  // namespace tavrin::cli
