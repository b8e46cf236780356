// Replays every file of a corpus directory through a fuzz target's entry point, without
// libFuzzer, so that the ordinary test run catches regressions on known inputs.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        std::error_code ec;
        if (!std::filesystem::is_directory(argv[i], ec)) continue;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i])) {
            if (!entry.is_regular_file()) continue;
            std::ifstream in(entry.path(), std::ios::binary);
            std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
            LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
            ++replayed;
        }
    }
    // An empty input is always worth a run.
    LLVMFuzzerTestOneInput(nullptr, 0);
    std::printf("replayed %d corpus files\n", replayed);
    return 0;
}
