// The Office writer on hostile packages: the whole clean, with every category, from a file
// holding the input. Refusals are fine; crashes, leaks, undefined behaviour and an accepted
// output whose relationships do not hold are not. Also the hidden-content and dangling-reference
// scrubbers on the input taken as the text of one part.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "model/cleaning_profile.h"
#include "office/office_dropped_parts.h"
#include "office/office_hidden_content_scrubber.h"
#include "office/office_metadata_writer.h"
#include "zip/archive.h"

namespace {

using namespace tavrin;

// A private folder for the files of one run, removed with everything in it.
struct Scratch {
    std::filesystem::path path;
    Scratch() {
        std::string pattern = (std::filesystem::temp_directory_path() / "tavrin-office-fuzz-XXXXXX").string();
        if (!mkdtemp(pattern.data())) std::abort();
        path = pattern;
    }
    ~Scratch() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
};

void scrubText(const std::string& text) {
    using S = OfficeHiddenContentScrubber;
    (void)S::scrubHiddenSheets(text);
    (void)S::scrubHiddenSlides(text);
    (void)S::scrubInactiveHeaderFooterReferences(text, true);
    (void)S::scrubLatentSettings(text);
    (void)S::scrubLatentRelationships(text);
    (void)S::scrubPrinterSettingsReferences(text, {"rId1", "rId2"});
    (void)scrubDanglingRelationships(text, "word/_rels/document.xml.rels", {"word/comments.xml", "customXml/item1.xml"});
    (void)scrubDanglingContentTypeOverrides(text, {"word/comments.xml"});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    if (bytes.find('<') != std::string::npos) scrubText(bytes);
    if (size < 22 || bytes.compare(0, 2, "PK") != 0) return 0;

    Scratch scratch;
    const auto source = scratch.path / "input.docx";
    const auto output = scratch.path / "output.docx";
    {
        std::ofstream out(source, std::ios::binary);
        out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }
    bool accepted = false;
    try {
        const auto result = OfficeMetadataWriter().cleanMetadata(source, output, CleaningProfile::maximumPrivacy());
        accepted = result.verifiedClean;
    } catch (const std::exception&) {
    }
    if (accepted) {
        const Archive archive(output, Archive::AccessMode::read);
        if (OfficeMetadataWriter::packageInconsistency(archive)) std::abort();
    }
    return 0;
}
