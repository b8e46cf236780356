// exiftool's JSON as the reader parses it: the tool prints what it found in a file, so its
// output is as untrusted as the file. Anything but a PipelineError is a bug.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "model/pipeline_error.h"
#include "model/snapshot.h"
#include "exiftool/exiftool_mapping.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tavrin;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    try {
        for (const auto& item : parseExifToolJSON(text, "fuzz.jpg")) {
            (void)item.value.description();
            // Every text of the model is valid UTF-8, so a report of it never fails to serialise.
            (void)nlohmann::json(item).dump();
        }
    } catch (const PipelineError&) {
    }
    (void)exifToolHumanReadableName(text);
    (void)exifToolCategorize(text.substr(0, size / 2), text.substr(size / 2));
    return 0;
}
