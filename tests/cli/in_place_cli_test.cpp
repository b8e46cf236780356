// Cleaning in place through the built program, with HOME, the store and the Trash in a private
// folder: `clean --in-place` and `queue process --in-place` put verified files at the users'
// paths and the originals in the Trash, and refuse what they must not touch.

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <map>

#include <nlohmann/json.hpp>

#include "../image/image_fixtures.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

namespace stdfs = std::filesystem;
using nlohmann::json;
using testing::readFile;
using testing::shellQuote;
using testing::writeFile;

class InPlaceCommandLine : public ::testing::Test {
protected:
    testing::TempDir dir;
    stdfs::path home = dir / "home";
    stdfs::path data = dir / "home" / "data";
    stdfs::path tmp = dir / "tmp";
    stdfs::path user = dir / "user";
    stdfs::path trash = data / "Trash";

    void SetUp() override {
        stdfs::create_directories(tmp);
        stdfs::create_directories(user);
        stdfs::create_directories(home);
    }
    std::string bin() const {
        const char* b = std::getenv("TAVRIN_BIN");
        return b ? b : "build/bin/tavrin";
    }
    int tavrin(const std::string& arguments, std::string* out = nullptr, bool withErrors = false) const {
        const std::string env = "HOME=" + shellQuote(home.string()) + " XDG_DATA_HOME=" + shellQuote(data.string()) +
                                " TMPDIR=" + shellQuote(tmp.string()) + " ";
        std::string text;
        const int status = testing::runCommand(
            env + shellQuote(bin()) + " " + arguments + (withErrors ? " 2>&1" : " 2>/dev/null"), &text);
        if (out) *out = text;
        return status;
    }
    std::map<std::string, std::string> makeFiles() {
        writeFile(user / "photo.jpg", testing::images::dirtyJPEG());
        writeFile(user / "diagram.png", testing::images::dirtyPNG());
        ::chmod((user / "photo.jpg").c_str(), 0640);
        ::chmod((user / "diagram.png").c_str(), 0604);
        return {{"photo.jpg", readFile(user / "photo.jpg")}, {"diagram.png", readFile(user / "diagram.png")}};
    }
    static mode_t modeOf(const stdfs::path& path) {
        struct stat st {};
        ::lstat(path.c_str(), &st);
        return st.st_mode & 07777;
    }
};

TEST_F(InPlaceCommandLine, cleanInPlaceReplacesEachFileAndTrashesItsOriginal) {
    const auto originals = makeFiles();
    std::string out;
    ASSERT_EQ(tavrin("clean --in-place " + shellQuote(user.string()), &out), 0) << out;
    EXPECT_NE(out.find("in place ("), std::string::npos) << out;
    EXPECT_NE(out.find("the original is in the Trash: " + (trash / "files" / "photo.jpg").string()), std::string::npos)
        << out;
    for (const auto& [name, bytes] : originals) {
        EXPECT_NE(readFile(user / name), bytes) << name << " was not cleaned";
        EXPECT_EQ(readFile(trash / "files" / name), bytes) << name;
        EXPECT_TRUE(readFile(trash / "info" / (name + ".trashinfo"))
                        .starts_with("[Trash Info]\nPath=" + (user / name).string() + "\nDeletionDate="));
        // What is at the path now passes the check: nothing left to remove.
        EXPECT_EQ(tavrin("check " + shellQuote((user / name).string())), 0) << name;
    }
    EXPECT_EQ(modeOf(user / "photo.jpg"), 0640u);
    EXPECT_EQ(modeOf(user / "diagram.png"), 0604u);
    EXPECT_EQ(std::distance(stdfs::directory_iterator(user), stdfs::directory_iterator()), 2) << "no copy beside";
    EXPECT_TRUE(stdfs::is_empty(tmp)) << "the private output folders are gone";

    // A second clean in place of the same name finds the next free name in the Trash.
    writeFile(user / "photo.jpg", originals.at("photo.jpg"));
    ASSERT_EQ(tavrin("clean --in-place --json " + shellQuote((user / "photo.jpg").string()), &out), 0);
    const auto report = json::parse(out).at(0);
    EXPECT_EQ(report["trashedPath"], (trash / "files" / "photo.jpg.2").string());
    EXPECT_EQ(report["outputPath"], (user / "photo.jpg").string());
    EXPECT_EQ(report["inPlace"], true);
}

