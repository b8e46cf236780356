// Folder expansion over real trees in a fresh temporary directory: what is taken, what is left
// out, the cap, and the walk's survival on hostile trees.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "intake/folder_expansion_service.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

namespace stdfs = std::filesystem;
using testing::TempDir;

void touch(const stdfs::path& path) {
    stdfs::create_directories(path.parent_path());
    const int fd = ::open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
    ASSERT_GE(fd, 0) << path;
    ::close(fd);
}

std::set<std::string> names(const FolderExpansionSummary& summary) {
    std::set<std::string> all;
    for (const auto& url : summary.fileURLs) all.insert(url.filename().string());
    return all;
}

TEST(FolderExpansionService, capBelowOneIsRaisedToOne) {
    EXPECT_EQ(FolderExpansionService(0).fileCap(), 1);
    EXPECT_EQ(FolderExpansionService(-5).fileCap(), 1);
    EXPECT_EQ(FolderExpansionService().fileCap(), 2000);
}

TEST(FolderExpansionService, emptyListGivesAnEmptySummary) {
    EXPECT_EQ(FolderExpansionService().expand({}), FolderExpansionSummary{});
}

TEST(FolderExpansionService, givenFilesAreTakenInOrderWhateverTheirTypeAndFoldersAreCounted) {
    TempDir dir;
    touch(dir / "b.unknownext");
    touch(dir / "folder/x.jpg");
    touch(dir / "folder/sub/y.pdf");
    touch(dir / "a.txt");
    const auto summary = FolderExpansionService().expand({dir / "b.unknownext", dir / "folder", dir / "a.txt"});
    ASSERT_EQ(summary.fileURLs.size(), 4u);
    EXPECT_EQ(summary.fileURLs.front(), dir / "b.unknownext");
    EXPECT_EQ(summary.fileURLs.back(), dir / "a.txt");
    EXPECT_EQ(summary.foldersExpanded, 1);
    EXPECT_EQ(summary.filesFoundInFolders, 2);
    EXPECT_TRUE(summary.containedFolders);
    EXPECT_FALSE(summary.capHit);
    // Files inside a folder are reported under the folder's path as given.
    EXPECT_NE(std::find(summary.fileURLs.begin(), summary.fileURLs.end(), dir / "folder/sub/y.pdf"), summary.fileURLs.end());
}

