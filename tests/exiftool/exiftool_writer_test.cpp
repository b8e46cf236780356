// The writer: the arguments it builds, a real clean of a JPEG made here, and stand-in tools for the
// outcomes the real one rarely shows.
#include <gtest/gtest.h>

#include "model/pipeline_error.h"
#include "exiftool/exiftool_writer.h"
#include "exiftool_fixtures.h"

namespace tavrin {
namespace {

using C = MetadataCategory;
using testing::TempDir;
using Args = std::vector<std::string>;

CleaningProfile removing(std::set<C> categories, std::set<std::string> keys = {}, std::set<std::string> keep = {}) {
    return CleaningProfile{"test", std::move(categories), std::move(keys), std::move(keep)};
}

bool hasKey(const std::vector<MetadataItem>& items, std::string_view key) {
    return std::any_of(items.begin(), items.end(), [&](const MetadataItem& i) { return i.key == key; });
}

// A stand-in that answers reads with fixed JSON and runs `writeBody` for the clean itself.
std::filesystem::path stubTool(const std::filesystem::path& path, std::string_view writeBody) {
    return testing::writeStubTool(
        path, "if [ \"$1\" = -json ]; then echo '[{\"EXIF:Artist\": \"A\"}]'; exit 0; fi\n" + std::string(writeBody));
}

TEST(ExifToolWriter, buildsCategoryDeletionsInOrderThenTheKeysThatAreTagNames) {
    const std::pair<CleaningProfile, Args> cases[] = {
        {removing({}), {"-overwrite_original", "/o/p.jpg"}},
        {removing({C::colorTechnical, C::location}),
         {"-overwrite_original", "-gps:all=", "-XMP:GPSLatitude=", "-XMP:GPSLongitude=", "-XMP:GPSAltitude=",
          "-Composite:GPSPosition=", "-ICC_Profile:all=", "/o/p.jpg"}},
        {removing({C::documentHistory, C::hiddenContent}),
         {"-overwrite_original", "-XMP:History=", "-XMP:DerivedFrom=", "-XMP:Versions=", "-PDF:PageCount=", "/o/p.jpg"}},
        // Keep rules play no part; what is not a tag name never reaches the tool.
        {removing({}, {"EXIF:Artist", "Comment", "ExifTool.EXIF:Make", "Comment<=/etc/passwd", "-o", "a b", "*", "Tag;", ""},
                  {"EXIF:Artist"}),
         {"-overwrite_original", "-Comment=", "-EXIF:Artist=", "-ExifTool.EXIF:Make=", "/o/p.jpg"}},
    };
    for (const auto& [profile, args] : cases) EXPECT_EQ(ExifToolWriter::buildArguments(profile, "/o/p.jpg"), args);
}

TEST(ExifToolWriter, findsTheCountOfUpdatedFiles) {
    const std::pair<const char*, long> cases[] = {
        {"    1 image files updated\n", 1}, {"   12 image files updated\n    3 image files unchanged\n", 12},
        {"    0 image files updated\n    1 files weren't updated due to errors\n", 0},
        {"image files updated", 0}, {"", 0}, {"    1 image files created\n", 0},
    };
    for (const auto& [out, count] : cases) EXPECT_EQ(ExifToolWriter::updatedFileCount(out), count) << out;
}

TEST(ExifToolWriter, cleansACopyOverAnOldOutputAndReportsWhatChangedButNeverVerifies) {
    TAVRIN_REQUIRE_EXIFTOOL(exifTool);
    TempDir dir;
    const auto original = testing::jpegWithMetadata();
    testing::writeFile(dir / "photo.jpg", original);
    testing::writeFile(dir / "out.jpg", "stale");
    const ExifToolWriter writer(exifTool);
    const auto result =
        writer.cleanMetadata(dir / "photo.jpg", dir / "out.jpg", removing({C::location, C::deviceInfo, C::authorIdentity}));

    EXPECT_EQ(testing::readFile(dir / "photo.jpg"), original);
    EXPECT_EQ(testing::readFile(dir / "out.jpg").substr(0, 2), "\xFF\xD8");
    EXPECT_FALSE(result.verifiedClean);
    EXPECT_EQ(result.cleanedSize, static_cast<std::int64_t>(std::filesystem::file_size(dir / "out.jpg")));
    EXPECT_TRUE(result.warnings.empty());
    for (const char* key : {"ExifTool.EXIF:Make", "ExifTool.EXIF:Model", "ExifTool.EXIF:Artist",
                            "ExifTool.EXIF:GPSLatitudeRef", "ExifTool.XMP:Creator"}) {
        EXPECT_TRUE(hasKey(result.removedItems, key)) << key;
        EXPECT_FALSE(hasKey(result.retainedItems, key)) << key;
    }
    EXPECT_TRUE(hasKey(result.retainedItems, "ExifTool.File:Comment"));
    // The tool deletes by its own tag lists, not by the reader's categories: the creator tool reads as
    // author identity but goes only with software information. This is why the fallback is never verified.
    EXPECT_TRUE(hasKey(result.retainedItems, "ExifTool.XMP:CreatorTool"));
    EXPECT_TRUE(std::is_sorted(result.remainingMetadataClasses.begin(), result.remainingMetadataClasses.end()));
    EXPECT_EQ(std::count(result.remainingMetadataClasses.begin(), result.remainingMetadataClasses.end(), C::authorIdentity), 1);
    EXPECT_FALSE(std::filesystem::exists(dir / "out.jpg_exiftool_tmp"));

    EXPECT_EQ(testing::failureText<PipelineError>(
                  [&] { writer.cleanMetadata(dir / "photo.jpg", dir / "photo.jpg", removing({C::location})); },
                  PipelineError::Case::writeFailed),
              "Failed to clean photo.jpg: Cannot copy photo.jpg onto itself");
    EXPECT_EQ(testing::readFile(dir / "photo.jpg"), original);
}

TEST(ExifToolWriter, acceptsStatusOneOnlyWhenTheFileWasUpdatedAndLeavesNothingOnFailure) {
    TempDir dir;
    testing::writeFile(dir / "photo.jpg", testing::jpegWithMetadata());
    const auto out = dir / "out.jpg";
    const auto partly = ExifToolWriter(
        stubTool(dir / "partly", "echo '    1 image files updated'; echo 'Warning: [minor] odd tag' >&2; exit 1").string());
    const auto result = partly.cleanMetadata(dir / "photo.jpg", out, removing({C::location}));
    EXPECT_EQ(result.warnings, (std::vector<CleaningWarning>{{"ExifTool", "Warning: [minor] odd tag"}}));
    EXPECT_TRUE(std::filesystem::exists(out));
    std::filesystem::remove(out);

    const struct {
        const char* name;
        const char* body;  // nullptr: no tool at all
        PipelineError::Case error;
        const char* text;
        ProcessLimits limits;
    } failures[] = {
        {"nothing-updated",
         "echo '    0 image files updated'; echo \"    1 files weren't updated due to errors\"; "
         "echo 'Error: Not a valid JPG' >&2; exit 1",
         PipelineError::Case::exifToolFailed, "ExifTool error: Error: Not a valid JPG"},
        {"quiet", "exit 1", PipelineError::Case::exifToolFailed, "ExifTool error: ExifTool exited with code 1"},
        {"worse", "echo 'Error: bad' >&2; exit 2", PipelineError::Case::exifToolFailed, "ExifTool error: Error: bad"},
        // A killed run leaves exiftool's own temporary file beside the output.
        {"exiftool", "for last; do :; done; touch \"${last}_exiftool_tmp\"; sleep 300",
         PipelineError::Case::exifToolFailed,
         "ExifTool error: exiftool did not finish within 0.3 seconds and was stopped", {std::chrono::milliseconds(300)}},
        {"missing", nullptr, PipelineError::Case::exifToolNotAvailable,
         "ExifTool is not available. This fallback is not included in the current Tavrin release."},
    };
    for (const auto& f : failures) {
        SCOPED_TRACE(f.name);
        const auto tool = f.body ? stubTool(dir / f.name, f.body) : dir / f.name;
        const ExifToolWriter writer(tool.string(), f.limits);
        EXPECT_EQ(testing::failureText<PipelineError>(
                      [&] { writer.cleanMetadata(dir / "photo.jpg", out, removing({C::location})); }, f.error),
                  f.text);
        EXPECT_FALSE(std::filesystem::exists(out));
        EXPECT_FALSE(std::filesystem::exists(out.string() + "_exiftool_tmp"));
    }
}

TEST(ExifToolWriter, warnsAboutKeysItDidNotPass) {
    TempDir dir;
    testing::writeFile(dir / "photo.jpg", testing::jpegWithMetadata());
    const auto tool = stubTool(dir / "exiftool", "printf '%s\\n' \"$@\" > \"$(dirname \"$0\")/args\"");
    const auto result = ExifToolWriter(tool.string())
                            .cleanMetadata(dir / "photo.jpg", dir / "out.jpg",
                                           removing({}, {"Comment<=/etc/passwd", "EXIF:Artist"}));
    EXPECT_EQ(testing::readFile(dir / "args"), "-overwrite_original\n-EXIF:Artist=\n" + (dir / "out.jpg").string() + "\n");
    ASSERT_EQ(result.warnings.size(), 1u);
    EXPECT_EQ(result.warnings[0].message, "\"Comment<=/etc/passwd\" is not a tag name and was not passed to ExifTool");
}

}  // namespace
}  // namespace tavrin
