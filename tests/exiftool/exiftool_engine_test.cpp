// The exiftool components inside the engine: which types they serve under a `pro`
// configuration, that the strict gate stays closed, and the `tavrin --exiftool` option.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>

#include "engine/file_type_detector.h"
#include "engine/pipeline_error.h"
#include "engine/tavrin_engine.h"
#include "exiftool_fixtures.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

using nlohmann::json;
using testing::TempDir;

// A stand-in exiftool that leaves a mark whenever it is started, and reads as one item.
std::filesystem::path markingTool(const TempDir& dir) {
    return testing::writeStubTool(dir / "exiftool", "touch \"$(dirname \"$0\")/called\"\n"
                                                    "echo '[{\"FlashPix:Author\": \"Stub\"}]'");
}

std::set<FileType> everyType() {
    const auto& all = fileTypes::allCases();
    return {all.begin(), all.end()};
}

PipelineError::Case failureCase(const std::function<void()>& body, std::string* text = nullptr) {
    try {
        body();
    } catch (const PipelineError& e) {
        if (text) *text = e.what();
        return e.errorCase();
    }
    ADD_FAILURE() << "no failure";
    return PipelineError::Case::cancelled;
}

TEST(ExifToolEngine, proServesEveryTypeAndUsesTheToolOnlyWhereNoNativeReaderIs) {
    TempDir dir;
    const auto tool = markingTool(dir);
    const TavrinEngine standard;
    const TavrinEngine pro(EngineConfiguration::pro(tool.string()));
    EXPECT_EQ(pro.supportedInspectionTypes(), everyType());
    EXPECT_EQ(pro.supportedCleaningTypes(), everyType());
    EXPECT_EQ(standard.supportedInspectionTypes().count(FileType::doc), 0u);

    testing::writeFile(dir / "photo.jpg", testing::jpegWithMetadata());
    testing::writeFile(dir / "plan.doc", testing::legacyWordDocument());
    for (const auto& file : {dir / "photo.jpg", dir / "plan.doc"}) {
        std::filesystem::remove(dir / "called");
        const FileType type = FileTypeDetector::detect(file);
        const bool native = standard.supportedInspectionTypes().count(type) > 0 &&
                            FormatCapabilities::capabilities(type).canReadNatively;
        try {
            pro.inspect(file);
        } catch (const std::exception&) {
            // Whether the native reader likes this file is not the question here.
        }
        EXPECT_EQ(std::filesystem::exists(dir / "called"), !native) << file;
    }
}

TEST(ExifToolEngine, proLeavesTheStrictGateClosed) {
    TempDir dir;
    const auto tool = markingTool(dir);
    const TavrinEngine pro(EngineConfiguration::pro(tool.string()));
    std::filesystem::create_directory(dir / "out");
    for (FileType type : fileTypes::allCases()) {
        if (FormatCapabilities::capabilities(type).allowsStrictVerifiedCleaning()) continue;
        const auto file = dir / ("sample." + std::string(fileExtensions(type).front()));
        testing::writeFile(file, "content");
        std::string text;
        EXPECT_EQ(failureCase([&] { pro.clean(file, CleaningProfile::maximumPrivacy(), dir / "out"); }, &text),
                  PipelineError::Case::formatNotVerifiedForCleaning)
            << rawValue(type) << ": " << text;
    }
    EXPECT_FALSE(std::filesystem::exists(dir / "called"));
    EXPECT_TRUE(std::filesystem::is_empty(dir / "out"));
}

TEST(ExifToolEngine, inspectsALegacyWordDocumentOnlyWithTheTool) {
    TAVRIN_REQUIRE_EXIFTOOL(exifTool);
    TempDir dir;
    testing::writeFile(dir / "plan.doc", testing::legacyWordDocument());
    std::string text;
    EXPECT_EQ(failureCase([&] { TavrinEngine().inspect(dir / "plan.doc"); }, &text),
              PipelineError::Case::noReaderAvailable);
    EXPECT_EQ(text, "No metadata reader available for Word Document (Legacy) files");

    const auto tree = TavrinEngine(EngineConfiguration::pro(exifTool)).inspect(dir / "plan.doc");
    EXPECT_EQ(tree.fileType, FileType::doc);
    const auto authors = tree.items(MetadataCategory::authorIdentity);
    ASSERT_FALSE(authors.empty());
    EXPECT_EQ(authors.front().id, "ExifTool.FlashPix:Author");
    EXPECT_EQ(authors.front().value, MetadataValue::string("Jane Roe"));
}

TEST(ExifToolEngine, aMissingToolFailsTheReadWithItsText) {
    TempDir dir;
    testing::writeFile(dir / "plan.doc", testing::legacyWordDocument());
    std::string text;
    EXPECT_EQ(failureCase([&] { TavrinEngine(EngineConfiguration::pro((dir / "none").string())).inspect(dir / "plan.doc"); },
                          &text),
              PipelineError::Case::readFailed);
    EXPECT_EQ(text, "Failed to read metadata from plan.doc: ExifTool is not available. This fallback is not included "
                    "in the current Tavrin release.");
}

struct Run {
    int status;
    std::string out;
};

// Runs the built program; `environment` goes before it on the shell line ("PATH=/x").
Run tavrin(const std::string& args, const std::string& environment = "") {
    const char* bin = std::getenv("TAVRIN_BIN");
    Run r;
    r.status = testing::runCommand(environment + " " + testing::shellQuote(bin ? bin : "build/bin/tavrin") + " " +
                                       args + " 2>&1",
                                   &r.out);
    return r;
}

