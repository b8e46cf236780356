// The desktop notification at the end of a run, on a private session bus with a stand-in
// notification server: what it says, that it is not sent while the window is active, and that
// its action shows the files.

#include <QDBusConnection>
#include <QDBusMessage>
#include <QSignalSpy>

#include <gtest/gtest.h>

#include "panes_test_support.h"
#include "run_notifier.h"
#include "services/private_bus.h"
#include "services/queue_service.h"

namespace tavrin {
namespace {

using namespace testing;
namespace stdfs = std::filesystem;

// What a desktop's notification daemon offers, reduced to what Tavrin calls.
class StandInServer : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    struct Received {
        QString appName, icon, summary, body;
        QStringList actions;
        QVariantMap hints;
    };
    std::vector<Received> received;

public slots:
    uint Notify(const QString& appName, uint, const QString& icon, const QString& summary, const QString& body,
                const QStringList& actions, const QVariantMap& hints, int) {
        received.push_back({appName, icon, summary, body, actions, hints});
        return static_cast<uint>(received.size()) + 40;
    }
};

TEST(RunNotifier, saysHowManyFilesWereCleanedOrWhichFailed) {
    struct Case {
        int cleaned;
        std::vector<std::string> failed;
        const char* summary;
        const char* body;
    };
    const Case cases[] = {
        {1, {}, "1 file cleaned", "a0-clean.pdf"},
        {3, {}, "3 files cleaned", "a0-clean.pdf\na1-clean.pdf\na2-clean.pdf"},
        {0, {"Locked"}, "1 file could not be cleaned", "b0.docx: Locked"},
        {0, {"Locked", "Full disk"}, "2 files could not be cleaned", "b0.docx: Locked\nb1.docx: Full disk"},
        {2, {"Verification failed (x <y>)"}, "2 files cleaned, 1 failed",
         "b0.docx: Verification failed (x &lt;y&gt;)\na0-clean.pdf\na1-clean.pdf"},
        {7, {}, "7 files cleaned", "a0-clean.pdf\na1-clean.pdf\na2-clean.pdf\na3-clean.pdf\na4-clean.pdf\nand 2 more"},
    };
    for (const auto& c : cases) {
        RunReport report;
        for (int i = 0; i < c.cleaned; ++i) report.cleaned.push_back("/d/a" + std::to_string(i) + "-clean.pdf");
        for (std::size_t i = 0; i < c.failed.size(); ++i)
            report.failed.push_back({"/d/b" + std::to_string(i) + ".docx", c.failed[i]});
        const auto text = RunNotifier::textFor(report);
        EXPECT_EQ(text.summary, c.summary);
        EXPECT_EQ(text.body, c.body);
    }
}

TEST(RunReport, aQueueRunsOutcomesNameTheCopiesAndTheUsersFilesWithTheirReasons) {
    auto file = [](const char* name, std::optional<std::string> source, std::optional<std::string> copy,
                   std::optional<std::string> error) {
        auto f = std::make_shared<QueuedFile>();
        f->fileName = name;
        f->fileExtension = "pdf";
        f->originalFilePath = "/staging/ABC/" + std::string(name) + ".pdf";
        f->originalSourcePath = source;
        f->cleanedFilePath = copy;
        f->errorMessage = error;
        return f;
    };
    CleaningResult result;
    result.outputURL = "/tmp/out/a.pdf";
    RunReport report;
    report.add({file("a", "/home/u/a.pdf", "/home/u/a-clean.pdf", std::nullopt), result, nullptr, 1, 4});
    report.add({file("b", std::nullopt, std::nullopt, std::nullopt), result, nullptr, 2, 4});
    report.add({file("c", "/home/u/c.pdf", std::nullopt, "Output verification failed (x)"), std::nullopt, nullptr, 3, 4});
    report.add({file("d", "/home/u/d.pdf", std::nullopt, std::nullopt), std::nullopt,
                std::make_exception_ptr(std::runtime_error("disk full")), 4, 4});
    report.add({file("e", std::nullopt, std::nullopt, std::nullopt), std::nullopt, nullptr, 4, 4});
    EXPECT_EQ(report.cleaned, (std::vector<stdfs::path>{"/home/u/a-clean.pdf", "/tmp/out/a.pdf"}));
    ASSERT_EQ(report.failed.size(), 3u);
    EXPECT_EQ(report.failed[0].source, "/home/u/c.pdf") << "the user's file, not the staged copy";
    EXPECT_EQ(report.failed[0].reason, "Output verification failed (x)");
    EXPECT_EQ(report.failed[1].reason, "disk full");
    EXPECT_EQ(report.failed[2].source, "e.pdf");
    EXPECT_EQ(report.failed[2].reason, "No preset or categories configured");
}

TEST(RunNotifier, notifiesOverTheBusWhenTheWindowIsNotActiveAndItsActionShowsTheFiles) {
    application();
    PrivateBus bus;
    ASSERT_FALSE(bus.address().empty());
    const auto address = QString::fromStdString(bus.address());
    auto server = QDBusConnection::connectToBus(address, "stand-in-server");
    ASSERT_TRUE(server.isConnected());
    StandInServer standIn;
    ASSERT_TRUE(server.registerObject("/org/freedesktop/Notifications", &standIn, QDBusConnection::ExportAllSlots));
    ASSERT_TRUE(server.registerService("org.freedesktop.Notifications"));

    bool active = true;
    std::vector<stdfs::path> shown;
    {
        RunNotifier notifier(QDBusConnection::connectToBus(address, "tavrin-app"), [&] { return active; },
                             [&](const std::vector<stdfs::path>& files) { shown = files; });
        RunReport report;
        report.cleaned = {"/home/u/Drop/a-clean.jpg", "/home/u/Drop/b-clean.jpg", "/home/u/Drop/c-clean.jpg"};
        EXPECT_FALSE(notifier.notify(report)) << "the user is looking at the window";
        EXPECT_FALSE(notifier.notify(RunReport{})) << "nothing to say";

        active = false;
        QSignalSpy delivered(&notifier, &RunNotifier::delivered);
        ASSERT_TRUE(notifier.notify(report));
        ASSERT_TRUE(delivered.wait(10'000));
        ASSERT_EQ(standIn.received.size(), 1u);
        const auto& got = standIn.received[0];
        EXPECT_EQ(got.appName, "Tavrin");
        EXPECT_EQ(got.icon, "com.tavrin.Tavrin");
        EXPECT_EQ(got.summary, "3 files cleaned");
        EXPECT_EQ(got.body, "a-clean.jpg\nb-clean.jpg\nc-clean.jpg");
        EXPECT_EQ(got.actions, (QStringList{"show-files", "Show Files"}));
        EXPECT_EQ(got.hints.value("desktop-entry").toString(), "com.tavrin.Tavrin");
        const uint id = delivered.at(0).at(0).toUInt();

        // Another notification's action, and another action of ours, show nothing.
        for (const auto& [which, key] : std::vector<std::pair<uint, QString>>{{id + 100, "show-files"}, {id, "default"},
                                                                               {id, "show-files"}}) {
            auto signal = QDBusMessage::createSignal("/org/freedesktop/Notifications", "org.freedesktop.Notifications",
                                                     "ActionInvoked");
            signal << which << key;
            ASSERT_TRUE(server.send(signal));
        }
        ASSERT_TRUE(spinUntil([&] { return !shown.empty(); }));
        EXPECT_EQ(shown, report.cleaned);
    }
    QDBusConnection::disconnectFromBus("tavrin-app");
    QDBusConnection::disconnectFromBus("stand-in-server");
}

}  // namespace
}  // namespace tavrin

#include "run_notifier_test.moc"
