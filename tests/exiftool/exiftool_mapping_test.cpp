// The mapping of exiftool's JSON to items, and what happens to output that is not what the tool prints.
#include <gtest/gtest.h>

#include "model/pipeline_error.h"
#include "exiftool/exiftool_mapping.h"
#include "exiftool_fixtures.h"

namespace tavrin {
namespace {

using C = MetadataCategory;
using V = MetadataValue;
using nlohmann::ordered_json;

std::string parseFailure(std::string_view data) {
    return testing::failureText<PipelineError>([&] { parseExifToolJSON(data, "x.jpg"); },
                                               PipelineError::Case::exifToolFailed);
}

TEST(ExifToolMapping, categorisesByTheFirstRuleThatHoldsWithoutRegardToCase) {
    const struct {
        const char *group, *tag;
        C category;
    } cases[] = {
        // Each rule once, and where two rules could hold, the one that wins.
        {"XMP-GPSInfo", "Anything", C::location}, {"EXIF", "GPSAltitude", C::location},
        {"XMP", "CameraLocation", C::location}, {"exif", "MAKE", C::deviceInfo},
        {"XMP", "ModelReleaseDate", C::deviceInfo}, {"IPTC", "By-line", C::authorIdentity},
        {"XMP", "CreatorTool", C::authorIdentity}, {"FlashPix", "TotalEditTime", C::timestamps},
        {"XMP", "HistoryVersion", C::softwareInfo}, {"EXIF", "PreviewImageLength", C::thumbnails},
        {"EXIF", "ImageDescription", C::commentsAnnotations}, {"FlashPix", "Manager", C::companyInfo},
        {"xmp-XMPMM", "DocumentID", C::documentHistory}, {"FlashPix", "RevisionNumber", C::documentHistory},
        {"ICC_PROFILE", "ProfileClass", C::colorTechnical}, {"EXIF", "ExposureProgram", C::colorTechnical},
        {"Composite", "ImageSize", C::colorTechnical}, {"XMP-dc", "Format", C::authorIdentity},
        {"PNG", "Gamma", C::softwareInfo}, {"", "Anything", C::softwareInfo},
    };
    for (const auto& c : cases)
        EXPECT_EQ(exifToolCategorize(c.group, c.tag), c.category) << c.group << ":" << c.tag;
}

TEST(ExifToolMapping, spacesWordsInTagNamesInLinearTime) {
    const std::pair<const char*, const char*> cases[] = {
        {"GPSLatitude", "GPS Latitude"}, {"ExifImageWidth", "Exif Image Width"}, {"By-line", "By-line"},
        {"ISO", "ISO"}, {"FNumber", "F Number"}, {"Exif_0x1234", "Exif_0x1234"}, {"aB", "a B"}, {"ABc", "A Bc"},
        {"", ""}, {"Ünïcode", "Ünïcode"},
    };
    for (const auto& [tag, name] : cases) EXPECT_EQ(exifToolHumanReadableName(tag), name) << tag;
    // Long names from a file's own XMP cost time in proportion to their length, nothing more.
    EXPECT_EQ(exifToolHumanReadableName(std::string(200000, 'A') + "b").size(), 200002u);
}

TEST(ExifToolMapping, convertsJsonValuesCaseByCase) {
    const std::pair<const char*, MetadataValue> cases[] = {
        {R"("12")", V::string("12")}, {"false", V::boolean(false)}, {"-3", V::integer(-3)},
        {"72.0", V::integer(72)}, {"12.5", V::number(12.5)}, {"1e300", V::number(1e300)},
        {"18446744073709551615", V::number(18446744073709551615.0)},
        {"9223372036854775807", V::integer(9223372036854775807LL)}, {"null", V::string("null")},
        {R"(["a", 1, [true]])", V::array({V::string("a"), V::integer(1), V::array({V::boolean(true)})})},
        {R"({"City": "Oslo", "Zip": 150})", V::dictionary({{"City", V::string("Oslo")}, {"Zip", V::integer(150)}})},
    };
    for (const auto& [json, value] : cases) EXPECT_EQ(exifToolConvertToMetadataValue(ordered_json::parse(json)), value) << json;
}

TEST(ExifToolMapping, keepsStructuralAndFileSystemItemsOutOfReachOfProfiles) {
    const std::pair<const char*, bool> cases[] = {
        {"EXIF:ImageWidth", false}, {"PNG:BitDepth", false}, {"System:Anything", false}, {"file:Comment", false},
        {"ImageWidth", false}, {"EXIF:Artist", true}, {"EXIF:XResolutionNote", true},
    };
    for (const auto& [key, removable] : cases) {
        const auto item = exifToolItem(key, ordered_json("x"));
        EXPECT_EQ(item.isRemovable, removable) << key;
        EXPECT_EQ(item.key, std::string("ExifTool.") + key);
        EXPECT_EQ(item.id, item.key);
    }
    // The group ends at the first colon only.
    const auto twoColons = exifToolItem("XMP:Region:GPSName", ordered_json("x"));
    EXPECT_EQ(twoColons.displayName, "Region:GPS Name");
    EXPECT_EQ(twoColons.category, C::location);
}

TEST(ExifToolMapping, parsesTheFirstObjectInKeyOrderAndSkipsBookkeeping) {
    const auto items = parseExifToolJSON(R"([{"SourceFile": "a.jpg", "EXIF:Model": "X", "File:FileSize": 4,
        "File:FilePermissions": 100644, "EXIF:Artist": "Jane", "Composite:GPSLatitude": 12.5},
        {"EXIF:Make": "ignored"}])", "a.jpg");
    std::vector<std::string> ids;
    for (const auto& i : items) ids.push_back(i.id);
    EXPECT_EQ(ids, (std::vector<std::string>{"ExifTool.EXIF:Model", "ExifTool.EXIF:Artist",
                                             "ExifTool.Composite:GPSLatitude"}));
    EXPECT_EQ(items[2].value, V::number(12.5));
    EXPECT_EQ(items[2].source, MetadataSource::exifTool);
}

