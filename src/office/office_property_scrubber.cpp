#include "office/office_property_scrubber.h"

#include <map>

#include "office/office_xml_scrubber_support.h"

namespace tavrin {

namespace {

using C = MetadataCategory;
using Mapping = OfficePropertyScrubber::Mapping;

bool isUpper(char c) { return c >= 'A' && c <= 'Z'; }
bool isLower(char c) { return c >= 'a' && c <= 'z'; }

MetadataItem propertyItem(const std::string& key, std::string displayName, std::string value, MetadataCategory category,
                          bool removable) {
    return MetadataItem{key, key, std::move(displayName), MetadataValue::string(std::move(value)), category,
                        MetadataSource::zipXML, removable};
}

// Sorts each property of a part into removed or retained, then takes the removed ones out of it.
struct PropertySorting {
    OfficePropertyScrubber::Result result;
    std::vector<XMLNode> doomed;

    void sort(MetadataItem item, XMLNode node, const CleaningProfile& profile) {
        if (profile.shouldRemove(item)) {
            doomed.push_back(std::move(node));
            result.removed.push_back(std::move(item));
        } else {
            result.retained.push_back(std::move(item));
        }
    }

    template <typename Document>
    std::optional<OfficePropertyScrubber::Result> finish(Document& document) {
        for (auto& element : doomed) element.detach();
        auto text = scrubbing::serializedPartText(document);
        if (!text) return std::nullopt;
        result.xml = std::move(*text);
        return std::move(result);
    }
};

}  // namespace

const std::vector<Mapping>& OfficePropertyScrubber::coreMappings() {
    static const std::vector<Mapping> mappings = {
        {"creator", "Core.Creator", C::authorIdentity, true},
        {"lastModifiedBy", "Core.LastModifiedBy", C::authorIdentity, true},
        {"title", "Core.Title", C::authorIdentity, true},
        {"keywords", "Core.Keywords", C::authorIdentity, true},
        {"subject", "Core.Subject", C::authorIdentity, true},
        {"category", "Core.Category", C::authorIdentity, true},
        {"description", "Core.Description", C::authorIdentity, true},
        {"contentStatus", "Core.ContentStatus", C::documentHistory, true},
        {"language", "Core.Language", C::softwareInfo, true},
        {"created", "Core.Created", C::timestamps, true},
        {"modified", "Core.Modified", C::timestamps, true},
        {"lastPrinted", "Core.LastPrinted", C::timestamps, true},
        {"revision", "Core.Revision", C::documentHistory, true},
    };
    return mappings;
}

const std::vector<Mapping>& OfficePropertyScrubber::appMappings() {
    static const std::vector<Mapping> mappings = {
        {"Application", "App.Application", C::softwareInfo, true},
        {"AppVersion", "App.AppVersion", C::softwareInfo, true},
        {"Template", "App.Template", C::softwareInfo, true},
        {"Company", "App.Company", C::companyInfo, true},
        {"Manager", "App.Manager", C::companyInfo, true},
        {"HyperlinkBase", "App.HyperlinkBase", C::authorIdentity, true},
        {"TotalTime", "App.TotalTime", C::documentHistory, true},
        {"Pages", "App.Pages", C::documentHistory, false},
        {"Words", "App.Words", C::documentHistory, false},
        {"Characters", "App.Characters", C::documentHistory, false},
        {"CharactersWithSpaces", "App.CharactersWithSpaces", C::documentHistory, false},
        {"Lines", "App.Lines", C::documentHistory, false},
        {"Paragraphs", "App.Paragraphs", C::documentHistory, false},
        {"Slides", "App.Slides", C::documentHistory, false},
        {"HiddenSlides", "App.HiddenSlides", C::documentHistory, true},
        {"PresentationFormat", "App.PresentationFormat", C::softwareInfo, true},
        {"DocSecurity", "App.DocSecurity", C::documentHistory, false},
    };
    return mappings;
}

std::optional<OfficePropertyScrubber::Result> OfficePropertyScrubber::scrubProperties(std::string_view xml,
                                                                                      const CleaningProfile& profile,
                                                                                      const std::vector<Mapping>& mappings) {
    try {
        auto document = scrubbing::parsedPartText(xml);
        if (!document) return std::nullopt;
        std::map<std::string, const Mapping*, std::less<>> byName;
        for (const auto& mapping : mappings) byName.emplace(mapping.localName, &mapping);

        PropertySorting sorting;
        for (const auto& child : document->rootElement()->children()) {
            if (child.kind() != XMLNode::Kind::element) continue;
            const auto found = byName.find(child.localName());
            if (found == byName.end()) continue;
            std::string text = child.stringValue();
            if (text.empty()) continue;
            const Mapping& mapping = *found->second;
            sorting.sort(propertyItem(mapping.key, displayName(mapping.key), std::move(text), mapping.category,
                                      mapping.removable),
                         child, profile);
        }
        return sorting.finish(*document);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

std::optional<OfficePropertyScrubber::Result> OfficePropertyScrubber::scrubCustom(std::string_view xml,
                                                                                  const CleaningProfile& profile) {
    try {
        auto document = scrubbing::parsedPartText(xml);
        if (!document) return std::nullopt;
        PropertySorting sorting;
        for (const auto& node : document->rootElement()->nodesForXPath("//*[local-name()='property']")) {
            const auto property = node.asElement();
            if (!property) continue;
            const auto name = property->attributeForName("name");
            if (!name || name->stringValue().empty()) continue;
            const std::string propertyName = name->stringValue();
            sorting.sort(propertyItem("Custom." + propertyName, propertyName, property->stringValue(), C::companyInfo, true),
                         *property, profile);
        }
        return sorting.finish(*document);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

std::string OfficePropertyScrubber::displayName(std::string_view key) {
    const auto dot = key.rfind('.');
    const std::string_view word = dot == std::string_view::npos ? key : key.substr(dot + 1);
    std::string label;
    label.reserve(word.size() + 8);
    for (std::size_t i = 0; i < word.size(); ++i) {
        const char c = word[i];
        if (i > 0 && isUpper(c)) {
            const bool afterLower = isLower(word[i - 1]);
            // "XMLVersion": the V starts a new word after a run of capitals.
            const bool startsWord = isUpper(word[i - 1]) && i + 1 < word.size() && isLower(word[i + 1]);
            if (afterLower || startsWord) label.push_back(' ');
        }
        label.push_back(i == 0 && isLower(c) ? static_cast<char>(c - 32) : c);
    }
    return label;
}

std::optional<std::string> OfficePropertyScrubber::withoutPartTitles(const std::string& xml) {
    auto document = scrubbing::parsedPartText(xml);
    if (!document || !document->rootElement()) return std::nullopt;
    std::vector<XMLNode> doomed;
    for (const auto& child : document->rootElement()->children())
        if (child.kind() == XMLNode::Kind::element &&
            (child.localName() == "TitlesOfParts" || child.localName() == "HeadingPairs"))
            doomed.push_back(child);
    if (doomed.empty()) return xml;
    for (auto& node : doomed) node.detach();
    return scrubbing::serializedPartText(*document);
}


}  // namespace tavrin
