#include "bench_modes.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QScrollBar>
#include <QSortFilterProxyModel>
#include <QTableView>
#include <QTemporaryDir>
#include <QTimer>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <unistd.h>

#include "app_controller.h"
#include "inspection_runner.h"
#include "queue_table_model.h"
#include "screenshot.h"

namespace tavrin {

namespace stdfs = std::filesystem;

namespace {

// Tells when the watched widget has painted once.
class FirstPaint final : public QObject {
public:
    bool painted = false;
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::Paint) painted = true;
        return QObject::eventFilter(watched, event);
    }
};

struct Scratch {
    QTemporaryDir dir;
    stdfs::path root() const { return dir.path().toStdString(); }
    AppContext::Options options() const {
        AppContext::Options o;
        std::error_code ec;
        stdfs::create_directories(root() / "Tavrin", ec);
        o.store = root() / "Tavrin" / "Tavrin.store";
        o.busAddress = std::string();
        o.shareBase = root();
        return o;
    }
    // `count` copies of one sample, each with a name of its own.
    std::vector<stdfs::path> files(int count, const char* sample) const {
        std::vector<stdfs::path> out;
        const auto folder = root() / "Files";
        std::error_code ec;
        stdfs::create_directories(folder, ec);
        const auto source = sampleFilesDirectory() / sample;
        for (int i = 0; i < count; ++i) {
            auto target = folder / ("file-" + std::to_string(100000 + i) + source.extension().string());
            stdfs::copy_file(source, target, ec);
            out.push_back(target);
        }
        return out;
    }
};

double ms(const QElapsedTimer& t) { return static_cast<double>(t.nsecsElapsed()) / 1e6; }

// How long ago the kernel started this process (loading the libraries included), to the clock
// tick; negative when it cannot be read.
double msSinceProcessStart() {
    std::FILE* stat = std::fopen("/proc/self/stat", "r");
    if (!stat) return -1;
    char buffer[1024] = {};
    const std::size_t n = std::fread(buffer, 1, sizeof buffer - 1, stat);
    std::fclose(stat);
    // The fields after the command name, which is in parentheses and may hold spaces.
    const char* p = std::strrchr(buffer, ')');
    if (!p || n == 0) return -1;
    unsigned long long startTicks = 0;
    int field = 2;
    for (const char* token = std::strtok(const_cast<char*>(p + 1), " "); token; token = std::strtok(nullptr, " ")) {
        if (++field == 22) {
            startTicks = std::strtoull(token, nullptr, 10);
            break;
        }
    }
    timespec now{};
    if (startTicks == 0 || ::clock_gettime(CLOCK_BOOTTIME, &now) != 0) return -1;
    const double started = static_cast<double>(startTicks) * 1000.0 / static_cast<double>(::sysconf(_SC_CLK_TCK));
    return static_cast<double>(now.tv_sec) * 1000.0 + static_cast<double>(now.tv_nsec) / 1e6 - started;
}

}  // namespace

int benchStartup(AppController& controller, std::chrono::steady_clock::time_point started) {
    FirstPaint watcher;
    auto& window = controller.window();
    window.installEventFilter(&watcher);
    window.show();
    if (!spinUntil([&] { return watcher.painted; }, 30000)) {
        std::fprintf(stderr, "tavrin-app: the window was not painted\n");
        return 1;
    }
    const auto elapsed = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - started).count();
    std::printf("main_to_first_paint_ms: %.1f\nprocess_start_to_first_paint_ms: %.0f\n", elapsed, msSinceProcessStart());
    return 0;
}

int benchQueue(int count) {
    Scratch scratch;
    const auto files = scratch.files(count, "diagram.png");
    AppController controller(scratch.options());
    controller.start();
    auto& window = controller.window();
    window.resize(screenshotSize);
    window.show();
    QElapsedTimer timer;
    timer.start();
    window.importPaths(files);
    std::printf("queue_import_%d_files_ms: %.1f\n", count, ms(timer));
    spinUntil([&] { return window.inspections()->isIdle(); }, 600000);
    timer.restart();
    window.reload();
    std::printf("queue_reload_%d_rows_ms: %.1f\n", count, ms(timer));
    double worstSort = 0;
    for (int column = 0; column < QueueTableModel::columnCount_; ++column) {
        timer.restart();
        window.queueView()->sortByColumn(column, Qt::DescendingOrder);
        window.queueView()->viewport()->repaint();
        worstSort = std::max(worstSort, ms(timer));
    }
    std::printf("queue_sort_worst_column_ms: %.1f\n", worstSort);
    auto* bar = window.queueView()->verticalScrollBar();
    double worstPage = 0;
    int pages = 0;
    for (int value = 0; value <= bar->maximum(); value += std::max(1, bar->pageStep())) {
        timer.restart();
        bar->setValue(value);
        window.queueView()->viewport()->repaint();
        worstPage = std::max(worstPage, ms(timer));
        ++pages;
    }
    std::printf("queue_scroll_pages: %d\nqueue_scroll_worst_page_ms: %.1f\n", pages, worstPage);
    return 0;
}

int benchRun(int count) {
    Scratch scratch;
    const auto files = scratch.files(count, "beach-photo.jpg");
    AppController controller(scratch.options());
    controller.start();
    auto& window = controller.window();
    window.resize(screenshotSize);
    window.show();
    window.importPaths(files);
    spinUntil([&] { return window.inspections()->isIdle(); }, 600000);
    bool finished = false;
    QObject::connect(&window, &MainWindow::runFinished, [&] { finished = true; });
    // A 10 ms timer: how late each tick comes is how long the loop was busy elsewhere.
    QElapsedTimer clock;
    clock.start();
    qint64 last = clock.nsecsElapsed();
    double worst = 0;
    QTimer ticker;
    ticker.setTimerType(Qt::PreciseTimer);
    ticker.setInterval(10);
    QObject::connect(&ticker, &QTimer::timeout, [&] {
        const qint64 now = clock.nsecsElapsed();
        worst = std::max(worst, static_cast<double>(now - last) / 1e6 - 10.0);
        last = now;
    });
    window.queueView()->clearSelection();
    QElapsedTimer run;
    run.start();
    // Starting the run (giving every file its preset) is measured on its own.
    if (!window.cleanSelection(CleanMode::copy)) {
        std::fprintf(stderr, "tavrin-app: the run did not start: %s\n", window.bannerText().toUtf8().constData());
        return 1;
    }
    const double startMs = ms(run);
    last = clock.nsecsElapsed();
    ticker.start();
    spinUntil([&] { return finished; }, 3600000);
    ticker.stop();
    std::printf("run_%d_files_ms: %.1f\nrun_start_ms: %.1f\nrun_longest_loop_stall_ms: %.1f\n", count, ms(run), startMs,
                std::max(0.0, worst));
    return 0;
}

}  // namespace tavrin
