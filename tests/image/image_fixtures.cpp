#include "image_fixtures.h"

#include <fstream>
#include <gif_lib.h>
#include <libheif/heif.h>
#include <png.h>
#include <webp/encode.h>
#include <webp/mux.h>
#include <tiffio.h>
#include <stdexcept>
#include <turbojpeg.h>
#include <zlib.h>

namespace tavrin::testing::images {

using image::Endian;
using image::TiffOutEntry;

Bytes toBytes(std::string_view s) { return Bytes(s.begin(), s.end()); }

namespace {

std::vector<unsigned char> gradient(int width, int height, int channels) {
    std::vector<unsigned char> px(static_cast<std::size_t>(width * height * channels));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < channels; ++c)
                px[static_cast<std::size_t>((y * width + x) * channels + c)] =
                    static_cast<unsigned char>(c == 3 ? 200 : (x * 7 + y * 3 + c * 50) & 0xFF);
    return px;
}

TiffOutEntry ascii(std::uint16_t tag, const std::string& s) {
    Bytes v(s.begin(), s.end());
    v.push_back(0);
    return {tag, 2, static_cast<std::uint32_t>(v.size()), v};
}

TiffOutEntry shortValue(const Endian& e, std::uint16_t tag, std::uint16_t value) {
    Bytes v;
    e.put16(v, value);
    return {tag, 3, 1, v};
}

TiffOutEntry rationals(const Endian& e, std::uint16_t tag, std::vector<std::pair<std::uint32_t, std::uint32_t>> values) {
    Bytes v;
    for (auto [n, d] : values) {
        e.put32(v, n);
        e.put32(v, d);
    }
    return {tag, 5, static_cast<std::uint32_t>(values.size()), v};
}

}  // namespace

Bytes encodeJPEG(int width, int height) {
    tjhandle h = tjInitCompress();
    auto px = gradient(width, height, 3);
    unsigned char* out = nullptr;
    unsigned long size = 0;
    if (tjCompress2(h, px.data(), width, 0, height, TJPF_RGB, &out, &size, TJSAMP_420, 85, 0) != 0)
        throw std::runtime_error("tjCompress2 failed");
    Bytes jpeg(out, out + size);
    tjFree(out);
    tjDestroy(h);
    return jpeg;
}

Bytes encodePNG(int width, int height, bool alpha) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(width);
    image.height = static_cast<png_uint_32>(height);
    image.format = alpha ? PNG_FORMAT_RGBA : PNG_FORMAT_RGB;
    auto px = gradient(width, height, alpha ? 4 : 3);
    png_alloc_size_t size = 0;
    if (!png_image_write_to_memory(&image, nullptr, &size, 0, px.data(), 0, nullptr)) throw std::runtime_error("png size");
    Bytes out(size);
    if (!png_image_write_to_memory(&image, out.data(), &size, 0, px.data(), 0, nullptr)) throw std::runtime_error("png write");
    out.resize(size);
    return out;
}

image::TiffOutPage exifPage(const ExifOptions& o) {
    Endian e{o.littleEndian};
    image::TiffOutPage page;
    page.main.entries = {ascii(271, "Tavrin Camera Co"), ascii(272, "TX-1 Pro"), ascii(305, "PhotoTool 2.1"),
                         ascii(306, "2024:03:05 14:02:11"), ascii(315, "Jane Example"),
                         shortValue(e, 274, o.orientation), rationals(e, 282, {{72, 1}}), rationals(e, 283, {{72, 1}}),
                         shortValue(e, 296, 2)};
    page.exif.entries = {ascii(36867, "2024:03:05 14:02:11"), ascii(42036, "TX Lens 24mm"),
                         shortValue(e, 34855, 100), {36864, 7, 4, toBytes("0232")}, shortValue(e, 40961, 1),
                         ascii(42033, "SN-0042")};
    if (o.gps) {
        page.gps.entries = {{0, 1, 4, {2, 3, 0, 0}},
                            ascii(1, "N"),
                            rationals(e, 2, {{48, 1}, {51, 1}, {2400, 100}}),
                            ascii(3, "E"),
                            rationals(e, 4, {{2, 1}, {17, 1}, {4000, 100}})};
    }
    return page;
}

Bytes exifBlock(const ExifOptions& o) { return image::writeTiff(Endian{o.littleEndian}, {exifPage(o)}); }

