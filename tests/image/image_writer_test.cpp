#include <gtest/gtest.h>

#include <png.h>
#include <turbojpeg.h>

#include "model/pipeline_error.h"
#include "image/image_metadata_reader.h"
#include "image/image_metadata_writer.h"
#include "image/jpeg_container.h"
#include "image_fixtures.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

using namespace testing::images;
using testing::TempDir;

// The entropy-coded data of every scan, as comparable byte strings.
std::vector<Bytes> scans(const Bytes& jpeg) {
    std::vector<Bytes> out;
    for (auto s : image::jpegContainer::entropyCodedSegments(jpeg)) out.emplace_back(s.begin(), s.end());
    return out;
}

std::vector<MetadataItem> itemsOf(const std::filesystem::path& path) { return ImageMetadataReader().readMetadata(path).allItems(); }

bool has(const std::vector<MetadataItem>& items, std::string_view id) {
    return std::any_of(items.begin(), items.end(), [&](const auto& i) { return i.id == id; });
}

std::vector<unsigned char> jpegPixels(const Bytes& jpeg) {
    tjhandle h = tjInitDecompress();
    int w = 0, ht = 0, ss = 0, cs = 0;
    tjDecompressHeader3(h, jpeg.data(), jpeg.size(), &w, &ht, &ss, &cs);
    std::vector<unsigned char> px(static_cast<std::size_t>(w * ht * 3));
    tjDecompress2(h, jpeg.data(), jpeg.size(), px.data(), w, 0, ht, TJPF_RGB, 0);
    tjDestroy(h);
    return px;
}

std::vector<png_byte> pngPixels(const Bytes& png) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    png_image_begin_read_from_memory(&image, png.data(), png.size());
    image.format = PNG_FORMAT_RGBA;
    std::vector<png_byte> px(PNG_IMAGE_SIZE(image));
    png_image_finish_read(&image, nullptr, px.data(), 0, nullptr);
    return px;
}

struct Cleaned {
    CleaningResult result;
    Bytes bytes;
    std::vector<MetadataItem> items;
};

Cleaned clean(const TempDir& dir, const std::string& name, const Bytes& input, const CleaningProfile& profile) {
    testing::writeFile(dir / name, input);
    std::filesystem::create_directories(dir / "out");
    auto result = ImageMetadataWriter().cleanMetadata(dir / name, dir / "out" / name, profile);
    const std::string text = testing::readFile(dir / "out" / name);
    return {result, Bytes(text.begin(), text.end()), itemsOf(dir / "out" / name)};
}

TEST(ImageMetadataWriter, losslessJPEGKeepsEntropyCodedDataOrientationAndGenericProfile) {
    TempDir dir;
    const Bytes input = dirtyJPEG();
    const auto out = clean(dir, "photo.jpg", input, CleaningProfile::maximumPrivacy());

    EXPECT_TRUE(out.result.verifiedClean);
    EXPECT_TRUE(out.result.warnings.empty());
    EXPECT_TRUE(out.result.remainingMetadataClasses.empty());
    EXPECT_EQ(scans(out.bytes), scans(input));
    EXPECT_EQ(jpegPixels(out.bytes), jpegPixels(input));
    // What lets verification decode only the output: the same coded image, and nothing less.
    EXPECT_TRUE(image::jpegContainer::sameCodedImage(input, out.bytes));
    Bytes flipped = out.bytes;
    const auto scan = image::jpegContainer::entropyCodedSegments(flipped).front();
    flipped[static_cast<std::size_t>(scan.data() - flipped.data()) + scan.size() / 2] ^= 0x01;
    EXPECT_FALSE(image::jpegContainer::sameCodedImage(input, flipped));
    EXPECT_FALSE(image::jpegContainer::sameCodedImage(input, Bytes(out.bytes.begin(), out.bytes.end() - 2)));
    EXPECT_FALSE(image::jpegContainer::sameCodedImage(input, encodeJPEG(16, 16)));
    for (const auto& item : out.items) EXPECT_FALSE(item.isRemovable) << item.id;
    EXPECT_TRUE(has(out.items, "TIFF.Orientation"));
    EXPECT_TRUE(has(out.items, "ImageIO.ProfileName"));
    const std::string text(out.bytes.begin(), out.bytes.end());
    for (std::string_view secret : {"Jane", "Paris", "TX-1", "PhotoTool", "MPF", "TRAILING-SECRET", "2024:03:05"})
        EXPECT_EQ(text.find(secret), std::string::npos) << secret;
    EXPECT_TRUE(std::any_of(out.result.removedItems.begin(), out.result.removedItems.end(),
                            [](const auto& i) { return i.key == "GPS.Latitude"; }));
}

