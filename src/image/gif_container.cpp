#include "image/gif_container.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>

#include "image/icc_profile.h"
#include "image/xmp_metadata.h"

namespace tavrin::image::gifContainer {

namespace {

using Case = ImageFormatError::Case;

constexpr std::size_t maxFrames = 65536;
constexpr std::size_t maxBlocks = 1 << 22;
// The file's metadata is repeated in every frame's properties; this bounds the copies.
constexpr std::size_t maxRepeatedMetadata = 256 << 20;

struct Image {
    ByteSpan whole;  // descriptor, local colour table and data sub-blocks
    std::optional<ByteSpan> control;  // the graphic control extension in force, whole
    std::uint16_t width = 0, height = 0;
};

struct Stream {
    ByteSpan header;  // signature, screen descriptor, global colour table
    std::uint16_t width = 0, height = 0;
    bool globalColorMap = false;
    std::optional<ByteSpan> loop;      // the NETSCAPE2.0 or ANIMEXTS1.0 extension, whole
    std::optional<std::uint16_t> loopCount;
    std::optional<ByteSpan> iccExtension;
    Bytes icc;
    std::vector<std::string> comments;
    std::optional<Bytes> xmp;
    std::vector<Image> images;
};

// The end of a run of data sub-blocks starting at `at` (just past its zero terminator).
std::size_t skipSubBlocks(ByteSpan d, std::size_t at, Bytes* collect = nullptr) {
    std::size_t blocks = 0;
    while (true) {
        const std::uint8_t size = slice(d, at, 1)[0];
        ++at;
        if (size == 0) return at;
        const ByteSpan block = slice(d, at, size);
        if (collect) append(*collect, block);
        at += size;
        enforce(++blocks <= maxBlocks, Case::limitExceeded, "a GIF block has too many sub-blocks");
    }
}

std::size_t colorTableSize(std::uint8_t packed) { return (packed & 0x80) ? 3u * (2u << (packed & 7)) : 0; }

// XMP sits in an application extension as raw bytes followed by a 258-byte "magic trailer"
// that lets a GIF reader skip it as sub-blocks; the packet ends at its closing tag.
Bytes xmpFromExtension(ByteSpan d, std::size_t dataStart, std::size_t end) {
    const ByteSpan raw = d.subspan(dataStart, end - dataStart);
    const std::string_view s(reinterpret_cast<const char*>(raw.data()), raw.size());
    std::size_t stop = s.rfind("<?xpacket end=");
    if (stop != std::string_view::npos) stop = s.find("?>", stop);
    if (stop != std::string_view::npos) stop += 2;
    else if ((stop = s.rfind("</x:xmpmeta>")) != std::string_view::npos) stop += 12;
    else return {};
    return Bytes(raw.begin(), raw.begin() + static_cast<std::ptrdiff_t>(stop));
}

Stream parse(ByteSpan d) {
    enforce(d.size() >= 13 && (startsWith(d, "GIF87a") || startsWith(d, "GIF89a")), Case::unknownFormat,
            "no GIF signature");
    Stream s;
    s.width = le16(d, 6);
    s.height = le16(d, 8);
    const std::uint8_t packed = d[10];
    s.globalColorMap = (packed & 0x80) != 0;
    std::size_t at = 13 + colorTableSize(packed);
    s.header = slice(d, 0, at);
    std::optional<ByteSpan> control;
    while (true) {
        const std::uint8_t introducer = slice(d, at, 1)[0];
        if (introducer == 0x3B) break;
        if (introducer == 0x2C) {
            const std::size_t start = at;
            const ByteSpan descriptor = slice(d, at + 1, 9);
            Image image;
            image.width = le16(descriptor, 4);
            image.height = le16(descriptor, 6);
            at += 10 + colorTableSize(descriptor[8]);
            (void)slice(d, at, 1);  // LZW minimum code size
            at = skipSubBlocks(d, at + 1);
            image.whole = d.subspan(start, at - start);
            image.control = control;
            control.reset();
            s.images.push_back(image);
            enforce(s.images.size() <= maxFrames, Case::limitExceeded, "a GIF has more than 65,536 frames");
            continue;
        }
        enforce(introducer == 0x21, Case::invalidStructure, "a GIF block has an unknown introducer");
        const std::size_t start = at;
        const std::uint8_t label = slice(d, at + 1, 1)[0];
        at += 2;
        if (label == 0xF9) {
            at = skipSubBlocks(d, at);
            control = d.subspan(start, at - start);
        } else if (label == 0xFE) {
            Bytes comment;
            at = skipSubBlocks(d, at, &comment);
            s.comments.push_back(text(comment));
        } else if (label == 0xFF) {
            const std::uint8_t idSize = slice(d, at, 1)[0];
            const std::string id = text(slice(d, at + 1, idSize));
            const std::size_t dataStart = at + 1 + idSize;
            Bytes data;
            at = skipSubBlocks(d, at, &data);
            if ((id == "NETSCAPE2.0" || id == "ANIMEXTS1.0") && !s.loop) {
                s.loop = d.subspan(start, at - start);
                // data = identifier, then the sub-block 01 <loop count, little-endian>
                if (data.size() >= idSize + 3u && data[idSize] == 1) s.loopCount = le16(data, idSize + 1);
            } else if (id == "ICCRGBG1012" && !s.iccExtension) {
                s.iccExtension = d.subspan(start, at - start);
                s.icc.assign(data.begin() + std::min<std::size_t>(idSize, data.size()), data.end());
            } else if (id == "XMP DataXMP" && !s.xmp) {
                s.xmp = xmpFromExtension(d, dataStart, at);
            }
        } else {
            // Plain text and unknown extensions: read past them, never copy them.
            at = skipSubBlocks(d, at);
            control.reset();
        }
    }
    enforce(!s.images.empty(), Case::invalidStructure, "a GIF has no image");
    return s;
}

MetadataValue seconds(double s) {
    const double r = std::round(s * 1000) / 1000;
    return r == std::floor(r) ? MetadataValue::integer(static_cast<std::int64_t>(r)) : MetadataValue::number(r);
}

std::string commentText(const std::vector<std::string>& comments) {
    std::string all;
    for (const auto& c : comments) all += (all.empty() ? "" : "\n") + c;
    return all;
}

void putSubBlocks(Bytes& out, ByteSpan data) {
    for (std::size_t at = 0; at < data.size(); at += 255) {
        const std::size_t n = std::min<std::size_t>(255, data.size() - at);
        out.push_back(static_cast<std::uint8_t>(n));
        append(out, data.subspan(at, n));
    }
    out.push_back(0);
}

}  // namespace

std::vector<Properties> readFrames(ByteSpan d) {
    const Stream s = parse(d);
    Properties shared, gif;
    set(shared, key::pixelWidth, MetadataValue::integer(s.width));
    set(shared, key::pixelHeight, MetadataValue::integer(s.height));
    set(shared, key::depth, MetadataValue::integer(8));
    set(shared, key::colorModel, MetadataValue::string("RGB"));
    set(gif, "HasGlobalColorMap", MetadataValue::boolean(s.globalColorMap));
    set(gif, "CanvasPixelWidth", MetadataValue::integer(s.width));
    set(gif, "CanvasPixelHeight", MetadataValue::integer(s.height));
    if (s.loopCount) set(gif, "LoopCount", MetadataValue::integer(*s.loopCount));
    if (!s.comments.empty()) set(gif, "Comment", MetadataValue::string(commentText(s.comments)));
    if (!s.icc.empty())
        if (auto name = iccProfileDescription(s.icc)) set(shared, key::profileName, MetadataValue::string(*name));
    if (s.xmp && !s.xmp->empty()) mergeSubDictionary(shared, key::xmp, parseXMP(*s.xmp).properties);

    std::size_t metadataBytes = s.xmp ? s.xmp->size() : 0;
    for (const auto& c : s.comments) metadataBytes += c.size();
    enforce(metadataBytes <= maxRepeatedMetadata / s.images.size(), Case::limitExceeded,
            "GIF metadata is repeated over too many frames");
    std::vector<Properties> frames;
    frames.reserve(s.images.size());
    for (const auto& image : s.images) {
        Properties frame = shared, frameGIF = gif;
        bool transparent = false;
        if (image.control && image.control->size() >= 8 && (*image.control)[2] == 4) {
            const double delay = le16(*image.control, 4) / 100.0;
            transparent = ((*image.control)[3] & 1) != 0;
            // As browsers do, a delay of 10 ms or less plays as 100 ms; the unclamped value stays beside it.
            set(frameGIF, "DelayTime", seconds(delay <= 0.01 ? 0.1 : delay));
            set(frameGIF, "UnclampedDelayTime", seconds(delay));
        }
        set(frame, key::hasAlpha, MetadataValue::boolean(transparent));
        mergeSubDictionary(frame, key::gif, std::move(frameGIF));
        frames.push_back(std::move(frame));
    }
    return frames;
}

Bytes rebuild(ByteSpan d, const std::vector<Properties>& filteredFrames) {
    enforce(!filteredFrames.empty(), Case::invalidStructure, "no frame properties to write");
    const Stream s = parse(d);
    const Properties& filtered = filteredFrames.front();
    const Properties* gif = subDictionary(filtered, key::gif);
    std::string xmp;
    if (s.xmp && !s.xmp->empty()) xmp = filteredXMPPacket(*s.xmp, subDictionary(filtered, key::xmp));

    Bytes out;
    append(out, s.header);
    out[4] = '9';  // the extensions we write belong to GIF89a
    if (s.loop) append(out, *s.loop);
    // The colour profile stays unless its name is personal and the cleaning profile removes it.
    if (s.iccExtension && keepsICCProfile(s.icc, filtered)) append(out, *s.iccExtension);
    if (gif && gif->count("Comment") && !s.comments.empty()) {
        for (const auto& c : s.comments) {
            out.insert(out.end(), {0x21, 0xFE});
            putSubBlocks(out, {reinterpret_cast<const std::uint8_t*>(c.data()), c.size()});
        }
    }
    if (!xmp.empty()) {
        out.insert(out.end(), {0x21, 0xFF, 11});
        append(out, std::string_view("XMP DataXMP"));
        append(out, xmp);
        // The magic trailer: bytes 0x01, 0xFF … 0x00 read as sub-block lengths that lead back to a terminator.
        out.push_back(0x01);
        for (int v = 0xFF; v >= 0; --v) out.push_back(static_cast<std::uint8_t>(v));
        out.push_back(0x00);
    }
    for (const auto& image : s.images) {
        if (image.control) append(out, *image.control);
        append(out, image.whole);
    }
    out.push_back(0x3B);
    return out;
}

}  // namespace tavrin::image::gifContainer
