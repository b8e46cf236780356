#include "image/webp_container.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>

#include "image/exif_metadata.h"
#include "image/icc_profile.h"
#include "image/xmp_metadata.h"

namespace tavrin::image::webpContainer {

namespace {

using Case = ImageFormatError::Case;

constexpr std::size_t maxChunks = 1 << 20;
constexpr std::size_t maxFrames = 65536;
// The file's metadata is repeated in every frame's properties; this bounds the copies.
constexpr std::size_t maxRepeatedMetadata = 256 << 20;

namespace flag {
constexpr std::uint8_t animation = 0x02, xmp = 0x04, exif = 0x08, alpha = 0x10, icc = 0x20;
}

struct Chunk {
    std::string fourCC;
    ByteSpan data;
};

std::uint32_t le24(ByteSpan d, std::size_t at) {
    const auto s = slice(d, at, 3);
    return std::uint32_t{s[0]} | std::uint32_t{s[1]} << 8 | std::uint32_t{s[2]} << 16;
}

void putLE24(Bytes& out, std::uint32_t v) {
    for (int s = 0; s <= 16; s += 8) out.push_back(static_cast<std::uint8_t>(v >> s));
}

// The chunks of a RIFF body (or of an ANMF frame's payload), each padded to an even size.
std::vector<Chunk> chunksOf(ByteSpan d) {
    std::vector<Chunk> out;
    std::size_t at = 0;
    while (at + 8 <= d.size()) {
        const std::uint32_t size = le32(d, at + 4);
        // A final chunk may lack its pad byte; anything shorter than its size is damage.
        const ByteSpan data = slice(d, at + 8, size);
        out.push_back({text(d.subspan(at, 4)), data});
        enforce(out.size() <= maxChunks, Case::limitExceeded, "too many WebP chunks");
        at += 8 + std::size_t{size} + (size & 1);
    }
    return out;
}

std::vector<Chunk> riffChunks(ByteSpan d) {
    enforce(d.size() >= 12 && startsWith(d, "RIFF") && startsWith(d.subspan(8), "WEBP"), Case::unknownFormat,
            "no WebP RIFF header");
    const std::uint32_t riffSize = le32(d, 4);
    enforce(riffSize >= 4, Case::invalidStructure, "a WebP RIFF size is too small");
    // Data past the RIFF size is trailing data, never part of the image.
    const std::size_t end = std::min<std::size_t>(d.size(), std::size_t{riffSize} + 8);
    auto out = chunksOf(d.subspan(12, end - 12));
    enforce(!out.empty(), Case::invalidStructure, "a WebP file has no chunks");
    return out;
}

struct BitstreamSize {
    std::uint32_t width = 0, height = 0;
    bool alpha = false;
};

BitstreamSize bitstreamSize(const Chunk& c) {
    if (c.fourCC == "VP8 ") {
        // Frame tag (3 bytes), start code 9D 01 2A, then 14-bit width and height.
        enforce(c.data.size() >= 10 && c.data[3] == 0x9D && c.data[4] == 0x01 && c.data[5] == 0x2A,
                Case::invalidStructure, "a VP8 key frame header is missing");
        return {static_cast<std::uint32_t>(le16(c.data, 6) & 0x3FFF), static_cast<std::uint32_t>(le16(c.data, 8) & 0x3FFF),
                false};
    }
    enforce(c.data.size() >= 5 && c.data[0] == 0x2F, Case::invalidStructure, "a VP8L header is missing");
    const std::uint32_t bits = le32(c.data, 1);
    return {(bits & 0x3FFF) + 1, ((bits >> 14) & 0x3FFF) + 1, ((bits >> 28) & 1) != 0};
}

const Chunk* find(const std::vector<Chunk>& chunks, std::string_view fourCC) {
    for (const auto& c : chunks)
        if (c.fourCC == fourCC) return &c;
    return nullptr;
}

bool isBitstream(const Chunk& c) { return c.fourCC == "VP8 " || c.fourCC == "VP8L"; }

MetadataValue seconds(double s) {
    const double r = std::round(s * 1000) / 1000;
    return r == std::floor(r) ? MetadataValue::integer(static_cast<std::int64_t>(r)) : MetadataValue::number(r);
}

struct Layout {
    std::vector<Chunk> chunks;
    const Chunk* vp8x = nullptr;
    std::uint32_t canvasWidth = 0, canvasHeight = 0;
    bool alpha = false;
};

Layout layoutOf(ByteSpan d) {
    Layout l;
    l.chunks = riffChunks(d);
    if (l.chunks.front().fourCC == "VP8X") {
        l.vp8x = &l.chunks.front();
        enforce(l.vp8x->data.size() >= 10, Case::invalidStructure, "a VP8X chunk is too short");
        l.canvasWidth = le24(l.vp8x->data, 4) + 1;
        l.canvasHeight = le24(l.vp8x->data, 7) + 1;
        l.alpha = (l.vp8x->data[0] & flag::alpha) != 0;
        enforce(std::uint64_t{l.canvasWidth} * l.canvasHeight < (std::uint64_t{1} << 32), Case::invalidStructure,
                "a WebP canvas is larger than the format allows");
    } else {
        enforce(isBitstream(l.chunks.front()), Case::invalidStructure, "a WebP file starts with an unknown chunk");
        const auto s = bitstreamSize(l.chunks.front());
        l.canvasWidth = s.width;
        l.canvasHeight = s.height;
        l.alpha = s.alpha;
    }
    return l;
}

ByteSpan exifPayload(ByteSpan d) {
    // Some writers keep the JPEG APP1 identifier in front of the TIFF header.
    if (startsWith(d, std::string_view("Exif\0\0", 6))) return d.subspan(6);
    return d;
}

void putChunk(Bytes& out, std::string_view fourCC, ByteSpan data) {
    enforce(data.size() < 0xFFFFFFF0u, Case::limitExceeded, "a WebP chunk would be too large");
    append(out, fourCC);
    putLE32(out, static_cast<std::uint32_t>(data.size()));
    append(out, data);
    if (data.size() & 1) out.push_back(0);
}

ByteSpan bytesOf(const std::string& s) { return {reinterpret_cast<const std::uint8_t*>(s.data()), s.size()}; }

}  // namespace

std::vector<Properties> readFrames(ByteSpan d) {
    const Layout l = layoutOf(d);
    Properties shared;
    set(shared, key::pixelWidth, MetadataValue::integer(l.canvasWidth));
    set(shared, key::pixelHeight, MetadataValue::integer(l.canvasHeight));
    set(shared, key::depth, MetadataValue::integer(8));
    set(shared, key::colorModel, MetadataValue::string("RGB"));
    bool alpha = l.alpha || find(l.chunks, "ALPH") != nullptr;
    Properties webp;
    set(webp, "CanvasPixelWidth", MetadataValue::integer(l.canvasWidth));
    set(webp, "CanvasPixelHeight", MetadataValue::integer(l.canvasHeight));
    if (const Chunk* icc = find(l.chunks, "ICCP"))
        if (auto name = iccProfileDescription(icc->data)) set(shared, key::profileName, MetadataValue::string(*name));
    if (const Chunk* exif = find(l.chunks, "EXIF"))
        addExifProperties(parseTiff(exifPayload(exif->data), 2), 0, ExifContext::embedded, shared);
    if (const Chunk* xmp = find(l.chunks, "XMP ")) mergeSubDictionary(shared, key::xmp, parseXMP(xmp->data).properties);

    const bool animated = l.vp8x && (l.vp8x->data[0] & flag::animation) != 0;
    std::vector<Properties> frames;
    if (!animated) {
        const auto it = std::find_if(l.chunks.begin(), l.chunks.end(), isBitstream);
        enforce(it != l.chunks.end(), Case::invalidStructure, "a WebP file has no image data");
        if (it->fourCC == "VP8L") alpha = alpha || bitstreamSize(*it).alpha;
        set(shared, key::hasAlpha, MetadataValue::boolean(alpha));
        mergeSubDictionary(shared, key::webp, std::move(webp));
        frames.push_back(std::move(shared));
        return frames;
    }
    const Chunk* anim = find(l.chunks, "ANIM");
    enforce(anim && anim->data.size() >= 6, Case::invalidStructure, "an animated WebP has no ANIM chunk");
    std::size_t metadataBytes = 0, frameCount = 0;
    for (const auto& c : l.chunks) {
        if (c.fourCC == "EXIF" || c.fourCC == "XMP ") metadataBytes += c.data.size();
        if (c.fourCC == "ANMF") ++frameCount;
    }
    enforce(frameCount == 0 || metadataBytes <= maxRepeatedMetadata / frameCount, Case::limitExceeded,
            "WebP metadata is repeated over too many frames");
    set(webp, "LoopCount", MetadataValue::integer(le16(anim->data, 4)));
    set(shared, key::hasAlpha, MetadataValue::boolean(alpha));
    for (const auto& c : l.chunks) {
        if (c.fourCC != "ANMF") continue;
        enforce(c.data.size() >= 16, Case::invalidStructure, "an ANMF chunk is too short");
        enforce(frames.size() < maxFrames, Case::limitExceeded, "a WebP animation has too many frames");
        const double delay = le24(c.data, 12) / 1000.0;
        Properties frame = shared, frameWebP = webp;
        // As browsers do, a delay under 10 ms plays as 100 ms; the unclamped value is kept beside it.
        set(frameWebP, "DelayTime", seconds(delay < 0.011 ? 0.1 : delay));
        set(frameWebP, "UnclampedDelayTime", seconds(delay));
        mergeSubDictionary(frame, key::webp, std::move(frameWebP));
        frames.push_back(std::move(frame));
    }
    enforce(!frames.empty(), Case::invalidStructure, "an animated WebP has no frames");
    return frames;
}

Bytes rebuild(ByteSpan d, const std::vector<Properties>& filteredFrames) {
    enforce(!filteredFrames.empty(), Case::invalidStructure, "no frame properties to write");
    const Layout l = layoutOf(d);
    const Properties& filtered = filteredFrames.front();
    const bool animated = l.vp8x && (l.vp8x->data[0] & flag::animation) != 0;

    Bytes exif, iccBytes;
    std::string xmp;
    if (const Chunk* c = find(l.chunks, "EXIF")) exif = filteredExifBlock(parseTiff(exifPayload(c->data), 2), filtered);
    if (const Chunk* c = find(l.chunks, "XMP ")) xmp = filteredXMPPacket(c->data, subDictionary(filtered, key::xmp));
    const Chunk* icc = l.vp8x ? find(l.chunks, "ICCP") : nullptr;
    // The colour profile stays unless its name is personal and the cleaning profile removes it.
    if (icc && !keepsICCProfile(icc->data, filtered)) icc = nullptr;

    Bytes body;
    // The image chunks: the frames of an animation, or the alpha and bitstream of a still image.
    if (animated) {
        const Chunk* anim = find(l.chunks, "ANIM");
        enforce(anim && anim->data.size() >= 6, Case::invalidStructure, "an animated WebP has no ANIM chunk");
        putChunk(body, "ANIM", anim->data.first(6));
        for (const auto& c : l.chunks) {
            if (c.fourCC != "ANMF") continue;
            enforce(c.data.size() >= 16, Case::invalidStructure, "an ANMF chunk is too short");
            Bytes frame(c.data.begin(), c.data.begin() + 16);
            bool hasBitstream = false;
            for (const auto& sub : chunksOf(c.data.subspan(16))) {
                if (sub.fourCC == "ALPH" || isBitstream(sub)) putChunk(frame, sub.fourCC, sub.data);
                hasBitstream = hasBitstream || isBitstream(sub);
            }
            enforce(hasBitstream, Case::invalidStructure, "an ANMF frame has no image data");
            putChunk(body, "ANMF", frame);
        }
    } else {
        const auto it = std::find_if(l.chunks.begin(), l.chunks.end(), isBitstream);
        enforce(it != l.chunks.end(), Case::invalidStructure, "a WebP file has no image data");
        if (it->fourCC == "VP8 ")
            if (const Chunk* alph = find(l.chunks, "ALPH"); alph && l.vp8x) putChunk(body, "ALPH", alph->data);
        putChunk(body, it->fourCC, it->data);
    }

    Bytes out;
    append(out, std::string_view("RIFF\0\0\0\0WEBP", 12));
    const bool extended = l.vp8x || !exif.empty() || !xmp.empty();
    if (extended) {
        std::uint8_t flags = 0;
        if (animated) flags |= flag::animation;
        if (l.alpha) flags |= flag::alpha;
        if (icc) flags |= flag::icc;
        if (!exif.empty()) flags |= flag::exif;
        if (!xmp.empty()) flags |= flag::xmp;
        Bytes vp8x = {flags, 0, 0, 0};
        putLE24(vp8x, l.canvasWidth - 1);
        putLE24(vp8x, l.canvasHeight - 1);
        putChunk(out, "VP8X", vp8x);
        if (icc) putChunk(out, "ICCP", icc->data);
    }
    append(out, body);
    if (!exif.empty()) putChunk(out, "EXIF", exif);
    if (!xmp.empty()) putChunk(out, "XMP ", bytesOf(xmp));
    enforce(out.size() - 8 <= 0xFFFFFFFFu, Case::limitExceeded, "a WebP file would exceed 4 GB");
    const auto riffSize = static_cast<std::uint32_t>(out.size() - 8);
    for (int i = 0; i < 4; ++i) out[4 + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(riffSize >> (8 * i));
    return out;
}

}  // namespace tavrin::image::webpContainer