TEST(ImageMetadataWriter, losslessJPEGDropsAPersonalProfileName) {
    TempDir dir;
    JPEGMetadata m;
    m.icc = iccProfile("Jane's Studio Monitor");
    const auto out = clean(dir, "p.jpg", withJPEGMetadata(encodeJPEG(16, 16), m), CleaningProfile::maximumPrivacy());
    EXPECT_FALSE(has(out.items, "ImageIO.ProfileName"));
}

TEST(ImageMetadataWriter, aKeptRemovableKeyStaysWhileEverythingElseGoes) {
    TempDir dir;
    CleaningProfile profile = CleaningProfile::maximumPrivacy();
    profile.specificKeysToKeep = {"EXIF.DateTimeOriginal", "imageio.IPTC.City"};
    const Bytes input = dirtyJPEG();
    const auto out = clean(dir, "photo.jpg", input, profile);
    EXPECT_TRUE(has(out.items, "EXIF.DateTimeOriginal"));
    EXPECT_TRUE(has(out.items, "IPTC.City"));
    for (const auto& item : out.items) {
        if (item.isRemovable) {
            EXPECT_TRUE(item.id == "EXIF.DateTimeOriginal" || item.id == "IPTC.City") << item.id;
        }
    }
    // The standard path rebuilds the container; the coded image is still copied unchanged.
    EXPECT_EQ(scans(out.bytes), scans(input));
    EXPECT_TRUE(std::any_of(out.result.retainedItems.begin(), out.result.retainedItems.end(),
                            [](const auto& i) { return i.key == "EXIF.DateTimeOriginal" && i.isRemovable; }));
}

TEST(ImageMetadataWriter, locationOnlyProfileRemovesGPSAndKeepsTheCamera) {
    TempDir dir;
    const auto out = clean(dir, "photo.jpg", dirtyJPEG(), CleaningProfile::locationOnly());
    EXPECT_FALSE(has(out.items, "GPS.Latitude"));
    EXPECT_FALSE(has(out.items, "IPTC.City"));
    EXPECT_TRUE(has(out.items, "TIFF.Make"));
    EXPECT_TRUE(has(out.items, "XMP.dc:creator"));
}

TEST(ImageMetadataWriter, pngRoundTripKeepsPixelsAndDropsSoftware) {
    TempDir dir;
    const Bytes input = dirtyPNG();
    const auto out = clean(dir, "d.png", input, CleaningProfile::maximumPrivacy());
    EXPECT_EQ(pngPixels(out.bytes), pngPixels(input));
    std::vector<std::string> removable;
    for (const auto& item : out.items)
        if (item.isRemovable) removable.push_back(item.id);
    EXPECT_TRUE(removable.empty()) << removable.front();
    EXPECT_FALSE(has(out.items, "PNG.Software"));
    EXPECT_NE(std::search(input.begin(), input.end(), std::begin("PhotoTool"), std::end("PhotoTool") - 1), input.end());
    EXPECT_EQ(std::search(out.bytes.begin(), out.bytes.end(), std::begin("PhotoTool"), std::end("PhotoTool") - 1),
              out.bytes.end());
    EXPECT_TRUE(std::any_of(out.result.removedItems.begin(), out.result.removedItems.end(),
                            [](const auto& i) { return i.key == "PNG.Software"; }));
    EXPECT_FALSE(has(out.items, "PNG.Author"));
    EXPECT_FALSE(has(out.items, "GPS.Latitude"));

    // Cleaning the clean copy changes nothing.
    TempDir again;
    const auto second = clean(again, "d.png", out.bytes, CleaningProfile::maximumPrivacy());
    EXPECT_EQ(second.bytes, out.bytes);
}

TEST(ImageMetadataWriter, truncatedScanFailsWithoutOutput) {
    TempDir dir;
    Bytes input = dirtyJPEG();
    input.resize(input.size() - 40);
    testing::writeFile(dir / "cut.jpg", input);
    EXPECT_THROW(ImageMetadataWriter().cleanMetadata(dir / "cut.jpg", dir / "out.jpg", CleaningProfile::maximumPrivacy()),
                 std::exception);
    EXPECT_FALSE(std::filesystem::exists(dir / "out.jpg"));
}

