// WebP, GIF, HEIC and BMP: inspect, clean, inspect the output, and find only the allowed
// remainder; frames, delays and loops survive, and the coded image data is copied unchanged.
#include <gtest/gtest.h>

#include <gif_lib.h>
#include <libheif/heif.h>
#include <webp/decode.h>
#include <webp/demux.h>

#include "image/frame_decoder.h"
#include "image/image_errors.h"
#include "image/image_metadata_reader.h"
#include "image/image_metadata_writer.h"
#include "image/image_source.h"
#include "image/heif_container.h"
#include "image_fixtures.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

using namespace testing::images;
using testing::TempDir;

struct Cleaned {
    CleaningResult result;
    Bytes bytes;
    std::vector<MetadataItem> items;
};

Cleaned clean(const TempDir& dir, const std::string& name, const Bytes& input,
              const CleaningProfile& profile = CleaningProfile::maximumPrivacy()) {
    testing::writeFile(dir / name, input);
    std::filesystem::create_directories(dir / "out");
    auto result = ImageMetadataWriter().cleanMetadata(dir / name, dir / "out" / name, profile);
    const std::string text = testing::readFile(dir / "out" / name);
    return {result, Bytes(text.begin(), text.end()), ImageMetadataReader().readMetadata(dir / "out" / name).allItems()};
}

std::vector<MetadataItem> inspect(const TempDir& dir, const std::string& name, const Bytes& bytes) {
    testing::writeFile(dir / name, bytes);
    return ImageMetadataReader().readMetadata(dir / name).allItems();
}

const MetadataItem* find(const std::vector<MetadataItem>& items, std::string_view id) {
    for (const auto& i : items)
        if (i.id == id) return &i;
    return nullptr;
}

std::vector<std::string> removableIDs(const std::vector<MetadataItem>& items) {
    std::vector<std::string> out;
    for (const auto& i : items)
        if (i.isRemovable) out.push_back(i.id);
    return out;
}

bool contains(const Bytes& bytes, std::string_view secret) {
    return std::search(bytes.begin(), bytes.end(), secret.begin(), secret.end()) != bytes.end();
}

// The personal texts the fixtures plant: author, place, software, camera serial, a comment.
const std::vector<std::string_view> secrets = {"Jane", "Paris", "PhotoTool", "TX-1", "SECRET", "2024:03:05"};

// Every frame of an animation as the viewer composes it, with its timestamp.
std::vector<std::pair<int, Bytes>> webpFrames(const Bytes& webp) {
    WebPData data{webp.data(), webp.size()};
    WebPAnimDecoderOptions options;
    WebPAnimDecoderOptionsInit(&options);
    WebPAnimDecoder* decoder = WebPAnimDecoderNew(&data, &options);
    WebPAnimInfo info;
    WebPAnimDecoderGetInfo(decoder, &info);
    std::vector<std::pair<int, Bytes>> out;
    while (WebPAnimDecoderHasMoreFrames(decoder)) {
        std::uint8_t* px = nullptr;
        int timestamp = 0;
        WebPAnimDecoderGetNext(decoder, &px, &timestamp);
        out.emplace_back(timestamp, Bytes(px, px + std::size_t{info.canvas_width} * info.canvas_height * 4));
    }
    WebPAnimDecoderDelete(decoder);
    return out;
}

std::vector<Bytes> gifRasters(const Bytes& gif) {
    struct In {
        const Bytes* data;
        std::size_t at;
    } in{&gif, 0};
    int error = 0;
    GifFileType* g = DGifOpen(&in,
                              [](GifFileType* f, GifByteType* buffer, int n) {
                                  auto* i = static_cast<In*>(f->UserData);
                                  const std::size_t k = std::min<std::size_t>(static_cast<std::size_t>(n), i->data->size() - i->at);
                                  std::copy_n(i->data->data() + i->at, k, buffer);
                                  i->at += k;
                                  return static_cast<int>(k);
                              },
                              &error);
    std::vector<Bytes> out;
    if (g && DGifSlurp(g) == GIF_OK)
        for (int i = 0; i < g->ImageCount; ++i) {
            const auto& image = g->SavedImages[i];
            out.emplace_back(image.RasterBits, image.RasterBits + image.ImageDesc.Width * image.ImageDesc.Height);
        }
    DGifCloseFile(g, &error);
    return out;
}

