// Staging on real files in a fresh temporary directory per test: copies, atomic swaps, and the
// guarantee that nothing outside the staging directory is ever written or deleted.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <future>
#include <thread>
#include <set>

#include "services/file_access_error.h"
#include "services/staging_service.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

namespace stdfs = std::filesystem;
using namespace std::chrono_literals;
using testing::readFile;
using testing::TempDir;
using testing::writeFile;

// Blocks until a reader has opened the pipe (the body under test is inside its read), and returns
// the writing end; the reader stays blocked in its read until that end is closed.
int openWriterOnceRead(const std::filesystem::path& fifo) {
    for (;;) {
        const int fd = ::open(fifo.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        if (fd >= 0) return fd;
        std::this_thread::yield();
    }
}

std::set<std::string> listing(const stdfs::path& dir) {
    std::set<std::string> names;
    std::error_code ignored;
    for (const auto& entry : stdfs::directory_iterator(dir, ignored)) names.insert(entry.path().filename().string());
    return names;
}

// The real file system with faults a test switches on.
class FaultyFileOperations : public FileOperations {
public:
    bool failReplace = false;
    bool failMove = false;
    bool failCopyMidway = false;  // writes part of the file, then fails as a full disk would

    void copyFile(const stdfs::path& from, const stdfs::path& to) override {
        if (failCopyMidway) {
            writeFile(to, "partial");
            throw FileAccessError::writing(to, ENOSPC);
        }
        real_.copyFile(from, to);
    }
    void replaceItem(const stdfs::path& target, const stdfs::path& replacement) override {
        if (failReplace) throw FileAccessError::writing(target, EIO);
        real_.replaceItem(target, replacement);
    }
    void moveItem(const stdfs::path& from, const stdfs::path& to) override {
        if (failMove) throw FileAccessError::writing(to, EIO);
        real_.moveItem(from, to);
    }
    void removeItem(const stdfs::path& path) override { real_.removeItem(path); }
    void createDirectories(const stdfs::path& path) override { real_.createDirectories(path); }

private:
    PosixFileOperations real_;
};

FileAccessError::Code codeOf(const std::function<void()>& f) {
    try {
        f();
    } catch (const FileAccessError& e) {
        return e.code();
    }
    ADD_FAILURE() << "no FileAccessError";
    return FileAccessError::Code::fileWriteUnknown;
}

class StagingTest : public ::testing::Test {
protected:
    TempDir dir;
    stdfs::path staging = dir / "container/Staging";
    stdfs::path outside = dir / "outside";
    std::shared_ptr<FakeClock> clock = std::make_shared<FakeClock>();
    std::shared_ptr<FileCoordinator> coordinator = std::make_shared<FileCoordinator>(clock);
    std::shared_ptr<FaultyFileOperations> files = std::make_shared<FaultyFileOperations>();
    StagingService service{staging, coordinator, files};

    void SetUp() override {
        stdfs::create_directories(outside);
        writeFile(outside / "precious.docx", "the user's only copy");
    }
    stdfs::path staged(const std::string& name, const std::string& content) {
        stdfs::create_directories(staging);
        writeFile(staging / name, content);
        return staging / name;
    }
    void expectOutsideUntouched() {
        EXPECT_EQ(readFile(outside / "precious.docx"), "the user's only copy");
        EXPECT_EQ(listing(outside), (std::set<std::string>{"precious.docx"}));
    }
};

TEST_F(StagingTest, stageCopyMakesAFreshlyNamedCopyAndKeepsOnlyTheExtension) {
    writeFile(dir / "Quarterly report.docx", "report");
    writeFile(dir / "README", "no extension");
    const auto first = service.stageCopy(dir / "Quarterly report.docx");
    const auto second = service.stageCopy(dir / "Quarterly report.docx");
    const auto bare = service.stageCopy(dir / "README");
    EXPECT_EQ(first.parent_path(), staging);
    EXPECT_NE(first, second);
    EXPECT_EQ(first.extension(), ".docx");
    EXPECT_EQ(first.stem().string().size(), 36u);  // a UUID
    EXPECT_EQ(readFile(first), "report");
    EXPECT_EQ(bare.filename().string().back(), '.');
    EXPECT_EQ(readFile(bare), "no extension");
    EXPECT_EQ(readFile(dir / "Quarterly report.docx"), "report");
}

TEST_F(StagingTest, stageCopyOfAMissingFileFailsAndLeavesNothing) {
    EXPECT_EQ(codeOf([&] { service.stageCopy(dir / "gone.pdf"); }), FileAccessError::Code::fileReadNoSuchFile);
    EXPECT_TRUE(listing(staging).empty());
}

TEST_F(StagingTest, deleteIfExistsActsOnlyInsideStaging) {
    const auto inside = staged("A.pdf", "staged");
    staged("keep.pdf", "staged");
    stdfs::create_symlink(outside / "precious.docx", staging / "link-out.docx");
    stdfs::create_symlink(outside, staging / "dir-out");
    stdfs::create_directories(staging / "sub");
    stdfs::create_symlink(outside, staging / "sub/hop");
    struct Case {
        const char* name;
        std::optional<stdfs::path> url;
        bool stagedFileGoes;
    };
    const std::vector<Case> cases = {
        {"no url", std::nullopt, false},
        {"a missing file", staging / "missing.pdf", false},
        {"a file outside", outside / "precious.docx", false},
        {"dot-dot out of staging", staging / ".." / ".." / "outside" / "precious.docx", false},
        {"a link inside staging to a file outside", staging / "link-out.docx", false},
        {"a file below a linked folder", staging / "dir-out" / "precious.docx", false},
        {"a link and dot-dot that the kernel resolves outside", staging / "sub/hop/../../precious.docx", false},
        {"the staging directory itself", staging, false},
        {"the staging directory through dot-dot", staging / "sub" / "..", false},
        {"a staged file", inside, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        service.deleteIfExists(c.url);
        EXPECT_EQ(stdfs::exists(inside), !c.stagedFileGoes);
        EXPECT_TRUE(stdfs::exists(staging / "keep.pdf"));
        expectOutsideUntouched();
    }
}

TEST_F(StagingTest, replaceStagedCopySwapsTheContentAndLeavesNoTemporary) {
    const auto copy = staged("ABC.pdf", "old");
    writeFile(dir / "user.pdf", "new content");
    EXPECT_EQ(service.replaceStagedCopy(copy, dir / "user.pdf"), copy);
    EXPECT_EQ(readFile(copy), "new content");
    EXPECT_EQ(listing(staging), (std::set<std::string>{"ABC.pdf"}));
    // A staged path whose file is gone is filled by a move.
    const auto missing = staging / "DEF.pdf";
    service.replaceStagedCopy(missing, dir / "user.pdf");
    EXPECT_EQ(readFile(missing), "new content");
}

TEST_F(StagingTest, replaceStagedCopyRefusesEveryTargetOutsideStagingAndCreatesNothing) {
    staged("a.pdf", "staged");
    writeFile(dir / "user.pdf", "attacker-chosen content");
    stdfs::create_symlink(outside / "precious.docx", staging / "link-out.docx");
    stdfs::create_symlink(outside, staging / "dir-out");
    stdfs::create_directories(staging / "sub");
    stdfs::create_symlink(outside, staging / "sub/hop");
    const std::vector<std::pair<const char*, stdfs::path>> cases = {
        {"a file outside", outside / "precious.docx"},
        {"a new file outside", outside / "new.pdf"},
        {"dot-dot out of staging", staging / ".." / ".." / "outside" / "new.pdf"},
        {"a link inside staging to a file outside", staging / "link-out.docx"},
        {"a new file below a linked folder", staging / "dir-out" / "new.pdf"},
        {"a link and dot-dot that the kernel resolves outside", staging / "sub/hop/../../new.pdf"},
    };
    for (const auto& [name, target] : cases) {
        SCOPED_TRACE(name);
        EXPECT_EQ(codeOf([&] { service.replaceStagedCopy(target, dir / "user.pdf"); }),
                  FileAccessError::Code::fileWriteNoPermission);
        expectOutsideUntouched();
        EXPECT_EQ(listing(staging), (std::set<std::string>{"a.pdf", "link-out.docx", "dir-out", "sub"}));
    }
}

TEST_F(StagingTest, aStagedCopyReplacedByALinkIsNeitherWrittenThroughNorDeletedThrough) {
    const auto copy = staged("X.docx", "staged");
    stdfs::remove(copy);
    stdfs::create_symlink(outside / "precious.docx", copy);
    writeFile(dir / "user.docx", "new");
    EXPECT_EQ(codeOf([&] { service.replaceStagedCopy(copy, dir / "user.docx"); }), FileAccessError::Code::fileWriteNoPermission);
    service.deleteIfExists(copy);
    expectOutsideUntouched();
}

TEST_F(StagingTest, aFailedSwapKeepsTheOldCopyAndLeavesNoTemporary) {
    const auto copy = staged("K.pdf", "old copy");
    writeFile(dir / "user.pdf", "new");
    struct Case {
        const char* name;
        bool replace, move, copyMidway;
        stdfs::path target;
    };
    const std::vector<Case> cases = {
        {"the rename over the copy fails", true, false, false, copy},
        {"the copy of the source fills the disk", false, false, true, copy},
        {"the move into a missing copy's place fails", false, true, false, staging / "L.pdf"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        files->failReplace = c.replace;
        files->failMove = c.move;
        files->failCopyMidway = c.copyMidway;
        EXPECT_THROW(service.replaceStagedCopy(c.target, dir / "user.pdf"), FileAccessError);
        EXPECT_EQ(readFile(copy), "old copy");
        EXPECT_EQ(listing(staging), (std::set<std::string>{"K.pdf"}));
    }
}

TEST(StagingService, fallsBackToTheStagedCopyExactlyForAMissingOrUnreadableFile) {
    using C = FileAccessError::Code;
    const std::vector<std::pair<std::exception_ptr, bool>> cases = {
        {std::make_exception_ptr(FileAccessError(C::fileReadNoPermission, "/a")), true},
        {std::make_exception_ptr(FileAccessError(C::fileReadNoSuchFile, "/a")), true},
        {std::make_exception_ptr(FileAccessError(C::fileNoSuchFile, "/a")), true},
        {std::make_exception_ptr(FileAccessError(C::fileReadUnknown, "/a")), false},
        {std::make_exception_ptr(FileAccessError(C::fileWriteNoPermission, "/a")), false},
        {std::make_exception_ptr(FileCoordinationError::timedOut("/a", 5)), false},
        {std::make_exception_ptr(CloudMaterializationError::downloadFailed("a")), false},
        {std::make_exception_ptr(std::runtime_error("other")), false},
        {nullptr, false},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(StagingService::shouldFallBackToStagedCopy(cases[i].first), cases[i].second);
    }
}

TEST(StagingService, canonicalPathOfAFileNotYetMadeIsItsResolvedFolderPlusItsName) {
    TempDir dir;
    stdfs::create_directories(dir / "real");
    stdfs::create_symlink(dir / "real", dir / "alias");
    const auto real = StagingService::canonicalizedPath(dir / "real");
    EXPECT_EQ(StagingService::canonicalizedPath(dir / "alias/new.pdf"), real + "/new.pdf");
    EXPECT_EQ(StagingService::canonicalizedPath(dir / "alias/./x/../new.pdf"), real + "/new.pdf");
    writeFile(dir / "real/new.pdf", "");
    EXPECT_EQ(StagingService::canonicalizedPath(dir / "alias/new.pdf"), real + "/new.pdf");
}

class RefreshTest : public StagingTest {
protected:
    int accessStops = 0;
    CloudFileMaterializer materializer{std::make_shared<DefaultCloudFileResourceProvider>(), coordinator, clock};

    StagedInputRequest request(const stdfs::path& copy, std::function<stdfs::path()> resolve) {
        return StagedInputRequest{copy, std::move(resolve), [this] { ++accessStops; }};
    }
};

TEST_F(RefreshTest, aRecordWithoutBookmarkGetsItsStagedCopyUnchanged) {
    const auto copy = staged("S.pdf", "staged");
    const auto refreshed = service.refreshStagedInput(StagedInputRequest{copy, {}, {}}, materializer, 30);
    EXPECT_EQ(refreshed.url, copy);
    EXPECT_FALSE(refreshed.fileSizeBytes);
    EXPECT_EQ(readFile(copy), "staged");
}

TEST_F(RefreshTest, theStagedCopyIsRefreshedFromTheUsersFile) {
    const auto copy = staged("S.pdf", "old");
    writeFile(dir / "user.pdf", "edited since");
    const auto refreshed = service.refreshStagedInput(request(copy, [&] { return dir / "user.pdf"; }), materializer, 30);
    EXPECT_EQ(refreshed.url, copy);
    EXPECT_EQ(refreshed.fileSizeBytes, 12);
    EXPECT_EQ(readFile(copy), "edited since");
    EXPECT_EQ(accessStops, 1);
    EXPECT_EQ(listing(staging), (std::set<std::string>{"S.pdf"}));
}

TEST_F(RefreshTest, aMissingOrUnreadableUsersFileFallsBackToTheStagedCopy) {
    const auto copy = staged("S.pdf", "staged");
    struct Case {
        const char* name;
        std::function<stdfs::path()> resolve;
        int stops;
    };
    const std::vector<Case> cases = {
        {"the bookmark no longer resolves",
         [] () -> stdfs::path { throw FileAccessError(FileAccessError::Code::fileReadNoPermission, "/gone.pdf"); }, 0},
        {"the file went after resolving", [&] { return dir / "deleted.pdf"; }, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        accessStops = 0;
        const auto refreshed = service.refreshStagedInput(request(copy, c.resolve), materializer, 30);
        EXPECT_EQ(refreshed.url, copy);
        EXPECT_FALSE(refreshed.fileSizeBytes);
        EXPECT_EQ(readFile(copy), "staged");
        EXPECT_EQ(accessStops, c.stops);
    }
}

TEST_F(RefreshTest, aUsersFileThatIsTheStagedCopyIsNotCopiedOntoItself) {
    const auto copy = staged("S.pdf", "staged");
    const auto refreshed = service.refreshStagedInput(request(copy, [&] { return staging / "." / "S.pdf"; }), materializer, 30);
    EXPECT_EQ(refreshed.fileSizeBytes, 6);
    EXPECT_EQ(readFile(copy), "staged");
}

TEST_F(RefreshTest, aDownloadThatTimesOutReachesTheCaller) {
    // An iCloud item that never finishes downloading.
    class NeverDownloads : public CloudFileResourceProviding {
        bool isUbiquitousItem(const stdfs::path&) const override { return true; }
        std::optional<UbiquitousDownloadingStatus> downloadingStatus(const stdfs::path&) const override {
            return UbiquitousDownloadingStatus::notDownloaded;
        }
        bool isPlaceholder(const stdfs::path&) const override { return false; }
        void startDownloadingUbiquitousItem(const stdfs::path&) const override {}
    };
    const auto copy = staged("S.pdf", "staged");
    writeFile(dir / "cloud.pdf", "x");
    CloudFileMaterializer cloud(std::make_shared<NeverDownloads>(), coordinator, clock);
    try {
        service.refreshStagedInput(request(copy, [&] { return dir / "cloud.pdf"; }), cloud, 10);
        ADD_FAILURE() << "no failure";
    } catch (const CloudMaterializationError& e) {
        EXPECT_EQ(e.errorCase(), CloudMaterializationError::Case::downloadTimedOut);
    }
    EXPECT_EQ(accessStops, 1);
    EXPECT_EQ(readFile(copy), "staged");
}

TEST_F(RefreshTest, aUsersFileOnAHungMountGivesTheCoordinationTimeOut) {
    const auto copy = staged("S.pdf", "staged");
    const auto fifo = dir / "hung.pdf";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    auto call = std::async(std::launch::async, [&] {
        try {
            service.refreshStagedInput(request(copy, [&] { return fifo; }), materializer, 45);
        } catch (const FileCoordinationError& e) {
            return std::string(e.what());
        }
        return std::string("(no time-out)");
    });
    const int writer = openWriterOnceRead(fifo);
    clock->waitForPendingAlarms(1);
    clock->advance(45s);
    EXPECT_EQ(call.get().rfind("Timed out after 45s waiting for coordinated access to \u201chung.pdf\u201d.", 0), 0u);
    EXPECT_EQ(readFile(copy), "staged");
    // The mount answers at last; the late body's copy is dropped, and no temporary stays.
    ::close(writer);
    coordinator->coordinateReading(dir / "x", 45, [](const stdfs::path&) {});  // serial: the late body has ended
    EXPECT_EQ(readFile(copy), "staged");
    EXPECT_EQ(listing(staging), (std::set<std::string>{"S.pdf"}));
}

}  // namespace
}  // namespace tavrin
