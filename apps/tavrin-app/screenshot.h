#pragma once
// `tavrin-app --screenshot FILE [--state NAME]`: the window drawn off screen in a named state,
// saved as PNG, for the README and for review. It works on a store and copies of the sample
// files in a temporary folder of its own, so neither the user's queue nor the samples change.

#include <QSize>
#include <QString>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace tavrin {

class AppController;

struct ScreenshotState {
    const char* name;
    const char* description;
    // Brings the app into the state; false (with `error` set) when it could not.
    std::function<bool(AppController&, const std::filesystem::path& samples, QString& error)> prepare;
};

// Every state, in the order `--help` lists them.
const std::vector<ScreenshotState>& screenshotStates();

inline constexpr QSize screenshotSize{1100, 640};

// The sample files: $TAVRIN_SAMPLES, else samples/files beside the source tree the program was
// built from, else ./samples/files.
std::filesystem::path sampleFilesDirectory();

// Runs the Qt loop until `done` holds; false when `limitMs` passed first (a failure, not a wait).
bool spinUntil(const std::function<bool()>& done, int limitMs = 60000);

// Renders `state` to `file`; 0 on success, else prints the reason and returns 1.
int runScreenshot(const std::filesystem::path& file, const std::string& state);

}  // namespace tavrin
