// tavrin: inspect and clean the metadata of files from the command line.
#include <malloc.h>

#include <string_view>

#include "cli.h"
#include "model/temporary_directories.h"

int main(int argc, char** argv) {
    // First, before any thread starts: an interrupted run removes its temporary folders. The
    // watcher is the exception: it takes SIGINT and SIGTERM on its own event loop and ends
    // cleanly, removing its folders as its work unwinds.
    const bool watching = argc >= 3 && std::string_view(argv[1]) == "watch" && std::string_view(argv[2]) == "run";
    if (!watching) tavrin::temporaries::installTerminationCleanup();
    // A clean allocates and frees compression and decode buffers for every entry of every file;
    // keeping freed memory in the process, instead of handing it back to the kernel each time,
    // spares a batch most of its system time.
    mallopt(M_TRIM_THRESHOLD, 64 << 20);
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    return tavrin::cli::run(argc, argv);
}
