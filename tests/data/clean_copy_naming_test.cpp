// Names of clean copies and names that users type.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "data/clean_copy_naming.h"

namespace tavrin {
namespace {

TEST(CleanCopyNaming, defaultCopyNamesFollowTheSuffix) {
    const std::vector<std::tuple<const char*, CleanCopySuffix, const char*>> cases{
        {"/d/report.pdf", CleanCopySuffix::clean(), "/d/report-clean.pdf"},
        {"/d/report.pdf", CleanCopySuffix::final(), "/d/report-final.pdf"},
        {"/d/report.pdf", CleanCopySuffix::custom("   "), "/d/report-clean.pdf"},
        {"/d/report.pdf", CleanCopySuffix::custom("/:"), "/d/report-clean.pdf"},
        {"/d/report.pdf", CleanCopySuffix::custom(" _a/b:c d "), "/d/report_abc d.pdf"},
        {"/d/README", CleanCopySuffix::clean(), "/d/README-clean"},
        {"/d/archive.tar.gz", CleanCopySuffix::clean(), "/d/archive.tar-clean.gz"},
    };
    for (const auto& [file, suffix, expected] : cases)
        EXPECT_EQ(CleanCopyNaming::defaultCopyURL(file, suffix), std::filesystem::path(expected)) << file;
}

TEST(CleanCopyNaming, typedNamesAreCheckedInOrderAndNumberedPastCollisions) {
    using E = CleanCopyNamingError::Case;
    struct Case {
        const char* entered;
        const char* extension;
        std::set<std::string> existing;
        std::variant<const char*, E> expected;
    };
    const std::vector<Case> cases{
        {"report.docx", "pdf", {}, "/d/report.pdf"},
        {"report.docx", "pdf", {"/D/REPORT.PDF"}, "/d/report 2.pdf"},
        {"report", "pdf", {"/d/report.pdf", "/d/Report 2.pdf"}, "/d/report 3.pdf"},
        {".pdf", "pdf", {}, "/d/.pdf.pdf"},
        {"notes.txt", "", {}, "/d/notes.txt"},
        {"..", "pdf", {}, E::reservedName},
        {".", "", {}, E::reservedName},
        {"   ", "pdf", {}, E::emptyName},
        {"a:b", "pdf", {}, E::illegalCharacters},
        {"../x", "pdf", {}, E::illegalCharacters},
        {"...pdf", "pdf", {}, E::reservedName},
    };
    for (const auto& c : cases) {
        try {
            const auto url = CleanCopyNaming::resolvedCopyURL(c.entered, "/d", c.extension, c.existing);
            ASSERT_TRUE(std::holds_alternative<const char*>(c.expected)) << c.entered << " gave " << url;
            EXPECT_EQ(url, std::filesystem::path(std::get<const char*>(c.expected))) << c.entered;
        } catch (const CleanCopyNamingError& e) {
            ASSERT_TRUE(std::holds_alternative<E>(c.expected)) << c.entered << " threw " << e.what();
            EXPECT_EQ(e.errorCase(), std::get<E>(c.expected)) << c.entered;
        }
    }
}

TEST(CleanCopyNaming, errorTextsAndSuffixTokens) {
    EXPECT_STREQ(CleanCopyNamingError(CleanCopyNamingError::Case::emptyName).what(), "Enter a name for the clean copy.");
    EXPECT_STREQ(CleanCopyNamingError(CleanCopyNamingError::Case::illegalCharacters).what(),
                 "The name can\u2019t contain \u201C/\u201D or \u201C:\u201D.");
    EXPECT_STREQ(CleanCopyNamingError(CleanCopyNamingError::Case::reservedName).what(),
                 "Enter a different name for the clean copy.");
    EXPECT_EQ(CleanCopySuffix::resolved("final", "x"), CleanCopySuffix::final());
    EXPECT_EQ(CleanCopySuffix::resolved("custom", "-x"), CleanCopySuffix::custom("-x"));
    EXPECT_EQ(CleanCopySuffix::resolved("weird", "-x"), CleanCopySuffix::clean());
    EXPECT_EQ(CleanCopySuffix::custom("-x").displayName(), "Custom\u2026");
    for (const auto& s : {CleanCopySuffix::clean(), CleanCopySuffix::final(), CleanCopySuffix::custom("-mine")})
        EXPECT_EQ(nlohmann::json(s).get<CleanCopySuffix>(), s);
    EXPECT_EQ(nlohmann::json(CleanCopySuffix::custom("-m")).dump(), R"({"custom":{"_0":"-m"}})");
}

TEST(OutputBehaviorTest, rawValuesAndFallbackToReplace) {
    const std::vector<std::tuple<const char*, OutputBehavior, bool, bool>> cases{
        {"replace", OutputBehavior::replace, false, true},
        {"alongside", OutputBehavior::alongside, true, true},
        {"ask", OutputBehavior::ask, true, true},
        {"temporaryShare", OutputBehavior::temporaryShare, true, false},
        {"unknown", OutputBehavior::replace, false, true},
    };
    for (const auto& [raw, behavior, preserves, retains] : cases) {
        EXPECT_EQ(outputBehaviorResolved(raw), behavior) << raw;
        EXPECT_EQ(preservesOriginal(behavior), preserves) << raw;
        EXPECT_EQ(retainsOutput(behavior), retains) << raw;
    }
}

}  // namespace
}  // namespace tavrin
