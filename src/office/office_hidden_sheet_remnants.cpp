#include "office/office_hidden_sheet_remnants.h"

#include <charconv>
#include <map>
#include <vector>

#include "office/office_package.h"
#include "office/office_part_text.h"
#include "office/office_xml_document.h"

namespace tavrin {

namespace {

std::optional<long> number(const std::optional<std::string>& text) {
    if (!text) return std::nullopt;
    long value = 0;
    const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), value);
    if (error != std::errc() || end != text->data() + text->size()) return std::nullopt;
    return value;
}

bool isHiddenState(const std::optional<std::string>& state) {
    return state && (*state == "hidden" || *state == "veryHidden");
}

// Whether a formula names the sheet: "Salaries!A1", "'Pay 2024'!A1", "'O''Brien'!A1".
bool formulaNamesSheet(const std::string& formula, const std::string& sheet) {
    std::string quoted = "'";
    for (char c : sheet) quoted += c == '\'' ? std::string("''") : std::string(1, c);
    quoted += "'!";
    if (formula.find(quoted) != std::string::npos) return true;
    const std::string bare = sheet + "!";
    for (auto at = formula.find(bare); at != std::string::npos; at = formula.find(bare, at + 1)) {
        const char before = at == 0 ? ' ' : formula[at - 1];
        if (!(std::isalnum(static_cast<unsigned char>(before)) || before == '_' || before == '.')) return true;
    }
    return false;
}

std::optional<std::string> serialized(XMLDocument& document) { return serializedPartText(document); }

}  // namespace

std::optional<OfficeHiddenSheetRemnants::Rewrite> OfficeHiddenSheetRemnants::workbookWithoutHiddenSheetNames(
    std::string_view workbookXML) {
    auto document = parsePartText(workbookXML);
    if (!document) return std::nullopt;
    std::vector<bool> hiddenAt;  // by sheet index
    std::vector<std::string> hiddenNames;
    std::vector<XMLElement> names;
    std::vector<XMLElement> views;
    forEachElement(*document->rootElement(), [&](XMLElement& element) {
        const auto local = element.localName();
        if (local == "sheet") {
            const bool hidden = isHiddenState(attributeValue(element, "state"));
            hiddenAt.push_back(hidden);
            if (hidden) hiddenNames.push_back(attributeValue(element, "name").value_or(""));
        } else if (local == "definedName") {
            names.push_back(element);
        } else if (local == "workbookView") {
            views.push_back(element);
        }
    });
    if (hiddenNames.empty()) return Rewrite{std::string(workbookXML), 0};
    // The new index of each sheet that stays.
    std::vector<long> newIndex(hiddenAt.size(), -1);
    long next = 0;
    for (std::size_t i = 0; i < hiddenAt.size(); ++i)
        if (!hiddenAt[i]) newIndex[i] = next++;
    const auto moved = [&](long index) -> std::optional<long> {
        if (index < 0 || static_cast<std::size_t>(index) >= newIndex.size() || newIndex[static_cast<std::size_t>(index)] < 0)
            return std::nullopt;
        return newIndex[static_cast<std::size_t>(index)];
    };
    int removed = 0;
    for (auto& name : names) {
        const auto local = number(attributeValue(name, "localSheetId"));
        bool goes = local && !moved(*local);
        for (const auto& sheet : hiddenNames) goes = goes || (!sheet.empty() && formulaNamesSheet(name.stringValue(), sheet));
        if (goes) {
            name.detach();
            ++removed;
        } else if (local) {
            name.addAttribute("localSheetId", std::to_string(*moved(*local)));
        }
    }
    for (auto& view : views) {
        for (const char* attribute : {"activeTab", "firstSheet"}) {
            const auto index = number(attributeValue(view, attribute));
            if (!index) continue;
            // A view on a sheet that goes opens on the first sheet that stays.
            view.addAttribute(attribute, std::to_string(moved(*index).value_or(0)));
        }
    }
    auto xml = serialized(*document);
    if (!xml) return std::nullopt;
    return Rewrite{std::move(*xml), removed};
}

std::optional<std::set<std::size_t>> OfficeHiddenSheetRemnants::sharedStringsUsedBy(
    const Archive& archive, const std::set<std::string>& worksheetPaths) {
    std::set<std::size_t> used;
    for (const auto& path : worksheetPaths) {
        auto document = parsedPart(archive, path);
        if (!document) return std::nullopt;
        forEachElement(*document->rootElement(), [&](XMLElement& element) {
            if (element.localName() != "c" || attributeValue(element, "t") != "s") return;
            for (const auto& child : element.children())
                if (child.kind() == XMLNode::Kind::element && child.localName() == "v")
                    if (const auto index = number(child.stringValue()); index && *index >= 0)
                        used.insert(static_cast<std::size_t>(*index));
        });
    }
    return used;
}

std::optional<OfficeHiddenSheetRemnants::Rewrite> OfficeHiddenSheetRemnants::blankedSharedStrings(
    std::string_view sharedStringsXML, const std::set<std::size_t>& used) {
    auto document = parsePartText(sharedStringsXML);
    if (!document) return std::nullopt;
    std::vector<XMLElement> doomed;  // entries nobody uses that still hold text
    std::size_t index = 0;
    for (const auto& child : document->rootElement()->children()) {
        if (child.kind() != XMLNode::Kind::element || child.localName() != "si") continue;
        if (!used.count(index++) && !child.stringValue().empty())
            if (auto element = child.asElement()) doomed.push_back(*element);
    }
    if (doomed.empty()) return Rewrite{std::string(sharedStringsXML), 0};
    for (auto& si : doomed) {
        for (auto& content : si.children()) content.detach();
        // An empty text keeps the entry, and so the index of every entry after it.
        const std::string prefix = si.prefix();
        si.addChild(document->createElement(prefix.empty() ? "t" : prefix + ":t"));
    }
    auto xml = serialized(*document);
    if (!xml) return std::nullopt;
    return Rewrite{std::move(*xml), static_cast<int>(doomed.size())};
}

}  // namespace tavrin
