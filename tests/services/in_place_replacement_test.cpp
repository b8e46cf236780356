// Cleaning in place on real files, each test in a fresh folder with a Trash of its own: the clean
// file takes the original's path with its mode and owner, the original lands in the Trash with
// its .trashinfo, and every failure, injected at each step or by SIGKILL, leaves the original
// at its path, byte for byte.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <set>

#include "services/in_place_replacement.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

namespace stdfs = std::filesystem;
using testing::readFile;
using testing::TempDir;
using testing::writeFile;
using Case = InPlaceReplacementError::Case;

const std::string kOriginal = "original bytes with an author and a place";
const std::string kClean = "clean bytes";

std::set<std::string> listing(const stdfs::path& dir) {
    std::set<std::string> names;
    std::error_code ignored;
    for (const auto& entry : stdfs::directory_iterator(dir, ignored)) names.insert(entry.path().filename().string());
    return names;
}

struct stat statOf(const stdfs::path& path) {
    struct stat st {};
    EXPECT_EQ(::lstat(path.c_str(), &st), 0) << path;
    return st;
}

// A user's folder with one file, a verified clean copy elsewhere, and a Trash of the test's own.
class InPlaceFixture : public ::testing::Test {
protected:
    void SetUp() override {
        stdfs::create_directories(folder());
        stdfs::create_directories(tmp_ / "engine");
        writeFile(original(), kOriginal);
        writeFile(verified(), kClean);
    }
    stdfs::path folder() const { return tmp_ / "Documents"; }
    stdfs::path original() const { return folder() / "report.docx"; }
    stdfs::path verified() const { return tmp_ / "engine" / "report.docx"; }
    stdfs::path trash() const { return tmp_ / "data" / "Trash"; }

    InPlaceReplacement replacement(std::function<int(InPlaceStep)> beforeStep = {}) const {
        InPlaceReplacementOptions options;
        options.homeTrash = trash();
        options.deletionDate = [] { return std::string("2026-03-01T09:15:00"); };
        options.beforeStep = std::move(beforeStep);
        return InPlaceReplacement(options);
    }

    TempDir tmp_;
};

using InPlaceReplacementTest = InPlaceFixture;

TEST_F(InPlaceReplacementTest, putsTheCleanFileAtThePathAndTheOriginalInTheTrash) {
    const auto result = replacement().replace(original(), verified());
    EXPECT_EQ(readFile(original()), kClean);
    EXPECT_EQ(result.trashedPath, trash() / "files" / "report.docx");
    EXPECT_EQ(readFile(result.trashedPath), kOriginal);
    EXPECT_EQ(result.trashInfoPath, trash() / "info" / "report.docx.trashinfo");
    EXPECT_EQ(readFile(result.trashInfoPath), "[Trash Info]\nPath=" + original().string() +
                                                  "\nDeletionDate=2026-03-01T09:15:00\n");
    EXPECT_EQ(readFile(verified()), kClean) << "the verified copy is only read";
    EXPECT_EQ(listing(folder()), std::set<std::string>{"report.docx"}) << "no hidden copy stays behind";
    EXPECT_EQ(statOf(trash() / "files").st_mode & 07777, 0700u);
}

TEST_F(InPlaceReplacementTest, keepsTheOriginalsModeAndOwner) {
    struct Row {
        mode_t mode;
        bool otherOwner;  // only when this process may give files away
    };
    const Row rows[] = {{0600, false}, {0644, false}, {0640, false}, {0755, false}, {0604, true}, {02750, true}};
    for (const auto& row : rows) {
        if (row.otherOwner && ::geteuid() != 0) continue;
        writeFile(original(), kOriginal);
        if (row.otherOwner) {
            ASSERT_EQ(::chown(original().c_str(), 4321, 8765), 0);
        }
        ASSERT_EQ(::chmod(original().c_str(), row.mode), 0);
        const auto before = statOf(original());
        replacement().replace(original(), verified());
        const auto after = statOf(original());
        EXPECT_EQ(after.st_mode & 07777, before.st_mode & 07777) << std::oct << row.mode;
        EXPECT_EQ(after.st_uid, before.st_uid);
        EXPECT_EQ(after.st_gid, before.st_gid);
        EXPECT_EQ(readFile(original()), kClean);
    }
}

