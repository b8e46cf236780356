#pragma once
// What a hidden sheet leaves behind in the rest of a workbook once its part is gone: its names
// in the defined names, its text in the shared strings. Each operation takes the text of one
// part and gives back the new text and how many entries went; nothing when it does not parse.

#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "zip/archive.h"

namespace tavrin {

struct OfficeHiddenSheetRemnants {
    struct Rewrite {
        std::string xml;
        int removedCount = 0;
    };

    // The workbook without the defined names that belong to a hidden sheet (by `localSheetId`)
    // or name one in their formula, with the sheet indices of the others and of the workbook
    // views moved down past the sheets that go. Run before the sheets themselves leave.
    static std::optional<Rewrite> workbookWithoutHiddenSheetNames(std::string_view workbookXML);

    // The indices of the shared strings that the cells of these worksheet parts use. Nothing
    // when one of them cannot be read.
    static std::optional<std::set<std::size_t>> sharedStringsUsedBy(const Archive& archive,
                                                                    const std::set<std::string>& worksheetPaths);
    // The shared strings with every entry outside `used` blanked, so that the indices of the
    // others stay as they are.
    static std::optional<Rewrite> blankedSharedStrings(std::string_view sharedStringsXML,
                                                       const std::set<std::size_t>& used);
};

}  // namespace tavrin