Bytes iccProfile(const std::string& description) {
    Bytes p(128, 0);
    Endian be{false};
    // A v2 header: size, 'acsp' signature, RGB data space, XYZ connection space.
    p[36] = 'a'; p[37] = 'c'; p[38] = 's'; p[39] = 'p';
    p[8] = 2;
    std::copy_n("mntrRGB XYZ ", 12, p.begin() + 12);
    be.put32(p, 1);
    const std::uint32_t descOffset = 128 + 4 + 12;
    Bytes desc = toBytes("desc");
    desc.insert(desc.end(), 4, 0);
    be.put32(desc, static_cast<std::uint32_t>(description.size() + 1));
    image::append(desc, description);
    desc.push_back(0);
    desc.insert(desc.end(), 12 + 67, 0);  // Unicode and ScriptCode parts, empty
    image::append(p, "desc");
    be.put32(p, descOffset);
    be.put32(p, static_cast<std::uint32_t>(desc.size()));
    image::append(p, desc);
    be.set32(p, 0, static_cast<std::uint32_t>(p.size()));
    return p;
}

std::string xmpPacket() {
    return R"(<?xpacket begin="" id="W5M0MpCehiHzreSzNTczkc9d"?>
<x:xmpmeta xmlns:x="adobe:ns:meta/"><rdf:RDF xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#">
<rdf:Description rdf:about="" xmlns:dc="http://purl.org/dc/elements/1.1/" xmlns:xmp="http://ns.adobe.com/xap/1.0/"
 xmlns:photoshop="http://ns.adobe.com/photoshop/1.0/" xmp:CreatorTool="PhotoTool 2.1" photoshop:City="Paris">
<dc:creator><rdf:Seq><rdf:li>Jane Example</rdf:li></rdf:Seq></dc:creator>
</rdf:Description></rdf:RDF></x:xmpmeta><?xpacket end="w"?>)";
}

Bytes iptcRecords() {
    Bytes out;
    auto dataset = [&](std::uint8_t number, const std::string& value) {
        out.insert(out.end(), {0x1C, 2, number});
        image::putBE16(out, static_cast<std::uint16_t>(value.size()));
        image::append(out, value);
    };
    dataset(0, std::string("\0\4", 2));
    dataset(80, "Jane Example");
    dataset(90, "Paris");
    return out;
}

namespace {

void putSegment(Bytes& out, std::uint8_t marker, const Bytes& body) {
    out.push_back(0xFF);
    out.push_back(marker);
    image::putBE16(out, static_cast<std::uint16_t>(body.size() + 2));
    image::append(out, body);
}

}  // namespace

Bytes withJPEGMetadata(const Bytes& jpeg, const JPEGMetadata& m) {
    std::size_t insertAt = 2;
    if (jpeg[3] == 0xE0) insertAt = 4 + ((jpeg[4] << 8) | jpeg[5]);
    Bytes segments;
    if (!m.exif.empty()) {
        Bytes body = toBytes(std::string_view("Exif\0\0", 6));
        image::append(body, m.exif);
        putSegment(segments, 0xE1, body);
    }
    if (!m.icc.empty()) {
        Bytes body = toBytes(std::string_view("ICC_PROFILE\0\1\1", 14));
        image::append(body, m.icc);
        putSegment(segments, 0xE2, body);
    }
    if (!m.xmp.empty()) {
        Bytes body = toBytes(std::string_view("http://ns.adobe.com/xap/1.0/\0", 29));
        image::append(body, m.xmp);
        putSegment(segments, 0xE1, body);
    }
    if (!m.iptc.empty()) {
        Bytes body = toBytes(std::string_view("Photoshop 3.0\0", 14));
        image::append(body, "8BIM");
        body.insert(body.end(), {0x04, 0x04, 0, 0});
        image::putBE32(body, static_cast<std::uint32_t>(m.iptc.size()));
        image::append(body, m.iptc);
        if (m.iptc.size() & 1) body.push_back(0);
        putSegment(segments, 0xED, body);
    }
    if (m.mpf) putSegment(segments, 0xE2, toBytes(std::string_view("MPF\0MM\0*\0\0\0\x08\0\0", 14)));
    if (!m.comment.empty()) putSegment(segments, 0xFE, toBytes(m.comment));
    Bytes out(jpeg.begin(), jpeg.begin() + static_cast<std::ptrdiff_t>(insertAt));
    image::append(out, segments);
    out.insert(out.end(), jpeg.begin() + static_cast<std::ptrdiff_t>(insertAt), jpeg.end());
    image::append(out, m.trailer);
    return out;
}