TEST(ImageContainers, webpStillLosesEveryMetadataChunkAndKeepsItsBitstream) {
    TempDir dir;
    const Bytes plain = encodeWebP(40, 24);
    const Bytes input = withWebPMetadata(plain, exifBlock(), xmpPacket(), iccProfile("sRGB IEC61966-2.1"));
    const auto before = inspect(dir, "in.webp", input);
    for (auto id : {"GPS.Latitude", "TIFF.Make", "EXIF.LensModel", "XMP.xmp:CreatorTool", "ImageIO.ProfileName"})
        EXPECT_TRUE(find(before, id)) << id;
    EXPECT_EQ(find(before, "ImageIO.PixelWidth")->value, MetadataValue::integer(40));

    const auto out = clean(dir, "photo.webp", input);
    EXPECT_TRUE(out.result.verifiedClean);
    EXPECT_TRUE(removableIDs(out.items).empty()) << removableIDs(out.items).front();
    EXPECT_TRUE(find(out.items, "TIFF.Orientation"));
    EXPECT_TRUE(find(out.items, "ImageIO.ProfileName"));
    for (auto secret : secrets) EXPECT_FALSE(contains(out.bytes, secret)) << secret;
    EXPECT_FALSE(contains(out.bytes, "ZZZZ"));
    EXPECT_EQ(webpFrames(out.bytes), webpFrames(plain));
    // The VP8 bitstream itself is copied byte for byte.
    EXPECT_TRUE(std::search(out.bytes.begin(), out.bytes.end(), plain.begin() + 12, plain.end()) != out.bytes.end());

    // A second clean changes nothing.
    TempDir again;
    EXPECT_EQ(clean(again, "photo.webp", out.bytes).bytes, out.bytes);
}

