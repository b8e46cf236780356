#include "app_context.h"

#include <algorithm>
#include <stdexcept>

#include "data/queries.h"
#include "data/store_defaults.h"
#include "qt_event_loop.h"

namespace tavrin {

namespace {

// The queue's announcements on the bus, when there is one.
class BusChangeNotifier final : public ChangeNotifying {
public:
    explicit BusChangeNotifier(NotificationService& service) : service_(service) {}
    void postQueueUpdated() override { service_.postQueueUpdated(); }
    void postProcessingComplete() override { service_.postProcessingComplete(); }
    void postPresetChanged() override { service_.postPresetChanged(); }

private:
    NotificationService& service_;
};

SharedContainer placesFor(const std::optional<std::filesystem::path>& store) {
    if (store) return SharedContainer(std::filesystem::absolute(*store).parent_path());
    return SharedContainer::current();
}

}  // namespace

AppContext::AppContext(QtEventLoop& loop, Options options)
    : loop_(loop), places_(placesFor(options.store)), replaceInPlace_(std::move(options.replaceInPlace)) {
    if (options.busAddress && options.busAddress->empty()) {
        busDisabled_ = true;
    } else {
        busAddress_ = options.busAddress;
    }
    places_.ensureDirectories();
    container_ = options.store ? ModelContainerFactory::atURL(*options.store) : ModelContainerFactory::application();
    const auto& configuration = container_->configuration();
    // Runs of other processes (the command line, a second window) can share only a store on disk.
    if (!configuration.isStoredInMemoryOnly)
        runLock_ = std::make_shared<QueueRunLock>(configuration.url.string() + ".run-lock");

    if (!busDisabled_) {
        notifications_ = std::make_unique<NotificationService>(loop_, busAddress_);
        notifier_ = std::make_shared<BusChangeNotifier>(*notifications_);
    } else {
        notifier_ = std::make_shared<SilentChangeNotifier>();
    }

    auto& main = container_->mainContext();
    PresetService(main, notifier_).seedBuiltInPresetsIfNeeded();
    std::int64_t concurrency = 4;
    if (auto stored = currentSettings(main)) concurrency = stored->maxConcurrentProcessing();
    const int limit = static_cast<int>(std::clamp<std::int64_t>(concurrency, ProcessingService::minConcurrency,
                                                                ProcessingService::maxConcurrency));
    engine_ = options.engine ? options.engine : std::make_shared<const TavrinEngine>(EngineConfiguration::standard());
    processing_ = std::make_shared<ProcessingService>(limit, engine_);
    staging_ = std::make_shared<StagingService>(places_.stagingDirectoryURL);
    {
        QueueService recovery(main, processing_, notifier_, staging_, runLock_);
        recovery.recoverInterruptedRun();
    }

    std::error_code ec;
    const auto shareBase = options.shareBase ? *options.shareBase : std::filesystem::temp_directory_path(ec);
    shareStore_ = std::make_unique<TemporaryShareStore>(ec ? std::filesystem::path("/tmp") : shareBase);
    shareStore_->sweepStaleFiles();

    view_ = makeServices(container_->makeContext());
    view_.queue->refreshCounts();

    if (notifications_) {
        // Another process (or a run of ours) changed the store: read it again.
        auto again = [this] { reload(); };
        notifications_->observeQueueUpdated(again);
        notifications_->observeProcessingComplete(again);
        notifications_->observePresetChanged(again);
    }
}

AppContext::~AppContext() = default;

std::optional<std::filesystem::path> AppContext::storeURL() const {
    const auto& configuration = container_->configuration();
    if (configuration.isStoredInMemoryOnly) return std::nullopt;
    return configuration.url;
}

QueueSessionServices AppContext::makeServices(std::unique_ptr<ModelContext> context) {
    QueueSessionServices services;
    services.context = std::move(context);
    services.queue = std::make_shared<QueueService>(*services.context, processing_, notifier_, staging_, runLock_);
    services.import = std::make_shared<QueueImportService>(*services.context, services.queue);
    services.presets = std::make_shared<PresetService>(*services.context, notifier_);
    return services;
}

QueueSessionServices AppContext::makeSession() { return makeServices(container_->makeContext()); }

void AppContext::reload() {
    // What the view changed and has not saved yet (inspections are saved in batches) goes first.
    if (view_.context && view_.context->hasChanges()) {
        try {
            view_.context->save();
        } catch (...) {
        }
    }
    // The services keep no records of their own: a fresh read of the context is enough, and
    // whoever holds the services (the windows around the main one) keeps them.
    view_.context->refresh();
    for (const auto& listener : reloadListeners_) listener();
}

std::shared_ptr<AppSettings> AppContext::settings() {
    if (auto stored = currentSettings(context())) return stored;
    return AppSettings::makeDefault();
}

void AppContext::saveSettings(const std::shared_ptr<AppSettings>& settings) {
    if (!currentSettings(context())) context().insert(settings);
    context().save();
}

std::vector<std::shared_ptr<QueuedFile>> AppContext::files() { return context().fetch(QueueQueries::allFiles()); }

std::vector<std::shared_ptr<QueuedFile>> AppContext::files(const std::vector<std::string>& ids) {
    std::map<std::string, std::shared_ptr<QueuedFile>> byId;
    for (auto& f : files()) byId.emplace(f->id.uuidString(), std::move(f));
    std::vector<std::shared_ptr<QueuedFile>> out;
    for (const auto& id : ids)
        if (auto it = byId.find(id); it != byId.end()) out.push_back(it->second);
    return out;
}

std::shared_ptr<QueuedFile> AppContext::file(const Uuid& id) {
    auto found = context().fetch(FetchDescriptor<QueuedFile>(Predicate::equal("id", storeValue::uuid(id))));
    return found.empty() ? nullptr : found.front();
}

std::vector<std::shared_ptr<MetadataPreset>> AppContext::allPresets() { return presets().fetchAllPresets(); }

void AppContext::rememberResult(const Uuid& id, CleaningResult result) { results_[id.uuidString()] = std::move(result); }

const CleaningResult* AppContext::resultFor(const Uuid& id) const {
    auto it = results_.find(id.uuidString());
    return it == results_.end() ? nullptr : &it->second;
}

const MetadataTree* AppContext::treeFor(const Uuid& id) const {
    auto it = trees_.find(id.uuidString());
    return it == trees_.end() ? nullptr : &it->second;
}

void AppContext::forget(const Uuid& id) {
    results_.erase(id.uuidString());
    trees_.erase(id.uuidString());
}

}  // namespace tavrin
