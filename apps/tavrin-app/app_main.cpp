#include "app_main.h"

#include <QApplication>
#include <QMessageBox>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <QDBusConnection>
#include <QFileDialog>

#include "app_controller.h"
#include "desktop_panes.h"
#include "panes_screenshot.h"
#include "handoff/email_integration.h"
#include "handoff/program_launcher.h"
#include "handoff/tavrin_url.h"
#include "main_window.h"
#include "services/in_place_replacement.h"
#include "bench_modes.h"
#include "screenshot.h"

namespace tavrin {

namespace {

struct Arguments {
    std::vector<std::filesystem::path> files;
    std::optional<std::string> screenshot;
    std::string state = "queue";
    bool benchStartup = false;
    bool background = false;  // at login: the tray and the watched folders, no window
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
        else if (arg == "--background") a.background = true;
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
    std::printf("Usage: tavrin-app [--background] [FILE...]\n"
                "       tavrin-app --screenshot PNG [--state NAME]\n"
                "       tavrin-app --bench-startup | --bench-queue N | --bench-run N\n\nStates:\n");
    for (const auto& s : screenshotStates()) std::printf("  %-15s %s\n", s.name, s.description);
    for (const auto& s : panesScreenshotStates())
        std::printf("  %-15s that window, over the store of the samples' run\n", s.toUtf8().constData());
}

// The windows around the main one (settings, history, the tour), the tray, the run
// notifications and the app's own watching of folders, wired to the main window.
struct Panes {
    SpawnProgramLauncher launcher;
    FileTourPreferences tourPreferences{FileTourPreferences::defaultPath()};
    std::unique_ptr<DesktopPanes> panes;
};

std::filesystem::path programBeside(const char* name) {
    std::error_code ec;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", ec);
    if (!ec) {
        const auto beside = self.parent_path() / name;
        if (std::filesystem::exists(beside, ec)) return beside;
    }
    return name;  // found on PATH when it is started
}

void cleanThroughLink(AppController& controller, const std::vector<std::filesystem::path>& files) {
    for (const auto& url : TavrinURL::cleanURLs(files, std::nullopt, false)) controller.openURL(url);
}

std::unique_ptr<Panes> attachPanes(AppController& controller) {
    auto owned = std::make_unique<Panes>();
    Panes& p = *owned;
    AppContext& app = controller.app();
    MainWindow& window = controller.window();
    DesktopPanesContext context{
        controller.loop(), app.sharedContainer(), app.context(), app.changeNotifier(), app.presets(),
        app.sharedEngine(), p.launcher, programBeside("tavrin"), programBeside("tavrin-app"), p.tourPreferences,
        QDBusConnection::sessionBus(),
        [&controller] { controller.raiseWindow(); },
        [&window] { return window.isActiveWindow(); },
        [&controller, &window] {
            controller.raiseWindow();
            const auto names = QFileDialog::getOpenFileNames(&window, QObject::tr("Clean Files"));
            std::vector<std::filesystem::path> files;
            for (const auto& name : names) files.emplace_back(name.toStdString());
            if (!files.empty()) cleanThroughLink(controller, files);
        },
        [&controller](const std::filesystem::path& original) { cleanThroughLink(controller, {original}); },
        [launcher = &p.launcher](const std::vector<std::filesystem::path>& files) {
            for (const auto& command : EmailRoutes::revealCommands(files)) launcher->launch(command);
        },
        [] { QApplication::quit(); },
        app.storeURL()};
    p.panes = std::make_unique<DesktopPanes>(std::move(context));
    DesktopPanes* panes = p.panes.get();
    window.showSettings = [panes] { panes->showSettings(); };
    window.showHistory = [panes] { panes->showHistory(); };
    window.showWelcomeTour = [panes, &window] { panes->showWelcomeTour(&window); };
    window.reportRun = [panes](const RunReport& report) { panes->runFinished(report); };
    // Concurrency takes effect at the next run, whichever process changed it.
    panes->settings().addListener([&app](const AppSettings& settings) {
        app.processing().setConcurrencyLimit(static_cast<int>(settings.maxConcurrentProcessing()));
    });
    app.addReloadListener([panes, &app] {
        app.processing().setConcurrencyLimit(static_cast<int>(app.settings()->maxConcurrentProcessing()));
        panes->storeChanged();
    });
    panes->start();
    return owned;
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

    AppContext::Options options;
    options.replaceInPlace = std::make_shared<InPlaceReplacement>();
    AppController controller(std::move(options));
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

    auto panes = attachPanes(controller);
    if (!args.background) controller.raiseWindow();
    if (!args.files.empty())
        for (const auto& url : urls) controller.openURL(url);
    if (!args.background) panes->panes->showWelcomeTourIfDue(&controller.window());
    return QApplication::exec();
}

}  // namespace tavrin
