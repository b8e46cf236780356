// The temporary share store on real files: private folders per output, removal that never
// leaves the store, and the sweep by age.

#include <gtest/gtest.h>

#include <set>

#include "services/temporary_share_store.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

namespace stdfs = std::filesystem;
using namespace std::chrono_literals;
using testing::TempDir;
using testing::writeFile;

TEST(TemporaryShareStore, destinationsKeepTheNameInAPrivateFolderEach) {
    TempDir dir;
    TemporaryShareStore store(dir.path());
    EXPECT_EQ(store.rootURL(), dir / "TavrinTempShare");
    const auto a = store.makeDestinationURL("Contract.pdf");
    const auto b = store.makeDestinationURL("Contract.pdf");
    EXPECT_EQ(a.filename(), "Contract.pdf");
    EXPECT_NE(a.parent_path(), b.parent_path());
    EXPECT_EQ(a.parent_path().parent_path(), store.rootURL());
    EXPECT_TRUE(stdfs::is_directory(a.parent_path()));
    const std::vector<std::pair<std::string, std::string>> names = {
        {"", "Cleaned file"}, {"..", "Cleaned file"}, {"../../escape.pdf", "escape.pdf"}, {"a/b.docx", "b.docx"}};
    for (const auto& [given, expected] : names) {
        SCOPED_TRACE(given);
        const auto url = store.makeDestinationURL(given);
        EXPECT_EQ(url.filename(), expected);
        EXPECT_EQ(url.parent_path().parent_path(), store.rootURL());
    }
}

TEST(TemporaryShareStore, removeTakesTheFoldersOfTheStoreAndNothingOutside) {
    TempDir dir;
    TemporaryShareStore store(dir.path());
    writeFile(dir / "outside.pdf", "keep");
    const auto shared = store.makeDestinationURL("a.pdf");
    writeFile(shared, "x");
    const auto other = store.makeDestinationURL("b.pdf");
    writeFile(other, "x");
    stdfs::create_directories(other.parent_path() / "deeper");
    writeFile(other.parent_path() / "deeper/c.pdf", "x");
    stdfs::create_symlink(dir / "outside.pdf", other.parent_path() / "link.pdf");

    store.remove(shared);
    EXPECT_FALSE(stdfs::exists(shared.parent_path()));  // the UUID folder went with its file

    store.remove(other.parent_path() / "deeper/c.pdf");
    EXPECT_FALSE(stdfs::exists(other.parent_path() / "deeper/c.pdf"));
    EXPECT_TRUE(stdfs::exists(other));  // only the file, deeper down

    store.remove(dir / "outside.pdf");
    store.remove(store.rootURL());
    store.remove(store.rootURL() / ".." / "outside.pdf");
    EXPECT_EQ(testing::readFile(dir / "outside.pdf"), "keep");
    EXPECT_TRUE(stdfs::exists(store.rootURL()));
    EXPECT_TRUE(stdfs::exists(other));

    // A link in a UUID folder takes its folder, never its target.
    store.remove(other.parent_path() / "link.pdf");
    EXPECT_FALSE(stdfs::exists(other.parent_path()));
    EXPECT_EQ(testing::readFile(dir / "outside.pdf"), "keep");
}

TEST(TemporaryShareStore, sweepRemovesWhatIsOlderThanTheRetention) {
    TempDir dir;
    auto now = std::chrono::system_clock::now();
    TemporaryShareStore store(dir.path(), [&] { return now; });
    const auto fresh = store.makeDestinationURL("fresh.pdf");
    writeFile(fresh, "x");
    writeFile(store.rootURL() / "stray.tmp", "x");
    writeFile(dir / "outside.pdf", "keep");

    store.sweepStaleFiles();
    EXPECT_TRUE(stdfs::exists(fresh));

    now += 30min;
    store.sweepStaleFiles();
    EXPECT_TRUE(stdfs::exists(fresh));

    now += 31min;  // past the hour
    store.sweepStaleFiles();
    EXPECT_FALSE(stdfs::exists(fresh.parent_path()));
    EXPECT_FALSE(stdfs::exists(store.rootURL() / "stray.tmp"));
    EXPECT_TRUE(stdfs::exists(store.rootURL()));
    EXPECT_TRUE(stdfs::exists(dir / "outside.pdf"));
}

TEST(TemporaryShareStore, aSweepWithAgeZeroRemovesEverythingDatedBeforeNow) {
    TempDir dir;
    auto now = std::chrono::system_clock::now() + 1s;
    TemporaryShareStore store(dir.path(), [&] { return now; });
    writeFile(store.makeDestinationURL("a.pdf"), "x");
    writeFile(store.makeDestinationURL("b.pdf"), "x");
    store.sweepStaleFiles(0);
    EXPECT_TRUE(stdfs::is_empty(store.rootURL()));
}

TEST(TemporaryShareStore, sweepingAStoreThatWasNeverMadeDoesNothing) {
    TempDir dir;
    TemporaryShareStore store(dir / "nowhere");
    store.sweepStaleFiles(0);
    EXPECT_FALSE(stdfs::exists(store.rootURL()));
}

}  // namespace
}  // namespace tavrin
