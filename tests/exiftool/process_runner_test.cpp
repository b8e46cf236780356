// The process runner against small shell scripts that misbehave on purpose.
#include <gtest/gtest.h>

#include <thread>

#include "exiftool/process_runner.h"
#include "exiftool_fixtures.h"

namespace tavrin {
namespace {

using std::chrono::milliseconds;
using testing::TempDir;
using testing::writeStubTool;

using Case = ProcessError::Case;

std::string failureOf(const std::filesystem::path& tool, const ProcessLimits& limits, Case expected) {
    return testing::failureText<ProcessError>([&] { runProcess(tool, {}, limits); }, expected);
}

TEST(ProcessRunner, passesArgumentsLiterallyAndCollectsBothStreamsAndTheStatus) {
    TempDir dir;
    const auto tool = writeStubTool(dir / "echo-args", "cat; for a in \"$@\"; do printf '%s\\n' \"$a\"; done\n"
                                                       "head -c 300000 /dev/zero >&2; exit 3");
    const std::vector<std::string> args{"a b", "it's", "\"q\"", "$(touch " + (dir / "pwned").string() + ")", "-n",
                                        "*", ";", ""};
    ProcessLimits limits;
    limits.maxErrorBytes = 1000;
    // Standard input is /dev/null, so `cat` ends at once; the flood on standard error is cut, not fatal.
    const auto out = runProcess(tool, args, limits);
    std::string expected;
    for (const auto& a : args) expected += a + "\n";
    EXPECT_EQ(out.standardOutput, expected);
    EXPECT_EQ(out.standardError, std::string(1000, '\0'));
    EXPECT_EQ(out.exitCode, 3);
    EXPECT_FALSE(std::filesystem::exists(dir / "pwned"));
}

TEST(ProcessRunner, killsAProgramThatOutlivesTheTimeOutWithEverythingItStarted) {
    TempDir dir;
    const auto pidFile = dir / "child.pid";
    ProcessLimits limits;
    limits.timeout = milliseconds(500);
    EXPECT_EQ(failureOf(writeStubTool(dir / "hang", "sleep 300 & echo $! > '" + pidFile.string() + "'; wait"), limits,
                        Case::timedOut),
              "hang did not finish within 0.5 seconds and was stopped");
    // A process that is gone, or a zombie, no longer runs; SIGKILL may take a moment to land.
    std::string pid = testing::readFile(pidFile);
    pid = pid.substr(0, pid.find('\n'));
    ASSERT_FALSE(pid.empty());
    auto running = [&] {
        std::string stat = testing::readFile("/proc/" + pid + "/stat");
        const auto close = stat.rfind(')');
        return close != std::string::npos && close + 2 < stat.size() && stat[close + 2] != 'Z';
    };
    for (int i = 0; i < 200 && running(); ++i) std::this_thread::sleep_for(milliseconds(10));
    EXPECT_FALSE(running());
    // Closing its output does not end the wait for the program itself.
    limits.timeout = milliseconds(300);
    failureOf(writeStubTool(dir / "linger", "exec >&- 2>&-; sleep 300"), limits, Case::timedOut);
}

TEST(ProcessRunner, refusesOutputOverTheLimitWithoutWaitingForTheEnd) {
    TempDir dir;
    ProcessLimits limits;
    limits.maxOutputBytes = 4096;
    // `yes` never ends: the run can only fail through the cap.
    EXPECT_EQ(failureOf(writeStubTool(dir / "flood", "exec yes"), limits, Case::outputTooLarge),
              "flood printed more than 4096 bytes and was stopped; its output was refused");
    limits.maxOutputBytes = 5000;
    EXPECT_EQ(runProcess(writeStubTool(dir / "exact", "head -c 5000 /dev/zero"), {}, limits).standardOutput.size(),
              5000u);
    failureOf(writeStubTool(dir / "over", "head -c 5001 /dev/zero"), limits, Case::outputTooLarge);
    EXPECT_EQ(ProcessError::outputTooLarge("exiftool", std::size_t{64} << 20).description(),
              "exiftool printed more than 64 MB and was stopped; its output was refused");
}

TEST(ProcessRunner, reportsADeathBySignalAndAProgramThatCannotBeStarted) {
    TempDir dir;
    testing::writeFile(dir / "not-executable", "#!/bin/sh\necho hi\n");
    EXPECT_EQ(failureOf(writeStubTool(dir / "die", "kill -9 $$"), {}, Case::terminatedBySignal),
              "die was terminated by signal 9 (Killed)");
    EXPECT_EQ(failureOf(dir / "missing", {}, Case::launchFailed),
              "missing could not be started: No such file or directory");
    EXPECT_EQ(failureOf(dir / "not-executable", {}, Case::launchFailed),
              "not-executable could not be started: Permission denied");
}

TEST(ProcessRunner, executableFilesAreRegularFilesWithExecutePermission) {
    TempDir dir;
    testing::writeFile(dir / "plain", "data");
    writeStubTool(dir / "script", "true");
    std::filesystem::create_directory(dir / "folder");
    std::filesystem::create_symlink(dir / "script", dir / "link");
    for (const auto& [path, executable] : std::vector<std::pair<std::filesystem::path, bool>>{
             {dir / "script", true}, {dir / "link", true}, {dir / "plain", false}, {dir / "folder", false},
             {dir / "missing", false}, {"", false}})
        EXPECT_EQ(isExecutableFile(path), executable) << path;
}

}  // namespace
}  // namespace tavrin
