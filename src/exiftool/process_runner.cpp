#include "exiftool/process_runner.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fmt/core.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <optional>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

extern char** environ;

namespace tavrin {

ProcessError::ProcessError(Case c, std::string program, std::string reason, long long number)
    : TypedError(c, std::move(reason)), program_(std::move(program)), number_(number) {
    setText(description());
}

ProcessError ProcessError::launchFailed(std::string program, std::string reason) {
    return {Case::launchFailed, std::move(program), std::move(reason), 0};
}
ProcessError ProcessError::timedOut(std::string program, std::chrono::milliseconds timeout) {
    return {Case::timedOut, std::move(program), {}, static_cast<long long>(timeout.count())};
}
ProcessError ProcessError::outputTooLarge(std::string program, std::size_t limit) {
    return {Case::outputTooLarge, std::move(program), {}, static_cast<long long>(limit)};
}
ProcessError ProcessError::terminatedBySignal(std::string program, int signal) {
    return {Case::terminatedBySignal, std::move(program), {}, signal};
}
ProcessError ProcessError::communicationFailed(std::string program, std::string reason) {
    return {Case::communicationFailed, std::move(program), std::move(reason), 0};
}

namespace {

std::string byteCountText(long long bytes) {
    if (bytes >= (1LL << 20) && bytes % (1LL << 20) == 0) return fmt::format("{} MB", bytes >> 20);
    return fmt::format("{} bytes", bytes);
}

}  // namespace

std::string ProcessError::description() const {
    switch (errorCase()) {
        case Case::launchFailed: return fmt::format("{} could not be started: {}", program_, detail());
        case Case::timedOut:
            return fmt::format("{} did not finish within {:g} {} and was stopped", program_,
                               static_cast<double>(number_) / 1000.0, number_ == 1000 ? "second" : "seconds");
        case Case::outputTooLarge:
            return fmt::format("{} printed more than {} and was stopped; its output was refused", program_,
                               byteCountText(number_));
        case Case::terminatedBySignal:
            return fmt::format("{} was terminated by signal {} ({})", program_, number_,
                               ::strsignal(static_cast<int>(number_)));
        case Case::communicationFailed: return fmt::format("Reading the output of {} failed: {}", program_, detail());
    }
    return {};
}

bool isExecutableFile(const std::filesystem::path& path) {
    struct stat st {};
    if (path.empty() || ::stat(path.c_str(), &st) != 0) return false;
    return S_ISREG(st.st_mode) && ::access(path.c_str(), X_OK) == 0;
}

namespace {

class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int fd) : fd_(fd) {}
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        if (this != &other) {
            reset();
            fd_ = std::exchange(other.fd_, -1);
        }
        return *this;
    }
    ~FileDescriptor() { reset(); }
    int get() const { return fd_; }
    void reset() {
        if (fd_ >= 0) ::close(fd_);
        fd_ = -1;
    }

private:
    int fd_ = -1;
};

struct Pipe {
    FileDescriptor readEnd;
    FileDescriptor writeEnd;
};

// Close-on-exec, so that a program started at the same time by another thread inherits neither end.
Pipe makePipe(const std::string& program) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0)
        throw ProcessError::launchFailed(program, fmt::format("cannot make a pipe: {}", std::strerror(errno)));
    Pipe p;
    p.readEnd = FileDescriptor(fds[0]);
    p.writeEnd = FileDescriptor(fds[1]);
    return p;
}

// Owns the started child: whatever way the runner leaves, the child's group is killed and the
// child reaped unless its exit was already collected.
class Child {
public:
    explicit Child(pid_t pid) : pid_(pid) {}
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child() {
        if (pid_ > 0) {
            kill();
            int status = 0;
            while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
            }
        }
    }
    void kill() const {
        ::kill(-pid_, SIGKILL);  // the whole group: a script's own children hold the pipes too
        ::kill(pid_, SIGKILL);
    }
    // The status once the child has exited; absent while it runs.
    std::optional<int> tryReap() {
        int status = 0;
        pid_t r;
        while ((r = ::waitpid(pid_, &status, WNOHANG)) < 0 && errno == EINTR) {
        }
        if (r == pid_) {
            pid_ = -1;
            return status;
        }
        if (r < 0) throw std::system_error(errno, std::generic_category(), "waitpid");
        return std::nullopt;
    }

private:
    pid_t pid_;
};

class SpawnSetup {
public:
    SpawnSetup() {
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawnattr_init(&attributes);
    }
    ~SpawnSetup() {
        ::posix_spawn_file_actions_destroy(&actions);
        ::posix_spawnattr_destroy(&attributes);
    }
    SpawnSetup(const SpawnSetup&) = delete;
    SpawnSetup& operator=(const SpawnSetup&) = delete;
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
};

}  // namespace

