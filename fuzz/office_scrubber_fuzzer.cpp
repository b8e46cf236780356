// The scrubbers on hostile part text: every operation on part text, with every category, and
// the detectors on a package holding the input as each part they read. Refusals are fine;
// crashes, leaks and undefined behaviour are not. Whatever a scrubber returns must parse again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>

#include "office/office_hidden_content_detector.h"
#include "office/office_property_scrubber.h"
#include "office/office_text_encoding.h"
#include "office/office_xml_document.h"
#include "office/office_xml_scrubber.h"
#include "zip/archive.h"

namespace {

using namespace tavrin;

void mustParse(const std::optional<std::string>& text) {
    if (!text) return;
    if (!OfficeXMLDocument::parse(std::span(reinterpret_cast<const std::uint8_t*>(text->data()), text->size()))) std::abort();
}

std::vector<std::uint8_t> packageWith(const std::string& part) {
    Archive archive(std::vector<std::uint8_t>{}, Archive::AccessMode::create);
    for (const char* path : {"word/document.xml", "word/settings.xml", "word/_rels/document.xml.rels",
                             "word/_rels/settings.xml.rels", "xl/workbook.xml", "xl/_rels/workbook.xml.rels",
                             "xl/worksheets/sheet1.xml", "ppt/presentation.xml", "ppt/_rels/presentation.xml.rels",
                             "ppt/slides/slide1.xml", "word/header1.xml"})
        archive.addEntry(path, EntryType::file, static_cast<std::int64_t>(part.size()), {}, std::nullopt,
                         CompressionMethod::none, Archive::defaultWriteChunkSize, nullptr,
                         [&part](std::int64_t position, std::size_t size) {
                             const auto* begin = reinterpret_cast<const std::uint8_t*>(part.data()) + position;
                             return std::vector<std::uint8_t>(begin, begin + size);
                         });
    return *archive.data();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto text = OfficeTextEncoding::decodeXML(std::span(data, size));
    if (!text) return 0;
    CleaningProfile all;
    all.categoriesToRemove = {MetadataCategory::documentHistory, MetadataCategory::authorIdentity,
                              MetadataCategory::commentsAnnotations, MetadataCategory::timestamps,
                              MetadataCategory::companyInfo, MetadataCategory::softwareInfo};
    CleaningProfile identityOnly;
    identityOnly.categoriesToRemove = {MetadataCategory::authorIdentity};
    const auto styles = OfficeXMLScrubber::vanishStyleIDs(*text);
    mustParse(OfficeXMLScrubber::scrubWordPart(*text, all, styles.empty() ? std::set<std::string>{"S"} : styles));
    mustParse(OfficeXMLScrubber::scrubWordPart(*text, identityOnly, {}));
    mustParse(OfficeXMLScrubber::scrubGenericOfficePart(*text, all, true));
    mustParse(OfficeXMLScrubber::scrubIdentityFields(*text, true, true));
    mustParse(OfficeXMLScrubber::emptiedRevisionPart(*text));
    if (auto core = OfficePropertyScrubber::scrubProperties(*text, all, OfficePropertyScrubber::coreMappings()))
        mustParse(core->xml);
    if (auto custom = OfficePropertyScrubber::scrubCustom(*text, all)) mustParse(custom->xml);

    if (size > 64 * 1024) return 0;  // the package round keeps each input quick
    try {
        const Archive archive(packageWith(*text), Archive::AccessMode::read);
        (void)OfficeHiddenContentDetector::detect(archive);
        (void)OfficeHiddenContentDetector::hiddenWorksheetPaths(archive);
        (void)OfficeHiddenContentDetector::hiddenSlidePaths(archive);
        (void)OfficeHiddenContentDetector::latentDataSourcePartsToDrop(archive);
        (void)OfficeHiddenContentDetector::printerSettingsRIds("xl/worksheets/sheet1.xml", {"xl/a.bin"}, archive);
    } catch (const ArchiveError&) {
    }
    return 0;
}
