// `tavrin open-url` with hostile links: nothing crashes or hangs, only files that were asked for
// are read, copies appear only beside them (or in a share folder), and no source is written.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <sys/stat.h>
#include <unistd.h>

#include "../image/image_fixtures.h"
#include "handoff/tavrin_url.h"
#include "handoff/url_dispatch.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

namespace fsys = std::filesystem;
using testing::readFile;
using testing::shellQuote;
using testing::writeFile;

struct Run {
    int status;
    std::string out;
};

Run openURL(const std::string& arguments) {
    const char* bin = std::getenv("TAVRIN_BIN");
    Run run;
    run.status = testing::runCommand(std::string(bin ? bin : "build/bin/tavrin") + " open-url " + arguments +
                                         " 2>&1 </dev/null",
                                     &run.out);
    return run;
}

std::map<std::string, std::string> snapshot(const fsys::path& root) {
    std::map<std::string, std::string> tree;
    for (auto it = fsys::recursive_directory_iterator(root); it != fsys::recursive_directory_iterator(); ++it) {
        std::error_code ec;
        tree[it->path().lexically_relative(root).string()] = it->is_regular_file(ec) ? readFile(it->path()) : "<other>";
    }
    return tree;
}

class OpenURLCommand : public ::testing::Test {
protected:
    void SetUp() override {
        photo = dir / "photo.jpg";
        writeFile(photo, testing::images::dirtyJPEG());
        fsys::create_directories(dir / "sub");
    }
    std::string url(const std::string& text) { return shellQuote(text); }

    testing::TempDir dir;
    fsys::path photo;
};

TEST_F(OpenURLCommand, cleanWritesNumberedCopiesBesideAndNeverTheSource) {
    const auto original = readFile(photo);
    const auto link = TavrinURL::cleanURL({photo}, std::nullopt, false).value();
    auto run = openURL(url(link));
    EXPECT_EQ(run.status, 0) << run.out;
    EXPECT_TRUE(fsys::exists(dir / "photo_cleaned.jpg"));
    run = openURL(url(link));
    EXPECT_EQ(run.status, 0) << run.out;
    EXPECT_TRUE(fsys::exists(dir / "photo_cleaned 2.jpg"));
    EXPECT_EQ(readFile(photo), original);
    EXPECT_NE(readFile(dir / "photo_cleaned.jpg"), original);
}

TEST_F(OpenURLCommand, unknownPresetCleansWithMaximumPrivacy) {
    const auto link = TavrinURL::cleanURL({photo}, std::string("rm -rf /"), false).value();
    const auto run = openURL(url(link));
    EXPECT_EQ(run.status, 0) << run.out;
    EXPECT_NE(run.out.find("Unknown preset \"rm -rf /\": cleaning with maximum-privacy."), std::string::npos) << run.out;
    EXPECT_TRUE(fsys::exists(dir / "photo_cleaned.jpg"));
}

TEST_F(OpenURLCommand, shareCleansIntoATemporaryFolderOnly) {
    const auto before = snapshot(dir.path());
    const auto run = openURL(url(TavrinURL::cleanURL({photo}, std::nullopt, true).value()));
    EXPECT_EQ(run.status, 0) << run.out;
    EXPECT_EQ(snapshot(dir.path()), before);
    const std::string marker = "Cleaned copies to share go to ";
    const auto at = run.out.find(marker);
    ASSERT_NE(at, std::string::npos) << run.out;
    const fsys::path folder = run.out.substr(at + marker.size(), run.out.find('\n', at) - at - marker.size());
    EXPECT_TRUE(fsys::exists(folder / "photo_cleaned.jpg"));
    fsys::remove_all(folder);
}

