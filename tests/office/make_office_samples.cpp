// Writes the demo's dirty Office documents into the folder given, from the test fixture code:
// a report with an author, comments, tracked changes, hidden text and a photo with its camera
// and position; a budget with a hidden sheet, a comment and printer settings; a pitch with a
// hidden slide and its notes. With --summary, prints what a document still carries of these,
// so that the demo can show a document before and after cleaning.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "../image/image_fixtures.h"
#include "office/office_hidden_content_detector.h"
#include "office/office_metadata_reader.h"
#include "office/office_package.h"
#include "office/office_part_classifier.h"
#include "office_cleaning_fixtures.h"
#include "office_shape_fixtures.h"
#include "zip/archive.h"

namespace {

std::size_t occurrences(const std::string& text, const std::string& what) {
    std::size_t count = 0;
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++count;
    return count;
}

int summary(const std::filesystem::path& path) {
    using namespace tavrin;
    const Archive archive(path, Archive::AccessMode::read);
    std::string author = "none";
    if (const auto core = archiveEntry("docProps/core.xml", archive))
        for (const auto& item : OfficeMetadataReader::parseCoreXML(extractEntry(archive, *core)))
            if (item.key == "Core.Creator" && item.value.stringValue()) author = *item.value.stringValue();
    std::size_t comments = 0, trackedChanges = 0;
    for (const auto& entry : archive) {
        if (OfficePartClassifier::isCommentContentPart(entry.path())) ++comments;
        if (lowerCasedPath(entry.path()) == "word/document.xml") {
            const auto bytes = extractEntry(archive, entry);
            const std::string text(bytes.begin(), bytes.end());
            trackedChanges = occurrences(text, "<w:ins ") + occurrences(text, "<w:del ");
        }
    }
    std::printf("  %-22s author: %-10s comment parts: %zu  tracked changes: %zu  hidden sheets: %zu  hidden slides: %zu\n",
                path.filename().c_str(), author.c_str(), comments, trackedChanges,
                OfficeHiddenContentDetector::detectHiddenWorksheets(archive).size(),
                OfficeHiddenContentDetector::detectHiddenSlides(archive).size());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "--summary") == 0) {
        try {
            return summary(argv[2]);
        } catch (const std::exception& e) {
            std::fprintf(stderr, "make_office_samples: %s: %s\n", argv[2], e.what());
            return 1;
        }
    }
    if (argc == 3 && std::strcmp(argv[1], "--shapes") == 0) {
        // The package shapes of real files, for the LibreOffice check.
        using namespace tavrin::officeShapes;
        const std::filesystem::path folder = argv[2];
        wordOfTheseYears().write(folder / "word-2010-to-2021.docx");
        wordWithAMissingFont().write(folder / "missing-font.docx");
        presentationWithAHiddenSlideNamedElsewhere().write(folder / "hidden-slide-named-elsewhere.pptx");
        workbookWithHiddenSheetRemnants().write(folder / "hidden-sheet-remnants.xlsx");
        return 0;
    }
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_office_samples <folder> | --summary <file> | --shapes <folder>\n");
        return 2;
    }
    using namespace tavrin::testing;
    const std::filesystem::path folder = argv[1];
    const auto photo = images::dirtyJPEG();
    dirtyDocument(photo).write(folder / "board-minutes.docx");
    dirtyWorkbook(photo).write(folder / "salary-budget.xlsx");
    dirtyPresentation(photo).write(folder / "reorg-pitch.pptx");
    return 0;
}
