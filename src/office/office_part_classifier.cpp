#include "office/office_part_classifier.h"

#include <string>

#include "office/office_package.h"

namespace tavrin {

namespace {

std::string_view lastComponent(std::string_view path) {
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

}  // namespace

bool OfficePartClassifier::isCommentContentPart(std::string_view path) {
    const std::string lower = lowerCasedPath(path);
    if (!lower.ends_with(".xml")) return false;
    const std::string_view name = lastComponent(lower);
    if (lower.starts_with("word/") &&
        (name.starts_with("comments") || name.starts_with("threadedcomments") || name.starts_with("threadedcomment")))
        return true;
    if (lower.starts_with("word/threadedcomments/") || lower.starts_with("xl/threadedcomments/")) return true;
    if (lower.starts_with("xl/") && name.starts_with("comments")) return true;
    return lower.starts_with("ppt/comments/");
}

bool OfficePartClassifier::isCommentRosterPart(std::string_view path) {
    const std::string lower = lowerCasedPath(path);
    return lower == "word/people.xml" || lower == "ppt/commentauthors.xml" ||
           (lower.starts_with("xl/persons/") && lower.ends_with(".xml"));
}

bool OfficePartClassifier::isWordMarkupPart(std::string_view path) {
    const std::string lower = lowerCasedPath(path);
    return lower.starts_with("word/") && lower.ends_with(".xml") && !lower.starts_with("word/fonts/") &&
           !isCommentRosterPart(lower);
}

}  // namespace tavrin
