// The reader with the real exiftool on files made here, and with stand-in tools that fail in
// each way the reader must report.
#include <gtest/gtest.h>

#include <unistd.h>

#include "engine/pipeline_error.h"
#include "exiftool/exiftool_process.h"
#include "exiftool/exiftool_reader.h"
#include "exiftool_fixtures.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

using testing::TempDir;
using testing::writeStubTool;

const MetadataItem* find(const std::vector<MetadataItem>& items, std::string_view id) {
    for (const auto& item : items)
        if (item.id == id) return &item;
    return nullptr;
}

std::string readFailure(const ExifToolReader& reader, const std::filesystem::path& file,
                        PipelineError::Case expected = PipelineError::Case::exifToolFailed) {
    try {
        reader.readMetadata(file);
    } catch (const PipelineError& e) {
        EXPECT_EQ(e.errorCase(), expected) << e.what();
        return e.what();
    }
    ADD_FAILURE() << "the read did not fail";
    return {};
}

// Runs the test body in another working directory, and returns to the old one however it ends.
class WorkingDirectory {
public:
    explicit WorkingDirectory(const std::filesystem::path& dir) : previous_(std::filesystem::current_path()) {
        std::filesystem::current_path(dir);
    }
    ~WorkingDirectory() { std::filesystem::current_path(previous_); }

private:
    std::filesystem::path previous_;
};

TEST(ExifToolReader, readsExifXmpAndCommentOfAJpeg) {
    TAVRIN_REQUIRE_EXIFTOOL(exifTool);
    TempDir dir;
    testing::writeFile(dir / "photo.jpg", testing::jpegWithMetadata());
    const auto tree = ExifToolReader(exifTool).readMetadata(dir / "photo.jpg");
    EXPECT_EQ(tree.fileType, FileType::jpeg);
    const auto items = tree.allItems();

    const struct {
        const char* id;
        MetadataValue value;
        MetadataCategory category;
        bool removable;
    } expected[] = {
        {"ExifTool.EXIF:Make", MetadataValue::string("Canon"), MetadataCategory::deviceInfo, true},
        {"ExifTool.EXIF:Model", MetadataValue::string("EOS Test"), MetadataCategory::deviceInfo, true},
        {"ExifTool.EXIF:Artist", MetadataValue::string("Jane Roe"), MetadataCategory::authorIdentity, true},
        {"ExifTool.EXIF:GPSLatitude", MetadataValue::number(12.5), MetadataCategory::location, true},
        {"ExifTool.EXIF:GPSLatitudeRef", MetadataValue::string("N"), MetadataCategory::location, true},
        {"ExifTool.XMP:Creator", MetadataValue::string("Jane Roe"), MetadataCategory::authorIdentity, true},
        {"ExifTool.XMP:CreatorTool", MetadataValue::string("Tavrin Test Suite"), MetadataCategory::authorIdentity,
         true},
        {"ExifTool.File:Comment", MetadataValue::string("shot on the roof"), MetadataCategory::commentsAnnotations,
         false},
        {"ExifTool.File:ImageWidth", MetadataValue::integer(1), MetadataCategory::softwareInfo, false},
    };
    for (const auto& e : expected) {
        const MetadataItem* item = find(items, e.id);
        ASSERT_NE(item, nullptr) << e.id;
        EXPECT_EQ(item->value, e.value) << e.id;
        EXPECT_EQ(item->category, e.category) << e.id;
        EXPECT_EQ(item->isRemovable, e.removable) << e.id;
        EXPECT_EQ(item->source, MetadataSource::exifTool);
    }
    for (const char* skipped : {"ExifTool.SourceFile", "ExifTool.File:FileName", "ExifTool.File:Directory",
                                "ExifTool.ExifTool:ExifToolVersion", "ExifTool.File:FileModifyDate"})
        EXPECT_EQ(find(items, skipped), nullptr) << skipped;
}

TEST(ExifToolReader, readsTheSummaryOfALegacyWordDocument) {
    TAVRIN_REQUIRE_EXIFTOOL(exifTool);
    TempDir dir;
    testing::writeFile(dir / "plan.doc", testing::legacyWordDocument());
    const auto tree = ExifToolReader(exifTool).readMetadata(dir / "plan.doc");
    EXPECT_EQ(tree.fileType, FileType::doc);
    const auto items = tree.allItems();
    const MetadataItem* author = find(items, "ExifTool.FlashPix:Author");
    ASSERT_NE(author, nullptr);
    EXPECT_EQ(author->value, MetadataValue::string("Jane Roe"));
    EXPECT_EQ(author->category, MetadataCategory::authorIdentity);
    const MetadataItem* software = find(items, "ExifTool.FlashPix:Software");
    ASSERT_NE(software, nullptr);
    EXPECT_EQ(software->category, MetadataCategory::softwareInfo);
    ASSERT_NE(find(items, "ExifTool.FlashPix:Title"), nullptr);
}

TEST(ExifToolReader, readsFilesWhoseNamesLookLikeOptionsOrHoldQuotes) {
    TAVRIN_REQUIRE_EXIFTOOL(exifTool);
    TempDir dir;
    const ExifToolReader reader(exifTool);
    for (const char* name : {"-", "-all=.jpg", "-json.jpg", "-@", "a b 'c' \"d\".jpg", "$(touch pwned).jpg",
                             "-o x.jpg"}) {
        testing::writeFile(dir / name, testing::jpegWithMetadata());
        const auto absolute = reader.readMetadata(dir / name).allItems();
        EXPECT_NE(find(absolute, "ExifTool.EXIF:Make"), nullptr) << name;
        WorkingDirectory here(dir.path());
        const auto relative = reader.readMetadata(name).allItems();
        EXPECT_NE(find(relative, "ExifTool.EXIF:Make"), nullptr) << name;
    }
    EXPECT_FALSE(std::filesystem::exists(dir / "pwned"));
    // Nothing was written by a name read as an option.
    EXPECT_EQ(testing::readFile(dir / "-all=.jpg").size(), testing::jpegWithMetadata().size());
}

