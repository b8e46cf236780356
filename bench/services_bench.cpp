// Service-layer figures: folder expansion, staging, and a batch through the processing service
// against the command line's clean of the same files in the same run.
//   tavrin-services-bench WORKDIR SMALL_CORPUS_DIR TAVRIN_BINARY [BATCH_FILES]
// Prints one line per figure.

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include <fmt/core.h>

#include "intake/folder_expansion_service.h"
#include "pipeline/batch_runner.h"
#include "services/processing_service.h"
#include "services/staging_service.h"

extern char** environ;

namespace stdfs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

void fresh(const stdfs::path& dir) {
    stdfs::remove_all(dir);
    stdfs::create_directories(dir);
}

void writeSmallFiles(const stdfs::path& dir, int count) {
    fresh(dir);
    for (int i = 0; i < count; ++i) {
        // Spread over sub-folders, as a real folder of documents would be.
        const auto sub = dir / fmt::format("folder{:02}", i % 20);
        stdfs::create_directories(sub);
        std::FILE* f = std::fopen((sub / fmt::format("file{:04}.jpg", i)).c_str(), "wb");
        std::fputs("small file contents, a few bytes long\n", f);
        std::fclose(f);
    }
}

int run(const std::vector<std::string>& argv) {
    std::vector<char*> args;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    const int rc = ::posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0) return -1;
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        fmt::print(stderr, "usage: tavrin-services-bench WORKDIR SMALL_CORPUS_DIR TAVRIN_BINARY [BATCH_FILES]\n");
        return 2;
    }
    const stdfs::path work = argv[1];
    const stdfs::path corpus = argv[2];
    const std::string tavrin = argv[3];
    const int batchFiles = argc > 4 ? std::stoi(argv[4]) : 500;

    // Folder expansion: 2,000 files in 20 folders, best of 10 (the page cache warm, as after a drop).
    const auto tree = work / "expand";
    writeSmallFiles(tree, 2000);
    double bestExpand = 1e9;
    std::size_t found = 0;
    for (int i = 0; i < 10; ++i) {
        const auto start = Clock::now();
        found = tavrin::FolderExpansionService().expand({tree}).fileURLs.size();
        bestExpand = std::min(bestExpand, secondsSince(start));
    }
    fmt::print("expand folder of 2000 files     {:8.1f} ms  ({} files, best of 10)\n", bestExpand * 1000, found);

    // Staging: stageCopy of the same 2,000 small files.
    std::vector<stdfs::path> files = tavrin::FolderExpansionService().expand({tree}).fileURLs;
    const auto stagingDir = work / "Staging";
    double bestStage = 1e9;
    for (int round = 0; round < 3; ++round) {
        fresh(stagingDir);
        tavrin::StagingService staging(stagingDir);
        const auto start = Clock::now();
        for (const auto& f : files) staging.stageCopy(f);
        bestStage = std::min(bestStage, secondsSince(start));
    }
    fmt::print("stage 2000 small files          {:8.1f} ms  (best of 3)\n", bestStage * 1000);

    // A batch of small real documents, replicated from the corpus, through the service and
    // through `tavrin clean` on the same folder, alternately, best of 3 each.
    const auto batchDir = work / "batch";
    fresh(batchDir);
    std::vector<stdfs::path> sources;
    for (const auto& entry : stdfs::directory_iterator(corpus)) sources.push_back(entry.path());
    std::sort(sources.begin(), sources.end());
    std::vector<stdfs::path> batch;
    for (int i = 0; i < batchFiles && !sources.empty(); ++i) {
        const auto& src = sources[static_cast<std::size_t>(i) % sources.size()];
        const auto dest = batchDir / fmt::format("{:04}-{}", i, src.filename().string());
        stdfs::copy_file(src, dest);
        batch.push_back(dest);
    }
    const int jobs = static_cast<int>(tavrin::defaultParallelism());
    tavrin::ProcessingService service(jobs, tavrin::EngineConfiguration::standard());
    double bestService = 1e9;
    double bestCli = 1e9;
    std::size_t cleaned = 0;
    for (int round = 0; round < 3; ++round) {
        {
            const auto start = Clock::now();
            const auto results = service.processBatch(batch, tavrin::CleaningProfile::maximumPrivacy());
            bestService = std::min(bestService, secondsSince(start));
            cleaned = 0;
            for (const auto& r : results) {
                if (auto c = r.cleaningResult()) {
                    ++cleaned;
                    stdfs::remove_all(c->outputURL.parent_path());
                }
            }
            service.progressStream().drain();
        }
        {
            const auto out = work / "cli-out";
            fresh(out);
            const auto start = Clock::now();
            run({tavrin, "clean", "--profile", "maximum-privacy", "--output-dir", out.string(), "--jobs", std::to_string(jobs),
                 batchDir.string()});
            bestCli = std::min(bestCli, secondsSince(start));
        }
    }
    const double serviceRate = static_cast<double>(batch.size()) / bestService;
    const double cliRate = static_cast<double>(batch.size()) / bestCli;
    fmt::print("processBatch {} files            {:8.1f} files/s ({} cleaned, {} at once)\n", batch.size(), serviceRate, cleaned, jobs);
    fmt::print("tavrin clean, same files        {:8.1f} files/s\n", cliRate);
    fmt::print("processBatch / tavrin clean     {:8.2f}x\n", serviceRate / cliRate);
    stdfs::remove_all(work);
    return 0;
}
