#include <gtest/gtest.h>

#include <cmath>

#include "model/pipeline_error.h"
#include "image/image_errors.h"
#include "image/image_metadata_reader.h"
#include "image/image_metadata_writer.h"
#include "image/image_source.h"
#include "image_fixtures.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

using namespace testing::images;
using testing::TempDir;

std::optional<MetadataItem> find(const std::vector<MetadataItem>& items, std::string_view id) {
    for (const auto& i : items)
        if (i.id == id) return i;
    return std::nullopt;
}

TEST(ImageMetadataReader, reportsGPSCameraDatesAndAuthorOfAPhoneJPEG) {
    TempDir dir;
    testing::writeFile(dir / "photo.jpg", dirtyJPEG());
    const auto tree = ImageMetadataReader().readMetadata(dir / "photo.jpg");
    const auto items = tree.allItems();
    EXPECT_EQ(tree.fileType, FileType::jpeg);

    const auto latitude = find(items, "GPS.Latitude");
    ASSERT_TRUE(latitude);
    EXPECT_NEAR(*latitude->value.doubleValue(), 48.0 + 51.0 / 60 + 24.0 / 3600, 1e-9);
    EXPECT_EQ(latitude->category, MetadataCategory::location);
    EXPECT_TRUE(latitude->isRemovable);
    EXPECT_EQ(find(items, "GPS.LatitudeRef")->value, MetadataValue::string("N"));

    struct Expected {
        std::string_view id;
        MetadataCategory category;
    };
    for (const auto& e : std::vector<Expected>{
             {"TIFF.Make", MetadataCategory::deviceInfo},
             {"TIFF.Software", MetadataCategory::softwareInfo},
             {"EXIF.DateTimeOriginal", MetadataCategory::timestamps},
             {"EXIF.LensModel", MetadataCategory::deviceInfo},
             {"IPTC.City", MetadataCategory::location},
             {"IPTC.By-line", MetadataCategory::authorIdentity},
             {"XMP.dc:creator", MetadataCategory::authorIdentity},
             {"XMP.xmp:CreatorTool", MetadataCategory::softwareInfo},
             {"EXIF.Comment", MetadataCategory::commentsAnnotations},
         }) {
        const auto item = find(items, e.id);
        ASSERT_TRUE(item) << e.id;
        EXPECT_EQ(item->category, e.category) << e.id;
        EXPECT_TRUE(item->isRemovable) << e.id;
    }
    EXPECT_EQ(find(items, "ImageIO.PixelWidth")->value, MetadataValue::integer(64));
    EXPECT_EQ(find(items, "ImageIO.Orientation")->value, MetadataValue::integer(6));
    EXPECT_FALSE(find(items, "ImageIO.Orientation")->isRemovable);
    EXPECT_EQ(find(items, "ImageIO.ProfileName")->value, MetadataValue::string("sRGB IEC61966-2.1"));
    EXPECT_FALSE(find(items, "ImageIO.ProfileName")->isRemovable);
    EXPECT_FALSE(find(items, "EXIF.ColorSpace")->isRemovable);
    EXPECT_EQ(find(items, "EXIF.ExifVersion")->value.kind(), MetadataValue::Kind::array);
}

TEST(ImageMetadataReader, reportsPNGTextTimeAndEmbeddedExif) {
    TempDir dir;
    testing::writeFile(dir / "d.png", dirtyPNG());
    const auto items = ImageMetadataReader().readMetadata(dir / "d.png").allItems();
    EXPECT_EQ(find(items, "PNG.Author")->value, MetadataValue::string("Jane Example"));
    EXPECT_EQ(find(items, "PNG.CreationTime")->category, MetadataCategory::timestamps);
    EXPECT_TRUE(find(items, "PNG.Software")->isRemovable);  // names the editing program, as TIFF.Software does
    EXPECT_TRUE(find(items, "TIFF.Software")->isRemovable);
    EXPECT_TRUE(find(items, "GPS.Longitude"));
    EXPECT_EQ(find(items, "PNG.ModificationTime")->value, MetadataValue::string("2024:03:05 14:02:11"));
    EXPECT_EQ(find(items, "ImageIO.HasAlpha")->value, MetadataValue::boolean(true));
}

TEST(ImageMetadataReader, humanReadableNames) {
    struct Row {
        std::string_view key, prefix, expected;
    };
    for (const auto& r : std::vector<Row>{{"DateTimeOriginal", "EXIF", "Date Time Original"},
                                          {"GPSLatitude", "GPS", "GPSLatitude"},
                                          {"3", "8BIM", "8BIM Entry 3"},
                                          {"-0", "8BIM", "8BIM Entry -0"},
                                          {"dc:creator", "XMP", "Dc:creator"},
                                          {"", "EXIF", ""}})
        EXPECT_EQ(ImageMetadataReader::humanReadableName(r.key, r.prefix), r.expected) << r.key;
}

