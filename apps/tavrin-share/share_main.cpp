#include "share_main.h"

#include <QApplication>
#include <QMetaObject>
#include <QPixmap>
#include <QPointer>
#include <QTimer>
#include <cstdio>
#include <iostream>
#include <poll.h>
#include <thread>
#include <unistd.h>

#include "handoff/program_launcher.h"
#include "handoff/tavrin_url.h"
#include "handoff/url_dispatch.h"
#include "share_window.h"

namespace tavrin {

namespace {

constexpr std::size_t kMaximumStandardInput = 4 << 20;

// Opens a link with the desktop's handler, answering on the window's thread once xdg-open ends.
void openWithDesktop(const std::string& url, std::function<void(bool)> done) {
    const auto pid = spawnProgram({"xdg-open", url});
    if (!pid) {
        done(false);
        return;
    }
    std::thread([pid = *pid, done = std::move(done)] {
        const auto status = waitForProgram(pid);
        QMetaObject::invokeMethod(qApp, [done, ok = status && *status == 0] { done(ok); }, Qt::QueuedConnection);
    }).detach();
}

// Reads until end of input, the size cap, or a pause of `patience` with nothing new: a standard
// input that a launcher left open without writing to it never holds the window up for long.
std::string readStandardInput(int patienceMilliseconds) {
    std::string text;
    char buffer[65536];
    while (text.size() < kMaximumStandardInput) {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        if (::poll(&input, 1, patienceMilliseconds) <= 0) break;
        const auto n = ::read(STDIN_FILENO, buffer, sizeof buffer);
        if (n <= 0) break;
        text.append(buffer, static_cast<std::size_t>(n));
    }
    return text;
}

ShareWindow::Files usable(const ShareWindow::Files& candidates) { return admitFiles(candidates).files; }

}  // namespace

std::optional<ShareArguments> parseShareArguments(const std::vector<std::string>& arguments) {
    ShareArguments parsed;
    bool filesOnly = false;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const auto& argument = arguments[i];
        if (!filesOnly && argument == "--") {
            filesOnly = true;
        } else if (!filesOnly && argument == "--screenshot") {
            if (i + 1 >= arguments.size()) return std::nullopt;
            parsed.screenshot = arguments[++i];
        } else if (!filesOnly && argument.starts_with("--")) {
            return std::nullopt;
        } else {
            std::error_code ec;
            auto absolute = std::filesystem::absolute(argument, ec);
            parsed.files.push_back(ec ? std::filesystem::path(argument) : absolute);
        }
    }
    return parsed;
}

bool saveScreenshot(QWidget& window, const std::filesystem::path& file) {
    window.adjustSize();
    window.show();
    QApplication::processEvents();
    return window.grab().save(QString::fromStdString(file.string()), "PNG");
}

int runShare(int argc, char** argv) {
    std::vector<std::string> arguments(argv + 1, argv + argc);
    const auto parsed = parseShareArguments(arguments);
    if (!parsed) {
        std::cerr << "usage: tavrin-share [--screenshot FILE.png] [FILE...]\n"
                     "Files also come as a text/uri-list on standard input when it is not a terminal.\n";
        return 2;
    }
    if (parsed->screenshot && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);

    const bool readInput = !parsed->screenshot && !::isatty(STDIN_FILENO);
    ShareWindow::Collaborators collaborators;
    collaborators.loadFileURLs = [files = parsed->files, readInput](std::function<void(ShareWindow::Files)> done) {
        if (!readInput) {
            done(usable(files));
            return;
        }
        // Standard input may stay open: it is read off the window's thread, which stays responsive.
        std::thread([files, done = std::move(done)]() mutable {
            auto all = files;
            for (auto& file : fileURLsFromURIList(readStandardInput(3000))) all.push_back(std::move(file));
            auto admitted = usable(all);
            QMetaObject::invokeMethod(qApp, [done, admitted] { done(admitted); }, Qt::QueuedConnection);
        }).detach();
    };
    collaborators.openURL = openWithDesktop;
    collaborators.postDelayed = [](std::chrono::milliseconds delay, std::function<void()> work) {
        QTimer::singleShot(delay, qApp, std::move(work));
    };
    collaborators.timeout = std::chrono::seconds(15);

    ShareWindow window(collaborators);
    if (parsed->screenshot) {
        if (!saveScreenshot(window, *parsed->screenshot)) {
            std::cerr << "tavrin-share: cannot write " << parsed->screenshot->string() << "\n";
            return 1;
        }
        return 0;
    }
    QObject::connect(&window, &ShareWindow::finished, &app, [](int result) { QApplication::exit(result); });
    window.show();
    return QApplication::exec();
}

}  // namespace tavrin
