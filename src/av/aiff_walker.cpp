#include "av/aiff_walker.h"

#include <array>
#include <cstring>
#include <fmt/core.h>

#include "av/id3_walker.h"

namespace tavrin::aiffWalker {

using bytes::be16;
using bytes::be32;
using Case = AVContainerError::Case;

namespace {

void readComments(std::span<const std::uint8_t> b, AVAssetMetadata& out) {
    // A count, then per comment: time stamp (seconds since 1904), marker id, length, text.
    if (b.size() < 2) return;
    const std::size_t count = be16(b.data());
    std::size_t pos = 2;
    std::string joined;
    std::optional<Date> first;
    // A comment with an odd length is padded; the pad byte of the last may lie past the chunk.
    for (std::size_t i = 0; i < count && pos + 8 <= b.size(); ++i) {
        const std::uint32_t stamp = be32(b.data() + pos);
        const std::size_t length = std::min<std::size_t>(be16(b.data() + pos + 6), b.size() - pos - 8);
        const std::string text = avBytes::trimmed(avBytes::textFromBytes(b.subspan(pos + 8, length)));
        if (!text.empty()) joined += (joined.empty() ? "" : "\n") + text;
        if (!first) first = dateFrom1904Seconds(stamp);
        pos += 8 + length + (length & 1);
    }
    if (!joined.empty()) out.add({"aiff/COMT", "", joined});
    if (first) out.add({"aiff/commentDate", "", *first});
}

}  // namespace

void walk(const ByteSource& src, AVAssetMetadata& out) {
    enforce(src.size() >= 12, Case::truncated, "FORM header");
    std::array<std::uint8_t, 12> h{};
    src.read(0, h);
    const std::uint64_t formSize = be32(h.data() + 4);
    if (formSize > src.size() - 8)
        throw AVContainerError(Case::chunkSizePastEnd,
                               fmt::format("FORM size {} in a file of {} bytes", formSize, src.size()));
    const std::uint64_t end = 8 + formSize;
    std::uint64_t pos = 12;
    std::size_t count = 0;
    std::string annotations;
    while (pos < end && end - pos >= 8) {
        enforce(++count <= avLimits::maxBlocks, Case::tooManyItems, "chunks");
        std::array<std::uint8_t, 8> c{};
        src.read(pos, c);
        const std::uint64_t size = be32(c.data() + 4);
        if (size > end - pos - 8)
            throw AVContainerError(Case::chunkSizePastEnd,
                                   fmt::format("chunk '{}' at offset {}", avBytes::fourCCText(c.data()), pos));
        const std::uint64_t payload = pos + 8;
        const std::string id(reinterpret_cast<const char*>(c.data()), 4);
        if (id == "NAME" || id == "AUTH" || id == "(c) " || id == "ANNO") {
            const auto bytes = src.readBytes(payload, size, avLimits::maxStructureBytes);
            const std::string text = avBytes::trimmed(avBytes::textFromBytes(bytes));
            if (id == "ANNO") {
                if (!text.empty()) annotations += (annotations.empty() ? "" : "\n") + text;
            } else if (!text.empty()) {
                const char* common = id == "NAME" ? "title" : id == "AUTH" ? "author" : "copyrights";
                out.add({std::string("comn/") + common, common, text});
            }
        } else if (id == "COMT") {
            readComments(src.readBytes(payload, size, avLimits::maxStructureBytes), out);
        } else if (id == "ID3 " || id == "id3 ") {
            const auto tag = src.readBytes(payload, size, avLimits::maxStructureBytes);
            id3Walker::readTag(MemoryByteSource(tag), 0, out);
        }
        pos = payload + size + (size & 1);
    }
    if (!annotations.empty()) out.add({"aiff/ANNO", "", annotations});
}

}  // namespace tavrin::aiffWalker
