// The PDF byte layer on arbitrary bytes: trailer parse, Info dictionary search, string decoding,
// and the last-resort reading of an Info dictionary's top-level strings.
#include <cstddef>
#include <cstdint>

#include "pdf/pdf_byte_layer.h"
#include "pdf/pdf_raw_info.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tavrin::pdfBytes;
    const ByteView bytes(data, size);
    const ByteView tail = size > trailerSearchWindow ? bytes.last(trailerSearchWindow) : bytes;
    if (auto trailer = parseTrailer(tail, static_cast<std::int64_t>(size))) {
        (void)makeInfoOverrideUpdate(*trailer, {{"Title", "<FEFF0041>"}});
        if (trailer->infoRef) {
            if (auto header = lastObjectHeaderOffset(trailer->infoRef->object, trailer->infoRef->generation, bytes)) {
                if (auto open = indexOfDictionaryOpen(bytes, *header))
                    (void)indexOfMatchingDictionaryClose(bytes, *open + 2);
                (void)topLevelStringEntries(bytes, *header);
            }
        }
    }
    (void)indexOfMatchingDictionaryClose(bytes, 0);
    (void)topLevelStringEntries(bytes, 0);
    std::size_t total = 0;
    forEachDecodedObjectString(bytes, [&](const std::string& s) { total += s.size(); });
    return 0;
}
