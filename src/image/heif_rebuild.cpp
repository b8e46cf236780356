// The rebuild of a HEIF file: a new meta box with the coded image items, their decoding
// properties (any other property becomes an empty free box, so that the indices of the others
// stay valid) and references, Exif and XMP rebuilt from the filtered frames, and one mdat.
#include "image/heif_container.h"

#include <map>
#include <optional>
#include <set>

#include "image/exif_metadata.h"
#include "image/heif_items.h"
#include "image/icc_profile.h"
#include "image/xmp_metadata.h"

namespace tavrin::image::heifContainer {

using namespace heifItems;

namespace {

using Case = ImageFormatError::Case;

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

struct NewItem {
    const Item* source;
    Bytes replacement;  // rebuilt Exif or XMP payload
    bool replaced = false;
};

}  // namespace

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
            // A colour profile stays unless its name is personal and the cleaning profile
            // removes it from the primary image's properties.
            const bool personalProfile = p.type == "colr" && p.body.size() > 4 &&
                                         (startsWith(p.body, "prof") || startsWith(p.body, "rICC")) &&
                                         !keepsICCProfile(p.body.subspan(4), filteredFrames.front());
            if (isDecodingProperty(p.type) && !personalProfile) append(ipco, p.whole);
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
