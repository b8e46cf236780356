#pragma once
// The share program's entry: arguments, the real collaborators of the window, and the
// screenshot mode that renders the window off screen to a PNG.

#include <QWidget>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tavrin {

struct ShareArguments {
    std::vector<std::filesystem::path> files;  // made absolute
    std::optional<std::filesystem::path> screenshot;
};

// None for a usage error. After "--" every argument is a file.
std::optional<ShareArguments> parseShareArguments(const std::vector<std::string>& arguments);
// Lays the window out, shows it and writes what it shows to `file`.
bool saveScreenshot(QWidget& window, const std::filesystem::path& file);
int runShare(int argc, char** argv);

}  // namespace tavrin
