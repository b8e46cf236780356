#include "office/office_metadata_reader.h"
#include "office/office_package_check.h"

#include <charconv>

#include "model/pipeline_error.h"
#include "office/iso8601_date.h"
#include "office/office_hidden_content_detector.h"
#include "office/xml_document.h"
#include "zip/archive.h"

namespace tavrin {

namespace {

using C = MetadataCategory;

struct PropertyRow {
    const char* element;
    const char* id;
    const char* displayName;
    MetadataCategory category;
    bool isDate = false;
    bool isRemovable = true;
};

// Core properties in their order of extraction.
constexpr PropertyRow coreRows[] = {
    {"creator", "Core.Creator", "Creator", C::authorIdentity},
    {"title", "Core.Title", "Title", C::authorIdentity},
    {"subject", "Core.Subject", "Subject", C::authorIdentity},
    {"description", "Core.Description", "Description", C::authorIdentity},
    {"lastModifiedBy", "Core.LastModifiedBy", "Last Modified By", C::authorIdentity},
    {"keywords", "Core.Keywords", "Keywords", C::authorIdentity},
    {"category", "Core.Category", "Category", C::authorIdentity},
    {"revision", "Core.Revision", "Revision Number", C::documentHistory},
    {"contentStatus", "Core.ContentStatus", "Content Status", C::documentHistory},
    {"language", "Core.Language", "Language", C::softwareInfo},
    {"created", "Core.Created", "Date Created", C::timestamps, true},
    {"modified", "Core.Modified", "Date Modified", C::timestamps, true},
    {"lastPrinted", "Core.LastPrinted", "Last Printed", C::timestamps, true},
};

// Extended properties; counters and the security flag are facts about the document and are
// not offered for removal.
constexpr PropertyRow appRows[] = {
    {"Application", "App.Application", "Application", C::softwareInfo},
    {"AppVersion", "App.AppVersion", "Application Version", C::softwareInfo},
    {"Company", "App.Company", "Company", C::companyInfo},
    {"Manager", "App.Manager", "Manager", C::companyInfo},
    {"Template", "App.Template", "Template", C::softwareInfo},
    // A folder or address on the author's machine, such as "C:\\Users\\jane\\Documents\\".
    {"HyperlinkBase", "App.HyperlinkBase", "Hyperlink Base", C::authorIdentity},
    {"TotalTime", "App.TotalTime", "Total Editing Time (minutes)", C::documentHistory},
    {"Pages", "App.Pages", "Page Count", C::documentHistory, false, false},
    {"Words", "App.Words", "Word Count", C::documentHistory, false, false},
    {"Characters", "App.Characters", "Character Count", C::documentHistory, false, false},
    {"CharactersWithSpaces", "App.CharactersWithSpaces", "Characters (with spaces)", C::documentHistory, false, false},
    {"Lines", "App.Lines", "Line Count", C::documentHistory, false, false},
    {"Paragraphs", "App.Paragraphs", "Paragraph Count", C::documentHistory, false, false},
    {"Slides", "App.Slides", "Slide Count", C::documentHistory, false, false},
    {"HiddenSlides", "App.HiddenSlides", "Hidden Slide Count", C::documentHistory},
    {"PresentationFormat", "App.PresentationFormat", "Presentation Format", C::softwareInfo},
    {"DocSecurity", "App.DocSecurity", "Document Security", C::documentHistory, false, false},
};

std::optional<std::int64_t> parseInteger(std::string_view text) {
    if (!text.empty() && text.front() == '+') text.remove_prefix(1);
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

std::optional<double> parseDouble(std::string_view text) {
    if (!text.empty() && text.front() == '+') text.remove_prefix(1);
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

MetadataItem item(std::string id, std::string displayName, MetadataValue value, MetadataCategory category,
                  bool isRemovable) {
    return MetadataItem{id, id, std::move(displayName), std::move(value), category, MetadataSource::zipXML, isRemovable};
}

// Property parts hold a few dozen elements; a part with far more is hostile (a small entry
// that inflates to millions of empty elements would cost gigabytes as a tree). The count is
// taken by a tree-less scan before the tree is built.
constexpr std::size_t maximumPropertyElements = 100'000;

XMLDocument parseProperties(std::span<const std::uint8_t> data, const char* part) {
    std::size_t elements = 0;
    const std::string_view text(reinterpret_cast<const char*>(data.data()), data.size());
    const std::string_view pieces[] = {text};
    // A scan that fails leaves the precise reason to the parse below.
    XMLDocument::scanStartTags(pieces, [&](const XMLStartTag&) { ++elements; });
    if (elements > maximumPropertyElements)
        throw OfficeMetadataReaderError::xmlParsingFailed(
            part, "The part holds more than " + std::to_string(maximumPropertyElements) + " elements");
    try {
        return XMLDocument(data);
    } catch (const XMLDocumentError& e) {
        throw OfficeMetadataReaderError::xmlParsingFailed(part, e.what());
    }
}

// The first element of each wanted local name, in document order, found in one walk.
std::vector<std::optional<XMLElement>> firstByLocalNames(const XMLDocument& document,
                                                         const std::vector<std::string_view>& names) {
    std::vector<std::optional<XMLElement>> found(names.size());
    const auto root = document.rootElement();
    std::size_t missing = names.size();
    for (auto element = root; element && missing > 0; element = element->nextInWalk(*root)) {
        const std::string_view local = element->localNameView();
        for (std::size_t i = 0; i < names.size(); ++i)
            if (!found[i] && names[i] == local) {
                found[i] = *element;
                --missing;
            }
    }
    return found;
}

std::optional<MetadataItem> extractXMLElement(const XMLNode& node, const PropertyRow& row) {
    std::string text = node.stringValue();
    if (text.empty()) return std::nullopt;
    if (row.isDate) {
        auto date = parseInternetDateTime(text, FractionalSeconds::required);
        if (!date) date = parseInternetDateTime(text, FractionalSeconds::refused);
        return item(row.id, row.displayName, date ? MetadataValue::date(*date) : MetadataValue::string(std::move(text)),
                    row.category, true);
    }
    const auto integer = parseInteger(text);
    return item(row.id, row.displayName, integer ? MetadataValue::integer(*integer) : MetadataValue::string(std::move(text)),
                row.category, row.isRemovable);
}

std::vector<MetadataItem> extractRows(const XMLDocument& document, std::span<const PropertyRow> rows) {
    std::vector<std::string_view> names;
    for (const auto& row : rows) names.push_back(row.element);
    const auto nodes = firstByLocalNames(document, names);
    std::vector<MetadataItem> items;
    for (std::size_t i = 0; i < rows.size(); ++i)
        if (nodes[i])
            if (auto found = extractXMLElement(*nodes[i], rows[i])) items.push_back(std::move(*found));
    return items;
}

MetadataValue extractCustomPropertyValue(const XMLElement& property) {
    std::optional<XMLElement> child;
    for (const auto& node : property.children())
        if ((child = node.asElement())) break;
    if (!child) return MetadataValue::string(property.stringValue());
    const std::string kind = child->localName();
    std::string text = child->stringValue();
    if (kind == "lpwstr" || kind == "lpstr" || kind == "bstr") return MetadataValue::string(std::move(text));
    for (const char* integerKind : {"i1", "i2", "i4", "i8", "int", "ui1", "ui2", "ui4", "ui8", "uint"})
        if (kind == integerKind) {
            const auto value = parseInteger(text);
            return value ? MetadataValue::integer(*value) : MetadataValue::string(std::move(text));
        }
    if (kind == "r4" || kind == "r8" || kind == "decimal") {
        const auto value = parseDouble(text);
        return value ? MetadataValue::number(*value) : MetadataValue::string(std::move(text));
    }
    if (kind == "bool") {
        const std::string lower = lowerCasedPath(text);
        return MetadataValue::boolean(lower == "true" || lower == "1");
    }
    if (kind == "filetime" || kind == "date") {
        const auto date = parseInternetDateTime(text, FractionalSeconds::refused);
        return date ? MetadataValue::date(*date) : MetadataValue::string(std::move(text));
    }
    return MetadataValue::string(std::move(text));
}

const char* const propertyParts[] = {"docProps/core.xml", "docProps/app.xml", "docProps/custom.xml"};

}  // namespace

std::string OfficeMetadataReaderError::description() const {
    switch (errorCase()) {
        case Case::cannotOpenArchive: return "Unable to open Office document as ZIP archive";
        case Case::xmlParsingFailed: return "Failed to parse " + part_ + ": " + detail();
        case Case::notAnOfficePackage: return "The file is not an Office Open XML package (" + detail() + ")";
    }
    return "";
}

std::vector<MetadataItem> OfficeMetadataReader::parseCoreXML(std::span<const std::uint8_t> data) {
    return extractRows(parseProperties(data, "core.xml"), coreRows);
}

std::vector<MetadataItem> OfficeMetadataReader::parseAppXML(std::span<const std::uint8_t> data) {
    return extractRows(parseProperties(data, "app.xml"), appRows);
}

std::vector<MetadataItem> OfficeMetadataReader::parseCustomXML(std::span<const std::uint8_t> data) {
    const XMLDocument document = parseProperties(data, "custom.xml");
    std::vector<MetadataItem> items;
    const auto root = document.rootElement();
    if (!root) return items;
    for (auto property = root; property; property = property->nextInWalk(*root)) {
        if (property->localNameView() != "property") continue;
        const auto name = property->attributeForName("name");
        if (!name || name->stringValue().empty()) continue;
        const std::string text = name->stringValue();
        items.push_back(MetadataItem{"Custom." + text, "Custom." + text, text, extractCustomPropertyValue(*property),
                                     MetadataCategory::companyInfo, MetadataSource::zipXML, true});
    }
    return items;
}

bool OfficeMetadataReader::canRead(const std::filesystem::path& url) const {
    if (!MetadataReader::canRead(url)) return false;
    try {
        Archive archive(url, Archive::AccessMode::read);
        return true;
    } catch (const ArchiveError&) {
        return false;
    }
}

MetadataTree OfficeMetadataReader::readMetadata(const std::filesystem::path& url) const {
    const FileType type = detectFileType(url);
    std::optional<Archive> archive;
    try {
        archive.emplace(url, Archive::AccessMode::read);
    } catch (const ArchiveError&) {
        throw PipelineError::readFailed(url, std::make_exception_ptr(OfficeMetadataReaderError::cannotOpenArchive()));
    }
    // An OpenDocument file renamed ".docx" is a ZIP too, and would read as one without metadata.
    if (auto reason = OfficePackageCheck::notAnOfficePackage(*archive, false))
        throw OfficeMetadataReaderError::notAnOfficePackage(*reason);
    using Parser = std::vector<MetadataItem> (*)(std::span<const std::uint8_t>);
    const Parser parsers[] = {&parseCoreXML, &parseAppXML, &parseCustomXML};
    std::vector<MetadataItem> items;
    for (std::size_t i = 0; i < std::size(propertyParts); ++i) {
        const auto entry = (*archive)[propertyParts[i]];
        if (!entry) continue;
        for (auto& found : parsers[i](extractEntry(*archive, *entry))) items.push_back(std::move(found));
    }
    for (auto& found : OfficeHiddenContentDetector::detect(*archive)) items.push_back(std::move(found));
    return buildTree(items, url, type);
}

}  // namespace tavrin
