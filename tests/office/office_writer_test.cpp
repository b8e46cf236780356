#include <gtest/gtest.h>
#include <gmock/gmock.h>

#include <functional>

#include "../image/image_fixtures.h"
#include "../zip/raw_zip_builder.h"
#include "model/pipeline_error.h"
#include "image/image_metadata_reader.h"
#include "office/office_metadata_reader.h"
#include "office/office_metadata_writer.h"
#include "office/office_package.h"
#include "office_cleaning_fixtures.h"
#include "office_fixtures.h"
#include "package_validity.h"
#include "support/test_support.h"
#include "zip/archive.h"

namespace tavrin {
namespace {

using testing::OfficePackageBuilder;
using testing::TempDir;
using Bytes = std::vector<std::uint8_t>;

Bytes fileBytes(const std::filesystem::path& path) {
    const auto text = testing::readFile(path);
    return Bytes(text.begin(), text.end());
}

// The parts of a package by name, in entry order.
std::vector<std::pair<std::string, Bytes>> partsOf(const Bytes& package) {
    const Archive archive(package, Archive::AccessMode::read);
    std::vector<std::pair<std::string, Bytes>> out;
    for (const auto& entry : archive) out.emplace_back(entry.path(), extractEntry(archive, entry));
    return out;
}

std::optional<std::string> part(const Bytes& package, const std::string& name) {
    for (auto& [path, bytes] : partsOf(package))
        if (path == name) return std::string(bytes.begin(), bytes.end());
    return std::nullopt;
}

bool contains(const std::optional<std::string>& text, std::string_view what) {
    return text && text->find(what) != std::string::npos;
}

CleaningProfile profileOf(std::set<MetadataCategory> categories) {
    CleaningProfile profile;
    profile.name = "test";
    profile.categoriesToRemove = std::move(categories);
    return profile;
}

Bytes photo() { return testing::images::dirtyJPEG(); }

struct Cleaned {
    CleaningResult result;
    Bytes output;
};

Cleaned clean(const TempDir& dir, const Bytes& package, const CleaningProfile& profile, const std::string& name) {
    const auto source = dir / ("source-" + name);
    const auto output = dir / name;
    testing::writeFile(source, package);
    auto result = OfficeMetadataWriter().cleanMetadata(source, output, profile);
    return {std::move(result), fileBytes(output)};
}

std::vector<MetadataItem> removableFound(const TempDir& dir, const Bytes& package, const CleaningProfile& profile,
                                         const std::string& name) {
    const auto path = dir / ("inspect-" + name);
    testing::writeFile(path, package);
    std::vector<MetadataItem> out;
    for (const auto& item : OfficeMetadataReader().readMetadata(path).allItems())
        if (profile.shouldRemove(item)) out.push_back(item);
    return out;
}

// MARK: Round trips

struct RoundTrip {
    std::string name;  // with the extension that names the kind
    std::function<OfficePackageBuilder(const Bytes&)> build;
    std::string mediaPath;
    std::vector<std::string> keptText;
    std::vector<std::string> goneText;
    std::vector<std::string> goneParts;
    std::set<std::string> allowedRetainedKeys;  // detect-only findings that stay
};

class OfficeWriterRoundTrip : public ::testing::TestWithParam<RoundTrip> {};

TEST_P(OfficeWriterRoundTrip, removesEverythingTheProfileNamesKeepsTheTextAndStaysValid) {
    const RoundTrip& c = GetParam();
    TempDir dir;
    const Bytes dirty = c.build(photo()).bytes();
    const auto& profile = CleaningProfile::maximumPrivacy();
    ASSERT_EQ(testing::packageValidityProblems(dirty), std::vector<std::string>{});
    ASSERT_FALSE(removableFound(dir, dirty, profile, "dirty-" + c.name).empty());

    const auto first = clean(dir, dirty, profile, c.name);
    EXPECT_TRUE(first.result.verifiedClean);
    EXPECT_FALSE(first.result.removedItems.empty());
    EXPECT_EQ(testing::packageValidityProblems(first.output), std::vector<std::string>{});
    EXPECT_EQ(removableFound(dir, first.output, profile, "clean-" + c.name), std::vector<MetadataItem>{});
    for (const auto& item : first.result.retainedItems)
        EXPECT_TRUE(!item.isRemovable || c.allowedRetainedKeys.count(item.key)) << item.id;

    const std::string text = testing::visibleText(first.output);
    for (const auto& kept : c.keptText) EXPECT_NE(text.find(kept), std::string::npos) << kept;
    for (const auto& gone : c.goneText) EXPECT_EQ(text.find(gone), std::string::npos) << gone;
    for (const auto& gone : c.goneParts) EXPECT_FALSE(part(first.output, gone)) << gone;

    const auto media = part(first.output, c.mediaPath);
    ASSERT_TRUE(media);
    const auto imageItems = ImageMetadataReader::removableItems(Bytes(media->begin(), media->end()));
    ASSERT_TRUE(imageItems);
    for (const auto& item : *imageItems) EXPECT_FALSE(profile.shouldRemove(item)) << item.id;

    // Cleaning the cleaned copy changes no part.
    const auto second = clean(dir, first.output, profile, "again-" + c.name);
    EXPECT_EQ(partsOf(second.output), partsOf(first.output));
}

INSTANTIATE_TEST_SUITE_P(
    EachKind, OfficeWriterRoundTrip,
    ::testing::Values(
        RoundTrip{"report.docx", testing::dirtyDocument, "word/media/image1.jpeg",
                  {"Quarterly plan", "Revenue grows", "by ten percent", "Next steps"},
                  {"by half", "Do not share the layoffs list", "Check this with legal first"},
                  {"word/comments.xml", "docProps/thumbnail.jpeg"},
                  {}},
        RoundTrip{"budget.xlsx", testing::dirtyWorkbook, "xl/media/image1.jpeg",
                  {"Quarterly plan", "Total"},
                  {"Numbers are made up"},
                  {"xl/comments1.xml", "xl/worksheets/sheet2.xml", "xl/printerSettings/printerSettings1.bin",
                   "docProps/thumbnail.jpeg"},
                  {"xl/worksheets/sheet1.xml"}},
        RoundTrip{"pitch.pptx", testing::dirtyPresentation, "ppt/media/image1.jpeg",
                  {"Quarterly plan"},
                  {"Reorganisation candidates", "Tell nobody before Friday", "Is this number final?"},
                  {"ppt/comments/comment1.xml", "ppt/slides/slide2.xml", "ppt/notesSlides/notesSlide2.xml",
                   "docProps/thumbnail.jpeg"},
                  {}}),
    [](const auto& info) { return info.param.name.substr(info.param.name.find('.') + 1); });

TEST(OfficeWriter, keepsAHiddenRowAsARetainedFindingWithAWarning) {
    TempDir dir;
    const auto cleaned = clean(dir, testing::dirtyWorkbook({}).bytes(), CleaningProfile::maximumPrivacy(), "rows.xlsx");
    EXPECT_TRUE(cleaned.result.verifiedClean);
    EXPECT_FALSE(cleaned.result.isClean());
    bool found = false;
    for (const auto& item : cleaned.result.retainedItems) found = found || item.category == MetadataCategory::hiddenContent;
    EXPECT_TRUE(found);
    bool warned = false;
    for (const auto& warning : cleaned.result.warnings)
        warned = warned || warning.message.find("hidden rows/columns are preserved") != std::string::npos;
    EXPECT_TRUE(warned);
    EXPECT_TRUE(contains(part(cleaned.output, "xl/worksheets/sheet1.xml"), "hidden=\"1\""));
}

// MARK: One category at a time

struct SingleCategory {
    std::string name;
    MetadataCategory category;
    std::vector<std::pair<std::string, std::string>> gone;  // part, text ("" for the whole part)
    std::vector<std::pair<std::string, std::string>> kept;
};

class OfficeWriterSingleCategory : public ::testing::TestWithParam<SingleCategory> {};

TEST_P(OfficeWriterSingleCategory, removesItsOwnCategoryAndKeepsEverythingElse) {
    const auto& c = GetParam();
    TempDir dir;
    const Bytes dirty = testing::dirtyDocument(photo()).bytes();
    const auto cleaned = clean(dir, dirty, profileOf({c.category}), "one.docx");
    EXPECT_TRUE(cleaned.result.verifiedClean);
    EXPECT_EQ(testing::packageValidityProblems(cleaned.output), std::vector<std::string>{});
    for (const auto& [name, text] : c.gone) {
        if (text.empty()) EXPECT_FALSE(part(cleaned.output, name)) << name;
        else EXPECT_FALSE(contains(part(cleaned.output, name), text)) << name << ": " << text;
    }
    for (const auto& [name, text] : c.kept) {
        if (text.empty()) EXPECT_TRUE(part(cleaned.output, name)) << name;
        else EXPECT_TRUE(contains(part(cleaned.output, name), text)) << name << ": " << text;
    }
}

const std::vector<std::pair<std::string, std::string>> everything{
    {"docProps/core.xml", "Jane Roe"},          {"docProps/core.xml", "2024-01-02T03:04:05Z"},
    {"docProps/app.xml", "Acme Secret Labs"},   {"word/comments.xml", ""},
    {"docProps/thumbnail.jpeg", ""},            {"word/document.xml", "by half"},
    {"word/document.xml", "w:rsidR"},           {"word/document.xml", "Do not share the layoffs list"},
    {"word/comments.xml", "w:date"},            {"word/people.xml", "Jane Roe"},
};

std::vector<std::pair<std::string, std::string>> everythingBut(std::vector<std::pair<std::string, std::string>> gone) {
    std::vector<std::pair<std::string, std::string>> out;
    for (const auto& item : everything)
        if (std::find(gone.begin(), gone.end(), item) == gone.end()) out.push_back(item);
    return out;
}

SingleCategory single(std::string name, MetadataCategory category, std::vector<std::pair<std::string, std::string>> gone) {
    return {std::move(name), category, gone, everythingBut(gone)};
}

INSTANTIATE_TEST_SUITE_P(
    EachCategory, OfficeWriterSingleCategory,
    ::testing::Values(
        single("thumbnails", MetadataCategory::thumbnails, {{"docProps/thumbnail.jpeg", ""}}),
        single("comments", MetadataCategory::commentsAnnotations,
               {{"word/comments.xml", ""},
                {"word/comments.xml", "w:date"},
                {"word/document.xml", "Do not share the layoffs list"},
                {"word/people.xml", "Jane Roe"}}),
        single("company", MetadataCategory::companyInfo, {{"docProps/app.xml", "Acme Secret Labs"}}),
        single("history", MetadataCategory::documentHistory, {{"word/document.xml", "by half"}, {"word/document.xml", "w:rsidR"}}),
        single("timestamps", MetadataCategory::timestamps,
               {{"docProps/core.xml", "2024-01-02T03:04:05Z"}, {"word/comments.xml", "w:date"}}),
        single("author", MetadataCategory::authorIdentity, {{"docProps/core.xml", "Jane Roe"}, {"word/people.xml", "Jane Roe"}})),
    [](const auto& info) { return info.param.name; });

// The extended properties name every sheet; a dropped hidden sheet must not stay named there.
TEST(OfficeWriter, forgetsTheTitlesOfDroppedHiddenSheets) {
    TempDir dir;
    const std::string titles =
        "<HeadingPairs><vt:vector size=\"2\" baseType=\"variant\"><vt:variant><vt:lpstr>Worksheets</vt:lpstr>"
        "</vt:variant><vt:variant><vt:i4>2</vt:i4></vt:variant></vt:vector></HeadingPairs>"
        "<TitlesOfParts><vt:vector size=\"2\" baseType=\"lpstr\"><vt:lpstr>Sheet1</vt:lpstr>"
        "<vt:lpstr>Salaries</vt:lpstr></vt:vector></TitlesOfParts>";
    const OfficePackageBuilder source = testing::dirtyWorkbook(photo());
    OfficePackageBuilder workbook;
    for (auto [path, content] : source.parts()) {
        if (path == "docProps/app.xml") content.insert(content.find("<Company>"), titles);
        workbook.add(path, content);
    }
    const Bytes dirty = workbook.bytes();
    ASSERT_TRUE(contains(part(dirty, "docProps/app.xml"), "Salaries"));

    const auto hiddenOnly = clean(dir, dirty, profileOf({MetadataCategory::hiddenContent}), "hidden.xlsx");
    ASSERT_TRUE(hiddenOnly.result.verifiedClean);
    const auto app = part(hiddenOnly.output, "docProps/app.xml");
    EXPECT_FALSE(contains(app, "Salaries"));
    EXPECT_FALSE(contains(app, "HeadingPairs"));
    EXPECT_TRUE(contains(app, "Acme Secret Labs"));  // the rest of the part is the profile's to decide
    EXPECT_EQ(testing::packageValidityProblems(hiddenOnly.output), std::vector<std::string>{});

    // A profile that keeps hidden content keeps the titles with the sheets.
    const auto keeping = clean(dir, dirty, profileOf({MetadataCategory::authorIdentity}), "kept.xlsx");
    ASSERT_TRUE(keeping.result.verifiedClean);
    EXPECT_TRUE(contains(part(keeping.output, "docProps/app.xml"), "Salaries"));
}

TEST(OfficeWriter, aProfileWithNoCategoryCopiesEveryPartAndVerifies) {
    TempDir dir;
    const Bytes dirty = testing::dirtyDocument(photo()).bytes();
    const auto cleaned = clean(dir, dirty, profileOf({}), "copy.docx");
    EXPECT_TRUE(cleaned.result.verifiedClean);
    EXPECT_TRUE(cleaned.result.removedItems.empty());
    EXPECT_EQ(partsOf(cleaned.output), partsOf(dirty));
    // No date survives in the ZIP headers, neither the source's nor the time of cleaning.
    const Archive archive(cleaned.output, Archive::AccessMode::read);
    for (const auto& entry : archive) {
        EXPECT_EQ(entry.localFileHeader.lastModFileDate, (1 << 5) | 1) << entry.path();
        EXPECT_EQ(entry.localFileHeader.lastModFileTime, 0) << entry.path();
        EXPECT_TRUE(entry.localFileHeader.extraField.empty()) << entry.path();
    }
}

TEST(OfficeWriter, dropsDirectoryEntriesAndKeepsStoredEntriesStored) {
    TempDir dir;
    const auto minimal = testing::minimalPackage(testing::OfficeKind::docx);
    std::vector<testing::RawZipEntry> entries;
    for (const auto& [name, content] : minimal.parts()) entries.push_back({.name = name, .data = content, .deflate = name != "word/document.xml"});
    entries.push_back({.name = "word/", .data = ""});
    const std::string raw = testing::buildRawZip(entries);
    const auto cleaned = clean(dir, Bytes(raw.begin(), raw.end()), CleaningProfile::maximumPrivacy(), "dirs.docx");
    const Archive archive(cleaned.output, Archive::AccessMode::read);
    EXPECT_FALSE(archive["word/"]);
    ASSERT_TRUE(archive["word/document.xml"]);
    EXPECT_FALSE(archive["word/document.xml"]->isCompressed());
    EXPECT_TRUE(archive["_rels/.rels"]->isCompressed());
}

TEST(OfficeWriter, clearsRelationshipsAndOverridesOfDroppedParts) {
    TempDir dir;
    const auto cleaned = clean(dir, testing::dirtyDocument({}).bytes(), profileOf({MetadataCategory::commentsAnnotations}), "c.docx");
    EXPECT_FALSE(contains(part(cleaned.output, "[Content_Types].xml"), "comments.xml"));
    EXPECT_FALSE(contains(part(cleaned.output, "word/_rels/document.xml.rels"), "comments.xml"));
    EXPECT_TRUE(contains(part(cleaned.output, "word/_rels/document.xml.rels"), "people.xml"));
    bool droppedComments = false;
    for (const auto& item : cleaned.result.removedItems)
        droppedComments = droppedComments || (item.id == "office.word/comments.xml" && item.displayName == "Comments");
    EXPECT_TRUE(droppedComments);
}

// MARK: Refusals

struct Refusal {
    PipelineError::Case errorCase = PipelineError::Case::cancelled;
    std::string text;
    bool wroteOutput = false;
};

Refusal refusalOf(const Bytes& package, const CleaningProfile& profile = CleaningProfile::maximumPrivacy()) {
    TempDir dir;
    testing::writeFile(dir / "bad.docx", package);
    try {
        OfficeMetadataWriter().cleanMetadata(dir / "bad.docx", dir / "out.docx", profile);
    } catch (const PipelineError& e) {
        return {e.errorCase(), e.description(), std::filesystem::exists(dir / "out.docx")};
    }
    ADD_FAILURE() << "the bad package was cleaned";
    return {};
}

PipelineError::Case refusal(const Bytes& package, const CleaningProfile& profile = CleaningProfile::maximumPrivacy()) {
    return refusalOf(package, profile).errorCase;
}

OfficePackageBuilder replacing(const OfficePackageBuilder& source, const std::string& name, const std::string& content) {
    OfficePackageBuilder out;
    for (const auto& [path, data] : source.parts()) out.add(path, path == name ? content : data);
    return out;
}

TEST(OfficeWriter, refusesADocumentBodyThatDoesNotDecode) {
    const auto bad = replacing(testing::dirtyDocument({}), "word/document.xml", std::string("\xFF\xFE\x00<\x00w\x00", 7) + "\x00\xD8");
    EXPECT_EQ(refusal(bad.bytes()), PipelineError::Case::outputVerificationFailed);
}

TEST(OfficeWriter, refusesAPackageWithTwoEntriesOfTheSameName) {
    const auto minimal = testing::minimalPackage(testing::OfficeKind::docx);
    std::vector<testing::RawZipEntry> entries;
    for (const auto& [name, content] : minimal.parts())
        entries.push_back({.name = name, .data = content});
    entries.push_back({.name = "word/document.xml", .data = "<w:document/>"});
    const std::string raw = testing::buildRawZip(entries);
    EXPECT_EQ(refusal(Bytes(raw.begin(), raw.end())), PipelineError::Case::writeFailed);
}

TEST(OfficeWriter, refusesAPartNamedInAnotherLetterCaseThanItsRelationship) {
    const auto dirty = testing::dirtyDocument({});
    OfficePackageBuilder bad;
    for (const auto& [path, data] : dirty.parts())
        bad.add(path == "word/comments.xml" ? "word/Comments.xml" : path, data);
    // Keep the comment in place so the mismatch, not the comment, is what is judged.
    EXPECT_EQ(refusal(bad.bytes(), profileOf({MetadataCategory::authorIdentity})), PipelineError::Case::outputVerificationFailed);
}

TEST(OfficeWriter, refusesATruncatedEmbeddedImage) {
    Bytes truncated = photo();
    truncated.resize(truncated.size() / 2);
    EXPECT_EQ(refusal(testing::dirtyDocument(truncated).bytes()), PipelineError::Case::outputVerificationFailed);
}

TEST(OfficeWriter, refusesARelationshipCycle) {
    auto builder = testing::dirtyDocument({});
    OfficePackageBuilder bad;
    for (const auto& [path, data] : builder.parts()) {
        if (path != "word/_rels/document.xml.rels") {
            bad.add(path, data);
            continue;
        }
        std::string rels = data;
        rels.insert(rels.find("</Relationships>"),
                    "<Relationship Id=\"rId99\" Type=\"http://schemas.openxmlformats.org/officeDocument/2006/"
                    "relationships/subDocument\" Target=\"document.xml\"/>");
        bad.add(path, rels);
    }
    EXPECT_EQ(refusal(bad.bytes()), PipelineError::Case::outputVerificationFailed);
}

TEST(OfficeWriter, refusesMediaItCannotDecodeWhenImageMetadataIsRemoved) {
    auto builder = testing::dirtyDocument({});
    OfficePackageBuilder bad;
    for (const auto& [path, data] : builder.parts()) {
        std::string content = data;
        if (path == "word/_rels/document.xml.rels")
            content.insert(content.find("</Relationships>"),
                           "<Relationship Id=\"rId98\" Type=\"http://schemas.openxmlformats.org/officeDocument/2006/"
                           "relationships/image\" Target=\"media/image2.emf\"/>");
        bad.add(path, content);
    }
    bad.add("word/media/image2.emf", std::string("\x01\x00\x00\x00 EMF with Exif inside", 24));
    const auto refused = refusalOf(bad.bytes(), profileOf({MetadataCategory::location}));
    EXPECT_EQ(refused.errorCase, PipelineError::Case::outputVerificationFailed);
    EXPECT_THAT(refused.text, ::testing::HasSubstr("(word/media/image2.emf: "));
}

// A ZIP without content types or package relationships is no Office package; its copy would
// open in no Office program, so none is made.
TEST(OfficeWriter, refusesAZipWithoutTheOfficePackageParts) {
    const auto dirty = testing::dirtyDocument({});
    for (const char* missing : {"[Content_Types].xml", "_rels/.rels"}) {
        SCOPED_TRACE(missing);
        OfficePackageBuilder bad;
        for (const auto& [path, data] : dirty.parts())
            if (path != missing) bad.add(path, data);
        const auto refused = refusalOf(bad.bytes());
        EXPECT_EQ(refused.errorCase, PipelineError::Case::writeFailed);
        EXPECT_THAT(refused.text, ::testing::HasSubstr("not an Office Open XML package"));
        EXPECT_FALSE(refused.wroteOutput);
    }
}

TEST(OfficeWriter, refusesASourceThatIsNoArchive) {
    EXPECT_EQ(refusal(Bytes{'n', 'o', 't', ' ', 'z', 'i', 'p'}), PipelineError::Case::writeFailed);
}

}  // namespace
}  // namespace tavrin
