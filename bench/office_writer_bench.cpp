// Office writer figures: clean and verify a large document full of photos (time per run and
// peak memory against the largest part), or write a folder of small documents for a batch run
// of `tavrin clean`.
//   tavrin-office-writer-bench large DIR [PHOTOS]
//   tavrin-office-writer-bench batch DIR [COUNT]
#include <sys/resource.h>
#include <turbojpeg.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <string>

#include "../tests/image/image_fixtures.h"
#include "../tests/office/office_cleaning_fixtures.h"
#include "model/cleaning_profile.h"
#include "office/office_metadata_writer.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
namespace images = tavrin::testing::images;

// A photo-like JPEG: smooth light with grain, so that it compresses like a camera picture.
Bytes photo(int width, int height, unsigned variant) {
    std::minstd_rand random(variant);
    std::vector<unsigned char> pixels(static_cast<std::size_t>(width) * height * 3);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < 3; ++c) {
                const int base = (x * (c + 1) + y * (3 - c)) * 255 / (width + height) / 2 + 60;
                const int grain = static_cast<int>(random() % 48) - 24;
                pixels[(static_cast<std::size_t>(y) * width + x) * 3 + c] =
                    static_cast<unsigned char>(std::clamp(base + grain, 0, 255));
            }
    tjhandle handle = tjInitCompress();
    unsigned char* out = nullptr;
    unsigned long size = 0;
    if (tjCompress2(handle, pixels.data(), width, 0, height, TJPF_RGB, &out, &size, TJSAMP_420, 82, 0) != 0)
        throw std::runtime_error("tjCompress2 failed");
    Bytes jpeg(out, out + size);
    tjFree(out);
    tjDestroy(handle);
    images::JPEGMetadata metadata;
    metadata.exif = images::exifBlock();
    metadata.xmp = images::xmpPacket();
    metadata.comment = "taken on the way to the board meeting";
    return images::withJPEGMetadata(jpeg, metadata);
}

// Processor seconds this process has used: on a shared machine, wall time also counts the waits
// for a core, while this counts only the work.
double cpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](const timeval& t) { return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double peakResidentMB() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

int large(const std::filesystem::path& dir, int count) {
    std::vector<Bytes> photos;
    std::size_t largest = 0, total = 0;
    for (int i = 0; i < count; ++i) {
        photos.push_back(photo(1700, 1275, static_cast<unsigned>(i + 1)));
        largest = std::max(largest, photos.back().size());
        total += photos.back().size();
    }
    const auto source = dir / "photos.docx";
    tavrin::testing::documentWithPhotos(photos).write(source);
    photos.clear();
    const double before = peakResidentMB();
    std::printf("large: %d photos, %.1f MB of photos, largest part %.2f MB, package %.1f MB\n", count, total / 1e6,
                largest / 1e6, std::filesystem::file_size(source) / 1e6);
    double best = 1e9, bestCPU = 1e9;
    for (int run = 0; run < 3; ++run) {
        const auto output = dir / "photos-clean.docx";
        std::filesystem::remove(output);
        const auto start = std::chrono::steady_clock::now();
        const double cpuStart = cpuSeconds();
        const auto result = tavrin::OfficeMetadataWriter().cleanMetadata(source, output, tavrin::CleaningProfile::maximumPrivacy());
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        const double cpu = cpuSeconds() - cpuStart;
        best = std::min(best, seconds);
        bestCPU = std::min(bestCPU, cpu);
        std::printf("  run %d: %.3f s wall, %.3f s processor, %zu items removed, verified %s\n", run + 1, seconds, cpu,
                    result.removedItems.size(), result.verifiedClean ? "yes" : "no");
    }
    std::printf("large: best %.3f s wall, %.3f s processor; peak RSS %.1f MB (%.1f MB before cleaning), %.1fx the largest part over the baseline\n",
                best, bestCPU, peakResidentMB(), before, (peakResidentMB() - before) / (largest / 1e6));
    return 0;
}

int batch(const std::filesystem::path& dir, int count) {
    std::filesystem::create_directories(dir);
    std::size_t bytes = 0;
    for (int i = 0; i < count; ++i) {
        // 10 to 50 KB each: a photo of varying size in each kind of document.
        const Bytes picture = photo(120 + (i % 5) * 40, 90 + (i % 5) * 30, static_cast<unsigned>(i + 7));
        const auto name = dir / ("file-" + std::to_string(i));
        std::filesystem::path path;
        switch (i % 3) {
            case 0: path = name.string() + ".docx"; tavrin::testing::dirtyDocument(picture).write(path); break;
            case 1: path = name.string() + ".xlsx"; tavrin::testing::dirtyWorkbook(picture).write(path); break;
            default: path = name.string() + ".pptx"; tavrin::testing::dirtyPresentation(picture).write(path); break;
        }
        bytes += std::filesystem::file_size(path);
    }
    std::printf("batch: %d files, %.1f KB on average\n", count, bytes / 1e3 / count);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: tavrin-office-writer-bench large|batch DIR [COUNT]\n");
        return 2;
    }
    const std::string mode = argv[1];
    const std::filesystem::path dir = argv[2];
    std::filesystem::create_directories(dir);
    try {
        if (mode == "large") return large(dir, argc > 3 ? std::stoi(argv[3]) : 40);
        if (mode == "batch") return batch(dir, argc > 3 ? std::stoi(argv[3]) : 500);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "tavrin-office-writer-bench: %s\n", e.what());
        return 1;
    }
    std::fprintf(stderr, "unknown mode %s\n", mode.c_str());
    return 2;
}
