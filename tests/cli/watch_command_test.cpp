// `tavrin watch` end to end through the built program: a store under a temporary data home, a
// child `tavrin watch run` on real folders, stopped with SIGTERM.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "support/test_support.h"

extern char** environ;

namespace tavrin {
namespace {

namespace stdfs = std::filesystem;
using namespace std::chrono_literals;
using testing::TempDir;

std::string tavrinBinary() {
    const char* bin = std::getenv("TAVRIN_BIN");
    return bin ? bin : "build/bin/tavrin";
}

const stdfs::path kPhoto = "samples/files/beach-photo.jpg";

// A home of its own: data, runtime and configuration folders under one temporary folder.
class WatchCommandTest : public ::testing::Test {
protected:
    TempDir home;
    std::map<std::string, std::string> environment{
        {"HOME", home.path().string()},
        {"XDG_DATA_HOME", (home / "data").string()},
        {"XDG_RUNTIME_DIR", (home / "run").string()},
        {"XDG_CONFIG_HOME", (home / "config").string()},
    };

    void SetUp() override { stdfs::create_directories(home / "run"); }

    std::vector<std::string> envp() const {
        std::vector<std::string> out;
        for (char** e = environ; *e; ++e) {
            const std::string entry(*e);
            const auto name = entry.substr(0, entry.find('='));
            if (!environment.contains(name) && name != "TAVRIN_USE_IN_MEMORY_STORE") out.push_back(entry);
        }
        for (const auto& [name, value] : environment) out.push_back(name + "=" + value);
        return out;
    }

    // Starts tavrin with `args`, its output going to files; returns the process id.
    pid_t spawn(const std::vector<std::string>& args, const stdfs::path& out, const stdfs::path& err) const {
        std::vector<std::string> argv{tavrinBinary()};
        argv.insert(argv.end(), args.begin(), args.end());
        std::vector<char*> argvp, envpp;
        for (auto& a : argv) argvp.push_back(a.data());
        argvp.push_back(nullptr);
        auto env = envp();
        for (auto& e : env) envpp.push_back(e.data());
        envpp.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        pid_t pid = -1;
        const int rc = posix_spawn(&pid, argvp[0], &actions, nullptr, argvp.data(), envpp.data());
        posix_spawn_file_actions_destroy(&actions);
        return rc == 0 ? pid : -1;
    }