TEST(ImageMetadataWriter, inMemoryPathCleansAndProves) {
    const Bytes input = dirtyJPEG();
    EXPECT_FALSE(ImageMetadataWriter::imageDataIsClean(input, CleaningProfile::maximumPrivacy()));
    const auto cleaned = ImageMetadataWriter::cleanedImageData(input, CleaningProfile::maximumPrivacy());
    ASSERT_TRUE(cleaned);
    EXPECT_TRUE(ImageMetadataWriter::imageDataIsClean(*cleaned, CleaningProfile::maximumPrivacy()));
    EXPECT_TRUE(ImageMetadataWriter::isDecodableImageData(*cleaned));
    EXPECT_FALSE(ImageMetadataWriter::isDecodableImageData(toBytes("GIF89a but not really an image")));
    EXPECT_FALSE(ImageMetadataWriter::cleanedImageData(toBytes("nothing"), CleaningProfile::maximumPrivacy()));
}

// A frame header that claims w × h, in front of a real 8×8 image: the limits read the header only.
Bytes jpegClaiming(std::uint16_t width, std::uint16_t height) {
    Bytes jpeg = encodeJPEG(8, 8);
    for (std::size_t i = 2; i + 9 < jpeg.size(); ++i)
        if (jpeg[i] == 0xFF && jpeg[i + 1] == 0xC0) {
            jpeg[i + 5] = static_cast<std::uint8_t>(height >> 8);
            jpeg[i + 6] = static_cast<std::uint8_t>(height);
            jpeg[i + 7] = static_cast<std::uint8_t>(width >> 8);
            jpeg[i + 8] = static_cast<std::uint8_t>(width);
            break;
        }
    return jpeg;
}

TEST(ImageMetadataWriter, decodeLimitsRefuseOversizedFrames) {
    EXPECT_TRUE(ImageMetadataWriter::isDecodableImageData(jpegClaiming(16000, 16000)));
    EXPECT_FALSE(ImageMetadataWriter::isDecodableImageData(jpegClaiming(16000, 16001)));
    EXPECT_FALSE(ImageMetadataWriter::isDecodableImageData(jpegClaiming(20000, 20000)));
    EXPECT_FALSE(ImageMetadataWriter::cleanedImageData(jpegClaiming(20000, 20000), CleaningProfile::maximumPrivacy()));
}

TEST(ImageMetadataWriter, filteringDropsEmptiedDictionariesAndReportsRemovedAndRetained) {
    image::Properties frame;
    image::Properties gps;
    gps.emplace("Latitude", MetadataValue::number(48.85));
    gps.emplace("LatitudeRef", MetadataValue::string("N"));
    frame.emplace("{GPS}", MetadataValue::dictionary(gps));
    image::Properties exif;
    exif.emplace("ColorSpace", MetadataValue::integer(1));
    exif.emplace("Emptied", MetadataValue::array({MetadataValue::dictionary({{"Owner", MetadataValue::string("x")}})}));
    frame.emplace("{Exif}", MetadataValue::dictionary(exif));
    frame.emplace("Orientation", MetadataValue::integer(6));

    const auto f = ImageMetadataWriter::buildFilteredProperties(frame, CleaningProfile::locationOnly());
    EXPECT_FALSE(f.properties.count("{GPS}"));
    EXPECT_EQ(f.removed.size(), 2u);
    EXPECT_EQ(f.removed[0].id, "imageio.GPS.Latitude");
    EXPECT_TRUE(f.properties.count("Orientation"));

    const auto all = ImageMetadataWriter::buildFilteredProperties(frame, CleaningProfile::maximumPrivacy());
    const auto& kept = all.properties.at("{Exif}").asDictionary();
    EXPECT_TRUE(kept.count("ColorSpace"));
    EXPECT_FALSE(kept.count("Emptied"));  // its only element filtered to nothing
    EXPECT_FALSE(std::any_of(all.retained.begin(), all.retained.end(), [](const auto& i) { return i.key == "EXIF.Emptied"; }));
}

TEST(ImageMetadataWriter, overDepthSubtreeIsJudgedAsOneUnit) {
    MetadataValue inner = MetadataValue::string("deep secret");
    for (int i = 0; i < 300; ++i) inner = MetadataValue::dictionary({{"Level", inner}});
    image::Properties frame;
    frame.emplace("{Exif}", MetadataValue::dictionary({{"Nest", inner}}));
    const auto f = ImageMetadataWriter::buildFilteredProperties(frame, CleaningProfile::maximumPrivacy());
    ASSERT_EQ(f.removed.size(), 1u);
    EXPECT_EQ(f.removed[0].value, MetadataValue::string("<over-depth residue>"));
    EXPECT_FALSE(f.properties.count("{Exif}"));
}

}  // namespace
}  // namespace tavrin
