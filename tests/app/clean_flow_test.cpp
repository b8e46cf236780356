// Add, configure in the inspector, clean in each mode, and read what the clean left: the user's
// file stays untouched unless cleaning in place was chosen, and every failure is told in words
// with nothing left at the user's path.

#include <QLabel>
#include <QListWidget>
#include <QMimeData>
#include <QUrl>
#include <QSignalSpy>
#include <QTreeWidget>

#include "app_fixture.h"
#include "data/processing_history.h"
#include "data/queries.h"
#include "intake/folder_expansion_service.h"
#include "share_sheet.h"
#include "intake/folder_intake_summary.h"

namespace tavrin::testing {
namespace {

namespace stdfs = std::filesystem;

using CleanFlowTest = AppFixture;

// A tick as a person makes it; the window answers on its loop.
void tick(QTreeWidgetItem* item, Qt::CheckState state) {
    item->setCheckState(0, state);
    QCoreApplication::processEvents();
}

void clearAllTicks(QTreeWidget* tree) {
    for (int i = 0; i < tree->topLevelItemCount(); ++i)
        if (tree->topLevelItem(i)->flags() & Qt::ItemIsUserCheckable) tick(tree->topLevelItem(i), Qt::Unchecked);
}

bool carries(const TavrinEngine& engine, const stdfs::path& file, MetadataCategory category) {
    const auto tree = engine.inspect(file);
    for (const auto& item : tree.allItems())
        if (item.category == category && item.isRemovable) return true;
    return false;
}

std::vector<std::string> names(const stdfs::path& folder) {
    std::vector<std::string> out;
    for (const auto& entry : stdfs::directory_iterator(folder)) out.push_back(entry.path().filename().string());
    std::sort(out.begin(), out.end());
    return out;
}

struct ModeCase {
    const char* name;
    CleanMode mode;
    // Where the clean file is expected, from the user's file and the test's folder.
    std::function<void(const stdfs::path& original, const std::string& originalBytes, const QueuedFile& record,
                       AppFixture& test)>
        check;
};

void PrintTo(const ModeCase& c, std::ostream* os) { *os << c.name; }

class CleanModeTest : public AppFixture, public ::testing::WithParamInterface<ModeCase> {};

TEST_P(CleanModeTest, removesWhatWasTickedAndPutsTheCleanFileWhereTheModeSays) {
    start();
    const auto original = userFile("photo.jpg", images::dirtyJPEG());
    const auto before = readFile(original);
    const auto ids = addAndInspect({original});
    ASSERT_EQ(ids.size(), 1);
    window().selectIds(ids);

    // Configure: only the location goes.
    clearAllTicks(window().inspector()->tree());
    auto* location = categoryRow("Location Data");
    ASSERT_NE(location, nullptr);
    tick(location, Qt::Checked);
    auto configured = stored(ids[0]);
    EXPECT_EQ(configured->status(), QueuedFile::Status::configured);
    EXPECT_EQ(configured->categoriesToRemove(), std::set<MetadataCategory>{MetadataCategory::location});
    EXPECT_FALSE(configured->presetId) << "a selection by hand is the file's own";

    const auto [completed, failed] = cleanAndWait(ids, GetParam().mode);
    ASSERT_EQ(completed, 1) << window().bannerText().toStdString();
    EXPECT_EQ(failed, 0);
    auto record = stored(ids[0]);
    ASSERT_TRUE(record->cleanedFilePath);
    const stdfs::path output = *record->cleanedFilePath;
    ASSERT_TRUE(stdfs::exists(output));
    EXPECT_FALSE(carries(app().engine(), output, MetadataCategory::location));
    EXPECT_TRUE(carries(app().engine(), output, MetadataCategory::deviceInfo)) << "what was not ticked stays";
    GetParam().check(original, before, *record, *this);

    // Inspect after: the verified badge and the sizes of this clean.
    window().selectIds(ids);
    EXPECT_FALSE(window().inspector()->verifiedBadge()->isHidden());
    EXPECT_EQ(window().inspector()->verifiedBadge()->text(), "✓ Verified clean");
    EXPECT_GT(window().inspector()->outcome()->topLevelItemCount(), 0);
}

INSTANTIATE_TEST_SUITE_P(
    EachMode, CleanModeTest,
    ::testing::Values(
        ModeCase{"copy", CleanMode::copy,
                 [](const stdfs::path& original, const std::string& bytes, const QueuedFile& record, AppFixture& t) {
                     EXPECT_EQ(readFile(original), bytes) << "the original is untouched";
                     EXPECT_EQ(stdfs::path(*record.cleanedFilePath), original.parent_path() / "photo-clean.jpg");
                     EXPECT_EQ(record.status(), QueuedFile::Status::completed);
                     EXPECT_EQ(record.cleanedOutputBehaviorRaw, "alongside");
                     auto history = t.app().container().makeContext()->fetch(FetchDescriptor<ProcessingHistory>());
                     ASSERT_EQ(history.size(), 1u);
                     EXPECT_EQ(history[0]->cleanedFilePath, record.cleanedFilePath) << "the history leads to the copy";
                     EXPECT_TRUE(history[0]->outputRetained);
                 }},
        ModeCase{"share", CleanMode::share,
                 [](const stdfs::path& original, const std::string& bytes, const QueuedFile& record, AppFixture& t) {
                     EXPECT_EQ(readFile(original), bytes);
                     EXPECT_EQ(names(original.parent_path()), std::vector<std::string>{"photo.jpg"})
                         << "nothing beside the original";
                     const auto share = (t.dir_ / "share" / "TavrinTempShare").string();
                     EXPECT_EQ(record.cleanedFilePath->rfind(share, 0), 0u) << *record.cleanedFilePath;
                     EXPECT_EQ(record.cleanedOutputBehaviorRaw, "temporaryShare");
                 }},
        ModeCase{"inPlace", CleanMode::inPlace,
                 [](const stdfs::path& original, const std::string& bytes, const QueuedFile& record, AppFixture& t) {
                     EXPECT_NE(readFile(original), bytes) << "the clean file took the original's place";
                     EXPECT_EQ(readFile(t.trash_ / "files" / "photo.jpg"), bytes) << "the original went to the Trash";
                     EXPECT_TRUE(stdfs::exists(t.trash_ / "info" / "photo.jpg.trashinfo"));
                     EXPECT_EQ(record.status(), QueuedFile::Status::clean);
                     EXPECT_EQ(stdfs::path(*record.cleanedFilePath), original);
                     EXPECT_FALSE(record.editHistoryRetainedInPlace)
                         << "only the location was ticked: no edit history was asked to go";
                     EXPECT_EQ(names(original.parent_path()), std::vector<std::string>{"photo.jpg"});
                 }}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(CleanFlowTest, cleaningInPlaceWithoutTheReplacementFailsAndLeavesTheOriginal) {
    auto o = options();
    o.replaceInPlace = nullptr;
    start(o);
    const auto original = userFile("photo.jpg", images::dirtyJPEG());
    const auto before = readFile(original);
    const auto ids = addAndInspect({original});
    const auto [completed, failed] = cleanAndWait(ids, CleanMode::inPlace);
    EXPECT_EQ(completed, 0);
    EXPECT_EQ(failed, 1);
    EXPECT_EQ(readFile(original), before);
    EXPECT_EQ(names(original.parent_path()), std::vector<std::string>{"photo.jpg"});
    auto record = stored(ids[0]);
    EXPECT_EQ(record->status(), QueuedFile::Status::failed);
    EXPECT_NE(record->errorMessage.value_or("").find("the original was left untouched"), std::string::npos);
}

TEST_F(CleanFlowTest, aCopyThatCannotBeSavedFailsInWordsAndLeavesNothingBehind) {
    start();
    const auto original = userFile("photo.jpg", images::dirtyJPEG());
    const auto ids = addAndInspect({original});
    // The folder of the user's file is gone by the time the copy is to be written.
    stdfs::remove_all(original.parent_path());
    const auto [completed, failed] = cleanAndWait(ids, CleanMode::copy);
    EXPECT_EQ(completed, 0);
    EXPECT_EQ(failed, 1);
    EXPECT_FALSE(stdfs::exists(original.parent_path()));
    auto record = stored(ids[0]);
    EXPECT_EQ(record->status(), QueuedFile::Status::failed);
    EXPECT_EQ(record->errorMessage.value_or("").rfind("Cleaned and verified, but the clean file could not be saved: ", 0), 0u)
        << record->errorMessage.value_or("");
    EXPECT_FALSE(record->cleanedFilePath);
}

TEST_F(CleanFlowTest, aCopyNeverReplacesAFileAlreadyThere) {
    start();
    const auto original = userFile("photo.jpg", images::dirtyJPEG());
    writeFile(original.parent_path() / "photo-clean.jpg", std::string("mine"));
    const auto ids = addAndInspect({original});
    ASSERT_EQ(cleanAndWait(ids, CleanMode::copy).first, 1);
    EXPECT_EQ(readFile(original.parent_path() / "photo-clean.jpg"), "mine");
    EXPECT_EQ(stdfs::path(*stored(ids[0])->cleanedFilePath), original.parent_path() / "photo-clean 2.jpg");
}

TEST_F(CleanFlowTest, clearingEveryTickRecordsThatNothingIsToBeRemoved) {
    start();
    const auto ids = addAndInspect({userFile("photo.jpg", images::dirtyJPEG())});
    window().selectIds(ids);
    clearAllTicks(window().inspector()->tree());
    auto record = stored(ids[0]);
    EXPECT_TRUE(record->userDidConfigureEmptySelection);
    EXPECT_EQ(record->status(), QueuedFile::Status::staged);
    EXPECT_FALSE(record->isCleanable());
    EXPECT_FALSE(window().cleanFiles(ids, CleanMode::copy)) << "a file with nothing selected is not cleaned";
}

TEST_F(CleanFlowTest, untickingOneItemKeepsItAgainstItsCategory) {
    start();
    const auto ids = addAndInspect({userFile("photo.jpg", images::dirtyJPEG())});
    window().selectIds(ids);
    auto* location = categoryRow("Location Data");
    ASSERT_NE(location, nullptr);
    ASSERT_GT(location->childCount(), 0);
    EXPECT_EQ(location->checkState(0), Qt::Checked) << "a new file shows the ticks of the preset it would get";
    QTreeWidgetItem* first = nullptr;
    for (int i = 0; i < location->childCount() && !first; ++i)
        if (location->child(i)->flags() & Qt::ItemIsUserCheckable) first = location->child(i);
    ASSERT_NE(first, nullptr);
    const auto key = first->data(0, Qt::UserRole + 1).toString().toStdString();
    tick(first, Qt::Unchecked);
    auto record = stored(ids[0]);
    EXPECT_TRUE(record->categoriesToRemove().count(MetadataCategory::location));
    EXPECT_EQ(record->specificKeysToKeep, std::vector<std::string>{key});
    EXPECT_FALSE(record->userDidConfigureEmptySelection);
}

TEST_F(CleanFlowTest, structuralItemsAreShownKeptAndCannotBeTicked) {
    start();
    const auto ids = addAndInspect({userFile("photo.jpg", images::dirtyJPEG())});
    window().selectIds(ids);
    const auto* tree = app().treeFor(*uuidFromString(ids[0].toStdString()));
    ASSERT_NE(tree, nullptr);
    int structural = 0;
    for (const auto& item : tree->allItems()) structural += item.isRemovable ? 0 : 1;
    int shownKept = 0;
    auto* view = window().inspector()->tree();
    for (int i = 0; i < view->topLevelItemCount(); ++i)
        for (int c = 0; c < view->topLevelItem(i)->childCount(); ++c) {
            auto* row = view->topLevelItem(i)->child(c);
            if (row->text(1).startsWith("Kept: needed to open the file")) {
                ++shownKept;
                EXPECT_FALSE(row->flags() & Qt::ItemIsUserCheckable);
            }
        }
    EXPECT_EQ(shownKept, structural);
}

TEST_F(CleanFlowTest, aFolderBringsItsSummaryWordForWordAndLooseFilesThatFailAreNamed) {
    start();
    const auto folder = dir_ / "Documents" / "batch";
    stdfs::create_directories(folder);
    writeFile(folder / "a.jpg", images::dirtyJPEG());
    writeFile(folder / "b.png", images::dirtyPNG());
    writeFile(folder / "notes.txt", std::string("just text"));
    const auto ids = window().importPaths({folder});
    EXPECT_EQ(ids.size(), 2);
    const auto expected = FolderIntakeSummary::message(FolderExpansionService().expand({folder}), 2);
    ASSERT_TRUE(expected);
    EXPECT_EQ(window().bannerText().toStdString(), *expected);

    const auto loose = userFile("readme.txt", std::vector<std::uint8_t>{'h', 'i'});
    window().importPaths({loose, userFile("c.jpg", images::dirtyJPEG())});
    EXPECT_TRUE(window().bannerText().contains("Not added: readme.txt — ")) << window().bannerText().toStdString();
}

TEST_F(CleanFlowTest, aCancelledRunStartsNothingAndSaysSo) {
    start();
    const auto ids = addAndInspect({userFile("photo.jpg", images::dirtyJPEG())});
    std::vector<Uuid> uuids{*uuidFromString(ids[0].toStdString())};
    CleanRun run(app(), uuids, CleanRunOptions{});
    QSignalSpy ended(&run, &CleanRun::runFinished);
    run.cancel();
    run.start();
    ASSERT_TRUE(ended.wait(60000));
    EXPECT_EQ(ended.front().at(0).toInt(), 0);
    EXPECT_EQ(ended.front().at(1).toInt(), 0);
    EXPECT_TRUE(ended.front().at(2).toBool());
    EXPECT_EQ(stored(ids[0])->status(), QueuedFile::Status::staged);
}

// The test's folder lies inside the temporary directory, where the queue deletes its own
// outputs: a clean file that is the user's must survive that rule.
TEST_F(CleanFlowTest, removingFromTheQueueKeepsTheCleanFilesThatAreTheUsers) {
    start();
    const auto copied = userFile("photo.jpg", images::dirtyJPEG());
    const auto replaced = userFile("other.jpg", images::dirtyJPEG());
    const auto copyIds = addAndInspect({copied});
    const auto placeIds = addAndInspect({replaced});
    ASSERT_EQ(cleanAndWait(copyIds, CleanMode::copy).first, 1);
    ASSERT_EQ(cleanAndWait(placeIds, CleanMode::inPlace).first, 1);
    const auto cleanedInPlace = readFile(replaced);
    window().selectIds(copyIds + placeIds);
    window().removeSelection();
    EXPECT_EQ(window().queueModel()->rowCount(), 0);
    EXPECT_TRUE(stdfs::exists(copied));
    EXPECT_TRUE(stdfs::exists(copied.parent_path() / "photo-clean.jpg"));
    ASSERT_TRUE(stdfs::exists(replaced));
    EXPECT_EQ(readFile(replaced), cleanedInPlace);
}

TEST_F(CleanFlowTest, theShareSheetOffersTheCleanCopiesToDragOut) {
    start();
    std::vector<stdfs::path> shared;
    window().presentShare = [&](const std::vector<stdfs::path>& files) { shared = files; };
    const auto ids = addAndInspect({userFile("a.jpg", images::dirtyJPEG()), userFile("b.png", images::dirtyPNG())});
    ASSERT_EQ(cleanAndWait(ids, CleanMode::share).first, 2);
    ASSERT_EQ(shared.size(), 2u) << "the sheet comes with every copy of the run";
    ShareSheet sheet(app(), shared, &window());
    auto* list = sheet.list();
    ASSERT_EQ(list->count(), 2);
    QModelIndexList rows{list->model()->index(0, 0), list->model()->index(1, 0)};
    std::unique_ptr<QMimeData> mime(list->model()->mimeData(rows));
    ASSERT_TRUE(mime);
    ASSERT_EQ(mime->urls().size(), 2);
    for (const auto& url : mime->urls()) {
        EXPECT_TRUE(stdfs::exists(url.toLocalFile().toStdString()));
        EXPECT_TRUE(url.toLocalFile().startsWith(QString::fromStdString((dir_ / "share").string())));
    }
}

// Single ticks are the user's choice: a file configured by single items alone is cleaned, not
// refused as unconfigured, and the ticked item goes.
TEST_F(CleanFlowTest, singleTicksAreCleanedAsChosen) {
    start();
    const auto original = userFile("photo.jpg", images::dirtyJPEG());
    const auto ids = addAndInspect({original});
    ASSERT_EQ(ids.size(), 1);
    window().selectIds(ids);
    clearAllTicks(window().inspector()->tree());
    auto* location = categoryRow("Location Data");
    ASSERT_NE(location, nullptr);
    ASSERT_GE(location->childCount(), 2);
    tick(location->child(0), Qt::Checked);
    const auto configured = stored(ids[0]);
    ASSERT_TRUE(configured->categoriesToRemove().empty());
    ASSERT_EQ(configured->specificKeysToRemove.size(), 1u);
    const std::string removedKey = configured->specificKeysToRemove.front();

    const auto [completed, failed] = cleanAndWait(ids, CleanMode::copy);
    ASSERT_EQ(completed, 1) << window().bannerText().toStdString();
    EXPECT_EQ(failed, 0);
    const auto record = stored(ids[0]);
    ASSERT_TRUE(record->cleanedFilePath);
    bool keyLeft = false;
    for (const auto& item : app().engine().inspect(*record->cleanedFilePath).allItems())
        if (item.key == removedKey) keyLeft = true;
    EXPECT_FALSE(keyLeft) << removedKey << " was ticked";
}

}  // namespace
}  // namespace tavrin::testing
