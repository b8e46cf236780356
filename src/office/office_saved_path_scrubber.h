#pragma once
// Where a workbook was last saved: Excel writes the folder (`x15ac:absPath`, in a markup
// compatibility block) and the cloud document it came from (`xr:revisionPtr`) into
// "xl/workbook.xml". Both name the user and none is shown anywhere. A link to another workbook
// carries, besides the link the user made, the other workbook's other addresses
// (`xxl21:alternateUrls`: its absolute path and the ids of the drive it lies on), through
// relationships of their own.

#include <optional>
#include <set>
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
    // The external-link part without its alternate addresses, and the ids of the relationships
    // they used, which must leave the part's relationships too.
    struct LinkRewrite {
        std::string xml;
        std::set<std::string> relationshipIds;
        bool removedAny = false;
    };
    static std::optional<LinkRewrite> scrubExternalLink(std::string_view externalLinkXML);
    // The relationships part without the relationships of these ids. Nothing when it does not
    // parse.
    static std::optional<std::string> withoutRelationships(std::string_view relsXML, const std::set<std::string>& ids);
    // Whether one of them is still under `root`.
    static bool residue(const XMLElement& root);
};

}  // namespace tavrin
