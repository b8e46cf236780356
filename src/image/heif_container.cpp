#include "image/heif_container.h"

#include <algorithm>
#include <map>

#include "image/exif_metadata.h"
#include "image/heif_items.h"
#include "image/icc_profile.h"
#include "image/xmp_metadata.h"

namespace tavrin::image::heifContainer {

using namespace heifItems;

namespace {

using Case = ImageFormatError::Case;

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


}  // namespace tavrin::image::heifContainer
