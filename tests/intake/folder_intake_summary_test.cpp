// The words of an intake of folders, letter for letter.

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "intake/folder_intake_summary.h"

namespace tavrin {
namespace {

FolderExpansionSummary expansion(std::size_t files, std::int64_t folders, bool capHit, bool containedFolders = true) {
    FolderExpansionSummary summary;
    summary.fileURLs.assign(files, "/x/file.jpg");
    summary.foldersExpanded = folders;
    summary.filesFoundInFolders = static_cast<std::int64_t>(files);
    summary.capHit = capHit;
    summary.containedFolders = containedFolders;
    return summary;
}

TEST(FolderIntakeSummary, wordsTheOutcomeExactly) {
    struct Case {
        FolderExpansionSummary expansion;
        std::int64_t imported;
        std::optional<std::string> expected;
    };
    const std::vector<Case> cases = {
        {expansion(3, 0, false, false), 0, std::nullopt},
        {expansion(3, 0, false, false), 3, std::nullopt},
        {expansion(0, 1, false), 0, "No supported files found in folder"},
        {expansion(0, 2, false), 0, "No supported files found in folders"},
        {expansion(0, 0, false), 0, "No supported files found in folders"},
        {expansion(4, 1, false), 0, "No supported files found in folder"},
        {expansion(2000, 1, true), 0, "No supported files found in folder Limit of 2000 files reached."},
        {expansion(2000, 3, true), 0, "No supported files found in folders Limit of 2000 files reached."},
        {expansion(1, 1, false), 1, "Added 1 file from 1 folder"},
        {expansion(3, 1, false), 2, "Added 2 files from 1 folder (1 unsupported skipped)"},
        {expansion(10, 2, false), 10, "Added 10 files from 2 folders"},
        {expansion(2000, 1, true), 2000,
         "Added 2000 files from 1 folder. Stopped at the 2000-file limit \u2014 add the rest in another batch."},
        {expansion(2000, 2, true), 1500,
         "Added 1500 files from 2 folders (500 unsupported skipped). Stopped at the 2000-file limit \u2014 add the "
         "rest in another batch."},
        {expansion(1, 1, true), 1, "Added 1 file from 1 folder. Stopped at the 1-file limit \u2014 add the rest in another batch."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.expected.value_or("(none)"));
        EXPECT_EQ(FolderIntakeSummary::message(c.expansion, c.imported), c.expected);
    }
}

TEST(FolderIntakeSummary, theLimitDashIsAnEmDash) {
    const auto text = FolderIntakeSummary::message(expansion(5, 1, true), 5).value();
    EXPECT_NE(text.find("limit \xE2\x80\x94 add"), std::string::npos);
}

}  // namespace
}  // namespace tavrin