Bytes dirtyJPEG() {
    JPEGMetadata m;
    m.exif = exifBlock();
    m.xmp = xmpPacket();
    m.iptc = iptcRecords();
    m.icc = iccProfile("sRGB IEC61966-2.1");
    m.comment = "Shot at Jane's place";
    m.mpf = true;
    m.trailer = "TRAILING-SECRET";
    return withJPEGMetadata(encodeJPEG(64, 48), m);
}

Bytes pngChunk(const std::string& type, const Bytes& data) {
    Bytes out;
    image::putBE32(out, static_cast<std::uint32_t>(data.size()));
    const std::size_t start = out.size();
    image::append(out, type);
    image::append(out, data);
    image::putBE32(out, static_cast<std::uint32_t>(crc32(0, out.data() + start, static_cast<uInt>(out.size() - start))));
    return out;
}

Bytes withPNGChunks(const Bytes& png, const std::vector<PNGChunk>& chunks) {
    const std::size_t afterIHDR = 8 + 12 + 13;
    Bytes out(png.begin(), png.begin() + afterIHDR);
    for (const auto& c : chunks) image::append(out, pngChunk(c.type, c.data));
    out.insert(out.end(), png.begin() + afterIHDR, png.end());
    return out;
}

Bytes textChunk(const std::string& keyword, const std::string& text) {
    Bytes out = toBytes(keyword);
    out.push_back(0);
    image::append(out, text);
    return out;
}

Bytes dirtyPNG() {
    Bytes xmp = toBytes("XML:com.adobe.xmp");
    xmp.insert(xmp.end(), {0, 0, 0, 0, 0});
    image::append(xmp, xmpPacket());
    return withPNGChunks(encodePNG(40, 30, true),
                         {{"tEXt", textChunk("Author", "Jane Example")},
                          {"tEXt", textChunk("Software", "PhotoTool 2.1")},
                          {"tEXt", textChunk("Creation Time", "2024-03-05T14:02:11")},
                          {"iTXt", xmp},
                          {"eXIf", exifBlock({true, 1, true})},
                          {"tIME", {0x07, 0xE8, 3, 5, 14, 2, 11}}});
}

Bytes dirtyTIFF(const std::string& scratch, int pages, int gpsPage) {
    TIFF* tif = TIFFOpen(scratch.c_str(), "w");
    for (int p = 0; p < pages; ++p) {
        const int width = 24 + 8 * p, height = 16;
        TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, width);
        TIFFSetField(tif, TIFFTAG_IMAGELENGTH, height);
        TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 3);
        TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 8);
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
        TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
        TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, 4);
        auto px = gradient(width, height, 3);
        for (int y = 0; y < height; ++y) TIFFWriteScanline(tif, px.data() + y * width * 3, static_cast<std::uint32_t>(y), 0);
        TIFFWriteDirectory(tif);
    }
    TIFFClose(tif);
    std::ifstream in(scratch, std::ios::binary);
    const Bytes plain((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());

    const auto source = image::parseTiff(plain, 100);
    std::vector<image::TiffOutPage> out;
    for (std::size_t p = 0; p < source.pages.size(); ++p) {
        const ExifOptions options{static_cast<int>(p) == gpsPage, 1, source.endian.little};
        image::TiffOutPage page = exifPage(options);
        for (const auto& e : source.pages[p].main.entries)
            if (e.tag != image::tiffTag::stripOffsets) page.main.entries.push_back(image::copyEntry(e));
        const auto* offsets = source.pages[p].main.find(image::tiffTag::stripOffsets);
        const auto* counts = source.pages[p].main.find(image::tiffTag::stripByteCounts);
        for (std::size_t s = 0; s < offsets->count; ++s)
            page.imageData.push_back(source.data.subspan(*source.unsignedValue(*offsets, s), *source.unsignedValue(*counts, s)));
        page.offsetsTag = image::tiffTag::stripOffsets;
        // exifPage's own orientation entry stays; libtiff wrote none.
        out.push_back(std::move(page));
    }
    return image::writeTiff(source.endian, out);
}

}  // namespace tavrin::testing::images

