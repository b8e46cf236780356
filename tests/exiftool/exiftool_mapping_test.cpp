// The mapping of exiftool's JSON to items: categories, names, values, what is kept and skipped,
// and what happens to output that is not what the tool prints.
#include <gtest/gtest.h>

#include "engine/pipeline_error.h"
#include "exiftool/exiftool_mapping.h"

namespace tavrin {
namespace {

using C = MetadataCategory;
using nlohmann::ordered_json;

std::string parseFailure(std::string_view data) {
    try {
        parseExifToolJSON(data, "x.jpg");
    } catch (const PipelineError& e) {
        EXPECT_EQ(e.errorCase(), PipelineError::Case::exifToolFailed);
        return e.what();
    }
    ADD_FAILURE() << "parsed: " << data;
    return {};
}

TEST(ExifToolMapping, categorisesByTheFirstRuleThatHolds) {
    const struct {
        const char* group;
        const char* tag;
        C category;
    } cases[] = {
        {"GPS", "Anything", C::location},
        {"XMP-GPSInfo", "Anything", C::location},
        {"EXIF", "GPSAltitude", C::location},
        {"XMP", "LocationShown", C::location},
        {"Composite", "GPSLatitude", C::location},
        // Location beats the device words in the same tag.
        {"XMP", "CameraLocation", C::location},
        {"EXIF", "Make", C::deviceInfo},
        {"MakerNotes", "InternalSerialNumber", C::deviceInfo},
        {"EXIF", "LensModel", C::deviceInfo},
        // "Model" in a tag that also names a date is a device first.
        {"XMP", "ModelReleaseDate", C::deviceInfo},
        {"EXIF", "Artist", C::authorIdentity},
        {"IPTC", "By-line", C::authorIdentity},
        {"XMP", "CreatorTool", C::authorIdentity},
        {"EXIF", "DateTimeOriginal", C::timestamps},
        {"FlashPix", "TotalEditTime", C::timestamps},
        {"EXIF", "Software", C::softwareInfo},
        {"PDF", "Producer", C::softwareInfo},
        {"ExifTool", "Warning", C::softwareInfo},
        {"EXIF", "ThumbnailImage", C::thumbnails},
        {"EXIF", "PreviewImageLength", C::thumbnails},
        {"File", "Comment", C::commentsAnnotations},
        {"EXIF", "ImageDescription", C::commentsAnnotations},
        {"FlashPix", "Company", C::companyInfo},
        {"FlashPix", "Manager", C::companyInfo},
        {"XMP-xmpMM", "DocumentID", C::documentHistory},
        {"XMP", "HistoryAction", C::documentHistory},
        {"FlashPix", "RevisionNumber", C::documentHistory},
        // The software rule comes first.
        {"XMP", "HistoryVersion", C::softwareInfo},
        {"ICC_Profile", "ProfileClass", C::colorTechnical},
        {"EXIF", "WhiteBalance", C::colorTechnical},
        {"EXIF", "ExposureProgram", C::colorTechnical},
        {"EXIF", "Orientation", C::colorTechnical},
        {"Composite", "ImageSize", C::colorTechnical},
        {"IPTC", "Keywords", C::authorIdentity},
        {"XMP", "Subject", C::authorIdentity},
        {"XMP-dc", "Format", C::authorIdentity},
        {"PNG", "Gamma", C::softwareInfo},
        {"", "Anything", C::softwareInfo},
    };
    for (const auto& c : cases)
        EXPECT_EQ(exifToolCategorize(c.group, c.tag), c.category) << c.group << ":" << c.tag;
}

TEST(ExifToolMapping, categorisesWithoutRegardToCase) {
    EXPECT_EQ(exifToolCategorize("exif", "MAKE"), C::deviceInfo);
    EXPECT_EQ(exifToolCategorize("ICC_PROFILE", "ProfileClass"), C::colorTechnical);
    EXPECT_EQ(exifToolCategorize("xmp-XMPMM", "DocumentID"), C::documentHistory);
}

TEST(ExifToolMapping, spacesWordsInTagNames) {
    const struct {
        const char* tag;
        const char* name;
    } cases[] = {
        {"GPSLatitude", "GPS Latitude"},
        {"ImageWidth", "Image Width"},
        {"ExifImageWidth", "Exif Image Width"},
        {"XMPToolkit", "XMP Toolkit"},
        {"ICCProfileName", "ICC Profile Name"},
        {"By-line", "By-line"},
        {"ISO", "ISO"},
        {"make", "make"},
        {"FNumber", "F Number"},
        {"Exif_0x1234", "Exif_0x1234"},
        {"aB", "a B"},
        {"ABc", "A Bc"},
        {"", ""},
        {"Ünïcode", "Ünïcode"},
    };
    for (const auto& c : cases) EXPECT_EQ(exifToolHumanReadableName(c.tag), c.name) << c.tag;
    // Long names from a file's own XMP cost time in proportion to their length, nothing more.
    const std::string longName(200000, 'A');
    EXPECT_EQ(exifToolHumanReadableName(longName + "b").size(), longName.size() + 2);
}

TEST(ExifToolMapping, convertsJsonValuesCaseByCase) {
    const struct {
        const char* json;
        MetadataValue value;
    } cases[] = {
        {R"("Canon")", MetadataValue::string("Canon")},
        {R"("12")", MetadataValue::string("12")},
        {"true", MetadataValue::boolean(true)},
        {"false", MetadataValue::boolean(false)},
        {"72", MetadataValue::integer(72)},
        {"-3", MetadataValue::integer(-3)},
        {"72.0", MetadataValue::integer(72)},
        {"12.5", MetadataValue::number(12.5)},
        {"1e-06", MetadataValue::number(1e-06)},
        {"18446744073709551615", MetadataValue::number(18446744073709551615.0)},
        {"9223372036854775807", MetadataValue::integer(9223372036854775807LL)},
        {"1e300", MetadataValue::number(1e300)},
        {"null", MetadataValue::string("null")},
        {R"(["a", 1, [true]])",
         MetadataValue::array({MetadataValue::string("a"), MetadataValue::integer(1),
                               MetadataValue::array({MetadataValue::boolean(true)})})},
        {R"({"City": "Oslo", "Zip": 150})",
         MetadataValue::dictionary({{"City", MetadataValue::string("Oslo")}, {"Zip", MetadataValue::integer(150)}})},
    };
    for (const auto& c : cases)
        EXPECT_EQ(exifToolConvertToMetadataValue(ordered_json::parse(c.json)), c.value) << c.json;
}

TEST(ExifToolMapping, keepsStructuralAndFileSystemItemsOutOfReachOfProfiles) {
    const struct {
        const char* key;
        const char* group;  // as the id shows it
        bool removable;
    } cases[] = {
        {"File:ImageWidth", "File", false},
        {"EXIF:ImageWidth", "EXIF", false},
        {"EXIF:ColorSpace", "EXIF", false},
        {"PNG:BitDepth", "PNG", false},
        {"System:Anything", "System", false},
        {"file:Comment", "file", false},
        {"EXIF:Artist", "EXIF", true},
        {"XMP:Creator", "XMP", true},
        {"EXIF:XResolutionNote", "EXIF", true},
    };
    for (const auto& c : cases) {
        const auto item = exifToolItem(c.key, ordered_json("x"));
        EXPECT_EQ(item.isRemovable, c.removable) << c.key;
        EXPECT_EQ(item.id, std::string("ExifTool.") + c.key);
        EXPECT_EQ(item.key, item.id);
        EXPECT_EQ(item.source, MetadataSource::exifTool);
    }
}

TEST(ExifToolMapping, splitsKeysAtTheFirstColonOnly) {
    const auto noGroup = exifToolItem("ImageWidth", ordered_json(4));
    EXPECT_EQ(noGroup.displayName, "Image Width");
    EXPECT_FALSE(noGroup.isRemovable);
    EXPECT_EQ(noGroup.category, C::softwareInfo);  // no group, and no tag rule holds

    const auto twoColons = exifToolItem("XMP:Region:GPSName", ordered_json("x"));
    EXPECT_EQ(twoColons.displayName, "Region:GPS Name");
    EXPECT_EQ(twoColons.category, C::location);
}

TEST(ExifToolMapping, parsesTheFirstObjectInKeyOrderAndSkipsBookkeeping) {
    const auto items = parseExifToolJSON(R"([{
        "SourceFile": "a.jpg", "ExifTool:ExifToolVersion": 12.57, "File:FileName": "a.jpg",
        "File:Directory": ".", "File:FileSize": 4, "File:FileModifyDate": "x", "File:FileAccessDate": "x",
        "File:FileInodeChangeDate": "x", "File:FilePermissions": 100644, "File:FileType": "JPEG",
        "File:FileTypeExtension": "JPG", "File:MIMEType": "image/jpeg",
        "EXIF:Model": "X", "EXIF:Artist": "Jane", "File:Comment": "hi", "Composite:GPSLatitude": 12.5
    }, {"EXIF:Make": "ignored"}])", "a.jpg");
    std::vector<std::string> ids;
    for (const auto& i : items) ids.push_back(i.id);
    EXPECT_EQ(ids, (std::vector<std::string>{"ExifTool.EXIF:Model", "ExifTool.EXIF:Artist", "ExifTool.File:Comment",
                                             "ExifTool.Composite:GPSLatitude"}));
    EXPECT_EQ(items[3].value, MetadataValue::number(12.5));
}

