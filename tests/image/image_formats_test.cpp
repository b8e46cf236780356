// The formats beyond JPEG and PNG: round trips, frame counts, per-frame metadata.
#include <gtest/gtest.h>

#include "image/frame_decoder.h"
#include "image/image_metadata_reader.h"
#include "image/image_metadata_writer.h"
#include "image/tiff_structure.h"
#include "image_fixtures.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

using namespace testing::images;
using testing::TempDir;

// Every strip of every page, as bytes: equal strips mean equal pixels.
std::vector<Bytes> strips(const Bytes& tiff) {
    const auto s = image::parseTiff(tiff, 100);
    std::vector<Bytes> out;
    for (const auto& page : s.pages) {
        const auto* offsets = page.main.find(image::tiffTag::stripOffsets);
        const auto* counts = page.main.find(image::tiffTag::stripByteCounts);
        for (std::size_t i = 0; i < offsets->count; ++i) {
            auto span = s.data.subspan(*s.unsignedValue(*offsets, i), *s.unsignedValue(*counts, i));
            out.emplace_back(span.begin(), span.end());
        }
    }
    return out;
}

TEST(ImageFormats, multiPageTIFFLosesMetadataOfEveryPageAndKeepsItsStrips) {
    TempDir dir;
    const Bytes input = dirtyTIFF((dir / "plain.tif").string(), 2, 1);
    const auto before = ImageMetadataReader::removableItems(input);
    ASSERT_TRUE(before);
    EXPECT_TRUE(std::any_of(before->begin(), before->end(), [](const auto& i) { return i.key == "GPS.Latitude"; }));

    testing::writeFile(dir / "scan.tif", input);
    const auto result =
        ImageMetadataWriter().cleanMetadata(dir / "scan.tif", dir / "clean.tif", CleaningProfile::maximumPrivacy());
    EXPECT_TRUE(result.verifiedClean);
    const std::string text = testing::readFile(dir / "clean.tif");
    const Bytes output(text.begin(), text.end());
    const auto after = ImageMetadataReader::removableItems(output);
    ASSERT_TRUE(after);
    EXPECT_TRUE(after->empty()) << after->front().id;
    EXPECT_EQ(strips(output), strips(input));
    const auto frames = image::decodeAllFrames(image::ImageFormat::tiff, output);
    EXPECT_EQ(frames, (std::vector<image::FrameSize>{{24, 16}, {32, 16}}));
}

TEST(ImageFormats, aSecondFrameGPSEntryThatSurvivesFailsVerification) {
    TempDir dir;
    const Bytes input = dirtyTIFF((dir / "plain.tif").string(), 2, 1);
    const auto source = image::ImageSource::create(input);
    const auto& profile = CleaningProfile::maximumPrivacy();
    const auto frame0 = ImageMetadataWriter::buildFilteredProperties(source.propertiesAt(0), profile).properties;
    const auto frame1 = ImageMetadataWriter::buildFilteredProperties(source.propertiesAt(1), profile).properties;

    const Bytes good = image::writeImage(source, {frame0, frame1});
    EXPECT_TRUE(ImageMetadataWriter::verifyOutput(source, good, profile).passed);

    // Frame 0 is clean; frame 1 keeps its GPS directory.
    image::Properties leaky = frame1;
    leaky.emplace("{GPS}", source.propertiesAt(1).at("{GPS}"));
    const Bytes bad = image::writeImage(source, {frame0, leaky});
    const auto outcome = ImageMetadataWriter::verifyOutput(source, bad, profile);
    EXPECT_FALSE(outcome.passed);
    EXPECT_EQ(outcome.residualCategories, std::vector<MetadataCategory>{MetadataCategory::location});
    EXPECT_EQ(outcome.reason.rfind("page 2: GPS.", 0), 0u) << outcome.reason;

    // A frame fewer also fails, and says so.
    const auto onePage = image::ImageSource::create(dirtyTIFF((dir / "one.tif").string(), 1, -1));
    const auto shorter = ImageMetadataWriter::verifyOutput(source, image::writeImage(onePage, {frame0}), profile);
    EXPECT_FALSE(shorter.passed);
    EXPECT_EQ(shorter.reason, "the cleaned copy has 1 page, the original 2");
}

}  // namespace
}  // namespace tavrin

