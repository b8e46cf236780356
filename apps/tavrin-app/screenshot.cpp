#include "screenshot.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QImage>
#include <QPixmap>
#include <QTableView>
#include <QTemporaryDir>

#include <cstdio>
#include <cstdlib>

#include "app_controller.h"
#include "inspection_runner.h"
#include "panes_screenshot.h"
#include "queue_table_model.h"

#ifndef TAVRIN_SOURCE_DIR
#define TAVRIN_SOURCE_DIR "."
#endif

namespace tavrin {

namespace stdfs = std::filesystem;

namespace {

std::vector<stdfs::path> sampleFiles(const stdfs::path& samples) {
    std::vector<stdfs::path> files;
    std::error_code ec;
    for (stdfs::directory_iterator it(samples, ec), end; !ec && it != end; it.increment(ec))
        if (it->is_regular_file(ec)) files.push_back(it->path());
    std::sort(files.begin(), files.end());
    return files;
}

bool addSamples(AppController& controller, const stdfs::path& samples, QString& error) {
    const auto files = sampleFiles(samples);
    if (files.empty()) {
        error = QStringLiteral("no sample files in %1").arg(QString::fromStdString(samples.string()));
        return false;
    }
    auto& window = controller.window();
    const auto ids = window.importPaths(files);
    if (ids.size() != static_cast<qsizetype>(files.size())) {
        error = QStringLiteral("only %1 of %2 samples were added: %3").arg(ids.size()).arg(files.size()).arg(window.bannerText());
        return false;
    }
    if (!spinUntil([&] { return window.inspections()->isIdle(); })) {
        error = QStringLiteral("the samples were not inspected in time");
        return false;
    }
    window.showBanner({});
    return true;
}

void selectByName(MainWindow& window, const QString& name) {
    auto* model = window.queueModel();
    for (int row = 0; row < model->rowCount(); ++row)
        if (model->data(model->index(row, QueueTableModel::nameColumn), Qt::DisplayRole).toString() == name)
            window.selectIds({model->data(model->index(row, 0), QueueTableModel::idRole).toString()});
}

}  // namespace

bool spinUntil(const std::function<bool()>& done, int limitMs) {
    QElapsedTimer timer;
    timer.start();
    while (!done()) {
        if (timer.elapsed() > limitMs) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 50);
    }
    return true;
}

stdfs::path sampleFilesDirectory() {
    if (const char* given = std::getenv("TAVRIN_SAMPLES"); given && *given) return given;
    const stdfs::path built = stdfs::path(TAVRIN_SOURCE_DIR) / "samples" / "files";
    std::error_code ec;
    if (stdfs::is_directory(built, ec)) return built;
    return stdfs::path("samples") / "files";
}

const std::vector<ScreenshotState>& screenshotStates() {
    static const std::vector<ScreenshotState> states = {
        {"empty", "the window with an empty queue",
         [](AppController&, const stdfs::path&, QString&) { return true; }},
        {"queue", "the sample files added and inspected, the photo selected",
         [](AppController& controller, const stdfs::path& samples, QString& error) {
             if (!addSamples(controller, samples, error)) return false;
             controller.window().queueView()->sortByColumn(QueueTableModel::nameColumn, Qt::AscendingOrder);
             selectByName(controller.window(), QStringLiteral("beach-photo.jpg"));
             return true;
         }},
        {"after-run", "the samples cleaned into copies, the presentation selected",
         [](AppController& controller, const stdfs::path& samples, QString& error) {
             if (!addSamples(controller, samples, error)) return false;
             auto& window = controller.window();
             bool finished = false;
             QObject::connect(&window, &MainWindow::runFinished, [&] { finished = true; });
             window.queueView()->clearSelection();
             if (!window.cleanSelection(CleanMode::copy)) {
                 error = QStringLiteral("the run did not start: %1").arg(window.bannerText());
                 return false;
             }
             if (!spinUntil([&] { return finished; }, 300000)) {
                 error = QStringLiteral("the run did not finish in time");
                 return false;
             }
             window.queueView()->sortByColumn(QueueTableModel::nameColumn, Qt::AscendingOrder);
             selectByName(window, QStringLiteral("reorg-pitch.pptx"));
             return true;
         }},
    };
    return states;
}

int runScreenshot(const stdfs::path& file, const std::string& stateName) {
    const ScreenshotState* state = nullptr;
    for (const auto& s : screenshotStates())
        if (stateName == s.name) state = &s;
    // The windows around the main one are drawn over the store a run of the samples leaves.
    const bool paneState = panesScreenshotStates().contains(QString::fromStdString(stateName));
    if (paneState)
        for (const auto& s : screenshotStates())
            if (std::string_view(s.name) == "after-run") state = &s;
    if (!state) {
        std::string names;
        for (const auto& s : screenshotStates()) names += std::string(names.empty() ? "" : ", ") + s.name;
        for (const auto& s : panesScreenshotStates()) names += ", " + s.toStdString();
        std::fprintf(stderr, "tavrin-app: unknown state \"%s\"; the states are %s\n", stateName.c_str(), names.c_str());
        return 2;
    }
    QTemporaryDir scratch;
    if (!scratch.isValid()) {
        std::fprintf(stderr, "tavrin-app: cannot create a temporary folder for the screenshot\n");
        return 1;
    }
    const stdfs::path root = scratch.path().toStdString();
    // Copies of the samples, so that cleaned copies land in the scratch folder.
    const stdfs::path samples = root / "Documents";
    std::error_code ec;
    stdfs::create_directories(samples, ec);
    for (const auto& sample : sampleFiles(sampleFilesDirectory()))
        stdfs::copy_file(sample, samples / sample.filename(), ec);
    AppContext::Options options;
    options.store = root / "Tavrin" / "Tavrin.store";
    options.busAddress = std::string();  // no bus: a screenshot never takes the app's name
    options.shareBase = root;
    try {
        stdfs::create_directories(root / "Tavrin");
        AppController controller(options);
        controller.start();
        auto& window = controller.window();
        window.resize(screenshotSize);
        window.show();
        QString error;
        if (!state->prepare(controller, samples, error)) {
            std::fprintf(stderr, "tavrin-app: the state \"%s\" could not be prepared: %s\n", state->name,
                         error.toUtf8().constData());
            return 1;
        }
        QCoreApplication::processEvents();
        if (paneState) {
            if (renderPanesScreenshot(QString::fromStdString(stateName), QString::fromStdString(file.string()),
                                      controller.app().sharedContainer()))
                return 0;
            std::fprintf(stderr, "tavrin-app: cannot write %s\n", file.string().c_str());
            return 1;
        }
        const QPixmap picture = window.grab();
        if (!picture.save(QString::fromStdString(file.string()), "PNG")) {
            std::fprintf(stderr, "tavrin-app: cannot write %s\n", file.string().c_str());
            return 1;
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "tavrin-app: %s\n", e.what());
        return 1;
    }
    return 0;
}

}  // namespace tavrin
