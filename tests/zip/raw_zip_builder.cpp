#include "raw_zip_builder.h"

#include <zlib.h>

#include <stdexcept>

namespace tavrin::testing {

namespace {

void u16(std::string& out, std::uint64_t v) {
    for (int i = 0; i < 2; ++i) out.push_back(static_cast<char>((v >> (8 * i)) & 0xFF));
}
void u32(std::string& out, std::uint64_t v) {
    for (int i = 0; i < 4; ++i) out.push_back(static_cast<char>((v >> (8 * i)) & 0xFF));
}
void u64(std::string& out, std::uint64_t v) {
    for (int i = 0; i < 8; ++i) out.push_back(static_cast<char>((v >> (8 * i)) & 0xFF));
}

}  // namespace

std::string rawDeflate(const std::string& data) {
    z_stream z{};
    if (deflateInit2(&z, 9, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) != Z_OK) throw std::runtime_error("deflate");
    std::string out(deflateBound(&z, data.size()) + 16, '\0');
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
    z.avail_in = static_cast<uInt>(data.size());
    z.next_out = reinterpret_cast<Bytef*>(out.data());
    z.avail_out = static_cast<uInt>(out.size());
    if (deflate(&z, Z_FINISH) != Z_STREAM_END) throw std::runtime_error("deflate");
    out.resize(z.total_out);
    deflateEnd(&z);
    return out;
}

std::string buildRawZip(const std::vector<RawZipEntry>& entries, const RawZipOptions& options) {
    std::string file;
    std::string directory;
    std::vector<std::uint64_t> offsets;
    for (const auto& e : entries) {
        const std::string stored = e.deflate ? rawDeflate(e.data) : e.data;
        const std::uint32_t crc = e.crc.value_or(
            static_cast<std::uint32_t>(crc32(0, reinterpret_cast<const Bytef*>(e.data.data()), static_cast<uInt>(e.data.size()))));
        const std::uint64_t size = e.declaredSize.value_or(e.data.size());
        const std::uint16_t method = e.method != 0xFFFF ? e.method : (e.deflate ? 8 : 0);
        const std::uint16_t flags = static_cast<std::uint16_t>(e.flags | (e.dataDescriptor ? 8 : 0));
        const std::uint64_t offset = file.size();
        offsets.push_back(offset);

        std::string localExtra;
        if (e.zip64) {
            u16(localExtra, 1);
            u16(localExtra, 16);
            u64(localExtra, e.dataDescriptor ? 0 : size);
            u64(localExtra, e.dataDescriptor ? 0 : stored.size());
        }
        u32(file, 0x04034b50);
        u16(file, e.zip64 ? 45 : 20);
        u16(file, flags);
        u16(file, method);
        u16(file, 0);
        u16(file, 0x21);
        u32(file, e.dataDescriptor ? 0 : crc);
        u32(file, e.zip64 ? 0xFFFFFFFF : (e.dataDescriptor ? 0 : stored.size()));
        u32(file, e.zip64 ? 0xFFFFFFFF : (e.dataDescriptor ? 0 : size));
        u16(file, e.name.size());
        u16(file, localExtra.size());
        file += e.name;
        file += localExtra;
        file += stored;
        if (e.dataDescriptor) {
            if (e.descriptorSignature) u32(file, 0x08074b50);
            u32(file, crc);
            if (e.zip64) {
                u64(file, stored.size());
                u64(file, size);
            } else {
                u32(file, stored.size());
                u32(file, size);
            }
        }

        const std::uint64_t headerOffset =
            e.headerOffset.value_or(e.pointAtEntry ? offsets.at(*e.pointAtEntry) : offset);
        const std::uint64_t compressedSize = e.declaredCompressedSize.value_or(stored.size());
        std::string centralExtra;
        if (e.zip64) {
            u16(centralExtra, 1);
            u16(centralExtra, 24);
            u64(centralExtra, size);
            u64(centralExtra, compressedSize);
            u64(centralExtra, headerOffset);
        }
        u32(directory, 0x02014b50);
        u16(directory, (3 << 8) | 45);
        u16(directory, e.zip64 ? 45 : 20);
        u16(directory, flags);
        u16(directory, method);
        u16(directory, 0);
        u16(directory, 0x21);
        u32(directory, crc);
        u32(directory, e.zip64 ? 0xFFFFFFFF : compressedSize);
        u32(directory, e.zip64 ? 0xFFFFFFFF : size);
        u16(directory, e.name.size());
        u16(directory, centralExtra.size());
        u16(directory, 0);
        u16(directory, 0);
        u16(directory, 0);
        u32(directory, (0100644u) << 16);
        u32(directory, e.zip64 ? 0xFFFFFFFF : headerOffset);
        directory += e.name;
        directory += centralExtra;
    }
    const std::uint64_t directoryOffset = options.directoryOffset.value_or(file.size());
    const std::uint64_t directorySize = options.directorySize.value_or(directory.size());
    const std::uint64_t count = options.entryCount.value_or(entries.size());
    file += directory;
    if (options.zip64EndRecords) {
        const std::uint64_t recordOffset = file.size();
        u32(file, 0x06064b50);
        u64(file, 44);
        u16(file, 45);
        u16(file, 45);
        u32(file, 0);
        u32(file, 0);
        u64(file, count);
        u64(file, count);
        u64(file, directorySize);
        u64(file, directoryOffset);
        u32(file, 0x07064b50);
        u32(file, 0);
        u64(file, recordOffset);
        u32(file, 1);
    }
    u32(file, 0x06054b50);
    u16(file, 0);
    u16(file, 0);
    u16(file, options.zip64EndRecords ? 0xFFFF : count);
    u16(file, options.zip64EndRecords ? 0xFFFF : count);
    u32(file, options.zip64EndRecords ? 0xFFFFFFFF : directorySize);
    u32(file, options.zip64EndRecords ? 0xFFFFFFFF : directoryOffset);
    u16(file, options.comment.size());
    file += options.comment;
    file += options.trailing;
    return file;
}

}  // namespace tavrin::testing
