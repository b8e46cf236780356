// A context is a unit of work: pending changes show in its own fetches, reach other contexts
// only through `save`, and `rollback` drops them.

#include <gtest/gtest.h>

#include "data/queries.h"
#include "data/shared_container.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

using namespace std::chrono_literals;

const Date kT0 = storedPrecision(std::chrono::system_clock::from_time_t(1'700'000'000));

std::shared_ptr<QueuedFile> file(std::string name, QueuedFile::Status status, Date added) {
    auto f = std::make_shared<QueuedFile>(Uuid::random(), std::move(name), "pdf", "/staging/x.pdf", 10, FileType::pdf, added);
    f->setStatus(status);
    return f;
}

std::vector<std::string> names(const std::vector<std::shared_ptr<QueuedFile>>& files) {
    std::vector<std::string> out;
    for (const auto& f : files) out.push_back(f->fileName);
    return out;
}

TEST(StoreContext, changesReachOtherContextsOnlyThroughSave) {
    auto container = ModelContainerFactory::inMemory();
    auto writer = container->makeContext();
    auto reader = container->makeContext();
    writer->insert(file("a", QueuedFile::Status::staged, kT0));
    EXPECT_EQ(writer->fetch(QueueQueries::allFiles()).size(), 1u) << "a context sees its own inserts";
    EXPECT_EQ(reader->fetch(QueueQueries::allFiles()).size(), 0u);
    writer->save();
    EXPECT_EQ(reader->fetch(QueueQueries::allFiles()).size(), 1u);
}

TEST(StoreContext, rollbackDropsInsertsDeletionsAndChanges) {
    auto container = ModelContainerFactory::inMemory();
    auto& context = container->mainContext();
    auto kept = file("kept", QueuedFile::Status::staged, kT0);
    auto doomed = file("doomed", QueuedFile::Status::staged, kT0 + 1s);
    context.insert(kept);
    context.insert(doomed);
    context.save();

    kept->setStatus(QueuedFile::Status::failed);
    kept->errorMessage = "boom";
    context.deleteRecord(doomed);
    context.insert(file("new", QueuedFile::Status::staged, kT0 + 2s));
    EXPECT_TRUE(context.hasChanges());
    context.rollback();

    EXPECT_FALSE(context.hasChanges());
    EXPECT_EQ(kept->status(), QueuedFile::Status::staged) << "a changed record returns to its stored values";
    EXPECT_FALSE(kept->errorMessage);
    EXPECT_EQ(names(context.fetch(QueueQueries::allFiles())), (std::vector<std::string>{"doomed", "kept"}));
}

TEST(StoreContext, savingChosenRecordsLeavesTheOthersPending) {
    auto container = ModelContainerFactory::inMemory();
    auto& context = container->mainContext();
    auto reader = container->makeContext();
    auto changed = file("changed", QueuedFile::Status::staged, kT0);
    auto waiting = file("waiting", QueuedFile::Status::staged, kT0 + 1s);
    context.insert(changed);
    context.insert(waiting);
    context.save();

    changed->setStatus(QueuedFile::Status::completed);
    waiting->setStatus(QueuedFile::Status::failed);
    auto inserted = file("inserted", QueuedFile::Status::staged, kT0 + 2s);
    auto pendingInsert = file("pending insert", QueuedFile::Status::staged, kT0 + 3s);
    context.insert(inserted);
    context.insert(pendingInsert);
    context.save({changed, inserted});

    EXPECT_EQ(names(reader->fetch(QueueQueries::completedFiles())), (std::vector<std::string>{"changed"}));
    EXPECT_EQ(reader->fetch(QueueQueries::allFiles()).size(), 3u) << "the pending insert is not written";
    EXPECT_EQ(reader->fetchCount(QueueQueries::failedFiles()), 0);
    EXPECT_TRUE(context.hasChanges());
    context.rollback();
    EXPECT_EQ(waiting->status(), QueuedFile::Status::staged) << "what was not saved still rolls back";
    EXPECT_EQ(changed->status(), QueuedFile::Status::completed) << "what was saved stays";
}

TEST(StoreContext, sameRecordFetchedTwiceIsOneObjectAndChangesAreSaved) {
    auto container = ModelContainerFactory::inMemory();
    auto& context = container->mainContext();
    context.insert(file("a", QueuedFile::Status::staged, kT0));
    context.save();
    auto first = context.fetch(QueueQueries::allFiles()).at(0);
    auto second = context.fetch(QueueQueries::stagedFiles()).at(0);
    EXPECT_EQ(first.get(), second.get());

    first->setStatus(QueuedFile::Status::configured);
    EXPECT_TRUE(context.fetch(QueueQueries::stagedFiles()).empty()) << "a pending change moves it out of a predicate";
    EXPECT_EQ(context.fetch(QueueQueries::configuredFiles()).size(), 1u) << "and into another";
    context.save();
    auto other = container->makeContext();
    EXPECT_EQ(other->fetch(QueueQueries::configuredFiles()).size(), 1u);
}

TEST(StoreContext, insertingARecordWithAStoredIdReplacesIt) {
    auto container = ModelContainerFactory::inMemory();
    auto& context = container->mainContext();
    context.insert(AppSettings::makeDefault());
    context.save();
    auto other = container->makeContext();
    auto replacement = AppSettings::makeDefault();
    replacement->launchAtLogin = true;
    other->insert(replacement);
    other->save();
    auto third = container->makeContext();
    auto all = third->fetch(SettingsQueries::allSettings());
    ASSERT_EQ(all.size(), 1u);
    EXPECT_TRUE(all[0]->launchAtLogin);
}

TEST(StoreContext, limitsCountPendingDeletionsAndInserts) {
    auto container = ModelContainerFactory::inMemory();
    auto& context = container->mainContext();
    std::vector<std::shared_ptr<QueuedFile>> files;
    for (int i = 0; i < 5; ++i) {
        files.push_back(file("f" + std::to_string(i), QueuedFile::Status::configured, kT0 + std::chrono::seconds(i)));
        context.insert(files.back());
    }
    context.save();
    context.deleteRecord(files[0]);
    context.insert(file("early", QueuedFile::Status::configured, kT0 - 10s));
    EXPECT_EQ(names(context.fetch(QueueQueries::readyToProcess(3))), (std::vector<std::string>{"early", "f1", "f2"}));
    EXPECT_EQ(context.fetchCount(QueueQueries::configuredFiles()), 5);
}

TEST(StoreContext, deletingAPresetNullifiesItsFilesInTheContextAndTheStore) {
    auto container = ModelContainerFactory::inMemory();
    auto& context = container->mainContext();
    auto preset = MetadataPreset::makeCustom("Mine", {MetadataCategory::location}, {}, kT0);
    auto saved = file("saved", QueuedFile::Status::configured, kT0);
    auto held = file("held", QueuedFile::Status::configured, kT0 + 1s);
    saved->presetId = preset->id;
    held->presetId = preset->id;
    context.insert(preset);
    context.insert(saved);
    context.insert(held);
    context.save();
    EXPECT_EQ(context.fetch(QueueQueries::filesUsingPreset(preset->id)).size(), 2u);

    // One file is only in the store, the other is held by the context with a pending change.
    auto other = container->makeContext();
    auto otherHeld = other->fetch(QueueQueries::allFiles()).at(0);
    ASSERT_EQ(otherHeld->fileName, "held");
    otherHeld->errorMessage = "touched";
    auto otherPreset = other->fetch(PresetQueries::preset(preset->id)).at(0);
    other->deleteRecord(otherPreset);
    EXPECT_FALSE(otherHeld->presetId) << "nullified at once in the context";
    other->save();

    auto third = container->makeContext();
    for (const auto& f : third->fetch(QueueQueries::allFiles())) EXPECT_FALSE(f->presetId) << f->fileName;
    EXPECT_TRUE(third->fetch(PresetQueries::allPresets()).empty());
}

TEST(StoreContext, aFileNamingAMissingPresetFailsTheSaveAndStaysPending) {
    auto container = ModelContainerFactory::inMemory();
    auto& context = container->mainContext();
    auto f = file("orphan", QueuedFile::Status::configured, kT0);
    f->presetId = Uuid::random();
    context.insert(f);
    EXPECT_THROW(context.save(), StoreError);
    EXPECT_TRUE(context.hasChanges());
    f->presetId.reset();
    context.save();
    EXPECT_EQ(container->makeContext()->fetch(QueueQueries::allFiles()).size(), 1u);
}

// Each descriptor of the query table, with its order and limit.
TEST(StoreQueries, descriptorsFilterSortAndLimitAsDeclared) {
    auto container = ModelContainerFactory::inMemory();
    auto& context = container->mainContext();
    using S = QueuedFile::Status;
    const std::vector<std::tuple<std::string, S, int>> rows{
        {"s1", S::staged, 1}, {"c1", S::configured, 2}, {"p1", S::processing, 3}, {"d1", S::completed, 4},
        {"f1", S::failed, 5}, {"c2", S::configured, 6}, {"s2", S::staged, 7},     {"k1", S::clean, 8}};
    for (const auto& [name, status, second] : rows) context.insert(file(name, status, kT0 + std::chrono::seconds(second)));
    for (int i = 0; i < 4; ++i) {
        auto h = std::make_shared<ProcessingHistory>();
        h->id = Uuid::random();
        h->fileName = "h" + std::to_string(i);
        h->processedAt = kT0 + std::chrono::hours(i == 2 ? 10 : i);
        context.insert(h);
    }
    for (auto [name, builtIn] : std::vector<std::pair<std::string, bool>>{
             {"preset 10", false}, {"Preset 9", false}, {"alpha", true}, {"Beta", true}}) {
        auto p = MetadataPreset::makeCustom(name, {}, {}, kT0);
        p->isBuiltIn = builtIn;
        context.insert(p);
    }
    context.save();
    auto fresh = container->makeContext();

    struct Case {
        const char* query;
        FetchDescriptor<QueuedFile> descriptor;
        std::vector<std::string> expected;
    };
    const std::vector<Case> cases{
        {"allFiles", QueueQueries::allFiles(), {"k1", "s2", "c2", "f1", "d1", "p1", "c1", "s1"}},
        {"stagedFiles", QueueQueries::stagedFiles(), {"s2", "s1"}},
        {"configuredFiles", QueueQueries::configuredFiles(), {"c2", "c1"}},
        {"completedFiles", QueueQueries::completedFiles(), {"d1"}},
        {"failedFiles", QueueQueries::failedFiles(), {"f1"}},
        {"processingFiles", QueueQueries::processingFiles(), {"p1"}},
        {"readyToProcess oldest first", QueueQueries::readyToProcess(), {"c1", "c2"}},
        {"readyToProcess limit 1", QueueQueries::readyToProcess(1), {"c1"}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(names(fresh->fetch(c.descriptor)), c.expected) << c.query;
        EXPECT_EQ(names(context.fetch(c.descriptor)), c.expected) << c.query << " (context that wrote them)";
    }

    std::vector<std::string> history;
    for (const auto& h : fresh->fetch(HistoryQueries::recent(3))) history.push_back(h->fileName);
    EXPECT_EQ(history, (std::vector<std::string>{"h2", "h3", "h1"}));

    auto presetNames = [&](const FetchDescriptor<MetadataPreset>& d) {
        std::vector<std::string> out;
        for (const auto& p : fresh->fetch(d)) out.push_back(p->name);
        return out;
    };
    EXPECT_EQ(presetNames(PresetQueries::allPresets()), (std::vector<std::string>{"alpha", "Beta", "Preset 9", "preset 10"}))
        << "case-insensitive, numbers by value";
    EXPECT_EQ(presetNames(PresetQueries::builtInPresets()), (std::vector<std::string>{"alpha", "Beta"}));
    EXPECT_EQ(presetNames(PresetQueries::customPresets()), (std::vector<std::string>{"Preset 9", "preset 10"}));
    const auto beta = fresh->fetch(PresetQueries::builtInPresets()).at(1);
    EXPECT_EQ(presetNames(PresetQueries::preset(beta->id)), (std::vector<std::string>{"Beta"}));
}

TEST(StoreQueries, localizedStandardOrderComparesCaseInsensitivelyAndNumbersByValue) {
    const std::vector<std::tuple<const char*, const char*, int>> cases{
        {"a", "B", -1}, {"B", "a", 1}, {"file 2", "file 10", -1}, {"file 010", "file 9", 1},
        {"abc", "abcd", -1}, {"x", "x", 0}, {"", "a", -1},
    };
    for (const auto& [a, b, expected] : cases) EXPECT_EQ(localizedStandardCompare(a, b), expected) << a << " vs " << b;
}

TEST(StoreConfiguration, inMemoryOnlyForTheExactValueOne) {
    const std::vector<std::pair<std::optional<std::string>, bool>> cases{
        {"1", true}, {std::nullopt, false}, {"", false}, {"true", false}, {"01", false}, {"1 ", false}};
    testing::TempDir dir;
    for (const auto& [value, inMemory] : cases) {
        StoreEnvironment environment{(dir / "data").string(), "/nonexistent", value};
        const auto configuration = SharedContainerConfig::makeApplicationConfiguration(environment);
        EXPECT_EQ(configuration.isStoredInMemoryOnly, inMemory) << value.value_or("(unset)");
        if (!inMemory) {
            EXPECT_EQ(configuration.url, dir / "data" / "Tavrin" / "Tavrin.store");
        }
        EXPECT_EQ(configuration.name, "Tavrin");
    }
}

TEST(StoreConfiguration, placesFollowTheDataDirectoryThenHome) {
    const std::vector<std::tuple<std::optional<std::string>, std::optional<std::string>, std::string>> cases{
        {"/x/data", "/home/u", "/x/data/Tavrin"},
        {std::nullopt, "/home/u", "/home/u/.local/share/Tavrin"},
        {"relative/ignored", "/home/u", "/home/u/.local/share/Tavrin"},
    };
    for (const auto& [xdg, home, root] : cases) {
        const auto container = SharedContainer::current({xdg, home, std::nullopt});
        EXPECT_EQ(container.rootURL, root);
        EXPECT_EQ(container.stagingDirectoryURL, std::filesystem::path(root) / "Staging");
        EXPECT_EQ(container.cacheDirectoryURL, std::filesystem::path(root) / "Cache");
    }
    EXPECT_EQ(SharedContainer::current({std::nullopt, std::nullopt, std::nullopt}).rootURL.filename(), "Tavrin");
}

TEST(StoreConfiguration, aFileInPlaceOfStagingStopsEnsureDirectoriesBeforeCache) {
    testing::TempDir dir;
    SharedContainer container(dir / "root");
    std::filesystem::create_directories(container.rootURL);
    testing::writeFile(container.stagingDirectoryURL, "not a folder");
    try {
        container.ensureDirectories();
        FAIL() << "no error";
    } catch (const FileAccessError& e) {
        EXPECT_EQ(e.errorCase(), FileAccessError::Case::fileWriteFileExists);
    }
    EXPECT_FALSE(std::filesystem::exists(container.cacheDirectoryURL));

    SharedContainer fresh(dir / "fresh" / "root");
    EXPECT_EQ(&fresh.ensureDirectories(), &fresh);
    EXPECT_TRUE(std::filesystem::is_directory(fresh.stagingDirectoryURL));
    EXPECT_TRUE(std::filesystem::is_directory(fresh.cacheDirectoryURL));
}

}  // namespace
}  // namespace tavrin
