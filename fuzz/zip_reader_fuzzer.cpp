// The ZIP reader on arbitrary bytes: open, list, and extract every entry with its checksum
// tested. Extraction of one entry stops after 1 MiB so that a valid bomb costs no time.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "zip/archive.h"

namespace {
struct Enough {};
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tavrin;
    try {
        const Archive archive(std::vector<std::uint8_t>(data, data + size), Archive::AccessMode::read);
        for (const auto& entry : archive) {
            (void)entry.type();
            (void)entry.modificationDate();
            std::size_t seen = 0;
            try {
                archive.extract(entry, 4096, false, nullptr, [&](std::span<const std::uint8_t> chunk) {
                    seen += chunk.size();
                    if (seen > (1u << 20)) throw Enough{};
                });
            } catch (const ArchiveError&) {
            } catch (const Enough&) {
            }
        }
    } catch (const ArchiveError&) {
    }
    return 0;
}
