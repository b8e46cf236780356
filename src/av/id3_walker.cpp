#include "av/id3_walker.h"

#include <array>
#include <cstring>
#include <fmt/core.h>
#include <map>

namespace tavrin::id3Walker {

using bytes::be32;
using Case = AVContainerError::Case;
using Bytes = std::vector<std::uint8_t>;

namespace {

std::uint32_t syncsafe(const std::uint8_t* p) {
    for (int i = 0; i < 4; ++i)
        enforce((p[i] & 0x80) == 0, Case::invalidSyncsafeInteger);
    return static_cast<std::uint32_t>(p[0]) << 21 | static_cast<std::uint32_t>(p[1]) << 14 |
           static_cast<std::uint32_t>(p[2]) << 7 | p[3];
}

// Undoes unsynchronisation: every 0xFF 0x00 pair stands for 0xFF.
Bytes resynchronised(std::span<const std::uint8_t> in) {
    Bytes out;
    out.reserve(in.size());
    for (std::size_t i = 0; i < in.size(); ++i) {
        out.push_back(in[i]);
        if (in[i] == 0xFF && i + 1 < in.size() && in[i + 1] == 0x00) ++i;
    }
    return out;
}

// Text in one of the four ID3 encodings.
std::string decodeText(std::uint8_t encoding, std::span<const std::uint8_t> b) {
    switch (encoding) {
        case 0: return avBytes::latin1ToUTF8(b);
        case 1:
            if (b.size() >= 2 && b[0] == 0xFF && b[1] == 0xFE) return avBytes::utf16ToUTF8(b.subspan(2), false);
            if (b.size() >= 2 && b[0] == 0xFE && b[1] == 0xFF) return avBytes::utf16ToUTF8(b.subspan(2), true);
            return avBytes::utf16ToUTF8(b, false);
        case 2: return avBytes::utf16ToUTF8(b, true);
        default: return avBytes::textFromBytes(b);
    }
}

// Splits at the first terminator of the encoding (one NUL, or an aligned NUL pair for UTF-16).
std::pair<std::span<const std::uint8_t>, std::span<const std::uint8_t>> splitTerminated(std::uint8_t encoding,
                                                                                      std::span<const std::uint8_t> b) {
    const bool wide = encoding == 1 || encoding == 2;
    const std::size_t step = wide ? 2 : 1;
    for (std::size_t i = 0; i + step <= b.size(); i += step) {
        if (b[i] == 0 && (!wide || b[i + 1] == 0)) return {b.subspan(0, i), b.subspan(i + step)};
    }
    return {b, {}};
}

// Several values (version 2.4 separates them with NULs) joined for display.
std::string textValue(std::uint8_t encoding, std::span<const std::uint8_t> b) {
    std::string out;
    while (!b.empty()) {
        auto [first, rest] = splitTerminated(encoding, b);
        std::string part = decodeText(encoding, first);
        if (!part.empty()) out += (out.empty() ? "" : "; ") + part;
        if (rest.data() == nullptr || rest.empty()) break;
        b = rest;
    }
    return avBytes::trimmed(out);
}

std::string commonKeyFor(const std::string& id) {
    static const std::map<std::string, std::string> table = {
        {"TIT2", "title"}, {"TPE1", "artist"}, {"TALB", "album"},     {"TYER", "creationDate"},
        {"TDRC", "creationDate"}, {"TSSE", "software"}, {"TCOP", "copyrights"}, {"APIC", "artwork"},
        {"TPUB", "publisher"}, {"TCOM", "creator"},
        {"TT2", "title"}, {"TP1", "artist"}, {"TAL", "album"}, {"TYE", "creationDate"}, {"TSS", "software"},
        {"TCR", "copyrights"}, {"PIC", "artwork"}, {"TPB", "publisher"}, {"TCM", "creator"},
    };
    auto it = table.find(id);
    return it == table.end() ? "" : it->second;
}

// One frame's entry, named by its frame id; user-defined frames add their description.
AVMetadataEntry frameEntry(const std::string& id, std::span<const std::uint8_t> b) {
    AVMetadataEntry e{"id3/" + id, commonKeyFor(id), {}};
    const bool v22 = id.size() == 3;
    if (b.empty()) return e;
    const std::uint8_t enc = b[0];
    if (id == "TXXX" || id == "TXX" || id == "WXXX" || id == "WXX") {
        auto [desc, value] = splitTerminated(enc, b.subspan(1));
        const std::string d = decodeText(enc, desc);
        if (!d.empty()) e.identifier += ":" + d;
        e.value = id[0] == 'W' ? avBytes::trimmed(avBytes::latin1ToUTF8(value)) : textValue(enc, value);
    } else if (id[0] == 'T') {
        e.value = textValue(enc, b.subspan(1));
    } else if (id[0] == 'W') {
        e.value = avBytes::trimmed(avBytes::latin1ToUTF8(b));
    } else if (id == "COMM" || id == "COM" || id == "USLT" || id == "ULT") {
        if (b.size() < 4) return e;
        auto [desc, text] = splitTerminated(enc, b.subspan(4));
        const std::string d = decodeText(enc, desc);
        if (!d.empty()) e.identifier += ":" + d;
        e.value = avBytes::trimmed(decodeText(enc, text));
    } else if (id == "APIC" || id == "PIC") {
        // encoding, MIME type (v2.2: three-letter format), picture type, description, picture.
        std::span<const std::uint8_t> rest = b.subspan(1);
        if (v22) {
            if (rest.size() < 3) return e;
            rest = rest.subspan(3);
        } else {
            rest = splitTerminated(0, rest).second;
        }
        if (rest.empty()) return e;
        rest = splitTerminated(enc, rest.subspan(1)).second;
        e.value = Bytes(rest.begin(), rest.end());
    } else if (id == "PRIV") {
        auto [owner, data] = splitTerminated(0, b);
        const std::string o = avBytes::latin1ToUTF8(owner);
        if (!o.empty()) e.identifier += ":" + o;
        e.value = Bytes(data.begin(), data.end());
    } else {
        e.value = Bytes(b.begin(), b.end());
    }
    return e;
}

bool isFrameIdChar(std::uint8_t c) { return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); }

}  // namespace

