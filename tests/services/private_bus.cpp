#include "private_bus.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace tavrin::testing {

pid_t spawnProcess(const std::vector<std::string>& argv, const std::vector<std::string>& extraEnvironment,
                   int stdoutFd) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (stdoutFd >= 0) posix_spawn_file_actions_adddup2(&actions, stdoutFd, STDOUT_FILENO);
    std::vector<char*> args;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    std::vector<std::string> environment(extraEnvironment);
    for (char** e = environ; *e; ++e) environment.emplace_back(*e);  // the first of a name wins
    std::vector<char*> env;
    for (auto& e : environment) env.push_back(e.data());
    env.push_back(nullptr);
    pid_t pid = -1;
    const int rc = ::posix_spawn(&pid, args[0], &actions, nullptr, args.data(), env.data());
    posix_spawn_file_actions_destroy(&actions);
    return rc == 0 ? pid : -1;
}

int waitForProcess(pid_t pid) {
    int status = 0;
    if (pid <= 0 || ::waitpid(pid, &status, 0) != pid) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

PrivateBus::PrivateBus() {
    int fds[2];
    if (::pipe(fds) != 0) return;
    daemon_ = spawnProcess({"/usr/bin/dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address"}, {},
                           fds[1]);
    ::close(fds[1]);
    char c = 0;
    while (daemon_ > 0 && ::read(fds[0], &c, 1) == 1 && c != '\n') address_ += c;
    ::close(fds[0]);
}

PrivateBus::~PrivateBus() {
    if (daemon_ > 0) {
        ::kill(daemon_, SIGTERM);
        waitForProcess(daemon_);
    }
}

}  // namespace tavrin::testing
