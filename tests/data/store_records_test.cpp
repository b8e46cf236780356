// Every record survives a trip through the store, in memory and on disk, field by field; and
// values another writer left in the store read as their fall-backs.

#include <gtest/gtest.h>

#include <SQLiteCpp/SQLiteCpp.h>

#include "data/queries.h"
#include "data/shared_container.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

using namespace std::chrono_literals;

const Date kT0 = storedPrecision(std::chrono::system_clock::from_time_t(1'700'000'000) + 123ms);

Blob bytes(std::string_view text) { return Blob(text.begin(), text.end()); }

std::shared_ptr<AppSettings> fullSettings() {
    auto s = AppSettings::make(AppSettings::singletonID(), Uuid::random(), PreferredEmailClient::evolution, true, true,
                               true, 6, CleanOutputMode::inPlace, CleanCopySuffixKind::custom, "-mine", true, true, true);
    s->watchedFolderStabilityInterval = 3.5;
    s->watchedFolderDebounceInterval = 0.25;
    return s;
}

std::shared_ptr<MetadataPreset> fullPreset() {
    return std::make_shared<MetadataPreset>(Uuid::random(), "Für «Presse»", false,
                                            std::set<MetadataCategory>{MetadataCategory::location, MetadataCategory::timestamps},
                                            std::vector<std::string>{"exif.GPSLatitude", "imageio.{GPS}.Latitude"},
                                            std::vector<std::string>{"key \"with\" quotes", "[brackets]"}, kT0, kT0 + 5s);
}

std::shared_ptr<ProcessingHistory> fullHistory() {
    auto h = std::make_shared<ProcessingHistory>();
    h->id = Uuid::random();
    h->fileName = "report.final.pdf";
    h->processedAt = kT0;
    h->originalSize = 5'000'000'000;
    h->cleanedSize = 4'999'000'000;
    h->removedItemCount = 17;
    h->presetName = "Custom";
    h->duration = 1.25;
    h->cleanedFilePath = "/tmp/out/report.final.pdf";
    h->originalFilePath = "/home/u/report.final.pdf";
    h->outputRetained = false;
    return h;
}

std::shared_ptr<WatchedFolder> fullFolder() {
    auto f = std::make_shared<WatchedFolder>();
    f->id = Uuid::random();
    f->path = "/home/u/Drop Box";
    f->bookmarkData = bytes("{\"path\":\"/home/u/Drop Box\",\"device\":1,\"inode\":2}");
    f->isEnabled = false;
    f->dateAdded = kT0;
    return f;
}

std::shared_ptr<QueuedFile> fullQueuedFile(const Uuid& presetId) {
    auto f = std::make_shared<QueuedFile>(Uuid::random(), "scan 01", "jpeg", "/staging/ABC.jpeg", 1234, FileType::heic, kT0);
    f->originalFileBookmarkData = Blob{0, 1, 2, 255};
    f->originalSourcePath = "/home/u/scan 01.jpeg";
    f->cleanedFilePath = "/tmp/x/scan 01.jpeg";
    f->cleanedFileSizeBytes = 1000;
    f->dateProcessed = kT0 + 1s;
    f->setStatus(QueuedFile::Status::completed);
    MetadataSummary summary;
    summary.removableCounts = {{"location", 2}, {"deviceInfo", 5}};
    f->setMetadataSummary(summary);
    f->setCategoriesToRemove({MetadataCategory::thumbnails, MetadataCategory::deviceInfo});
    f->specificKeysToRemove = {"a"};
    f->specificKeysToKeep = {"b", "c"};
    f->errorMessage = "none";
    f->cleanedOutputBehaviorRaw = "alongside";
    f->userDidConfigureEmptySelection = true;
    f->editHistoryRetainedInPlace = true;
    f->isCloudPlaceholder = true;
    f->presetId = presetId;
    return f;
}

class StoreRoundTrip : public ::testing::TestWithParam<bool> {
protected:
    std::shared_ptr<ModelContainer> open() {
        return GetParam() ? ModelContainerFactory::atURL(dir_ / "Tavrin.store") : ModelContainerFactory::inMemory();
    }
    testing::TempDir dir_;
};

TEST_P(StoreRoundTrip, everyFieldOfEveryRecordReadsBackAsWritten) {
    auto settings = fullSettings();
    auto preset = fullPreset();
    auto history = fullHistory();
    auto folder = fullFolder();
    auto queued = fullQueuedFile(preset->id);
    auto container = open();
    {
        auto& context = container->mainContext();
        context.insert(queued);  // before its preset: the relationship is checked at commit
        context.insert(preset);
        context.insert(history);
        context.insert(settings);
        context.insert(folder);
        context.save();
    }
    // On disk: a new connection; in memory: a new context on the same store.
    auto reopened = GetParam() ? open() : container;
    auto context = reopened->makeContext();

    auto s = context->fetch(SettingsQueries::allSettings());
    ASSERT_EQ(s.size(), 1u);
    EXPECT_EQ(s[0]->toRow(), settings->toRow());
    EXPECT_EQ(s[0]->preferredEmailClient(), PreferredEmailClient::evolution);
    EXPECT_EQ(s[0]->maxConcurrentProcessing(), 6);
    EXPECT_EQ(s[0]->watchedFolderDebounceInterval, 0.25);

    auto p = context->fetch(PresetQueries::preset(preset->id));
    ASSERT_EQ(p.size(), 1u);
    EXPECT_EQ(p[0]->toRow(), preset->toRow());
    EXPECT_EQ(p[0]->name, "Für «Presse»");
    EXPECT_EQ(p[0]->specificKeysToKeep, preset->specificKeysToKeep);
    EXPECT_EQ(p[0]->modifiedAt, kT0 + 5s);

    auto h = context->fetch(HistoryQueries::recent());
    ASSERT_EQ(h.size(), 1u);
    EXPECT_EQ(h[0]->toRow(), history->toRow());
    EXPECT_EQ(h[0]->originalSize, 5'000'000'000);
    EXPECT_FALSE(h[0]->outputRetained);

    auto w = context->fetch(WatchedFolderQueries::allFolders());
    ASSERT_EQ(w.size(), 1u);
    EXPECT_EQ(w[0]->toRow(), folder->toRow());

    auto q = context->fetch(QueueQueries::allFiles());
    ASSERT_EQ(q.size(), 1u);
    EXPECT_EQ(q[0]->toRow(), queued->toRow());
    EXPECT_EQ(q[0]->dateAdded, kT0);
    EXPECT_EQ(q[0]->fileType(), FileType::heic);
    EXPECT_EQ(q[0]->metadataSummary(), queued->metadataSummary());
    EXPECT_EQ(q[0]->originalFileBookmarkData, (Blob{0, 1, 2, 255}));
    EXPECT_EQ(q[0]->presetId, preset->id);
}

INSTANTIATE_TEST_SUITE_P(InMemoryAndOnDisk, StoreRoundTrip, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "onDisk" : "inMemory"; });

TEST(StoreFallbacks, valuesOfTheWrongFormReadAsFallbacksAndStayUntilWritten) {
    testing::TempDir dir;
    const auto url = dir / "Tavrin.store";
    ModelContainerFactory::atURL(url);
    {
        SQLite::Database db(url.string(), SQLite::OPEN_READWRITE);
        db.exec("INSERT INTO AppSettings (id, preferredEmailClientRaw, autoProcessOnAdd, launchAtLogin, showMenuBarIcon, "
                "maxConcurrentProcessingValue, cleanOutputModeRaw, cleanCopySuffixTokenRaw) VALUES "
                "('AAAAAAAA-AAAA-AAAA-AAAA-AAAAAAAAAAAA', 'appleMail', 'yes?', 2, 0, 99, 'sideways', 'shiny')");
        db.exec("INSERT INTO QueuedFile (id, fileName, fileExtension, originalFilePath, fileSizeBytes, dateAdded, statusRaw, "
                "fileTypeRaw, metadataSnapshotData, categoriesToRemoveRaw) VALUES ('not-a-uuid', 'n', '', '/s/n', 'big', "
                "'yesterday', 'exploded', 'floppy', X'7B7B7B', '[\"location\", \"telepathy\", 7, null]')");
        db.exec("INSERT INTO MetadataPreset (id, name, isBuiltIn, categoriesToRemoveRaw, specificKeysToRemove, "
                "specificKeysToKeep, createdAt, modifiedAt) VALUES ('00000000-0000-0000-0000-00000000000A', 'p', 0, "
                "'[\"thumbnails\",\"nonsense\"]', '{}', '[[[[[[[[[[\"deep\"]]]]]]]]]]', '', 'garbage')");
    }
    auto container = ModelContainerFactory::atURL(url);
    auto& context = container->mainContext();

    auto settings = context.fetch(SettingsQueries::allSettings()).at(0);
    EXPECT_EQ(settings->preferredEmailClient(), PreferredEmailClient::other);
    EXPECT_EQ(settings->cleanOutputMode(), CleanOutputMode::copy);
    EXPECT_EQ(settings->cleanCopySuffix(), CleanCopySuffixKind::clean);
    EXPECT_EQ(settings->maxConcurrentProcessing(), 99) << "no clamp on reading";
    EXPECT_TRUE(settings->launchAtLogin);
    EXPECT_FALSE(settings->hasCompletedFinderSetup) << "column default";

    auto file = context.fetch(QueueQueries::allFiles()).at(0);
    EXPECT_EQ(file->status(), QueuedFile::Status::staged);
    EXPECT_TRUE(file->isCleanable());
    EXPECT_EQ(file->fileType(), FileType::jpeg);
    EXPECT_FALSE(file->metadataSummary());
    EXPECT_EQ(file->categoriesToRemove(), std::set<MetadataCategory>{MetadataCategory::location});
    EXPECT_EQ(file->fullFileName(), "n");
    EXPECT_EQ(file->fileSizeBytes, 0);

    auto preset = context.fetch(PresetQueries::allPresets()).at(0);
    EXPECT_EQ(preset->categoriesToRemove(), std::set<MetadataCategory>{MetadataCategory::thumbnails});
    EXPECT_EQ(preset->categoriesToRemoveRaw, (std::vector<std::string>{"thumbnails", "nonsense"}))
        << "unknown texts stay in the record";
    EXPECT_TRUE(preset->specificKeysToRemove.empty());
    EXPECT_TRUE(preset->specificKeysToKeep.empty()) << "hostile nesting is not parsed";
    EXPECT_EQ(preset->createdAt, Date{});

    EXPECT_FALSE(context.hasChanges()) << "reading fall-backs is no change";
    settings->showMenuBarIcon = true;
    context.save();
    SQLite::Database db(url.string(), SQLite::OPEN_READONLY);
    EXPECT_EQ(db.execAndGet("SELECT cleanOutputModeRaw FROM AppSettings").getString(), "sideways")
        << "an unknown raw value stays until its own field is written";
    EXPECT_EQ(db.execAndGet("SELECT showMenuBarIcon FROM AppSettings").getInt(), 1);
}

}  // namespace
}  // namespace tavrin
