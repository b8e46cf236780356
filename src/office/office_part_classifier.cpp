#include "office/office_part_classifier.h"

#include <string>

#include "office/office_package.h"

namespace tavrin {

namespace {

bool startsWith(std::string_view text, std::string_view prefix) { return text.substr(0, prefix.size()) == prefix; }
bool endsWith(std::string_view text, std::string_view suffix) {
    return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}
std::string_view lastComponent(std::string_view path) {
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

}  // namespace

bool OfficePartClassifier::isCommentContentPart(std::string_view path) {
    const std::string lower = lowerCasedPath(path);
    if (!endsWith(lower, ".xml")) return false;
    const std::string_view name = lastComponent(lower);
    if (startsWith(lower, "word/") &&
        (startsWith(name, "comments") || startsWith(name, "threadedcomments") || startsWith(name, "threadedcomment")))
        return true;
    if (startsWith(lower, "word/threadedcomments/") || startsWith(lower, "xl/threadedcomments/")) return true;
    if (startsWith(lower, "xl/") && startsWith(name, "comments")) return true;
    return startsWith(lower, "ppt/comments/");
}

bool OfficePartClassifier::isCommentRosterPart(std::string_view path) {
    const std::string lower = lowerCasedPath(path);
    return lower == "word/people.xml" || lower == "ppt/commentauthors.xml" ||
           (startsWith(lower, "xl/persons/") && endsWith(lower, ".xml"));
}

bool OfficePartClassifier::isWordMarkupPart(std::string_view path) {
    const std::string lower = lowerCasedPath(path);
    return startsWith(lower, "word/") && endsWith(lower, ".xml") && !startsWith(lower, "word/fonts/") &&
           !isCommentRosterPart(lower);
}

}  // namespace tavrin