TEST_F(InPlaceReplacementTest, encodesThePathAndFindsAFreeNameInTheTrash) {
    const auto name = std::string("r\u00e9sum\u00e9 #1%.pdf");
    const auto path = folder() / name;
    // A name whose info exists, and a next name whose file exists without info, are both taken.
    stdfs::create_directories(trash() / "files");
    stdfs::create_directories(trash() / "info");
    writeFile(trash() / "info" / (name + ".trashinfo"), "[Trash Info]\n");
    writeFile(trash() / "files" / (name + ".2"), "someone else's");
    writeFile(path, kOriginal);

    const auto result = replacement().replace(path, verified());
    EXPECT_EQ(result.trashedPath.filename(), name + ".3");
    EXPECT_EQ(readFile(result.trashedPath), kOriginal);
    EXPECT_EQ(readFile(trash() / "files" / (name + ".2")), "someone else's");
    const auto info = readFile(result.trashInfoPath);
    EXPECT_NE(info.find("Path=" + folder().string() + "/r%C3%A9sum%C3%A9%20%231%25.pdf\n"), std::string::npos)
        << info;

    writeFile(path, kOriginal);
    EXPECT_EQ(replacement().replace(path, verified()).trashedPath.filename(), name + ".4");
}

TEST_F(InPlaceReplacementTest, refusesWhatItMustNotReplace) {
    struct Row {
        const char* what;
        std::function<stdfs::path(const stdfs::path& dir)> make;
        Case expected;
    };
    const Row rows[] = {
        {"a symbolic link",
         [](const stdfs::path& dir) {
             writeFile(dir / "target.docx", kOriginal);
             stdfs::create_symlink(dir / "target.docx", dir / "link.docx");
             return dir / "link.docx";
         },
         Case::originalIsSymbolicLink},
        {"a dangling symbolic link",
         [](const stdfs::path& dir) {
             stdfs::create_symlink(dir / "nowhere", dir / "dangling.docx");
             return dir / "dangling.docx";
         },
         Case::originalIsSymbolicLink},
        {"a folder",
         [](const stdfs::path& dir) {
             stdfs::create_directory(dir / "folder.docx");
             return dir / "folder.docx";
         },
         Case::originalNotRegularFile},
        {"a named pipe",
         [](const stdfs::path& dir) {
             ::mkfifo((dir / "pipe.docx").c_str(), 0600);
             return dir / "pipe.docx";
         },
         Case::originalNotRegularFile},
        {"a file with another hard link",
         [](const stdfs::path& dir) {
             writeFile(dir / "linked.docx", kOriginal);
             stdfs::create_hard_link(dir / "linked.docx", dir / "second name.docx");
             return dir / "linked.docx";
         },
         Case::originalHasOtherLinks},
        {"a missing file", [](const stdfs::path& dir) { return dir / "gone.docx"; }, Case::originalNotAccessible},
    };
    for (const auto& row : rows) {
        TempDir dir;
        const auto path = row.make(dir.path());
        const auto before = listing(dir.path());
        try {
            replacement().replace(path, verified());
            ADD_FAILURE() << row.what << " was replaced";
        } catch (const InPlaceReplacementError& e) {
            EXPECT_EQ(e.errorCase(), row.expected) << row.what << ": " << e.what();
            EXPECT_TRUE(e.originalUnchanged());
        }
        EXPECT_EQ(listing(dir.path()), before) << row.what;
        EXPECT_TRUE(listing(trash() / "info").empty()) << row.what;
    }
    EXPECT_EQ(readFile(folder().parent_path() / "engine" / "report.docx"), kClean);
}

