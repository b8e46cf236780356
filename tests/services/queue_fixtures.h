#pragma once
// A queue over a real SQLite store and the real engine, in a folder of its own: the store, the
// staging directory, the user's files and the temporary directory (TMPDIR) where runs put their
// outputs.

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>

#include "data/queries.h"
#include "data/shared_container.h"
#include "data/store_error.h"
#include "services/preset_service.h"
#include "services/queue_import_service.h"
#include "services/queue_service.h"
#include "support/test_support.h"

namespace tavrin::testing {

class RecordingNotifier : public ChangeNotifying {
public:
    void postQueueUpdated() override { ++queueUpdated; }
    void postProcessingComplete() override { ++processingComplete; }
    void postPresetChanged() override { ++presetChanged; }
    int queueUpdated = 0;
    int processingComplete = 0;
    int presetChanged = 0;
};

// A store whose saves fail while `failing` is set.
class FailingBackend : public StoreBackend {
public:
    explicit FailingBackend(std::shared_ptr<StoreBackend> inner) : inner_(std::move(inner)) {}
    std::vector<StoreRow> fetchRows(const TableSpec& t, const FetchRequest& r, std::optional<std::int64_t> l) override {
        return inner_->fetchRows(t, r, l);
    }
    std::int64_t fetchCount(const TableSpec& t, const FetchRequest& r) override { return inner_->fetchCount(t, r); }
    void commit(const std::vector<StoreChange>& changes) override {
        if (failing) throw StoreError::operationFailed(inner_->location(), "disk full");
        inner_->commit(changes);
    }
    std::string location() const override { return inner_->location(); }
    bool failing = false;

private:
    std::shared_ptr<StoreBackend> inner_;
};

class QueueFixture : public ::testing::Test {
public:
    TempDir dir;
    std::filesystem::path user = dir / "user";
    std::filesystem::path tmp = dir / "tmp";
    std::shared_ptr<ModelContainer> container;
    std::shared_ptr<RecordingNotifier> notifier = std::make_shared<RecordingNotifier>();
    std::shared_ptr<StagingService> staging;
    std::shared_ptr<ProcessingService> processing;
    std::string savedTmpdir;

    void SetUp() override {
        std::filesystem::create_directories(user);
        std::filesystem::create_directories(tmp);
        if (const char* t = std::getenv("TMPDIR")) savedTmpdir = t;
        ::setenv("TMPDIR", tmp.c_str(), 1);
        container = ModelContainerFactory::atURL(dir / "Tavrin.store");
        staging = std::make_shared<StagingService>(dir / "Staging");
        staging->ensureStagingDirectory();
        processing = std::make_shared<ProcessingService>(2, EngineConfiguration::standard());
        PresetService(container->mainContext(), nullptr).seedBuiltInPresetsIfNeeded();
    }
    void TearDown() override {
        if (savedTmpdir.empty()) ::unsetenv("TMPDIR");
        else ::setenv("TMPDIR", savedTmpdir.c_str(), 1);
    }

    std::shared_ptr<QueueService> makeQueue(ModelContext& context, std::shared_ptr<QueueRunLock> lock = nullptr) {
        return std::make_shared<QueueService>(context, processing, notifier, staging, std::move(lock));
    }
    ModelContext& context() { return container->mainContext(); }

    std::filesystem::path userFile(const std::string& name, const std::vector<std::uint8_t>& bytes) {
        const auto path = user / name;
        writeFile(path, bytes);
        return path;
    }
    std::shared_ptr<MetadataPreset> starter(const Uuid& id) {
        return context().fetch(PresetQueries::preset(id)).front();
    }
    std::size_t stagedCopies() const {
        std::size_t n = 0;
        for (const auto& e : std::filesystem::directory_iterator(dir / "Staging")) n += e.is_regular_file() ? 1 : 0;
        return n;
    }
    std::vector<std::filesystem::path> outputFolders() const {
        std::vector<std::filesystem::path> out;
        for (const auto& e : std::filesystem::directory_iterator(tmp))
            if (e.path().filename().string().starts_with("tavrin_output")) out.push_back(e.path());
        return out;
    }
};

}  // namespace tavrin::testing
