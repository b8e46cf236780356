// Links reach the one app over a private session bus: a second start finds the name taken, and
// each kind of link does its own thing in the app's queue. A "clean" link never cleans in place.

#include <QSignalSpy>

#include <QLabel>

#include <future>

#include <sdbus-c++/sdbus-c++.h>

#include "../services/private_bus.h"
#include "app_fixture.h"
#include "data/queries.h"
#include "data/store_defaults.h"
#include "handoff/tavrin_url.h"
#include "services/app_handoff.h"

namespace tavrin::testing {
namespace {

namespace stdfs = std::filesystem;

class URLHandoffTest : public AppFixture {
protected:
    void SetUp() override {
        AppFixture::SetUp();
        if (bus_.address().empty()) GTEST_SKIP() << "dbus-daemon did not start";
    }
    // Hands the link over from another thread, as another process would, while the app's loop runs.
    AppHandoffOutcome handOver(const std::string& url) {
        auto answer = std::async(std::launch::async, [&] { return handURLToApp(url, bus_.address()); });
        spinUntil([&] { return answer.wait_for(std::chrono::seconds(0)) == std::future_status::ready; });
        return answer.get();
    }
    PrivateBus bus_;
};

TEST_F(URLHandoffTest, aSecondStartFindsTheNameTakenAndTheFirstTakesItsFiles) {
    start(options(bus_.address()));
    AppController second(options(bus_.address()));
    EXPECT_FALSE(second.claimBus()) << "only one app per user";

    const auto file = userFile("photo.jpg", images::dirtyJPEG());
    const auto urls = AppController::urlsForArguments({file});
    ASSERT_EQ(urls.size(), 1u);
    EXPECT_EQ(handOver(urls[0]), AppHandoffOutcome::handedOver);
    ASSERT_TRUE(spinUntil([&] { return window().queueModel()->rowCount() == 1; }));
    EXPECT_EQ(window().queueModel()->fileAt(0)->originalSourcePath, file.string());
}

TEST_F(URLHandoffTest, aCleanLinkCleansIntoACopyEvenWhenTheSettingsSayInPlace) {
    start(options(bus_.address()));
    auto settings = currentOrNewSettings(app().context());
    settings->setCleanOutputMode(CleanOutputMode::inPlace);
    app().context().save();

    const auto file = userFile("photo.jpg", images::dirtyJPEG());
    const auto before = readFile(file);
    QSignalSpy ended(&window(), &MainWindow::runFinished);
    EXPECT_EQ(handOver(*TavrinURL::cleanURL({file}, "location-only", false)), AppHandoffOutcome::handedOver);
    // The run may end while the link is still being answered.
    ASSERT_TRUE(!ended.isEmpty() || ended.wait(120000)) << window().bannerText().toStdString();
    EXPECT_EQ(ended.front().at(0).toInt(), 1);
    EXPECT_EQ(readFile(file), before) << "never in place";
    EXPECT_FALSE(stdfs::exists(trash_ / "files")) << "nothing went to the Trash";
    ASSERT_TRUE(stdfs::exists(file.parent_path() / "photo-clean.jpg"));
    auto row = window().queueModel()->fileAt(0);
    EXPECT_EQ(row->presetId, MetadataPreset::locationOnlyID());
    EXPECT_EQ(row->status(), QueuedFile::Status::completed);
}

TEST_F(URLHandoffTest, anOpenLinkSelectsTheFileInTheInspector) {
    start(options(bus_.address()));
    const auto a = userFile("a.jpg", images::dirtyJPEG());
    const auto b = userFile("b.png", images::dirtyPNG());
    const auto ids = addAndInspect({a, b});
    window().selectIds({ids[0]});
    EXPECT_EQ(handOver(TavrinURL::openURL(b)), AppHandoffOutcome::handedOver);
    ASSERT_TRUE(spinUntil([&] { return window().selectedIds() == QStringList{ids[1]}; }));
    EXPECT_EQ(window().inspector()->headline()->text(), "b.png");
}

TEST_F(URLHandoffTest, anEnqueueLinkWithAFolderAddsItsFiles) {
    start(options(bus_.address()));
    const auto folder = dir_ / "Documents" / "batch";
    stdfs::create_directories(folder);
    writeFile(folder / "a.jpg", images::dirtyJPEG());
    writeFile(folder / "b.png", images::dirtyPNG());
    EXPECT_EQ(handOver(TavrinURL::enqueueURL({folder})), AppHandoffOutcome::handedOver);
    ASSERT_TRUE(spinUntil([&] { return window().queueModel()->rowCount() == 2; }));
}

TEST_F(URLHandoffTest, severalLinksArriveInOneCallInTheirOrder) {
    start(options(bus_.address()));
    const auto a = userFile("a.jpg", images::dirtyJPEG());
    const auto b = userFile("b.png", images::dirtyPNG());
    const std::vector<std::string> urls{TavrinURL::enqueueURL({a}), TavrinURL::openURL(b)};
    auto sent = std::async(std::launch::async, [&] {
        auto connection = sdbus::createSessionBusConnectionWithAddress(bus_.address());
        auto proxy = sdbus::createProxy(*connection, AppBusName::service, AppBusName::objectPath);
        proxy->callMethod("OpenURLs").onInterface(AppBusName::interface).withArguments(urls);
    });
    spinUntil([&] { return sent.wait_for(std::chrono::seconds(0)) == std::future_status::ready; });
    sent.get();
    ASSERT_TRUE(spinUntil([&] { return window().queueModel()->rowCount() == 2; }));
    ASSERT_TRUE(spinUntil([&] { return window().inspector()->headline()->text() == "b.png"; }));
}

TEST_F(URLHandoffTest, aChangeAnnouncedByAnotherProcessReachesTheWindow) {
    start(options(bus_.address()));
    addAndInspect({userFile("photo.jpg", images::dirtyJPEG())});
    // Another process changes the store and says so.
    auto other = ModelContainerFactory::atURL(dir_ / "Tavrin" / "Tavrin.store");
    auto file = other->mainContext().fetch(QueueQueries::allFiles()).front();
    file->setStatus(QueuedFile::Status::failed);
    file->errorMessage = "Interrupted";
    other->mainContext().save();
    NotificationService announcer(controller_->loop(), bus_.address());
    announcer.postQueueUpdated();
    auto* model = window().queueModel();
    EXPECT_TRUE(spinUntil([&] {
        return model->data(model->index(0, QueueTableModel::statusColumn), Qt::DisplayRole).toString() == "Failed";
    }));
}

TEST(AppWithoutBus, runsAloneWhenThereIsNoBus) {
    application();
    TempDir dir;
    stdfs::create_directories(dir / "Tavrin");
    AppContext::Options o;
    o.store = dir / "Tavrin" / "Tavrin.store";
    o.busAddress = "unix:path=" + (dir / "no-such-bus").string();
    o.shareBase = dir.path();
    AppController controller(o);
    EXPECT_TRUE(controller.claimBus());
    controller.start();
    EXPECT_EQ(controller.openURL(TavrinURL::appURL(false)), 0);
    EXPECT_EQ(controller.window().queueModel()->rowCount(), 0);
}

}  // namespace
}  // namespace tavrin::testing
