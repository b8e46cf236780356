#include "av/quicktime_walker.h"

#include <array>
#include <cstring>
#include <fmt/core.h>
#include <map>

namespace tavrin::quickTimeWalker {

using bytes::be16;
using bytes::be32;
using bytes::be64;
using Case = AVContainerError::Case;

namespace {

struct Box {
    std::uint64_t start = 0;
    std::uint64_t payload = 0;
    std::uint64_t end = 0;
    std::array<std::uint8_t, 4> type{};

    bool is(const char* t) const { return std::memcmp(type.data(), t, 4) == 0; }
    std::uint64_t payloadSize() const { return end - payload; }
    std::string typeText() const { return avBytes::fourCCText(type.data()); }
};

[[noreturn]] void badSize(const char* what, std::uint64_t at) {
    throw AVContainerError(Case::invalidAtomSize, fmt::format("{} at offset {}", what, at));
}

// Reads the atom header at `pos` inside [.., parentEnd). False at the end of a list: fewer
// than 8 bytes left that are all zero (QuickTime ends user data with a 32-bit zero), or any
// short tail at the top level.
bool readBox(const ByteSource& src, std::uint64_t pos, std::uint64_t parentEnd, bool topLevel, Box& box) {
    const std::uint64_t remaining = parentEnd - pos;
    if (remaining < 8) {
        if (topLevel || remaining == 0) return false;
        std::array<std::uint8_t, 8> tail{};
        src.read(pos, std::span(tail.data(), static_cast<std::size_t>(remaining)));
        for (std::uint64_t i = 0; i < remaining; ++i)
            if (tail[i] != 0) badSize("atom header cut short", pos);
        return false;
    }
    std::array<std::uint8_t, 16> head{};
    src.read(pos, std::span(head.data(), 8));
    std::memcpy(box.type.data(), head.data() + 4, 4);
    std::uint64_t size = be32(head.data());
    std::uint64_t headerSize = 8;
    if (size == 1) {
        if (remaining < 16) badSize("64-bit atom size cut short", pos);
        src.read(pos + 8, std::span(head.data() + 8, 8));
        size = be64(head.data() + 8);
        headerSize = 16;
    } else if (size == 0) {
        // Size 0 means "to the end of the file", which only the last top-level atom may say.
        if (!topLevel) badSize("atom of size 0 inside another atom", pos);
        size = remaining;
    }
    if (size < headerSize) badSize("atom smaller than its header", pos);
    if (size > remaining) badSize("atom larger than its parent", pos);
    box.start = pos;
    box.payload = pos + headerSize;
    box.end = pos + size;
    return true;
}

bool isContainer(const Box& b) { return b.is("moov") || b.is("trak") || b.is("mdia") || b.is("udta"); }

std::string commonKeyForUserData(const std::string& key) {
    static const std::map<std::string, std::string> table = {
        {"\u00a9nam", "title"},     {"\u00a9ART", "artist"},    {"\u00a9aut", "author"},
        {"\u00a9day", "creationDate"}, {"\u00a9xyz", "location"}, {"\u00a9mak", "make"},
        {"\u00a9mod", "model"},     {"\u00a9swr", "software"},  {"\u00a9cpy", "copyrights"},
        {"\u00a9des", "description"}, {"\u00a9alb", "album"},   {"\u00a9pub", "publisher"},
        // ISO / 3GPP user data
        {"titl", "title"},          {"auth", "author"},         {"cprt", "copyrights"},
        {"dscp", "description"},    {"perf", "artist"},         {"albm", "album"},
        {"loci", "location"},
    };
    auto it = table.find(key);
    return it == table.end() ? "" : it->second;
}

std::string commonKeyForITunes(const std::string& key) {
    static const std::map<std::string, std::string> table = {
        {"\u00a9nam", "title"}, {"\u00a9ART", "artist"},      {"\u00a9alb", "album"},
        {"\u00a9day", "creationDate"}, {"\u00a9too", "software"}, {"cprt", "copyrights"},
        {"desc", "description"}, {"covr", "artwork"},         {"\u00a9pub", "publisher"},
    };
    auto it = table.find(key);
    return it == table.end() ? "" : it->second;
}

std::string commonKeyForQuickTimeMetadata(const std::string& key) {
    static const std::map<std::string, std::string> table = {
        {"com.apple.quicktime.title", "title"},
        {"com.apple.quicktime.artist", "artist"},
        {"com.apple.quicktime.author", "author"},
        {"com.apple.quicktime.album", "album"},
        {"com.apple.quicktime.copyright", "copyrights"},
        {"com.apple.quicktime.description", "description"},
        {"com.apple.quicktime.creationdate", "creationDate"},
        {"com.apple.quicktime.location.ISO6709", "location"},
        {"com.apple.quicktime.make", "make"},
        {"com.apple.quicktime.model", "model"},
        {"com.apple.quicktime.software", "software"},
        {"com.apple.quicktime.publisher", "publisher"},
        {"com.apple.quicktime.artwork", "artwork"},
    };
    auto it = table.find(key);
    return it == table.end() ? "" : it->second;
}

// ISO 3GPP strings: UTF-16 when they start with a byte-order mark, UTF-8 otherwise.
std::string isoString(std::span<const std::uint8_t> b) {
    if (b.size() >= 2 && b[0] == 0xFE && b[1] == 0xFF) return avBytes::trimmed(avBytes::utf16ToUTF8(b.subspan(2), true));
    if (b.size() >= 2 && b[0] == 0xFF && b[1] == 0xFE) return avBytes::trimmed(avBytes::utf16ToUTF8(b.subspan(2), false));
    return avBytes::trimmed(avBytes::textFromBytes(b));
}

// A 16.16 fixed-point coordinate as ISO 6709 text ("+48.8584").
std::string fixedCoordinate(std::uint32_t raw, int integerDigits) {
    const double v = static_cast<std::int32_t>(raw) / 65536.0;
    return fmt::format("{:+0{}.4f}", v, integerDigits + 6);
}

AVRawValue isoUserDataValue(const std::string& key, std::span<const std::uint8_t> p) {
    if (key == "yrrc") {
        if (p.size() < 6) return {};
        return static_cast<double>(be16(p.data() + 4));
    }
    if (key == "loci") {
        // full box, language, name (NUL-terminated), role, longitude, latitude, altitude (16.16).
        if (p.size() < 6) return {};
        std::size_t i = 6;
        while (i < p.size() && p[i] != 0) ++i;
        const std::string name = isoString(p.subspan(6, i - 6));
        i += 1 + 1;
        if (p.size() < i + 12) return name.empty() ? AVRawValue{} : AVRawValue{name};
        std::string text = fixedCoordinate(be32(p.data() + i + 4), 2) + fixedCoordinate(be32(p.data() + i), 3) +
                           fmt::format("{:+.3f}", static_cast<std::int32_t>(be32(p.data() + i + 8)) / 65536.0) + "/";
        if (!name.empty()) text += " " + name;
        return text;
    }
    if (p.size() < 6) return {};
    return isoString(p.subspan(6));
}

bool isISOUserDataKey(const std::string& key) {
    for (const char* k : {"cprt", "auth", "titl", "dscp", "perf", "gnre", "albm", "yrrc", "loci"})
        if (key == k) return true;
    return false;
}

void userDataAtom(const ByteSource& src, const Box& box, AVAssetMetadata& out) {
    if (box.is("free") || box.is("skip") || box.is("wide") || box.is("meta")) return;
    const std::string key = box.typeText();
    if (box.payloadSize() > avLimits::maxValueBytes) {
        out.add({"qtud/" + key, commonKeyForUserData(key), {}});
        return;
    }
    const auto p = src.readBytes(box.payload, box.payloadSize(), avLimits::maxValueBytes);
    if (box.type[0] == 0xA9) {
        AVRawValue value;
        if (p.size() >= 16 && std::memcmp(p.data() + 4, "data", 4) == 0) {
            // iTunes style: a `data` atom inside the user data atom.
            const std::uint64_t dataSize = std::min<std::uint64_t>(be32(p.data()), p.size());
            if (dataSize >= 16)
                value = dataAtomValue(be32(p.data() + 8), std::span(p).subspan(16, static_cast<std::size_t>(dataSize - 16)));
        } else if (p.size() >= 4) {
            // QuickTime text: records of (length, language, text); the first one speaks for all.
            const std::size_t length = std::min<std::size_t>(be16(p.data()), p.size() - 4);
            value = avBytes::trimmed(avBytes::textFromBytes(std::span(p).subspan(4, length)));
        }
        out.add({"qtud/" + key, commonKeyForUserData(key), std::move(value)});
        return;
    }
    if (isISOUserDataKey(key)) {
        out.add({"uiso/" + key, commonKeyForUserData(key), isoUserDataValue(key, p)});
        return;
    }
    out.add({"qtud/" + key, "", std::move(p)});
}

struct HeaderTimes {
    std::optional<Date> created;
    std::optional<Date> modified;
};

HeaderTimes headerTimes(const ByteSource& src, const Box& box) {
    std::array<std::uint8_t, 20> p{};
    const std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(box.payloadSize(), p.size()));
    src.read(box.payload, std::span(p.data(), n));
    if (n < 12) return {};
    if (p[0] == 1) {
        if (n < 20) return {};
        return {dateFrom1904Seconds(be64(p.data() + 4)), dateFrom1904Seconds(be64(p.data() + 12))};
    }
    return {dateFrom1904Seconds(be32(p.data() + 4)), dateFrom1904Seconds(be32(p.data() + 8))};
}

// The `data` atom of one `ilst` item, and for `----` items its `mean` and `name`.
struct ItemParts {
    std::optional<AVRawValue> value;
    std::string mean;
    std::string name;
};

ItemParts readItem(const ByteSource& src, const Box& item) {
    ItemParts parts;
    Box child;
    std::size_t count = 0;
    for (std::uint64_t pos = item.payload; pos < item.end && readBox(src, pos, item.end, false, child); pos = child.end) {
        enforce(++count <= avLimits::maxBlocks, Case::tooManyItems, "ilst item");
        if (child.is("data") && !parts.value) {
            if (child.payloadSize() < 8) {
                parts.value.emplace();
                continue;
            }
            std::array<std::uint8_t, 8> head{};
            src.read(child.payload, head);
            const std::uint64_t valueSize = child.payloadSize() - 8;
            if (valueSize > avLimits::maxValueBytes) {
                parts.value.emplace();
                continue;
            }
            const auto bytes = src.readBytes(child.payload + 8, valueSize, avLimits::maxValueBytes);
            parts.value = dataAtomValue(be32(head.data()), bytes);
        } else if ((child.is("mean") || child.is("name")) && child.payloadSize() >= 4 && child.payloadSize() < 4096) {
            const auto bytes = src.readBytes(child.payload + 4, child.payloadSize() - 4, 4096);
            (child.is("mean") ? parts.mean : parts.name) = avBytes::textFromBytes(bytes);
        }
    }
    return parts;
}

void readMeta(const ByteSource& src, const Box& meta, AVAssetMetadata& out) {
    // QuickTime's `meta` is a plain atom; the ISO and iTunes one is a full box with four bytes
    // of version and flags. The child list tells which: `hdlr` comes first.
    std::uint64_t first = meta.payload;
    if (meta.payloadSize() >= 8) {
        std::array<std::uint8_t, 8> head{};
        src.read(meta.payload, head);
        if (std::memcmp(head.data() + 4, "hdlr", 4) != 0) first += 4;
    } else {
        return;
    }
    std::string handler;
    std::vector<std::string> keys;
    std::optional<Box> ilst;
    Box child;
    std::size_t count = 0;
    for (std::uint64_t pos = first; pos < meta.end && readBox(src, pos, meta.end, false, child); pos = child.end) {
        enforce(++count <= avLimits::maxBlocks, Case::tooManyItems, "meta");
        if (child.is("hdlr") && child.payloadSize() >= 12) {
            std::array<std::uint8_t, 12> p{};
            src.read(child.payload, p);
            handler = std::string(reinterpret_cast<const char*>(p.data() + 8), 4);
        } else if (child.is("keys")) {
            const auto p = src.readBytes(child.payload, child.payloadSize(), avLimits::maxStructureBytes);
            enforce(p.size() >= 8, Case::truncated, "keys");
            const std::uint32_t n = be32(p.data() + 4);
            enforce(n <= (p.size() - 8) / 8, Case::truncated, "keys count");
            std::size_t at = 8;
            for (std::uint32_t i = 0; i < n; ++i) {
                enforce(p.size() - at >= 8, Case::truncated, "keys entry");
                const std::uint32_t size = be32(p.data() + at);
                enforce(size >= 8 && size <= p.size() - at, Case::invalidAtomSize, "keys entry");
                std::string space = avBytes::fourCCText(p.data() + at + 4);
                keys.push_back(space + "/" + avBytes::textFromBytes(std::span(p).subspan(at + 8, size - 8)));
                at += size;
            }
        } else if (child.is("ilst")) {
            ilst = child;
        }
    }
    if (!ilst) return;
    const bool keyed = handler == "mdta";
    Box item;
    count = 0;
    for (std::uint64_t pos = ilst->payload; pos < ilst->end && readBox(src, pos, ilst->end, false, item); pos = item.end) {
        enforce(++count <= avLimits::maxBlocks, Case::tooManyItems, "ilst");
        ItemParts parts = readItem(src, item);
        std::string identifier;
        std::string common;
        if (keyed) {
            const std::uint32_t index = be32(item.type.data());
            if (index == 0 || index > keys.size()) continue;
            identifier = keys[index - 1];
            if (identifier.starts_with("mdta/")) common = commonKeyForQuickTimeMetadata(identifier.substr(5));
        } else if (item.is("----")) {
            if (parts.name.empty()) continue;
            identifier = "itlk/" + (parts.mean.empty() ? parts.name : parts.mean + "." + parts.name);
        } else {
            const std::string key = item.typeText();
            identifier = "itsk/" + key;
            common = commonKeyForITunes(key);
        }
        out.add({identifier, common, parts.value ? std::move(*parts.value) : AVRawValue{}});
    }
}

struct Frame {
    std::uint64_t pos;
    std::uint64_t end;
    int depth;
    bool inUserData;
    int track;  // 1-based index of the enclosing track; 0 outside tracks
};

}  // namespace