// x265, which encodes the HEIC fixtures, keeps a few allocations for the life of the process.
extern "C" const char* __lsan_default_suppressions() { return "leak:libx265\n"; }

namespace tavrin::testing::images {

Bytes encodeWebP(int width, int height, bool lossless) {
    auto px = gradient(width, height, lossless ? 4 : 3);
    std::uint8_t* out = nullptr;
    const std::size_t size = lossless ? WebPEncodeLosslessRGBA(px.data(), width, height, width * 4, &out)
                                      : WebPEncodeRGB(px.data(), width, height, width * 3, 80, &out);
    if (size == 0) throw std::runtime_error("WebP encoding failed");
    Bytes webp(out, out + size);
    WebPFree(out);
    return webp;
}

Bytes encodeAnimatedWebP(int width, int height, const std::vector<int>& delaysMs, int loopCount) {
    WebPAnimEncoderOptions options;
    WebPAnimEncoderOptionsInit(&options);
    options.anim_params.loop_count = loopCount;
    options.allow_mixed = 0;
    WebPAnimEncoder* encoder = WebPAnimEncoderNew(width, height, &options);
    WebPConfig config;
    WebPConfigInit(&config);
    config.lossless = 1;
    int timestamp = 0;
    for (std::size_t f = 0; f < delaysMs.size(); ++f) {
        WebPPicture picture;
        WebPPictureInit(&picture);
        picture.width = width;
        picture.height = height;
        picture.use_argb = 1;
        WebPPictureAlloc(&picture);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                picture.argb[y * picture.argb_stride + x] =
                    0xFF000000u | static_cast<std::uint32_t>((x * 9 + static_cast<int>(f) * 60) & 255) << 16 |
                    static_cast<std::uint32_t>((y * 5) & 255) << 8;
        WebPAnimEncoderAdd(encoder, &picture, timestamp, &config);
        WebPPictureFree(&picture);
        timestamp += delaysMs[f];
    }
    WebPAnimEncoderAdd(encoder, nullptr, timestamp, nullptr);
    WebPData data;
    WebPDataInit(&data);
    WebPAnimEncoderAssemble(encoder, &data);
    Bytes out(data.bytes, data.bytes + data.size);
    WebPDataClear(&data);
    WebPAnimEncoderDelete(encoder);
    if (out.empty()) throw std::runtime_error("animated WebP encoding failed");
    return out;
}

namespace {

void putRIFFChunk(Bytes& out, std::string_view fourCC, const Bytes& data) {
    image::append(out, fourCC);
    image::putLE32(out, static_cast<std::uint32_t>(data.size()));
    image::append(out, data);
    if (data.size() & 1) out.push_back(0);
}

}  // namespace

Bytes withWebPMetadata(const Bytes& webp, const Bytes& exif, const std::string& xmp, const Bytes& icc) {
    struct Chunk {
        std::string fourCC;
        Bytes data;
    };
    std::vector<Chunk> chunks;
    for (std::size_t at = 12; at + 8 <= webp.size();) {
        const std::uint32_t size = image::le32(webp, at + 4);
        chunks.push_back({std::string(webp.begin() + static_cast<std::ptrdiff_t>(at), webp.begin() + static_cast<std::ptrdiff_t>(at + 4)),
                          Bytes(webp.begin() + static_cast<std::ptrdiff_t>(at + 8), webp.begin() + static_cast<std::ptrdiff_t>(at + 8 + size))});
        at += 8 + size + (size & 1);
    }
    Bytes vp8x;
    if (chunks.front().fourCC == "VP8X") {
        vp8x = chunks.front().data;
        chunks.erase(chunks.begin());
    } else {
        const Bytes& vp8 = chunks.front().data;
        std::uint32_t w = 0, h = 0;
        if (chunks.front().fourCC == "VP8 ") {
            w = image::le16(vp8, 6) & 0x3FFF;
            h = image::le16(vp8, 8) & 0x3FFF;
        } else {
            const std::uint32_t bits = image::le32(vp8, 1);
            w = (bits & 0x3FFF) + 1;
            h = ((bits >> 14) & 0x3FFF) + 1;
        }
        vp8x = {0, 0, 0, 0};
        for (std::uint32_t v : {w - 1, h - 1})
            for (int s = 0; s <= 16; s += 8) vp8x.push_back(static_cast<std::uint8_t>(v >> s));
    }
    if (!icc.empty()) vp8x[0] |= 0x20;
    if (!exif.empty()) vp8x[0] |= 0x08;
    if (!xmp.empty()) vp8x[0] |= 0x04;
    Bytes out = toBytes(std::string_view("RIFF\0\0\0\0WEBP", 12));
    putRIFFChunk(out, "VP8X", vp8x);
    if (!icc.empty()) putRIFFChunk(out, "ICCP", icc);
    for (const auto& c : chunks) putRIFFChunk(out, c.fourCC, c.data);
    if (!exif.empty()) putRIFFChunk(out, "EXIF", exif);
    if (!xmp.empty()) putRIFFChunk(out, "XMP ", toBytes(xmp));
    putRIFFChunk(out, "ZZZZ", toBytes("UNKNOWN-CHUNK-SECRET"));
    image::Endian{true}.set32(out, 4, static_cast<std::uint32_t>(out.size() - 8));
    return out;
}

Bytes encodeGIF(int width, int height, const std::vector<int>& delaysCs, int loopCount) {
    Bytes out;
    int error = 0;
    GifFileType* gif = EGifOpen(&out,
                                [](GifFileType* g, const GifByteType* data, int n) {
                                    auto* o = static_cast<Bytes*>(g->UserData);
                                    o->insert(o->end(), data, data + n);
                                    return n;
                                },
                                &error);
    GifColorType colors[256];
    for (int i = 0; i < 256; ++i)
        colors[i] = {static_cast<GifByteType>(i), static_cast<GifByteType>(255 - i), static_cast<GifByteType>((i * 7) & 255)};
    ColorMapObject* map = GifMakeMapObject(256, colors);
    EGifSetGifVersion(gif, true);
    EGifPutScreenDesc(gif, width, height, 8, 0, map);
    const GifByteType loop[] = {1, static_cast<GifByteType>(loopCount & 255), static_cast<GifByteType>(loopCount >> 8)};
    EGifPutExtensionLeader(gif, APPLICATION_EXT_FUNC_CODE);
    EGifPutExtensionBlock(gif, 11, "NETSCAPE2.0");
    EGifPutExtensionBlock(gif, 3, loop);
    EGifPutExtensionTrailer(gif);
    std::vector<GifByteType> row(static_cast<std::size_t>(width));
    for (std::size_t f = 0; f < delaysCs.size(); ++f) {
        const GifByteType gce[4] = {0x04, static_cast<GifByteType>(delaysCs[f] & 255), static_cast<GifByteType>(delaysCs[f] >> 8), 0};
        EGifPutExtension(gif, GRAPHICS_EXT_FUNC_CODE, 4, gce);
        EGifPutImageDesc(gif, 0, 0, width, height, false, nullptr);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) row[static_cast<std::size_t>(x)] = static_cast<GifByteType>((x + y * 3 + static_cast<int>(f) * 40) & 255);
            EGifPutLine(gif, row.data(), width);
        }
    }
    GifFreeMapObject(map);
    EGifCloseFile(gif, &error);
    return out;
}

