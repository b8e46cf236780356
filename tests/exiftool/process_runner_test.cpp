// The process runner against small shell scripts that misbehave on purpose: they hang, flood
// their output, die by a signal, or echo back what they were given.
#include <gtest/gtest.h>

#include <fstream>
#include <thread>

#include "exiftool/process_runner.h"
#include "exiftool_fixtures.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

using std::chrono::milliseconds;
using testing::TempDir;
using testing::writeStubTool;

ProcessError::Case failureOf(const std::filesystem::path& tool, const ProcessLimits& limits,
                             std::string* text = nullptr) {
    try {
        runProcess(tool, {}, limits);
    } catch (const ProcessError& e) {
        if (text) *text = e.what();
        return e.errorCase();
    }
    ADD_FAILURE() << "the run did not fail";
    return ProcessError::Case::communicationFailed;
}

// A process that is gone, or a zombie whose parent has not reaped it yet, no longer runs.
bool isRunning(const std::string& pid) {
    std::ifstream stat("/proc/" + pid + "/stat");
    if (!stat) return false;
    std::string line;
    std::getline(stat, line);
    const auto close = line.rfind(')');
    return close != std::string::npos && close + 2 < line.size() && line[close + 2] != 'Z';
}

TEST(ProcessRunner, passesEveryArgumentLiterallyWithoutAShell) {
    TempDir dir;
    const auto tool = writeStubTool(dir / "echo-args", "for a in \"$@\"; do printf '%s\\n' \"$a\"; done");
    const std::vector<std::string> args{"a b", "it's", "\"quoted\"", "$(touch " + (dir / "pwned").string() + ")",
                                        "-n", "*", ";", ""};
    const auto out = runProcess(tool, args);
    std::string expected;
    for (const auto& a : args) expected += a + "\n";
    EXPECT_EQ(out.standardOutput, expected);
    EXPECT_EQ(out.exitCode, 0);
    EXPECT_FALSE(std::filesystem::exists(dir / "pwned"));
}

TEST(ProcessRunner, collectsStandardErrorAndTheExitStatus) {
    TempDir dir;
    const auto tool = writeStubTool(dir / "tool", "echo out; echo 'it broke' >&2; exit 3");
    const auto out = runProcess(tool, {});
    EXPECT_EQ(out.exitCode, 3);
    EXPECT_EQ(out.standardOutput, "out\n");
    EXPECT_EQ(out.standardError, "it broke\n");
}

TEST(ProcessRunner, givesTheProgramNoStandardInputToWaitOn) {
    TempDir dir;
    const auto out = runProcess(writeStubTool(dir / "tool", "cat; echo done"), {});
    EXPECT_EQ(out.standardOutput, "done\n");
}

TEST(ProcessRunner, keepsOnlyTheFirstBytesOfAFloodOnStandardError) {
    TempDir dir;
    const auto tool = writeStubTool(dir / "tool", "head -c 300000 /dev/zero >&2; echo fine");
    ProcessLimits limits;
    limits.maxErrorBytes = 1000;
    const auto out = runProcess(tool, {}, limits);
    EXPECT_EQ(out.standardError.size(), 1000u);
    EXPECT_EQ(out.standardOutput, "fine\n");
}

TEST(ProcessRunner, killsAProgramThatOutlivesTheTimeOutWithEverythingItStarted) {
    TempDir dir;
    const auto pidFile = dir / "child.pid";
    const auto tool =
        writeStubTool(dir / "hang", "sleep 300 & echo $! > '" + pidFile.string() + "'; wait; echo '[{}]'");
    ProcessLimits limits;
    limits.timeout = milliseconds(500);
    std::string text;
    EXPECT_EQ(failureOf(tool, limits, &text), ProcessError::Case::timedOut);
    EXPECT_EQ(text, "hang did not finish within 0.5 seconds and was stopped");
    const std::string pid = testing::readFile(pidFile);
    ASSERT_FALSE(pid.empty());
    // SIGKILL is delivered at once, but the kernel may take a moment to tear the process down.
    for (int i = 0; i < 200 && isRunning(pid.substr(0, pid.find('\n'))); ++i)
        std::this_thread::sleep_for(milliseconds(10));
    EXPECT_FALSE(isRunning(pid.substr(0, pid.find('\n'))));
}

TEST(ProcessRunner, timesOutAProgramThatClosesItsOutputButDoesNotExit) {
    TempDir dir;
    const auto tool = writeStubTool(dir / "linger", "exec >&- 2>&-; sleep 300");
    ProcessLimits limits;
    limits.timeout = milliseconds(300);
    EXPECT_EQ(failureOf(tool, limits), ProcessError::Case::timedOut);
}

TEST(ProcessRunner, refusesOutputOverTheLimitWithoutWaitingForTheEnd) {
    TempDir dir;
    ProcessLimits limits;
    limits.maxOutputBytes = 4096;
    std::string text;
    // `yes` never ends: the run can only fail through the cap.
    EXPECT_EQ(failureOf(writeStubTool(dir / "flood", "exec yes"), limits, &text),
              ProcessError::Case::outputTooLarge);
    EXPECT_EQ(text, "flood printed more than 4096 bytes and was stopped; its output was refused");

    limits.maxOutputBytes = 5000;
    const auto exact = runProcess(writeStubTool(dir / "exact", "head -c 5000 /dev/zero"), {}, limits);
    EXPECT_EQ(exact.standardOutput.size(), 5000u);
    EXPECT_EQ(failureOf(writeStubTool(dir / "over", "head -c 5001 /dev/zero"), limits),
              ProcessError::Case::outputTooLarge);
    EXPECT_EQ(ProcessError::outputTooLarge("exiftool", std::size_t{64} << 20).description(),
              "exiftool printed more than 64 MB and was stopped; its output was refused");
}

TEST(ProcessRunner, reportsADeathBySignal) {
    TempDir dir;
    std::string text;
    EXPECT_EQ(failureOf(writeStubTool(dir / "die", "kill -9 $$"), {}, &text),
              ProcessError::Case::terminatedBySignal);
    EXPECT_NE(text.find("die was terminated by signal 9"), std::string::npos) << text;
}

TEST(ProcessRunner, reportsAProgramThatCannotBeStarted) {
    TempDir dir;
    testing::writeFile(dir / "not-executable", "#!/bin/sh\necho hi\n");
    std::string text;
    EXPECT_EQ(failureOf(dir / "missing", {}, &text), ProcessError::Case::launchFailed);
    EXPECT_EQ(text, "missing could not be started: No such file or directory");
    EXPECT_EQ(failureOf(dir / "not-executable", {}, &text), ProcessError::Case::launchFailed);
    EXPECT_EQ(text, "not-executable could not be started: Permission denied");
}

TEST(ProcessRunner, executableFilesAreRegularFilesWithExecutePermission) {
    TempDir dir;
    testing::writeFile(dir / "plain", "data");
    writeStubTool(dir / "script", "true");
    std::filesystem::create_directory(dir / "folder");
    std::filesystem::create_symlink(dir / "script", dir / "link");
    const struct {
        std::filesystem::path path;
        bool executable;
    } cases[] = {
        {dir / "script", true}, {dir / "link", true},    {dir / "plain", false},
        {dir / "folder", false}, {dir / "missing", false}, {"", false},
    };
    for (const auto& c : cases) EXPECT_EQ(isExecutableFile(c.path), c.executable) << c.path;
}

}  // namespace
}  // namespace tavrin
