#pragma once
// Cuts hidden content out of the text of one part: hidden sheets from a workbook, hidden slides
// from a presentation, inactive header and footer references, latent settings of a Word
// document, latent data-source relationships and printer-settings references. Each operation
// parses the part, collects what to remove in one walk, removes it afterwards, and gives back
// the new text; nothing means the part could not be parsed. A part with nothing to remove comes
// back byte for byte as it went in.

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tavrin {

struct OfficeHiddenContentScrubber {
    struct CountedRewrite {
        std::string xml;
        int removedCount = 0;
    };
    struct LabelledRewrite {
        std::string xml;
        std::vector<std::string> removedLabels;
    };
    struct FlaggedRewrite {
        std::string xml;
        bool removedAny = false;
    };

    // "docVars", "mailMerge", "odso", "attachedTemplate", and their labels.
    static const std::set<std::string>& latentSettingsElementNames();
    static const std::map<std::string, std::string>& latentSettingsElementLabels();

    // Every `sheet` whose state is "hidden" or "veryHidden" leaves the workbook.
    static std::optional<std::string> scrubHiddenSheets(std::string_view workbookXML);
    // Every `sldId` with show="0" leaves the presentation.
    static std::optional<std::string> scrubHiddenSlides(std::string_view presentationXML);
    // The header and footer references no page can display leave the document.
    static std::optional<CountedRewrite> scrubInactiveHeaderFooterReferences(std::string_view documentXML,
                                                                            bool evenAndOddEnabled);
    // Document variables, mail merge settings and the attached template leave the settings part.
    static std::optional<LabelledRewrite> scrubLatentSettings(std::string_view settingsXML);
    // Attached-template and mail-merge data-source relationships leave a ".rels" part, external
    // ones included.
    static std::optional<FlaggedRewrite> scrubLatentRelationships(std::string_view relsXML);
    // `pageSetup` loses its relationship id when that id names a dropped printer-settings part.
    static std::optional<FlaggedRewrite> scrubPrinterSettingsReferences(std::string_view worksheetXML,
                                                                        const std::set<std::string>& droppedRIds);
};

}  // namespace tavrin