Bytes withGIFMetadata(const Bytes& gif, const std::string& comment, const std::string& xmp) {
    const std::size_t headerEnd = 13 + ((gif[10] & 0x80) ? 3u * (2u << (gif[10] & 7)) : 0u);
    Bytes ext;
    if (!comment.empty()) {
        ext.insert(ext.end(), {0x21, 0xFE});
        for (std::size_t at = 0; at < comment.size(); at += 255) {
            const std::size_t n = std::min<std::size_t>(255, comment.size() - at);
            ext.push_back(static_cast<std::uint8_t>(n));
            image::append(ext, std::string_view(comment).substr(at, n));
        }
        ext.push_back(0);
    }
    if (!xmp.empty()) {
        ext.insert(ext.end(), {0x21, 0xFF, 11});
        image::append(ext, "XMP DataXMP");
        image::append(ext, xmp);
        ext.push_back(1);
        for (int v = 0xFF; v >= 0; --v) ext.push_back(static_cast<std::uint8_t>(v));
        ext.push_back(0);
    }
    Bytes out(gif.begin(), gif.begin() + static_cast<std::ptrdiff_t>(headerEnd));
    image::append(out, ext);
    out.insert(out.end(), gif.begin() + static_cast<std::ptrdiff_t>(headerEnd), gif.end());
    return out;
}