TEST(ExifToolReader, passesTheReadArgumentsInOrderWithAFileThatCannotBeAnOption) {
    TempDir dir;
    const auto tool = writeStubTool(dir / "exiftool", "printf '%s\\n' \"$@\" > \"$(dirname \"$0\")/args\"\n"
                                                      "echo '[{\"EXIF:Artist\": \"A\"}]'");
    testing::writeFile(dir / "-x.jpg", testing::jpegWithMetadata());
    const ExifToolReader reader(tool.string());
    reader.readMetadata(dir / "-x.jpg");
    EXPECT_EQ(testing::readFile(dir / "args"), "-json\n-G\n-a\n-u\n-n\n" + (dir / "-x.jpg").string() + "\n");
    {
        WorkingDirectory here(dir.path());
        reader.readMetadata("-x.jpg");
    }
    EXPECT_EQ(testing::readFile(dir / "args"), "-json\n-G\n-a\n-u\n-n\n./-x.jpg\n");
    EXPECT_EQ(exifToolFileArgument("sub/-x.jpg"), "./sub/-x.jpg");
}

TEST(ExifToolReader, reportsEachWayTheToolCanFail) {
    TempDir dir;
    testing::writeFile(dir / "photo.jpg", testing::jpegWithMetadata());
    const std::string prefix = "ExifTool error: ";
    const struct {
        const char* name;
        const char* script;
        std::string text;  // empty: the read succeeds
    } cases[] = {
        {"status-one", "echo '[{\"EXIF:Artist\": \"A\"}]'; echo 'Warning: minor' >&2; exit 1", ""},
        {"status-two", "echo 'Error: File not found' >&2; echo '[{}]'; exit 2", prefix + "Error: File not found"},
        {"status-two-quiet", "exit 2", prefix},
        {"status-two-garbled", "printf '\\377\\376oops' >&2; exit 2", prefix + "Unknown error"},
        {"silent", "exit 0", prefix + "ExifTool produced no output"},
        {"empty-array", "echo '[]'", prefix + "Unexpected ExifTool JSON structure"},
        {"not-an-object", "echo '[\"x\"]'", prefix + "Unexpected ExifTool JSON structure"},
        {"signal", "kill -9 $$", prefix + "signal was terminated by signal 9 (Killed)"},
        {"broken", "echo '[{\"EXIF:Artist\": '", prefix + "Failed to parse ExifTool JSON: "},
    };
    for (const auto& c : cases) {
        const ExifToolReader reader(writeStubTool(dir / c.name, c.script).string());
        if (c.text.empty()) {
            EXPECT_EQ(reader.readMetadata(dir / "photo.jpg").totalItemCount(), 1u) << c.name;
        } else {
            // Texts that quote the JSON parser are compared up to its own words.
            EXPECT_EQ(readFailure(reader, dir / "photo.jpg").substr(0, c.text.size()), c.text) << c.name;
        }
    }
}

TEST(ExifToolReader, stopsAToolThatHangsOrFloodsItsOutput) {
    TempDir dir;
    testing::writeFile(dir / "photo.jpg", testing::jpegWithMetadata());
    ProcessLimits limits;
    limits.timeout = std::chrono::milliseconds(300);
    const ExifToolReader sleeper(writeStubTool(dir / "exiftool", "sleep 300; echo '[{}]'").string(), limits);
    EXPECT_EQ(readFailure(sleeper, dir / "photo.jpg"),
              "ExifTool error: exiftool did not finish within 0.3 seconds and was stopped");

    limits.timeout = std::chrono::seconds(60);
    limits.maxOutputBytes = 1 << 20;
    const ExifToolReader flood(writeStubTool(dir / "flood", "exec yes '[{}]'").string(), limits);
    EXPECT_EQ(readFailure(flood, dir / "photo.jpg"),
              "ExifTool error: flood printed more than 1 MB and was stopped; its output was refused");
}

TEST(ExifToolReader, needsAnExecutableTool) {
    TempDir dir;
    testing::writeFile(dir / "photo.jpg", testing::jpegWithMetadata());
    testing::writeFile(dir / "plain", "#!/bin/sh\necho '[{}]'\n");
    std::filesystem::create_directory(dir / "folder");
    const std::string text = PipelineError::exifToolNotAvailable().description();
    EXPECT_EQ(text, "ExifTool is not available. This fallback is not included in the current Tavrin release.");
    for (const auto& tool : {dir / "missing", dir / "plain", dir / "folder", std::filesystem::path()})
        EXPECT_EQ(readFailure(ExifToolReader(tool.string()), dir / "photo.jpg",
                              PipelineError::Case::exifToolNotAvailable),
                  text)
            << tool;
}

TEST(ExifToolReader, detectsTheTypeBeforeLookingForTheTool) {
    TempDir dir;
    testing::writeFile(dir / "notes.xyz", "");
    EXPECT_EQ(readFailure(ExifToolReader((dir / "missing").string()), dir / "notes.xyz",
                          PipelineError::Case::fileTypeUnknown),
              "Cannot determine file type: notes.xyz");
}

}  // namespace
}  // namespace tavrin
