// HEIC files as phones write them: a grid of hidden tiles, a thumbnail, Exif and XMP describing
// the grid, auxiliary alpha and depth images, items stored in the item data box. Cleaning keeps
// every coded image the picture needs and nothing else, and refuses a grid it cannot rebuild.
#include <gtest/gtest.h>

#include <libheif/heif.h>

#include "model/pipeline_error.h"
#include "image/frame_decoder.h"
#include "image/heif_container.h"
#include "image/image_metadata_reader.h"
#include "image/image_metadata_writer.h"
#include "heif_fixtures.h"
#include "image_fixtures.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

using namespace testing::images;
using testing::TempDir;

bool contains(const Bytes& bytes, std::string_view secret) {
    return std::search(bytes.begin(), bytes.end(), secret.begin(), secret.end()) != bytes.end();
}

// What a viewer shows and finds through libheif: the primary image's pixels and its linked images.
struct Seen {
    std::vector<std::uint8_t> pixels;
    int width = 0, height = 0, thumbnails = 0;
    bool alpha = false, depth = false;
};

Seen view(const Bytes& heic) {
    Seen s;
    heif_context* ctx = heif_context_alloc();
    heif_context_set_max_decoding_threads(ctx, 0);  // tiles decoded in parallel come out mixed up now and then
    EXPECT_EQ(heif_context_read_from_memory_without_copy(ctx, heic.data(), heic.size(), nullptr).code, heif_error_Ok);
    heif_image_handle* handle = nullptr;
    if (heif_context_get_primary_image_handle(ctx, &handle).code == heif_error_Ok) {
        s.width = heif_image_handle_get_width(handle);
        s.height = heif_image_handle_get_height(handle);
        s.thumbnails = heif_image_handle_get_number_of_thumbnails(handle);
        s.alpha = heif_image_handle_has_alpha_channel(handle) != 0;
        s.depth = heif_image_handle_has_depth_image(handle) != 0;
        heif_image* image = nullptr;
        if (heif_decode_image(handle, &image, heif_colorspace_RGB, heif_chroma_interleaved_RGB, nullptr).code ==
            heif_error_Ok) {
            int stride = 0;
            const std::uint8_t* plane = heif_image_get_plane_readonly(image, heif_channel_interleaved, &stride);
            for (int y = 0; y < s.height; ++y) s.pixels.insert(s.pixels.end(), plane + y * stride, plane + y * stride + 3 * s.width);
            heif_image_release(image);
        }
        heif_image_handle_release(handle);
    }
    heif_context_free(ctx);
    return s;
}

std::vector<std::string> removableIDs(const std::vector<MetadataItem>& items) {
    std::vector<std::string> out;
    for (const auto& i : items)
        if (i.isRemovable) out.push_back(i.id);
    return out;
}

TEST(HEICAsPhonesWriteIt, cleansToTheCodedImagesAndKeepsWhatAViewerShows) {
    struct Row {
        std::string_view name;
        PhoneHEICOptions options;
    };
    for (const auto& row : std::vector<Row>{
             {"XMP in the item data box", {}},
             {"XMP in the media data", {32, 0, false, "Display P3", true}},
             {"tiles not hidden", {32, 0, true, "Display P3", false}},
             {"a personal colour profile", {32, 0, true, "Jane's Studio Monitor", true}},
         }) {
        SCOPED_TRACE(row.name);
        const Bytes dirty = phoneHEIC(row.options);
        if (dirty.empty()) GTEST_SKIP() << "libheif has no HEVC encoder here";
        TempDir dir;
        testing::writeFile(dir / "IMG_0001.heic", dirty);
        const auto before = ImageMetadataReader().readMetadata(dir / "IMG_0001.heic").allItems();
        const auto ids = removableIDs(before);
        for (std::string_view id : {"GPS.Latitude", "TIFF.Make", "XMP.xmp:CreatorTool"})
            EXPECT_NE(std::find(ids.begin(), ids.end(), id), ids.end()) << id;
        const Seen original = view(dirty);
        ASSERT_EQ(original.width, 64);
        EXPECT_EQ(original.thumbnails, 1);
        EXPECT_TRUE(original.alpha);
        EXPECT_TRUE(original.depth);

        std::filesystem::create_directories(dir / "out");
        const auto result = ImageMetadataWriter().cleanMetadata(dir / "IMG_0001.heic", dir / "out" / "IMG_0001.heic",
                                                                CleaningProfile::maximumPrivacy());
        EXPECT_TRUE(result.verifiedClean);
        const std::string text = testing::readFile(dir / "out" / "IMG_0001.heic");
        const Bytes cleaned(text.begin(), text.end());
        const auto after = ImageMetadataReader().readMetadata(dir / "out" / "IMG_0001.heic").allItems();
        EXPECT_TRUE(removableIDs(after).empty()) << removableIDs(after).front();
        for (std::string_view secret : {"Jane", "PhotoTool", "TX-1"}) EXPECT_FALSE(contains(cleaned, secret)) << secret;
        const bool generic = row.options.profileName == "Display P3";
        EXPECT_EQ(std::any_of(after.begin(), after.end(), [](const auto& i) { return i.key == "ProfileName"; }), generic);

        // The picture, its alpha and its depth map stay; the thumbnail goes.
        const Seen shown = view(cleaned);
        EXPECT_EQ(shown.pixels, original.pixels);
        EXPECT_FALSE(shown.pixels.empty());
        EXPECT_TRUE(shown.alpha);
        EXPECT_TRUE(shown.depth);
        EXPECT_EQ(shown.thumbnails, 0);
        // Leaving a colour profile out changes a decoding property: verification then decodes both files.
        EXPECT_EQ(image::heifContainer::sameCodedImages(dirty, cleaned), generic);

        // Cleaning the clean copy changes nothing.
        TempDir again;
        testing::writeFile(again / "IMG_0001.heic", cleaned);
        (void)ImageMetadataWriter().cleanMetadata(again / "IMG_0001.heic", again / "second.heic",
                                                  CleaningProfile::maximumPrivacy());
        const std::string second = testing::readFile(again / "second.heic");
        EXPECT_EQ(Bytes(second.begin(), second.end()), cleaned);
    }
}

TEST(HEICAsPhonesWriteIt, aGridNamingATileThatDoesNotExistIsRefusedWithItsReason) {
    const Bytes broken = phoneHEIC({32, 99, true, "Display P3", true});
    if (broken.empty()) GTEST_SKIP() << "libheif has no HEVC encoder here";
    TempDir dir;
    testing::writeFile(dir / "grid.heic", broken);
    try {
        (void)ImageMetadataWriter().cleanMetadata(dir / "grid.heic", dir / "out.heic", CleaningProfile::maximumPrivacy());
        ADD_FAILURE() << "cleaned";
    } catch (const PipelineError& e) {
        EXPECT_NE(e.reason().find("iref: grid 1 names tile 99, which does not exist"), std::string::npos) << e.what();
    }
    EXPECT_FALSE(std::filesystem::exists(dir / "out.heic"));
}

}  // namespace
}  // namespace tavrin
