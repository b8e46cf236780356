#pragma once
// What the pane tests share: one QApplication drawn off screen, a real store on disk in a fresh
// folder with the starter presets, and a way to run the Qt loop until something holds.

#include <QAbstractButton>
#include <QAbstractItemView>
#include <QAbstractSpinBox>
#include <QApplication>
#include <QComboBox>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QEventLoop>
#include <QTimer>

#include <memory>
#include <string>
#include <vector>

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

// The controls of `window` that a screen reader could not name: no accessible name and no text.
inline std::vector<std::string> unnamedControls(QWidget* window) {
    std::vector<std::string> unnamed;
    for (auto* widget : window->findChildren<QWidget*>()) {
        const bool control = qobject_cast<QAbstractButton*>(widget) || qobject_cast<QComboBox*>(widget) ||
                             qobject_cast<QLineEdit*>(widget) || qobject_cast<QAbstractSpinBox*>(widget) ||
                             qobject_cast<QPlainTextEdit*>(widget) || qobject_cast<QAbstractItemView*>(widget);
        if (!control || widget->parent() == nullptr) continue;
        // The parts of a view or a spin box (header, viewport, inner field, tab bar) are the owner's.
        if (qobject_cast<QAbstractSpinBox*>(widget->parent()) || qobject_cast<QAbstractItemView*>(widget->parent()) ||
            widget->inherits("QHeaderView") || widget->inherits("QTabBar") ||
            widget->objectName().startsWith("qt_") ||
            qobject_cast<QAbstractItemView*>(widget->parentWidget() ? widget->parentWidget()->parentWidget() : nullptr))
            continue;
        auto name = widget->accessibleName();
        if (name.isEmpty())
            if (auto* button = qobject_cast<QAbstractButton*>(widget)) name = button->text();
        if (name.isEmpty()) unnamed.push_back(widget->metaObject()->className());
    }
    return unnamed;
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
