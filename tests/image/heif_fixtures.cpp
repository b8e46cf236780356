#include "heif_fixtures.h"

#include <libheif/heif.h>

#include <vector>

#include "image/iso_boxes.h"
#include "image_fixtures.h"

namespace tavrin::testing::images {

namespace {

using image::append;
using image::Bytes;
using image::ByteSpan;
using image::putBE16;
using image::putBE32;

struct Coded {
    Bytes hvcC;  // the whole decoder configuration box
    Bytes data;  // the coded image
};

// One image encoded by libheif alone in a file, taken apart again: with no thumbnail and no
// metadata, its mdat holds exactly the coded image.
Coded encodeHEVC(int width, int height, bool mono) {
    heif_context* ctx = heif_context_alloc();
    heif_encoder* encoder = nullptr;
    heif_context_get_encoder_for_format(ctx, heif_compression_HEVC, &encoder);
    heif_encoder_set_lossy_quality(encoder, 60);
    heif_image* image = nullptr;
    if (mono) {
        heif_image_create(width, height, heif_colorspace_monochrome, heif_chroma_monochrome, &image);
        heif_image_add_plane(image, heif_channel_Y, width, height, 8);
    } else {
        heif_image_create(width, height, heif_colorspace_RGB, heif_chroma_interleaved_RGB, &image);
        heif_image_add_plane(image, heif_channel_interleaved, width, height, 8);
    }
    int stride = 0;
    std::uint8_t* plane = heif_image_get_plane(image, mono ? heif_channel_Y : heif_channel_interleaved, &stride);
    const int channels = mono ? 1 : 3;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width * channels; ++x)
            plane[static_cast<std::ptrdiff_t>(y) * stride + x] = static_cast<std::uint8_t>((x * 5 + y * 9) & 0xFF);
    heif_image_handle* handle = nullptr;
    heif_context_encode_image(ctx, image, encoder, nullptr, &handle);
    Bytes file;
    heif_writer writer{1, [](heif_context*, const void* data, size_t size, void* user) {
                           auto* o = static_cast<Bytes*>(user);
                           o->insert(o->end(), static_cast<const std::uint8_t*>(data),
                                     static_cast<const std::uint8_t*>(data) + size);
                           return heif_error{heif_error_Ok, heif_suberror_Unspecified, ""};
                       }};
    heif_context_write(ctx, &writer, &file);
    heif_image_handle_release(handle);
    heif_image_release(image);
    heif_encoder_release(encoder);
    heif_context_free(ctx);

    Coded out;
    std::size_t budget = 10000;
    for (const auto& top : image::isoBoxes::boxesIn(file, budget)) {
        if (top.type == "mdat") out.data.assign(top.body.begin(), top.body.end());
        if (top.type != "meta") continue;
        for (const auto& b : image::isoBoxes::boxesIn(top.body.subspan(4), budget)) {
            if (b.type != "iprp") continue;
            for (const auto& p : image::isoBoxes::boxesIn(b.body, budget))
                if (p.type == "ipco")
                    for (const auto& property : image::isoBoxes::boxesIn(p.body, budget))
                        if (property.type == "hvcC") out.hvcC.assign(property.whole.begin(), property.whole.end());
        }
    }
    return out;
}

Bytes box(std::string_view type, const Bytes& body) {
    Bytes out;
    putBE32(out, static_cast<std::uint32_t>(body.size() + 8));
    append(out, type);
    append(out, body);
    return out;
}

Bytes fullBox(std::string_view type, std::uint8_t version, std::uint32_t flags, const Bytes& body) {
    Bytes b = {version, static_cast<std::uint8_t>(flags >> 16), static_cast<std::uint8_t>(flags >> 8),
               static_cast<std::uint8_t>(flags)};
    append(b, body);
    return box(type, b);
}

Bytes ispe(std::uint32_t width, std::uint32_t height) {
    Bytes body;
    putBE32(body, width);
    putBE32(body, height);
    return fullBox("ispe", 0, 0, body);
}

Bytes auxC(std::string_view urn) {
    Bytes body;
    append(body, urn);
    body.push_back(0);
    return fullBox("auxC", 0, 0, body);
}

struct ItemSpec {
    std::uint16_t id;
    std::string type;  // "mime" for XMP
    bool hidden = false;
    bool inIdat = false;
    Bytes data;
    std::vector<std::uint8_t> properties;  // 1-based ipco indices, the top bit marks an essential one
};

}  // namespace

