#include "image/png_container.h"

#include <cmath>
#include <zlib.h>

#include "image/exif_metadata.h"
#include "image/icc_profile.h"
#include "image/xmp_metadata.h"

namespace tavrin::image::pngContainer {

namespace {

using Case = ImageFormatError::Case;

constexpr std::uint8_t signature[8] = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A};
constexpr std::size_t maxTextSize = 8 << 20;
constexpr std::size_t maxChunks = 1 << 20;
constexpr std::string_view xmpKeyword = "XML:com.adobe.xmp";

struct Chunk {
    std::string type;
    ByteSpan data;
    ByteSpan whole;  // length, type, data and CRC
};

std::vector<Chunk> chunks(ByteSpan d) {
    enforce(d.size() >= 8 && std::equal(signature, signature + 8, d.begin()), Case::unknownFormat, "no PNG signature");
    std::vector<Chunk> out;
    std::size_t at = 8;
    while (true) {
        const std::uint32_t length = be32(d, at);
        enforce(length <= 0x7FFFFFFF, Case::invalidStructure, "a PNG chunk length exceeds 2^31-1");
        const ByteSpan typeAndData = slice(d, at + 4, std::size_t{length} + 4);
        const std::uint32_t crc = be32(d, at + 8 + length);
        const auto computed = crc32(0, typeAndData.data(), static_cast<uInt>(typeAndData.size()));
        enforce(computed == crc, Case::checksumMismatch, "a PNG chunk fails its CRC");
        Chunk c{text(typeAndData.first(4)), typeAndData.subspan(4), d.subspan(at, std::size_t{length} + 12)};
        out.push_back(c);
        enforce(out.size() <= maxChunks, Case::limitExceeded, "too many PNG chunks");
        at += std::size_t{length} + 12;
        if (c.type == "IEND") break;
    }
    enforce(!out.empty() && out.front().type == "IHDR" && out.front().data.size() == 13, Case::invalidStructure,
            "a PNG does not start with its header chunk");
    return out;
}

// The key a text keyword is reported under: the registered keywords without their blanks.
std::string textKey(std::string_view keyword) {
    if (keyword == "Creation Time") return "CreationTime";
    return std::string(keyword);
}

struct TextChunk {
    std::string keyword;
    std::string value;
};

std::optional<TextChunk> readText(const Chunk& c) {
    const ByteSpan d = c.data;
    std::size_t nul = 0;
    while (nul < d.size() && d[nul] != 0) ++nul;
    if (nul == 0 || nul >= d.size() || nul > 79) return std::nullopt;
    TextChunk t{text(d.first(nul)), {}};
    const ByteSpan rest = d.subspan(nul + 1);
    if (c.type == "tEXt") {
        t.value = latin1ToUTF8(rest);
    } else if (c.type == "zTXt") {
        if (rest.empty() || rest[0] != 0) return std::nullopt;
        t.value = latin1ToUTF8(inflateZlib(rest.subspan(1), maxTextSize));
    } else {  // iTXt: flag, method, language, translated keyword, text
        if (rest.size() < 2) return std::nullopt;
        const bool compressed = rest[0] == 1;
        std::size_t at = 2;
        for (int field = 0; field < 2; ++field) {
            while (at < rest.size() && rest[at] != 0) ++at;
            if (at >= rest.size()) return std::nullopt;
            ++at;
        }
        const ByteSpan body = rest.subspan(at);
        if (compressed) {
            const Bytes inflated = inflateZlib(body, maxTextSize);
            t.value = text(inflated);
        } else {
            t.value = text(body);
        }
    }
    return t;
}

// The end of an iCCP chunk's name: the terminator, followed by the compression method and the
// compressed profile. Refuses a chunk that has no such layout.
std::size_t profileNameEnd(const Chunk& c) {
    std::size_t nul = 0;
    while (nul < c.data.size() && nul < 80 && c.data[nul] != 0) ++nul;
    enforce(nul >= 1 && nul < 80 && nul + 2 <= c.data.size(), Case::invalidStructure,
            "iCCP: the chunk holds no profile name and compressed profile");
    enforce(c.data[nul + 1] == 0, Case::invalidStructure, "iCCP: the profile uses an unknown compression method");
    return nul;
}

Bytes iccProfileOf(const Chunk& c) {
    try {
        return inflateZlib(c.data.subspan(profileNameEnd(c) + 2), 64 << 20);
    } catch (const ImageFormatError& e) {
        if (e.detail().starts_with("iCCP")) throw;
        if (e.errorCase() == Case::limitExceeded)
            throw ImageFormatError(e.errorCase(), "iCCP: the profile inflates to more than 64 MB");
        throw ImageFormatError(e.errorCase(), "iCCP: the profile does not inflate");
    }
}

bool isText(const Chunk& c) { return c.type == "tEXt" || c.type == "zTXt" || c.type == "iTXt"; }

MetadataValue decimal(double d) {
    const double r = std::round(d * 100000) / 100000;
    return r == std::floor(r) ? MetadataValue::integer(static_cast<std::int64_t>(r)) : MetadataValue::number(r);
}

void putChunk(Bytes& out, std::string_view type, ByteSpan data) {
    enforce(data.size() <= 0x7FFFFFFF, Case::limitExceeded, "a PNG chunk would be too large");
    putBE32(out, static_cast<std::uint32_t>(data.size()));
    const std::size_t start = out.size();
    append(out, type);
    append(out, data);
    putBE32(out, static_cast<std::uint32_t>(crc32(0, out.data() + start, static_cast<uInt>(out.size() - start))));
}

ByteSpan bytesOf(std::string_view s) { return {reinterpret_cast<const std::uint8_t*>(s.data()), s.size()}; }

void putITXt(Bytes& out, std::string_view keyword, std::string_view value) {
    Bytes body;
    append(body, keyword);
    body.insert(body.end(), {0, 0, 0, 0, 0});  // separator, not compressed, method, no language, no translation
    append(body, value);
    putChunk(out, "iTXt", body);
}

}  // namespace

