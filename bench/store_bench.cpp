// The store's figures: opening a store that holds 100,000 history records, the recently cleaned
// fetch of 10 of them, and inserting 2,000 queued files in one save.
//   tavrin-store-bench [DIR]   (a temporary folder by default)

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <vector>

#include <fmt/format.h>

#include "data/queries.h"
#include "data/shared_container.h"
#include "model/temporary_file.h"

using namespace tavrin;
using Clock = std::chrono::steady_clock;

namespace {

double millisecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

struct Figures {
    double median, best, worst;
};

Figures summarize(std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    return {samples[samples.size() / 2], samples.front(), samples.back()};
}

void print(const char* what, const Figures& f, double limit) {
    fmt::print("  {:<44} median {:8.3f} ms  best {:8.3f}  worst {:8.3f}  (target {} ms)\n", what, f.median, f.best,
               f.worst, limit);
}

}  // namespace

int main(int argc, char** argv) {
    const std::filesystem::path dir =
        argc > 1 ? std::filesystem::path(argv[1]) : TemporaryFile::makeTemporaryDirectory("tavrin_store_bench");
    std::filesystem::create_directories(dir);
    const auto url = dir / "Tavrin.store";
    for (const char* suffix : {"", "-wal", "-shm"}) std::filesystem::remove(url.string() + suffix);

    fmt::print("store benchmark: {}\n", url.string());
    {
        auto container = ModelContainerFactory::atURL(url);
        auto context = container->makeContext();
        const auto start = std::chrono::system_clock::now() - std::chrono::hours(24 * 365);
        for (int batch = 0; batch < 100; ++batch) {
            for (int i = 0; i < 1000; ++i) {
                const int n = batch * 1000 + i;
                auto h = std::make_shared<ProcessingHistory>();
                h->id = Uuid::random();
                h->fileName = fmt::format("document {:06}.pdf", n);
                h->processedAt = start + std::chrono::seconds(n * 300);
                h->originalSize = 100'000 + n;
                h->cleanedSize = 90'000 + n;
                h->removedItemCount = n % 40;
                h->presetName = "Maximum Privacy";
                h->duration = 0.2;
                h->cleanedFilePath = fmt::format("/home/u/Documents/document {:06}-clean.pdf", n);
                context->insert(h);
            }
            context->save();
        }
    }
    fmt::print("  100,000 history records written ({:.1f} MB)\n", std::filesystem::file_size(url) / 1e6);

    std::vector<double> opens;
    for (int i = 0; i < 30; ++i) {
        const auto t = Clock::now();
        auto container = ModelContainerFactory::atURL(url);
        opens.push_back(millisecondsSince(t));
    }
    print("open the store", summarize(opens), 20);

    auto container = ModelContainerFactory::atURL(url);
    std::vector<double> fetches;
    for (int i = 0; i < 200; ++i) {
        auto context = container->makeContext();
        const auto t = Clock::now();
        const auto recent = context->fetch(HistoryQueries::recent(10));
        fetches.push_back(millisecondsSince(t));
        if (recent.size() != 10) return 1;
    }
    print("recently cleaned: 10 of 100,000 history records", summarize(fetches), 5);

    // On disk, then in memory: the difference is what the synced commit costs.
    for (auto [target, label] : {std::pair{container, "insert 2,000 queued files in one save"},
                                 std::pair{ModelContainerFactory::inMemory(), "  the same in memory (no disk)"}}) {
        std::vector<double> inserts;
        for (int round = 0; round < 7; ++round) {
            auto context = target->makeContext();
            std::vector<std::shared_ptr<QueuedFile>> files;
            const auto now = std::chrono::system_clock::now();
            for (int i = 0; i < 2000; ++i)
                files.push_back(std::make_shared<QueuedFile>(Uuid::random(), fmt::format("scan {:04}", i), "jpg",
                                                             fmt::format("/home/u/.local/share/Tavrin/Staging/{}.jpg", i),
                                                             2'000'000, FileType::jpeg, now));
            const auto t = Clock::now();
            for (auto& f : files) context->insert(f);
            context->save();
            inserts.push_back(millisecondsSince(t));
        }
        print(label, summarize(inserts), 200);
    }
    if (argc <= 1) std::filesystem::remove_all(dir);
    return 0;
}
