#pragma once
// The item structure of a HEIF file, read once and shared by the reader, the comparison of coded
// images and the rebuild: items with their locations, references between them, properties and
// their associations, and the item data box. Internal to the image layer.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "image/image_bytes.h"
#include "image/iso_boxes.h"

namespace tavrin::image::heifItems {

inline constexpr std::size_t maxMetadataItemSize = 64 << 20;
// Metadata items read for all frames together; one item may describe many frames.
inline constexpr std::size_t maxMetadataWork = 256 << 20;

using isoBoxes::Box;

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

// The file's boxes and items; every item location is checked to lie inside the file or the item
// data box, and every image a derived image names must exist. Throws `ImageFormatError`.
File parse(ByteSpan heif);

// The item's data, its extents joined; at most `limit` bytes.
Bytes itemData(const File& f, const Item& item, std::size_t limit);

bool isImageType(std::string_view type);
bool isExif(const Item& i);
bool isXMP(const Item& i);

// The images that count as frames: not hidden, no thumbnail, no auxiliary image, no tile or
// other input of a derived image (some phones leave their tiles visible); the primary first.
std::vector<std::uint32_t> topLevelImages(const File& f);

// The metadata items that describe `image` through a content-describes reference.
std::vector<const Item*> describing(const File& f, std::uint32_t image);

// The TIFF structure inside an Exif item's payload.
ByteSpan exifTIFF(const Bytes& payload);

// Properties that describe how to decode and show pixels.
bool isDecodingProperty(std::string_view type);

}  // namespace tavrin::image::heifItems
