#include "av/riff_walker.h"

#include <array>
#include <cstring>
#include <fmt/core.h>
#include <map>

#include "av/id3_walker.h"

namespace tavrin::riffWalker {

using bytes::le32;
using Case = AVContainerError::Case;

namespace {

std::string commonKeyForInfo(const std::string& id) {
    static const std::map<std::string, std::string> table = {
        {"INAM", "title"},        {"IART", "artist"},   {"ICMT", "description"}, {"ICRD", "creationDate"},
        {"ISFT", "software"},     {"ICOP", "copyrights"}, {"IPRD", "album"},     {"ISBJ", "subject"},
    };
    auto it = table.find(id);
    return it == table.end() ? "" : it->second;
}

void readInfoList(std::span<const std::uint8_t> list, AVAssetMetadata& out) {
    std::size_t pos = 0;
    while (list.size() - pos >= 8) {
        const std::string id = avBytes::fourCCText(list.data() + pos);
        const std::uint32_t size = le32(list.data() + pos + 4);
        enforce(size <= list.size() - pos - 8, Case::chunkSizePastEnd, "INFO field");
        std::size_t n = 0;
        while (n < size && list[pos + 8 + n] != 0) ++n;
        const std::string text = avBytes::trimmed(avBytes::textFromBytes(list.subspan(pos + 8, n)));
        const std::string common = commonKeyForInfo(id);
        if (!text.empty()) out.add({common.empty() ? "riff/" + id : "comn/" + common, common, text});
        pos += 8 + size + (size & 1);
    }
}

void readBroadcastExtension(std::span<const std::uint8_t> b, AVAssetMetadata& out) {
    // EBU Tech 3285: Description[256], Originator[32], OriginatorReference[32],
    // OriginationDate[10], OriginationTime[8].
    const std::tuple<const char*, std::size_t, std::size_t> fields[] = {
        {"Description", 0, 256}, {"Originator", 256, 32}, {"OriginatorReference", 288, 32},
        {"OriginationDate", 320, 10}, {"OriginationTime", 330, 8},
    };
    for (const auto& [name, at, length] : fields) {
        if (b.size() < at + length) return;
        std::size_t n = 0;
        while (n < length && b[at + n] != 0) ++n;
        const std::string text = avBytes::trimmed(avBytes::latin1ToUTF8(b.subspan(at, n)));
        if (!text.empty()) out.add({std::string("bext/") + name, "", text});
    }
}

}  // namespace

void walk(const ByteSource& src, AVAssetMetadata& out) {
    std::array<std::uint8_t, 12> h{};
    enforce(src.size() >= 12, Case::truncated, "RIFF header");
    src.read(0, h);
    const std::uint64_t riffSize = le32(h.data() + 4);
    if (riffSize > src.size() - 8)
        throw AVContainerError(Case::chunkSizePastEnd,
                               fmt::format("RIFF size {} in a file of {} bytes", riffSize, src.size()));
    const std::uint64_t end = 8 + riffSize;
    std::uint64_t pos = 12;
    std::size_t count = 0;
    while (pos < end && end - pos >= 8) {
        enforce(++count <= avLimits::maxBlocks, Case::tooManyItems, "chunks");
        std::array<std::uint8_t, 12> c{};
        src.read(pos, std::span(c.data(), 8));
        const std::uint64_t size = le32(c.data() + 4);
        if (size > end - pos - 8)
            throw AVContainerError(Case::chunkSizePastEnd,
                                   fmt::format("chunk '{}' at offset {}", avBytes::fourCCText(c.data()), pos));
        const std::uint64_t payload = pos + 8;
        if (std::memcmp(c.data(), "LIST", 4) == 0 && size >= 4) {
            src.read(payload, std::span(c.data() + 8, 4));
            if (std::memcmp(c.data() + 8, "INFO", 4) == 0) {
                const auto list = src.readBytes(payload + 4, size - 4, avLimits::maxStructureBytes);
                readInfoList(list, out);
            }
        } else if (std::memcmp(c.data(), "bext", 4) == 0) {
            readBroadcastExtension(src.readBytes(payload, std::min<std::uint64_t>(size, 338), 338), out);
        } else if (std::memcmp(c.data(), "iXML", 4) == 0) {
            const auto xml = src.readBytes(payload, size, avLimits::maxStructureBytes);
            const std::string text = avBytes::trimmed(avBytes::textFromBytes(xml));
            if (!text.empty()) out.add({"riff/iXML", "", text});
        } else if (std::memcmp(c.data(), "id3 ", 4) == 0 || std::memcmp(c.data(), "ID3 ", 4) == 0) {
            const auto tag = src.readBytes(payload, size, avLimits::maxStructureBytes);
            id3Walker::readTag(MemoryByteSource(tag), 0, out);
        }
        pos = payload + size + (size & 1);
    }
}

}  // namespace tavrin::riffWalker
