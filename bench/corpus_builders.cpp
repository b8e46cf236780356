#include "corpus_builders.h"

#include <algorithm>
#include <cstring>
#include <fmt/core.h>
#include <fstream>
#include <gif_lib.h>
#include <libheif/heif.h>
#include <png.h>
#include <stdexcept>
#include <tiffio.h>
#include <turbojpeg.h>
#include <webp/encode.h>
#include <webp/mux.h>

namespace tavrin::corpus {

namespace {

// Deterministic pixels: a smooth gradient with a little noise, so encoders give realistic sizes.
std::vector<std::uint8_t> pixels(int width, int height, std::uint32_t variant, int channels = 3) {
    std::vector<std::uint8_t> rgb(static_cast<std::size_t>(width) * height * channels);
    std::uint32_t state = 0x9E3779B9u ^ variant;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            state = state * 1664525u + 1013904223u;
            const int noise = static_cast<int>((state >> 24) & 15) - 8;
            std::uint8_t* p = &rgb[(static_cast<std::size_t>(y) * width + x) * channels];
            p[0] = static_cast<std::uint8_t>(std::clamp(x * 255 / std::max(1, width - 1) + noise, 0, 255));
            if (channels > 1) p[1] = static_cast<std::uint8_t>(std::clamp(y * 255 / std::max(1, height - 1) + noise, 0, 255));
            if (channels > 2) p[2] = static_cast<std::uint8_t>(std::clamp(((x + y + static_cast<int>(variant) * 7) % 256) + noise, 0, 255));
        }
    return rgb;
}

Bytes encodeJPEG(int width, int height, std::uint32_t variant, int quality) {
    auto rgb = pixels(width, height, variant);
    tjhandle tj = tjInitCompress();
    unsigned char* out = nullptr;
    unsigned long size = 0;
    if (tjCompress2(tj, rgb.data(), width, 0, height, TJPF_RGB, &out, &size, TJSAMP_420, quality, TJFLAG_ACCURATEDCT) != 0) {
        tjDestroy(tj);
        throw std::runtime_error("JPEG encoding failed");
    }
    Bytes jpeg(out, out + size);
    tjFree(out);
    tjDestroy(tj);
    return jpeg;
}

// Little-endian TIFF/Exif writer for the fixtures.
struct Tag {
    std::uint16_t tag, type;
    std::uint32_t count;
    Bytes value;
};

void put16(Bytes& b, std::uint32_t v) {
    b.push_back(v & 0xFF);
    b.push_back((v >> 8) & 0xFF);
}
void put32(Bytes& b, std::uint32_t v) {
    put16(b, v & 0xFFFF);
    put16(b, v >> 16);
}
void put16BE(Bytes& b, std::uint32_t v) {
    b.push_back((v >> 8) & 0xFF);
    b.push_back(v & 0xFF);
}
void put32BE(Bytes& b, std::uint32_t v) {
    put16BE(b, v >> 16);
    put16BE(b, v & 0xFFFF);
}

Tag ascii(std::uint16_t tag, const std::string& s) {
    Bytes v(s.begin(), s.end());
    v.push_back(0);
    return {tag, 2, static_cast<std::uint32_t>(v.size()), v};
}
Tag shortTag(std::uint16_t tag, std::uint16_t value) {
    Bytes v;
    put16(v, value);
    return {tag, 3, 1, v};
}
Tag longTag(std::uint16_t tag, std::uint32_t value) {
    Bytes v;
    put32(v, value);
    return {tag, 4, 1, v};
}
Tag rationals(std::uint16_t tag, std::initializer_list<std::pair<std::uint32_t, std::uint32_t>> values) {
    Bytes v;
    for (auto [n, d] : values) {
        put32(v, n);
        put32(v, d);
    }
    return {tag, 5, static_cast<std::uint32_t>(values.size()), v};
}
Tag undefinedTag(std::uint16_t tag, const Bytes& bytes) { return {tag, 7, static_cast<std::uint32_t>(bytes.size()), bytes}; }

std::size_t ifdSize(const std::vector<Tag>& tags) {
    std::size_t size = 2 + 12 * tags.size() + 4;
    for (const auto& t : tags)
        if (t.value.size() > 4) size += (t.value.size() + 1) & ~std::size_t(1);
    return size;
}

// Appends an IFD at the current end of `out` (which is where `offset` points).
void writeIfd(Bytes& out, std::vector<Tag> tags, std::uint32_t next) {
    std::sort(tags.begin(), tags.end(), [](const Tag& a, const Tag& b) { return a.tag < b.tag; });
    const std::uint32_t start = static_cast<std::uint32_t>(out.size());
    std::uint32_t dataOffset = start + 2 + 12 * static_cast<std::uint32_t>(tags.size()) + 4;
    Bytes data;
    put16(out, static_cast<std::uint32_t>(tags.size()));
    for (const auto& t : tags) {
        put16(out, t.tag);
        put16(out, t.type);
        put32(out, t.count);
        if (t.value.size() <= 4) {
            Bytes v = t.value;
            v.resize(4, 0);
            out.insert(out.end(), v.begin(), v.end());
        } else {
            put32(out, dataOffset + static_cast<std::uint32_t>(data.size()));
            data.insert(data.end(), t.value.begin(), t.value.end());
            if (data.size() & 1) data.push_back(0);
        }
    }
    put32(out, next);
    out.insert(out.end(), data.begin(), data.end());
}

std::string pick(std::uint32_t variant, std::initializer_list<const char*> options) {
    return *(options.begin() + variant % options.size());
}

}  // namespace

