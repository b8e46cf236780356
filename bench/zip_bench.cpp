// Measures the ZIP layer against zlib itself, and writes a large Office package for the
// inspection figure that run_bench.sh times as a whole process.
//   tavrin-zip-bench WORKDIR
// Prints: the extraction speed of our reader and of a bare raw inflate over the same deflated
// bytes, their ratio, and the path of a 50 MB docx (45 MB of media) for `tavrin inspect`.
#include <zlib.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fmt/core.h>
#include <fstream>
#include <string>
#include <vector>

#include "corpus_builders.h"
#include "office_builders.h"
#include "zip/archive.h"

using namespace tavrin;
using Clock = std::chrono::steady_clock;

namespace {

// Text-like data that deflates about as well as Office XML does.
std::vector<std::uint8_t> compressibleData(std::size_t size) {
    std::vector<std::uint8_t> out;
    out.reserve(size);
    std::uint32_t state = 12345;
    while (out.size() < size) {
        state = state * 1664525u + 1013904223u;
        const std::string line = fmt::format("<w:p><w:r><w:t>Row {} holds the value {} for account {}</w:t></w:r></w:p>\n",
                                             out.size() / 97, state % 100000, (state >> 8) % 977);
        out.insert(out.end(), line.begin(), line.end());
    }
    out.resize(size);
    return out;
}

double seconds(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

// A bare zlib raw inflate of `compressed` into a reused 16 KiB buffer: the ceiling for our reader.
double rawInflateSeconds(const std::vector<std::uint8_t>& compressed) {
    const auto start = Clock::now();
    z_stream stream{};
    inflateInit2(&stream, -MAX_WBITS);
    std::vector<std::uint8_t> buffer(16384);
    stream.next_in = const_cast<Bytef*>(compressed.data());
    stream.avail_in = static_cast<uInt>(compressed.size());
    int status = Z_OK;
    while (status == Z_OK) {
        stream.next_out = buffer.data();
        stream.avail_out = static_cast<uInt>(buffer.size());
        status = inflate(&stream, Z_NO_FLUSH);
    }
    inflateEnd(&stream);
    if (status != Z_STREAM_END) throw std::runtime_error("raw inflate failed");
    return seconds(start);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        fmt::print(stderr, "usage: tavrin-zip-bench WORKDIR\n");
        return 2;
    }
    const std::filesystem::path work = argv[1];
    std::filesystem::create_directories(work);

    // Extraction speed over a 64 MB deflated entry.
    const auto data = compressibleData(64u << 20);
    const auto archivePath = work / "inflate.zip";
    std::filesystem::remove(archivePath);
    {
        Archive archive(archivePath, Archive::AccessMode::create);
        archive.addEntry("data.xml", EntryType::file, static_cast<std::int64_t>(data.size()),
                         std::chrono::system_clock::now(), std::nullopt, CompressionMethod::deflate,
                         Archive::defaultWriteChunkSize, nullptr, [&](std::int64_t position, std::size_t size) {
                             return std::vector<std::uint8_t>(data.begin() + position,
                                                              data.begin() + position + static_cast<std::ptrdiff_t>(size));
                         });
    }
    const Archive archive(archivePath, Archive::AccessMode::read);
    const Entry entry = *archive["data.xml"];
    std::vector<std::uint8_t> compressed(entry.compressedSize());
    {
        std::ifstream in(archivePath, std::ios::binary);
        in.seekg(static_cast<std::streamoff>(entry.dataOffset()));
        in.read(reinterpret_cast<char*>(compressed.data()), static_cast<std::streamsize>(compressed.size()));
    }
    double ours = 1e9, zlib = 1e9;
    for (int run = 0; run < 5; ++run) {
        const auto start = Clock::now();
        std::size_t seen = 0;
        archive.extract(entry, Archive::defaultReadChunkSize, false, nullptr,
                        [&](std::span<const std::uint8_t> chunk) { seen += chunk.size(); });
        ours = std::min(ours, seconds(start));
        if (seen != data.size()) throw std::runtime_error("extraction lost bytes");
        zlib = std::min(zlib, rawInflateSeconds(compressed));
    }
    const double megabytes = static_cast<double>(data.size()) / 1e6;
    fmt::print("zip extract (CRC checked)    {:8.0f} MB/s\n", megabytes / ours);
    fmt::print("zlib raw inflate             {:8.0f} MB/s\n", megabytes / zlib);
    fmt::print("ratio ours/zlib              {:8.2f}\n", zlib / ours);
    std::filesystem::remove(archivePath);

    // A 50 MB docx, 45 MB of it photos, for the inspection figure.
    const auto docx = work / "large-media.docx";
    corpus::writeFile(docx, corpus::dirtyDocx(3000, 90, 2000, 1500, 21));
    fmt::print("large docx                   {} ({:.1f} MB)\n", docx.string(),
               static_cast<double>(std::filesystem::file_size(docx)) / 1e6);
    return 0;
}
