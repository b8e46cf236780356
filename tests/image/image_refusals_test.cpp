// What a clean refuses and why, and what leaves with a personal colour profile: each refusal
// names the chunk, box or frame and what was found, and leaves no output behind.
#include <gtest/gtest.h>

#include "model/pipeline_error.h"
#include "image/image_metadata_reader.h"
#include "image/image_metadata_writer.h"
#include "image_fixtures.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

using namespace testing::images;
using testing::TempDir;

bool contains(const Bytes& bytes, std::string_view secret) {
    return std::search(bytes.begin(), bytes.end(), secret.begin(), secret.end()) != bytes.end();
}

const MetadataItem* find(const std::vector<MetadataItem>& items, std::string_view key) {
    for (const auto& i : items)
        if (i.key == key) return &i;
    return nullptr;
}

Bytes iccpChunk(const Bytes& compressedProfile) {
    Bytes body = toBytes(std::string_view("Jane\0\0", 6));  // name, terminator, deflate
    image::append(body, compressedProfile);
    return body;
}

Bytes withICCP(const Bytes& profile) { return withPNGChunks(encodePNG(8, 8), {{"iCCP", iccpChunk(image::deflateZlib(profile))}}); }

Bytes jpegWithProfile(const Bytes& profile) {
    JPEGMetadata m;
    m.icc = profile;
    m.exif = exifBlock();
    return withJPEGMetadata(encodeJPEG(16, 16), m);
}

// A GIF with its colour profile in an ICCRGBG1012 application extension behind the screen header.
Bytes gifWithProfile(const Bytes& profile) {
    const Bytes gif = encodeGIF(8, 8, {10}, 0);
    const std::size_t headerEnd = 13 + ((gif[10] & 0x80) ? 3u * (2u << (gif[10] & 7)) : 0u);
    Bytes ext = {0x21, 0xFF, 11};
    image::append(ext, std::string_view("ICCRGBG1012"));
    for (std::size_t at = 0; at < profile.size(); at += 255) {
        const std::size_t n = std::min<std::size_t>(255, profile.size() - at);
        ext.push_back(static_cast<std::uint8_t>(n));
        ext.insert(ext.end(), profile.begin() + static_cast<std::ptrdiff_t>(at), profile.begin() + static_cast<std::ptrdiff_t>(at + n));
    }
    ext.push_back(0);
    Bytes out(gif.begin(), gif.begin() + static_cast<std::ptrdiff_t>(headerEnd));
    image::append(out, ext);
    out.insert(out.end(), gif.begin() + static_cast<std::ptrdiff_t>(headerEnd), gif.end());
    return out;
}

// dirty → inspect → clean → inspect → clean again: the profile's description stays or goes.
TEST(PersonalColourProfiles, leavePNGWebPAndGIFAsTheyLeaveJPEGWhenColourDataGoes) {
    CleaningProfile keepDate = CleaningProfile::maximumPrivacy();
    keepDate.specificKeysToKeep = {"EXIF.DateTimeOriginal"};  // a JPEG on the standard path
    struct Row {
        std::string_view name;
        std::string file;
        Bytes (*make)(const Bytes&);
        std::string description;
        CleaningProfile profile;
        bool stays;
    };
    const auto webp = [](const Bytes& icc) { return withWebPMetadata(encodeWebP(8, 8), {}, "", icc); };
    for (const auto& row : std::vector<Row>{
             {"PNG, everything removed", "p.png", withICCP, "Jane's Studio Monitor", CleaningProfile::maximumPrivacy(), false},
             {"WebP, everything removed", "p.webp", webp, "Jane's Studio Monitor", CleaningProfile::maximumPrivacy(), false},
             {"JPEG standard path", "p.jpg", jpegWithProfile, "Jane's Studio Monitor", keepDate, false},
             {"JPEG lossless path", "p.jpg", jpegWithProfile, "Jane's Studio Monitor", CleaningProfile::maximumPrivacy(), false},
             {"GIF, everything removed", "p.gif", gifWithProfile, "Jane's Studio Monitor", CleaningProfile::maximumPrivacy(), false},
             {"GIF, location only", "p.gif", gifWithProfile, "Jane's Studio Monitor", CleaningProfile::locationOnly(), true},
             {"PNG, location only", "p.png", withICCP, "Jane's Studio Monitor", CleaningProfile::locationOnly(), true},
             {"WebP, location only", "p.webp", webp, "Jane's Studio Monitor", CleaningProfile::locationOnly(), true},
             {"PNG, generic name", "p.png", withICCP, "sRGB IEC61966-2.1", CleaningProfile::maximumPrivacy(), true},
             {"WebP, generic name", "p.webp", webp, "Display P3", CleaningProfile::maximumPrivacy(), true},
         }) {
        SCOPED_TRACE(row.name);
        TempDir dir;
        const Bytes dirty = row.make(iccProfile(row.description));
        testing::writeFile(dir / row.file, dirty);
        const auto before = ImageMetadataReader().readMetadata(dir / row.file).allItems();
        ASSERT_TRUE(find(before, "ProfileName"));
        EXPECT_EQ(find(before, "ProfileName")->value, MetadataValue::string(row.description));

        const auto result = ImageMetadataWriter().cleanMetadata(dir / row.file, dir / "out", row.profile);
        const std::string text = testing::readFile(dir / "out");
        const Bytes cleaned(text.begin(), text.end());
        std::filesystem::rename(dir / "out", dir / ("clean-" + row.file));
        const auto after = ImageMetadataReader().readMetadata(dir / ("clean-" + row.file)).allItems();
        EXPECT_EQ(find(after, "ProfileName") != nullptr, row.stays);
        // PNG holds its profile compressed; the other formats show the description in the clear.
        if (!row.stays) {
            EXPECT_FALSE(contains(cleaned, row.description));
        }
        const bool reported = std::any_of(result.removedItems.begin(), result.removedItems.end(),
                                          [](const auto& i) { return i.key == "ProfileName"; });
        // The lossless JPEG path leaves a personal profile out by its own rule, unreported.
        if (row.name != "JPEG lossless path") {
            EXPECT_EQ(reported, !row.stays);
        }

        const auto again = ImageMetadataWriter().cleanMetadata(dir / ("clean-" + row.file), dir / "twice", row.profile);
        EXPECT_TRUE(again.verifiedClean);
        EXPECT_EQ(testing::readFile(dir / "twice"), text);
    }
}