std::map<std::string, json> formatRows(const std::string& output) {
    std::map<std::string, json> rows;
    for (const auto& row : json::parse(output)) rows[row["fileType"]] = row;
    return rows;
}

TEST(TavrinExifToolOption, inspectReadsALegacyDocumentThroughTheTool) {
    TAVRIN_REQUIRE_EXIFTOOL(exifTool);
    TempDir dir;
    testing::writeFile(dir / "plan.doc", testing::legacyWordDocument());
    const auto r = tavrin("inspect --json --exiftool " + testing::shellQuote(exifTool) + " " +
                          testing::shellQuote((dir / "plan.doc").string()));
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_NE(r.out.find("ExifTool.FlashPix:Author"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("Jane Roe"), std::string::npos);

    const auto without = tavrin("inspect " + testing::shellQuote((dir / "plan.doc").string()));
    EXPECT_EQ(without.status, 1);
    EXPECT_NE(without.out.find("No metadata reader available for Word Document (Legacy) files"), std::string::npos);

    // Cleaning stays refused, and nothing is written.
    const auto clean = tavrin("clean --exiftool " + testing::shellQuote(exifTool) + " " +
                              testing::shellQuote((dir / "plan.doc").string()));
    EXPECT_EQ(clean.status, 1);
    EXPECT_NE(clean.out.find("blocked in strict mode"), std::string::npos) << clean.out;
    EXPECT_FALSE(std::filesystem::exists(dir / "plan_cleaned.doc"));
}

TEST(TavrinExifToolOption, formatsShowsLegacyOfficeAsInspectableWithTheTool) {
    TempDir dir;
    const auto tool = markingTool(dir);
    auto with = tavrin("formats --json --exiftool " + testing::shellQuote(tool.string()));
    ASSERT_EQ(with.status, 0) << with.out;
    auto without = tavrin("formats --json");
    ASSERT_EQ(without.status, 0);
    const auto rowsWith = formatRows(with.out), rowsWithout = formatRows(without.out);
    for (const char* type : {"doc", "xls", "ppt"}) {
        EXPECT_TRUE(rowsWith.at(type)["canInspect"].get<bool>()) << type;
        EXPECT_FALSE(rowsWith.at(type)["canClean"].get<bool>()) << type;
        EXPECT_FALSE(rowsWithout.at(type)["canInspect"].get<bool>()) << type;
    }
    for (const auto& [type, row] : rowsWith) EXPECT_TRUE(row["canInspect"].get<bool>()) << type;
    EXPECT_FALSE(std::filesystem::exists(dir / "called"));  // listing formats starts no tool
}

TEST(TavrinExifToolOption, aToolThatHangsIsKilledAfterTheChosenTimeOut) {
    TempDir dir;
    testing::writeStubTool(dir / "exiftool", "sleep 30");
    testing::writeFile(dir / "plan.doc", testing::legacyWordDocument());
    const auto r = tavrin("inspect --exiftool-timeout 1 --exiftool " + testing::shellQuote((dir / "exiftool").string()) +
                          " " + testing::shellQuote((dir / "plan.doc").string()));
    EXPECT_EQ(r.status, 1) << r.out;
    EXPECT_NE(r.out.find("Failed to read metadata from plan.doc"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("did not finish within 1 second and was stopped"), std::string::npos) << r.out;

    const auto zero = tavrin("inspect --exiftool-timeout 0 x.doc");
    EXPECT_EQ(zero.status, 2) << zero.out;
}

TEST(TavrinExifToolOption, searchesPathOnlyWhenAskedAndRefusesABadTool) {
    TempDir dir;
    std::filesystem::create_directory(dir / "bin");
    std::filesystem::create_directory(dir / "empty");
    testing::writeStubTool(dir / "bin/exiftool", "echo '[{}]'");
    const std::string pathWithTool = "PATH=" + testing::shellQuote((dir / "bin").string() + ":/usr/bin:/bin");

    const auto automatic = tavrin("formats --json --exiftool auto", pathWithTool);
    ASSERT_EQ(automatic.status, 0) << automatic.out;
    EXPECT_TRUE(formatRows(automatic.out).at("doc")["canInspect"].get<bool>());
    const auto notAsked = tavrin("formats --json", pathWithTool);
    ASSERT_EQ(notAsked.status, 0);
    EXPECT_FALSE(formatRows(notAsked.out).at("doc")["canInspect"].get<bool>());

    const auto nowhere = tavrin("formats --exiftool auto", "PATH=" + testing::shellQuote((dir / "empty").string()));
    EXPECT_EQ(nowhere.status, 2);
    EXPECT_EQ(nowhere.out, "tavrin: --exiftool auto: no executable exiftool found on PATH\n");

    testing::writeFile(dir / "plain", "not a program");
    for (const auto& bad : {dir / "missing", dir / "plain", dir / "empty"}) {
        const auto r = tavrin("inspect --exiftool " + testing::shellQuote(bad.string()) + " x.doc");
        EXPECT_EQ(r.status, 2) << bad;
        EXPECT_EQ(r.out, "tavrin: --exiftool: " + bad.string() +
                             " is not an executable file; give the path of exiftool, or 'auto' to search PATH\n");
    }
}

}  // namespace
}  // namespace tavrin
