// The queue through the built program, with its store in a private XDG data folder and its
// outputs in a private TMPDIR: a whole session, two runs at once on one store, and runs killed
// with SIGKILL at three points of a 500-file queue.

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <map>
#include <set>
#include <sys/wait.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "../image/image_fixtures.h"
#include "data/queries.h"
#include "data/shared_container.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

namespace stdfs = std::filesystem;
using nlohmann::json;
using testing::readFile;
using testing::shellQuote;
using testing::writeFile;

class QueueCommandLine : public ::testing::Test {
protected:
    testing::TempDir dir;
    stdfs::path data = dir / "data";
    stdfs::path tmp = dir / "tmp";
    stdfs::path user = dir / "user";

    void SetUp() override {
        stdfs::create_directories(tmp);
        stdfs::create_directories(user);
    }
    std::string bin() const {
        const char* b = std::getenv("TAVRIN_BIN");
        return b ? b : "build/bin/tavrin";
    }
    std::string env() const {
        return "XDG_DATA_HOME=" + shellQuote(data.string()) + " TMPDIR=" + shellQuote(tmp.string()) + " ";
    }
    int tavrin(const std::string& arguments, std::string* out = nullptr) const {
        std::string text;
        const int status = testing::runCommand(env() + shellQuote(bin()) + " " + arguments + " 2>/dev/null", &text);
        if (out) *out = text;
        return status;
    }
    json tavrinJSON(const std::string& arguments) const {
        std::string out;
        EXPECT_EQ(tavrin(arguments + " --json", &out), 0) << arguments;
        return json::parse(out);
    }
    std::map<std::string, std::string> userFiles() const {
        std::map<std::string, std::string> out;
        for (const auto& e : stdfs::recursive_directory_iterator(user)) out[e.path().string()] = readFile(e.path());
        return out;
    }
    void makeFiles(int count) {
        const auto jpeg = testing::images::dirtyJPEG();
        const auto png = testing::images::dirtyPNG();
        for (int i = 0; i < count; ++i)
            writeFile(user / ("file" + std::to_string(i) + (i % 2 ? ".png" : ".jpg")), i % 2 ? png : jpeg);
    }
    std::set<std::string> outputFolders() const {
        std::set<std::string> out;
        for (const auto& e : stdfs::directory_iterator(tmp))
            if (e.path().filename().string().starts_with("tavrin_output")) out.insert(e.path().string());
        return out;
    }
};

TEST_F(QueueCommandLine, aWholeSessionAddsProcessesListsTheHistoryAndRemoves) {
    makeFiles(3);
    writeFile(user / ".hidden.jpg", "x");
    writeFile(user / "notes.xyz", "not a type Tavrin knows");
    const auto before = userFiles();
    std::string out;
    EXPECT_EQ(tavrin("queue add " + shellQuote(user.string()), &out), 0);
    EXPECT_NE(out.find("Added 3 files from 1 folder (1 unsupported skipped)"), std::string::npos) << out;
    EXPECT_EQ(tavrin("queue set-preset maximum-privacy --all", &out), 0);
    EXPECT_NE(out.find("3 files ready with \u201CMaximum Privacy\u201D"), std::string::npos) << out;

    const json run = tavrinJSON("queue process");
    ASSERT_EQ(run.size(), 3u);
    for (const auto& r : run) EXPECT_TRUE(r.value("outputPath", json()).is_string()) << r.dump();
    const json history = tavrinJSON("history");
    ASSERT_EQ(history.size(), 3u);
    for (const auto& h : history) {
        EXPECT_EQ(h["presetName"], "Maximum Privacy");
        EXPECT_TRUE(stdfs::exists(h["cleanedFilePath"].get<std::string>()));
        EXPECT_EQ(stdfs::path(h["originalFilePath"].get<std::string>()).parent_path(), user);
    }
    EXPECT_EQ(tavrinJSON("queue list").size(), 3u);
    EXPECT_EQ(tavrin("queue remove --all"), 0);
    EXPECT_TRUE(tavrinJSON("queue list").empty());
    EXPECT_TRUE(outputFolders().empty());
    EXPECT_TRUE(stdfs::is_empty(data / "Tavrin" / "Staging"));
    EXPECT_EQ(tavrinJSON("history").size(), 3u);
    EXPECT_EQ(userFiles(), before);
}

TEST_F(QueueCommandLine, aFolderOverTheFileCapIsReportedNotDroppedSilently) {
    const auto jpeg = testing::images::dirtyJPEG();
    for (int i = 0; i < 2001; ++i) writeFile(user / ("scan" + std::to_string(i) + ".jpg"), jpeg);
    std::string out;
    EXPECT_EQ(tavrin("queue add " + shellQuote(user.string()), &out), 0);
    EXPECT_NE(out.find("Added 2000 files from 1 folder. Stopped at the 2000-file limit"), std::string::npos)
        << out.substr(out.size() > 400 ? out.size() - 400 : 0);
    EXPECT_EQ(tavrinJSON("queue list").size(), 2000u);
}

