// The share window: its texts, what each button opens and in which order, and its picture.
#include <QImage>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include "handoff/tavrin_url.h"
#include "share_main.h"
#include "share_window.h"

using namespace tavrin;

namespace {

using Files = ShareWindow::Files;

// Collaborators that record what is opened and answer when the test says so.
struct Harness {
    Files offered;
    bool loadAtOnce = true;
    int loads = 0;
    std::function<void(Files)> pendingLoad;
    std::vector<std::string> opened;
    std::vector<std::function<void(bool)>> answers;

    ShareWindow::Collaborators collaborators() {
        ShareWindow::Collaborators c;
        c.loadFileURLs = [this](std::function<void(Files)> done) {
            ++loads;
            if (loadAtOnce) done(offered);
            else pendingLoad = std::move(done);
        };
        c.openURL = [this](const std::string& url, std::function<void(bool)> done) {
            opened.push_back(url);
            answers.push_back(std::move(done));
        };
        return c;
    }
    void answerAll() {
        for (std::size_t i = 0; i < answers.size(); ++i) answers[i](true);
    }
};

Files manyLongFiles(int count) {
    Files files;
    for (int i = 0; i < count; ++i) files.push_back("/data/" + std::string(900, 'n') + std::to_string(i) + ".jpg");
    return files;
}

}  // namespace

class ShareWindowTest : public QObject {
    Q_OBJECT

private slots:
    void showsTheTitleButtonsAndTips() {
        Harness h;
        h.offered = {"/a.jpg"};
        ShareWindow window(h.collaborators());
        QCOMPARE(window.addButton()->text(), QString("Add to Queue"));
        QCOMPARE(window.openButton()->text(), QString("Open Tavrin"));
        QCOMPARE(window.cancelButton()->text(), QString("Cancel"));
        QCOMPARE(window.addButton()->toolTip(),
                 QString("Add the shared files to the Tavrin queue, opening Tavrin only if needed."));
        QCOMPARE(window.openButton()->toolTip(), QString("Add the shared files and open Tavrin to continue cleaning."));
        QCOMPARE(window.cancelButton()->toolTip(), QString("Close this share sheet without adding files."));
        QVERIFY(window.findChildren<QLabel*>().size() >= 2);
        QCOMPARE(window.findChildren<QLabel*>().first()->text(), QString("Tavrin"));
    }

    void statusLineCountsFiles_data() {
        QTest::addColumn<int>("count");
        QTest::addColumn<QString>("text");
        QTest::newRow("none") << 0 << "No supported files were shared.";
        QTest::newRow("one") << 1 << "Ready to add 1 file to the Tavrin queue.";
        QTest::newRow("two") << 2 << "Ready to add 2 files to the Tavrin queue.";
    }
    void statusLineCountsFiles() {
        QFETCH(int, count);
        QFETCH(QString, text);
        Harness h;
        for (int i = 0; i < count; ++i) h.offered.push_back("/f" + std::to_string(i));
        ShareWindow window(h.collaborators());
        QCOMPARE(window.statusLabel()->text(), text);
    }

    void statusLineSaysLoadingUntilTheFilesArrive() {
        Harness h;
        h.loadAtOnce = false;
        ShareWindow window(h.collaborators());
        QCOMPARE(window.statusLabel()->text(), QString("Loading shared files..."));
        h.pendingLoad({"/a.jpg"});
        QCOMPARE(window.statusLabel()->text(), QString("Ready to add 1 file to the Tavrin queue."));
    }