Bytes phoneHEIC(const PhoneHEICOptions& o) {
    if (!heif_have_encoder_for_format(heif_compression_HEVC)) return {};
    const std::uint32_t tile = o.tileSize, full = 2 * tile;
    const Coded tileImage = encodeHEVC(static_cast<int>(tile), static_cast<int>(tile), false);
    const Coded thumbImage = encodeHEVC(16, 16, false);
    const Coded alphaImage = encodeHEVC(static_cast<int>(full), static_cast<int>(full), true);
    const Coded depthImage = encodeHEVC(static_cast<int>(tile), static_cast<int>(tile), true);

    // The properties, in ipco order.
    Bytes colr = toBytes("prof");
    append(colr, iccProfile(o.profileName));
    const std::vector<Bytes> properties = {
        tileImage.hvcC,                                // 1
        ispe(tile, tile),                              // 2
        ispe(full, full),                              // 3
        thumbImage.hvcC,                               // 4
        ispe(16, 16),                                  // 5
        alphaImage.hvcC,                               // 6
        auxC("urn:mpeg:hevc:2015:auxid:1"),            // 7
        depthImage.hvcC,                               // 8
        auxC("urn:mpeg:hevc:2015:auxid:2"),            // 9
        box("colr", colr),                             // 10
    };

    // The grid description: version 0, 16-bit sizes, 2 rows and 2 columns.
    Bytes grid = {0, 0, 1, 1};
    putBE16(grid, static_cast<std::uint16_t>(full));
    putBE16(grid, static_cast<std::uint16_t>(full));
    Bytes exif = {0, 0, 0, 6};
    append(exif, std::string_view("Exif\0\0", 6));
    append(exif, exifBlock());
    const std::string xmp = xmpPacket();

    std::vector<ItemSpec> items = {
        {1, "grid", false, true, grid, {3, 10}},
        {2, "hvc1", o.hiddenTiles, false, tileImage.data, {0x81, 2}},
        {3, "hvc1", o.hiddenTiles, false, tileImage.data, {0x81, 2}},
        {4, "hvc1", o.hiddenTiles, false, tileImage.data, {0x81, 2}},
        {5, "hvc1", o.hiddenTiles, false, tileImage.data, {0x81, 2}},
        {6, "hvc1", false, false, thumbImage.data, {0x84, 5}},
        {7, "Exif", false, false, exif, {}},
        {8, "mime", false, o.xmpInItemData, toBytes(xmp), {}},
        {9, "hvc1", true, false, alphaImage.data, {0x86, 3, 0x87}},
        {10, "hvc1", true, false, depthImage.data, {0x88, 2, 0x89}},
    };
    const std::uint16_t lastTile = o.missingTile ? static_cast<std::uint16_t>(o.missingTile) : 5;
    const std::vector<std::pair<std::string, std::vector<std::uint16_t>>> references[] = {
        {{"dimg", {1, 2, 3, 4, lastTile}}},
        {{"thmb", {6, 1}}},
        {{"cdsc", {7, 1}}},
        {{"cdsc", {8, 1}}},
        {{"auxl", {9, 1}}},
        {{"auxl", {10, 1}}},
    };

    Bytes iinf;
    putBE16(iinf, static_cast<std::uint16_t>(items.size()));
    for (const auto& item : items) {
        Bytes infe;
        putBE16(infe, item.id);
        putBE16(infe, 0);
        append(infe, item.type);
        infe.push_back(0);  // the name
        if (item.type == "mime") append(infe, std::string_view("application/rdf+xml\0", 20));
        append(iinf, fullBox("infe", 2, item.hidden ? 1 : 0, infe));
    }
    Bytes iref;
    for (const auto& list : references)
        for (const auto& [type, ids] : list) {
            Bytes body;
            putBE16(body, ids.front());
            putBE16(body, static_cast<std::uint16_t>(ids.size() - 1));
            for (std::size_t i = 1; i < ids.size(); ++i) putBE16(body, ids[i]);
            append(iref, box(type, body));
        }
    Bytes ipco;
    for (const auto& p : properties) append(ipco, p);
    Bytes ipma;
    std::uint32_t associated = 0;
    for (const auto& item : items) associated += item.properties.empty() ? 0 : 1;
    putBE32(ipma, associated);
    for (const auto& item : items) {
        if (item.properties.empty()) continue;
        putBE16(ipma, item.id);
        ipma.push_back(static_cast<std::uint8_t>(item.properties.size()));
        append(ipma, item.properties);
    }
    Bytes iprp = box("ipco", ipco);
    append(iprp, fullBox("ipma", 0, 0, ipma));
    Bytes idat, mdat;
    std::vector<std::size_t> offsets;
    for (const auto& item : items) {
        Bytes& space = item.inIdat ? idat : mdat;
        offsets.push_back(space.size());
        append(space, item.data);
    }

    // iloc version 1: 4-byte offsets and lengths, no base offset; the offsets into the mdat are
    // absolute, so the meta box is built twice, the second time knowing where the mdat begins.
    const Bytes ftyp = box("ftyp", toBytes(std::string_view("heic\0\0\0\0mif1heicmiaf", 20)));
    auto metaBox = [&](std::size_t mdatData) {
        Bytes iloc = {0x44, 0x00};
        putBE16(iloc, static_cast<std::uint16_t>(items.size()));
        for (std::size_t i = 0; i < items.size(); ++i) {
            putBE16(iloc, items[i].id);
            putBE16(iloc, items[i].inIdat ? 1 : 0);
            putBE16(iloc, 0);
            putBE16(iloc, 1);
            putBE32(iloc, static_cast<std::uint32_t>(offsets[i] + (items[i].inIdat ? 0 : mdatData)));
            putBE32(iloc, static_cast<std::uint32_t>(items[i].data.size()));
        }
        Bytes meta;
        append(meta, fullBox("hdlr", 0, 0, Bytes{0, 0, 0, 0, 'p', 'i', 'c', 't', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
        append(meta, fullBox("pitm", 0, 0, Bytes{0, 1}));
        append(meta, fullBox("iinf", 0, 0, iinf));
        append(meta, fullBox("iref", 0, 0, iref));
        append(meta, box("iprp", iprp));
        append(meta, fullBox("iloc", 1, 0, iloc));
        append(meta, box("idat", idat));
        return fullBox("meta", 0, 0, meta);
    };
    const std::size_t mdatData = ftyp.size() + metaBox(0).size() + 8;
    Bytes out = ftyp;
    append(out, metaBox(mdatData));
    append(out, box("mdat", mdat));
    return out;
}

}  // namespace tavrin::testing::images