void writeFile(const std::filesystem::path& path, const Bytes& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!out) throw std::runtime_error("cannot write " + path.string());
}

Bytes dirtyExif(std::uint32_t variant, const Bytes& thumbnail) {
    const std::string date = fmt::format("2024:0{}:1{} 09:4{}:12", 1 + variant % 9, variant % 10, variant % 10);
    std::vector<Tag> ifd0 = {
        ascii(0x010F, pick(variant, {"Canon", "NIKON CORPORATION", "Apple", "SONY"})),
        ascii(0x0110, pick(variant, {"Canon EOS R5", "NIKON Z 6", "iPhone 15 Pro", "ILCE-7M4"})),
        shortTag(0x0112, 1),
        ascii(0x0131, "Adobe Photoshop Lightroom Classic 13.1"),
        ascii(0x0132, date),
        ascii(0x013B, "Alice Example"),
        ascii(0x013C, "alice-laptop.local"),
        ascii(0x8298, "Copyright 2024 Alice Example"),
        ascii(0x010E, "Meeting with the source at the cafe"),
    };
    std::vector<Tag> exif = {
        ascii(0x9003, date),
        ascii(0x9004, date),
        ascii(0x9011, "+02:00"),
        rationals(0x829A, {{1, 250}}),
        rationals(0x829D, {{28, 10}}),
        shortTag(0x8827, 400),
        undefinedTag(0x9000, {'0', '2', '3', '2'}),
        ascii(0xA430, "Alice Example"),
        ascii(0xA431, fmt::format("0{}3456789", variant % 10)),
        ascii(0xA434, "RF24-105mm F4 L IS USM"),
        ascii(0xA435, "8231004417"),
        ascii(0xA420, fmt::format("{:032x}", 0xABCDEF12u ^ variant)),
        undefinedTag(0x927C, Bytes{'M', 'a', 'k', 'e', 'r', 'N', 'o', 't', 'e', 0, 1, 2, 3, 4, 5, 6}),
    };
    std::vector<Tag> gps = {
        {0x0000, 1, 4, {2, 3, 0, 0}},
        ascii(0x0001, "N"),
        rationals(0x0002, {{48, 1}, {51, 1}, {2950 + variant % 100, 100}}),
        ascii(0x0003, "E"),
        rationals(0x0004, {{2, 1}, {21, 1}, {700 + variant % 100, 100}}),
        {0x0005, 1, 1, {0, 0, 0, 0}},
        rationals(0x0006, {{35, 1}}),
        ascii(0x001D, "2024:05:14"),
    };
    std::vector<Tag> ifd1 = {shortTag(0x0103, 6), longTag(0x0201, 0),
                             longTag(0x0202, static_cast<std::uint32_t>(thumbnail.size()))};

    // Layout: header, IFD0, Exif IFD, GPS IFD, IFD1, thumbnail bytes.
    const std::uint32_t ifd0At = 8;
    const std::uint32_t exifAt = ifd0At + static_cast<std::uint32_t>(ifdSize(ifd0) + 24);
    const std::uint32_t gpsAt = exifAt + static_cast<std::uint32_t>(ifdSize(exif));
    const std::uint32_t ifd1At = gpsAt + static_cast<std::uint32_t>(ifdSize(gps));
    const std::uint32_t thumbAt = ifd1At + static_cast<std::uint32_t>(ifdSize(ifd1));
    ifd0.push_back(longTag(0x8769, exifAt));
    ifd0.push_back(longTag(0x8825, gpsAt));
    ifd1[1] = longTag(0x0201, thumbAt);

    Bytes out = {'I', 'I', 0x2A, 0};
    put32(out, ifd0At);
    writeIfd(out, ifd0, thumbnail.empty() ? 0 : ifd1At);
    writeIfd(out, exif, 0);
    writeIfd(out, gps, 0);
    if (!thumbnail.empty()) {
        writeIfd(out, ifd1, 0);
        out.insert(out.end(), thumbnail.begin(), thumbnail.end());
    }
    return out;
}

