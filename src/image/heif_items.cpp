#include "image/heif_items.h"

#include <algorithm>
#include <set>

#include <fmt/core.h>

namespace tavrin::image::heifItems {

namespace {

using Case = ImageFormatError::Case;

constexpr std::size_t maxBoxes = 1 << 20;
constexpr std::size_t maxItems = 1 << 14;
constexpr std::size_t maxReferences = 1 << 16;
constexpr std::size_t maxExtents = 1 << 18;  // over all items

using isoBoxes::boxesIn;

std::uint32_t fullBoxVersion(ByteSpan body) { return slice(body, 0, 1)[0]; }

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

}  // namespace

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

bool isDecodingProperty(std::string_view type) {
    static const std::set<std::string_view> types = {"hvcC", "av1C", "avcC", "vvcC", "jpgC", "j2kH", "ispe", "colr",
                                                     "pixi", "rloc", "auxC", "irot", "imir", "clap", "pasp", "lsel",
                                                     "a1op", "a1lx", "clli", "mdcv", "cclv", "amve", "uncC", "cmpd",
                                                     "cmin", "cmex"};
    return types.count(type) > 0;
}

}  // namespace tavrin::image::heifItems
