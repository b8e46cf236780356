// The exiftool components inside the engine: which types they serve under a `pro` configuration,
// that the strict gate stays closed, and the `tavrin --exiftool` option.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <nlohmann/json.hpp>

#include "model/file_type_detector.h"
#include "model/pipeline_error.h"
#include "pipeline/tavrin_engine.h"
#include "exiftool_fixtures.h"

namespace tavrin {
namespace {

using nlohmann::json;
using testing::shellQuote;
using testing::TempDir;

// A stand-in exiftool that leaves a mark whenever it is started, and reads as one item.
std::filesystem::path markingTool(const TempDir& dir) {
    return testing::writeStubTool(dir / "exiftool", "touch \"$(dirname \"$0\")/called\"\n"
                                                    "echo '[{\"FlashPix:Author\": \"Stub\"}]'");
}

TEST(ExifToolEngine, proServesEveryTypeAndUsesTheToolOnlyWhereNoNativeReaderIs) {
    TempDir dir;
    const TavrinEngine pro(EngineConfiguration::pro(markingTool(dir).string()));
    const std::set<FileType> every(fileTypes::allCases().begin(), fileTypes::allCases().end());
    EXPECT_EQ(pro.supportedInspectionTypes(), every);
    EXPECT_EQ(pro.supportedCleaningTypes(), every);

    // A type with a native reader never starts the tool; legacy Office, which has none, is read
    // through it below, from the command line.
    testing::writeFile(dir / "photo.jpg", testing::jpegWithMetadata());
    pro.inspect(dir / "photo.jpg");
    EXPECT_FALSE(std::filesystem::exists(dir / "called"));
}

TEST(ExifToolEngine, proLeavesTheStrictGateClosedAndAMissingToolFailsTheRead) {
    TempDir dir;
    const TavrinEngine pro(EngineConfiguration::pro(markingTool(dir).string()));
    std::filesystem::create_directory(dir / "out");
    for (FileType type : fileTypes::allCases()) {
        if (FormatCapabilities::capabilities(type).allowsStrictVerifiedCleaning()) continue;
        const auto file = dir / ("sample." + std::string(fileExtensions(type).front()));
        testing::writeFile(file, "content");
        SCOPED_TRACE(rawValue(type));
        testing::failureText<PipelineError>([&] { pro.clean(file, CleaningProfile::maximumPrivacy(), dir / "out"); },
                                            PipelineError::Case::formatNotVerifiedForCleaning);
    }
    EXPECT_FALSE(std::filesystem::exists(dir / "called"));
    EXPECT_TRUE(std::filesystem::is_empty(dir / "out"));

    testing::writeFile(dir / "plan.doc", testing::kLegacyWordHeader);
    const TavrinEngine noTool(EngineConfiguration::pro((dir / "none").string()));
    EXPECT_EQ(testing::failureText<PipelineError>([&] { noTool.inspect(dir / "plan.doc"); },
                                                  PipelineError::Case::readFailed),
              "Failed to read metadata from plan.doc: ExifTool is not available. This fallback is not included in the "
              "current Tavrin release.");
}

struct Run {
    int status;
    std::string out;
};

// Runs the built program; `environment` goes before it on the shell line ("PATH=/x").
Run tavrin(const std::string& args, const std::string& environment = "") {
    const char* bin = std::getenv("TAVRIN_BIN");
    Run r;
    r.status = testing::runCommand(environment + " " + shellQuote(bin ? bin : "build/bin/tavrin") + " " + args + " 2>&1",
                                   &r.out);
    return r;
}

std::map<std::string, json> formatRows(const Run& run) {
    EXPECT_EQ(run.status, 0) << run.out;
    std::map<std::string, json> rows;
    for (const auto& row : json::parse(run.out)) rows[row["fileType"]] = row;
    return rows;
}

TEST(TavrinExifToolOption, inspectsLegacyOfficeThroughTheToolButNeverCleansIt) {
    TempDir dir;
    const auto tool = shellQuote(markingTool(dir).string());
    const auto doc = shellQuote((dir / "plan.doc").string());
    testing::writeFile(dir / "plan.doc", testing::kLegacyWordHeader);
    const auto r = tavrin("inspect --json --exiftool " + tool + " " + doc);
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_NE(r.out.find("ExifTool.FlashPix:Author"), std::string::npos) << r.out;

    const auto without = tavrin("inspect " + doc);
    EXPECT_EQ(without.status, 1);
    EXPECT_NE(without.out.find("No metadata reader available for Word Document (Legacy) files"), std::string::npos);

    std::filesystem::remove(dir / "called");
    const auto clean = tavrin("clean --exiftool " + tool + " " + doc);
    EXPECT_EQ(clean.status, 1);
    EXPECT_NE(clean.out.find("blocked in strict mode"), std::string::npos) << clean.out;
    EXPECT_FALSE(std::filesystem::exists(dir / "plan_cleaned.doc"));

    const auto rowsWith = formatRows(tavrin("formats --json --exiftool " + tool));
    const auto rowsWithout = formatRows(tavrin("formats --json"));
    for (const char* type : {"doc", "xls", "ppt"}) {
        EXPECT_FALSE(rowsWith.at(type)["canClean"].get<bool>()) << type;
        EXPECT_FALSE(rowsWithout.at(type)["canInspect"].get<bool>()) << type;
    }
    for (const auto& [type, row] : rowsWith) EXPECT_TRUE(row["canInspect"].get<bool>()) << type;
    EXPECT_FALSE(std::filesystem::exists(dir / "called"));  // neither a refused clean nor a listing starts the tool
}

TEST(TavrinExifToolOption, aToolThatHangsIsKilledAfterTheChosenTimeOut) {
    TempDir dir;
    testing::writeStubTool(dir / "exiftool", "sleep 30");
    testing::writeFile(dir / "plan.doc", testing::kLegacyWordHeader);
    const auto r = tavrin("inspect --exiftool-timeout 1 --exiftool " + shellQuote((dir / "exiftool").string()) + " " +
                          shellQuote((dir / "plan.doc").string()));
    EXPECT_EQ(r.status, 1) << r.out;
    EXPECT_NE(r.out.find("Failed to read metadata from plan.doc"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("did not finish within 1 second and was stopped"), std::string::npos) << r.out;
    EXPECT_EQ(tavrin("inspect --exiftool-timeout 0 x.doc").status, 2);
}

TEST(TavrinExifToolOption, searchesPathOnlyWhenAskedAndRefusesABadTool) {
    TempDir dir;
    std::filesystem::create_directory(dir / "bin");
    std::filesystem::create_directory(dir / "empty");
    testing::writeStubTool(dir / "bin/exiftool", "echo '[{}]'");
    const std::string pathWithTool = "PATH=" + shellQuote((dir / "bin").string() + ":/usr/bin:/bin");
    EXPECT_TRUE(formatRows(tavrin("formats --json --exiftool auto", pathWithTool)).at("doc")["canInspect"].get<bool>());
    EXPECT_FALSE(formatRows(tavrin("formats --json", pathWithTool)).at("doc")["canInspect"].get<bool>());

    const auto nowhere = tavrin("formats --exiftool auto", "PATH=" + shellQuote((dir / "empty").string()));
    EXPECT_EQ(nowhere.status, 2);
    EXPECT_EQ(nowhere.out, "tavrin: --exiftool auto: no executable exiftool found on PATH\n");
    testing::writeFile(dir / "plain", "not a program");
    for (const auto& bad : {dir / "missing", dir / "plain", dir / "empty"}) {
        const auto r = tavrin("inspect --exiftool " + shellQuote(bad.string()) + " x.doc");
        EXPECT_EQ(r.status, 2) << bad;
        EXPECT_EQ(r.out, "tavrin: --exiftool: " + bad.string() +
                             " is not an executable file; give the path of exiftool, or 'auto' to search PATH\n");
    }
}

}  // namespace
}  // namespace tavrin