std::string dirtyXMP(std::uint32_t variant) {
    return fmt::format(
        R"(<?xpacket begin="" id="W5M0MpCehiHzreSzNTczkc9d"?>
<x:xmpmeta xmlns:x="adobe:ns:meta/">
 <rdf:RDF xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#">
  <rdf:Description rdf:about=""
    xmlns:dc="http://purl.org/dc/elements/1.1/"
    xmlns:xmp="http://ns.adobe.com/xap/1.0/"
    xmlns:xmpMM="http://ns.adobe.com/xap/1.0/mm/"
    xmlns:photoshop="http://ns.adobe.com/photoshop/1.0/"
    xmlns:exif="http://ns.adobe.com/exif/1.0/"
    xmp:CreatorTool="Adobe Photoshop 25.{0}"
    xmp:CreateDate="2024-05-14T09:41:12+02:00"
    xmp:ModifyDate="2024-05-15T18:03:55+02:00"
    xmpMM:DocumentID="xmp.did:{0:08x}-a1b2"
    xmpMM:InstanceID="xmp.iid:{0:08x}-c3d4"
    photoshop:City="Paris"
    photoshop:Country="France"
    exif:GPSLatitude="48,51.29N"
    exif:GPSLongitude="2,21.07E">
   <dc:creator><rdf:Seq><rdf:li>Alice Example</rdf:li></rdf:Seq></dc:creator>
   <dc:description><rdf:Alt><rdf:li xml:lang="x-default">Source meeting, do not publish</rdf:li></rdf:Alt></dc:description>
  </rdf:Description>
 </rdf:RDF>
</x:xmpmeta>
<?xpacket end="w"?>)",
        variant);
}

namespace {

Bytes iptcIIM(std::uint32_t variant) {
    Bytes iim;
    auto dataset = [&](std::uint8_t number, const std::string& value) {
        iim.push_back(0x1C);
        iim.push_back(2);
        iim.push_back(number);
        put16BE(iim, static_cast<std::uint32_t>(value.size()));
        iim.insert(iim.end(), value.begin(), value.end());
    };
    dataset(0, std::string("\0\4", 2));
    dataset(80, "Alice Example");
    dataset(90, "Paris");
    dataset(101, "France");
    dataset(55, "20240514");
    dataset(120, fmt::format("Caption {} with the source's name", variant));
    Bytes block = {'P', 'h', 'o', 't', 'o', 's', 'h', 'o', 'p', ' ', '3', '.', '0', 0, '8', 'B', 'I', 'M', 0x04, 0x04, 0, 0};
    put32BE(block, static_cast<std::uint32_t>(iim.size()));
    block.insert(block.end(), iim.begin(), iim.end());
    if (iim.size() & 1) block.push_back(0);
    return block;
}

void appendSegment(Bytes& out, std::uint8_t marker, const Bytes& payload) {
    out.push_back(0xFF);
    out.push_back(marker);
    put16BE(out, static_cast<std::uint32_t>(payload.size() + 2));
    out.insert(out.end(), payload.begin(), payload.end());
}

}  // namespace

