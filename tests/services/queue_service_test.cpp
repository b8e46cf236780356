// The queue over a real store and the real engine: intake with its failure rules, presets,
// removal that never leaves the temporary and staging directories, runs with their history,
// claims that keep two runs off one file, and recovery after a run died.

#include <sys/stat.h>

#include "../image/image_fixtures.h"
#include "data/contained_deletion.h"
#include "queue_fixtures.h"

namespace tavrin {
namespace {

namespace stdfs = std::filesystem;
using testing::QueueFixture;
using testing::readFile;
using testing::writeFile;
namespace images = testing::images;

using QueueServiceTest = QueueFixture;

TEST_F(QueueServiceTest, anUnreadableFileBesideAGoodOneIsDroppedWithoutReport) {
    auto queue = makeQueue(context());
    const auto good = userFile("photo.jpg", images::dirtyJPEG());
    const auto added = queue->addFiles({user / "missing.jpg", good});
    ASSERT_EQ(added.size(), 1u);
    EXPECT_EQ(added[0]->status(), QueuedFile::Status::staged);
    EXPECT_EQ(added[0]->fullFileName(), "photo.jpg");
    EXPECT_EQ(added[0]->originalSourcePath, good.string());
    EXPECT_TRUE(staging->isInsideStaging(added[0]->originalFileURL()));
    EXPECT_EQ(readFile(added[0]->originalFileURL()), readFile(good));
    EXPECT_EQ(added[0]->fileSizeBytes, static_cast<std::int64_t>(stdfs::file_size(good)));
    EXPECT_TRUE(added[0]->originalFileBookmarkData.has_value());
    EXPECT_EQ(queue->totalFileCount(), 1);
    EXPECT_EQ(queue->pendingFileCount(), 1);
    EXPECT_EQ(notifier->queueUpdated, 1);
}

TEST_F(QueueServiceTest, whenEveryFileFailsTheLastFailureIsThrownAndNothingIsSaved) {
    auto queue = makeQueue(context());
    writeFile(user / "notes.xyz", "not a known type");
    try {
        queue->addFiles({user / "missing.jpg", user / "notes.xyz"});
        FAIL() << "expected a failure";
    } catch (const std::exception& e) {
        EXPECT_NE(std::string(e.what()).find("notes.xyz"), std::string::npos) << e.what();
    }
    EXPECT_EQ(context().fetchCount(QueueQueries::allFiles()), 0);
    EXPECT_EQ(stagedCopies(), 0u);
    EXPECT_EQ(notifier->queueUpdated, 0);
}

TEST_F(QueueServiceTest, anEmptyListSavesPostsAndReturnsNothing) {
    auto queue = makeQueue(context());
    EXPECT_TRUE(queue->addFiles({}).empty());
    EXPECT_EQ(notifier->queueUpdated, 1);
}

TEST_F(QueueServiceTest, aFailedSaveRollsBackAndDeletesTheStagedCopies) {
    auto backend = std::make_shared<testing::FailingBackend>(container->backend());
    ModelContext failing(backend);
    auto queue = makeQueue(failing);
    const auto a = userFile("a.jpg", images::dirtyJPEG());
    const auto b = userFile("b.png", images::dirtyPNG());
    backend->failing = true;
    EXPECT_THROW(queue->addFiles({a, b}), StoreError);
    EXPECT_EQ(stagedCopies(), 0u);
    EXPECT_FALSE(failing.hasChanges());
    EXPECT_EQ(context().fetchCount(QueueQueries::allFiles()), 0);
    EXPECT_TRUE(stdfs::exists(a) && stdfs::exists(b));
}

TEST_F(QueueServiceTest, addingOneFileTwiceGivesTwoRecordsWithTwoCopies) {
    auto queue = makeQueue(context());
    const auto a = userFile("a.jpg", images::dirtyJPEG());
    const auto added = queue->addFiles({a, a});
    ASSERT_EQ(added.size(), 2u);
    EXPECT_NE(added[0]->originalFilePath, added[1]->originalFilePath);
    EXPECT_EQ(stagedCopies(), 2u);
}

TEST_F(QueueServiceTest, aPresetReachesOnlyStagedAndConfiguredFiles) {
    struct Case {
        QueuedFile::Status before;
        bool takesPreset;
    };
    const Case cases[] = {{QueuedFile::Status::staged, true},      {QueuedFile::Status::configured, true},
                          {QueuedFile::Status::processing, false}, {QueuedFile::Status::completed, false},
                          {QueuedFile::Status::failed, false},     {QueuedFile::Status::clean, false}};
    auto queue = makeQueue(context());
    const auto source = userFile("a.jpg", images::dirtyJPEG());
    const auto location = starter(MetadataPreset::locationOnlyID());
    for (const auto& c : cases) {
        auto file = queue->addFiles({source}).front();
        file->setStatus(c.before);
        context().save();
        const int posted = notifier->queueUpdated;
        queue->setPreset(location, {file});
        EXPECT_EQ(notifier->queueUpdated, posted + 1);
        EXPECT_EQ(file->presetId.has_value(), c.takesPreset) << rawValue(c.before);
        EXPECT_EQ(file->status(), c.takesPreset ? QueuedFile::Status::configured : c.before) << rawValue(c.before);
        if (c.takesPreset) {
            EXPECT_EQ(file->categoriesToRemove(), location->categoriesToRemove());
        }
    }
}

TEST_F(QueueServiceTest, removalDeletesOnlyInsideTheTemporaryAndStagingDirectories) {
    auto queue = makeQueue(context());
    const auto source = userFile("a.jpg", images::dirtyJPEG());
    auto files = queue->addFiles({source, source, source});
    // One output in a run's temporary folder, one beside the user's file, and a record whose
    // "staged copy" was turned into the user's own file.
    const auto runFolder = tmp / "tavrin_output_X";
    stdfs::create_directories(runFolder);
    writeFile(runFolder / "out.jpg", "cleaned");
    files[0]->cleanedFilePath = (runFolder / "out.jpg").string();
    writeFile(user / "a-clean.jpg", "kept");
    files[1]->cleanedFilePath = (user / "a-clean.jpg").string();
    const std::string thirdCopy = files[2]->originalFilePath;
    files[2]->originalFilePath = source.string();
    context().save();

    queue->removeFiles(files);
    EXPECT_FALSE(stdfs::exists(runFolder));
    EXPECT_TRUE(stdfs::exists(user / "a-clean.jpg"));
    EXPECT_TRUE(stdfs::exists(source));
    EXPECT_TRUE(stdfs::exists(thirdCopy));  // no record points at it any more
    EXPECT_EQ(stagedCopies(), 1u);
    EXPECT_EQ(context().fetchCount(QueueQueries::allFiles()), 0);
    EXPECT_EQ(queue->totalFileCount(), 0);
}

TEST_F(QueueServiceTest, aRunCleansWritesHistoryAndLeavesTheUsersFilesAlone) {
    auto queue = makeQueue(context());
    const auto jpeg = userFile("beach.jpg", images::dirtyJPEG());
    const auto png = userFile("chart.png", images::dirtyPNG());
    const auto keysOnly = userFile("keys.jpg", images::dirtyJPEG());
    const std::string jpegBytes = readFile(jpeg), pngBytes = readFile(png);
    auto files = queue->addFiles({jpeg, png, keysOnly});
    queue->setPreset(starter(MetadataPreset::maximumPrivacyID()), {files[0]});
    files[1]->setCategoriesToRemove({MetadataCategory::location, MetadataCategory::authorIdentity});
    files[1]->setStatus(QueuedFile::Status::configured);
    files[2]->specificKeysToRemove = {"GPSLatitude"};
    files[2]->setStatus(QueuedFile::Status::configured);
    context().save();

    std::vector<std::string> reported;
    const auto summary = queue->processQueue([&](const QueueFileOutcome& o) { reported.push_back(o.file->fullFileName()); });
    EXPECT_EQ(summary.claimed, 3);
    EXPECT_EQ(summary.completed, 2);
    EXPECT_EQ(summary.failed, 1);
    EXPECT_EQ(reported.size(), 3u);
    EXPECT_EQ(notifier->processingComplete, 1);
    EXPECT_FALSE(queue->isProcessing());

    EXPECT_EQ(files[2]->status(), QueuedFile::Status::failed);
    EXPECT_EQ(files[2]->errorMessage, "No preset or categories configured");
    for (int i : {0, 1}) {
        EXPECT_EQ(files[i]->status(), QueuedFile::Status::completed);
        ASSERT_TRUE(files[i]->cleanedFilePath);
        EXPECT_TRUE(QueueService::isWithinTemporaryDirectory(*files[i]->cleanedFilePath));
        EXPECT_TRUE(stdfs::exists(*files[i]->cleanedFilePath));
        EXPECT_EQ(files[i]->cleanedOutputBehaviorRaw, "alongside");
        EXPECT_TRUE(files[i]->dateProcessed);
    }
    auto history = context().fetch(HistoryQueries::recent());
    ASSERT_EQ(history.size(), 2u);
    std::map<std::string, std::shared_ptr<ProcessingHistory>> byName;
    for (auto& h : history) byName[h->fileName] = h;
    EXPECT_EQ(byName.at("beach.jpg")->presetName, "Maximum Privacy");
    EXPECT_EQ(byName.at("chart.png")->presetName, "Custom");
    EXPECT_EQ(byName.at("beach.jpg")->originalFilePath, jpeg.string());
    EXPECT_GT(byName.at("beach.jpg")->removedItemCount, 0);
    EXPECT_TRUE(byName.at("beach.jpg")->outputRetained);
    EXPECT_EQ(readFile(jpeg), jpegBytes);
    EXPECT_EQ(readFile(png), pngBytes);

    // What another process sees: the store, not this context.
    auto other = container->makeContext();
    EXPECT_EQ(other->fetchCount(QueueQueries::completedFiles()), 2);
}

TEST_F(QueueServiceTest, aFileTheEngineRefusesFailsWithItsReasonAndTheRunGoesOn) {
    auto queue = makeQueue(context());
    auto truncated = images::dirtyJPEG();
    truncated.resize(truncated.size() / 3);
    const auto bad = userFile("broken.jpg", truncated);
    const auto good = userFile("fine.png", images::dirtyPNG());
    auto files = queue->addFiles({bad, good});
    queue->setPreset(starter(MetadataPreset::maximumPrivacyID()), files);
    queue->processQueue();
    EXPECT_EQ(files[0]->status(), QueuedFile::Status::failed);
    ASSERT_TRUE(files[0]->errorMessage);
    EXPECT_FALSE(files[0]->errorMessage->empty());
    EXPECT_EQ(files[1]->status(), QueuedFile::Status::completed);
    EXPECT_EQ(context().fetchCount(HistoryQueries::recent()), 1);
}

TEST_F(QueueServiceTest, aSourceThatChangedAfterIntakeIsNotReadTheStagedCopyIsCleaned) {
    enum class Change { vanished, rewritten, unreadable };
    for (Change change : {Change::vanished, Change::rewritten, Change::unreadable}) {
        auto queue = makeQueue(context());
        const auto source = userFile("photo.jpg", images::dirtyJPEG());
        auto file = queue->addFiles({source}).front();
        queue->setPreset(starter(MetadataPreset::maximumPrivacyID()), {file});
        if (change == Change::vanished) stdfs::remove(source);
        if (change == Change::rewritten) writeFile(source, "the user's new text");
        if (change == Change::unreadable) ::chmod(source.c_str(), 0);
        queue->processFiles({file});
        EXPECT_EQ(file->status(), QueuedFile::Status::completed) << static_cast<int>(change);
        EXPECT_EQ(stdfs::exists(source), change != Change::vanished);
        if (change == Change::rewritten) {
            EXPECT_EQ(readFile(source), "the user's new text");
        }
        if (change == Change::unreadable) {
            struct stat info {};
            ::stat(source.c_str(), &info);
            EXPECT_EQ(info.st_mode & 0777, 0u);
            ::chmod(source.c_str(), 0600);
        }
        stdfs::remove(source);
    }
}

TEST_F(QueueServiceTest, anInPlaceRunReplacesOnlySourcesThatStillHoldWhatWasStaged) {
    enum class Source { unchanged, rewritten, vanished };
    struct Row {
        Source source;
        bool stripEditHistory;
        QueuedFile::Status status;
    };
    const Row rows[] = {
        {Source::unchanged, false, QueuedFile::Status::clean},
        {Source::unchanged, true, QueuedFile::Status::clean},
        {Source::rewritten, false, QueuedFile::Status::failed},
        {Source::vanished, false, QueuedFile::Status::failed},
    };
    InPlaceReplacementOptions trashOptions;
    trashOptions.homeTrash = dir / "Trash";
    QueueRunOptions run;
    run.replaceOriginals = std::make_shared<InPlaceReplacement>(trashOptions);
    for (const auto& row : rows) {
        SCOPED_TRACE(static_cast<int>(row.source) * 2 + row.stripEditHistory);
        auto queue = makeQueue(context());
        const auto source = userFile("photo.jpg", images::dirtyJPEG());
        const std::string dirty = readFile(source);
        auto file = queue->addFiles({source}).front();
        queue->setPreset(starter(MetadataPreset::maximumPrivacyID()), {file});
        if (row.source == Source::rewritten) writeFile(source, "the user's new text");
        if (row.source == Source::vanished) stdfs::remove(source);
        run.stripEditHistory = row.stripEditHistory;
        const auto summary = queue->processFiles({file}, {}, run);

        EXPECT_EQ(file->status(), row.status);
        if (row.status == QueuedFile::Status::clean) {
            EXPECT_EQ(summary.completed, 1);
            EXPECT_EQ(file->cleanedFilePath, source.string());
            EXPECT_EQ(file->cleanedOutputBehaviorRaw, "replace");
            // The starter removes document history; in place it stays unless the settings say.
            EXPECT_EQ(file->editHistoryRetainedInPlace, !row.stripEditHistory);
            EXPECT_NE(readFile(source), dirty);
            EXPECT_EQ(readFile(dir / "Trash" / "files" / "photo.jpg"), dirty);
            const auto history = context().fetch(HistoryQueries::recent(1));
            ASSERT_EQ(history.size(), 1u);
            EXPECT_EQ(history[0]->cleanedFilePath, source.string());
        } else {
            EXPECT_TRUE(file->errorMessage);
            if (row.source == Source::rewritten) {
                EXPECT_EQ(readFile(source), "the user's new text");
                EXPECT_NE(file->errorMessage->find("is no longer the file that was cleaned"), std::string::npos);
            }
            EXPECT_EQ(stdfs::exists(source), row.source != Source::vanished);
        }
        // In place, no output stays behind in the temporary directory.
        for (const auto& e : stdfs::directory_iterator(tmp))
            EXPECT_FALSE(e.path().filename().string().starts_with("tavrin_output")) << e.path();
        queue->removeFiles({file});
        stdfs::remove(source);
        stdfs::remove_all(dir / "Trash");
        for (const auto& h : context().fetch(HistoryQueries::recent())) context().deleteRecord(h);
        context().save();
    }
}

TEST_F(QueueServiceTest, aSecondRunOnFilesAnotherRunClaimedTakesNone) {
    auto queue = makeQueue(context());
    const auto source = userFile("a.jpg", images::dirtyJPEG());
    auto files = queue->addFiles({source, source});
    queue->setPreset(starter(MetadataPreset::locationOnlyID()), files);

    // The other run read the same files before this one claimed them.
    auto otherContext = container->makeContext();
    auto otherQueue = makeQueue(*otherContext);
    const auto seenByOther = otherContext->fetch(QueueQueries::configuredFiles());
    ASSERT_EQ(seenByOther.size(), 2u);
    QueueRunSummary other;
    queue->processFiles(files, [&](const QueueFileOutcome&) {
        if (other.skipped == 0) other = otherQueue->processFiles(seenByOther);
    });
    EXPECT_EQ(other.claimed, 0);
    EXPECT_EQ(other.skipped, 2);
    EXPECT_EQ(container->makeContext()->fetchCount(HistoryQueries::recent()), 2);
}

TEST_F(QueueServiceTest, aRunStartedDuringARunReturnsAtOnceAndChangesNothing) {
    auto queue = makeQueue(context());
    const auto source = userFile("a.jpg", images::dirtyJPEG());
    auto files = queue->addFiles({source, source});
    queue->setPreset(starter(MetadataPreset::locationOnlyID()), {files[0]});
    queue->setPreset(starter(MetadataPreset::locationOnlyID()), {files[1]});
    QueueRunSummary inner{-1, -1, -1, -1};
    queue->processFiles({files[0]}, [&](const QueueFileOutcome&) {
        EXPECT_TRUE(queue->isProcessing());
        inner = queue->processFiles({files[1]});
    });
    EXPECT_EQ(inner.claimed, 0);
    EXPECT_EQ(files[1]->status(), QueuedFile::Status::configured);
}

TEST_F(QueueServiceTest, recoveryReturnsADeadRunsFilesAndRemovesItsStrayOutputs) {
    auto queue = makeQueue(context());
    const auto source = userFile("a.jpg", images::dirtyJPEG());
    auto files = queue->addFiles({source, source, source});
    queue->setPreset(starter(MetadataPreset::locationOnlyID()), {files[0]});
    // The dead run had claimed two files and finished the first without saving it.
    files[0]->setStatus(QueuedFile::Status::processing);
    files[1]->setStatus(QueuedFile::Status::processing);
    context().save();
    const auto stray = tmp / "tavrin_output_dead";
    stdfs::create_directories(stray);
    writeFile(stray / stdfs::path(files[0]->originalFilePath).filename(), "finished but not saved");
    const auto unrelated = tmp / "tavrin_output_other";
    stdfs::create_directories(unrelated);
    writeFile(unrelated / "someone-else.jpg", "x");

    auto lockFile = dir / "run.lock";
    auto liveRun = std::make_shared<QueueRunLock>(lockFile);
    liveRun->beginRun();
    auto restarted = makeQueue(context(), std::make_shared<QueueRunLock>(lockFile));
    EXPECT_EQ(restarted->recoverInterruptedRun().reconfigured, 0) << "a live run's files are left alone";
    EXPECT_EQ(files[0]->status(), QueuedFile::Status::processing);
    liveRun->endRun();

    const auto summary = restarted->recoverInterruptedRun();
    EXPECT_EQ(summary.reconfigured, 1);
    EXPECT_EQ(summary.failed, 1);
    EXPECT_EQ(summary.outputsRemoved, 1);
    EXPECT_EQ(files[0]->status(), QueuedFile::Status::configured);
    EXPECT_EQ(files[1]->status(), QueuedFile::Status::failed);
    EXPECT_EQ(files[1]->errorMessage, "Interrupted");
    EXPECT_EQ(files[2]->status(), QueuedFile::Status::staged);
    EXPECT_FALSE(stdfs::exists(stray));
    EXPECT_TRUE(stdfs::exists(unrelated / "someone-else.jpg"));
    EXPECT_EQ(container->makeContext()->fetchCount(QueueQueries::processingFiles()), 0);
}

TEST(QueueImportServiceTest, theDefaultPresetIsAppliedOnlyWhenEverySettingAsksForIt) {
    struct Case {
        const char* name;
        bool autoApply;
        bool settings;
        bool autoProcessOnAdd;
        bool defaultPreset;
        bool presetExists;
        bool configured;
    };
    const Case cases[] = {
        {"all set", true, true, true, true, true, true},
        {"caller declines", false, true, true, true, true, false},
        {"no settings record", true, false, true, true, true, false},
        {"auto-process off", true, true, false, true, true, false},
        {"no default preset", true, true, true, false, true, false},
        {"default preset deleted", true, true, true, true, false, false},
    };
    for (const auto& c : cases) {
        struct Run : QueueFixture {
            void TestBody() override {}
        } f;
        f.SetUp();
        auto& context = f.container->mainContext();
        if (c.settings) {
            auto settings = AppSettings::makeDefault();
            settings->autoProcessOnAdd = c.autoProcessOnAdd;
            if (c.defaultPreset)
                settings->defaultPresetId = c.presetExists ? MetadataPreset::locationOnlyID() : Uuid::random();
            context.insert(settings);
            context.save();
        }
        QueueImportService import(context, f.makeQueue(context));
        const auto added = import.importFiles({f.userFile("a.jpg", images::dirtyJPEG())}, c.autoApply);
        ASSERT_EQ(added.size(), 1u) << c.name;
        EXPECT_EQ(added[0]->status(), c.configured ? QueuedFile::Status::configured : QueuedFile::Status::staged)
            << c.name;
        EXPECT_EQ(added[0]->presetId.has_value(), c.configured) << c.name;
        f.TearDown();
    }
}

TEST_F(QueueServiceTest, currentSettingsPrefersTheSingletonAndNeverCreatesOne) {
    QueueImportService import(context(), makeQueue(context()));
    EXPECT_EQ(import.currentSettings(), nullptr);
    EXPECT_EQ(context().fetchCount(SettingsQueries::allSettings()), 0);
    auto stray = AppSettings::makeDefault();
    stray->id = Uuid::random();
    context().insert(stray);
    context().save();
    EXPECT_EQ(import.currentSettings()->id, stray->id);
    context().insert(AppSettings::makeDefault());
    context().save();
    EXPECT_EQ(import.currentSettings()->id, AppSettings::singletonID());
}

}  // namespace
}  // namespace tavrin