TEST(ImageMetadataReader, structuralKeysAndGenericProfileNames) {
    struct Row {
        std::string_view key;
        std::optional<std::string> profileName;
        bool structural;
    };
    for (const auto& r : std::vector<Row>{
             {"PNG.Software", {}, false},
             {"PNG.Gamma", {}, true},
             {"TIFF.Software", {}, false},
             {"EXIF.ColorSpace", {}, true},
             {"EXIF.Sub.ColorSpace", {}, false},
             {"GIF.DelayTime", {}, true},
             {"WebP.Gamma", {}, false},
             {"TIFF.Orientation", {}, true},
             {"Orientation", {}, true},
             {"ProfileName", std::string("Adobe RGB (1998) "), true},
             {"ProfileName", std::string("sRGB"), true},
             {"ProfileName", std::string("Studio Monitor"), false},
             {"ProfileName", std::nullopt, true},
         }) {
        const MetadataValue v = r.profileName ? MetadataValue::string(*r.profileName) : MetadataValue::integer(3);
        EXPECT_EQ(ImageMetadataWriter::isStructuralKey(r.key, &v), r.structural) << r.key;
    }
}

TEST(ImageMetadataReader, removableItemsCoverEveryFrameAndRefuseUnreadableBytes) {
    const auto jpeg = dirtyJPEG();
    const auto items = ImageMetadataReader::removableItems(jpeg);
    ASSERT_TRUE(items);
    EXPECT_TRUE(find(*items, "GPS.Latitude"));
    EXPECT_FALSE(find(*items, "ImageIO.Orientation"));
    EXPECT_FALSE(ImageMetadataReader::removableItems(toBytes("not an image at all")));
    const auto clean = ImageMetadataReader::removableItems(encodeJPEG(8, 8));
    ASSERT_TRUE(clean);
    EXPECT_TRUE(clean->empty());
}

// Each damaged input gets an error with a reason, never a crash or a hang.
TEST(ImageMetadataReader, refusesDamagedInputsWithAClearError) {
    image::Endian big{false};
    auto exifWith = [](image::TiffOutPage page) { return image::writeTiff(image::Endian{false}, {page}); };
    // An IFD whose next pointer leads back to itself.
    Bytes loop = exifWith(exifPage({false, 1}));
    {
        const std::size_t count = (loop[8] << 8) | loop[9];
        big.set32(loop, 8 + 2 + 12 * count, 8);
    }
    // An entry with a count of 2^32-1.
    image::TiffOutPage huge;
    huge.main.entries.push_back({270, 2, 8, toBytes("abcdefg")});
    Bytes hugeCount = exifWith(huge);
    big.set32(hugeCount, 8 + 2 + 4, 0xFFFFFFFFu);
    // An entry whose value lies past the end.
    Bytes pastEnd = exifWith(huge);
    big.set32(pastEnd, 8 + 2 + 8, 0x00FFFFF0u);

    std::string deep = "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\">";
    for (int i = 0; i < 10000; ++i) deep += "<a>";
    std::string bomb = "<?xml version=\"1.0\"?><!DOCTYPE x [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;&a;&a;\">"
                       "<!ENTITY c \"&b;&b;&b;&b;&b;&b;&b;\">]><x:xmpmeta xmlns:x=\"adobe:ns:meta/\">&c;</x:xmpmeta>";

    Bytes badCRC = dirtyPNG();
    badCRC[8 + 8 + 3] ^= 0x01;  // a byte of the IHDR width
    Bytes truncatedHeader = encodeJPEG(16, 16);
    truncatedHeader.resize(20);

    struct Row {
        std::string name;
        Bytes bytes;
    };
    const std::vector<Row> rows = {
        {"text.jpg", toBytes("Dear diary, this is no photo.\n")},
        {"loop.jpg", withJPEGMetadata(encodeJPEG(8, 8), {loop})},
        {"count.jpg", withJPEGMetadata(encodeJPEG(8, 8), {hugeCount})},
        {"past-end.jpg", withJPEGMetadata(encodeJPEG(8, 8), {pastEnd})},
        {"deep.jpg", withJPEGMetadata(encodeJPEG(8, 8), {{}, deep})},
        {"bomb.jpg", withJPEGMetadata(encodeJPEG(8, 8), {{}, bomb})},
        {"crc.png", badCRC},
        {"short.jpg", truncatedHeader},
    };
    TempDir dir;
    for (const auto& r : rows) {
        testing::writeFile(dir / r.name, r.bytes);
        try {
            (void)ImageMetadataReader().readMetadata(dir / r.name);
            ADD_FAILURE() << r.name << " was read";
        } catch (const ImageMetadataReaderError& e) {
            EXPECT_NE(std::string(e.what()).find("Unable to open image file for metadata reading ("), std::string::npos)
                << r.name << ": " << e.what();
        }
        EXPECT_FALSE(ImageMetadataReader().canRead(dir / r.name)) << r.name;
    }
}

}  // namespace
}  // namespace tavrin
