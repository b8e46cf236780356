#include "image_fixtures.h"

#include <fstream>
#include <png.h>
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
