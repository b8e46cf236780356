// `tavrin watch run` and `tavrin watch install-service`: the watcher as a foreground program and
// as a systemd user service.
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cstdlib>
#include <fmt/format.h>
#include <fstream>
#include <iostream>
#include <mutex>
#include <nlohmann/json.hpp>

#include "cli.h"
#include "data/shared_container.h"
#include "data/store_defaults.h"
#include "handoff/program_launcher.h"
#include "intake/instance_lock.h"
#include "intake/watched_folders_supervisor.h"
#include "services/poll_event_loop.h"
#include "watch_command.h"

namespace tavrin::cli {

namespace {

constexpr const char* kServiceName = "tavrin-watch.service";

std::filesystem::path runningProgram() {
    std::error_code ec;
    auto self = std::filesystem::read_symlink("/proc/self/exe", ec);
    return ec ? std::filesystem::path("tavrin") : self;
}

void printLine(const std::string& line) {
    std::cout << line << "\n" << std::flush;
}

WatchedFoldersSupervisor::Events printingEvents(bool json) {
    WatchedFoldersSupervisor::Events events;
    events.cleaned = [json](const CleanedFile& file) {
        if (json) {
            printLine(nlohmann::ordered_json{{"event", "cleaned"},
                                             {"source", file.sourceURL.string()},
                                             {"output", file.outputURL.string()},
                                             {"removedItems", file.result.removedItems.size()},
                                             {"verifiedClean", file.result.verifiedClean}}
                          .dump());
        } else {
            printLine(fmt::format("Cleaned {} \u2192 {} ({} item{} removed)", file.sourceURL.string(),
                                  file.outputURL.filename().string(), file.result.removedItems.size(),
                                  file.result.removedItems.size() == 1 ? "" : "s"));
        }
    };
    events.failed = [json](const std::filesystem::path& source, const std::string& reason) {
        if (json) {
            printLine(nlohmann::ordered_json{{"event", "failed"}, {"source", source.string()}, {"reason", reason}}.dump());
        } else {
            printLine(fmt::format("Failed {}: {}", source.string(), reason));
        }
    };
    events.notice = [](const std::string& message) { std::cerr << "tavrin: " << message << "\n" << std::flush; };
    return events;
}

// systemd reads the command line itself; a path with blanks or quotes is quoted for it.
std::string systemdQuoted(const std::string& text) {
    if (text.find_first_of(" \t\"'\\") == std::string::npos) return text;
    std::string out = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out + "\"";
}

}  // namespace

int runWatchRun(const WatchOptions& options) {
    // Before any thread starts, so that every thread leaves these signals to the loop.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    const int signalFd = ::signalfd(-1, &stopSignals, SFD_NONBLOCK | SFD_CLOEXEC);
    if (signalFd < 0) {
        std::cerr << "tavrin: cannot receive stop signals\n";
        return kFailure;
    }

    auto lock = InstanceLock::tryAcquire();
    if (!lock) {
        std::cerr << "tavrin: the watched folders are already being watched by another process (tavrin watch run "
                     "or the Tavrin app)\n";
        ::close(signalFd);
        return kFailure;
    }
    auto store = options.store ? ModelContainerFactory::atURL(*options.store) : ModelContainerFactory::application();
    auto engine = std::make_shared<const TavrinEngine>();

    int workers = 2;
    {
        auto context = store->makeContext();
        if (auto settings = currentSettings(*context))
            workers = static_cast<int>(std::clamp<std::int64_t>(settings->maxConcurrentProcessing(), 1, 8));
    }
    PollEventLoop loop;
    WatchedFoldersSupervisor supervisor(loop, store, engine, printingEvents(options.json), workers);
    const auto signalWatch = loop.watchFileDescriptor(signalFd, FdEvents::readable, [&](FdEvents) {
        signalfd_siginfo info{};
        while (::read(signalFd, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
        }
        loop.quit();
    });
    supervisor.start();
    loop.run();
    loop.unwatchFileDescriptor(signalWatch);
    supervisor.stop();
    ::close(signalFd);
    return kSuccess;
}

int runWatchInstallService(const WatchOptions&) {
    std::filesystem::path configHome;
    if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg && xdg[0] == '/') {
        configHome = xdg;
    } else if (const char* home = std::getenv("HOME"); home && home[0] == '/') {
        configHome = std::filesystem::path(home) / ".config";
    } else {
        std::cerr << "tavrin: no home folder is known (set HOME or XDG_CONFIG_HOME)\n";
        return kFailure;
    }
    const auto unitDirectory = configHome / "systemd/user";
    const auto unitPath = unitDirectory / kServiceName;
    std::error_code ec;
    std::filesystem::create_directories(unitDirectory, ec);
    const auto temporary = unitDirectory / fmt::format(".{}.tmp", kServiceName);
    {
        std::ofstream out(temporary, std::ios::trunc);
        out << "[Unit]\n"
               "Description=Tavrin watched folders: new files are cleaned beside themselves\n"
               "\n"
               "[Service]\n"
               "Type=simple\n"
            << "ExecStart=" << systemdQuoted(runningProgram().string()) << " watch run\n"
            << "Restart=on-failure\n"
               "RestartSec=5\n"
               "\n"
               "[Install]\n"
               "WantedBy=default.target\n";
        if (!out.flush()) {
            std::filesystem::remove(temporary, ec);
            std::cerr << fmt::format("tavrin: cannot write {}\n", unitPath.string());
            return kFailure;
        }
    }
    std::filesystem::rename(temporary, unitPath, ec);
    if (ec) {
        std::filesystem::remove(temporary, ec);
        std::cerr << fmt::format("tavrin: cannot write {}\n", unitPath.string());
        return kFailure;
    }
    std::cout << fmt::format("Wrote {}\n", unitPath.string());

    SpawnProgramLauncher launcher;
    if (!launcher.isInstalled("systemctl")) {
        std::cerr << "tavrin: systemctl is not available, so the service was not started; run \u2018tavrin watch "
                     "run\u2019 yourself (for instance from your session\u2019s autostart)\n";
        return kFailure;
    }
    for (const std::vector<std::string>& argv :
         {std::vector<std::string>{"systemctl", "--user", "daemon-reload"},
          std::vector<std::string>{"systemctl", "--user", "enable", "--now", kServiceName}}) {
        const auto status = launcher.run(argv);
        if (status != 0) {
            std::cerr << fmt::format("tavrin: \u2018{}\u2019 failed{}; the unit is written, start it once your user "
                                     "session has systemd\n",
                                     fmt::join(argv, " "), status ? fmt::format(" (exit status {})", *status) : "");
            return kFailure;
        }
    }
    std::cout << fmt::format("Enabled and started {}\n", kServiceName);
    return kSuccess;
}

}  // namespace tavrin::cli
