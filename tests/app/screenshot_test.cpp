// The screenshot mode writes a picture of the window at its size, and refuses a state it does
// not know.

#include <QImage>

#include "app_fixture.h"

namespace tavrin::testing {
namespace {

TEST(Screenshot, everyStateWritesAPictureOfTheWindowAtItsSize) {
    application();
    for (const auto& state : screenshotStates()) {
        TempDir dir;
        const auto file = dir / "shot.png";
        ASSERT_EQ(runScreenshot(file, state.name), 0) << state.name;
        QImage picture(QString::fromStdString(file.string()));
        ASSERT_FALSE(picture.isNull()) << state.name;
        EXPECT_EQ(picture.size() / picture.devicePixelRatio(), screenshotSize) << state.name;
        EXPECT_GT(std::filesystem::file_size(file), 1000u) << state.name;
    }
}

TEST(Screenshot, refusesAnUnknownStateAndWritesNothing) {
    application();
    TempDir dir;
    EXPECT_EQ(runScreenshot(dir / "x.png", "no-such-state"), 2);
    EXPECT_FALSE(std::filesystem::exists(dir / "x.png"));
}

TEST(Screenshot, everyStateHasANameAndADescription) {
    std::set<std::string> names;
    for (const auto& state : screenshotStates()) {
        EXPECT_TRUE(names.insert(state.name).second) << state.name;
        EXPECT_GT(std::string(state.description).size(), 0u);
    }
    EXPECT_TRUE(names.count("empty") && names.count("queue") && names.count("after-run"));
}

}  // namespace
}  // namespace tavrin::testing
