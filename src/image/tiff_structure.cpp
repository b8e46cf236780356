#include "image/tiff_structure.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <set>

namespace tavrin::image {

namespace {

using Case = ImageFormatError::Case;

// Beyond these a file is hostile or broken; no camera or scanner writes anything near them.
constexpr std::size_t maxEntriesPerDirectory = 4096;
constexpr std::size_t maxDirectories = 70000;

struct Parser {
    ByteSpan data;
    Endian endian;
    std::set<std::uint32_t> visited;

    TiffDirectory directory(std::uint32_t offset, std::uint32_t* next) {
        enforce(visited.insert(offset).second, Case::invalidStructure, "a TIFF directory chain loops");
        enforce(visited.size() <= maxDirectories, Case::limitExceeded, "too many TIFF directories");
        const std::size_t count = endian.u16(data, offset);
        enforce(count <= maxEntriesPerDirectory, Case::limitExceeded, "a TIFF directory has too many entries");
        (void)slice(data, offset, 2 + 12 * count);
        TiffDirectory dir;
        dir.entries.reserve(count);
        for (std::size_t i = 0; i < count; ++i) {
            const std::size_t at = offset + 2 + 12 * i;
            TiffEntry e;
            e.tag = endian.u16(data, at);
            e.type = endian.u16(data, at + 2);
            e.count = endian.u32(data, at + 4);
            const std::size_t size = tiffTypeSize(e.type);
            if (size == 0) continue;  // an unknown type cannot be sized; such an entry is skipped, never copied
            enforce(e.count <= data.size() / size, Case::invalidStructure, "a TIFF entry count exceeds the data");
            const std::size_t bytes = size * e.count;
            if (bytes <= 4) {
                e.value = slice(data, at + 8, bytes);
            } else {
                const std::uint32_t valueOffset = endian.u32(data, at + 8);
                enforce(fits(data, valueOffset, bytes), Case::invalidStructure,
                        "a TIFF entry value lies outside the data");
                e.value = data.subspan(valueOffset, bytes);
            }
            dir.entries.push_back(e);
        }
        if (next) *next = fits(data, offset + 2 + 12 * count, 4) ? endian.u32(data, offset + 2 + 12 * count) : 0;
        return dir;
    }

