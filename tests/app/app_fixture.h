#pragma once
// The desktop app under test: a real store on disk in a fresh folder, the real engine, the real
// Qt loop drawn off screen, and no session bus unless a test brings its own.

#include <QApplication>
#include <QSignalSpy>
#include <QTreeWidget>

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include "../image/image_fixtures.h"
#include "app_controller.h"
#include "inspection_runner.h"
#include "inspector_panel.h"
#include "queue_table_model.h"
#include "screenshot.h"
#include "support/test_support.h"

namespace tavrin::testing {

QApplication& application();

class AppFixture : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Options over this test's folder; `bus` empty means no bus.
    AppContext::Options options(const std::string& bus = {});
    // Starts the app (once per test unless a test makes more controllers itself).
    AppController& start(AppContext::Options o);
    AppController& start() { return start(options()); }
public:
    MainWindow& window() { return controller_->window(); }
    AppContext& app() { return controller_->app(); }

protected:

    // A file of the user's, written into this test's folder.
    std::filesystem::path userFile(const std::string& name, const std::vector<std::uint8_t>& bytes);
    // Adds the files and waits until each was inspected; returns their ids.
    QStringList addAndInspect(const std::vector<std::filesystem::path>& files);
    // The file record as the store holds it now.
    std::shared_ptr<QueuedFile> stored(const QString& id);
    // Starts a clean and waits for its end; returns completed, failed.
    std::pair<int, int> cleanAndWait(const QStringList& ids, CleanMode mode);
    // The inspector's tick of a category, by its display name.
    QTreeWidgetItem* categoryRow(const QString& displayName);

public:
    // The checks of a parametrised test read these too.
    TempDir dir_;
    std::filesystem::path trash_;
    std::unique_ptr<AppController> controller_;
};

}  // namespace tavrin::testing
