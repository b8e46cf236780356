// Temporary folders claimed by a lock: a live claim keeps its folder, a dead one loses it.
#include <gtest/gtest.h>

#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utime.h>

#include "model/temporary_directories.h"
#include "model/temporary_file.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

const std::string kUuid = "0A1B2C3D-4E5F-4A6B-8C7D-8E9FA0B1C2D3";

void makeOld(const std::filesystem::path& p) {
    struct utimbuf old {};
    old.actime = old.modtime = ::time(nullptr) - 3 * 3600;
    ::utime(p.c_str(), &old);
}

// Holds `path` locked from a child process that stays alive until killed, as another run would.
pid_t holdLockInChild(const std::filesystem::path& path) {
    int ready[2];
    EXPECT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        const int fd = ::open(path.c_str(), O_RDWR);
        ::flock(fd, LOCK_EX);
        (void)!::write(ready[1], "x", 1);
        for (;;) ::pause();
    }
    char c;
    EXPECT_EQ(::read(ready[0], &c, 1), 1);
    ::close(ready[0]);
    ::close(ready[1]);
    return child;
}

TEST(TemporaryDirectories, sweepRemovesOnlyFoldersNoLiveProcessHolds) {
    struct Case {
        const char* name;
        bool claim;          // a claim file beside the folder
        bool claimHasPid;    // the claim was fully made
        bool heldByLiveRun;  // another process holds the claim locked
        bool old;            // folder and claim are hours old
        bool removed;
    };
    const std::vector<Case> cases = {
        {"claim of a run that died", true, true, false, false, true},
        {"claim held by a live run", true, true, true, false, false},
        {"claim held by a live run, hours old", true, true, true, true, false},
        {"claim being made right now", true, false, false, false, false},
        {"claim that was never finished, long ago", true, false, false, true, true},
        {"no claim, from an earlier version, recent", false, false, false, false, false},
        {"no claim, from an earlier version, hours old", false, false, false, true, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        testing::TempDir root;
        const auto folder = root / ("tavrin_engine_" + kUuid);
        const auto claim = root / ("tavrin_engine_" + kUuid + ".lock");
        std::filesystem::create_directories(folder);
        testing::writeFile(folder / "photo.jpg", "cleaned");
        pid_t holder = -1;
        if (c.claim) {
            testing::writeFile(claim, c.claimHasPid ? "12345\n" : "");
            if (c.heldByLiveRun) holder = holdLockInChild(claim);
            if (c.old) makeOld(claim);
        }
        if (c.old) makeOld(folder);
        testing::writeFile(root / "unrelated.txt", "x");
        std::filesystem::create_directories(root / "tavrin_notes");

        EXPECT_EQ(temporaries::removeStale(root.path()), c.removed ? 1u : 0u);
        EXPECT_EQ(std::filesystem::exists(folder), !c.removed);
        if (c.claim) {
            EXPECT_EQ(std::filesystem::exists(claim), !c.removed);
        }
        EXPECT_TRUE(std::filesystem::exists(root / "unrelated.txt"));
        EXPECT_TRUE(std::filesystem::exists(root / "tavrin_notes"));
        if (holder > 0) {
            ::kill(holder, SIGKILL);
            ::waitpid(holder, nullptr, 0);
            // Once its holder is gone the same folder is stale.
            EXPECT_EQ(temporaries::removeStale(root.path()), 1u);
            EXPECT_FALSE(std::filesystem::exists(folder));
        }
    }
}

TEST(TemporaryDirectories, ownFolderIsClaimedUntilRemoved) {
    const auto folder = TemporaryFile::makeTemporaryDirectory("tavrin_test");
    const auto claim = folder.string() + ".lock";
    ASSERT_TRUE(std::filesystem::is_directory(folder));
    ASSERT_TRUE(std::filesystem::exists(claim));
    EXPECT_TRUE(std::filesystem::is_empty(folder));  // the claim never takes a name inside
    // Another run's sweep leaves a live run's folder alone.
    temporaries::removeStale(folder.parent_path());
    EXPECT_TRUE(std::filesystem::is_directory(folder));
    TemporaryFile::removeTemporaryDirectory(folder);
    EXPECT_FALSE(std::filesystem::exists(folder));
    EXPECT_FALSE(std::filesystem::exists(claim));
}

TEST(TemporaryDirectories, stagedCopiesBesideADestinationGoOnlyWhenUnlocked) {
    testing::TempDir out;
    const auto dead = out / (".report_cleaned.pdf.tavrin-" + kUuid);
    const auto live = out / (".photo_cleaned.jpg.tavrin-" + std::string("1A1B2C3D-4E5F-4A6B-8C7D-8E9FA0B1C2D3"));
    const auto lookalike = out / ".photo_cleaned.jpg.tavrin-notauuid";
    testing::writeFile(dead, "partial");
    testing::writeFile(live, "partial");
    testing::writeFile(lookalike, "partial");
    const pid_t holder = holdLockInChild(live);
    EXPECT_EQ(temporaries::removeStaleStagedFiles(out.path()), 1u);
    EXPECT_FALSE(std::filesystem::exists(dead));
    EXPECT_TRUE(std::filesystem::exists(live));
    EXPECT_TRUE(std::filesystem::exists(lookalike));
    ::kill(holder, SIGKILL);
    ::waitpid(holder, nullptr, 0);
}

}  // namespace
}  // namespace tavrin