    std::optional<TiffDirectory> pointed(const TiffDirectory& from, std::uint16_t tag) {
        const TiffEntry* e = from.find(tag);
        if (!e || e->count < 1 || (e->type != 4 && e->type != 13) ) return std::nullopt;
        return directory(endian.u32(e->value, 0), nullptr);
    }
};

}  // namespace

const TiffEntry* TiffDirectory::find(std::uint16_t tag) const {
    for (const auto& e : entries)
        if (e.tag == tag) return &e;
    return nullptr;
}

std::size_t tiffTypeSize(std::uint16_t type) {
    switch (type) {
        case 1: case 2: case 6: case 7: return 1;
        case 3: case 8: return 2;
        case 4: case 9: case 11: case 13: return 4;
        case 5: case 10: case 12: return 8;
        default: return 0;
    }
}

std::optional<std::uint64_t> TiffStructure::unsignedValue(const TiffEntry& e, std::size_t index) const {
    const std::size_t size = tiffTypeSize(e.type);
    if (size == 0 || index >= e.count) return std::nullopt;
    const std::size_t at = index * size;
    switch (e.type) {
        case 1: case 7: return e.value[at];
        case 3: return endian.u16(e.value, at);
        case 4: case 13: return endian.u32(e.value, at);
        default: return std::nullopt;
    }
}

std::optional<double> TiffStructure::doubleValue(const TiffEntry& e, std::size_t index) const {
    const std::size_t size = tiffTypeSize(e.type);
    if (size == 0 || index >= e.count) return std::nullopt;
    const std::size_t at = index * size;
    switch (e.type) {
        case 1: case 7: return e.value[at];
        case 6: return static_cast<std::int8_t>(e.value[at]);
        case 3: return endian.u16(e.value, at);
        case 8: return static_cast<std::int16_t>(endian.u16(e.value, at));
        case 4: case 13: return endian.u32(e.value, at);
        case 9: return static_cast<std::int32_t>(endian.u32(e.value, at));
        case 5: {
            const double den = endian.u32(e.value, at + 4);
            return den == 0 ? 0.0 : endian.u32(e.value, at) / den;
        }
        case 10: {
            const double den = static_cast<std::int32_t>(endian.u32(e.value, at + 4));
            return den == 0 ? 0.0 : static_cast<std::int32_t>(endian.u32(e.value, at)) / den;
        }
        case 11: {
            const std::uint32_t bits = endian.u32(e.value, at);
            float f;
            std::memcpy(&f, &bits, 4);
            return f;
        }
        case 12: {
            const std::uint64_t bits = std::uint64_t{endian.u32(e.value, at + (endian.little ? 4 : 0))} << 32 |
                                       endian.u32(e.value, at + (endian.little ? 0 : 4));
            double d;
            std::memcpy(&d, &bits, 8);
            return d;
        }
        default: return std::nullopt;
    }
}

TiffStructure parseTiff(ByteSpan data, std::size_t maxPages) {
    enforce(data.size() >= 8, Case::truncated, "a TIFF header is shorter than 8 bytes");
    TiffStructure s;
    s.data = data;
    if (data[0] == 'I' && data[1] == 'I') s.endian.little = true;
    else enforce(data[0] == 'M' && data[1] == 'M', Case::invalidStructure, "no TIFF byte-order mark");
    // 42 is TIFF; raw formats use their own magic numbers (Olympus "RO", Panasonic 0x55) over the same layout.
    const std::uint16_t magic = s.endian.u16(data, 2);
    enforce(magic == 42 || magic == 0x4F52 || magic == 0x5352 || magic == 0x55, Case::invalidStructure,
            "no TIFF magic number");
    Parser p{data, s.endian, {}};
    std::uint32_t offset = s.endian.u32(data, 4);
    while (offset != 0 && s.pages.size() < maxPages) {
        TiffPage page;
        std::uint32_t next = 0;
        page.main = p.directory(offset, &next);
        page.exif = p.pointed(page.main, tiffTag::exifIFD);
        page.gps = p.pointed(page.main, tiffTag::gpsIFD);
        if (page.exif) page.interop = p.pointed(*page.exif, tiffTag::interopIFD);
        s.pages.push_back(std::move(page));
        offset = next;
    }
    enforce(!s.pages.empty(), Case::invalidStructure, "a TIFF structure has no directory");
    return s;
}

TiffOutEntry copyEntry(const TiffEntry& entry) {
    return {entry.tag, entry.type, entry.count, Bytes(entry.value.begin(), entry.value.end())};
}

namespace {

struct DirectoryWriter {
    Endian endian;
    Bytes& out;

    void align() {
        if (out.size() % 2) out.push_back(0);
    }
    std::uint32_t position() const {
        enforce(out.size() < std::numeric_limits<std::uint32_t>::max(), Case::limitExceeded,
                "a TIFF file would exceed 4 GB");
        return static_cast<std::uint32_t>(out.size());
    }

