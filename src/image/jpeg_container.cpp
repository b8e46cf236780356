#include "image/jpeg_container.h"

#include <algorithm>

#include <cmath>
#include <cstring>

#include "image/exif_metadata.h"
#include "image/icc_profile.h"
#include "image/image_structural_keys.h"
#include "image/iptc_metadata.h"
#include "image/xmp_metadata.h"
#include "model/jpeg_markers.h"

namespace tavrin::image::jpegContainer {

namespace {

using Case = ImageFormatError::Case;

constexpr std::string_view exifID("Exif\0\0", 6);
constexpr std::string_view xmpID("http://ns.adobe.com/xap/1.0/\0", 29);
constexpr std::string_view iccID("ICC_PROFILE\0", 12);
constexpr std::string_view photoshopID("Photoshop 3.0\0", 14);

enum class PieceKind { segment, entropy, eoi };

struct Piece {
    PieceKind kind;
    std::uint8_t marker = 0;
    std::size_t offset = 0;  // of the marker (segment) or of the data (entropy)
    std::size_t length = 0;  // whole segment with marker, or the data
};

struct Layout {
    std::vector<Piece> pieces;
    bool complete = false;  // EOI reached
};

using jpegMarkers::isStandalone;
using jpegMarkers::skipEntropyCodedData;

Layout layout(ByteSpan d) {
    enforce(d.size() >= 4 && d[0] == 0xFF && d[1] == 0xD8, Case::unknownFormat, "no JPEG start-of-image marker");
    Layout out;
    std::size_t i = 2;
    while (i < d.size()) {
        enforce(d[i] == 0xFF, Case::invalidStructure, "a JPEG marker is expected");
        while (i + 1 < d.size() && d[i + 1] == 0xFF) ++i;  // fill bytes
        if (i + 1 >= d.size()) break;
        const std::uint8_t marker = d[i + 1];
        if (marker == 0xD9) {
            out.pieces.push_back({PieceKind::eoi, marker, i, 2});
            out.complete = true;
            return out;
        }
        if (isStandalone(marker)) {
            out.pieces.push_back({PieceKind::segment, marker, i, 2});
            i += 2;
            continue;
        }
        enforce(marker != 0xD8 && marker != 0x00, Case::invalidStructure, "a JPEG marker is invalid here");
        const std::size_t length = be16(d, i + 2);
        enforce(length >= 2, Case::invalidStructure, "a JPEG segment length is below 2");
        if (!fits(d, i + 2, length)) break;  // truncated inside a segment
        out.pieces.push_back({PieceKind::segment, marker, i, length + 2});
        i += 2 + length;
        if (marker == 0xDA) {
            const std::size_t end = skipEntropyCodedData(d, i);
            out.pieces.push_back({PieceKind::entropy, 0, i, end - i});
            i = end;
        }
    }
    return out;
}

ByteSpan payloadOf(ByteSpan d, const Piece& p) { return d.subspan(p.offset + 4, p.length - 4); }

bool isStructural(std::uint8_t m) {
    // Tables, frame and scan headers, restart markers and interval; never APPn or COM.
    return !(m >= 0xE0 && m <= 0xEF) && m != 0xFE;
}

bool isAdobe(ByteSpan d, const Piece& p) { return p.marker == 0xEE && startsWith(payloadOf(d, p), "Adobe"); }

struct Found {
    std::optional<ByteSpan> jfif;  // payload
    std::optional<ByteSpan> exif;  // TIFF header onward
    std::vector<ByteSpan> xmp;
    Bytes icc;
    Bytes photoshop;
    std::vector<std::string> comments;
    std::optional<ByteSpan> sof;   // payload
    std::vector<const Piece*> adobe;
};

Found scan(ByteSpan d, const Layout& l) {
    Found f;
    std::vector<std::pair<int, ByteSpan>> iccChunks;
    for (const auto& p : l.pieces) {
        if (p.kind != PieceKind::segment || p.length < 4) continue;
        const ByteSpan payload = payloadOf(d, p);
        if (p.marker == 0xE0 && startsWith(payload, std::string_view("JFIF\0", 5)) && !f.jfif) f.jfif = payload;
        else if (p.marker == 0xE1 && startsWith(payload, exifID) && !f.exif) f.exif = payload.subspan(exifID.size());
        else if (p.marker == 0xE1 && startsWith(payload, xmpID)) f.xmp.push_back(payload.subspan(xmpID.size()));
        else if (p.marker == 0xE2 && startsWith(payload, iccID) && payload.size() >= 14)
            iccChunks.emplace_back(payload[12], payload.subspan(14));
        else if (p.marker == 0xED && startsWith(payload, photoshopID)) append(f.photoshop, payload.subspan(photoshopID.size()));
        else if (p.marker == 0xEE && isAdobe(d, p)) f.adobe.push_back(&p);
        else if (p.marker == 0xFE) f.comments.push_back(text(payload));
        else if (((p.marker >= 0xC0 && p.marker <= 0xCF) && p.marker != 0xC4 && p.marker != 0xC8 && p.marker != 0xCC) && !f.sof)
            f.sof = payload;
    }
    std::stable_sort(iccChunks.begin(), iccChunks.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    for (const auto& [_, chunk] : iccChunks) append(f.icc, chunk);
    return f;
}

std::string commentText(const std::vector<std::string>& comments) {
    std::string all;
    for (const auto& c : comments) all += (all.empty() ? "" : "\n") + c;
    while (!all.empty() && all.back() == '\0') all.pop_back();
    return all;
}

void putSegment(Bytes& out, std::uint8_t marker, std::string_view id, ByteSpan body) {
    const std::size_t length = 2 + id.size() + body.size();
    enforce(length <= 0xFFFF, Case::limitExceeded, "a JPEG segment would exceed 64 KB");
    out.push_back(0xFF);
    out.push_back(marker);
    putBE16(out, static_cast<std::uint16_t>(length));
    append(out, id);
    append(out, body);
}

ByteSpan bytesOf(const std::string& s) { return {reinterpret_cast<const std::uint8_t*>(s.data()), s.size()}; }

void putICC(Bytes& out, ByteSpan icc) {
    constexpr std::size_t chunk = 65519 - 14;
    const std::size_t count = (icc.size() + chunk - 1) / chunk;
    enforce(count <= 255, Case::limitExceeded, "an ICC profile is too large for JPEG");
    for (std::size_t i = 0; i < count; ++i) {
        Bytes body = {static_cast<std::uint8_t>(i + 1), static_cast<std::uint8_t>(count)};
        append(body, icc.subspan(i * chunk, std::min(chunk, icc.size() - i * chunk)));
        putSegment(out, 0xE2, iccID, body);
    }
}

// A JFIF header with the source's version and density, and no thumbnail.
void putJFIF(Bytes& out, ByteSpan jfif) {
    if (jfif.size() < 12) return;
    Bytes body(jfif.begin() + 5, jfif.begin() + 12);
    body.push_back(0);
    body.push_back(0);
    putSegment(out, 0xE0, std::string_view("JFIF\0", 5), body);
}

void putCodedImage(Bytes& out, ByteSpan d, const Layout& l) {
    for (const auto& p : l.pieces) {
        if (p.kind == PieceKind::segment && !isStructural(p.marker)) continue;
        append(out, d.subspan(p.offset, p.length));
    }
}

}  // namespace

Properties readProperties(ByteSpan d) {
    const Layout l = layout(d);
    const Found f = scan(d, l);
    Properties frame;
    enforce(f.sof.has_value() && f.sof->size() >= 6, Case::invalidStructure, "a JPEG has no frame header");
    set(frame, key::depth, MetadataValue::integer((*f.sof)[0]));
    set(frame, key::pixelHeight, MetadataValue::integer(be16(*f.sof, 1)));
    set(frame, key::pixelWidth, MetadataValue::integer(be16(*f.sof, 3)));
    const int components = (*f.sof)[5];
    set(frame, key::colorModel, MetadataValue::string(components == 1 ? "Gray" : components == 4 ? "CMYK" : "RGB"));
    if (f.jfif && f.jfif->size() >= 12) {
        const int units = (*f.jfif)[7];
        const double x = be16(*f.jfif, 8), y = be16(*f.jfif, 10);
        if ((units == 1 || units == 2) && x > 0 && y > 0) {
            const double scale = units == 2 ? 2.54 : 1.0;
            auto v = [](double d) {
                const double r = std::round(d * 100) / 100;
                return r == std::floor(r) ? MetadataValue::integer(static_cast<std::int64_t>(r)) : MetadataValue::number(r);
            };
            set(frame, key::dpiWidth, v(x * scale));
            set(frame, key::dpiHeight, v(y * scale));
        }
    }
    if (f.exif) {
        const TiffStructure tiff = parseTiff(*f.exif, 2);
        addExifProperties(tiff, 0, ExifContext::embedded, frame);
    }
    for (const auto& x : f.xmp) mergeSubDictionary(frame, key::xmp, parseXMP(x).properties);
    if (!f.photoshop.empty()) addPhotoshopProperties(f.photoshop, frame);
    if (!f.icc.empty())
        if (auto name = iccProfileDescription(f.icc)) set(frame, key::profileName, MetadataValue::string(*name));
    if (!f.comments.empty()) {
        Properties exif;
        exif.emplace("Comment", MetadataValue::string(commentText(f.comments)));
        mergeSubDictionary(frame, key::exif, std::move(exif));
    }
    return frame;
}

Bytes rebuild(ByteSpan d, const Properties& filtered) {
    const Layout l = layout(d);
    enforce(l.complete, Case::truncated, "JPEG data ends before its end-of-image marker");
    const Found f = scan(d, l);
    Bytes out = {0xFF, 0xD8};
    if (f.jfif) putJFIF(out, *f.jfif);
    if (f.exif) {
        const Bytes exif = filteredExifBlock(parseTiff(*f.exif, 2), filtered);
        if (!exif.empty()) putSegment(out, 0xE1, exifID, exif);
    }
    // The colour profile stays unless its name is personal and the cleaning profile removes it.
    if (!f.icc.empty() && keepsICCProfile(f.icc, filtered)) putICC(out, f.icc);
    if (const Properties* xmp = subDictionary(filtered, key::xmp); xmp && !f.xmp.empty()) {
        const std::string packet = filteredXMPPacket(f.xmp.front(), xmp);
        if (!packet.empty()) putSegment(out, 0xE1, xmpID, bytesOf(packet));
    }
    if (!f.photoshop.empty()) {
        const Bytes resources = filteredPhotoshop(f.photoshop, filtered);
        if (!resources.empty()) putSegment(out, 0xED, photoshopID, resources);
    }
    if (const Properties* exif = subDictionary(filtered, key::exif); exif && exif->count("Comment") && !f.comments.empty())
        putSegment(out, 0xFE, "", bytesOf(commentText(f.comments)));
    for (const Piece* adobe : f.adobe) append(out, d.subspan(adobe->offset, adobe->length));
    putCodedImage(out, d, l);
    return out;
}

Bytes losslessStrip(ByteSpan d) {
    const Layout l = layout(d);
    enforce(l.complete, Case::truncated, "JPEG data ends before its end-of-image marker");
    const Found f = scan(d, l);
    Bytes out = {0xFF, 0xD8};
    if (f.jfif) putJFIF(out, *f.jfif);
    if (f.exif) {
        const TiffStructure tiff = parseTiff(*f.exif, 1);
        if (const TiffEntry* o = tiff.pages[0].main.find(274))
            if (auto v = tiff.unsignedValue(*o); v && *v >= 1 && *v <= 8)
                putSegment(out, 0xE1, exifID, orientationOnlyExif(static_cast<std::uint16_t>(*v)));
    }
    if (!f.icc.empty()) {
        const auto name = iccProfileDescription(f.icc);
        if (!name || isGenericICCProfileName(MetadataValue::string(*name))) putICC(out, f.icc);
    }
    for (const Piece* adobe : f.adobe) append(out, d.subspan(adobe->offset, adobe->length));
    putCodedImage(out, d, l);
    return out;
}

bool sameCodedImage(ByteSpan a, ByteSpan b) {
    try {
        const Layout la = layout(a), lb = layout(b);
        if (!la.complete || !lb.complete) return false;
        const auto decoded = [](ByteSpan d, const Layout& l) {
            std::vector<ByteSpan> out;
            for (const auto& p : l.pieces)
                if (p.kind != PieceKind::segment || isStructural(p.marker) || isAdobe(d, p))
                    out.push_back(d.subspan(p.offset, p.length));
            return out;
        };
        const auto pa = decoded(a, la), pb = decoded(b, lb);
        return std::equal(pa.begin(), pa.end(), pb.begin(), pb.end(),
                          [](ByteSpan x, ByteSpan y) { return std::equal(x.begin(), x.end(), y.begin(), y.end()); });
    } catch (const ImageFormatError&) {
        return false;
    }
}

std::vector<ByteSpan> entropyCodedSegments(ByteSpan d) {
    std::vector<ByteSpan> out;
    for (const auto& p : layout(d).pieces)
        if (p.kind == PieceKind::entropy) out.push_back(d.subspan(p.offset, p.length));
    return out;
}

}  // namespace tavrin::image::jpegContainer
