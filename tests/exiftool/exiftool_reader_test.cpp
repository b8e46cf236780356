// The reader with the real exiftool on a file made here, and with stand-in tools that fail in each
// way the reader must report.
#include <gtest/gtest.h>

#include <map>

#include "model/pipeline_error.h"
#include "exiftool/exiftool_reader.h"
#include "exiftool_fixtures.h"

namespace tavrin {
namespace {

using C = MetadataCategory;
using testing::TempDir;
using testing::writeStubTool;

std::string readFailure(const ExifToolReader& reader, const std::filesystem::path& file,
                        PipelineError::Case expected = PipelineError::Case::exifToolFailed) {
    return testing::failureText<PipelineError>([&] { reader.readMetadata(file); }, expected);
}

// Runs the rest of a scope in another working directory.
struct WorkingDirectory {
    explicit WorkingDirectory(const std::filesystem::path& dir) { std::filesystem::current_path(dir); }
    ~WorkingDirectory() { std::filesystem::current_path(previous); }
    std::filesystem::path previous = std::filesystem::current_path();
};

TEST(ExifToolReader, readsAJpegEvenUnderNamesThatLookLikeOptions) {
    TAVRIN_REQUIRE_EXIFTOOL(exifTool);
    TempDir dir;
    const ExifToolReader reader(exifTool);
    testing::writeFile(dir / "photo.jpg", testing::jpegWithMetadata());
    const auto tree = reader.readMetadata(dir / "photo.jpg");
    EXPECT_EQ(tree.fileType, FileType::jpeg);
    std::map<std::string, MetadataItem> items;
    for (const auto& item : tree.allItems()) items.emplace(item.id, item);
    const struct {
        const char* key;
        MetadataValue value;
        C category;
        bool removable;
    } expected[] = {
        {"EXIF:Make", MetadataValue::string("HTC"), C::deviceInfo, true},
        {"EXIF:Artist", MetadataValue::string("Jo"), C::authorIdentity, true},
        {"EXIF:GPSLatitudeRef", MetadataValue::string("N"), C::location, true},
        {"XMP:Creator", MetadataValue::string("Jo"), C::authorIdentity, true},
        {"File:Comment", MetadataValue::string("shot on the roof"), C::commentsAnnotations, false},
        {"File:ImageWidth", MetadataValue::integer(1), C::softwareInfo, false},
    };
    for (const auto& e : expected) {
        SCOPED_TRACE(e.key);
        ASSERT_EQ(items.count(std::string("ExifTool.") + e.key), 1u);
        const auto& item = items.at(std::string("ExifTool.") + e.key);
        EXPECT_EQ(item.value, e.value);
        EXPECT_EQ(item.category, e.category);
        EXPECT_EQ(item.isRemovable, e.removable);
    }
    // What the tool says about itself and the file system is not the file's metadata.
    for (const char* skipped : {"SourceFile", "File:FileName", "File:Directory", "ExifTool:ExifToolVersion",
                                "File:FileModifyDate", "File:FileAccessDate", "File:FileInodeChangeDate",
                                "File:FileType", "File:FileTypeExtension", "File:MIMEType"})
        EXPECT_EQ(items.count(std::string("ExifTool.") + skipped), 0u) << skipped;

    for (const char* name : {"-", "-all=.jpg", "-json.jpg", "-@", "a b 'c' \"d\".jpg", "$(touch pwned).jpg", "-o x.jpg"}) {
        testing::writeFile(dir / name, testing::jpegWithMetadata());
        EXPECT_EQ(reader.readMetadata(dir / name).totalItemCount(), tree.totalItemCount()) << name;
        WorkingDirectory here(dir.path());
        EXPECT_EQ(reader.readMetadata(name).totalItemCount(), tree.totalItemCount()) << name;
    }
    EXPECT_FALSE(std::filesystem::exists(dir / "pwned"));
    // Nothing was written by a name read as an option.
    EXPECT_EQ(testing::readFile(dir / "-all=.jpg"), testing::jpegWithMetadata());
}

TEST(ExifToolReader, passesTheReadArgumentsInOrderWithAFileThatCannotBeAnOption) {
    TempDir dir;
    const ExifToolReader reader(writeStubTool(dir / "exiftool", "printf '%s\\n' \"$@\" > \"$(dirname \"$0\")/args\"\n"
                                                                "echo '[{\"EXIF:Artist\": \"A\"}]'")
                                    .string());
    testing::writeFile(dir / "-x.jpg", testing::jpegWithMetadata());
    reader.readMetadata(dir / "-x.jpg");
    EXPECT_EQ(testing::readFile(dir / "args"), "-json\n-G\n-a\n-u\n-n\n" + (dir / "-x.jpg").string() + "\n");
    WorkingDirectory here(dir.path());
    reader.readMetadata("-x.jpg");
    EXPECT_EQ(testing::readFile(dir / "args"), "-json\n-G\n-a\n-u\n-n\n./-x.jpg\n");
}

TEST(ExifToolReader, reportsEachWayTheToolCanFail) {
    TempDir dir;
    testing::writeFile(dir / "photo.jpg", testing::jpegWithMetadata());
    const std::string prefix = "ExifTool error: ";
    const struct {
        const char* name;
        const char* script;
        std::string text;  // empty: the read succeeds
        ProcessLimits limits;
    } cases[] = {
        {"status-one", "echo '[{\"EXIF:Artist\": \"A\"}]'; echo 'Warning: minor' >&2; exit 1", ""},
        {"status-two", "echo 'Error: File not found' >&2; echo '[{}]'; exit 2", prefix + "Error: File not found"},
        {"status-two-quiet", "exit 2", prefix},
        {"status-two-garbled", "printf '\\377\\376oops' >&2; exit 2", prefix + "Unknown error"},
        {"silent", "exit 0", prefix + "ExifTool produced no output"},
        {"broken", "echo '[{\"EXIF:Artist\": '", prefix + "Failed to parse ExifTool JSON: "},
        // The reader's own limits reach the runner.
        {"exiftool", "sleep 300; echo '[{}]'", prefix + "exiftool did not finish within 0.3 seconds and was stopped",
         {std::chrono::milliseconds(300)}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const ExifToolReader reader(writeStubTool(dir / c.name, c.script).string(), c.limits);
        if (c.text.empty())
            EXPECT_EQ(reader.readMetadata(dir / "photo.jpg").totalItemCount(), 1u);
        else  // texts that quote the JSON parser are compared up to its own words
            EXPECT_EQ(readFailure(reader, dir / "photo.jpg").substr(0, c.text.size()), c.text);
    }
}

TEST(ExifToolReader, detectsTheTypeFirstThenNeedsAnExecutableTool) {
    TempDir dir;
    testing::writeFile(dir / "notes.xyz", "");
    EXPECT_EQ(readFailure(ExifToolReader((dir / "missing").string()), dir / "notes.xyz",
                          PipelineError::Case::fileTypeUnknown),
              "Cannot determine file type: notes.xyz");
    testing::writeFile(dir / "photo.jpg", testing::jpegWithMetadata());
    testing::writeFile(dir / "plain", "#!/bin/sh\necho '[{}]'\n");
    std::filesystem::create_directory(dir / "folder");
    for (const auto& tool : {dir / "missing", dir / "plain", dir / "folder", std::filesystem::path()})
        EXPECT_EQ(readFailure(ExifToolReader(tool.string()), dir / "photo.jpg",
                              PipelineError::Case::exifToolNotAvailable),
                  "ExifTool is not available. This fallback is not included in the current Tavrin release.")
            << tool;
}

}  // namespace
}  // namespace tavrin