AVRawValue dataAtomValue(std::uint32_t typeIndicator, std::span<const std::uint8_t> b) {
    const std::uint32_t type = typeIndicator & 0x00FFFFFF;
    switch (type) {
        case 1:
        case 4: return avBytes::trimmed(avBytes::textFromBytes(b));
        case 2:
        case 5: return avBytes::trimmed(avBytes::utf16ToUTF8(b, true));
        case 21: {
            if (b.empty() || b.size() > 8) return std::vector<std::uint8_t>(b.begin(), b.end());
            std::int64_t v = (b[0] & 0x80) ? -1 : 0;
            for (std::uint8_t c : b) v = static_cast<std::int64_t>(static_cast<std::uint64_t>(v) << 8 | c);
            return static_cast<double>(v);
        }
        case 22: {
            if (b.empty() || b.size() > 8) return std::vector<std::uint8_t>(b.begin(), b.end());
            std::uint64_t v = 0;
            for (std::uint8_t c : b) v = v << 8 | c;
            return static_cast<double>(v);
        }
        case 23: {
            if (b.size() != 4) break;
            const std::uint32_t bits = be32(b.data());
            float f;
            std::memcpy(&f, &bits, 4);
            return static_cast<double>(f);
        }
        case 24: {
            if (b.size() != 8) break;
            const std::uint64_t bits = be64(b.data());
            double d;
            std::memcpy(&d, &bits, 8);
            return d;
        }
        default: break;
    }
    return std::vector<std::uint8_t>(b.begin(), b.end());
}