TEST(ExifToolMapping, refusesOutputThatIsNotTheToolsJson) {
    const struct {
        const char* data;
        const char* text;
    } cases[] = {
        {"[]", "ExifTool error: Unexpected ExifTool JSON structure"},
        {"{}", "ExifTool error: Unexpected ExifTool JSON structure"},
        {"[1]", "ExifTool error: Unexpected ExifTool JSON structure"},
        {R"(["a"])", "ExifTool error: Unexpected ExifTool JSON structure"},
        {"\"text\"", "ExifTool error: Unexpected ExifTool JSON structure"},
    };
    for (const auto& c : cases) EXPECT_EQ(parseFailure(c.data), c.text) << c.data;

    for (const char* broken : {"", "[{", "[{\"a\":}]", "Warning: not JSON", "[{}] trailing", "[{\"a\":1,}]"}) {
        const auto text = parseFailure(broken);
        EXPECT_EQ(text.rfind("ExifTool error: Failed to parse ExifTool JSON: ", 0), 0u) << broken << " → " << text;
    }
}

TEST(ExifToolMapping, refusesNestingBeyondTheBoundWithoutRecursingIntoIt) {
    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    EXPECT_EQ(parseFailure(deep), "ExifTool error: Failed to parse ExifTool JSON: nested deeper than 64 levels");
    // Brackets inside strings do not count.
    const auto items = parseExifToolJSON("[{\"XMP:Title\": \"" + std::string(1000, '[') + "\"}]", "a.jpg");
    ASSERT_EQ(items.size(), 1u);
    // The bound itself is allowed.
    const std::string atBound = "[{\"XMP:A\":" + std::string(62, '[') + std::string(62, ']') + "}]";
    EXPECT_EQ(parseExifToolJSON(atBound, "a.jpg").size(), 1u);
}

TEST(ExifToolMapping, replacesBytesThatAreNotUtf8) {
    const auto items = parseExifToolJSON("[{\"EXIF:Artist\": \"J\xE9r\xF4me\", \"XMP:Title\": \"caf\xC3\xA9\"}]", "a.jpg");
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].value, MetadataValue::string("J\xEF\xBF\xBDr\xEF\xBF\xBDme"));
    EXPECT_EQ(items[1].value, MetadataValue::string("caf\xC3\xA9"));

    const struct {
        std::string in;
        std::string out;
    } cases[] = {
        {"plain", "plain"},
        {"\xC0\xAF", "\xEF\xBF\xBD\xEF\xBF\xBD"},          // overlong "/"
        {"\xED\xA0\x80", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},  // a surrogate
        {"\xF4\x90\x80\x80", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},  // above U+10FFFF
        {"\xF0\x9F\x98\x80", "\xF0\x9F\x98\x80"},
        {"\xE2\x82", "\xEF\xBF\xBD\xEF\xBF\xBD"},           // cut short
    };
    for (const auto& c : cases) EXPECT_EQ(replacingInvalidUTF8(c.in), c.out);
}

}  // namespace
}  // namespace tavrin