Bytes dirtyJPEG(int width, int height, std::uint32_t variant) {
    const Bytes plain = encodeJPEG(width, height, variant, width * height > 4000000 ? 95 : 90);
    const Bytes thumbnail = encodeJPEG(std::min(width, 160), std::min(height, 120), variant + 1, 70);
    Bytes out = {0xFF, 0xD8};
    Bytes exif = {'E', 'x', 'i', 'f', 0, 0};
    const Bytes tiff = dirtyExif(variant, thumbnail.size() < 60000 ? thumbnail : Bytes{});
    exif.insert(exif.end(), tiff.begin(), tiff.end());
    appendSegment(out, 0xE1, exif);
    const std::string xmpHeader = "http://ns.adobe.com/xap/1.0/";
    Bytes xmp(xmpHeader.begin(), xmpHeader.end());
    xmp.push_back(0);
    const std::string packet = dirtyXMP(variant);
    xmp.insert(xmp.end(), packet.begin(), packet.end());
    appendSegment(out, 0xE1, xmp);
    appendSegment(out, 0xED, iptcIIM(variant));
    const std::string comment = "Edited by Alice on alice-laptop";
    appendSegment(out, 0xFE, Bytes(comment.begin(), comment.end()));
    // The encoder's own JFIF segment and image follow, unchanged.
    out.insert(out.end(), plain.begin() + 2, plain.end());
    return out;
}

Bytes dirtyPNG(int width, int height, std::uint32_t variant) {
    auto rgb = pixels(width, height, variant);
    Bytes out;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        throw std::runtime_error("PNG encoding failed");
    }
    png_set_write_fn(
        png, &out,
        [](png_structp p, png_bytep data, png_size_t n) {
            auto* o = static_cast<Bytes*>(png_get_io_ptr(p));
            o->insert(o->end(), data, data + n);
        },
        nullptr);
    png_set_IHDR(png, info, width, height, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_set_gAMA(png, info, 0.45455);
    const std::string xmp = dirtyXMP(variant);
    std::string author = "Alice Example", software = "GIMP 2.10.36", comment = "Screenshot of the leaked memo",
                time = "2024-05-14T09:41:12+02:00", xmpKey = "XML:com.adobe.xmp";
    png_text text[5] = {};
    auto set = [&](int i, int compression, const char* key, const std::string& value) {
        text[i].compression = compression;
        text[i].key = const_cast<char*>(key);
        text[i].text = const_cast<char*>(value.c_str());
        text[i].text_length = value.size();
        text[i].itxt_length = compression == PNG_ITXT_COMPRESSION_NONE ? value.size() : 0;
    };
    set(0, PNG_TEXT_COMPRESSION_NONE, "Author", author);
    set(1, PNG_TEXT_COMPRESSION_NONE, "Software", software);
    set(2, PNG_TEXT_COMPRESSION_zTXt, "Comment", comment);
    set(3, PNG_TEXT_COMPRESSION_NONE, "Creation Time", time);
    set(4, PNG_ITXT_COMPRESSION_NONE, xmpKey.c_str(), xmp);
    png_set_text(png, info, text, 5);
    Bytes exif = dirtyExif(variant, {});
    png_set_eXIf_1(png, info, static_cast<png_uint_32>(exif.size()), exif.data());
    png_write_info(png, info);
    for (int y = 0; y < height; ++y) png_write_row(png, &rgb[static_cast<std::size_t>(y) * width * 3]);
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return out;
}

