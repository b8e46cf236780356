#include "raw_zip_builder.h"

#include <zlib.h>

#include <initializer_list>
#include <stdexcept>
#include <utility>

namespace tavrin::testing {

namespace {

// Appends each value little-endian in the given number of bytes: put(out, {{v, 4}, {w, 2}}).
void put(std::string& out, std::initializer_list<std::pair<std::uint64_t, int>> fields) {
    for (const auto& [v, n] : fields)
        for (int i = 0; i < n; ++i) out.push_back(static_cast<char>((v >> (8 * i)) & 0xFF));
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
    constexpr std::uint64_t kEscape32 = 0xFFFFFFFF;
    std::string file, directory;
    std::vector<std::uint64_t> offsets;
    for (const auto& e : entries) {
        const std::string stored = e.deflate ? rawDeflate(e.data) : e.data;
        const std::uint32_t crc = e.crc.value_or(static_cast<std::uint32_t>(
            crc32(0, reinterpret_cast<const Bytef*>(e.data.data()), static_cast<uInt>(e.data.size()))));
        const std::uint64_t size = e.declaredSize.value_or(e.data.size());
        const std::uint64_t compressedSize = e.declaredCompressedSize.value_or(stored.size());
        const std::uint16_t method = e.method != 0xFFFF ? e.method : (e.deflate ? 8 : 0);
        const std::uint64_t flags = e.flags | (e.dataDescriptor ? 8 : 0), version = e.zip64 ? 45 : 20;
        const std::uint64_t offset = file.size();
        offsets.push_back(offset);
        const bool deferred = e.dataDescriptor;  // sizes and checksum follow the data

        std::string localExtra;
        if (e.zip64) put(localExtra, {{1, 2}, {16, 2}, {deferred ? 0 : size, 8}, {deferred ? 0 : stored.size(), 8}});
        put(file, {{0x04034b50, 4}, {version, 2}, {flags, 2}, {method, 2}, {0, 2}, {0x21, 2}, {deferred ? 0 : crc, 4},
                   {e.zip64 ? kEscape32 : (deferred ? 0 : stored.size()), 4},
                   {e.zip64 ? kEscape32 : (deferred ? 0 : size), 4}, {e.name.size(), 2}, {localExtra.size(), 2}});
        file += e.name + localExtra + stored;
        if (deferred) {
            if (e.descriptorSignature) put(file, {{0x08074b50, 4}});
            put(file, {{crc, 4}, {stored.size(), e.zip64 ? 8 : 4}, {size, e.zip64 ? 8 : 4}});
        }

        const std::uint64_t headerOffset = e.headerOffset.value_or(e.pointAtEntry ? offsets.at(*e.pointAtEntry) : offset);
        std::string centralExtra;
        if (e.zip64) put(centralExtra, {{1, 2}, {24, 2}, {size, 8}, {compressedSize, 8}, {headerOffset, 8}});
        put(directory, {{0x02014b50, 4}, {(3 << 8) | 45, 2}, {version, 2}, {flags, 2}, {method, 2}, {0, 2}, {0x21, 2},
                        {crc, 4}, {e.zip64 ? kEscape32 : compressedSize, 4}, {e.zip64 ? kEscape32 : size, 4},
                        {e.name.size(), 2}, {centralExtra.size(), 2}, {0, 2}, {0, 2}, {0, 2}, {0100644u << 16, 4},
                        {e.zip64 ? kEscape32 : headerOffset, 4}});
        directory += e.name + centralExtra;
    }
    const std::uint64_t directoryOffset = options.directoryOffset.value_or(file.size() + options.gap);
    const std::uint64_t directorySize = options.directorySize.value_or(directory.size());
    const std::uint64_t count = options.entryCount.value_or(entries.size());
    const std::uint64_t zip64RecordOffset = file.size() + options.gap + directory.size();
    file += directory;
    const bool zip64 = options.zip64EndRecords;
    if (zip64)
        put(file, {{0x06064b50, 4}, {44, 8}, {45, 2}, {45, 2}, {0, 4}, {0, 4}, {count, 8}, {count, 8},
                   {directorySize, 8}, {directoryOffset, 8}, {0x07064b50, 4}, {0, 4}, {zip64RecordOffset, 8}, {1, 4}});
    put(file, {{0x06054b50, 4}, {0, 2}, {0, 2}, {zip64 ? 0xFFFF : count, 2}, {zip64 ? 0xFFFF : count, 2},
               {zip64 ? kEscape32 : directorySize, 4}, {zip64 ? kEscape32 : directoryOffset, 4},
               {options.comment.size(), 2}});
    return file + options.comment;
}

}  // namespace tavrin::testing