TEST_F(InPlaceCommandLine, refusalsLeaveEveryFileAsItWas) {
    const auto originals = makeFiles();
    stdfs::create_symlink(user / "photo.jpg", dir / "link.jpg");
    struct Row {
        std::string arguments;
        int status;
        std::string says;
    };
    const Row rows[] = {
        {"clean --in-place -o " + shellQuote(tmp.string()) + " " + shellQuote((user / "photo.jpg").string()), 2,
         "can't be used with --output-dir"},
        {"clean --in-place " + shellQuote((dir / "link.jpg").string()), 1, "symbolic link"},
        {"clean --strip-edit-history " + shellQuote((user / "photo.jpg").string()), 2, "--in-place"},
    };
    for (const auto& row : rows) {
        std::string out;
        EXPECT_EQ(tavrin(row.arguments, &out, true), row.status) << row.arguments << "\n" << out;
        EXPECT_NE(out.find(row.says), std::string::npos) << out;
        for (const auto& [name, bytes] : originals) EXPECT_EQ(readFile(user / name), bytes) << row.arguments;
        EXPECT_TRUE(stdfs::is_symlink(dir / "link.jpg"));
        EXPECT_FALSE(stdfs::exists(trash / "files" / "photo.jpg")) << row.arguments;
    }
}

TEST_F(InPlaceCommandLine, queueProcessInPlaceMarksFilesCleanAndSkipsOnesChangedSinceAdded) {
    const auto originals = makeFiles();
    ASSERT_EQ(tavrin("queue add --preset maximum-privacy " + shellQuote(user.string())), 0);
    writeFile(user / "diagram.png", "saved again since it was added");
    std::string out;
    EXPECT_EQ(tavrin("queue process --in-place", &out, true), 1) << out;
    EXPECT_NE(out.find("is no longer the file that was cleaned"), std::string::npos) << out;

    ASSERT_EQ(tavrin("queue list --json", &out), 0);
    std::map<std::string, json> byName;
    for (const auto& f : json::parse(out)) byName[f["fileName"]] = f;
    EXPECT_EQ(byName["photo.jpg"]["status"], "clean");
    EXPECT_EQ(byName["photo.jpg"]["cleanedFilePath"], (user / "photo.jpg").string());
    EXPECT_EQ(byName["photo.jpg"]["editHistoryRetainedInPlace"], true) << "the settings' default keeps it";
    EXPECT_EQ(byName["diagram.png"]["status"], "failed");
    EXPECT_NE(readFile(user / "photo.jpg"), originals.at("photo.jpg"));
    EXPECT_EQ(readFile(trash / "files" / "photo.jpg"), originals.at("photo.jpg"));
    EXPECT_EQ(readFile(user / "diagram.png"), "saved again since it was added");
    EXPECT_FALSE(stdfs::exists(trash / "files" / "diagram.png"));

    ASSERT_EQ(tavrin("history --json", &out), 0);
    const auto history = json::parse(out);
    ASSERT_EQ(history.size(), 1u);
    EXPECT_EQ(history[0]["cleanedFilePath"], (user / "photo.jpg").string());

    // Leaving the queue never deletes the cleaned file at the user's path.
    const auto cleaned = readFile(user / "photo.jpg");
    EXPECT_EQ(tavrin("queue remove --all"), 0);
    EXPECT_EQ(readFile(user / "photo.jpg"), cleaned);
    for (const auto& e : stdfs::directory_iterator(tmp))
        EXPECT_FALSE(e.path().filename().string().starts_with("tavrin_output")) << e.path();
}

}  // namespace
}  // namespace tavrin