TEST_F(OpenURLCommand, hostileLinksTouchNothing) {
    const auto fifo = dir / "pipe.jpg";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const auto unreadable = dir / "locked.jpg";
    writeFile(unreadable, testing::images::dirtyJPEG());
    fsys::permissions(unreadable, fsys::perms::none);
    fsys::create_symlink("/dev/zero", dir / "zero.jpg");
    std::string many = "tavrin://clean?";
    // Short items, so that the whole link still fits one command-line argument.
    for (int i = 0; i < 10000; ++i) many += "file=/" + std::to_string(i) + "&";
    const std::string dirText = dir.path().string();

    struct Case {
        const char* name;
        std::string link;
        std::string expectedText;
    };
    const std::vector<Case> cases{
        {"relative dot-dot", "tavrin://clean?file=../../photo.jpg", "not an absolute path"},
        {"NUL", "tavrin://clean?file=" + dirText + "/photo.jpg%00.png", "the link names no file"},
        {"non-UTF-8", "tavrin://clean?file=" + dirText + "/photo%FF.jpg", "the link names no file"},
        {"device", "tavrin://clean?file=/dev/zero", "not a regular file"},
        {"link to a device", "tavrin://clean?file=" + dirText + "/zero.jpg", "not a regular file"},
        {"FIFO", "tavrin://clean?file=" + percentEncode(fifo.string()), "not a regular file"},
        {"folder", "tavrin://clean?file=" + dirText + "/sub", "a folder, not a file"},
        {"ten thousand items", many, "Skipped"},
        {"long link", "tavrin://clean?file=/" + std::string(120000, 'a'), "no such file"},
        {"scheme in upper case", "TAVRIN://clean?file=" + dirText + "/photo.jpg", "not a tavrin: link"},
        {"unknown host", "tavrin://delete?file=" + dirText + "/photo.jpg", "unknown command"},
    };
    const auto before = snapshot(dir.path());
    for (const auto& c : cases) {
        const auto run = openURL(url(c.link));
        EXPECT_NE(run.status, 0) << c.name;
        EXPECT_NE(run.out.find(c.expectedText), std::string::npos) << c.name << ": " << run.out.substr(0, 400);
        EXPECT_EQ(snapshot(dir.path()), before) << c.name;
    }
    if (::geteuid() != 0) {
        const auto run = openURL(url("tavrin://clean?file=" + percentEncode(unreadable.string())));
        EXPECT_NE(run.out.find("not readable"), std::string::npos) << run.out;
        EXPECT_EQ(snapshot(dir.path()), before);
    }
}

TEST_F(OpenURLCommand, enqueueAddsTheFileToTheUsersQueueAndChangesNothingBesideIt) {
    const auto data = dir / "data";
    const std::string env = "XDG_DATA_HOME=" + shellQuote(data.string()) + " ";
    const char* bin = std::getenv("TAVRIN_BIN");
    const std::string tavrin = env + std::string(bin ? bin : "build/bin/tavrin");
    std::string out;
    EXPECT_EQ(testing::runCommand(tavrin + " open-url " + shellQuote(TavrinURL::enqueueURL({photo})) + " 2>&1", &out), 0)
        << out;
    EXPECT_NE(out.find("Added to the queue"), std::string::npos) << out;
    EXPECT_EQ(testing::runCommand(tavrin + " queue list --json", &out), 0);
    EXPECT_NE(out.find("\"staged\""), std::string::npos) << out;
    EXPECT_TRUE(fsys::exists(photo));
    EXPECT_FALSE(fsys::exists(dir / "photo_cleaned.jpg"));
}

TEST_F(OpenURLCommand, dotDotResolvesToTheFileItNamesAndNoOther) {
    const auto run = openURL(url("tavrin://clean?file=" + dir.path().string() + "/sub/../photo.jpg"));
    EXPECT_EQ(run.status, 0) << run.out;
    EXPECT_TRUE(fsys::exists(dir / "photo_cleaned.jpg"));
    EXPECT_FALSE(fsys::exists(dir / "sub/photo_cleaned.jpg"));
}

TEST_F(OpenURLCommand, menuEntryTakesAHostileFileNameAsOneArgument) {
    const auto hostile = dir / "a'b\"c;rm -rf ~ $(x).jpg";
    fsys::copy_file(photo, hostile);
    const auto run = openURL("--menu clean:location-only -- " + shellQuote(hostile.string()));
    EXPECT_EQ(run.status, 0) << run.out;
    EXPECT_TRUE(fsys::exists(dir / "a'b\"c;rm -rf ~ $(x)_cleaned.jpg"));
    EXPECT_EQ(openURL("--menu clean:nonsense -- " + shellQuote(hostile.string())).status, 2);
}