void walk(const ByteSource& src, AVAssetMetadata& out) {
    std::vector<Frame> stack{{0, src.size(), 0, false, 0}};
    std::optional<Date> movieCreated;
    std::optional<Date> movieModified;
    int tracks = 0;
    std::size_t boxes = 0;
    while (!stack.empty()) {
        Frame& frame = stack.back();
        Box box;
        if (frame.pos >= frame.end || !readBox(src, frame.pos, frame.end, frame.depth == 0, box)) {
            stack.pop_back();
            continue;
        }
        enforce(++boxes <= avLimits::maxBlocks, Case::tooManyItems, "atoms");
        frame.pos = box.end;
        const Frame parent = frame;  // `frame` dangles once the stack grows
        if (isContainer(box)) {
            if (parent.depth + 1 > avLimits::maxDepth) throw AVContainerError(Case::nestingTooDeep, box.typeText());
            const int track = box.is("trak") ? ++tracks : parent.track;
            stack.push_back({box.payload, box.end, parent.depth + 1, box.is("udta"), track});
            continue;
        }
        if (parent.depth == 0) continue;  // ftyp, mdat, free: nothing to read
        if (box.is("meta")) {
            readMeta(src, box, out);
        } else if (box.is("mvhd")) {
            const auto t = headerTimes(src, box);
            movieCreated = t.created;
            movieModified = t.modified;
            if (t.created) out.add({"mvhd/movieCreationDate", "", *t.created});
            if (t.modified) out.add({"mvhd/movieModificationDate", "", *t.modified});
            if (t.created && !out.creationDate) out.creationDate = t.created;
        } else if (box.is("tkhd") || box.is("mdhd")) {
            // Track and media times usually repeat the movie's; they are listed only where
            // they differ, which is where an edited file shows its history.
            const auto t = headerTimes(src, box);
            const bool media = box.is("mdhd");
            const std::string prefix =
                fmt::format("{}/track{}{}", media ? "mdhd" : "tkhd", parent.track, media ? "Media" : "");
            if (t.created && t.created != movieCreated) out.add({prefix + "CreationDate", "", *t.created});
            if (t.modified && t.modified != movieModified) out.add({prefix + "ModificationDate", "", *t.modified});
        } else if (parent.inUserData) {
            userDataAtom(src, box, out);
        }
    }
}

}  // namespace tavrin::quickTimeWalker
