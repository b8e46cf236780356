#pragma once
// What the pane tests share: one QApplication drawn off screen, a real store on disk in a fresh
// folder with the starter presets, and a way to run the Qt loop until something holds.

#include <QApplication>
#include <QEventLoop>
#include <QTimer>

#include <memory>

#include "data/shared_container.h"
#include "services/change_notifications.h"
#include "services/preset_service.h"
#include "support/test_support.h"

namespace tavrin::testing {

inline QApplication& application() {
    static int argc = 1;
    static char name[] = "app_panes_tests";
    static char* argv[] = {name, nullptr};
    static QApplication* app = [] {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        return new QApplication(argc, argv);
    }();
    return *app;
}

// Runs the Qt loop until `done` holds or a generous guard expires (then the test fails on the
// result, it never waits out a time).
template <typename Done>
bool spinUntil(Done done, int guardMs = 20'000) {
    QEventLoop loop;
    QTimer guard;
    guard.setSingleShot(true);
    QObject::connect(&guard, &QTimer::timeout, &loop, &QEventLoop::quit);
    guard.start(guardMs);
    while (!done() && guard.isActive()) loop.processEvents(QEventLoop::WaitForMoreEvents);
    return done();
}

// Counts the announcements instead of sending them.
struct CountingNotifier final : ChangeNotifying {
    int queueUpdated = 0, processingComplete = 0, presetChanged = 0;
    void postQueueUpdated() override { ++queueUpdated; }
    void postProcessingComplete() override { ++processingComplete; }
    void postPresetChanged() override { ++presetChanged; }
};

// A store file in a fresh folder, with the starters seeded.
struct StoreFixture {
    TempDir dir;
    std::shared_ptr<ModelContainer> store = ModelContainerFactory::atURL(dir / "Tavrin.store");
    ModelContext& context = store->mainContext();
    std::shared_ptr<CountingNotifier> notifier = std::make_shared<CountingNotifier>();
    PresetService presets{context, notifier};

    StoreFixture() {
        application();
        presets.seedBuiltInPresetsIfNeeded();
    }
    // What another process sees: a connection of its own.
    std::shared_ptr<ModelContainer> reopen() const { return ModelContainerFactory::atURL(dir / "Tavrin.store"); }
};

}  // namespace tavrin::testing
