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

    // A frame fewer also fails.
    const auto onePage = image::ImageSource::create(dirtyTIFF((dir / "one.tif").string(), 1, -1));
    EXPECT_FALSE(ImageMetadataWriter::verifyOutput(source, image::writeImage(onePage, {frame0}), profile).passed);
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

}  // namespace
}  // namespace tavrin
