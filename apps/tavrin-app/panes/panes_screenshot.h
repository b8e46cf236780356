#pragma once
// Pictures of the windows around the main window, for the README and for review
// (`tavrin-app --screenshot FILE --state NAME`).

#include <QString>
#include <QStringList>

#include <memory>

#include "data/store.h"

namespace tavrin {

// The states drawn here: "settings", "presets", "watched-folders", "file-manager", "history", "tour".
QStringList panesScreenshotStates();

// Draws the window of `state` over `store` (its presets, settings, watched folders and history
// as they are) off screen and writes it to `pngPath`. Nothing in the store is changed. False for
// an unknown state or a file that cannot be written. Needs a QApplication.
bool renderPanesScreenshot(const QString& state, const QString& pngPath, std::shared_ptr<ModelContainer> store);

}  // namespace tavrin
