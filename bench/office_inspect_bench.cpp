// Times the Office reader in process on a large Word document, as `tavrin inspect` runs it but
// without the start-up of the program, and prints the time, the bytes read from the file per
// inspection and the peak resident memory. The bytes read show whether any media entry was
// inflated: the document's properties and markup are a few hundred kilobytes of its 50 MB.
//   tavrin-office-inspect-bench [DOCX] [RUNS]
// Without DOCX, writes the 50 MB document (45 MB of photos) of the inspection figure to a
// temporary directory first.
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <fmt/format.h>

#include "office/office_metadata_reader.h"
#include "office_builders.h"

namespace {

double cpuMilliseconds() {
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) * 1e3 + static_cast<double>(ts.tv_nsec) / 1e6;
}

double peakResidentMB() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

// Bytes this process has read through system calls so far.
long long bytesRead() {
    std::ifstream io("/proc/self/io");
    std::string key;
    long long value = 0;
    while (io >> key >> value)
        if (key == "rchar:") return value;
    return -1;
}

}  // namespace

int main(int argc, char** argv) {
    std::filesystem::path docx = argc > 1 ? argv[1] : "";
    const int runs = argc > 2 ? std::max(1, std::atoi(argv[2])) : 10;
    std::filesystem::path scratch;
    if (docx.empty()) {
        scratch = std::filesystem::temp_directory_path() / fmt::format("tavrin-inspect-bench-{}", ::getpid());
        std::filesystem::create_directories(scratch);
        docx = scratch / "large-media.docx";
        // Built in a child process, so that building it leaves no mark on this one's memory.
        const pid_t child = fork();
        if (child == 0) {
            tavrin::corpus::writeFile(docx, tavrin::corpus::dirtyDocx(3000, 90, 2000, 1500, 21));
            _exit(0);
        }
        int status = 0;
        if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            fmt::print(stderr, "could not write the document\n");
            return 1;
        }
    }
    const double baseline = peakResidentMB();
    const tavrin::OfficeMetadataReader reader;

    double best = 1e9;
    double bestCPU = 1e9;
    long long readPerRun = 0;
    std::size_t items = 0;
    for (int i = 0; i < runs; ++i) {
        const long long readStart = bytesRead();
        const double cpuStart = cpuMilliseconds();
        const auto start = std::chrono::steady_clock::now();
        const auto tree = reader.readMetadata(docx);
        best = std::min(best, std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
        bestCPU = std::min(bestCPU, cpuMilliseconds() - cpuStart);
        readPerRun = bytesRead() - readStart;
        items = tree.totalItemCount();
    }
    fmt::print("office inspect: {} ({:.1f} MB), {} items; best of {}: {:.1f} ms ({:.1f} ms processor time); "
               "{:.2f} MB read per inspection; peak RSS {:.1f} MB (before the first read {:.1f} MB)\n",
               docx.filename().string(), static_cast<double>(std::filesystem::file_size(docx)) / 1e6, items, runs, best,
               bestCPU, static_cast<double>(readPerRun) / 1e6, peakResidentMB(), baseline);
    if (!scratch.empty()) std::filesystem::remove_all(scratch);
    return 0;
}