    void addToQueueOpensEachLinkInTurnThenCloses() {
        Harness h;
        h.offered = manyLongFiles(9);
        ShareWindow window(h.collaborators());
        QSignalSpy finished(&window, &ShareWindow::finished);
        window.addButton()->click();
        QCOMPARE(h.opened.size(), std::size_t(1));  // the next waits for this one's answer
        for (std::size_t i = 0; i < h.answers.size(); ++i) h.answers[i](true);
        const auto expected = TavrinURL::enqueueURLs(h.offered);
        QVERIFY(expected.size() >= 3);
        QCOMPARE(h.opened, expected);
        for (const auto& url : h.opened) QVERIFY(url.size() <= 4096);
        QCOMPARE(finished.size(), 1);
        QCOMPARE(finished.first().first().toInt(), 0);
    }

    void addToQueueWithNothingJustCloses() {
        Harness h;
        ShareWindow window(h.collaborators());
        QSignalSpy finished(&window, &ShareWindow::finished);
        window.addButton()->click();
        QVERIFY(h.opened.empty());
        QCOMPARE(finished.size(), 1);
    }

    void openTavrinWithNothingOpensTheApp() {
        Harness h;
        ShareWindow window(h.collaborators());
        QSignalSpy finished(&window, &ShareWindow::finished);
        window.openButton()->click();
        QCOMPARE(h.opened, std::vector<std::string>{"tavrin://app"});
        h.answerAll();
        QCOMPARE(finished.size(), 1);
    }

    void openTavrinWithFilesEnqueuesThem() {
        Harness h;
        h.offered = {"/a b.jpg"};
        ShareWindow window(h.collaborators());
        window.openButton()->click();
        QCOMPARE(h.opened, std::vector<std::string>{"tavrin://enqueue?file=/a%20b.jpg"});
    }

    void addToQueueBeforeTheLoadEndsLoadsAgainAndGoesOn() {
        Harness h;
        h.loadAtOnce = false;
        ShareWindow window(h.collaborators());
        window.addButton()->click();
        QCOMPARE(h.loads, 2);
        QVERIFY(h.opened.empty());
        h.pendingLoad({"/late.jpg"});
        QCOMPARE(h.opened, std::vector<std::string>{"tavrin://enqueue?file=/late.jpg"});
    }

    void cancelClosesWithoutOpening() {
        Harness h;
        h.offered = {"/a.jpg"};
        ShareWindow window(h.collaborators());
        QSignalSpy finished(&window, &ShareWindow::finished);
        window.cancelButton()->click();
        QVERIFY(h.opened.empty());
        QCOMPARE(finished.size(), 1);
        QCOMPARE(finished.first().first().toInt(), 1);
    }

    void argumentsMakeFilesAbsolute() {
        const auto parsed = parseShareArguments({"--screenshot", "/tmp/s.png", "--", "--odd name.jpg", "/x.pdf"});
        QVERIFY(parsed.has_value());
        QCOMPARE(parsed->screenshot->string(), std::string("/tmp/s.png"));
        QCOMPARE(parsed->files.size(), std::size_t(2));
        QVERIFY(parsed->files[0].is_absolute());
        QVERIFY(!parseShareArguments({"--bogus"}).has_value());
        QVERIFY(!parseShareArguments({"--screenshot"}).has_value());
    }

    void screenshotIsAPNGOfTheWindowsSize() {
        QTemporaryDir temporary;
        Harness h;
        h.offered = {"/a.jpg", "/b.pdf"};
        ShareWindow window(h.collaborators());
        const std::filesystem::path file = temporary.filePath("share.png").toStdString();
        QVERIFY(saveScreenshot(window, file));
        QImage image;
        QVERIFY(image.load(QString::fromStdString(file.string()), "PNG"));
        QCOMPARE(image.size(), window.size() * window.devicePixelRatio());
        QVERIFY(image.width() >= 400 && image.height() >= 100);
        // The title, the status line and the buttons all fit: nothing is cut at the edges.
        QVERIFY(window.addButton()->geometry().right() < window.width());
        QVERIFY(window.cancelButton()->geometry().right() < window.width());
        QVERIFY(window.statusLabel()->sizeHint().width() <= window.width());
    }
};

QTEST_MAIN(ShareWindowTest)
#include "share_window_test.moc"