TEST_F(InPlaceReplacementTest, replacesOnlyAnOriginalThatStillHoldsTheCleanedBytes) {
    struct Row {
        const char* what;
        std::string staged;  // the copy that was cleaned
        bool replaced;
    };
    const Row rows[] = {
        {"unchanged since it was staged", kOriginal, true},
        {"saved again with other bytes", kOriginal + " and a later edit", false},
        {"the same length, one byte differs", std::string(kOriginal).replace(0, 1, "O"), false},
        {"emptied", "", false},
    };
    for (const auto& row : rows) {
        writeFile(original(), kOriginal);
        writeFile(tmp_ / "staged", row.staged);
        try {
            replacement().replace(original(), verified(), tmp_ / "staged");
            EXPECT_TRUE(row.replaced) << row.what;
            EXPECT_EQ(readFile(original()), kClean) << row.what;
        } catch (const InPlaceReplacementError& e) {
            EXPECT_FALSE(row.replaced) << row.what << ": " << e.what();
            EXPECT_EQ(e.errorCase(), Case::originalChanged) << row.what;
            EXPECT_EQ(readFile(original()), kOriginal) << row.what;
        }
    }
}

TEST_F(InPlaceReplacementTest, symbolicLinkRefusalLeavesTheTargetAlone) {
    stdfs::create_symlink(original(), folder() / "shortcut.docx");
    EXPECT_THROW(replacement().replace(folder() / "shortcut.docx", verified()), InPlaceReplacementError);
    EXPECT_EQ(readFile(original()), kOriginal);
    EXPECT_TRUE(stdfs::is_symlink(folder() / "shortcut.docx"));
}

TEST_F(InPlaceReplacementTest, aFailureAtAnyStepLeavesTheOriginalByteIdentical) {
    struct Row {
        InPlaceStep step;
        int error;
        Case expected;
    };
    const Row rows[] = {
        {InPlaceStep::examineOriginal, EIO, Case::originalNotAccessible},
        {InPlaceStep::chooseTrash, EACCES, Case::trashUnavailable},
        {InPlaceStep::reserveTrashName, ENOSPC, Case::trashUnavailable},
        {InPlaceStep::writeCopy, ENOSPC, Case::copyFailed},
        {InPlaceStep::syncCopy, EIO, Case::copyFailed},
        {InPlaceStep::verifyCopy, EIO, Case::copyNotVerified},
        {InPlaceStep::keepAttributes, EPERM, Case::ownerNotKept},
        {InPlaceStep::exchange, EXDEV, Case::exchangeFailed},
        {InPlaceStep::moveToTrash, EXDEV, Case::trashMoveFailed},
    };
    for (const auto& row : rows) {
        for (const int exchangeError : {0, EINVAL}) {  // with the exchange, and with the fallback
            if (row.step == InPlaceStep::exchange && exchangeError != 0) continue;
            const auto before = statOf(original());
            auto inject = [&](InPlaceStep s) {
                if (s == row.step) return row.error;
                return s == InPlaceStep::exchange ? exchangeError : 0;
            };
            try {
                replacement(inject).replace(original(), verified());
                ADD_FAILURE() << "step " << int(row.step) << " did not fail";
            } catch (const InPlaceReplacementError& e) {
                EXPECT_EQ(e.errorCase(), row.expected) << int(row.step) << ": " << e.what();
                EXPECT_NE(std::string(e.what()).find(std::strerror(row.error)), std::string::npos) << e.what();
            }
            const auto after = statOf(original());
            EXPECT_EQ(readFile(original()), kOriginal) << int(row.step);
            EXPECT_EQ(after.st_ino, before.st_ino) << "the very same file is back, step " << int(row.step);
            EXPECT_EQ(after.st_nlink, 1u);
            EXPECT_EQ(listing(folder()), std::set<std::string>{"report.docx"}) << int(row.step);
            EXPECT_TRUE(listing(trash() / "info").empty()) << int(row.step);
            EXPECT_TRUE(listing(trash() / "files").empty()) << int(row.step);
        }
    }
}

TEST_F(InPlaceReplacementTest, withoutTheExchangeTheFallbackStillReplaces) {
    const auto result =
        replacement([](InPlaceStep s) { return s == InPlaceStep::exchange ? EINVAL : 0; }).replace(original(), verified());
    EXPECT_EQ(readFile(original()), kClean);
    EXPECT_EQ(readFile(result.trashedPath), kOriginal);
    EXPECT_EQ(statOf(result.trashedPath).st_nlink, 1u);
    EXPECT_EQ(listing(folder()), std::set<std::string>{"report.docx"});
}

