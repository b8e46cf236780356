#pragma once
// What the desktop app stands on: the store, the services over it, the session bus, and the
// loop they share. Widgets read and change the queue only through this object.
//
// A store context caches the records it has handed out, so a change saved by another context or
// process stays invisible to it. `reload()` therefore makes the view's context read every record
// anew; it runs when another process announces a change and after each file of a run.

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "data/app_settings.h"
#include "data/metadata_preset.h"
#include "data/queued_file.h"
#include "data/shared_container.h"
#include "services/change_notifications.h"
#include "services/in_place_replacement.h"
#include "services/notification_service.h"
#include "services/preset_service.h"
#include "services/processing_service.h"
#include "services/queue_import_service.h"
#include "services/queue_service.h"
#include "services/run_lock.h"
#include "services/staging_service.h"
#include "services/temporary_share_store.h"

namespace tavrin {

class QtEventLoop;

// The context and services of one unit of work.
struct QueueSessionServices {
    std::unique_ptr<ModelContext> context;
    std::shared_ptr<QueueService> queue;
    std::shared_ptr<QueueImportService> import;
    std::shared_ptr<PresetService> presets;
};


class AppContext {
public:
    struct Options {
        // The store file; absent: the user's store (or the in-memory one the environment asks for).
        std::optional<std::filesystem::path> store;
        // A bus other than the session bus (tests); the empty text means no bus at all.
        std::optional<std::string> busAddress;
        // Where temporary shares live; absent: the system's temporary directory.
        std::optional<std::filesystem::path> shareBase;
        std::shared_ptr<const TavrinEngine> engine;  // absent: the standard engine
        // Puts a verified clean file at the user's path, the original going to the Trash;
        // absent: cleaning in place is refused.
        std::shared_ptr<const InPlaceReplacement> replaceInPlace;
    };

    // Opens the store (throws StoreError, FileAccessError, FileSystemError), seeds the presets,
    // recovers a run that died, sweeps stale shares and starts listening for changes.
    AppContext(QtEventLoop& loop, Options options);
    ~AppContext();
    AppContext(const AppContext&) = delete;
    AppContext& operator=(const AppContext&) = delete;

    QtEventLoop& loop() { return loop_; }
    ModelContainer& container() { return *container_; }
    const std::shared_ptr<ModelContainer>& sharedContainer() const { return container_; }
    const std::shared_ptr<const TavrinEngine>& sharedEngine() const { return engine_; }
    // Tells other processes of this one's changes.
    const std::shared_ptr<ChangeNotifying>& changeNotifier() const { return notifier_; }
    // The store file; none for a store in memory.
    std::optional<std::filesystem::path> storeURL() const;
    ModelContext& context() { return *view_.context; }
    QueueService& queue() { return *view_.queue; }
    QueueImportService& import() { return *view_.import; }
    PresetService& presets() { return *view_.presets; }
    ProcessingService& processing() { return *processing_; }
    const TavrinEngine& engine() const { return *engine_; }
    TemporaryShareStore& shareStore() { return *shareStore_; }
    const std::filesystem::path& stagingDirectory() const { return places_.stagingDirectoryURL; }
    const std::shared_ptr<const InPlaceReplacement>& replaceInPlace() const { return replaceInPlace_; }
    // Whether this process reaches a bus at all (hand-off, announcements).
    const std::optional<std::string>& busAddress() const { return busAddress_; }
    bool busDisabled() const { return busDisabled_; }

    // A fresh unit of work with its own services, for a run on a worker thread.
    QueueSessionServices makeSession();

    // Makes the view's context read every record anew (saving what it has pending first), then
    // calls every listener.
    void reload();
    void addReloadListener(std::function<void()> listener) { reloadListeners_.push_back(std::move(listener)); }

    // The settings record, or the defaults when there is none (not inserted).
    std::shared_ptr<AppSettings> settings();
    // Saves changed settings, inserting the record when it is new.
    void saveSettings(const std::shared_ptr<AppSettings>& settings);
    std::vector<std::shared_ptr<QueuedFile>> files();
    std::shared_ptr<QueuedFile> file(const Uuid& id);
    // The files with these ids (canonical text), in the given order, from one fetch: a context
    // fetch costs time in proportion to the records it holds, so a selection is read at once.
    std::vector<std::shared_ptr<QueuedFile>> files(const std::vector<std::string>& ids);
    std::vector<std::shared_ptr<MetadataPreset>> allPresets();

    // What the last clean of a file found, kept for this session: the store holds only counts.
    void rememberResult(const Uuid& id, CleaningResult result);
    const CleaningResult* resultFor(const Uuid& id) const;
    // The inspection of a file, kept for this session.
    void rememberTree(const Uuid& id, MetadataTree tree) { trees_[id.uuidString()] = std::move(tree); }
    const MetadataTree* treeFor(const Uuid& id) const;
    void forget(const Uuid& id);

private:
    QueueSessionServices makeServices(std::unique_ptr<ModelContext> context);

    QtEventLoop& loop_;
    SharedContainer places_;
    std::optional<std::string> busAddress_;
    bool busDisabled_ = false;
    std::shared_ptr<ModelContainer> container_;
    std::shared_ptr<const TavrinEngine> engine_;
    std::shared_ptr<ProcessingService> processing_;
    std::shared_ptr<StagingService> staging_;
    std::shared_ptr<QueueRunLock> runLock_;
    std::unique_ptr<NotificationService> notifications_;
    std::shared_ptr<ChangeNotifying> notifier_;
    std::unique_ptr<TemporaryShareStore> shareStore_;
    std::shared_ptr<const InPlaceReplacement> replaceInPlace_;
    QueueSessionServices view_;
    std::vector<std::function<void()>> reloadListeners_;
    std::map<std::string, CleaningResult> results_;  // by id text
    std::map<std::string, MetadataTree> trees_;
};

}  // namespace tavrin
