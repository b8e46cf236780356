#include "app_fixture.h"

#include <QTableView>

#include "data/queries.h"
#include "model/file_hash.h"

namespace tavrin::testing {

namespace stdfs = std::filesystem;

QApplication& application() {
    static int argc = 1;
    static char name[] = "app_tests";
    static char* argv[] = {name, nullptr};
    static QApplication* app = [] {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        return new QApplication(argc, argv);
    }();
    return *app;
}

void AppFixture::SetUp() {
    application();
    trash_ = dir_ / "Trash";
    stdfs::create_directories(trash_);
    stdfs::create_directories(dir_ / "Tavrin");
    stdfs::create_directories(dir_ / "share");
}

void AppFixture::TearDown() {
    if (controller_) {
        // Let a run end before the window goes.
        if (auto* run = controller_->window().currentRun()) {
            run->cancel();
            QSignalSpy ended(&controller_->window(), &MainWindow::runFinished);
            ended.wait(60000);
        }
    }
    controller_.reset();
}

AppContext::Options AppFixture::options(const std::string& bus) {
    AppContext::Options o;
    o.store = dir_ / "Tavrin" / "Tavrin.store";
    o.busAddress = bus;
    o.shareBase = dir_ / "share";
    // Cleaning in place into a Trash of the test's own.
    o.replaceInPlace = std::make_shared<InPlaceReplacement>(InPlaceReplacementOptions{trash_, {}, {}});
    return o;
}

AppController& AppFixture::start(AppContext::Options o) {
    controller_ = std::make_unique<AppController>(std::move(o));
    controller_->claimBus();
    controller_->start();
    controller_->window().resize(screenshotSize);
    controller_->window().show();
    // Dialogs would wait for a person: a test says yes by itself.
    controller_->window().confirmCleanInPlace = [](int) { return true; };
    controller_->window().presentShare = [](const std::vector<stdfs::path>&) {};
    return *controller_;
}

stdfs::path AppFixture::userFile(const std::string& name, const std::vector<std::uint8_t>& bytes) {
    const auto path = dir_ / "Documents" / name;
    stdfs::create_directories(path.parent_path());
    writeFile(path, bytes);
    return path;
}

QStringList AppFixture::addAndInspect(const std::vector<stdfs::path>& files) {
    const auto ids = window().importPaths(files);
    for (const auto& id : ids) {
        const auto uuid = uuidFromString(id.toStdString());
        EXPECT_TRUE(spinUntil([&] { return app().treeFor(*uuid) != nullptr; })) << "not inspected: " << id.toStdString();
    }
    return ids;
}

std::shared_ptr<QueuedFile> AppFixture::stored(const QString& id) {
    auto context = app().container().makeContext();
    auto found = context->fetch(FetchDescriptor<QueuedFile>(
        Predicate::equal("id", storeValue::uuid(*uuidFromString(id.toStdString())))));
    return found.empty() ? nullptr : found.front();
}

std::pair<int, int> AppFixture::cleanAndWait(const QStringList& ids, CleanMode mode) {
    QSignalSpy ended(&window(), &MainWindow::runFinished);
    if (!window().cleanFiles(ids, mode)) return {-1, -1};
    EXPECT_TRUE(ended.wait(120000));
    if (ended.isEmpty()) return {-1, -1};
    return {ended.front().at(0).toInt(), ended.front().at(1).toInt()};
}

QTreeWidgetItem* AppFixture::categoryRow(const QString& displayName) {
    auto* tree = window().inspector()->tree();
    for (int i = 0; i < tree->topLevelItemCount(); ++i)
        if (tree->topLevelItem(i)->text(0).startsWith(displayName)) return tree->topLevelItem(i);
    return nullptr;
}

}  // namespace tavrin::testing