TEST_F(InPlaceReplacementTest, aFilePutAtThePathMeanwhileIsPutBackNotTrashed) {
    // Another program saves a new version between the examination and the exchange.
    auto saveNewVersion = [&](InPlaceStep s) {
        if (s == InPlaceStep::keepAttributes) {
            writeFile(folder() / "new.tmp", "the user's newer version");
            stdfs::rename(folder() / "new.tmp", original());
        }
        return 0;
    };
    try {
        replacement(saveNewVersion).replace(original(), verified());
        ADD_FAILURE() << "a changed file was replaced";
    } catch (const InPlaceReplacementError& e) {
        EXPECT_EQ(e.errorCase(), Case::trashMoveFailed) << e.what();
    }
    EXPECT_EQ(readFile(original()), "the user's newer version");
    EXPECT_EQ(listing(folder()), std::set<std::string>{"report.docx"});
    EXPECT_TRUE(listing(trash() / "info").empty());
}

TEST_F(InPlaceReplacementTest, aFileOnAnotherDiskGoesToThatDisksOwnTrash) {
    // /dev/shm is a memory file system on most Linux systems; without one there is nothing to test.
    const stdfs::path shm = "/dev/shm";
    struct stat shmStat {};
    if (::stat(shm.c_str(), &shmStat) != 0 || shmStat.st_dev == statOf(tmp_.path()).st_dev || ::access(shm.c_str(), W_OK) != 0)
        GTEST_SKIP() << "no second writable file system";
    const auto dir = shm / ("tavrin-in-place-" + std::to_string(::getpid()));
    stdfs::create_directories(dir);
    writeFile(dir / "photo.jpg", kOriginal);
    const auto trashDir = shm / (".Trash-" + std::to_string(::geteuid()));
    const bool trashExisted = stdfs::exists(trashDir);

    InPlaceReplacementResult result;
    ASSERT_NO_THROW(result = replacement().replace(dir / "photo.jpg", verified()));
    EXPECT_EQ(readFile(dir / "photo.jpg"), kClean);
    EXPECT_EQ(result.trashedPath.parent_path(), trashDir / "files");
    EXPECT_EQ(readFile(result.trashedPath), kOriginal);
    // Within a disk's own Trash the path is relative to the disk's top folder.
    EXPECT_NE(readFile(result.trashInfoPath).find("\nPath=" + dir.filename().string() + "/photo.jpg\n"),
              std::string::npos);
    EXPECT_FALSE(stdfs::exists(trash() / "files")) << "the home Trash on another disk is not used";

    stdfs::remove(result.trashedPath);
    stdfs::remove(result.trashInfoPath);
    stdfs::remove_all(dir);
    if (!trashExisted) stdfs::remove_all(trashDir);
}

TEST_F(InPlaceReplacementTest, killedAtAnyPointThePathHoldsOneWholeFile) {
    const InPlaceStep points[] = {InPlaceStep::reserveTrashName, InPlaceStep::syncCopy, InPlaceStep::verifyCopy,
                                  InPlaceStep::keepAttributes,   InPlaceStep::exchange, InPlaceStep::moveToTrash};
    for (const auto point : points) {
        writeFile(original(), kOriginal);
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            auto die = [point](InPlaceStep s) {
                if (s == point) ::kill(::getpid(), SIGKILL);
                return 0;
            };
            try {
                replacement(die).replace(original(), verified());
            } catch (...) {
            }
            ::_exit(3);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status)) << int(point);
        const auto content = readFile(original());
        EXPECT_TRUE(content == kOriginal || content == kClean) << int(point) << ": " << content;
        if (point >= InPlaceStep::moveToTrash) {
            EXPECT_EQ(content, kClean);
        } else {
            EXPECT_EQ(content, kOriginal) << int(point);
        }
        // Whatever else stays is a whole copy under a hidden name, never a partial visible file.
        for (const auto& name : listing(folder())) {
            if (name == "report.docx") continue;
            EXPECT_EQ(name.front(), '.') << name;
            const auto leftover = readFile(folder() / name);
            EXPECT_TRUE(leftover == kOriginal || kClean.starts_with(leftover)) << name;
            stdfs::remove(folder() / name);
        }
        stdfs::remove_all(trash());
    }
}

}  // namespace
}  // namespace tavrin
