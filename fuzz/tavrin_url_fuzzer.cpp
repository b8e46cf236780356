// tavrin: links and text/uri-lists from other programs: the parsers never fail, and the files a
// link names come back unchanged when built into a link again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "handoff/tavrin_url.h"
#include "handoff/url_dispatch.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    using namespace tavrin;
    (void)URLParts::parse(text);
    (void)TavrinURL::requestsExternalHandoff(text);
    (void)TavrinURL::openFileURL(text);
    (void)fileURLsFromURIList(text);
    (void)printable(text, 64);
    const auto request = TavrinURL::cleanRequest(text);
    const auto files = TavrinURL::enqueueFileURLs(text);
    std::vector<std::filesystem::path> normalized;
    for (const auto& file : files) normalized.push_back(file.lexically_normal());
    if (!files.empty() && TavrinURL::enqueueFileURLs(TavrinURL::enqueueURL(files)) != normalized) std::abort();
    if (request) {
        const auto again = TavrinURL::cleanRequest(*TavrinURL::cleanURL(request->fileURLs, request->presetName,
                                                                         request->shareOnly));
        if (!again || again->presetName != request->presetName || again->shareOnly != request->shareOnly) std::abort();
    }
    return 0;
}
