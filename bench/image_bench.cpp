// Image cleaning in one process, without start-up costs:
//   tavrin-image-bench make DIR     writes a dirty 12-megapixel JPEG (about 4 MB) into DIR
//   tavrin-image-bench clean FILE   cleans and verifies it (both full decodes included), best
//                                   of N, and reports peak resident memory against one frame
//   tavrin-image-bench meta FILE    the metadata-only work (parse, filter, rebuild), in MB/s
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "corpus_builders.h"
#include "model/cleaning_profile.h"
#include "image/image_file.h"
#include "image/image_metadata_writer.h"
#include "image/image_source.h"

namespace {

using Clock = std::chrono::steady_clock;
double msSince(Clock::time_point t) { return std::chrono::duration<double, std::milli>(Clock::now() - t).count(); }

// Processor time of this process; on a shared machine it is steadier than wall time.
double cpuMs() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return t.tv_sec * 1e3 + t.tv_nsec / 1e6;
}

double peakMB() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024.0;
}

}  // namespace

int main(int argc, char** argv) {
    using namespace tavrin;
    if (argc < 3) {
        std::fprintf(stderr, "usage: tavrin-image-bench make DIR | clean FILE [RUNS] | meta FILE [SECONDS]\n");
        return 2;
    }
    const std::string mode = argv[1];
    const std::filesystem::path path = argv[2];
    const auto& profile = CleaningProfile::maximumPrivacy();
    if (mode == "make") {
        std::filesystem::create_directories(path);
        corpus::writeFile(path / "photo-12mp.jpg", corpus::dirtyJPEG(4000, 3000, 1));
        return 0;
    }
    if (mode == "clean") {
        const int runs = argc > 3 ? std::atoi(argv[3]) : 5;
        const auto out = std::filesystem::temp_directory_path() / ("tavrin-image-bench-" + std::to_string(::getpid()));
        std::filesystem::create_directories(out);
        double best = 1e9, bestCPU = 1e9;
        for (int i = 0; i < runs; ++i) {
            std::filesystem::remove(out / path.filename());
            const auto t = Clock::now();
            const double c = cpuMs();
            const auto result = ImageMetadataWriter().cleanMetadata(path, out / path.filename(), profile);
            best = std::min(best, msSince(t));
            bestCPU = std::min(bestCPU, cpuMs() - c);
            if (!result.verifiedClean) return 1;
        }
        std::filesystem::remove_all(out);
        const auto source = image::ImageSource::create(image::readImageFile(path));
        const auto& frame = source.propertiesAt(0);
        const double frameMB = *frame.at("PixelWidth").doubleValue() * *frame.at("PixelHeight").doubleValue() * 3 / 1048576.0;
        std::printf("clean+verify %s: best of %d %.1f ms wall, %.1f ms processor; peak RSS %.1f MB = %.2f x one "
                    "decoded RGB frame (%.1f MB)\n",
                    path.filename().c_str(), runs, best, bestCPU, peakMB(), peakMB() / frameMB, frameMB);
        return 0;
    }
    if (mode == "meta") {
        const double seconds = argc > 3 ? std::atof(argv[3]) : 2.0;
        const image::Bytes bytes = image::readImageFile(path);
        std::size_t rounds = 0, written = 0;
        const auto t = Clock::now();
        while (msSince(t) < seconds * 1000) {
            const auto source = image::ImageSource::create(bytes);
            const auto filtered = ImageMetadataWriter::buildFilteredProperties(source.propertiesAt(0), profile);
            written += (source.format() == image::ImageFormat::jpeg ? image::writeLosslessJPEG(source)
                                                                    : image::writeImage(source, {filtered.properties}))
                           .size();
            ++rounds;
        }
        const double elapsed = msSince(t) / 1000;
        std::printf("metadata only %s: %zu rounds, %.0f MB/s (output %zu bytes a round)\n", path.filename().c_str(), rounds,
                    rounds * static_cast<double>(bytes.size()) / 1e6 / elapsed, written / std::max<std::size_t>(rounds, 1));
        return 0;
    }
    return 2;
}
