#pragma once
// Where a workbook was last saved: Excel writes the folder (`x15ac:absPath`, in a markup
// compatibility block) and the cloud document it came from (`xr:revisionPtr`) into
// "xl/workbook.xml". Both name the user and none is shown anywhere.

#include <optional>
#include <string>
#include <string_view>

#include "office/xml_document.h"

namespace tavrin {

struct OfficeSavedPathScrubber {
    struct Rewrite {
        std::string xml;
        bool removedAny = false;
    };
    // The workbook without them; a compatibility block left empty goes too. Nothing when the
    // text does not parse.
    static std::optional<Rewrite> scrubWorkbook(std::string_view workbookXML);
    // Whether one of them is still under `root`.
    static bool residue(const XMLElement& root);
};

}  // namespace tavrin