Bytes encodeHEIC(int width, int height, const Bytes& exif, const std::string& xmp) {
    if (!heif_have_encoder_for_format(heif_compression_HEVC)) return {};
    heif_context* ctx = heif_context_alloc();
    heif_encoder* encoder = nullptr;
    heif_context_get_encoder_for_format(ctx, heif_compression_HEVC, &encoder);
    heif_encoder_set_lossy_quality(encoder, 50);
    heif_image* image = nullptr;
    heif_image_create(width, height, heif_colorspace_RGB, heif_chroma_interleaved_RGB, &image);
    heif_image_add_plane(image, heif_channel_interleaved, width, height, 8);
    int stride = 0;
    std::uint8_t* plane = heif_image_get_plane(image, heif_channel_interleaved, &stride);
    const auto px = gradient(width, height, 3);
    for (int y = 0; y < height; ++y)
        std::copy_n(px.data() + static_cast<std::size_t>(y * width * 3), width * 3, plane + static_cast<std::ptrdiff_t>(y) * stride);
    heif_image_handle* handle = nullptr;
    heif_context_encode_image(ctx, image, encoder, nullptr, &handle);
    heif_image_handle* thumbnail = nullptr;
    heif_context_encode_thumbnail(ctx, image, handle, encoder, nullptr, 16, &thumbnail);
    if (thumbnail) heif_image_handle_release(thumbnail);
    if (!exif.empty()) heif_context_add_exif_metadata(ctx, handle, exif.data(), static_cast<int>(exif.size()));
    if (!xmp.empty()) heif_context_add_XMP_metadata(ctx, handle, xmp.data(), static_cast<int>(xmp.size()));
    Bytes out;
    heif_writer writer{1, [](heif_context*, const void* data, size_t size, void* user) {
                           auto* o = static_cast<Bytes*>(user);
                           o->insert(o->end(), static_cast<const std::uint8_t*>(data), static_cast<const std::uint8_t*>(data) + size);
                           return heif_error{heif_error_Ok, heif_suberror_Unspecified, ""};
                       }};
    heif_context_write(ctx, &writer, &out);
    heif_image_handle_release(handle);
    heif_image_release(image);
    heif_encoder_release(encoder);
    heif_context_free(ctx);
    return out;
}

Bytes encodeBMP(int width, int height) {
    const std::size_t stride = (static_cast<std::size_t>(width) * 3 + 3) / 4 * 4;
    const std::string path = "C:\\Users\\jane\\profiles\\Jane Studio.icc";
    const std::size_t pixelsAt = 14 + 124;
    const std::size_t pixelBytes = stride * static_cast<std::size_t>(height);
    Bytes out = toBytes("BM");
    image::putLE32(out, static_cast<std::uint32_t>(pixelsAt + pixelBytes + path.size() + 1 + 9));
    image::putLE32(out, 0x4A414E45);  // reserved fields holding a writer's mark
    image::putLE32(out, static_cast<std::uint32_t>(pixelsAt));
    image::putLE32(out, 124);
    image::putLE32(out, static_cast<std::uint32_t>(width));
    image::putLE32(out, static_cast<std::uint32_t>(height));
    image::putLE16(out, 1);
    image::putLE16(out, 24);
    image::putLE32(out, 0);  // uncompressed
    image::putLE32(out, static_cast<std::uint32_t>(pixelBytes));
    image::putLE32(out, 3780);
    image::putLE32(out, 3780);
    image::putLE32(out, 0);
    image::putLE32(out, 0);
    out.resize(14 + 56, 0);  // masks unused at 24 bits
    image::putLE32(out, 0x4C494E4B);  // a linked profile
    out.resize(14 + 108, 0);
    image::putLE32(out, 4);  // intent
    image::putLE32(out, static_cast<std::uint32_t>(pixelsAt + pixelBytes - 14));
    image::putLE32(out, static_cast<std::uint32_t>(path.size() + 1));
    image::putLE32(out, 0);
    const auto px = gradient(width, height, 3);
    for (int y = height - 1; y >= 0; --y) {
        const std::size_t start = out.size();
        for (int x = 0; x < width; ++x)
            for (int c = 2; c >= 0; --c) out.push_back(px[static_cast<std::size_t>((y * width + x) * 3 + c)]);
        out.resize(start + stride, 0);
    }
    image::append(out, path);
    out.push_back(0);
    image::append(out, "TRAILING!");
    return out;
}

}  // namespace tavrin::testing::images
