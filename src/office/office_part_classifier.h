#pragma once
// Names the kinds of part that the Office code treats alike, by path alone. Paths are
// compared in lower case.

#include <string_view>

namespace tavrin {

struct OfficePartClassifier {
    // Comments and threaded comments of Word, Excel and PowerPoint.
    static bool isCommentContentPart(std::string_view path);
    // The people who wrote comments: "word/people.xml", "ppt/commentAuthors.xml", "xl/persons/…".
    static bool isCommentRosterPart(std::string_view path);
    // XML parts under "word/" but fonts and the comment roster.
    static bool isWordMarkupPart(std::string_view path);
};

}  // namespace tavrin
