#include "exiftool_fixtures.h"

#include <cstdlib>
#include <fstream>

#include "exiftool/process_runner.h"

namespace tavrin::testing {

namespace {

using Bytes = std::vector<std::uint8_t>;

void put16be(Bytes& b, unsigned v) {
    b.push_back(static_cast<std::uint8_t>(v >> 8));
    b.push_back(static_cast<std::uint8_t>(v));
}
void put32be(Bytes& b, std::uint32_t v) {
    put16be(b, v >> 16);
    put16be(b, v & 0xFFFF);
}
void put16le(Bytes& b, unsigned v) {
    b.push_back(static_cast<std::uint8_t>(v));
    b.push_back(static_cast<std::uint8_t>(v >> 8));
}
void put32le(Bytes& b, std::uint32_t v) {
    put16le(b, v & 0xFFFF);
    put16le(b, v >> 16);
}
void append(Bytes& b, std::string_view text) { b.insert(b.end(), text.begin(), text.end()); }
void append(Bytes& b, const Bytes& more) { b.insert(b.end(), more.begin(), more.end()); }

// TIFF 6.0 directory entries, big-endian.
struct TiffEntry {
    std::uint16_t tag;
    std::uint16_t type;  // 2 ASCII, 4 LONG, 5 RATIONAL
    std::uint32_t count;
    Bytes value;
};

TiffEntry ascii(std::uint16_t tag, std::string_view text) {
    Bytes v(text.begin(), text.end());
    v.push_back(0);
    return {tag, 2, static_cast<std::uint32_t>(v.size()), v};
}
TiffEntry longValue(std::uint16_t tag, std::uint32_t value) {
    Bytes v;
    put32be(v, value);
    return {tag, 4, 1, v};
}
TiffEntry rationals(std::uint16_t tag, std::initializer_list<std::uint32_t> numerators) {
    Bytes v;
    for (auto n : numerators) {
        put32be(v, n);
        put32be(v, 1);
    }
    return {tag, 5, static_cast<std::uint32_t>(numerators.size()), v};
}

// One IFD starting at `offset` in the TIFF stream, followed by the values that do not fit in
// their entries.
Bytes ifdAt(std::uint32_t offset, const std::vector<TiffEntry>& entries) {
    Bytes ifd, data;
    const std::uint32_t dataStart = offset + 2 + 12 * static_cast<std::uint32_t>(entries.size()) + 4;
    put16be(ifd, static_cast<unsigned>(entries.size()));
    for (const auto& e : entries) {
        put16be(ifd, e.tag);
        put16be(ifd, e.type);
        put32be(ifd, e.count);
        if (e.value.size() <= 4) {
            Bytes inline4 = e.value;
            inline4.resize(4, 0);
            append(ifd, inline4);
        } else {
            put32be(ifd, dataStart + static_cast<std::uint32_t>(data.size()));
            append(data, e.value);
            if (data.size() % 2) data.push_back(0);
        }
    }
    put32be(ifd, 0);
    append(ifd, data);
    return ifd;
}

Bytes exifBlock() {
    const std::vector<TiffEntry> gps{ascii(0x0001, "N"), rationals(0x0002, {12, 30, 0})};
    auto ifd0 = [](std::uint32_t gpsOffset) {
        return std::vector<TiffEntry>{ascii(0x010F, "Canon"), ascii(0x0110, "EOS Test"), ascii(0x013B, "Jane Roe"),
                                      longValue(0x8825, gpsOffset)};
    };
    const std::uint32_t gpsOffset = 8 + static_cast<std::uint32_t>(ifdAt(8, ifd0(0)).size());
    Bytes tiff;
    append(tiff, std::string_view("MM\0*", 4));
    put32be(tiff, 8);
    append(tiff, ifdAt(8, ifd0(gpsOffset)));
    append(tiff, ifdAt(gpsOffset, gps));
    Bytes block;
    append(block, std::string_view("Exif\0\0", 6));
    append(block, tiff);
    return block;
}

void segment(Bytes& jpeg, std::uint8_t marker, const Bytes& body) {
    jpeg.push_back(0xFF);
    jpeg.push_back(marker);
    put16be(jpeg, static_cast<unsigned>(body.size() + 2));
    append(jpeg, body);
}

Bytes bytesOf(std::string_view text) { return Bytes(text.begin(), text.end()); }

}  // namespace

std::vector<std::uint8_t> jpegWithMetadata() {
    Bytes jpeg{0xFF, 0xD8};
    segment(jpeg, 0xE1, exifBlock());
    Bytes xmp = bytesOf(std::string_view("http://ns.adobe.com/xap/1.0/\0", 29));
    append(xmp,
           "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"><rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">"
           "<rdf:Description rdf:about=\"\" xmlns:dc=\"http://purl.org/dc/elements/1.1/\" "
           "xmlns:xmp=\"http://ns.adobe.com/xap/1.0/\"><dc:creator><rdf:Seq><rdf:li>Jane Roe</rdf:li></rdf:Seq>"
           "</dc:creator><xmp:CreatorTool>Tavrin Test Suite</xmp:CreatorTool></rdf:Description></rdf:RDF>"
           "</x:xmpmeta>");
    segment(jpeg, 0xE1, xmp);
    segment(jpeg, 0xFE, bytesOf("shot on the roof"));
    // One 8×8 block of one grey component: a single-code Huffman table for each of DC and AC,
    // and scan data holding "DC difference 0" and "end of block".
    Bytes dqt{0x00};
    dqt.resize(65, 1);
    segment(jpeg, 0xDB, dqt);
    segment(jpeg, 0xC0, Bytes{8, 0, 1, 0, 1, 1, 1, 0x11, 0});
    Bytes dc{0x00, 1};
    dc.resize(17, 0);
    dc.push_back(0x00);
    segment(jpeg, 0xC4, dc);
    Bytes ac{0x10, 1};
    ac.resize(17, 0);
    ac.push_back(0x00);
    segment(jpeg, 0xC4, ac);
    segment(jpeg, 0xDA, Bytes{1, 1, 0, 0, 0x3F, 0});
    append(jpeg, Bytes{0x3F, 0xFF, 0xD9});
    return jpeg;
}

std::vector<std::uint8_t> legacyWordDocument() {
    constexpr std::uint32_t kEndOfChain = 0xFFFFFFFE, kFree = 0xFFFFFFFF, kFatSector = 0xFFFFFFFD;
    constexpr std::uint32_t kNoStream = 0xFFFFFFFF;

    // The summary information property set: one section of the FMTID
    // F29F85E0-4FF9-1068-AB91-08002B27B3D9 with a code page and four strings.
    auto lpstr = [](std::string_view text) {
        Bytes p;
        put32le(p, 0x1E);
        put32le(p, static_cast<std::uint32_t>(text.size() + 1));
        append(p, text);
        p.push_back(0);
        while (p.size() % 4) p.push_back(0);
        return p;
    };
    Bytes codePage;
    put32le(codePage, 2);
    put16le(codePage, 1252);
    put16le(codePage, 0);
    const std::vector<std::pair<std::uint32_t, Bytes>> properties{
        {1, codePage},
        {2, lpstr("Quarterly plan")},
        {4, lpstr("Jane Roe")},
        {8, lpstr("John Doe")},
        {0x12, lpstr("Microsoft Office Word")}};
    Bytes table, values;
    std::uint32_t offset = 8 + 8 * static_cast<std::uint32_t>(properties.size());
    for (const auto& [id, value] : properties) {
        put32le(table, id);
        put32le(table, offset + static_cast<std::uint32_t>(values.size()));
        append(values, value);
    }
    Bytes stream;
    put16le(stream, 0xFFFE);
    put16le(stream, 0);
    put32le(stream, 0x00020006);
    stream.resize(stream.size() + 16, 0);
    put32le(stream, 1);
    append(stream, Bytes{0xE0, 0x85, 0x9F, 0xF2, 0xF9, 0x4F, 0x68, 0x10, 0xAB, 0x91, 0x08, 0x00, 0x2B, 0x27, 0xB3,
                         0xD9});
    put32le(stream, 48);
    put32le(stream, offset + static_cast<std::uint32_t>(values.size()));
    put32le(stream, static_cast<std::uint32_t>(properties.size()));
    append(stream, table);
    append(stream, values);
    // At the mini-stream cut-off, so the stream lives in ordinary sectors 2 to 9.
    stream.resize(4096, 0);

    Bytes file{0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
    file.resize(24, 0);
    for (unsigned v : {0x3Eu, 3u, 0xFFFEu, 9u, 6u}) put16le(file, v);
    file.resize(file.size() + 6, 0);
    for (std::uint32_t v : {0u, 1u, 1u, 0u, 4096u, kEndOfChain, 0u, kEndOfChain, 0u}) put32le(file, v);
    put32le(file, 0);  // the one FAT sector
    while (file.size() < 512) put32le(file, kFree);

    std::vector<std::uint32_t> fat{kFatSector, kEndOfChain, 3, 4, 5, 6, 7, 8, 9, kEndOfChain};
    fat.resize(128, kFree);
    for (auto v : fat) put32le(file, v);

    auto entry = [&](std::u16string_view name, std::uint8_t type, std::uint32_t child, std::uint32_t start,
                     std::uint32_t size) {
        const std::size_t begin = file.size();
        for (char16_t c : name) put16le(file, c);
        file.resize(begin + 64, 0);
        put16le(file, name.empty() ? 0 : static_cast<unsigned>((name.size() + 1) * 2));
        file.push_back(type);
        file.push_back(name.empty() ? 0 : 1);  // black
        put32le(file, kNoStream);
        put32le(file, kNoStream);
        put32le(file, child);
        file.resize(begin + 116, 0);  // class id, state bits, times
        put32le(file, start);
        put32le(file, size);
        put32le(file, 0);
    };
    entry(u"Root Entry", 5, 1, kEndOfChain, 0);
    entry(u"\x05SummaryInformation", 2, kNoStream, 2, 4096);
    entry(u"", 0, kNoStream, 0, 0);
    entry(u"", 0, kNoStream, 0, 0);
    append(file, stream);
    return file;
}

std::optional<std::filesystem::path> installedExifTool() {
    if (isExecutableFile("/usr/bin/exiftool")) return std::filesystem::path("/usr/bin/exiftool");
    const char* path = std::getenv("PATH");
    std::string_view rest = path ? path : "";
    while (!rest.empty()) {
        const auto colon = rest.find(':');
        const auto candidate = std::filesystem::path(rest.substr(0, colon)) / "exiftool";
        if (candidate.is_absolute() && isExecutableFile(candidate)) return candidate;
        if (colon == std::string_view::npos) break;
        rest.remove_prefix(colon + 1);
    }
    return std::nullopt;
}

std::filesystem::path writeStubTool(const std::filesystem::path& path, std::string_view body) {
    {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out << "#!/bin/sh\n" << body << "\n";
    }
    std::filesystem::permissions(path, std::filesystem::perms::owner_all | std::filesystem::perms::group_read |
                                           std::filesystem::perms::group_exec);
    return path;
}

}  // namespace tavrin::testing
