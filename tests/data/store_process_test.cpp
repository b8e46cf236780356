// Several processes share one store: writers wait for each other instead of failing, and a
// writer killed in the middle of a save loses that save and nothing else.

#include <gtest/gtest.h>

#include <csignal>
#include <set>
#include <sys/wait.h>
#include <unistd.h>

#include <SQLiteCpp/SQLiteCpp.h>

#include "data/queries.h"
#include "data/shared_container.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

std::shared_ptr<ProcessingHistory> historyRecord(int n) {
    auto h = std::make_shared<ProcessingHistory>();
    h->id = Uuid::random();
    h->fileName = "file " + std::to_string(n) + ".pdf";
    h->processedAt = std::chrono::system_clock::now();
    h->originalSize = n;
    return h;
}

// Each saved record's id goes to `reportFd` after its save returned.
int writeRecords(const std::filesystem::path& url, int saves, int perSave, int reportFd) {
    try {
        auto container = ModelContainerFactory::atURL(url);
        auto& context = container->mainContext();
        for (int s = 0; saves < 0 || s < saves; ++s) {
            std::vector<std::string> ids;
            for (int i = 0; i < perSave; ++i) {
                auto h = historyRecord(s * perSave + i);
                ids.push_back(h->id.uuidString());
                context.insert(h);
            }
            context.save();
            if (reportFd >= 0)
                for (const auto& id : ids)
                    if (write(reportFd, id.data(), id.size()) != static_cast<ssize_t>(id.size())) return 4;
        }
        return 0;
    } catch (const std::exception& e) {
        fprintf(stderr, "writer failed: %s\n", e.what());
        return 3;
    }
}

TEST(StoreProcesses, twoProcessesWritingAtOnceBothSucceed) {
    testing::TempDir dir;
    const auto url = dir / "Tavrin.store";
    int start[2];
    ASSERT_EQ(pipe(start), 0);
    std::vector<pid_t> children;
    for (int c = 0; c < 2; ++c) {
        const pid_t pid = fork();
        if (pid == 0) {
            close(start[1]);
            char go;
            if (read(start[0], &go, 1) != 1) _exit(5);
            // Both open the new store at the same moment too.
            _exit(writeRecords(url, 150, 2, -1));
        }
        children.push_back(pid);
    }
    close(start[0]);
    ASSERT_EQ(write(start[1], "gg", 2), 2);
    close(start[1]);
    for (pid_t pid : children) {
        int status = 0;
        waitpid(pid, &status, 0);
        ASSERT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 0) << "a writer failed (see its message above)";
    }
    auto container = ModelContainerFactory::atURL(url);
    EXPECT_EQ(container->mainContext().fetchCount(HistoryQueries::recent()), 600);
}

TEST(StoreProcesses, aWriterKilledMidSaveLeavesEveryCommittedRecord) {
    testing::TempDir dir;
    const auto url = dir / "Tavrin.store";
    int report[2];
    ASSERT_EQ(pipe(report), 0);
    const pid_t pid = fork();
    if (pid == 0) {
        close(report[0]);
        _exit(writeRecords(url, -1, 7, report[1]));
    }
    close(report[1]);

    std::set<std::string> committed;
    std::string pending;
    char buffer[4096];
    bool killed = false;
    for (;;) {
        const ssize_t n = read(report[0], buffer, sizeof buffer);
        if (n <= 0) break;
        pending.append(buffer, static_cast<std::size_t>(n));
        while (pending.size() >= 36) {
            committed.insert(pending.substr(0, 36));
            pending.erase(0, 36);
        }
        if (!killed && committed.size() >= 300) {
            kill(pid, SIGKILL);
            killed = true;
        }
    }
    close(report[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the writer ended on its own with " << WEXITSTATUS(status);

    {
        SQLite::Database db(url.string(), SQLite::OPEN_READWRITE);
        EXPECT_EQ(db.execAndGet("PRAGMA integrity_check").getString(), "ok");
    }
    auto container = ModelContainerFactory::atURL(url);
    std::set<std::string> stored;
    for (const auto& h : container->mainContext().fetch(HistoryQueries::recent())) stored.insert(h->id.uuidString());
    for (const auto& id : committed) EXPECT_TRUE(stored.count(id)) << id << " was committed but is gone";
    EXPECT_EQ(stored.size() % 7, 0u) << "a save is all or nothing";
}

}  // namespace
}  // namespace tavrin
