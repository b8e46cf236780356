#include "office/office_dropped_parts.h"

#include <vector>

#include "office/office_package.h"
#include "office/office_part_text.h"
#include "office/office_xml_document.h"

namespace tavrin {

namespace {

std::set<std::string> lowerCasedPaths(const std::set<std::string>& paths) {
    std::set<std::string> lower;
    for (const auto& path : paths) lower.insert(lowerCasedPath(path));
    return lower;
}

// Detaches what `matches` picks among the elements named `localName`; the text unchanged when
// nothing matched, nothing when it does not parse.
template <typename Match>
std::optional<std::string> withoutMatchingElements(std::string_view text, std::string_view localName, Match matches) {
    auto document = parsePartText(text);
    if (!document) return std::nullopt;
    std::vector<XMLElement> found;
    forEachElement(*document->rootElement(), [&](XMLElement& element) {
        if (element.localName() == localName && matches(element)) found.push_back(element);
    });
    if (found.empty()) return std::string(text);
    for (auto& element : found)
        if (element.parent()) element.detach();
    return serializedPartText(*document);
}

}  // namespace

std::string resolvedPartPath(std::string_view base, std::string_view target) {
    const std::string joined = "/" + std::string(base) + std::string(target);
    std::vector<std::string_view> components;
    std::string_view rest = joined;
    while (!rest.empty()) {
        const auto slash = rest.find('/');
        const auto component = rest.substr(0, slash);
        rest = slash == std::string_view::npos ? std::string_view{} : rest.substr(slash + 1);
        if (component.empty() || component == ".") continue;
        if (component == "..") {
            if (!components.empty()) components.pop_back();
            continue;
        }
        components.push_back(component);
    }
    std::string out;
    for (const auto component : components) {
        if (!out.empty()) out.push_back('/');
        out.append(component);
    }
    return out.empty() ? std::string(base) + std::string(target) : out;
}

std::optional<std::string> scrubDanglingRelationships(std::string_view relsXML, std::string_view relsPath,
                                                      const std::set<std::string>& droppedArchivePaths) {
    // "word/_rels/document.xml.rels" belongs to a part under "word/"; "_rels/.rels" to the
    // package root.
    std::string base;
    const auto slash = relsPath.rfind('/');
    const std::string_view directory = slash == std::string_view::npos ? std::string_view{} : relsPath.substr(0, slash);
    constexpr std::string_view relsFolder = "/_rels";
    if (directory.size() >= relsFolder.size() && directory.substr(directory.size() - relsFolder.size()) == relsFolder)
        base = std::string(directory.substr(0, directory.size() - relsFolder.size())) + "/";
    const auto dropped = lowerCasedPaths(droppedArchivePaths);
    return withoutMatchingElements(relsXML, "Relationship", [&](const XMLElement& element) {
        const auto target = element.attributeForName("Target");
        if (!target) return false;
        // An external target is a URL, never a part of this package.
        if (const auto mode = element.attributeForName("TargetMode");
            mode && lowerCasedPath(mode->stringValue()) == "external")
            return false;
        return dropped.count(lowerCasedPath(resolvedPartPath(base, target->stringValue()))) > 0;
    });
}

std::optional<std::string> scrubDanglingContentTypeOverrides(std::string_view contentTypesXML,
                                                             const std::set<std::string>& droppedArchivePaths) {
    const auto dropped = lowerCasedPaths(droppedArchivePaths);
    return withoutMatchingElements(contentTypesXML, "Override", [&](const XMLElement& element) {
        const auto partName = element.attributeForName("PartName");
        if (!partName) return false;
        std::string name = partName->stringValue();
        if (!name.empty() && name.front() == '/') name.erase(0, 1);
        return dropped.count(lowerCasedPath(name)) > 0;
    });
}

}  // namespace tavrin