TEST(ExifToolMapping, refusesOutputThatIsNotTheToolsJsonOrNestsTooDeep) {
    for (const char* data : {"[]", "{}", "[1]", R"(["a"])", "\"text\""})
        EXPECT_EQ(parseFailure(data), "ExifTool error: Unexpected ExifTool JSON structure") << data;
    for (const char* broken : {"", "[{", "[{\"a\":}]", "Warning: not JSON", "[{}] trailing", "[{\"a\":1,}]"})
        EXPECT_EQ(parseFailure(broken).rfind("ExifTool error: Failed to parse ExifTool JSON: ", 0), 0u) << broken;

    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    EXPECT_EQ(parseFailure(deep), "ExifTool error: Failed to parse ExifTool JSON: nested deeper than 64 levels");
    // Brackets inside strings do not count, and the bound itself is allowed.
    EXPECT_EQ(parseExifToolJSON("[{\"XMP:Title\": \"" + std::string(1000, '[') + "\"}]", "a.jpg").size(), 1u);
    const std::string atBound = "[{\"XMP:A\":" + std::string(62, '[') + std::string(62, ']') + "}]";
    EXPECT_EQ(parseExifToolJSON(atBound, "a.jpg").size(), 1u);
}

TEST(ExifToolMapping, replacesBytesThatAreNotUtf8) {
    const auto items = parseExifToolJSON("[{\"EXIF:Artist\": \"J\xE9r\xF4me\"}]", "a.jpg");
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].value, V::string("J\xEF\xBF\xBDr\xEF\xBF\xBDme"));
    const std::string r = "\xEF\xBF\xBD";
    const std::pair<std::string, std::string> cases[] = {
        {"caf\xC3\xA9", "caf\xC3\xA9"}, {"\xF0\x9F\x98\x80", "\xF0\x9F\x98\x80"},
        {"\xC0\xAF", r + r},                     // overlong "/"
        {"\xED\xA0\x80", r + r + r},             // a surrogate
        {"\xF4\x90\x80\x80", r + r + r + r},     // above U+10FFFF
        {"\xE2\x82", r + r},                     // cut short
    };
    for (const auto& [in, out] : cases) EXPECT_EQ(replacingInvalidUTF8(in), out);
}

}  // namespace
}  // namespace tavrin