void writeDirtyTIFF(const std::filesystem::path& path, int width, int height, std::uint32_t variant) {
    TIFF* tif = TIFFOpen(path.c_str(), "w");
    if (!tif) throw std::runtime_error("cannot create " + path.string());
    const std::string xmp = dirtyXMP(variant);
    const Bytes iptc = iptcIIM(variant);
    Bytes iim(iptc.begin() + 26, iptc.end());
    iim.resize((iim.size() + 3) / 4 * 4, 0);
    for (int page = 0; page < 2; ++page) {
        auto rgb = pixels(width, height, variant + page);
        TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, width);
        TIFFSetField(tif, TIFFTAG_IMAGELENGTH, height);
        TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 3);
        TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 8);
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
        TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
        TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, 16);
        TIFFSetField(tif, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
        TIFFSetField(tif, TIFFTAG_SUBFILETYPE, page ? FILETYPE_PAGE : 0);
        TIFFSetField(tif, TIFFTAG_PAGENUMBER, page, 2);
        TIFFSetField(tif, TIFFTAG_MAKE, "Epson");
        TIFFSetField(tif, TIFFTAG_MODEL, "Perfection V600");
        TIFFSetField(tif, TIFFTAG_SOFTWARE, "VueScan 9.8");
        TIFFSetField(tif, TIFFTAG_DATETIME, "2024:05:14 09:41:12");
        TIFFSetField(tif, TIFFTAG_ARTIST, "Alice Example");
        TIFFSetField(tif, TIFFTAG_HOSTCOMPUTER, "alice-laptop.local");
        TIFFSetField(tif, TIFFTAG_IMAGEDESCRIPTION, "Scanned contract, page with signatures");
        TIFFSetField(tif, TIFFTAG_COPYRIGHT, "Example Corp");
        TIFFSetField(tif, TIFFTAG_XMLPACKET, static_cast<std::uint32_t>(xmp.size()), xmp.data());
        // This libtiff counts the IPTC tag in bytes (type UNDEFINED); the IIM is padded to whole longs.
        TIFFSetField(tif, TIFFTAG_RICHTIFFIPTC, static_cast<std::uint32_t>(iim.size()), iim.data());
        for (int y = 0; y < height; ++y) TIFFWriteScanline(tif, &rgb[static_cast<std::size_t>(y) * width * 3], y, 0);
        TIFFWriteDirectory(tif);
    }
    TIFFClose(tif);
}

Bytes dirtyWebP(int width, int height, std::uint32_t variant) {
    auto rgb = pixels(width, height, variant);
    std::uint8_t* encoded = nullptr;
    const std::size_t size = WebPEncodeRGB(rgb.data(), width, height, width * 3, 80, &encoded);
    if (!size) throw std::runtime_error("WebP encoding failed");
    WebPData image{encoded, size};
    WebPMux* mux = WebPMuxCreate(&image, 1);
    WebPFree(encoded);
    const Bytes exif = dirtyExif(variant, {});
    const std::string xmp = dirtyXMP(variant);
    WebPData exifData{exif.data(), exif.size()};
    WebPData xmpData{reinterpret_cast<const std::uint8_t*>(xmp.data()), xmp.size()};
    WebPMuxSetChunk(mux, "EXIF", &exifData, 1);
    WebPMuxSetChunk(mux, "XMP ", &xmpData, 1);
    WebPData assembled{};
    WebPMuxAssemble(mux, &assembled);
    Bytes out(assembled.bytes, assembled.bytes + assembled.size);
    WebPDataClear(&assembled);
    WebPMuxDelete(mux);
    return out;
}

