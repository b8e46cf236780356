// The auto-cleaner over the real engine and a real JPEG: copies beside their sources under names
// that never overwrite, batches that survive a bad file, and a full disk that leaves nothing.

#include <gtest/gtest.h>

#include <cerrno>

#include "intake/watched_folder_auto_cleaner.h"
#include "model/file_hash.h"
#include "model/pipeline_error.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

namespace stdfs = std::filesystem;
using testing::TempDir;

const stdfs::path kPhoto = "samples/files/beach-photo.jpg";

std::shared_ptr<const TavrinEngine> sharedEngine() {
    static const auto engine = std::make_shared<const TavrinEngine>();
    return engine;
}

WatchedFolderAutoCleaner cleaner(CleanCopySuffix suffix = CleanCopySuffix::clean(),
                                 std::shared_ptr<CopyPublishingFileSystem> files = CopyPublishingFileSystem::system()) {
    return WatchedFolderAutoCleaner(sharedEngine(), std::move(suffix), nullptr, 5.0, std::move(files));
}

std::set<std::string> namesIn(const stdfs::path& dir) {
    std::set<std::string> names;
    for (const auto& entry : stdfs::directory_iterator(dir)) names.insert(entry.path().filename().string());
    return names;
}

TEST(WatchedFolderAutoCleaner, destinationIsNumberedPastEveryExistingSiblingIgnoringCase) {
    struct Case {
        const char* what;
        CleanCopySuffix suffix;
        std::vector<std::string> existing;
        const char* expected;
    };
    const std::vector<Case> cases{
        {"free name", CleanCopySuffix::clean(), {}, "photo-clean.jpg"},
        {"taken", CleanCopySuffix::clean(), {"photo-clean.jpg"}, "photo-clean 2.jpg"},
        {"taken in other case", CleanCopySuffix::clean(), {"PHOTO-CLEAN.JPG"}, "photo-clean 2.jpg"},
        {"two taken", CleanCopySuffix::clean(), {"photo-clean.jpg", "photo-clean 2.jpg"}, "photo-clean 3.jpg"},
        {"final", CleanCopySuffix::final(), {}, "photo-final.jpg"},
        {"custom", CleanCopySuffix::custom("-safe"), {"photo-clean.jpg"}, "photo-safe.jpg"},
    };
    for (const auto& c : cases) {
        TempDir dir;
        testing::writeFile(dir / "photo.jpg", "x");
        for (const auto& name : c.existing) testing::writeFile(dir / name, "taken");
        EXPECT_EQ(cleaner(c.suffix).destinationURL(dir / "photo.jpg"), dir / c.expected) << c.what;
    }
}

TEST(WatchedFolderAutoCleaner, cleanToCopyWritesAVerifiedCopyBesideAndNeverTouchesTheSourceOrAnExistingCopy) {
    TempDir dir;
    stdfs::copy_file(kPhoto, dir / "beach.jpg");
    testing::writeFile(dir / "beach-clean.jpg", "the user's own file");
    const auto before = FileHash::sha256(dir / "beach.jpg");

    const auto cleaned = cleaner().cleanToCopy(dir / "beach.jpg", CleaningProfile::maximumPrivacy());
    EXPECT_EQ(cleaned.outputURL, dir / "beach-clean 2.jpg");
    EXPECT_TRUE(cleaned.result.verifiedClean);
    EXPECT_TRUE(stdfs::exists(dir / "beach-clean 2.jpg"));
    EXPECT_EQ(testing::readFile(dir / "beach-clean.jpg"), "the user's own file");
    EXPECT_EQ(FileHash::sha256(dir / "beach.jpg"), before);
}

TEST(WatchedFolderAutoCleaner, aBatchCountsItsFailuresAndKeepsGoingInOrder) {
    TempDir dir;
    stdfs::copy_file(kPhoto, dir / "a.jpg");
    testing::writeFile(dir / "b.jpg", "not a jpeg at all");
    stdfs::copy_file(kPhoto, dir / "c.jpg");
    const auto outcome =
        cleaner().cleanBatch({dir / "a.jpg", dir / "b.jpg", dir / "c.jpg"}, CleaningProfile::maximumPrivacy());
    ASSERT_EQ(outcome.cleaned.size(), 2u);
    EXPECT_EQ(outcome.failedCount, 1);
    EXPECT_EQ(outcome.cleaned[0].sourceURL, dir / "a.jpg");
    EXPECT_EQ(outcome.cleaned[1].sourceURL, dir / "c.jpg");
    EXPECT_EQ(namesIn(dir.path()), (std::set<std::string>{"a.jpg", "a-clean.jpg", "b.jpg", "c.jpg", "c-clean.jpg"}));
}

// Publishing always takes the copy route (as across file systems), and the copy runs out of
// space half-way, leaving its half-written file behind as a failing writer does.
class FullDiskFileSystem final : public CopyPublishingFileSystem {
public:
    bool full = true;
    int renameNoReplace(const stdfs::path& from, const stdfs::path& to) override {
        if (from.filename().string().front() != '.') return EXDEV;
        return real->renameNoReplace(from, to);
    }
    int copyToNewFile(const stdfs::path& from, const stdfs::path& to) override {
        if (!full) return real->copyToNewFile(from, to);
        const auto bytes = testing::readFile(from);
        testing::writeFile(to, bytes.substr(0, bytes.size() / 2));
        return ENOSPC;
    }

private:
    std::shared_ptr<CopyPublishingFileSystem> real = CopyPublishingFileSystem::system();
};

TEST(WatchedFolderAutoCleaner, aFullDiskFailsThatFileClearlyAndLeavesNothingPartial) {
    TempDir dir;
    stdfs::copy_file(kPhoto, dir / "one.jpg");
    stdfs::copy_file(kPhoto, dir / "two.jpg");
    auto files = std::make_shared<FullDiskFileSystem>();
    const auto autoCleaner = cleaner(CleanCopySuffix::clean(), files);
    try {
        autoCleaner.cleanToCopy(dir / "one.jpg", CleaningProfile::maximumPrivacy());
        FAIL() << "a full disk must fail the file";
    } catch (const FileSystemError& e) {
        EXPECT_EQ(e.code(), ENOSPC);
        EXPECT_NE(std::string(e.what()).find("one-clean.jpg\u201D (No space left on device)"), std::string::npos)
            << e.what();
    }
    EXPECT_EQ(namesIn(dir.path()), (std::set<std::string>{"one.jpg", "two.jpg"}));

    files->full = false;
    const auto cleaned = autoCleaner.cleanToCopy(dir / "two.jpg", CleaningProfile::maximumPrivacy());
    EXPECT_EQ(cleaned.outputURL, dir / "two-clean.jpg");
    EXPECT_EQ(namesIn(dir.path()), (std::set<std::string>{"one.jpg", "two.jpg", "two-clean.jpg"}));
}

}  // namespace
}  // namespace tavrin