    int wait(pid_t pid) const {
        int status = 0;
        if (::waitpid(pid, &status, 0) != pid) return -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    struct Result {
        int status;
        std::string out;
        std::string err;
    };
    Result tavrin(const std::vector<std::string>& args) const {
        const auto out = home / "cmd.out", err = home / "cmd.err";
        const int status = wait(spawn(args, out, err));
        return {status, testing::readFile(out), testing::readFile(err)};
    }

    // Waits (in real time, with a generous deadline) until `file` holds `text`.
    static bool waitFor(const stdfs::path& file, const std::string& text, int times = 1) {
        for (auto deadline = std::chrono::steady_clock::now() + 90s; std::chrono::steady_clock::now() < deadline;) {
            const auto content = stdfs::exists(file) ? testing::readFile(file) : std::string();
            int found = 0;
            for (auto at = content.find(text); at != std::string::npos; at = content.find(text, at + 1)) ++found;
            if (found >= times) return true;
            std::this_thread::sleep_for(50ms);
        }
        return false;
    }

    static std::vector<nlohmann::json> jsonLines(const stdfs::path& file) {
        std::vector<nlohmann::json> lines;
        std::istringstream in(testing::readFile(file));
        for (std::string line; std::getline(in, line);)
            if (!line.empty()) lines.push_back(nlohmann::json::parse(line));
        return lines;
    }
};

TEST_F(WatchCommandTest, watchRunCleansArrivalsOnceSurvivesALostFolderAndStopsCleanlyOnSigterm) {
    const auto photos = home / "Photos", scans = home / "Scans";
    stdfs::create_directories(photos);
    stdfs::create_directories(scans);
    testing::writeFile(photos / "before.jpg", "baseline, never cleaned");
    ASSERT_EQ(tavrin({"watch", "add", photos.string()}).status, 0);
    ASSERT_EQ(tavrin({"watch", "add", scans.string()}).status, 0);
    ASSERT_EQ(tavrin({"watch", "enable"}).status, 0);

    const auto out = home / "run.out", err = home / "run.err";
    const pid_t child = spawn({"watch", "run", "--json"}, out, err);
    ASSERT_GT(child, 0);
    ASSERT_TRUE(waitFor(err, "Watching 2 folders")) << testing::readFile(err);

    // A download in progress, our own output and a user's "-clean" file are never cleaned.
    stdfs::copy_file(kPhoto, photos / "beach.jpg.crdownload");
    stdfs::copy_file(kPhoto, photos / "mine-clean.jpg");
    stdfs::copy_file(kPhoto, photos / "one.jpg");
    stdfs::copy_file(kPhoto, scans / "two.jpg");
    ASSERT_TRUE(waitFor(out, "\"cleaned\"", 2)) << testing::readFile(out) << testing::readFile(err);
    stdfs::rename(photos / "beach.jpg.crdownload", photos / "beach.jpg");
    ASSERT_TRUE(waitFor(out, "\"cleaned\"", 3)) << testing::readFile(out);

    // The Photos folder goes; Scans carries on; adding Photos again brings it back.
    stdfs::remove_all(photos);
    ASSERT_TRUE(waitFor(err, "the folder was deleted")) << testing::readFile(err);
    stdfs::copy_file(kPhoto, scans / "three.jpg");
    ASSERT_TRUE(waitFor(out, "\"cleaned\"", 4)) << testing::readFile(out);
    stdfs::create_directories(photos);
    ASSERT_EQ(tavrin({"watch", "add", photos.string()}).status, 0);
    ASSERT_TRUE(waitFor(err, "again")) << testing::readFile(err);
    stdfs::copy_file(kPhoto, photos / "four.jpg");
    ASSERT_TRUE(waitFor(out, "\"cleaned\"", 5)) << testing::readFile(out);

    ASSERT_EQ(::kill(child, SIGTERM), 0);
    EXPECT_EQ(wait(child), 0) << testing::readFile(err);

    std::map<std::string, int> cleaned;
    for (const auto& line : jsonLines(out)) {
        ASSERT_EQ(line["event"], "cleaned") << line.dump();
        const auto name = stdfs::path(line["source"].get<std::string>()).filename().string();
        ++cleaned[name];
        // one.jpg and beach.jpg went with their folder.
        if (name != "one.jpg" && name != "beach.jpg") {
            EXPECT_TRUE(stdfs::exists(line["output"].get<std::string>())) << name;
        }
        EXPECT_EQ(line["verifiedClean"], true);
    }
    EXPECT_EQ(cleaned, (std::map<std::string, int>{{"one.jpg", 1}, {"two.jpg", 1}, {"beach.jpg", 1}, {"three.jpg", 1},
                                                   {"four.jpg", 1}}));
    EXPECT_TRUE(stdfs::exists(scans / "two-clean.jpg"));
    EXPECT_FALSE(stdfs::exists(photos / "mine-clean-clean.jpg"));
}

TEST_F(WatchCommandTest, anIdleWatcherUsesNoCpuAndASecondOneIsRefused) {
    const auto folder = home / "Idle";
    stdfs::create_directories(folder);
    ASSERT_EQ(tavrin({"watch", "add", folder.string()}).status, 0);
    ASSERT_EQ(tavrin({"watch", "enable"}).status, 0);
    const auto out = home / "run.out", err = home / "run.err";
    const pid_t child = spawn({"watch", "run"}, out, err);
    ASSERT_TRUE(waitFor(err, "Watching 1 folder")) << testing::readFile(err);
    std::this_thread::sleep_for(500ms);  // past the start-up work

    const auto cpuTicks = [&] {
        std::string stat = testing::readFile(stdfs::path("/proc") / std::to_string(child) / "stat");
        std::istringstream fields(stat.substr(stat.rfind(')') + 2));
        std::vector<std::string> f{std::istream_iterator<std::string>(fields), {}};
        return std::stol(f[11]) + std::stol(f[12]);  // utime + stime, fields 14 and 15
    };
    const long before = cpuTicks();
    std::this_thread::sleep_for(3s);
    const long used = cpuTicks() - before;
    // A poll over its descriptors sleeps; a polling loop would use ticks every second.
    EXPECT_LE(used, 2) << "clock ticks used while idle for 3 s";

    const auto second = tavrin({"watch", "run"});
    EXPECT_EQ(second.status, 1);
    EXPECT_NE(second.err.find("already being watched by another process"), std::string::npos) << second.err;

    ASSERT_EQ(::kill(child, SIGINT), 0);
    EXPECT_EQ(wait(child), 0);
}

TEST_F(WatchCommandTest, foldersAreAddedOnceListedAndRemoved) {
    const auto folder = home / "Inbox";
    stdfs::create_directories(folder);
    EXPECT_EQ(tavrin({"watch", "add", folder.string()}).status, 0);
    EXPECT_EQ(tavrin({"watch", "add", (folder / ".").string()}).status, 0);
    EXPECT_EQ(tavrin({"watch", "add", (home / "nowhere").string()}).status, 1);
    auto list = nlohmann::json::parse(tavrin({"watch", "list", "--json"}).out);
    EXPECT_EQ(list["enabled"], false);
    ASSERT_EQ(list["folders"].size(), 1u);
    EXPECT_EQ(list["folders"][0]["path"], stdfs::canonical(folder).string());
    EXPECT_EQ(tavrin({"watch", "remove", folder.string()}).status, 0);
    EXPECT_EQ(tavrin({"watch", "remove", folder.string()}).status, 1);
    EXPECT_TRUE(nlohmann::json::parse(tavrin({"watch", "list", "--json"}).out)["folders"].empty());
}

TEST_F(WatchCommandTest, installServiceWritesTheUnitAndEnablesItThroughSystemctl) {
    // A systemctl of our own that records how it was called.
    const auto bin = home / "bin";
    stdfs::create_directories(bin);
    testing::writeFile(bin / "systemctl", "#!/bin/sh\necho \"$@\" >> \"$HOME/systemctl.log\"\n");
    stdfs::permissions(bin / "systemctl", stdfs::perms::owner_all);
    environment["PATH"] = bin.string() + ":/usr/bin:/bin";
    const auto installed = tavrin({"watch", "install-service"});
    EXPECT_EQ(installed.status, 0) << installed.err;
    const auto unit = testing::readFile(home / "config/systemd/user/tavrin-watch.service");
    EXPECT_NE(unit.find(" watch run\n"), std::string::npos) << unit;
    EXPECT_NE(unit.find("WantedBy=default.target"), std::string::npos);
    EXPECT_EQ(testing::readFile(home / "systemctl.log"),
              "--user daemon-reload\n--user enable --now tavrin-watch.service\n");

    // Without systemctl the unit is still written, and the message says what to do.
    environment["PATH"] = (home / "empty").string();
    const auto without = tavrin({"watch", "install-service"});
    EXPECT_EQ(without.status, 1);
    EXPECT_NE(without.err.find("systemctl is not available"), std::string::npos) << without.err;
}

}  // namespace
}  // namespace tavrin