Bytes dirtyGIF(int width, int height, std::uint32_t variant) {
    Bytes out;
    int error = 0;
    GifFileType* gif = EGifOpen(
        &out,
        [](GifFileType* g, const GifByteType* data, int n) {
            auto* o = static_cast<Bytes*>(g->UserData);
            o->insert(o->end(), data, data + n);
            return n;
        },
        &error);
    if (!gif) throw std::runtime_error("GIF encoding failed");
    GifColorType colors[256];
    for (int i = 0; i < 256; ++i) colors[i] = {static_cast<GifByteType>(i), static_cast<GifByteType>(255 - i),
                                               static_cast<GifByteType>((i * 7) & 255)};
    ColorMapObject* map = GifMakeMapObject(256, colors);
    EGifSetGifVersion(gif, true);
    EGifPutScreenDesc(gif, width, height, 8, 0, map);
    const GifByteType loop[] = {1, 0, 0};
    EGifPutExtensionLeader(gif, APPLICATION_EXT_FUNC_CODE);
    EGifPutExtensionBlock(gif, 11, "NETSCAPE2.0");
    EGifPutExtensionBlock(gif, 3, loop);
    EGifPutExtensionTrailer(gif);
    const std::string comment = fmt::format("Made by Alice Example with GIMP 2.10 on 2024-05-14 ({})", variant);
    EGifPutComment(gif, comment.c_str());
    std::vector<GifByteType> row(static_cast<std::size_t>(width));
    for (int frame = 0; frame < 3; ++frame) {
        const GifByteType gce[4] = {0x04, 10, 0, 0};  // 100 ms
        EGifPutExtension(gif, GRAPHICS_EXT_FUNC_CODE, 4, gce);
        EGifPutImageDesc(gif, 0, 0, width, height, false, nullptr);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) row[x] = static_cast<GifByteType>((x + y + frame * 40 + variant) & 255);
            EGifPutLine(gif, row.data(), width);
        }
    }
    GifFreeMapObject(map);
    EGifCloseFile(gif, &error);
    return out;
}

Bytes dirtyHEIC(int width, int height, std::uint32_t variant) {
    if (!heif_have_encoder_for_format(heif_compression_HEVC)) return {};
    heif_context* ctx = heif_context_alloc();
    heif_encoder* encoder = nullptr;
    heif_context_get_encoder_for_format(ctx, heif_compression_HEVC, &encoder);
    heif_encoder_set_lossy_quality(encoder, 60);
    heif_image* image = nullptr;
    heif_image_create(width, height, heif_colorspace_RGB, heif_chroma_interleaved_RGB, &image);
    heif_image_add_plane(image, heif_channel_interleaved, width, height, 8);
    int stride = 0;
    std::uint8_t* plane = heif_image_get_plane(image, heif_channel_interleaved, &stride);
    auto rgb = pixels(width, height, variant);
    for (int y = 0; y < height; ++y) std::memcpy(plane + y * stride, &rgb[static_cast<std::size_t>(y) * width * 3], width * 3);
    heif_image_handle* handle = nullptr;
    heif_context_encode_image(ctx, image, encoder, nullptr, &handle);
    Bytes exif = {0, 0, 0, 0};  // offset to the TIFF header
    const Bytes tiff = dirtyExif(variant, {});
    exif.insert(exif.end(), tiff.begin(), tiff.end());
    heif_context_add_exif_metadata(ctx, handle, tiff.data(), static_cast<int>(tiff.size()));
    const std::string xmp = dirtyXMP(variant);
    heif_context_add_XMP_metadata(ctx, handle, xmp.data(), static_cast<int>(xmp.size()));
    Bytes out;
    heif_writer writer{1, [](heif_context*, const void* data, size_t size, void* user) {
                           auto* o = static_cast<Bytes*>(user);
                           o->insert(o->end(), static_cast<const std::uint8_t*>(data),
                                     static_cast<const std::uint8_t*>(data) + size);
                           return heif_error{heif_error_Ok, heif_suberror_Unspecified, ""};
                       }};
    heif_context_write(ctx, &writer, &out);
    heif_image_handle_release(handle);
    heif_image_release(image);
    heif_encoder_release(encoder);
    heif_context_free(ctx);
    return out;
}

