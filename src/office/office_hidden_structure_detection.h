#pragma once
// Hidden sheets, rows, columns and slides, and shapes placed off the slide. Hidden sheets and
// slides are removable, with path sets that say which parts go; hidden rows, columns and
// off-slide shapes are reported only.

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "model/metadata_model.h"
#include "office/office_package.h"
#include "zip/archive.h"

namespace tavrin::OfficeHiddenContentDetector {

// MARK: Hidden sheets, rows, columns, slides and off-slide shapes

// A shape's place on the slide, in the file's units (EMU).
struct Box {
    std::int64_t left;
    std::int64_t top;
    std::int64_t width;
    std::int64_t height;
};
struct SheetEntry {
    std::string name;
    std::string path;
};
struct HiddenRowsAndColumns {
    std::vector<std::int64_t> rows;
    std::vector<std::pair<std::int64_t, std::int64_t>> columns;  // min, max
};

std::vector<MetadataItem> detectHiddenWorksheets(const Archive& archive);
// "xl/" + target of each hidden or very-hidden sheet whose relationship resolves.
std::set<std::string> hiddenWorksheetPaths(const Archive& archive);
// Sheets without a state or with state "visible", in workbook order.
std::vector<SheetEntry> visibleSheets(const Archive& archive);
std::vector<MetadataItem> detectHiddenRowsColumns(const Archive& archive);
HiddenRowsAndColumns hiddenRowsAndColumns(const XMLElement& root);
// Sorted, merged ranges: 7, 3, 4, 5 give "3–5, 7".
std::string rangesDescription(const std::vector<std::int64_t>& fromValues);
std::string rangesDescription(std::vector<std::pair<std::int64_t, std::int64_t>> fromRanges);
std::vector<MetadataItem> detectHiddenSlides(const Archive& archive);
// Hidden slides and the notes part of each (by its computed name, when a part of that name
// exists in any letter case).
std::set<std::string> hiddenSlidePaths(const Archive& archive);
std::vector<MetadataItem> detectOffSlideShapes(const Archive& archive);
// The last usable sldSz of the presentation; no default is assumed.
std::optional<std::pair<std::int64_t, std::int64_t>> slideCanvasSize(const Archive& archive);
// Shapes, outside groups, placed entirely off a canvas of `slideSize` (width, height).
std::size_t offSlideShapeCount(const XMLElement& root, std::pair<std::int64_t, std::int64_t> slideSize);
// Nothing when the shape cannot be judged with confidence: rotated, flipped, no usable
// offset or extent.
std::optional<Box> ownTransformBox(const XMLElement& element);
// An xfrm child, or the first xfrm child of an spPr or grpSpPr child; two levels only.
std::optional<XMLElement> firstDescendantXfrm(const XMLElement& element);
// Both attributes as signed 64-bit integers ("+" or "-" allowed; overflow fails).
std::optional<std::pair<std::int64_t, std::int64_t>> intPair(const XMLElement& element,
                                                             std::string_view firstName,
                                                             std::string_view secondName);
// Relationship id to target of the workbook and of the presentation.
std::map<std::string, std::string> workbookRels(const Archive& archive);
std::map<std::string, std::string> presentationRels(const Archive& archive);

}  // namespace tavrin::OfficeHiddenContentDetector
