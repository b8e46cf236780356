#include "image/heif_container.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <string>

#include <fmt/core.h>

#include "image/exif_metadata.h"
#include "image/icc_profile.h"
#include "image/iso_boxes.h"
#include "image/xmp_metadata.h"

namespace tavrin::image::heifContainer {

namespace {

using Case = ImageFormatError::Case;

constexpr std::size_t maxBoxes = 1 << 20;
constexpr std::size_t maxItems = 1 << 14;
constexpr std::size_t maxReferences = 1 << 16;
constexpr std::size_t maxExtents = 1 << 18;  // over all items
constexpr std::size_t maxMetadataItemSize = 64 << 20;
// Metadata items read for all frames together; one item may describe many frames.
constexpr std::size_t maxMetadataWork = 256 << 20;

using isoBoxes::Box;
using isoBoxes::boxesIn;

const Box* child(const std::vector<Box>& boxes, std::string_view type) {
    for (const auto& b : boxes)
        if (b.type == type) return &b;
    return nullptr;
}

struct Reader {
    ByteSpan d;
    std::size_t at = 0;
    std::uint64_t uint(std::size_t bytes) {
        std::uint64_t v = 0;
        for (std::size_t i = 0; i < bytes; ++i) v = v << 8 | slice(d, at + i, 1)[0];
        at += bytes;
        return v;
    }
    std::string cString() {
        std::size_t end = at;
        while (end < d.size() && d[end] != 0) ++end;
        enforce(end < d.size(), Case::truncated, "a HEIF string has no terminator");
        std::string s = text(d.subspan(at, end - at));
        at = end + 1;
        return s;
    }
    bool done() const { return at >= d.size(); }
};

struct Extent {
    std::uint64_t offset = 0, length = 0;
};

struct Item {
    std::uint32_t id = 0;
    std::string type;
    std::string contentType, contentEncoding;
    std::uint16_t flags = 0;  // of the infe box; bit 0 hides the item
    int constructionMethod = 0;
    std::uint64_t baseOffset = 0;
    std::vector<Extent> extents;
    bool located = false;
};

struct Reference {
    std::string type;
    std::uint32_t from = 0;
    std::vector<std::uint32_t> to;
};

struct PropertyAssociations {
    std::uint8_t version = 0;
    std::uint32_t flags = 0;
    std::map<std::uint32_t, ByteSpan> entries;  // item → its raw association bytes (after the item id)
    std::map<std::uint32_t, std::vector<std::uint16_t>> indices;  // item → 1-based property indices
};

struct File {
    ByteSpan data;
    std::vector<Box> top;
    const Box* ftyp = nullptr;
    ByteSpan handler;  // the hdlr handler type
    std::uint32_t primary = 0;
    std::vector<Item> items;
    std::vector<Reference> refs;
    std::vector<Box> properties;  // the children of ipco, in order
    std::vector<PropertyAssociations> associations;
    ByteSpan idat;
    // Lookups by item id, built once parsing is done, so that no walk is quadratic.
    std::map<std::uint32_t, std::size_t> itemIndex;
    std::map<std::uint32_t, std::vector<std::size_t>> referencesFrom, referencesTo;