Bytes dirtyPDF(int pages, std::uint32_t variant) {
    std::string pdf = "%PDF-1.7\n%\xE2\xE3\xCF\xD3\n";
    std::vector<std::size_t> offsets;
    auto object = [&](const std::string& body) {
        offsets.push_back(pdf.size());
        pdf += fmt::format("{} 0 obj\n{}\nendobj\n", offsets.size(), body);
        return offsets.size();
    };
    const std::string xmp = dirtyXMP(variant);
    // Objects: 1 catalog, 2 pages, 3 font, 4 info, 5 metadata, then per page: page, content, (annotation on page 1).
    const int firstPage = 6;
    std::string kids;
    for (int i = 0; i < pages; ++i) kids += fmt::format("{} 0 R ", firstPage + i * 2 + (i > 0 ? 1 : 0));
    object("<< /Type /Catalog /Pages 2 0 R /Metadata 5 0 R /PageMode /UseNone >>");
    object(fmt::format("<< /Type /Pages /Count {} /Kids [{}] >>", pages, kids));
    object("<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>");
    object("<< /Title (Quarterly report) /Author (Alice Example) /Creator (Microsoft Word for Microsoft 365) "
           "/Producer (macOS Version 14.4 Quartz PDFContext) /CreationDate (D:20240514094112+02'00') "
           "/ModDate (D:20240515180355+02'00') /Company (Example Corp) >>");
    object(fmt::format("<< /Type /Metadata /Subtype /XML /Length {} >>\nstream\n{}\nendstream", xmp.size() + 1, xmp));
    for (int i = 0; i < pages; ++i) {
        std::string text = "BT /F1 11 Tf 72 760 Td 14 TL\n";
        for (int line = 0; line < 52; ++line)
            text += fmt::format("(Page {} line {}: the quarterly figures remain confidential until release; revenue, costs and the names of everyone involved in the negotiation stay internal.) '\n",
                                i + 1, line + 1);
        text += "ET";
        const std::size_t pageObject = offsets.size() + 1;
        const std::string annots = i == 0 ? fmt::format(" /Annots [{} 0 R]", pageObject + 2) : "";
        object(fmt::format("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] /Resources << /Font << /F1 3 0 R >> "
                           ">> /Contents {} 0 R{} >>",
                           pageObject + 1, annots));
        object(fmt::format("<< /Length {} >>\nstream\n{}\nendstream", text.size(), text));
        if (i == 0)
            object("<< /Type /Annot /Subtype /Text /Rect [100 600 120 620] /T (Bob Reviewer) "
                   "/Contents (Remove the CFO's name before sending) /M (D:20240515100000Z) >>");
    }
    auto xref = [&](std::size_t from, const std::vector<std::pair<std::size_t, std::size_t>>& entries,
                    const std::string& trailerExtra) {
        const std::size_t at = pdf.size();
        pdf += "xref\n";
        if (from == 0) {
            pdf += fmt::format("0 {}\n0000000000 65535 f \n", offsets.size() + 1);
            for (auto o : offsets) pdf += fmt::format("{:010} 00000 n \n", o);
        } else {
            for (auto [number, offset] : entries) pdf += fmt::format("{} 1\n{:010} 00000 n \n", number, offset);
        }
        pdf += fmt::format("trailer\n<< /Size {} /Root 1 0 R /Info 4 0 R{} >>\nstartxref\n{}\n%%EOF\n",
                           offsets.size() + 1, trailerExtra, at);
        return at;
    };
    const std::size_t firstXref = xref(0, {}, "");
    // The incremental update replaces the Info; the first revision's values stay in the file.
    const std::size_t infoOffset = pdf.size();
    pdf += "4 0 obj\n<< /Title (Quarterly report final) /Author (Alice Example-Smith) /Producer (Adobe Acrobat Pro 24) "
           "/ModDate (D:20240520120000+02'00') >>\nendobj\n";
    xref(1, {{4, infoOffset}}, fmt::format(" /Prev {}", firstXref));
    return Bytes(pdf.begin(), pdf.end());
}

}  // namespace tavrin::corpus