    // Writes the directory at the current position; returns, per entry in tag order, where its
    // value bytes ended up, and where the next-directory field is.
    std::vector<std::pair<std::uint16_t, std::size_t>> write(std::vector<TiffOutEntry> entries, std::size_t* nextField) {
        std::stable_sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.tag < b.tag; });
        align();
        const std::size_t start = out.size();
        endian.put16(out, static_cast<std::uint16_t>(entries.size()));
        out.resize(start + 2 + 12 * entries.size() + 4, 0);
        if (nextField) *nextField = start + 2 + 12 * entries.size();
        std::vector<std::pair<std::uint16_t, std::size_t>> where;
        for (std::size_t i = 0; i < entries.size(); ++i) {
            const auto& e = entries[i];
            const std::size_t at = start + 2 + 12 * i;
            Bytes head;
            endian.put16(head, e.tag);
            endian.put16(head, e.type);
            endian.put32(head, e.count);
            std::copy(head.begin(), head.end(), out.begin() + static_cast<std::ptrdiff_t>(at));
            if (e.value.size() <= 4) {
                std::copy(e.value.begin(), e.value.end(), out.begin() + static_cast<std::ptrdiff_t>(at + 8));
                where.emplace_back(e.tag, at + 8);
            } else {
                align();
                const std::uint32_t valueAt = position();
                endian.set32(out, at + 8, valueAt);
                out.insert(out.end(), e.value.begin(), e.value.end());
                where.emplace_back(e.tag, valueAt);
            }
        }
        return where;
    }
};

TiffOutEntry pointerEntry(std::uint16_t tag) { return {tag, 4, 1, Bytes(4, 0)}; }

std::size_t valueAt(const std::vector<std::pair<std::uint16_t, std::size_t>>& where, std::uint16_t tag) {
    for (const auto& [t, at] : where)
        if (t == tag) return at;
    return 0;
}

}  // namespace

Bytes writeTiff(Endian endian, const std::vector<TiffOutPage>& pages) {
    Bytes out = endian.little ? Bytes{'I', 'I', 42, 0} : Bytes{'M', 'M', 0, 42};
    endian.put32(out, 8);
    DirectoryWriter w{endian, out};
    std::size_t previousNext = 4;
    for (const auto& page : pages) {
        std::vector<TiffOutEntry> main;
        for (const auto& e : page.main.entries)
            if (e.tag != tiffTag::exifIFD && e.tag != tiffTag::gpsIFD && e.tag != tiffTag::subIFDs &&
                (page.offsetsTag == 0 || e.tag != page.offsetsTag))
                main.push_back(e);
        if (!page.exif.empty() || !page.interop.empty()) main.push_back(pointerEntry(tiffTag::exifIFD));
        if (!page.gps.empty()) main.push_back(pointerEntry(tiffTag::gpsIFD));
        if (page.offsetsTag != 0)
            main.push_back({page.offsetsTag, 4, static_cast<std::uint32_t>(page.imageData.size()),
                            Bytes(4 * page.imageData.size(), 0)});
        w.align();
        endian.set32(out, previousNext, w.position());
        const auto where = w.write(std::move(main), &previousNext);

        if (!page.exif.empty() || !page.interop.empty()) {
            auto exifEntries = page.exif.entries;
            std::erase_if(exifEntries, [](const auto& e) { return e.tag == tiffTag::interopIFD; });
            if (!page.interop.empty()) exifEntries.push_back(pointerEntry(tiffTag::interopIFD));
            w.align();
            endian.set32(out, valueAt(where, tiffTag::exifIFD), w.position());
            const auto exifWhere = w.write(std::move(exifEntries), nullptr);
            if (!page.interop.empty()) {
                w.align();
                endian.set32(out, valueAt(exifWhere, tiffTag::interopIFD), w.position());
                w.write(page.interop.entries, nullptr);
            }
        }
        if (!page.gps.empty()) {
            w.align();
            endian.set32(out, valueAt(where, tiffTag::gpsIFD), w.position());
            w.write(page.gps.entries, nullptr);
        }
        if (page.offsetsTag != 0) {
            const std::size_t offsetsAt = valueAt(where, page.offsetsTag);
            for (std::size_t i = 0; i < page.imageData.size(); ++i) {
                w.align();
                endian.set32(out, offsetsAt + 4 * i, w.position());
                append(out, page.imageData[i]);
            }
        }
    }
    (void)w.position();
    return out;
}

}  // namespace tavrin::image
