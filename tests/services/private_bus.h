#pragma once
// A session bus of a test's own: a private dbus-daemon, gone when the object goes, and the
// process helpers that the bus tests start their second processes with.

#include <sys/types.h>

#include <string>
#include <vector>

namespace tavrin::testing {

// Starts `argv` (no shell) with `extraEnvironment` ("NAME=value", taking precedence over this
// process's environment) and its standard output on `stdoutFd` when given. -1 on failure.
pid_t spawnProcess(const std::vector<std::string>& argv, const std::vector<std::string>& extraEnvironment = {},
                   int stdoutFd = -1);
// The exit status of `pid`, or -1 when it did not exit normally.
int waitForProcess(pid_t pid);

class PrivateBus {
public:
    PrivateBus();
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;
    // Empty when the daemon did not start.
    const std::string& address() const { return address_; }

private:
    pid_t daemon_ = -1;
    std::string address_;
};

}  // namespace tavrin::testing
