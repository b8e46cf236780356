#pragma once
// Takes entries out of the three property parts of a package ("docProps/core.xml",
// "docProps/app.xml", "docProps/custom.xml") as the profile says, and reports each entry it
// found as removed or retained. A removed entry leaves the part whole; a value is never blanked.
//
// The operations never throw. No result means the part could not be parsed, and the caller
// must not pass it on as cleaned.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/cleaning_profile.h"
#include "model/metadata_model.h"

namespace tavrin {

struct OfficePropertyScrubber {
    // How one child element of the part's root becomes an item.
    struct Mapping {
        std::string localName;  // matched exactly, whatever the prefix
        std::string key;        // the item's id and key
        MetadataCategory category;
        bool removable;
    };

    struct Result {
        std::string xml;  // the part after removal, UTF-8
        std::vector<MetadataItem> removed;
        std::vector<MetadataItem> retained;
    };

    // The elements of "docProps/core.xml" and "docProps/app.xml", in reporting order.
    static const std::vector<Mapping>& coreMappings();
    static const std::vector<Mapping>& appMappings();

    // Judges the direct children of the root that a mapping names; an empty element and an
    // element no mapping names stay and are reported nowhere. Nothing when the part cannot be
    // parsed or has no root.
    static std::optional<Result> scrubProperties(std::string_view xml, const CleaningProfile& profile,
                                                 const std::vector<Mapping>& mappings);
    // Every `property` element with a non-empty `name` becomes "Custom.<name>" in companyInfo;
    // a removed property goes whole, and what stays keeps its pid.
    static std::optional<Result> scrubCustom(std::string_view xml, const CleaningProfile& profile);

    // The extended properties without their lists of part titles (sheet names, slide titles)
    // and the heading pairs that count them; nothing when the text does not parse.
    static std::optional<std::string> withoutPartTitles(const std::string& xml);

    // A label made from a key: "Core.LastModifiedBy" gives "Last Modified By".
    static std::string displayName(std::string_view key);
};

}  // namespace tavrin
