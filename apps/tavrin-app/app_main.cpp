#include "app_main.h"

#include <QApplication>
#include <QMessageBox>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "app_controller.h"
#include "bench_modes.h"
#include "screenshot.h"

namespace tavrin {

namespace {

struct Arguments {
    std::vector<std::filesystem::path> files;
    std::optional<std::string> screenshot;
    std::string state = "queue";
    bool benchStartup = false;
    std::optional<int> benchQueue;
    std::optional<int> benchRun;
    bool help = false;
    std::string error;
};

Arguments parse(int argc, char** argv) {
    Arguments a;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        auto value = [&]() -> std::optional<std::string> {
            if (i + 1 < argc) return std::string(argv[++i]);
            a.error = arg + " needs a value";
            return std::nullopt;
        };
        auto count = [&]() -> std::optional<int> {
            auto v = value();
            if (!v) return std::nullopt;
            try {
                const int n = std::stoi(*v);
                if (n > 0 && n <= 100000) return n;
            } catch (...) {
            }
            a.error = arg + " needs a count from 1 to 100000";
            return std::nullopt;
        };
        if (arg == "--screenshot") a.screenshot = value();
        else if (arg == "--state") { if (auto v = value()) a.state = *v; }
        else if (arg == "--bench-startup") a.benchStartup = true;
        else if (arg == "--bench-queue") a.benchQueue = count();
        else if (arg == "--bench-run") a.benchRun = count();
        else if (arg == "--help" || arg == "-h") a.help = true;
        else if (arg == "--") { while (++i < argc) a.files.emplace_back(argv[i]); }
        else if (arg.rfind("--", 0) == 0) a.error = "unknown option " + arg;
        else a.files.emplace_back(arg);
    }
    return a;
}

void printHelp() {
    std::printf("Usage: tavrin-app [FILE...]\n"
                "       tavrin-app --screenshot PNG [--state NAME]\n"
                "       tavrin-app --bench-startup | --bench-queue N | --bench-run N\n\nStates:\n");
    for (const auto& s : screenshotStates()) std::printf("  %-10s %s\n", s.name, s.description);
}

}  // namespace

int runApp(int argc, char** argv) {
    const auto started = std::chrono::steady_clock::now();
    const Arguments args = parse(argc, argv);
    if (!args.error.empty()) {
        std::fprintf(stderr, "tavrin-app: %s\n", args.error.c_str());
        return 2;
    }
    if (args.help) {
        printHelp();
        return 0;
    }
    const bool offscreen = args.screenshot || args.benchQueue || args.benchRun;
    if (offscreen && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication qapp(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Tavrin"));
    QApplication::setApplicationDisplayName(QStringLiteral("Tavrin"));
    QApplication::setDesktopFileName(QStringLiteral("com.tavrin.Tavrin"));

    if (args.screenshot) return runScreenshot(*args.screenshot, args.state);
    if (args.benchQueue) return benchQueue(*args.benchQueue);
    if (args.benchRun) return benchRun(*args.benchRun);

    AppController controller(AppContext::Options{});
    const auto urls = AppController::urlsForArguments(args.files);
    if (!args.benchStartup && !controller.claimBus()) {
        // Another process is the app: it takes the files and comes to the front.
        return AppBus::handOver(urls, std::nullopt) ? 0 : 1;
    }
    try {
        controller.start();
    } catch (const std::exception& e) {
        QMessageBox::critical(nullptr, QStringLiteral("Tavrin"),
                              QObject::tr("Tavrin cannot open its queue: %1").arg(QString::fromUtf8(e.what())));
        return 1;
    }
    if (args.benchStartup) return benchStartup(controller, started);
    // The other windows (settings, history, the welcome tour) and the tray attach here, through
    // the window's hooks: controller.window().showSettings, showHistory, showWelcomeTour.
    controller.raiseWindow();
    if (!args.files.empty())
        for (const auto& url : urls) controller.openURL(url);
    return QApplication::exec();
}

}  // namespace tavrin
