// Hidden worksheets, rows and columns, hidden slides, and shapes placed off the slide.
#include <algorithm>
#include <charconv>
#include <limits>

#include "office/office_hidden_structure_detection.h"
#include "office/office_hidden_content_detector.h"
#include "office/office_xml_scrubber.h"

namespace tavrin {

namespace {

namespace D = OfficeHiddenContentDetector;


MetadataItem finding(std::string id, std::string key, std::string displayName, std::string value, bool removable) {
    return MetadataItem{std::move(id), std::move(key), std::move(displayName), MetadataValue::string(std::move(value)),
                        MetadataCategory::hiddenContent, MetadataSource::zipXML, removable};
}

// A signed decimal integer filling the whole text, with an optional "+"; nothing on overflow.
std::optional<std::int64_t> parsedInteger(std::string_view text) {
    if (!text.empty() && text.front() == '+') {
        text.remove_prefix(1);
        if (!text.empty() && text.front() == '-') return std::nullopt;
    }
    if (text.empty()) return std::nullopt;
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

// Attributes are matched by local name, whatever their prefix.
std::optional<std::string> attribute(const XMLElement& element, std::string_view name) {
    return attributeValue(element, name);
}

// On unless absent, empty or an ST_OnOff false.
bool switchedOn(const XMLElement& element, std::string_view name) {
    const auto value = attribute(element, name);
    return value && !value->empty() && !OfficeXMLScrubber::isSTOnOffFalse(*value);
}

std::map<std::string, std::string> relationshipTargets(const Archive& archive, std::string_view path) {
    std::map<std::string, std::string> targets;
    const auto document = parsedPart(archive, path);
    if (!document) return targets;
    forEachElement(*document->rootElement(), [&](XMLElement& element) {
        if (element.localName() != "Relationship") return;
        const auto id = attribute(element, "Id");
        const auto target = attribute(element, "Target");
        if (id && target) targets[*id] = *target;
    });
    return targets;
}

// The sheets of the workbook with their state, name and resolved path.
struct WorkbookSheet {
    std::optional<std::string> state;
    std::string name;
    std::string path;  // empty when the relationship does not resolve
};

std::vector<WorkbookSheet> workbookSheets(const Archive& archive) {
    std::vector<WorkbookSheet> sheets;
    const auto workbook = parsedPart(archive, "xl/workbook.xml");
    if (!workbook) return sheets;
    const auto rels = D::workbookRels(archive);
    forEachElement(*workbook->rootElement(), [&](XMLElement& element) {
        if (element.localName() != "sheet") return;
        WorkbookSheet sheet{attribute(element, "state"), attribute(element, "name").value_or("Unknown"), ""};
        if (const auto rId = D::rIdAttribute(element))
            if (const auto target = rels.find(*rId); target != rels.end() && !target->second.empty())
                sheet.path = "xl/" + target->second;
        sheets.push_back(std::move(sheet));
    });
    return sheets;
}

bool isHiddenState(const std::optional<std::string>& state) {
    return state && (*state == "hidden" || *state == "veryHidden");
}

bool isSlidePath(std::string_view stored) {
    const std::string lower = lowerCasedPath(stored);
    return lower.starts_with("ppt/slides/slide") && lower.ends_with(".xml") && lower.find("/_rels/") == std::string::npos;
}

// A slide hidden in either of two places: the slide's own `show`, or its sldId in the
// presentation. `visit(key, item, path)` gets each once; `path` is empty when unresolved.
template <typename Visit>
void forEachHiddenSlide(const Archive& archive, Visit&& visit) {
    std::set<std::string> seenPaths;
    std::map<std::string, std::string> idForTarget;
    for (const auto& [id, target] : D::presentationRels(archive)) idForTarget.emplace(target, id);
    for (const auto& entry : archive) {
        if (entry.type() != EntryType::file || !isSlidePath(entry.path())) continue;
        const auto slide = parsedPart(archive, entry);
        if (!slide) continue;
        const auto root = slide->rootElement();
        if (root->localName() != "sld" || attribute(*root, "show") != std::optional<std::string>("0")) continue;
        const std::string& path = entry.path();
        const std::string relative = path.starts_with("ppt/") ? path.substr(4) : path;
        const auto id = idForTarget.find(relative);
        seenPaths.insert(path);
        visit(finding("office.hidden.slide." + (id != idForTarget.end() ? id->second : path), path, "Hidden Slide",
                      relative, true),
              path);
    }
    const auto presentation = parsedPart(archive, "ppt/presentation.xml");
    if (!presentation) return;
    const auto rels = D::presentationRels(archive);
    forEachElement(*presentation->rootElement(), [&](XMLElement& element) {
        if (element.localName() != "sldId" || attribute(element, "show") != std::optional<std::string>("0")) return;
        const auto rId = D::rIdAttribute(element);
        std::string target;
        if (rId)
            if (const auto found = rels.find(*rId); found != rels.end()) target = found->second;
        const std::string path = target.empty() ? "" : "ppt/" + target;
        if (!path.empty() && seenPaths.count(path)) return;
        // The unprefixed id; r:id has the same local name.
        const auto ownID = element.attributeForName("id");
        const std::string slideID = ownID ? ownID->stringValue() : rId.value_or("");
        visit(finding("office.hidden.slide." + slideID, path.empty() ? "ppt/presentation.xml#" + slideID : path,
                      "Hidden Slide", target.empty() ? "slide" : target, true),
              path);
    });
}

}  // namespace

std::map<std::string, std::string> OfficeHiddenContentDetector::workbookRels(const Archive& archive) {
    return relationshipTargets(archive, "xl/_rels/workbook.xml.rels");
}

std::map<std::string, std::string> OfficeHiddenContentDetector::presentationRels(const Archive& archive) {
    return relationshipTargets(archive, "ppt/_rels/presentation.xml.rels");
}

std::vector<MetadataItem> OfficeHiddenContentDetector::detectHiddenWorksheets(const Archive& archive) {
    std::vector<MetadataItem> items;
    for (const auto& sheet : workbookSheets(archive)) {
        if (!isHiddenState(sheet.state)) continue;
        const bool veryHidden = *sheet.state == "veryHidden";
        items.push_back(finding("office.hidden.sheet." + sheet.name,
                                sheet.path.empty() ? "xl/workbook.xml#" + sheet.name : sheet.path,
                                (veryHidden ? "Very-Hidden Sheet: " : "Hidden Sheet: ") + sheet.name, sheet.name, true));
    }
    return items;
}

std::set<std::string> OfficeHiddenContentDetector::hiddenWorksheetPaths(const Archive& archive) {
    std::set<std::string> paths;
    for (const auto& sheet : workbookSheets(archive))
        if (isHiddenState(sheet.state) && !sheet.path.empty()) paths.insert(sheet.path);
    return paths;
}

std::vector<OfficeHiddenContentDetector::SheetEntry> OfficeHiddenContentDetector::visibleSheets(const Archive& archive) {
    std::vector<SheetEntry> sheets;
    for (auto& sheet : workbookSheets(archive))
        if ((!sheet.state || *sheet.state == "visible") && !sheet.path.empty())
            sheets.push_back(SheetEntry{std::move(sheet.name), std::move(sheet.path)});
    return sheets;
}

OfficeHiddenContentDetector::HiddenRowsAndColumns OfficeHiddenContentDetector::hiddenRowsAndColumns(const XMLElement& root) {
    HiddenRowsAndColumns hidden;
    forEachElement(root, [&](XMLElement& element) {
        const std::string name = element.localName();
        if (name != "row" && name != "col") return;
        if (!switchedOn(element, "hidden")) return;
        if (name == "row") {
            if (const auto row = parsedInteger(attribute(element, "r").value_or(""))) hidden.rows.push_back(*row);
        } else if (const auto min = parsedInteger(attribute(element, "min").value_or(""))) {
            hidden.columns.emplace_back(*min, parsedInteger(attribute(element, "max").value_or("")).value_or(*min));
        }
    });
    return hidden;
}

std::vector<MetadataItem> OfficeHiddenContentDetector::detectHiddenRowsColumns(const Archive& archive) {
    std::vector<MetadataItem> items;
    for (const auto& sheet : visibleSheets(archive)) {
        auto entry = archive[sheet.path];
        if (!entry) entry = archive[lowerCasedPath(sheet.path)];
        if (!entry) continue;
        const auto document = parsedPart(archive, *entry);
        if (!document) continue;
        const auto hidden = hiddenRowsAndColumns(*document->rootElement());
        if (!hidden.rows.empty())
            items.push_back(finding("office.hidden.rows." + sheet.name, sheet.path + "#hiddenRows",
                                    "Hidden Rows: " + sheet.name, "Rows " + rangesDescription(hidden.rows), false));
        if (!hidden.columns.empty())
            items.push_back(finding("office.hidden.columns." + sheet.name, sheet.path + "#hiddenColumns",
                                    "Hidden Columns: " + sheet.name, "Columns " + rangesDescription(hidden.columns),
                                    false));
    }
    return items;
}

std::string OfficeHiddenContentDetector::rangesDescription(const std::vector<std::int64_t>& fromValues) {
    std::vector<std::pair<std::int64_t, std::int64_t>> ranges;
    ranges.reserve(fromValues.size());
    for (auto value : fromValues) ranges.emplace_back(value, value);
    return rangesDescription(std::move(ranges));
}

std::string OfficeHiddenContentDetector::rangesDescription(std::vector<std::pair<std::int64_t, std::int64_t>> fromRanges) {
    std::sort(fromRanges.begin(), fromRanges.end());
    std::vector<std::pair<std::int64_t, std::int64_t>> merged;
    for (const auto& range : fromRanges) {
        // `end + 1` is never computed at the largest integer.
        if (!merged.empty() && (merged.back().second == std::numeric_limits<std::int64_t>::max() ||
                                range.first <= merged.back().second + 1))
            merged.back().second = std::max(merged.back().second, range.second);
        else
            merged.push_back(range);
    }
    std::string text;
    for (const auto& [start, end] : merged) {
        if (!text.empty()) text += ", ";
        text += std::to_string(start);
        if (end != start) text += "\u2013" + std::to_string(end);
    }
    return text;
}

std::vector<MetadataItem> OfficeHiddenContentDetector::detectHiddenSlides(const Archive& archive) {
    std::vector<MetadataItem> items;
    forEachHiddenSlide(archive, [&](MetadataItem item, const std::string&) { items.push_back(std::move(item)); });
    return items;
}

std::set<std::string> OfficeHiddenContentDetector::hiddenSlidePaths(const Archive& archive) {
    std::set<std::string> paths;
    forEachHiddenSlide(archive, [&](const MetadataItem&, const std::string& path) {
        if (path.empty()) return;
        paths.insert(path);
        const std::string notes = "ppt/notesSlides/notes" + std::string(lastPathComponent(path));
        if (archiveEntry(notes, archive)) paths.insert(notes);
    });
    return paths;
}

std::optional<std::pair<std::int64_t, std::int64_t>> OfficeHiddenContentDetector::slideCanvasSize(const Archive& archive) {
    const auto presentation = parsedPart(archive, "ppt/presentation.xml");
    if (!presentation) return std::nullopt;
    std::optional<std::pair<std::int64_t, std::int64_t>> size;
    forEachElement(*presentation->rootElement(), [&](XMLElement& element) {
        if (element.localName() != "sldSz") return;
        const auto cx = parsedInteger(attribute(element, "cx").value_or(""));
        const auto cy = parsedInteger(attribute(element, "cy").value_or(""));
        if (cx && cy && *cx >= 1 && *cy >= 1) size = std::pair(*cx, *cy);
    });
    return size;
}

std::vector<MetadataItem> OfficeHiddenContentDetector::detectOffSlideShapes(const Archive& archive) {
    std::vector<MetadataItem> items;
    const auto size = slideCanvasSize(archive);
    if (!size) return items;
    for (const auto& entry : archive) {
        if (entry.type() != EntryType::file || !isSlidePath(entry.path())) continue;
        const auto slide = parsedPart(archive, entry);
        if (!slide) continue;
        const auto root = slide->rootElement();
        // Unlike the hidden-slide test, any off value of `show` counts as hidden here.
        if (root->localName() == "sld")
            if (const auto show = attribute(*root, "show"); show && OfficeXMLScrubber::isSTOnOffFalse(*show)) continue;
        const std::size_t count = offSlideShapeCount(*root, *size);
        if (count == 0) continue;
        items.push_back(finding("office.hidden.offSlide." + entry.path(), entry.path() + "#offSlide",
                                "Off-Slide Content: " + std::string(lastPathComponent(entry.path())),
                                std::to_string(count) + (count == 1 ? " shape" : " shapes") +
                                    " positioned entirely off the slide canvas",
                                false));
    }
    std::stable_sort(items.begin(), items.end(), [](const auto& a, const auto& b) { return a.key < b.key; });
    return items;
}

std::size_t OfficeHiddenContentDetector::offSlideShapeCount(const XMLElement& root,
                                                           std::pair<std::int64_t, std::int64_t> slideSize) {
    const auto [slideWidth, slideHeight] = slideSize;
    std::size_t count = 0;
    std::vector<XMLElement> stack{root};
    while (!stack.empty()) {
        const XMLElement element = stack.back();
        stack.pop_back();
        const std::string name = element.localName();
        if (name == "grpSp") continue;  // a group and all within it are not judged
        if (name == "sp" || name == "pic" || name == "graphicFrame" || name == "cxnSp") {
            if (const auto box = ownTransformBox(element)) {
                // Width and height are at least 1, so negating them cannot overflow.
                if (box->left <= -box->width || box->top <= -box->height || box->left >= slideWidth ||
                    box->top >= slideHeight)
                    ++count;
                continue;
            }
        }
        for (const auto& child : element.children())
            if (auto e = child.asElement()) stack.push_back(*e);
    }
    return count;
}

std::optional<OfficeHiddenContentDetector::Box> OfficeHiddenContentDetector::ownTransformBox(const XMLElement& element) {
    const auto xfrm = firstDescendantXfrm(element);
    if (!xfrm) return std::nullopt;
    if (const auto rotation = parsedInteger(attribute(*xfrm, "rot").value_or("")); rotation && *rotation != 0)
        return std::nullopt;
    if (switchedOn(*xfrm, "flipH") || switchedOn(*xfrm, "flipV")) return std::nullopt;
    // Plain pairs with flags rather than optionals: the later child of a name wins, even when
    // it does not parse.
    std::pair<std::int64_t, std::int64_t> offset{0, 0};
    std::pair<std::int64_t, std::int64_t> extent{0, 0};
    bool hasOffset = false;
    bool hasExtent = false;
    for (const auto& child : xfrm->children()) {
        const auto e = child.asElement();
        if (!e) continue;
        const std::string name = e->localName();
        if (name != "off" && name != "ext") continue;
        const auto pair = name == "off" ? intPair(*e, "x", "y") : intPair(*e, "cx", "cy");
        (name == "off" ? hasOffset : hasExtent) = pair.has_value();
        if (pair) (name == "off" ? offset : extent) = *pair;
    }
    if (!hasOffset || !hasExtent || extent.first < 1 || extent.second < 1) return std::nullopt;
    return Box{offset.first, offset.second, extent.first, extent.second};
}

std::optional<XMLElement> OfficeHiddenContentDetector::firstDescendantXfrm(const XMLElement& element) {
    for (const auto& child : element.children()) {
        const auto e = child.asElement();
        if (!e) continue;
        const std::string name = e->localName();
        if (name == "xfrm") return e;
        if (name == "spPr" || name == "grpSpPr")
            for (const auto& inner : e->children())
                if (auto x = inner.asElement(); x && x->localName() == "xfrm") return x;
    }
    return std::nullopt;
}

std::optional<std::pair<std::int64_t, std::int64_t>> OfficeHiddenContentDetector::intPair(const XMLElement& element,
                                                                                         std::string_view firstName,
                                                                                         std::string_view secondName) {
    const auto first = attribute(element, firstName);
    const auto second = attribute(element, secondName);
    if (!first || !second) return std::nullopt;
    const auto a = parsedInteger(*first);
    const auto b = parsedInteger(*second);
    if (!a || !b) return std::nullopt;
    return std::pair(*a, *b);
}

}  // namespace tavrin