TEST(ImageContainers, animatedWebPKeepsFramesDelaysAndLoop) {
    TempDir dir;
    const Bytes plain = encodeAnimatedWebP(24, 16, {80, 120, 200}, 3);
    const Bytes input = withWebPMetadata(plain, exifBlock(), xmpPacket(), {});
    const auto source = image::ImageSource::create(input);
    ASSERT_EQ(source.count(), 3u);
    const auto out = clean(dir, "anim.webp", input);
    const auto cleaned = image::ImageSource::create(out.bytes);
    ASSERT_EQ(cleaned.count(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        const auto& webp = cleaned.propertiesAt(i).at("{WebP}").asDictionary();
        EXPECT_EQ(webp.at("UnclampedDelayTime"), source.propertiesAt(i).at("{WebP}").asDictionary().at("UnclampedDelayTime"));
        EXPECT_EQ(webp.at("LoopCount"), MetadataValue::integer(3));
        EXPECT_FALSE(cleaned.propertiesAt(i).count("{GPS}")) << i;
    }
    EXPECT_EQ(webpFrames(out.bytes), webpFrames(plain));
    for (const auto& item : out.items) {
        if (item.key == "WebP.DelayTime" || item.key == "WebP.LoopCount") {
            EXPECT_FALSE(item.isRemovable);
        }
    }
}

TEST(ImageContainers, animatedGIFKeepsFramesDelaysAndLoopAndLosesCommentAndXMP) {
    TempDir dir;
    const Bytes plain = encodeGIF(20, 12, {10, 25, 1}, 0);
    const Bytes input = withGIFMetadata(plain, "SECRET comment by Jane", xmpPacket());
    const auto before = inspect(dir, "in.gif", input);
    EXPECT_TRUE(find(before, "GIF.Comment"));
    EXPECT_TRUE(find(before, "XMP.dc:creator"));
    EXPECT_EQ(find(before, "GIF.LoopCount")->value, MetadataValue::integer(0));

    const auto out = clean(dir, "anim.gif", input);
    EXPECT_TRUE(out.result.verifiedClean);
    EXPECT_TRUE(removableIDs(out.items).empty()) << removableIDs(out.items).front();
    for (auto secret : secrets) EXPECT_FALSE(contains(out.bytes, secret)) << secret;
    EXPECT_EQ(gifRasters(out.bytes), gifRasters(plain));
    const auto cleaned = image::ImageSource::create(out.bytes);
    ASSERT_EQ(cleaned.count(), 3u);
    const std::vector<MetadataValue> delays = {MetadataValue::number(0.1), MetadataValue::number(0.25),
                                               MetadataValue::number(0.1)};
    for (std::size_t i = 0; i < 3; ++i) {
        const auto& gif = cleaned.propertiesAt(i).at("{GIF}").asDictionary();
        EXPECT_EQ(gif.at("DelayTime"), delays[i]) << i;
        EXPECT_EQ(gif.at("LoopCount"), MetadataValue::integer(0));
    }
    EXPECT_EQ(cleaned.propertiesAt(2).at("{GIF}").asDictionary().at("UnclampedDelayTime"), MetadataValue::number(0.01));
    EXPECT_EQ(image::decodeAllFrames(image::ImageFormat::gif, out.bytes).size(), 3u);
}

TEST(ImageContainers, aKeptCommentStaysWhileEverythingElseGoes) {
    TempDir dir;
    CleaningProfile profile = CleaningProfile::maximumPrivacy();
    profile.specificKeysToKeep = {"GIF.Comment"};
    const auto out = clean(dir, "c.gif", withGIFMetadata(encodeGIF(8, 8, {5}, 0), "kept note", xmpPacket()), profile);
    EXPECT_TRUE(contains(out.bytes, "kept note"));
    EXPECT_EQ(removableIDs(out.items), std::vector<std::string>{"GIF.Comment"});
}

TEST(ImageContainers, heicLosesExifXMPAndThumbnailAndKeepsItsPixels) {
    if (!heif_have_encoder_for_format(heif_compression_HEVC)) GTEST_SKIP() << "libheif has no HEVC encoder here";
    Bytes exif = toBytes(std::string_view("Exif\0\0", 6));
    image::append(exif, exifBlock());
    const Bytes dirty = encodeHEIC(64, 48, exif, xmpPacket());
    TempDir dir;
    const auto before = inspect(dir, "in.heic", dirty);
    for (auto id : {"GPS.Latitude", "TIFF.Make", "XMP.dc:creator"}) EXPECT_TRUE(find(before, id)) << id;
    EXPECT_EQ(find(before, "ImageIO.PixelWidth")->value, MetadataValue::integer(64));

    const auto out = clean(dir, "photo.heic", dirty);
    EXPECT_TRUE(out.result.verifiedClean);
    EXPECT_TRUE(removableIDs(out.items).empty()) << removableIDs(out.items).front();
    EXPECT_TRUE(find(out.items, "TIFF.Orientation"));
    for (auto secret : secrets) EXPECT_FALSE(contains(out.bytes, secret)) << secret;
    EXPECT_EQ(image::decodeAllFrames(image::ImageFormat::heic, out.bytes),
              (std::vector<image::FrameSize>{{64, 48}}));
    // Same coded image, so verification decoded only the output; any change to it is seen.
    EXPECT_TRUE(image::heifContainer::sameCodedImages(dirty, out.bytes));
    Bytes altered = out.bytes;
    const std::string text(altered.begin(), altered.end());
    ASSERT_NE(text.find("mdat"), std::string::npos);
    altered[text.find("mdat") + 4 + 10] ^= 0x01;  // inside the image item, which the mdat holds first
    EXPECT_FALSE(image::heifContainer::sameCodedImages(dirty, altered));
    EXPECT_FALSE(image::heifContainer::sameCodedImages(dirty, encodeHEIC(48, 64, exif, xmpPacket())));

    // The thumbnail is gone: libheif finds none on the primary image.
    heif_context* ctx = heif_context_alloc();
    ASSERT_EQ(heif_context_read_from_memory_without_copy(ctx, out.bytes.data(), out.bytes.size(), nullptr).code,
              heif_error_Ok);
    heif_image_handle* handle = nullptr;
    heif_context_get_primary_image_handle(ctx, &handle);
    EXPECT_EQ(heif_image_handle_get_number_of_thumbnails(handle), 0);
    heif_image_handle_release(handle);
    heif_context_free(ctx);

    TempDir again;
    EXPECT_EQ(clean(again, "photo.heic", out.bytes).bytes, out.bytes);
}

TEST(ImageContainers, bmpLosesItsLinkedProfilePathAndTrailingBytes) {
    TempDir dir;
    const Bytes input = encodeBMP(13, 7);
    const auto before = inspect(dir, "in.bmp", input);
    EXPECT_EQ(find(before, "ImageIO.PixelHeight")->value, MetadataValue::integer(7));
    EXPECT_EQ(find(before, "ImageIO.DPIWidth")->value, MetadataValue::integer(96));
    const auto out = clean(dir, "scan.bmp", input);
    EXPECT_TRUE(out.result.verifiedClean);
    EXPECT_FALSE(contains(out.bytes, "jane"));
    EXPECT_FALSE(contains(out.bytes, "TRAILING"));
    EXPECT_FALSE(contains(out.bytes, "ENAJ"));
    const std::size_t stride = (13 * 3 + 3) / 4 * 4;
    EXPECT_TRUE(std::equal(input.begin() + 138, input.begin() + 138 + static_cast<std::ptrdiff_t>(stride * 7),
                           out.bytes.begin() + 138));
    EXPECT_EQ(image::decodeAllFrames(image::ImageFormat::bmp, out.bytes), (std::vector<image::FrameSize>{{13, 7}}));
}

TEST(ImageContainers, inMemoryPathCleansEveryWritableType) {
    const std::vector<std::pair<std::string, Bytes>> inputs = {
        {"webp", withWebPMetadata(encodeWebP(16, 16, true), exifBlock(), xmpPacket(), {})},
        {"gif", withGIFMetadata(encodeGIF(8, 8, {5, 5}, 0), "SECRET", xmpPacket())},
        {"bmp", encodeBMP(5, 5)},
    };
    const auto& profile = CleaningProfile::maximumPrivacy();
    for (const auto& [name, bytes] : inputs) {
        EXPECT_TRUE(ImageMetadataWriter::isDecodableImageData(bytes)) << name;
        const auto cleaned = ImageMetadataWriter::cleanedImageData(bytes, profile);
        ASSERT_TRUE(cleaned) << name;
        EXPECT_TRUE(ImageMetadataWriter::imageDataIsClean(*cleaned, profile)) << name;
        for (auto secret : secrets) EXPECT_FALSE(contains(*cleaned, secret)) << name << " " << secret;
    }
    EXPECT_FALSE(ImageMetadataWriter::imageDataIsClean(inputs[0].second, profile));
}

// A frame of 20,000 × 20,000 declared by a WebP canvas: refused before anything is decoded.
TEST(ImageContainers, decodeLimitsRefuseAHugeCanvas) {
    Bytes webp = withWebPMetadata(encodeWebP(8, 8), {}, "", iccProfile("sRGB"));
    for (std::size_t at : {24u, 27u}) {  // the canvas width and height, minus one, in VP8X
        const std::uint32_t v = 19999;
        for (int i = 0; i < 3; ++i) webp[at + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(v >> (8 * i));
    }
    EXPECT_FALSE(ImageMetadataWriter::isDecodableImageData(webp));
    EXPECT_FALSE(ImageMetadataWriter::cleanedImageData(webp, CleaningProfile::maximumPrivacy()));
}

// A 1×1 GIF with 100,000 frames is refused with a clear reason, quickly.
TEST(ImageContainers, gifWithTooManyFramesIsRefused) {
    const Bytes one = encodeGIF(1, 1, {1}, 0);
    const std::size_t headerEnd = 13 + 3 * 256 + 19;  // screen, colour table, loop extension
    const Bytes frame(one.begin() + static_cast<std::ptrdiff_t>(headerEnd), one.end() - 1);
    Bytes many(one.begin(), one.begin() + static_cast<std::ptrdiff_t>(headerEnd));
    for (int i = 0; i < 100000; ++i) image::append(many, frame);
    many.push_back(0x3B);
    try {
        (void)image::ImageSource::create(many);
        ADD_FAILURE() << "read";
    } catch (const ImageFormatError& e) {
        EXPECT_EQ(e.errorCase(), ImageFormatError::Case::limitExceeded);
        EXPECT_NE(std::string(e.what()).find("65,536 frames"), std::string::npos) << e.what();
    }
    EXPECT_FALSE(ImageMetadataWriter::isDecodableImageData(many));
    // 10,001 frames still read, but exceed the in-memory limit.
    Bytes tenThousand(one.begin(), one.begin() + static_cast<std::ptrdiff_t>(headerEnd));
    for (int i = 0; i < 10001; ++i) image::append(tenThousand, frame);
    tenThousand.push_back(0x3B);
    EXPECT_EQ(image::ImageSource::create(tenThousand).count(), 10001u);
    EXPECT_FALSE(ImageMetadataWriter::isDecodableImageData(tenThousand));
    // Cleaning a file has no frame limit of its own: all 10,001 frames are written and verified.
    TempDir dir;
    const auto out = clean(dir, "long.gif", tenThousand);
    EXPECT_TRUE(out.result.verifiedClean);
    EXPECT_EQ(image::ImageSource::create(out.bytes).count(), 10001u);
}

// One image item whose 4000 extents all name the same 16 KB of the mdat: read naively, 64 MB of
// "image data" from a 50 KB file. Its items may never claim more bytes than the file holds.
TEST(ImageContainers, heicWhoseExtentsRepeatTheSameBytesIsRefused) {
    using image::append;
    using image::putBE16;
    using image::putBE32;
    const auto box = [](std::string_view type, const Bytes& body) {
        Bytes out;
        putBE32(out, static_cast<std::uint32_t>(body.size() + 8));
        append(out, type);
        append(out, body);
        return out;
    };
    const auto fullBox = [&](std::string_view type, std::uint8_t version, const Bytes& body) {
        Bytes b = {version, 0, 0, 0};
        append(b, body);
        return box(type, b);
    };
    const std::size_t extents = 4000, media = 16 * 1024;
    Bytes infe = {0, 1, 0, 0};  // item 1, protection index 0
    append(infe, std::string_view("hvc1\0", 5));
    Bytes iinf = {0, 1};
    append(iinf, fullBox("infe", 2, infe));
    Bytes ispe;
    putBE32(ispe, 16);
    putBE32(ispe, 16);
    Bytes ipma;
    putBE32(ipma, 1);
    append(ipma, Bytes{0, 1, 1, 0x81});  // item 1: property 1, essential
    Bytes iprp = box("ipco", fullBox("ispe", 0, ispe));
    append(iprp, fullBox("ipma", 0, ipma));
    Bytes meta;
    append(meta, fullBox("hdlr", 0, Bytes{0, 0, 0, 0, 'p', 'i', 'c', 't', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    append(meta, fullBox("pitm", 0, Bytes{0, 1}));
    append(meta, fullBox("iinf", 0, iinf));
    const Bytes ftyp = box("ftyp", toBytes(std::string_view("heic\0\0\0\0mif1heic", 16)));
    // iloc version 0: 4-byte offsets and lengths, no base offset; filled in once the mdat's
    // place is known.
    const std::size_t ilocSize = 8 + 4 + 2 + 2 + 2 + 2 + 2 + extents * 8;
    const std::size_t metaSize = 12 + meta.size() + ilocSize + 8 + iprp.size();
    const std::size_t mdatData = ftyp.size() + metaSize + 8;
    Bytes iloc = {0x44, 0x00};
    putBE16(iloc, 1);
    putBE16(iloc, 1);  // item 1
    putBE16(iloc, 0);  // this file
    putBE16(iloc, static_cast<std::uint16_t>(extents));
    for (std::size_t i = 0; i < extents; ++i) {
        putBE32(iloc, static_cast<std::uint32_t>(mdatData));
        putBE32(iloc, static_cast<std::uint32_t>(media));
    }
    append(meta, fullBox("iloc", 0, iloc));
    append(meta, box("iprp", iprp));
    Bytes heic = ftyp;
    append(heic, fullBox("meta", 0, meta));
    append(heic, box("mdat", Bytes(media, 0x42)));
    ASSERT_EQ(heic.size(), mdatData + media);

    TempDir dir;
    testing::writeFile(dir / "repeat.heic", heic);
    try {
        (void)ImageMetadataWriter().cleanMetadata(dir / "repeat.heic", dir / "out.heic", CleaningProfile::maximumPrivacy());
        ADD_FAILURE() << "cleaned";
    } catch (const std::exception& e) {
        EXPECT_NE(std::string(e.what()).find("a HEIF item is too large"), std::string::npos) << e.what();
    }
    EXPECT_FALSE(std::filesystem::exists(dir / "out.heic"));
    EXPECT_FALSE(image::heifContainer::sameCodedImages(heic, heic));
}

TEST(ImageContainers, heicWhoseItemLocationPointsOutsideTheFileIsRefused) {
    Bytes exif = toBytes(std::string_view("Exif\0\0", 6));
    image::append(exif, exifBlock());
    Bytes heic = encodeHEIC(16, 16, exif, "");
    if (heic.empty()) GTEST_SKIP() << "libheif has no HEVC encoder here";
    // Move every item far past the end through its base offset (libheif writes 4-byte ones).
    const std::string_view tag = "iloc";
    auto at = std::search(heic.begin(), heic.end(), tag.begin(), tag.end());
    ASSERT_NE(at, heic.end());
    const std::size_t body = static_cast<std::size_t>(at - heic.begin()) + 4;
    const int version = heic[body];
    ASSERT_EQ(heic[body + 4], 0x44);
    ASSERT_EQ(heic[body + 5] >> 4, 4);
    const std::size_t count = version < 2 ? image::be16(heic, body + 6) : image::be32(heic, body + 6);
    std::size_t p = body + (version < 2 ? 8 : 10);
    for (std::size_t i = 0; i < count; ++i) {
        p += version < 2 ? 2 : 4;
        if (version >= 1) p += 2;
        p += 2;  // data reference index
        image::Endian{false}.set32(heic, p, 0x7FFFFF00u);
        p += 4;
        const std::size_t extents = image::be16(heic, p);
        p += 2 + 8 * extents;
    }
    try {
        (void)image::ImageSource::create(heic);
        ADD_FAILURE() << "read";
    } catch (const ImageFormatError& e) {
        EXPECT_NE(std::string(e.what()).find("an item location points outside the file"), std::string::npos) << e.what();
    }
    TempDir dir;
    testing::writeFile(dir / "broken.heic", heic);
    EXPECT_THROW((void)ImageMetadataReader().readMetadata(dir / "broken.heic"), ImageMetadataReaderError);
    EXPECT_THROW((void)ImageMetadataWriter().cleanMetadata(dir / "broken.heic", dir / "out.heic",
                                                           CleaningProfile::maximumPrivacy()),
                 std::exception);
    EXPECT_FALSE(std::filesystem::exists(dir / "out.heic"));
}

}  // namespace
}  // namespace tavrin