TEST(FolderExpansionService, oneFileIsTakenOnceUnderTheFirstNameItWasReachedBy) {
    TempDir dir;
    touch(dir / "photo.jpg");
    stdfs::create_symlink(dir / "photo.jpg", dir / "alias.jpg");
    touch(dir / "folder/doc.pdf");
    struct Case {
        const char* name;
        std::vector<stdfs::path> given;
        std::vector<stdfs::path> expected;
    };
    const std::vector<Case> cases = {
        {"a file and a link to it", {dir / "photo.jpg", dir / "alias.jpg"}, {dir / "photo.jpg"}},
        {"a link to a file and the file", {dir / "alias.jpg", dir / "photo.jpg"}, {dir / "photo.jpg"}},
        {"the same file twice", {dir / "photo.jpg", dir / "photo.jpg"}, {dir / "photo.jpg"}},
        {"a path with dot segments", {dir / "photo.jpg", dir / "folder/../photo.jpg"}, {dir / "photo.jpg"}},
        {"a folder given twice", {dir / "folder", dir / "folder"}, {dir / "folder/doc.pdf"}},
        {"a file first given alone, then found in its folder",
         {dir / "folder/doc.pdf", dir / "folder"},
         {dir / "folder/doc.pdf"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(FolderExpansionService().expand(c.given).fileURLs, c.expected);
    }
}

TEST(FolderExpansionService, leavesOutHiddenEntriesLinksAndWhatIsNoFile) {
    TempDir dir;
    const auto root = dir / "drop";
    touch(root / "kept.jpg");
    touch(root / ".hidden.jpg");
    touch(root / ".hiddenfolder/inside.jpg");
    touch(root / "sub/.DS_Store");
    touch(root / "sub/kept2.png");
    touch(dir / "outside/target.jpg");
    stdfs::create_symlink(dir / "outside/target.jpg", root / "link-to-file.jpg");
    stdfs::create_symlink(dir / "outside", root / "link-to-folder");
    stdfs::create_symlink(dir / "nowhere", root / "dangling.jpg");
    ASSERT_EQ(::mkfifo((root / "pipe").c_str(), 0600), 0);
    const auto summary = FolderExpansionService().expand({root});
    EXPECT_EQ(names(summary), (std::set<std::string>{"kept.jpg", "kept2.png"}));
    EXPECT_EQ(summary.filesFoundInFolders, 2);
}

TEST(FolderExpansionService, aLinkGivenAtTheTopLevelIsFollowed) {
    TempDir dir;
    touch(dir / "real/a.jpg");
    touch(dir / "real/b.jpg");
    stdfs::create_symlink(dir / "real", dir / "linked");
    const auto summary = FolderExpansionService().expand({dir / "linked"});
    EXPECT_EQ(names(summary), (std::set<std::string>{"a.jpg", "b.jpg"}));
    EXPECT_EQ(summary.foldersExpanded, 1);
}

TEST(FolderExpansionService, loopsOfDirectoryLinksEndTheWalk) {
    TempDir dir;
    touch(dir / "loop/a/file.jpg");
    stdfs::create_symlink(dir / "loop", dir / "loop/a/back-to-top");
    stdfs::create_symlink("..", dir / "loop/a/parent");
    stdfs::create_symlink(dir / "loop/b", dir / "loop/c");
    stdfs::create_symlink(dir / "loop/c", dir / "loop/b");
    const auto summary = FolderExpansionService().expand({dir / "loop", dir / "loop/a/back-to-top"});
    EXPECT_EQ(summary.fileURLs, std::vector<stdfs::path>{dir / "loop/a/file.jpg"});
    EXPECT_EQ(summary.foldersExpanded, 2);
}

TEST(FolderExpansionService, namesThatAreNotUtf8AreTakenAsTheyAre) {
    TempDir dir;
    const std::string latin1 = "caf\xe9.jpg";
    const std::string broken = "\xff\xfe\x80.pdf";
    touch(dir / "drop" / latin1);
    touch(dir / "drop" / "\xc3" / broken);
    const auto summary = FolderExpansionService().expand({dir / "drop"});
    EXPECT_EQ(names(summary), (std::set<std::string>{latin1, broken}));
}

TEST(FolderExpansionService, capIsReportedTheMomentItIsReached) {
    TempDir dir;
    for (int i = 0; i < 5; ++i) touch(dir / "five" / ("f" + std::to_string(i)));
    struct Case {
        std::int64_t cap;
        std::size_t taken;
        bool capHit;
    };
    for (const auto& c : std::vector<Case>{{4, 4, true}, {5, 5, true}, {6, 5, false}, {0, 1, true}}) {
        SCOPED_TRACE(c.cap);
        const auto summary = FolderExpansionService(c.cap).expand({dir / "five"});
        EXPECT_EQ(summary.fileURLs.size(), c.taken);
        EXPECT_EQ(summary.capHit, c.capHit);
    }
    // The given paths after the cap are not looked at: the second folder is not counted.
    const auto summary = FolderExpansionService(5).expand({dir / "five", dir / "five"});
    EXPECT_EQ(summary.foldersExpanded, 1);
}

TEST(FolderExpansionService, aFolderOfExactlyTheDefaultCapReportsTheLimit) {
    TempDir dir;
    for (int i = 0; i < 2000; ++i) touch(dir / "full" / (std::to_string(i) + ".jpg"));
    const auto summary = FolderExpansionService().expand({dir / "full"});
    EXPECT_EQ(summary.fileURLs.size(), 2000u);
    EXPECT_TRUE(summary.capHit);
}

// A scratch folder in memory when the machine has one: a hundred thousand files on a shared disk
// take minutes to create.
class ScratchDir {
public:
    ScratchDir() {
        std::string pattern = (stdfs::is_directory("/dev/shm") ? "/dev/shm" : stdfs::temp_directory_path().string()) + "/tavrin_test_XXXXXX";
        if (::mkdtemp(pattern.data())) path_ = pattern;
    }
    ~ScratchDir() {
        std::error_code ignored;
        if (!path_.empty()) stdfs::remove_all(path_, ignored);
    }
    stdfs::path operator/(const std::string& name) const { return path_ / name; }
    bool ok() const { return !path_.empty(); }

private:
    stdfs::path path_;
};

TEST(FolderExpansionService, aTreeOfAHundredThousandFilesStopsAtTheCap) {
    ScratchDir dir;
    ASSERT_TRUE(dir.ok());
    for (int d = 0; d < 100; ++d) {
        const auto sub = dir / "huge" / ("d" + std::to_string(d));
        stdfs::create_directories(sub);
        for (int i = 0; i < 1000; ++i) {
            const int fd = ::open((sub / (std::to_string(i) + ".jpg")).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
            ASSERT_GE(fd, 0);
            ::close(fd);
        }
    }
    const auto summary = FolderExpansionService().expand({dir / "huge", dir / "never-looked-at"});
    EXPECT_EQ(summary.fileURLs.size(), 2000u);
    EXPECT_EQ(summary.filesFoundInFolders, 2000);
    EXPECT_TRUE(summary.capHit);
    EXPECT_EQ(std::set<stdfs::path>(summary.fileURLs.begin(), summary.fileURLs.end()).size(), 2000u);
}

TEST(FolderExpansionService, aDeepChainOfFoldersIsWalkedWithoutRecursion) {
    TempDir dir;
    stdfs::path deep = dir / "deep";
    for (std::size_t i = 0; i < FolderExpansionService::maxDepth + 20; ++i) deep /= "d";
    touch(deep / "too-deep.jpg");
    touch(dir / "deep/d/shallow.jpg");
    const auto summary = FolderExpansionService().expand({dir / "deep"});
    EXPECT_EQ(names(summary), (std::set<std::string>{"shallow.jpg"}));
}

// Permissions do not bind root, so the unreadable folder is tested in a child that gives up
// root first. The child reports the names it found on a pipe.
TEST(FolderExpansionService, anUnreadableSubFolderCostsOnlyItsOwnContent) {
    TempDir dir;
    touch(dir / "drop/a.jpg");
    touch(dir / "drop/locked/secret.jpg");
    touch(dir / "drop/z/b.jpg");
    ::chmod(dir.path().c_str(), 0755);
    ::chmod((dir / "drop/locked").c_str(), 0);
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::close(fds[0]);
        if (::getuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) ::_exit(3);
        std::string found;
        for (const auto& url : FolderExpansionService().expand({dir / "drop"}).fileURLs) found += url.filename().string() + "\n";
        const auto written = ::write(fds[1], found.data(), found.size());
        ::_exit(written == static_cast<ssize_t>(found.size()) ? 0 : 4);
    }
    ::close(fds[1]);
    std::string output;
    char buffer[256];
    for (ssize_t n; (n = ::read(fds[0], buffer, sizeof buffer)) > 0;) output.append(buffer, static_cast<std::size_t>(n));
    ::close(fds[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    ::chmod((dir / "drop/locked").c_str(), 0755);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    std::set<std::string> found;
    for (std::size_t start = 0, end; (end = output.find('\n', start)) != std::string::npos; start = end + 1)
        found.insert(output.substr(start, end - start));
    EXPECT_EQ(found, (std::set<std::string>{"a.jpg", "b.jpg"}));
}

}  // namespace
}  // namespace tavrin
