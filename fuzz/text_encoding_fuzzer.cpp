// The text edge on arbitrary bytes: what comes out is valid UTF-8, serialises as JSON, and
// (for terminals) holds no control character at all. A broken promise aborts.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string_view>

#include "model/metadata_value.h"
#include "model/text_encoding.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tavrin;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const std::string valid = validUTF8(bytes);
    if (!isValidUTF8(valid) || validUTF8(valid) != valid) std::abort();
    if (isValidUTF8(bytes) != (valid == bytes)) std::abort();
    (void)nlohmann::json(MetadataValue::string(std::string(bytes)).asString()).dump();  // throws on bad UTF-8
    const std::string shown = printableText(bytes);
    if (!isValidUTF8(shown)) std::abort();
    for (unsigned char c : shown)
        if (c < 0x20 || c == 0x7F) std::abort();
    if (shown.find("\xC2\x9B") != std::string::npos || shown.find("\xE2\x80\xAE") != std::string::npos) std::abort();
    const std::string encoded = base64Encode(bytes);
    if (base64Decode(encoded) != bytes) std::abort();
    return 0;
}