    void buildIndex() {
        for (std::size_t r = 0; r < refs.size(); ++r) {
            referencesFrom[refs[r].from].push_back(r);
            for (std::uint32_t to : refs[r].to) referencesTo[to].push_back(r);
        }
    }
    const Item* item(std::uint32_t id) const {
        auto it = itemIndex.find(id);
        return it == itemIndex.end() ? nullptr : &items[it->second];
    }
    // The references of `type` that leave (or reach) item `id`.
    std::vector<const Reference*> references(std::uint32_t id, std::string_view type, bool from) const {
        std::vector<const Reference*> out;
        const auto& index = from ? referencesFrom : referencesTo;
        if (auto it = index.find(id); it != index.end())
            for (std::size_t r : it->second)
                if (refs[r].type == type) out.push_back(&refs[r]);
        return out;
    }
    bool hasReferenceFrom(std::uint32_t id, std::string_view type) const { return !references(id, type, true).empty(); }
    std::vector<const Box*> propertiesOf(std::uint32_t id) const {
        std::vector<const Box*> out;
        for (const auto& a : associations)
            if (auto it = a.indices.find(id); it != a.indices.end())
                for (std::uint16_t index : it->second)
                    if (index >= 1 && index <= properties.size()) out.push_back(&properties[index - 1u]);
        return out;
    }
};

std::uint32_t fullBoxVersion(ByteSpan body) { return slice(body, 0, 1)[0]; }

void readItemInfo(File& f, const Box& iinf, std::size_t& budget) {
    Reader r{iinf.body};
    const auto version = r.uint(1);
    r.uint(3);
    const auto count = r.uint(version == 0 ? 2 : 4);
    enforce(count <= maxItems, Case::limitExceeded, "a HEIF file has too many items");
    for (const auto& infe : boxesIn(iinf.body.subspan(r.at), budget)) {
        if (infe.type != "infe") continue;
        Reader e{infe.body};
        Item item;
        const auto v = e.uint(1);
        item.flags = static_cast<std::uint16_t>(e.uint(3) & 0xFFFF);
        if (v <= 1) {
            item.id = static_cast<std::uint32_t>(e.uint(2));
            e.uint(2);
            item.type = "mime";
            e.cString();
            item.contentType = e.cString();
            if (!e.done()) item.contentEncoding = e.cString();
        } else {
            item.id = static_cast<std::uint32_t>(e.uint(v == 2 ? 2 : 4));
            enforce(e.uint(2) == 0, Case::invalidStructure, "a HEIF item is protected");
            item.type = text(slice(infe.body, e.at, 4));
            e.at += 4;
            e.cString();  // the name, which is never copied
            if (item.type == "mime") {
                item.contentType = e.cString();
                if (!e.done()) item.contentEncoding = e.cString();
            }
        }
        enforce(f.itemIndex.emplace(item.id, f.items.size()).second, Case::invalidStructure,
                "two HEIF items share an id");
        f.items.push_back(std::move(item));
        enforce(f.items.size() <= maxItems, Case::limitExceeded, "a HEIF file has too many items");
    }
}

void readItemLocations(File& f, const Box& iloc) {
    Reader r{iloc.body};
    const auto version = r.uint(1);
    r.uint(3);
    enforce(version <= 2, Case::invalidStructure, "an item location box has an unknown version");
    const auto sizes = r.uint(1), sizes2 = r.uint(1);
    const std::size_t offsetSize = sizes >> 4, lengthSize = sizes & 15, baseSize = sizes2 >> 4;
    const std::size_t indexSize = version >= 1 ? (sizes2 & 15) : 0;
    for (std::size_t s : {offsetSize, lengthSize, baseSize, indexSize})
        enforce(s == 0 || s == 4 || s == 8, Case::invalidStructure, "an item location uses an invalid field size");
    const auto count = r.uint(version < 2 ? 2 : 4);
    enforce(count <= maxItems, Case::limitExceeded, "too many item locations");
    std::size_t totalExtents = 0;
    for (std::uint64_t i = 0; i < count; ++i) {
        const auto id = static_cast<std::uint32_t>(r.uint(version < 2 ? 2 : 4));
        const int method = version >= 1 ? static_cast<int>(r.uint(2) & 15) : 0;
        const auto dataReference = r.uint(2);
        const auto base = r.uint(baseSize);
        const auto extents = r.uint(2);
        totalExtents += static_cast<std::size_t>(extents);
        enforce(totalExtents <= maxExtents, Case::limitExceeded, "HEIF items have too many extents");
        auto found = f.itemIndex.find(id);
        Item* item = found == f.itemIndex.end() ? nullptr : &f.items[found->second];
        std::vector<Extent> list;
        for (std::uint64_t e = 0; e < extents; ++e) {
            r.uint(indexSize);
            const auto offset = r.uint(offsetSize);
            const auto length = r.uint(lengthSize);
            list.push_back({offset, length});
        }
        if (!item) continue;
        enforce(dataReference == 0, Case::invalidStructure, "a HEIF item lies in another file");
        enforce(method == 0 || method == 1, Case::invalidStructure, "a HEIF item uses an unsupported construction");
        item->constructionMethod = method;
        item->baseOffset = base;
        item->extents = std::move(list);
        item->located = true;
    }
}

void readReferences(File& f, const Box& iref, std::size_t& budget) {
    const auto version = fullBoxVersion(iref.body);
    for (const auto& b : boxesIn(iref.body.subspan(4), budget)) {
        Reader r{b.body};
        Reference ref{b.type, static_cast<std::uint32_t>(r.uint(version == 0 ? 2 : 4)), {}};
        const auto count = r.uint(2);
        for (std::uint64_t i = 0; i < count; ++i) ref.to.push_back(static_cast<std::uint32_t>(r.uint(version == 0 ? 2 : 4)));
        f.refs.push_back(std::move(ref));
        enforce(f.refs.size() <= maxReferences, Case::limitExceeded, "too many HEIF item references");
    }
}

void readProperties(File& f, const Box& iprp, std::size_t& budget) {
    for (const auto& b : boxesIn(iprp.body, budget)) {
        if (b.type == "ipco") {
            f.properties = boxesIn(b.body, budget);
        } else if (b.type == "ipma") {
            Reader r{b.body};
            PropertyAssociations a;
            a.version = static_cast<std::uint8_t>(r.uint(1));
            a.flags = static_cast<std::uint32_t>(r.uint(3));
            const auto count = r.uint(4);
            enforce(count <= maxItems, Case::limitExceeded, "too many property associations");
            for (std::uint64_t i = 0; i < count; ++i) {
                const auto id = static_cast<std::uint32_t>(r.uint(a.version < 1 ? 2 : 4));
                const std::size_t start = r.at;
                const auto n = r.uint(1);
                std::vector<std::uint16_t> indices;
                for (std::uint64_t k = 0; k < n; ++k)
                    indices.push_back(static_cast<std::uint16_t>((a.flags & 1) ? r.uint(2) & 0x7FFF : r.uint(1) & 0x7F));
                a.entries[id] = b.body.subspan(start, r.at - start);
                a.indices[id] = std::move(indices);
            }
            f.associations.push_back(std::move(a));
        }
    }
}

bool isImageType(std::string_view type);

File parse(ByteSpan d) {
    File f;
    f.data = d;
    std::size_t budget = maxBoxes;
    f.top = boxesIn(d, budget);
    f.ftyp = child(f.top, "ftyp");
    const Box* meta = child(f.top, "meta");
    enforce(f.ftyp && f.ftyp == &f.top.front(), Case::invalidStructure, "a HEIF file does not start with ftyp");
    enforce(meta && meta->body.size() >= 4, Case::invalidStructure, "a HEIF file has no meta box");
    const auto children = boxesIn(meta->body.subspan(4), budget);
    const Box* hdlr = child(children, "hdlr");
    enforce(hdlr && hdlr->body.size() >= 12, Case::invalidStructure, "a HEIF meta box has no handler");
    f.handler = hdlr->body.subspan(8, 4);
    if (const Box* pitm = child(children, "pitm")) {
        Reader r{pitm->body};
        const auto v = r.uint(1);
        r.uint(3);
        f.primary = static_cast<std::uint32_t>(r.uint(v == 0 ? 2 : 4));
    }
    if (const Box* idat = child(children, "idat")) f.idat = idat->body;
    const Box* iinf = child(children, "iinf");
    const Box* iloc = child(children, "iloc");
    enforce(iinf && iloc, Case::invalidStructure, "a HEIF meta box lacks item information or locations");
    readItemInfo(f, *iinf, budget);
    readItemLocations(f, *iloc);
    if (const Box* iref = child(children, "iref")) readReferences(f, *iref, budget);
    if (const Box* iprp = child(children, "iprp")) readProperties(f, *iprp, budget);
    f.buildIndex();
    enforce(f.item(f.primary) != nullptr, Case::invalidStructure, "a HEIF file has no primary item");
    // Every image an image is derived from must exist: a grid that names a missing tile cannot
    // be shown, nor rebuilt.
    for (const auto& r : f.refs) {
        if (r.type != "dimg") continue;
        const Item* derived = f.item(r.from);
        const std::string_view what = derived && derived->type == "grid" ? "grid" : "derived image";
        const std::string_view part = derived && derived->type == "grid" ? "tile" : "input";
        if (!derived)
            throw ImageFormatError(Case::invalidStructure,
                                   fmt::format("iref: a derivation starts at item {}, which does not exist", r.from));
        for (std::uint32_t to : r.to)
            if (!f.item(to) || !isImageType(f.item(to)->type))
                throw ImageFormatError(Case::invalidStructure, fmt::format("iref: {} {} names {} {}, which does not exist",
                                                                           what, r.from, part, to));
    }
    // Every extent must lie inside the file or the item data box; checked here, before any use.
    for (const auto& item : f.items) {
        for (const auto& e : item.extents) {
            const ByteSpan space = item.constructionMethod == 1 ? f.idat : d;
            const std::uint64_t start = item.baseOffset + e.offset;
            enforce(start >= item.baseOffset && start <= space.size() &&
                        (e.length == 0 ? item.extents.size() == 1 : e.length <= space.size() - start),
                    Case::invalidStructure, "an item location points outside the file");
        }
    }
    return f;
}

// The item's data, its extents joined.
Bytes itemData(const File& f, const Item& item, std::size_t limit) {
    enforce(item.located, Case::invalidStructure, "a HEIF item has no location");
    const ByteSpan space = item.constructionMethod == 1 ? f.idat : f.data;
    Bytes out;
    for (const auto& e : item.extents) {
        const std::size_t start = static_cast<std::size_t>(item.baseOffset + e.offset);
        const std::size_t length = e.length == 0 ? space.size() - start : static_cast<std::size_t>(e.length);
        enforce(length <= limit - out.size(), Case::limitExceeded, "a HEIF item is too large");
        append(out, slice(space, start, length));
    }
    return out;
}

bool isImageType(std::string_view type) {
    static const std::set<std::string_view> types = {"hvc1", "hvt1", "av01", "grid", "iden", "iovl", "jpeg",
                                                     "unci", "avc1", "vvc1", "j2k1", "mski", "tmap"};
    return types.count(type) > 0;
}

bool isExif(const Item& i) { return i.type == "Exif"; }
bool isXMP(const Item& i) { return i.type == "mime" && i.contentType == "application/rdf+xml"; }

// The images that count as frames: not hidden, no thumbnail, no auxiliary image, no tile or
// other input of a derived image (some phones leave their tiles visible); the primary first.
std::vector<std::uint32_t> topLevelImages(const File& f) {
    std::vector<std::uint32_t> out = {f.primary};
    for (const auto& i : f.items) {
        if (i.id == f.primary || !isImageType(i.type) || (i.flags & 1)) continue;
        if (f.hasReferenceFrom(i.id, "thmb") || f.hasReferenceFrom(i.id, "auxl")) continue;
        if (!f.references(i.id, "dimg", false).empty()) continue;
        out.push_back(i.id);
    }
    return out;
}

// The metadata items that describe `image` through a content-describes reference.
std::vector<const Item*> describing(const File& f, std::uint32_t image) {
    std::vector<const Item*> out;
    for (const Reference* r : f.references(image, "cdsc", false))
        if (const Item* i = f.item(r->from); i && (isExif(*i) || isXMP(*i)) &&
                                            std::find(out.begin(), out.end(), i) == out.end())
            out.push_back(i);
    return out;
}

ByteSpan exifTIFF(const Bytes& payload) {
    // A 32-bit offset to the TIFF header, usually past an "Exif\0\0" identifier.
    const std::uint32_t skip = be32(payload, 0);
    return slice(payload, 4 + std::size_t{skip}, payload.size() - std::min<std::size_t>(payload.size(), 4 + std::size_t{skip}));
}

Properties frameProperties(const File& f, std::uint32_t image, std::size_t& work) {
    Properties frame;
    set(frame, key::colorModel, MetadataValue::string("RGB"));
    set(frame, key::depth, MetadataValue::integer(8));
    for (const Box* p : f.propertiesOf(image)) {
        if (p->type == "ispe" && p->body.size() >= 12) {
            set(frame, key::pixelWidth, MetadataValue::integer(be32(p->body, 4)));
            set(frame, key::pixelHeight, MetadataValue::integer(be32(p->body, 8)));
        } else if (p->type == "pixi" && p->body.size() >= 6 && p->body[4] >= 1) {
            set(frame, key::depth, MetadataValue::integer(p->body[5]));
            if (p->body[4] == 1) set(frame, key::colorModel, MetadataValue::string("Gray"));
        } else if (p->type == "colr" && p->body.size() > 4 && (startsWith(p->body, "prof") || startsWith(p->body, "rICC"))) {
            if (auto name = iccProfileDescription(p->body.subspan(4))) set(frame, key::profileName, MetadataValue::string(*name));
        }
    }
    bool alpha = false;
    for (const Reference* r : f.references(image, "auxl", false))
        for (const Box* p : f.propertiesOf(r->from))
                if (p->type == "auxC" && p->body.size() > 4) {
                    const std::string urn = text(p->body.subspan(4));
                    alpha = alpha || urn.find("auxid:1") != std::string::npos || urn.find("alpha") != std::string::npos;
                }
    set(frame, key::hasAlpha, MetadataValue::boolean(alpha));
    for (const Item* m : describing(f, image)) {
        const Bytes payload = itemData(f, *m, maxMetadataItemSize);
        work += payload.size();
        enforce(work <= maxMetadataWork, Case::limitExceeded, "HEIF metadata is repeated over too many images");
        if (isExif(*m)) addExifProperties(parseTiff(exifTIFF(payload), 2), 0, ExifContext::embedded, frame);
        else if (m->contentEncoding.empty()) mergeSubDictionary(frame, key::xmp, parseXMP(payload).properties);
    }
    return frame;
}

// Boxes of the output.
void putBox(Bytes& out, std::string_view type, ByteSpan body) {
    enforce(body.size() + 8 <= 0xFFFFFFFFu, Case::limitExceeded, "a HEIF box would exceed 4 GB");
    putBE32(out, static_cast<std::uint32_t>(body.size() + 8));
    append(out, type);
    append(out, body);
}

void putFullBoxHeader(Bytes& out, std::uint8_t version, std::uint32_t flags) {
    out.push_back(version);
    out.push_back(static_cast<std::uint8_t>(flags >> 16));
    out.push_back(static_cast<std::uint8_t>(flags >> 8));
    out.push_back(static_cast<std::uint8_t>(flags));
}

void putID(Bytes& out, std::uint32_t id, bool wide) {
    if (wide) putBE32(out, id);
    else putBE16(out, static_cast<std::uint16_t>(id));
}

// Properties that describe how to decode and show pixels; any other property is replaced by an
// empty free box, so that the indices of the others stay valid.
bool isDecodingProperty(std::string_view type) {
    static const std::set<std::string_view> types = {"hvcC", "av1C", "avcC", "vvcC", "jpgC", "j2kH", "ispe", "colr",
                                                     "pixi", "rloc", "auxC", "irot", "imir", "clap", "pasp", "lsel",
                                                     "a1op", "a1lx", "clli", "mdcv", "cclv", "amve", "uncC", "cmpd",
                                                     "cmin", "cmex"};
    return types.count(type) > 0;
}

struct NewItem {
    const Item* source;
    Bytes replacement;  // rebuilt Exif or XMP payload
    bool replaced = false;
};

}  // namespace

std::vector<Properties> readFrames(ByteSpan d) {
    const File f = parse(d);
    std::vector<Properties> frames;
    std::size_t work = 0;
    for (std::uint32_t id : topLevelImages(f)) frames.push_back(frameProperties(f, id, work));
    return frames;
}

std::vector<std::uint32_t> frameItemIDs(ByteSpan d) { return topLevelImages(parse(d)); }

bool sameCodedImages(ByteSpan a, ByteSpan b) {
    try {
        const File fa = parse(a), fb = parse(b);
        if (fa.primary != fb.primary || topLevelImages(fa) != topLevelImages(fb)) return false;
        // The coded images of each file by id: every image item but thumbnails.
        const auto coded = [](const File& f) {
            std::map<std::uint32_t, const Item*> out;
            for (const auto& item : f.items)
                if (isImageType(item.type) && !f.hasReferenceFrom(item.id, "thmb")) out.emplace(item.id, &item);
            return out;
        };
        const auto ca = coded(fa), cb = coded(fb);
        if (ca.size() != cb.size()) return false;
        // Items of a well-formed file never share bytes, so together they fit in the file.
        std::size_t budgetA = a.size(), budgetB = b.size();
        const auto decodingProperties = [](const File& f, std::uint32_t id) {
            std::vector<ByteSpan> out;
            for (const Box* p : f.propertiesOf(id))
                if (isDecodingProperty(p->type)) out.push_back(p->whole);
            return out;
        };
        const auto derivedFrom = [](const File& f, std::uint32_t id) {
            std::vector<std::uint32_t> out;
            for (const Reference* r : f.references(id, "dimg", true)) out.insert(out.end(), r->to.begin(), r->to.end());
            return out;
        };
        const auto sameBytes = [](ByteSpan x, ByteSpan y) { return std::equal(x.begin(), x.end(), y.begin(), y.end()); };
        for (const auto& [id, ia] : ca) {
            const auto it = cb.find(id);
            if (it == cb.end()) return false;
            const Item& ib = *it->second;
            if (ia->type != ib.type || (ia->flags & 1) != (ib.flags & 1)) return false;
            if (derivedFrom(fa, id) != derivedFrom(fb, id)) return false;
            const auto pa = decodingProperties(fa, id), pb = decodingProperties(fb, id);
            if (!std::equal(pa.begin(), pa.end(), pb.begin(), pb.end(), sameBytes)) return false;
            const Bytes da = itemData(fa, *ia, budgetA), db = itemData(fb, ib, budgetB);
            if (da != db) return false;
            budgetA -= da.size();
            budgetB -= db.size();
        }
        return true;
    } catch (const ImageFormatError&) {
        return false;
    }
}

Bytes rebuild(ByteSpan d, const std::vector<Properties>& filteredFrames) {
    enforce(!filteredFrames.empty(), Case::invalidStructure, "no frame properties to write");
    const File f = parse(d);
    const auto frames = topLevelImages(f);
    std::map<std::uint32_t, std::size_t> frameIndex;
    for (std::size_t i = 0; i < frames.size(); ++i) frameIndex.emplace(frames[i], i);
    auto filteredFor = [&](std::uint32_t image) -> const Properties& {
        return filteredFrames[std::min(frameIndex.at(image), filteredFrames.size() - 1)];
    };

    // Which items stay, and what the metadata items hold from now on.
    std::vector<NewItem> kept;
    for (const auto& item : f.items) {
        if (isImageType(item.type)) {
            if (!f.hasReferenceFrom(item.id, "thmb")) kept.push_back({&item, {}, false});
            continue;
        }
        if (!isExif(item) && !isXMP(item)) continue;
        // A metadata item is rebuilt from the filtered frame of the first image it describes.
        std::optional<std::uint32_t> target;
        for (const Reference* r : f.references(item.id, "cdsc", true))
            if (!r->to.empty()) target = r->to.front();
        if (!target || !frameIndex.count(*target)) continue;
        const Properties& filtered = filteredFor(*target);
        const Bytes payload = itemData(f, item, maxMetadataItemSize);
        Bytes rebuilt;
        if (isExif(item)) {
            const Bytes block = filteredExifBlock(parseTiff(exifTIFF(payload), 2), filtered);
            if (!block.empty()) {
                rebuilt = {0, 0, 0, 0};
                append(rebuilt, block);
            }
        } else if (item.contentEncoding.empty()) {
            const std::string packet = filteredXMPPacket(payload, subDictionary(filtered, key::xmp));
            append(rebuilt, packet);
        }
        if (!rebuilt.empty()) kept.push_back({&item, std::move(rebuilt), true});
    }
    std::set<std::uint32_t> keptIDs;
    for (const auto& k : kept) keptIDs.insert(k.source->id);
    const bool wide = !keptIDs.empty() && *keptIDs.rbegin() > 0xFFFF;

    // Item data: the idat-constructed items into a new idat, the others into the mdat.
    Bytes idat, mdat;
    struct Placement {
        bool inIdat;
        std::size_t offset, length;
    };
    std::vector<Placement> placements;
    // Items of a well-formed file never share bytes, so together they fit in the file; extents
    // pointing at the same bytes over and over must not multiply the output.
    std::size_t budget = d.size();
    for (const auto& k : kept) {
        const Bytes data = k.replaced ? k.replacement : itemData(f, *k.source, budget);
        if (!k.replaced) budget -= data.size();
        const bool inIdat = !k.replaced && k.source->constructionMethod == 1;
        Bytes& target = inIdat ? idat : mdat;
        placements.push_back({inIdat, target.size(), data.size()});
        append(target, data);
    }

    Bytes meta;
    putFullBoxHeader(meta, 0, 0);
    {
        Bytes hdlr;
        putFullBoxHeader(hdlr, 0, 0);
        putBE32(hdlr, 0);
        append(hdlr, f.handler);
        hdlr.insert(hdlr.end(), 12, 0);
        hdlr.push_back(0);  // an empty name
        putBox(meta, "hdlr", hdlr);
    }
    {
        Bytes dinf, dref, url;
        putFullBoxHeader(url, 0, 1);  // the data is in this file
        putFullBoxHeader(dref, 0, 0);
        putBE32(dref, 1);
        putBox(dref, "url ", url);
        putBox(dinf, "dref", dref);
        putBox(meta, "dinf", dinf);
    }
    {
        Bytes pitm;
        putFullBoxHeader(pitm, wide ? 1 : 0, 0);
        putID(pitm, f.primary, wide);
        putBox(meta, "pitm", pitm);
    }
    // Offsets into the mdat are patched once the position of its data is known.
    std::vector<std::pair<std::size_t, std::size_t>> mdatOffsetFields;  // position in meta, offset in mdat
    {
        Bytes iloc;
        putFullBoxHeader(iloc, wide ? 2 : 1, 0);
        iloc.push_back(0x44);  // 4-byte offsets and lengths
        iloc.push_back(0x00);  // no base offset, no extent index
        if (wide) putBE32(iloc, static_cast<std::uint32_t>(kept.size()));
        else putBE16(iloc, static_cast<std::uint16_t>(kept.size()));
        const std::size_t ilocStart = meta.size() + 8;
        for (std::size_t i = 0; i < kept.size(); ++i) {
            putID(iloc, kept[i].source->id, wide);
            putBE16(iloc, placements[i].inIdat ? 1 : 0);
            putBE16(iloc, 0);
            putBE16(iloc, 1);
            enforce(placements[i].offset <= 0xFFFFFFFFu && placements[i].length <= 0xFFFFFFFFu, Case::limitExceeded,
                    "a HEIF item would exceed 4 GB");
            if (!placements[i].inIdat) mdatOffsetFields.emplace_back(ilocStart + iloc.size(), placements[i].offset);
            putBE32(iloc, static_cast<std::uint32_t>(placements[i].offset));
            putBE32(iloc, static_cast<std::uint32_t>(placements[i].length));
        }
        putBox(meta, "iloc", iloc);
    }
    {
        Bytes iinf;
        const bool manyItems = kept.size() > 0xFFFF;
        putFullBoxHeader(iinf, manyItems ? 1 : 0, 0);
        if (manyItems) putBE32(iinf, static_cast<std::uint32_t>(kept.size()));
        else putBE16(iinf, static_cast<std::uint16_t>(kept.size()));
        for (const auto& k : kept) {
            const Item& item = *k.source;
            Bytes infe;
            putFullBoxHeader(infe, item.id > 0xFFFF ? 3 : 2, item.flags & 1);
            putID(infe, item.id, item.id > 0xFFFF);
            putBE16(infe, 0);
            append(infe, item.type);
            infe.push_back(0);  // no name
            if (item.type == "mime") {
                append(infe, item.contentType);
                infe.push_back(0);
            }
            putBox(iinf, "infe", infe);
        }
        putBox(meta, "iinf", iinf);
    }
    {
        Bytes iref;
        putFullBoxHeader(iref, wide ? 1 : 0, 0);
        bool any = false;
        for (const auto& r : f.refs) {
            if (!keptIDs.count(r.from)) continue;
            Bytes ref;
            putID(ref, r.from, wide);
            std::vector<std::uint32_t> to;
            for (std::uint32_t t : r.to)
                if (keptIDs.count(t)) to.push_back(t);
            if (to.empty()) continue;
            putBE16(ref, static_cast<std::uint16_t>(to.size()));
            for (std::uint32_t t : to) putID(ref, t, wide);
            putBox(iref, r.type, ref);
            any = true;
        }
        if (any) putBox(meta, "iref", iref);
    }
    {
        Bytes iprp, ipco;
        for (const auto& p : f.properties) {
            if (isDecodingProperty(p.type)) append(ipco, p.whole);
            else putBox(ipco, "free", {});
        }
        putBox(iprp, "ipco", ipco);
        for (const auto& a : f.associations) {
            Bytes ipma;
            putFullBoxHeader(ipma, a.version, a.flags);
            std::vector<std::pair<std::uint32_t, ByteSpan>> entries;
            for (const auto& [id, raw] : a.entries)
                if (keptIDs.count(id)) entries.emplace_back(id, raw);
            putBE32(ipma, static_cast<std::uint32_t>(entries.size()));
            for (const auto& [id, raw] : entries) {
                putID(ipma, id, a.version >= 1);
                append(ipma, raw);
            }
            putBox(iprp, "ipma", ipma);
        }
        putBox(meta, "iprp", iprp);
    }
    if (!idat.empty()) putBox(meta, "idat", idat);

    Bytes out;
    append(out, f.ftyp->whole);
    const std::size_t metaAt = out.size();
    putBox(out, "meta", meta);
    const std::size_t mdatDataAt = out.size() + 8;
    enforce(mdatDataAt + mdat.size() <= 0xFFFFFFFFu, Case::limitExceeded, "a HEIF file would exceed 4 GB");
    for (const auto& [field, offset] : mdatOffsetFields) {
        const auto absolute = static_cast<std::uint32_t>(mdatDataAt + offset);
        for (int i = 0; i < 4; ++i)
            out[metaAt + 8 + field + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(absolute >> (24 - 8 * i));
    }
    putBox(out, "mdat", mdat);
    return out;
}

}  // namespace tavrin::image::heifContainer
