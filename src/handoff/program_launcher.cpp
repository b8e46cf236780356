#include "handoff/program_launcher.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace tavrin {

namespace {

bool isExecutable(const std::filesystem::path& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && ::access(path.c_str(), X_OK) == 0;
}

}  // namespace

std::optional<std::filesystem::path> findExecutable(std::string_view name) {
    if (name.empty()) return std::nullopt;
    if (name.find('/') != std::string_view::npos) {
        std::filesystem::path path(name);
        return isExecutable(path) ? std::optional(path) : std::nullopt;
    }
    const char* pathVariable = std::getenv("PATH");
    const std::string_view paths = pathVariable ? pathVariable : "/usr/local/bin:/usr/bin:/bin";
    std::size_t start = 0;
    while (start <= paths.size()) {
        const auto end = paths.find(':', start);
        const auto dir = paths.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start);
        if (!dir.empty()) {
            const auto candidate = std::filesystem::path(dir) / name;
            if (isExecutable(candidate)) return candidate;
        }
        if (end == std::string_view::npos) break;
        start = end + 1;
    }
    return std::nullopt;
}

std::optional<int> spawnProgram(const std::vector<std::string>& argv) {
    if (argv.empty()) return std::nullopt;
    const auto executable = findExecutable(argv.front());
    if (!executable) return std::nullopt;
    std::vector<char*> args;
    for (const auto& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    pid_t pid = 0;
    const int error = ::posix_spawn(&pid, executable->c_str(), &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) return std::nullopt;
    return static_cast<int>(pid);
}

std::optional<int> waitForProgram(int pid) {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return std::nullopt;
    }
    if (!WIFEXITED(status)) return std::nullopt;
    return WEXITSTATUS(status);
}

bool SpawnProgramLauncher::launch(const std::vector<std::string>& argv) {
    const auto pid = spawnProgram(argv);
    if (!pid) return false;
    std::thread([pid = *pid] { waitForProgram(pid); }).detach();
    return true;
}

std::optional<int> SpawnProgramLauncher::run(const std::vector<std::string>& argv) {
    const auto pid = spawnProgram(argv);
    if (!pid) return std::nullopt;
    return waitForProgram(*pid);
}

}  // namespace tavrin
