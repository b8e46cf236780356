// Store files as they are found: written by an older version, not a database, damaged, in a
// folder that cannot be written; and deletions of stored paths that must stay inside their roots.

#include <gtest/gtest.h>

#include <fstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <SQLiteCpp/SQLiteCpp.h>

#include "data/contained_deletion.h"
#include "data/queries.h"
#include "data/shared_container.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

std::string errorText(const std::function<void()>& body, StoreError::Case* errorCase = nullptr) {
    try {
        body();
    } catch (const StoreError& e) {
        if (errorCase) *errorCase = e.errorCase();
        return e.what();
    }
    return "(no error)";
}

// A store as the first release wrote it: none of the fields that later came with schema-level
// defaults, and no schema version.
void writeFirstReleaseStore(const std::filesystem::path& url) {
    SQLite::Database db(url.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
    db.exec("CREATE TABLE AppSettings (id TEXT NOT NULL UNIQUE, defaultPresetId TEXT, preferredEmailClientRaw TEXT NOT NULL, "
            "autoProcessOnAdd INTEGER NOT NULL, launchAtLogin INTEGER NOT NULL, showMenuBarIcon INTEGER NOT NULL, "
            "maxConcurrentProcessingValue INTEGER NOT NULL)");
    db.exec("INSERT INTO AppSettings VALUES ('AAAAAAAA-AAAA-AAAA-AAAA-AAAAAAAAAAAA', NULL, 'thunderbird', 1, 0, 0, 3)");
    db.exec("CREATE TABLE ProcessingHistory (id TEXT NOT NULL UNIQUE, fileName TEXT NOT NULL, processedAt TEXT NOT NULL, "
            "originalSize INTEGER NOT NULL, cleanedSize INTEGER NOT NULL, removedItemCount INTEGER NOT NULL, "
            "presetName TEXT NOT NULL, duration REAL NOT NULL, cleanedFilePath TEXT, originalFilePath TEXT)");
    db.exec("INSERT INTO ProcessingHistory VALUES ('11111111-1111-4111-8111-111111111111', 'a.pdf', "
            "'2024-03-05T14:02:07.000Z', 100, 80, 3, 'Custom', 0.5, NULL, NULL)");
    db.exec("CREATE TABLE QueuedFile (id TEXT NOT NULL UNIQUE, fileName TEXT NOT NULL, fileExtension TEXT NOT NULL, "
            "originalFilePath TEXT NOT NULL, originalFileBookmarkData BLOB, originalSourcePath TEXT, cleanedFilePath TEXT, "
            "fileSizeBytes INTEGER NOT NULL, cleanedFileSizeBytes INTEGER, dateAdded TEXT NOT NULL, dateProcessed TEXT, "
            "statusRaw TEXT NOT NULL, fileTypeRaw TEXT NOT NULL, metadataSnapshotData BLOB, categoriesToRemoveRaw TEXT NOT NULL, "
            "errorMessage TEXT, cleanedOutputBehaviorRaw TEXT)");
    db.exec("INSERT INTO QueuedFile (id, fileName, fileExtension, originalFilePath, fileSizeBytes, dateAdded, statusRaw, "
            "fileTypeRaw, categoriesToRemoveRaw) VALUES ('22222222-2222-4222-8222-222222222222', 'b', 'png', '/s/b.png', "
            "7, '2024-03-05T14:02:07.000Z', 'staged', 'png', '[]')");
}

TEST(StoreFile, aStoreWrittenBeforeTheDefaultedFieldsOpensWithTheirDefaults) {
    testing::TempDir dir;
    const auto url = dir / "Tavrin.store";
    writeFirstReleaseStore(url);

    auto container = ModelContainerFactory::atURL(url);
    auto& context = container->mainContext();
    auto settings = context.fetch(SettingsQueries::allSettings()).at(0);
    EXPECT_EQ(settings->cleanOutputMode(), CleanOutputMode::copy);
    EXPECT_EQ(settings->cleanCopySuffix(), CleanCopySuffixKind::clean);
    EXPECT_EQ(settings->cleanCopyCustomSuffix, "-clean");
    EXPECT_FALSE(settings->stripEditHistoryInPlace);
    EXPECT_FALSE(settings->hasCompletedFinderSetup);
    EXPECT_FALSE(settings->watchedFoldersEnabled);
    EXPECT_EQ(settings->watchedFolderStabilityInterval, 2.0);
    EXPECT_EQ(settings->watchedFolderDebounceInterval, 0.5);
    EXPECT_EQ(settings->preferredEmailClient(), PreferredEmailClient::thunderbird) << "old fields keep their values";
    EXPECT_EQ(settings->maxConcurrentProcessing(), 3);

    auto history = context.fetch(HistoryQueries::recent()).at(0);
    EXPECT_TRUE(history->outputRetained) << "older records read as retained";

    auto file = context.fetch(QueueQueries::allFiles()).at(0);
    EXPECT_TRUE(file->specificKeysToRemove.empty());
    EXPECT_FALSE(file->userDidConfigureEmptySelection);
    EXPECT_FALSE(file->isCloudPlaceholder);
    EXPECT_FALSE(file->presetId);

    // Tables the old store lacked are there now, and usable.
    context.insert(MetadataPreset::locationOnly());
    context.save();
    SQLite::Database db(url.string(), SQLite::OPEN_READONLY);
    EXPECT_EQ(db.execAndGet("PRAGMA user_version").getInt(), 1);
    EXPECT_EQ(db.execAndGet("SELECT count(*) FROM MetadataPreset").getInt(), 1);
}

TEST(StoreFile, aFileThatIsNoDatabaseIsNamedAndLeftAsItIs) {
    testing::TempDir dir;
    const auto url = dir / "Tavrin.store";
    std::string text;
    for (int i = 0; i < 200; ++i) text += "these are my notes, not a database\n";
    testing::writeFile(url, text);
    StoreError::Case errorCase{};
    const auto message = errorText([&] { ModelContainerFactory::atURL(url); }, &errorCase);
    EXPECT_EQ(errorCase, StoreError::Case::notADatabase);
    EXPECT_NE(message.find(url.string()), std::string::npos) << message;
    EXPECT_EQ(testing::readFile(url), text);
}

TEST(StoreFile, aDamagedStoreIsNamedAndLeftAsItIs) {
    testing::TempDir dir;
    const auto url = dir / "Tavrin.store";
    {
        auto container = ModelContainerFactory::atURL(url);
        auto& context = container->mainContext();
        for (int i = 0; i < 300; ++i) {
            auto h = std::make_shared<ProcessingHistory>();
            h->id = Uuid::random();
            h->fileName = std::string(100, 'x');
            context.insert(h);
        }
        context.save();
    }
    // Everything after the first page becomes rubbish.
    std::string bytes = testing::readFile(url);
    ASSERT_GT(bytes.size(), 8192u);
    for (std::size_t i = 4096; i < bytes.size(); ++i) bytes[i] = static_cast<char>(0xA5 ^ (i & 0xFF));
    testing::writeFile(url, bytes);

    StoreError::Case errorCase{};
    const auto message = errorText(
        [&] {
            auto container = ModelContainerFactory::atURL(url);
            container->mainContext().fetch(HistoryQueries::recent(10));
        },
        &errorCase);
    EXPECT_EQ(errorCase, StoreError::Case::damaged) << message;
    EXPECT_NE(message.find(url.string()), std::string::npos) << message;
    EXPECT_EQ(testing::readFile(url), bytes) << "nothing rebuilt";
}

// Runs `body` in a child process that cannot write where root could, and returns its status.
int inUnprivilegedChild(const std::function<int()>& body) {
    const pid_t pid = fork();
    if (pid == 0) {
        if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) _exit(90);
        _exit(body());
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 100;
}

TEST(StoreFile, aFolderThatCannotBeWrittenIsNamed) {
    testing::TempDir dir;
    const auto folder = dir / "locked";
    std::filesystem::create_directories(folder);
    chmod(dir.path().c_str(), 0755);
    chmod(folder.c_str(), 0555);
    const int status = inUnprivilegedChild([&] {
        StoreError::Case errorCase{};
        const auto message = errorText([&] { ModelContainerFactory::atURL(folder / "Tavrin.store"); }, &errorCase);
        if (errorCase != StoreError::Case::directoryNotWritable) return 1;
        if (message.find(folder.string()) == std::string::npos) return 2;
        return 0;
    });
    chmod(folder.c_str(), 0755);
    EXPECT_EQ(status, 0);
    EXPECT_FALSE(std::filesystem::exists(folder / "Tavrin.store"));
}

TEST(StoreDeletion, onlyPathsInsideTheRootsAreDeletedWhateverLinksAndDotsSay) {
    testing::TempDir dir;
    const auto staging = dir / "Staging";
    const auto outside = dir / "Documents";
    std::filesystem::create_directories(staging / "sub");
    std::filesystem::create_directories(outside);
    std::filesystem::create_directory_symlink(outside, staging / "link");
    DeletionContainment containment({staging});

    struct Case {
        const char* what;
        std::filesystem::path target;  // a file that is created, then deleted if contained
        std::filesystem::path asNamed;
        bool contained;
    };
    const std::vector<Case> cases{
        {"staged copy", staging / "a.pdf", staging / "a.pdf", true},
        {"in a sub-folder, named with ..", staging / "b.pdf", staging / "sub" / ".." / "b.pdf", true},
        {".. escape", outside / "c.pdf", staging / ".." / "Documents" / "c.pdf", false},
        {"symbolic link escape", outside / "d.pdf", staging / "link" / "d.pdf", false},
        {"outside", outside / "e.pdf", outside / "e.pdf", false},
        {"relative path", staging / "f.pdf", std::filesystem::path("Staging/f.pdf"), false},
    };
    for (const auto& c : cases) {
        testing::writeFile(c.target, "data");
        EXPECT_EQ(containment.contains(c.asNamed), c.contained) << c.what;
        EXPECT_EQ(containment.removeItem(c.asNamed), c.contained) << c.what;
        EXPECT_EQ(std::filesystem::exists(c.target), !c.contained) << c.what;
    }
    EXPECT_FALSE(containment.removeItem(staging)) << "the root itself stays";
    EXPECT_FALSE(containment.removeItem(staging / "sub" / "..")) << "the root named otherwise stays";
    EXPECT_TRUE(std::filesystem::is_directory(staging));
    EXPECT_TRUE(std::filesystem::is_directory(outside));
}

}  // namespace
}  // namespace tavrin
