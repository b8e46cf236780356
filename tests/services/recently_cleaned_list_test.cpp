// The recently cleaned list: one entry per output, newest first, with what is still possible;
// and its read-only view of a store that it never creates.

#include "queue_fixtures.h"
#include "services/recently_cleaned_list.h"

namespace tavrin {
namespace {

namespace stdfs = std::filesystem;
using Record = RecentlyCleanedList::Record;

Record record(int minutesAgo, std::optional<std::string> output, std::int64_t saved = 5, bool retained = true) {
    Record r;
    r.id = Uuid::random();
    r.fileName = "file.pdf";
    r.processedAt = std::chrono::system_clock::now() - std::chrono::minutes(minutesAgo);
    r.presetName = "Maximum Privacy";
    r.bytesSaved = saved;
    r.cleanedFilePath = std::move(output);
    r.originalFilePath = "/home/u/file.pdf";
    r.outputRetained = retained;
    return r;
}

bool nothingExists(const std::string&) { return false; }

TEST(RecentlyCleanedListTest, limitsBelowOneGiveNothing) {
    for (std::int64_t limit : {0, -1, -1000})
        EXPECT_TRUE(RecentlyCleanedList::items({record(1, "/o/a.pdf")}, limit, nothingExists).empty()) << limit;
}

TEST(RecentlyCleanedListTest, theNewestRecordOfAnOutputStandsForTheOlderOnes) {
    auto older = record(10, "/out/./a.pdf");
    auto newer = record(1, "/out/a.pdf");
    auto items = RecentlyCleanedList::items({older, newer, record(5, std::nullopt), record(6, std::nullopt)}, 10,
                                            nothingExists);
    ASSERT_EQ(items.size(), 3u);
    EXPECT_EQ(items[0].id, newer.id);
    EXPECT_FALSE(items[1].fileURL);
    EXPECT_FALSE(items[2].fileURL);
}

TEST(RecentlyCleanedListTest, valuesAreClampedAndFilesOnlyOfferedWhileTheyExist) {
    auto grew = record(1, "/out/b.pdf", -10, false);
    auto items = RecentlyCleanedList::items({grew}, 3, [](const std::string& p) { return p == "/out/b.pdf"; });
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].bytesSaved, 0);
    EXPECT_TRUE(items[0].isEphemeralShare);
    EXPECT_TRUE(items[0].canRevealOrDrag());
    EXPECT_FALSE(items[0].canCleanAgain());
}

TEST(RecentlyCleanedListTest, theShownNameIsTheOutputsLastComponentElseTheRecordsName) {
    ProcessingHistory h;
    h.fileName = "report.pdf";
    h.cleanedFilePath = "/out/report-clean.pdf";
    EXPECT_EQ(Record::from(h).fileName, "report-clean.pdf");
    h.cleanedFilePath = "/";
    EXPECT_EQ(Record::from(h).fileName, "report.pdf");
    h.cleanedFilePath.reset();
    EXPECT_EQ(Record::from(h).fileName, "report.pdf");
}

TEST(RecentlyCleanedStoreTest, aMissingStoreIsNotCreatedAndGivesNothing) {
    testing::TempDir dir;
    RecentlyCleanedStore view(dir / "Tavrin.store");
    EXPECT_FALSE(view.hasStore());
    EXPECT_TRUE(view.recentItems(10).empty());
    EXPECT_TRUE(stdfs::is_empty(dir.path()));
}

TEST(RecentlyCleanedStoreTest, readsTheHistoryOfAStoreWithoutWritingIt) {
    testing::TempDir dir;
    const auto url = dir / "Tavrin.store";
    {
        auto container = ModelContainerFactory::atURL(url);
        for (int i = 0; i < 30; ++i) {
            auto h = std::make_shared<ProcessingHistory>();
            h->id = Uuid::random();
            h->fileName = "f" + std::to_string(i) + ".jpg";
            h->processedAt = std::chrono::system_clock::now() - std::chrono::seconds(i);
            h->cleanedFilePath = (dir / h->fileName).string();
            testing::writeFile(dir / h->fileName, "x");
            container->mainContext().insert(h);
        }
        container->mainContext().save();
    }
    ::chmod(url.c_str(), 0400);
    RecentlyCleanedStore view(url);
    EXPECT_TRUE(view.recentItems(0).empty());
    const auto items = view.recentItems(5000);
    ASSERT_EQ(items.size(), 30u);
    EXPECT_EQ(items[0].fileName, "f0.jpg");
    EXPECT_TRUE(items[0].canRevealOrDrag());
    EXPECT_EQ(view.recentItems(4).size(), 4u);
    ::chmod(url.c_str(), 0600);
}

TEST(RecentFileDragTest, aFileThatWentBeforeTheDropFailsWithItsName) {
    testing::TempDir dir;
    const auto file = dir / "photo-clean.jpg";
    EXPECT_FALSE(RecentFileDragProvider::itemProvider(file));
    testing::writeFile(file, "x");
    const auto item = RecentFileDragProvider::itemProvider(file);
    ASSERT_TRUE(item);
    EXPECT_EQ(item->suggestedName, "photo-clean.jpg");
    EXPECT_EQ(item->contentTypeIdentifier, "public.jpeg");
    stdfs::remove(file);
    try {
        RecentFileDragProvider::loadFile(file);
        FAIL();
    } catch (const RecentFileDragError& e) {
        EXPECT_STREQ(e.what(), "\u201Cphoto-clean.jpg\u201D is no longer available to drag.");
    }
}

}  // namespace
}  // namespace tavrin
