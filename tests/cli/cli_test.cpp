// Runs the built `tavrin` program and checks what a user or a script sees: exit statuses, texts
// and the JSON shapes.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <set>
#include <nlohmann/json.hpp>

#include "input_paths.h"
#include "model/file_type.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

using nlohmann::json;

struct Run {
    int status;
    std::string out;
};

Run tavrin(const std::string& args) {
    const char* bin = std::getenv("TAVRIN_BIN");
    Run r;
    r.status = testing::runCommand(std::string(bin ? bin : "build/bin/tavrin") + " " + args + " 2>/dev/null", &r.out);
    return r;
}

TEST(TavrinCommand, helpAndUsageErrors) {
    auto help = tavrin("--help");
    EXPECT_EQ(help.status, 0);
    for (const char* command : {"formats", "inspect", "clean"}) EXPECT_NE(help.out.find(command), std::string::npos);
    EXPECT_EQ(tavrin("").status, 2);
    EXPECT_EQ(tavrin("clean").status, 2);
    EXPECT_EQ(tavrin("clean --profile nonsense x.jpg").status, 2);
    EXPECT_EQ(tavrin("clean --jobs 0 x.jpg").status, 2);
    EXPECT_EQ(tavrin("frobnicate").status, 2);
}

TEST(TavrinCommand, formatsListsEveryType) {
    auto r = tavrin("formats --json");
    ASSERT_EQ(r.status, 0);
    const auto rows = json::parse(r.out);
    ASSERT_EQ(rows.size(), fileTypes::allCases().size());
    std::set<std::string> listed;
    for (const auto& row : rows) listed.insert(row["fileType"].get<std::string>());
    for (auto type : fileTypes::allCases()) EXPECT_TRUE(listed.count(std::string(rawValue(type)))) << rawValue(type);
    EXPECT_EQ(rows[0]["fileType"], "jpeg");
    EXPECT_EQ(rows[0]["supportLevel"], "verifiedCleanable");
    for (const auto& row : rows) {
        for (const char* key : {"displayName", "category", "supportLevel", "canInspect", "canClean", "extensions"})
            EXPECT_TRUE(row.contains(key)) << key;
        // Types the strict gate refuses are never advertised as cleanable.
        if (row["supportLevel"] != "verifiedCleanable") {
            EXPECT_FALSE(row["canClean"].get<bool>()) << row.dump();
        }
    }
}

TEST(TavrinCommand, cleanReportsRefusalsWithTheirTextsAndShape) {
    testing::TempDir dir;
    testing::writeFile(dir / "clip.mov", "not really a movie");
    testing::writeFile(dir / "notes.xyz", "");
    const auto r = tavrin("clean --json " + testing::shellQuote((dir / "clip.mov").string()) + " " +
                          testing::shellQuote((dir / "notes.xyz").string()) + " " +
                          testing::shellQuote((dir / "missing.jpg").string()));
    EXPECT_EQ(r.status, 1);
    const auto reports = json::parse(r.out);
    ASSERT_EQ(reports.size(), 3u);
    for (const char* key : {"sourcePath", "outputPath", "fileType", "verifiedClean", "isClean", "removedItems",
                            "retainedItems", "warnings", "remainingMetadataClasses", "originalSize", "cleanedSize",
                            "duration", "error"})
        EXPECT_TRUE(reports[0].contains(key)) << key;
    EXPECT_EQ(reports[0]["error"],
              "QuickTime Movie cleaning is blocked in strict mode because metadata removal has not been fully verified "
              "for release.");
    EXPECT_EQ(reports[0]["fileType"], "mov");
    EXPECT_TRUE(reports[0]["outputPath"].is_null());
    EXPECT_EQ(reports[1]["error"], "Cannot determine file type: notes.xyz");
    EXPECT_EQ(reports[2]["error"], "Cannot access file: missing.jpg");
    // Refused files leave nothing behind.
    EXPECT_FALSE(std::filesystem::exists(dir / "clip_cleaned.mov"));
}

TEST(TavrinCommand, missingOrFileOutputDirectoryFailsBeforeAnyWork) {
    testing::TempDir dir;
    testing::writeFile(dir / "a.jpg", "x");
    for (const auto& out : {dir / "nope", dir / "a.jpg"}) {
        std::string text;
        const int status = testing::runCommand(std::string(std::getenv("TAVRIN_BIN")) + " clean --output-dir " +
                                                   testing::shellQuote(out.string()) + " " +
                                                   testing::shellQuote((dir / "a.jpg").string()) + " 2>&1",
                                               &text);
        EXPECT_EQ(status, 1);
        EXPECT_NE(text.find("Cannot write to directory: " + out.string()), std::string::npos) << text;
    }
}

TEST(TavrinCommand, inspectReportsErrorsPerFile) {
    testing::TempDir dir;
    const auto r = tavrin("inspect --json " + testing::shellQuote((dir / "gone.png").string()) + " " +
                          testing::shellQuote(dir.path().string()));
    EXPECT_EQ(r.status, 1);
    const auto entries = json::parse(r.out);
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0]["error"], "Cannot access file: gone.png");
    EXPECT_EQ(entries[0]["path"], (dir / "gone.png").string());
    EXPECT_TRUE(entries[1].contains("error"));  // a folder is not a file
}