namespace tavrin {
namespace {

TEST(ImageFormats, tiffBasedRawIsInspectedThroughTheIFDReader) {
    testing::TempDir dir;
    testing::writeFile(dir / "shot.dng", testing::images::dirtyTIFF((dir / "plain.tif").string(), 1, 0));
    const auto tree = ImageMetadataReader().readMetadata(dir / "shot.dng");
    EXPECT_EQ(tree.fileType, FileType::raw);
    const auto items = tree.allItems();
    EXPECT_TRUE(std::any_of(items.begin(), items.end(), [](const auto& i) { return i.id == "GPS.Latitude"; }));
    EXPECT_TRUE(std::any_of(items.begin(), items.end(), [](const auto& i) { return i.id == "TIFF.Make"; }));
    EXPECT_FALSE(ImageMetadataWriter().supportedTypes().count(FileType::raw));
}

bool hasItem(const std::vector<MetadataItem>& items, std::string_view id) {
    return std::any_of(items.begin(), items.end(), [&](const auto& i) { return i.id == id; });
}

// A Fujifilm RAF: the header names the camera and points at an embedded JPEG (with the Exif)
// and at sensor data wrapped in a TIFF structure (here with a host computer the JPEG lacks).
TEST(ImageFormats, rafIsInspectedThroughItsHeaderEmbeddedJPEGAndTIFF) {
    testing::TempDir dir;
    const Bytes jpeg = withJPEGMetadata(encodeJPEG(16, 16), {exifBlock()});
    image::TiffOutPage page;
    page.main.entries.push_back({316, 2, 9, toBytes(std::string_view("Raw Host\0", 9))});
    const Bytes sensor = image::writeTiff(image::Endian{false}, {page});
    Bytes raf = toBytes("FUJIFILMCCD-RAW 0201FF383501");
    raf.resize(28, ' ');
    image::append(raf, "X-T99");
    raf.resize(108, 0);
    const std::size_t jpegAt = raf.size();
    image::append(raf, jpeg);
    const std::size_t sensorAt = raf.size();
    image::append(raf, sensor);
    const image::Endian big{false};
    big.set32(raf, 84, static_cast<std::uint32_t>(jpegAt));
    big.set32(raf, 88, static_cast<std::uint32_t>(jpeg.size()));
    big.set32(raf, 100, static_cast<std::uint32_t>(sensorAt));
    big.set32(raf, 104, static_cast<std::uint32_t>(sensor.size()));
    testing::writeFile(dir / "shot.raf", raf);
    const auto tree = ImageMetadataReader().readMetadata(dir / "shot.raf");
    EXPECT_EQ(tree.fileType, FileType::raw);
    const auto items = tree.allItems();
    for (auto id : {"GPS.Latitude", "TIFF.Make", "TIFF.HostComputer", "Raw.CameraModel", "EXIF.LensModel"})
        EXPECT_TRUE(hasItem(items, id)) << id;

    // The sensor offset past the end is a clear error.
    big.set32(raf, 100, 0x7FFFFFF0u);
    testing::writeFile(dir / "bad.raf", raf);
    EXPECT_THROW((void)ImageMetadataReader().readMetadata(dir / "bad.raf"), ImageMetadataReaderError);
}

// A Canon CR3: ISO boxes, with IFD0, the Exif IFD and the GPS IFD each as a TIFF structure in the
// CMT1, CMT2 and CMT4 boxes of a uuid box inside moov.
TEST(ImageFormats, cr3IsInspectedThroughItsBoxes) {
    auto box = [](std::string_view type, const Bytes& body) {
        Bytes out;
        image::putBE32(out, static_cast<std::uint32_t>(body.size() + 8));
        image::append(out, type);
        image::append(out, body);
        return out;
    };
    const image::Endian little{true};
    const image::TiffOutPage full = exifPage({true, 1, true});
    image::TiffOutPage ifd0, exif, gps;
    ifd0.main = full.main;
    exif.main = full.exif;
    gps.main = full.gps;
    Bytes uuid(16, 0x85);
    image::append(uuid, box("CMT1", image::writeTiff(little, {ifd0})));
    image::append(uuid, box("CMT2", image::writeTiff(little, {exif})));
    image::append(uuid, box("CMT4", image::writeTiff(little, {gps})));
    Bytes ftyp = toBytes("crx ");
    ftyp.insert(ftyp.end(), {0, 0, 0, 1});
    image::append(ftyp, "crx isom");
    Bytes cr3 = box("ftyp", ftyp);
    image::append(cr3, box("moov", box("uuid", uuid)));
    image::append(cr3, box("mdat", Bytes(64, 0)));

    testing::TempDir dir;
    testing::writeFile(dir / "shot.cr3", cr3);
    const auto tree = ImageMetadataReader().readMetadata(dir / "shot.cr3");
    EXPECT_EQ(tree.fileType, FileType::raw);
    const auto items = tree.allItems();
    for (auto id : {"GPS.Latitude", "TIFF.Make", "TIFF.Model", "EXIF.DateTimeOriginal", "EXIF.BodySerialNumber"})
        EXPECT_TRUE(hasItem(items, id)) << id;
}

}  // namespace
}  // namespace tavrin