PipelineError refusal(const std::string& name, const Bytes& bytes) {
    TempDir dir;
    testing::writeFile(dir / name, bytes);
    try {
        (void)ImageMetadataWriter().cleanMetadata(dir / name, dir / "out", CleaningProfile::maximumPrivacy());
    } catch (const PipelineError& e) {
        EXPECT_FALSE(std::filesystem::exists(dir / "out")) << e.what();
        return e;
    }
    ADD_FAILURE() << name << " was cleaned";
    return PipelineError::cancelled();
}

// A TIFF of `pages` pages of width × height pixels that all share one tiny uncompressed strip.
Bytes sharedStripTIFF(std::uint32_t pages, std::uint32_t width, std::uint32_t height) {
    Bytes out = toBytes(std::string_view("II*\0", 4));
    image::putLE32(out, 16);
    image::append(out, Bytes(8, 0x80));  // the strip
    const std::uint16_t tags[][2] = {{256, 4}, {257, 4}, {258, 3}, {259, 3}, {262, 3}, {273, 4}, {277, 3}, {278, 4}, {279, 4}};
    const std::uint32_t values[] = {width, height, 8, 1, 1, 8, 1, height, 8};
    for (std::uint32_t p = 0; p < pages; ++p) {
        image::putLE16(out, 9);
        for (std::size_t i = 0; i < 9; ++i) {
            image::putLE16(out, tags[i][0]);
            image::putLE16(out, tags[i][1]);
            image::putLE32(out, 1);
            image::putLE32(out, values[i]);
        }
        image::putLE32(out, p + 1 < pages ? static_cast<std::uint32_t>(out.size() + 4) : 0);
    }
    return out;
}

TEST(CleaningRefusals, nameWhatWasFound) {
    Bytes bigGIF = encodeGIF(2, 2, {10, 10, 10, 10}, 0);  // a 16,000 × 16,000 screen for 2 × 2 frames
    bigGIF[6] = bigGIF[8] = 0x80;
    bigGIF[7] = bigGIF[9] = 0x3E;
    Bytes bigWebP = withWebPMetadata(encodeAnimatedWebP(8, 8, {50, 50, 50, 50}, 0), exifBlock(), "", {});
    const auto vp8x = std::search(bigWebP.begin(), bigWebP.end(), std::begin("VP8X"), std::end("VP8X") - 1);
    ASSERT_NE(vp8x, bigWebP.end());
    const std::size_t canvas = static_cast<std::size_t>(vp8x - bigWebP.begin()) + 12;
    for (std::size_t i : {canvas, canvas + 3}) {
        bigWebP[i] = 0x7F;  // 16,000 - 1, little-endian, 24 bits
        bigWebP[i + 1] = 0x3E;
        bigWebP[i + 2] = 0;
    }
    struct Row {
        std::string_view name;
        std::string file;
        Bytes bytes;
        std::string reason;
    };
    for (const auto& row : std::vector<Row>{
             {"pages sharing one strip", "many.tif", sharedStripTIFF(10000, 16000, 16000),
              "TIFF: 10,000 pages hold 2,560,000 megapixels together, more than the 1,000 megapixels one file may decode "
              "to be verified"},
             {"one page too large", "huge.tif", sharedStripTIFF(1, 20000, 20000),
              "TIFF page 1: 20,000 × 20,000 pixels, more than the 256 megapixels one page may decode to be verified"},
             {"GIF frames on a huge screen", "big.gif", bigGIF,
              "GIF: 4 frames hold 1,024 megapixels together, more than the 1,000 megapixels one file may decode to be "
              "verified"},
             {"WebP animation on a huge canvas", "big.webp", bigWebP,
              "WebP: 4 frames hold 1,024 megapixels together, more than the 1,000 megapixels one file may decode to be "
              "verified"},
             {"iCCP that does not inflate", "broken.png",
              withPNGChunks(encodePNG(8, 8), {{"iCCP", iccpChunk(toBytes("not a zlib stream"))}}),
              "iCCP: the profile does not inflate"},
         }) {
        SCOPED_TRACE(row.name);
        const PipelineError e = refusal(row.file, row.bytes);
        EXPECT_NE(e.reason().find(row.reason), std::string::npos) << e.what();
        EXPECT_NE(std::string(e.what()).find("(" + row.reason), std::string::npos) << e.what();
    }
}

}  // namespace
}  // namespace tavrin
