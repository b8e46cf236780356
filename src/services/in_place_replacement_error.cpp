#include "services/in_place_replacement.h"

#include <fmt/format.h>

namespace tavrin {

namespace fsys = std::filesystem;
using Case = InPlaceReplacementError::Case;

InPlaceReplacementError::InPlaceReplacementError(Case c, fsys::path original, std::string reason, fsys::path keptAt)
    : case_(c), original_(std::move(original)), reason_(std::move(reason)), keptAt_(std::move(keptAt)) {
    text_ = description();
}

std::string InPlaceReplacementError::description() const {
    const auto name = original_.filename().string();
    std::string text;
    switch (case_) {
        case Case::originalNotAccessible:
            text = fmt::format("\u201c{}\u201d couldn\u2019t be examined for cleaning in place; it was left unchanged.",
                               name);
            break;
        case Case::originalIsSymbolicLink:
            text = fmt::format("\u201c{}\u201d is a symbolic link; only a file itself is cleaned in place, so the link "
                               "and its target were left unchanged.",
                               name);
            break;
        case Case::originalNotRegularFile:
            text = fmt::format("\u201c{}\u201d is not a regular file and was left unchanged.", name);
            break;
        case Case::originalHasOtherLinks:
            text = fmt::format("\u201c{}\u201d has other hard links, which would keep its metadata; it was left "
                               "unchanged.",
                               name);
            break;
        case Case::originalChanged:
            text = fmt::format("\u201c{}\u201d is no longer the file that was cleaned, so it was left unchanged; "
                               "clean it again to clean the new version.",
                               name);
            break;
        case Case::ownerNotKept:
            text = fmt::format("The owner of \u201c{}\u201d couldn\u2019t be kept for the clean file; it was left "
                               "unchanged.",
                               name);
            break;
        case Case::trashUnavailable:
            text = fmt::format("\u201c{}\u201d can\u2019t be moved to a Trash on its own disk, so it was left unchanged.",
                               name);
            break;
        case Case::copyFailed:
            text = fmt::format("The clean file couldn\u2019t be written beside \u201c{}\u201d; it was left unchanged.",
                               name);
            break;
        case Case::copyNotVerified:
            text = fmt::format("The clean file written beside \u201c{}\u201d didn\u2019t match the verified copy; "
                               "\u201c{}\u201d was left unchanged.",
                               name, name);
            break;
        case Case::exchangeFailed:
            text = fmt::format("The clean file couldn\u2019t take the place of \u201c{}\u201d; it was left unchanged.",
                               name);
            break;
        case Case::trashMoveFailed:
            text = fmt::format("\u201c{}\u201d couldn\u2019t be moved to the Trash, so it was put back unchanged.", name);
            break;
        case Case::originalKeptAside:
            text = fmt::format("\u201c{}\u201d was cleaned in place, but the original couldn\u2019t be moved to the "
                               "Trash; it is kept at \u201c{}\u201d.",
                               name, keptAt_.string());
            break;
    }
    if (!reason_.empty()) text += fmt::format(" ({})", reason_);
    return text;
}

}  // namespace tavrin