Properties readProperties(ByteSpan d) {
    const auto all = chunks(d);
    const ByteSpan ihdr = all.front().data;
    Properties frame, png;
    set(frame, key::pixelWidth, MetadataValue::integer(be32(ihdr, 0)));
    set(frame, key::pixelHeight, MetadataValue::integer(be32(ihdr, 4)));
    set(frame, key::depth, MetadataValue::integer(ihdr[8]));
    const int colorType = ihdr[9];
    set(frame, key::colorModel, MetadataValue::string(colorType == 0 || colorType == 4 ? "Gray" : "RGB"));
    bool alpha = colorType == 4 || colorType == 6;
    set(png, "InterlaceType", MetadataValue::integer(ihdr[12]));
    for (const auto& c : all) {
        if (c.type == "tRNS") alpha = true;
        else if (c.type == "gAMA" && c.data.size() == 4) set(png, "Gamma", decimal(be32(c.data, 0) / 100000.0));
        else if (c.type == "sRGB" && c.data.size() == 1) set(png, "sRGBIntent", MetadataValue::integer(c.data[0]));
        else if (c.type == "cHRM" && c.data.size() == 32) {
            MetadataValue::Array values;
            for (std::size_t i = 0; i < 8; ++i) values.push_back(decimal(be32(c.data, 4 * i) / 100000.0));
            set(png, "Chromaticities", MetadataValue::array(std::move(values)));
        } else if (c.type == "pHYs" && c.data.size() == 9 && c.data[8] == 1) {
            const double x = be32(c.data, 0), y = be32(c.data, 4);
            set(png, "XPixelsPerMeter", MetadataValue::integer(static_cast<std::int64_t>(x)));
            set(png, "YPixelsPerMeter", MetadataValue::integer(static_cast<std::int64_t>(y)));
            set(frame, key::dpiWidth, MetadataValue::integer(std::lround(x * 0.0254)));
            set(frame, key::dpiHeight, MetadataValue::integer(std::lround(y * 0.0254)));
        } else if (c.type == "iCCP") {
            if (auto name = iccProfileDescription(iccProfileOf(c))) set(frame, key::profileName, MetadataValue::string(*name));
        } else if (c.type == "eXIf") {
            addExifProperties(parseTiff(c.data, 2), 0, ExifContext::embedded, frame);
        } else if (c.type == "tIME" && c.data.size() == 7) {
            char buf[32];
            std::snprintf(buf, sizeof buf, "%04u:%02u:%02u %02u:%02u:%02u", be16(c.data, 0), c.data[2], c.data[3], c.data[4],
                          c.data[5], c.data[6]);
            set(png, "ModificationTime", MetadataValue::string(buf));
        } else if (isText(c)) {
            if (auto t = readText(c)) {
                if (t->keyword == xmpKeyword) {
                    mergeSubDictionary(frame, key::xmp, parseXMP(bytesOf(t->value)).properties);
                } else {
                    set(png, textKey(t->keyword), MetadataValue::string(t->value));
                }
            }
        }
    }
    set(frame, key::hasAlpha, MetadataValue::boolean(alpha));
    mergeSubDictionary(frame, key::png, std::move(png));
    return frame;
}

Bytes rebuild(ByteSpan d, const Properties& filtered) {
    const auto all = chunks(d);
    const Properties* png = subDictionary(filtered, key::png);
    auto kept = [&](std::string_view name) { return png && png->count(std::string(name)); };
    Bytes out(signature, signature + 8);
    append(out, all.front().whole);
    for (const auto& c : all) {
        if (c.type == "eXIf") {
            const Bytes exif = filteredExifBlock(parseTiff(c.data, 2), filtered);
            if (!exif.empty()) putChunk(out, "eXIf", exif);
        } else if (c.type == "tIME" && kept("ModificationTime")) {
            append(out, c.whole);
        } else if (isText(c)) {
            auto t = readText(c);
            if (!t) continue;
            if (t->keyword == xmpKeyword) {
                const std::string packet = filteredXMPPacket(bytesOf(t->value), subDictionary(filtered, key::xmp));
                if (!packet.empty()) putITXt(out, xmpKeyword, packet);
            } else if (kept(textKey(t->keyword))) {
                putITXt(out, t->keyword, t->value);
            }
        }
    }
    for (const auto& c : all) {
        static const std::string_view structural[] = {"PLTE", "tRNS", "gAMA", "cHRM", "sRGB", "sBIT", "pHYs", "bKGD",
                                                      "acTL", "fcTL", "fdAT", "IDAT", "IEND", "cICP", "mDCv", "cLLi"};
        if (c.type == "iCCP") {
            // The chunk's own name can be anything a person typed; a neutral one replaces it. The
            // profile inside goes with the rule for every format.
            if (!keepsICCProfile(iccProfileOf(c), filtered)) continue;
            Bytes body;
            append(body, std::string_view("ICC Profile\0", 12));
            append(body, c.data.subspan(profileNameEnd(c) + 1));
            putChunk(out, "iCCP", body);
        } else if (std::find(std::begin(structural), std::end(structural), c.type) != std::end(structural)) {
            append(out, c.whole);
        }
    }
    return out;
}

}  // namespace tavrin::image::pngContainer