std::uint64_t tagSize(const ByteSource& src, std::uint64_t offset) {
    if (offset > src.size() || src.size() - offset < 10) return 0;
    std::array<std::uint8_t, 10> h{};
    src.read(offset, h);
    if (std::memcmp(h.data(), "ID3", 3) != 0 || h[3] < 2 || h[3] > 4 || h[4] == 0xFF) return 0;
    const std::uint64_t size = 10 + static_cast<std::uint64_t>(syncsafe(h.data() + 6)) + ((h[3] == 4 && (h[5] & 0x10)) ? 10 : 0);
    if (size > src.size() - offset)
        throw AVContainerError(Case::tagSizePastEnd, fmt::format("tag of {} bytes at offset {}", size, offset));
    return size;
}

std::uint64_t readTag(const ByteSource& src, std::uint64_t offset, AVAssetMetadata& out) {
    const std::uint64_t total = tagSize(src, offset);
    if (total == 0) return 0;
    std::array<std::uint8_t, 10> h{};
    src.read(offset, h);
    const int version = h[3];
    const std::uint8_t flags = h[5];
    const std::uint64_t bodySize = syncsafe(h.data() + 6);
    Bytes body = src.readBytes(offset + 10, bodySize, avLimits::maxStructureBytes);
    // Version 2.4 unsynchronises frame by frame; earlier versions the whole tag.
    if ((flags & 0x80) && version < 4) body = resynchronised(body);
    if (version == 2 && (flags & 0x40)) return total;  // v2.2 compression was never defined: nothing to read

    std::size_t pos = 0;
    if (version >= 3 && (flags & 0x40)) {
        enforce(body.size() >= 4, Case::truncated, "ID3 extended header");
        const std::uint64_t ext = version == 3 ? 4 + static_cast<std::uint64_t>(be32(body.data())) : syncsafe(body.data());
        enforce(ext >= 4 && ext <= body.size(), Case::truncated, "ID3 extended header");
        pos = static_cast<std::size_t>(ext);
    }
    const std::size_t headerSize = version == 2 ? 6 : 10;
    while (body.size() - pos >= headerSize) {
        const std::uint8_t* f = body.data() + pos;
        const std::size_t idLength = version == 2 ? 3 : 4;
        bool valid = true;
        for (std::size_t i = 0; i < idLength; ++i) valid = valid && isFrameIdChar(f[i]);
        if (!valid) break;  // padding, or bytes no tagger writes
        const std::string id(reinterpret_cast<const char*>(f), idLength);
        std::uint64_t size = version == 2 ? bytes::be24(f + 3) : version == 3 ? be32(f + 4) : syncsafe(f + 4);
        const std::uint16_t frameFlags = version == 2 ? 0 : static_cast<std::uint16_t>(f[8] << 8 | f[9]);
        enforce(size <= body.size() - pos - headerSize, Case::truncated, "ID3 frame");
        std::span<const std::uint8_t> data(body.data() + pos + headerSize, static_cast<std::size_t>(size));
        pos += headerSize + static_cast<std::size_t>(size);

        bool unreadable = false;
        Bytes unsynced;
        if (version == 3) {
            unreadable = frameFlags & 0x00C0;  // compressed or encrypted
            if (frameFlags & 0x0020) data = data.subspan(std::min<std::size_t>(1, data.size()));
        } else if (version == 4) {
            unreadable = frameFlags & 0x000C;
            if (frameFlags & 0x0040) data = data.subspan(std::min<std::size_t>(1, data.size()));
            if (frameFlags & 0x0001) data = data.subspan(std::min<std::size_t>(4, data.size()));
            if ((frameFlags & 0x0002) || (flags & 0x80)) {
                unsynced = resynchronised(data);
                data = unsynced;
            }
        }
        if (unreadable) out.add({"id3/" + id, commonKeyFor(id), {}});
        else out.add(frameEntry(id, data));
    }
    return total;
}

void readVersion1Tag(const ByteSource& src, AVAssetMetadata& out) {
    if (src.size() < 128) return;
    std::array<std::uint8_t, 128> t{};
    src.read(src.size() - 128, t);
    if (std::memcmp(t.data(), "TAG", 3) != 0) return;
    auto field = [&](std::size_t at, std::size_t length) {
        std::size_t n = 0;
        while (n < length && t[at + n] != 0) ++n;
        return avBytes::trimmed(avBytes::latin1ToUTF8(std::span(t.data() + at, n)));
    };
    const std::pair<const char*, std::string> fields[] = {
        {"ID3v1Title", field(3, 30)}, {"ID3v1Artist", field(33, 30)}, {"ID3v1Album", field(63, 30)},
        {"ID3v1Year", field(93, 4)},  {"ID3v1Comment", field(97, 30)},
    };
    for (const auto& [key, value] : fields)
        if (!value.empty()) out.add({std::string("id3/") + key, "", value});
    if (t[125] == 0 && t[126] != 0) out.add({"id3/ID3v1Track", "", static_cast<double>(t[126])});
    if (t[127] != 0xFF) out.add({"id3/ID3v1Genre", "", static_cast<double>(t[127])});
}

}  // namespace tavrin::id3Walker