ProcessOutput runProcess(const std::filesystem::path& executable, const std::vector<std::string>& arguments,
                         const ProcessLimits& limits) {
    const std::string program = executable.filename().string();
    const auto deadline = std::chrono::steady_clock::now() + limits.timeout;

    Pipe out = makePipe(program);
    Pipe err = makePipe(program);

    SpawnSetup setup;
    int rc = ::posix_spawn_file_actions_addopen(&setup.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    if (rc == 0) rc = ::posix_spawn_file_actions_adddup2(&setup.actions, out.writeEnd.get(), STDOUT_FILENO);
    if (rc == 0) rc = ::posix_spawn_file_actions_adddup2(&setup.actions, err.writeEnd.get(), STDERR_FILENO);
    // A group of its own, so a time-out can stop everything the program started; default
    // signal handling and an empty mask, whatever this process has set up.
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    if (rc == 0) rc = ::posix_spawnattr_setflags(&setup.attributes,
                                                 POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    if (rc == 0) rc = ::posix_spawnattr_setpgroup(&setup.attributes, 0);
    if (rc == 0) rc = ::posix_spawnattr_setsigmask(&setup.attributes, &none);
    if (rc == 0) rc = ::posix_spawnattr_setsigdefault(&setup.attributes, &all);
    if (rc != 0) throw ProcessError::launchFailed(program, std::strerror(rc));

    std::vector<std::string> argvText;
    argvText.reserve(arguments.size() + 1);
    argvText.push_back(executable.string());
    argvText.insert(argvText.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& a : argvText) argv.push_back(a.data());
    argv.push_back(nullptr);

    pid_t pid = 0;
    rc = ::posix_spawn(&pid, executable.c_str(), &setup.actions, &setup.attributes, argv.data(), environ);
    if (rc != 0) throw ProcessError::launchFailed(program, std::strerror(rc));
    Child child(pid);
    out.writeEnd.reset();
    err.writeEnd.reset();

    ProcessOutput result;
    bool outOpen = true, errOpen = true;
    char buffer[65536];
    auto remainingMilliseconds = [&]() -> int {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        return left.count() <= 0 ? 0 : static_cast<int>(std::min<long long>(left.count(), 60'000));
    };

    while (outOpen || errOpen) {
        pollfd fds[2];
        nfds_t count = 0;
        if (outOpen) fds[count++] = {out.readEnd.get(), POLLIN, 0};
        if (errOpen) fds[count++] = {err.readEnd.get(), POLLIN, 0};
        const int wait = remainingMilliseconds();
        if (wait == 0) throw ProcessError::timedOut(program, limits.timeout);
        const int ready = ::poll(fds, count, wait);
        if (ready < 0) {
            if (errno == EINTR) continue;
            throw ProcessError::communicationFailed(program, std::strerror(errno));
        }
        for (nfds_t i = 0; i < count; ++i) {
            if (fds[i].revents == 0) continue;
            const bool isOut = fds[i].fd == out.readEnd.get();
            const ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
            if (n < 0) {
                if (errno == EINTR || errno == EAGAIN) continue;
                throw ProcessError::communicationFailed(program, std::strerror(errno));
            }
            if (n == 0) {
                (isOut ? outOpen : errOpen) = false;
                continue;
            }
            const auto size = static_cast<std::size_t>(n);
            if (isOut) {
                if (size > limits.maxOutputBytes - result.standardOutput.size())
                    throw ProcessError::outputTooLarge(program, limits.maxOutputBytes);
                result.standardOutput.append(buffer, size);
            } else if (result.standardError.size() < limits.maxErrorBytes) {
                result.standardError.append(buffer, std::min(size, limits.maxErrorBytes - result.standardError.size()));
            }
        }
    }

    // Both pipes are closed; a program that lingers after that still counts against the time-out.
    for (;;) {
        std::optional<int> status;
        try {
            status = child.tryReap();
        } catch (const std::system_error& e) {
            throw ProcessError::communicationFailed(program, e.code().message());
        }
        if (status) {
            if (WIFEXITED(*status)) {
                result.exitCode = WEXITSTATUS(*status);
                return result;
            }
            throw ProcessError::terminatedBySignal(program, WIFSIGNALED(*status) ? WTERMSIG(*status) : 0);
        }
        if (remainingMilliseconds() == 0) throw ProcessError::timedOut(program, limits.timeout);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

}  // namespace tavrin