TEST_F(OpenURLCommand, openAndAppSayWhatTheyWouldShow) {
    auto run = openURL(url(TavrinURL::openURL(photo)));
    EXPECT_EQ(run.status, 0) << run.out;
    EXPECT_NE(run.out.find("Would open"), std::string::npos);
    run = openURL(url(TavrinURL::appURL(true)));
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.out.find("Would bring Tavrin to the front"), std::string::npos);
}

TEST(IntegrateCommand, installStatusUninstallStayInsideTheGivenFolders) {
    testing::TempDir dir;
    fsys::create_directories(dir / "data");
    fsys::create_directories(dir / "config");
    const char* bin = std::getenv("TAVRIN_BIN");
    const std::string env = "XDG_DATA_HOME=" + shellQuote((dir / "data").string()) +
                            " XDG_CONFIG_HOME=" + shellQuote((dir / "config").string()) + " XDG_CONFIG_DIRS=/nonexistent " +
                            (bin ? bin : "build/bin/tavrin") + " integrate ";
    std::string out;
    ASSERT_EQ(testing::runCommand(env + "install 2>&1", &out), 0) << out;
    EXPECT_TRUE(fsys::exists(dir / "data/applications/tavrin.desktop"));
    EXPECT_TRUE(fsys::exists(dir / "data/kio/servicemenus/tavrin.desktop"));
    ASSERT_EQ(testing::runCommand(env + "status 2>&1", &out), 0);
    EXPECT_NE(out.find("Right-click menu: Enabled (Caja, Dolphin, Nautilus, Nemo)"), std::string::npos) << out;
    EXPECT_NE(out.find("Open With menu: Enabled"), std::string::npos) << out;
    ASSERT_EQ(testing::runCommand(env + "uninstall 2>&1", &out), 0) << out;
    EXPECT_TRUE(fsys::is_empty(dir / "data")) << out;
    EXPECT_TRUE(fsys::is_empty(dir / "config")) << out;
    ASSERT_EQ(testing::runCommand(env + "status 2>&1", &out), 0);
    EXPECT_NE(out.find("Right-click menu: Not enabled"), std::string::npos) << out;
    EXPECT_EQ(testing::runCommand(env + "frobnicate 2>&1", &out), 2);
}

// In process: links too long for a command line still dispatch whole.
class RecordingHandler : public TavrinURLHandler {
public:
    std::vector<CleanRequest> cleans;
    std::vector<std::string> unrecognizedWhy;
    int openApp(bool) override { return 0; }
    int enqueue(const AdmittedFiles&) override { return 0; }
    int open(const AdmittedFiles&) override { return 0; }
    int clean(const CleanRequest& request, const std::vector<RejectedFile>&) override {
        cleans.push_back(request);
        return 0;
    }
    int unrecognized(std::string_view, std::string_view why) override {
        unrecognizedWhy.emplace_back(why);
        return 1;
    }
};

TEST(TavrinURLDispatch, aTenMegabyteLinkIsParsedAndItsFileRejected) {
    RecordingHandler handler;
    EXPECT_EQ(dispatchTavrinURL("tavrin://clean?file=/" + std::string(10 << 20, 'a') + "&preset=nope", handler), 0);
    ASSERT_EQ(handler.cleans.size(), 1u);
    EXPECT_TRUE(handler.cleans[0].fileURLs.empty());
    EXPECT_EQ(handler.cleans[0].presetName, "nope");
}

TEST(TavrinURLDispatch, printableEscapesControlsAndBrokenText) {
    EXPECT_EQ(printable("a\nb\x1b[31m\xFF\\é"), "a\\x0Ab\\x1B[31m\\xFF\\\\é");
    EXPECT_EQ(printable(std::string(10, 'x'), 4), "xxxx…");
}

}  // namespace
}  // namespace tavrin