// A phone's movie: its place, device, author and dates are shown, and cleaning it is refused.
TEST(TavrinCommand, inspectsAMovieAndRefusesToCleanIt) {
    const std::string movie = "samples/files/holiday-clip.mov";
    const auto r = tavrin("inspect --json " + movie);
    ASSERT_EQ(r.status, 0);
    std::map<std::string, std::string> valueById;
    std::set<std::string> categories;
    const auto report = json::parse(r.out);
    for (const auto& node : report[0]["rootNodes"])
        for (const auto& child : node["children"]) {
            categories.insert(child["item"]["category"].get<std::string>());
            valueById[child["id"].get<std::string>()] = child["item"]["value"].dump();
        }
    for (const char* category : {"location", "deviceInfo", "authorIdentity", "timestamps", "softwareInfo"})
        EXPECT_TRUE(categories.count(category)) << category;
    EXPECT_NE(valueById["QuickTimeMetadata.com.apple.quicktime.location.ISO6709"].find("+43.6950+007.2710"),
              std::string::npos);
    EXPECT_NE(valueById["QuickTimeMetadata.com.apple.quicktime.model"].find("iPhone 15 Pro"), std::string::npos);
    EXPECT_TRUE(valueById.count("AVAsset.creationDate"));

    testing::TempDir dir;
    std::string text;
    EXPECT_EQ(testing::runCommand(std::string(std::getenv("TAVRIN_BIN")) + " clean --output-dir " +
                                      testing::shellQuote(dir.path().string()) + " " + movie + " 2>&1",
                                  &text),
              1);
    EXPECT_NE(text.find("QuickTime Movie cleaning is blocked in strict mode"), std::string::npos) << text;
    EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

// qpdf and the TLS library under it are loaded only for PDFs, from the module next to the
// program. Without the module a PDF fails with the reason and leaves nothing behind, and every
// other format still works.
TEST(TavrinCommand, pdfSupportIsLoadedOnlyForPDFs) {
    const char* bin = std::getenv("TAVRIN_BIN");
    ASSERT_NE(bin, nullptr);
    const auto loads = [&](const std::string& program, const std::string& args) {
        std::string log;
        testing::runCommand("LD_DEBUG=libs " + program + " " + args + " 2>&1 >/dev/null", &log);
        return log.find("libqpdf") != std::string::npos;
    };
    const std::string picture = "samples/files/diagram.png", pdf = "samples/files/quarterly-report.pdf";
    EXPECT_FALSE(loads(bin, "inspect " + picture));
    EXPECT_TRUE(loads(bin, "inspect " + pdf));

    testing::TempDir dir;
    std::filesystem::create_directories(dir / "bin");
    std::filesystem::create_directories(dir / "out");
    std::filesystem::copy_file(bin, dir / "bin" / "tavrin");
    const std::string alone = testing::shellQuote((dir / "bin" / "tavrin").string());
    const std::string out = " --output-dir " + testing::shellQuote((dir / "out").string()) + " ";
    std::string text;
    EXPECT_EQ(testing::runCommand(alone + " clean" + out + pdf + " 2>&1", &text), 1);
    EXPECT_NE(text.find("PDF support cannot be loaded"), std::string::npos) << text;
    EXPECT_TRUE(std::filesystem::is_empty(dir / "out"));
    EXPECT_EQ(testing::runCommand(alone + " clean" + out + picture + " >/dev/null 2>&1"), 0);
}

TEST(InputPaths, walksFoldersSkippingHiddenEntriesAndLinks) {
    testing::TempDir dir;
    std::filesystem::create_directories(dir / "tree/sub/deeper");
    std::filesystem::create_directories(dir / "tree/.hidden");
    testing::writeFile(dir / "tree/b.jpg", "x");
    testing::writeFile(dir / "tree/a.png", "x");
    testing::writeFile(dir / "tree/.secret.jpg", "x");
    testing::writeFile(dir / "tree/.hidden/c.jpg", "x");
    testing::writeFile(dir / "tree/sub/deeper/d.pdf", "x");
    std::filesystem::create_symlink(dir / "tree/b.jpg", dir / "tree/link.jpg");
    std::filesystem::create_directory_symlink(dir / "tree/sub", dir / "tree/sublink");
    const auto files = cli::expandInputPaths({dir / "tree", dir / "absent.jpg"});
    std::vector<std::string> names;
    for (const auto& f : files) names.push_back(std::filesystem::relative(f.path, dir.path()).string());
    EXPECT_EQ(names, (std::vector<std::string>{"tree/a.png", "tree/b.jpg", "tree/sub/deeper/d.pdf", "absent.jpg"}));
    EXPECT_TRUE(files.back().error.has_value());
}

TEST(InputPaths, outputNamesAvoidTakenAndReservedNames) {
    testing::TempDir dir;
    testing::writeFile(dir / "Photo_cleaned.jpg", "taken");
    std::set<std::filesystem::path> reserved;
    EXPECT_EQ(cli::reserveOutputPath(dir / "Photo.jpg", std::nullopt, reserved), dir / "Photo_cleaned 2.jpg");
    EXPECT_EQ(cli::reserveOutputPath(dir / "x/Photo.jpg", dir.path(), reserved), dir / "Photo_cleaned 3.jpg");
    EXPECT_EQ(cli::reserveOutputPath(dir / "README", std::nullopt, reserved), dir / "README_cleaned");
}

}  // namespace
}  // namespace tavrin