TEST_F(QueueCommandLine, exportNeverOverwritesAndAnUnknownPresetIsAUsageError) {
    makeFiles(1);
    EXPECT_EQ(tavrin("queue add --preset 'location only' " + shellQuote((user / "file0.jpg").string())), 0);
    EXPECT_EQ(tavrin("queue add --preset nonsense " + shellQuote((user / "file0.jpg").string())), 2);
    EXPECT_EQ(tavrin("queue process"), 0);
    const auto out = dir / "out";
    stdfs::create_directories(out);
    writeFile(out / "file0.jpg", "the user's own");
    EXPECT_EQ(tavrin("queue export " + shellQuote(out.string())), 0);
    EXPECT_EQ(readFile(out / "file0.jpg"), "the user's own");
    EXPECT_TRUE(stdfs::exists(out / "file0 2.jpg"));
}

TEST_F(QueueCommandLine, twoRunsAtOnceCleanEveryFileOnceAndNeitherFails) {
    makeFiles(40);
    ASSERT_EQ(tavrin("queue add --preset maximum-privacy " + shellQuote(user.string())), 0);
    const std::string one = env() + shellQuote(bin()) + " queue process --json > " + shellQuote((dir / "a.json").string());
    const std::string two = env() + shellQuote(bin()) + " queue process --json > " + shellQuote((dir / "b.json").string());
    const std::string both = "(" + one + ") & a=$!; (" + two + ") & b=$!; wait $a; ra=$?; wait $b; rb=$?; "
                             "echo $ra $rb";
    std::string statuses;
    ASSERT_EQ(testing::runCommand(both, &statuses), 0);
    EXPECT_EQ(statuses, "0 0\n");
    std::multiset<std::string> cleaned;
    for (const auto* name : {"a.json", "b.json"})
        for (const auto& r : json::parse(readFile(dir / name))) cleaned.insert(r["id"].get<std::string>());
    EXPECT_EQ(cleaned.size(), 40u);
    EXPECT_EQ(std::set<std::string>(cleaned.begin(), cleaned.end()).size(), 40u) << "a file was cleaned twice";
    EXPECT_EQ(tavrinJSON("history --limit 1000").size(), 40u);
}

// Starts `tavrin queue process`, reads its result lines and kills it with SIGKILL after `lines`.
void processAndKillAfter(const std::string& env, const std::string& bin, int lines) {
    int out[2];
    ASSERT_EQ(::pipe(out), 0);
    const pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        ::dup2(out[1], STDOUT_FILENO);
        ::close(out[0]);
        const std::string command = env + "exec " + bin + " queue process 2>/dev/null";
        ::execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
        ::_exit(127);
    }
    ::close(out[1]);
    int seen = 0;
    char c;
    while (seen < lines && ::read(out[0], &c, 1) == 1)
        if (c == '\n') ++seen;
    ::kill(pid, SIGKILL);
    int status = 0;
    ::waitpid(pid, &status, 0);
    ::close(out[0]);
    EXPECT_TRUE(WIFSIGNALED(status)) << "the run ended before it was killed";
}

TEST_F(QueueCommandLine, aRunKilledAtAnyPointLosesNothingAndLeavesNoStrayOutput) {
    makeFiles(500);
    const auto before = userFiles();
    ASSERT_EQ(tavrin("queue add --preset location-only " + shellQuote(user.string())), 0);
    const auto store = data / "Tavrin" / "Tavrin.store";
    for (int lines : {1, 150, 200}) {
        processAndKillAfter(env(), shellQuote(bin()), lines);
        // The next start recovers the dead run.
        std::string out;
        ASSERT_EQ(tavrin("queue list", &out), 0) << "the store opens after the kill";
        auto container = ModelContainerFactory::atURL(store);
        auto& context = container->mainContext();
        EXPECT_EQ(context.fetchCount(QueueQueries::processingFiles()), 0);
        const auto completed = context.fetch(QueueQueries::completedFiles());
        const auto history = context.fetch(HistoryQueries::recent());
        EXPECT_EQ(history.size(), completed.size());
        std::set<std::string> referenced, historyOutputs;
        for (const auto& h : history) historyOutputs.insert(h->cleanedFilePath.value_or(""));
        for (const auto& f : completed) {
            ASSERT_TRUE(f->cleanedFilePath);
            EXPECT_TRUE(stdfs::exists(*f->cleanedFilePath));
            EXPECT_TRUE(historyOutputs.count(*f->cleanedFilePath)) << "a finished file without its history";
            referenced.insert(stdfs::path(*f->cleanedFilePath).parent_path().string());
        }
        EXPECT_EQ(outputFolders(), referenced) << "an output of the dead run is left in the temporary folder";
        EXPECT_EQ(context.fetchCount(QueueQueries::configuredFiles()) + static_cast<std::int64_t>(completed.size()), 500);
        EXPECT_EQ(userFiles(), before) << "a user's file changed, or a partial file appeared beside them";
    }
    std::string out;
    EXPECT_EQ(tavrin("queue process", &out), 0);
    EXPECT_EQ(tavrinJSON("history --limit 1000").size(), 500u);
}

}  // namespace
}  // namespace tavrin
