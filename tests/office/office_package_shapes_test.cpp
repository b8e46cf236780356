// Package shapes met in real files, each through the whole writer and then the package check:
// what cleans must come out whole, what is refused must say why and leave nothing behind.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
#include "office_shape_fixtures.h"
#include "package_validity.h"
#include "support/test_support.h"
#include "zip/archive.h"

namespace tavrin {
namespace {

using namespace officeShapes;
using ::testing::HasSubstr;


struct CleanShape {
    std::string name;
    std::function<OfficePackageBuilder()> build;
    CleaningProfile profile;
    std::vector<std::pair<std::string, std::string>> gone;  // part, text ("" for the part itself)
    std::vector<std::string> kept;
    std::string removedItem;  // a display name the result must report
};

const std::vector<CleanShape>& cleanShapes() {
    static const std::vector<CleanShape> shapes{
        {"word-2010-to-2021", wordOfTheseYears, CleaningProfile::maximumPrivacy(),
         {{"word/settings.xml", "rsid"}, {"word/document.xml", "w:rsid"}, {"word/footnotes.xml", "rsid"},
          {"word/stylesWithEffects.xml", "w:rsid"}},
         {"word/numbering.xml", "word/media/image9.png", "word/theme/theme1.xml", "customXml/item1.xml"},
         ""},
        {"missing-embedded-font", wordWithAMissingFont, CleaningProfile::maximumPrivacy(),
         {{"word/_rels/fontTable.xml.rels", "font1.odttf"}, {"word/fontTable.xml", "embedRegular"},
          {"[Content_Types].xml", "font1.odttf"}},
         {"word/fontTable.xml"},
         "Link to Missing Content"},
        {"missing-font-under-a-narrow-profile", wordWithAMissingFont, profileOf({MetadataCategory::location}),
         {{"word/_rels/fontTable.xml.rels", "font1.odttf"}}, {"word/settings.xml"}, "Link to Missing Content"},
        {"orphan-media",
         [] { return with(testing::dirtyDocument({}), "word/media/stray.png", "not reached by any relationship"); },
         CleaningProfile::maximumPrivacy(), {{"word/media/stray.png", ""}}, {"word/document.xml"}, "Hidden/Orphaned part"},
        {"hidden-slide-named-by-show-and-section", presentationWithAHiddenSlideNamedElsewhere,
         profileOf({MetadataCategory::hiddenContent}),
         {{"ppt/slides/slide2.xml", ""}, {"ppt/presentation.xml", "rId2"}, {"ppt/presentation.xml", "\"257\""}},
         {"ppt/slides/slide1.xml"},
         "Hidden/Orphaned part"},
        {"hidden-sheet-remnants", workbookWithHiddenSheetRemnants, CleaningProfile::maximumPrivacy(),
         {{"xl/sharedStrings.xml", "Jane Roe 98000"}, {"xl/workbook.xml", "Salaries"}, {"xl/calcChain.xml", ""},
          {"xl/workbook.xml", "absPath"}, {"docProps/app.xml", "HyperlinkBase"}, {"xl/workbook.xml", "activeTab=\"1\""},
          {"xl/externalLinks/_rels/externalLink1.xml.rels", "jane.roe"}, {"xl/externalLinks/externalLink1.xml", "driveId"}},
         {"xl/worksheets/sheet1.xml", "xl/externalLinks/externalLink1.xml"},
         "Hidden Sheet Text"},
    };
    return shapes;
}

class CleanShapes : public ::testing::TestWithParam<CleanShape> {};

TEST_P(CleanShapes, cleanIntoAWholePackageAndTheSameBytesTwice) {
    const auto& shape = GetParam();
    testing::TempDir dir;
    const Bytes source = shape.build().bytes();
    testing::writeFile(dir / "source.docx", source);
    const auto result = OfficeMetadataWriter().cleanMetadata(dir / "source.docx", dir / "once.docx", shape.profile);
    EXPECT_TRUE(result.verifiedClean);
    const Bytes once = fileBytes(dir / "once.docx");
    EXPECT_EQ(testing::packageValidityProblems(once), std::vector<std::string>{});
    EXPECT_EQ(OfficeMetadataWriter::packageInconsistency(Archive(once, Archive::AccessMode::read)), std::nullopt);
    for (const auto& [name, text] : shape.gone) {
        const auto content = part(once, name);
        if (text.empty()) {
            EXPECT_FALSE(content) << name;
        } else if (content) {
            EXPECT_EQ(content->find(text), std::string::npos) << name << ": " << text;
        }
    }
    for (const auto& name : shape.kept) EXPECT_TRUE(part(once, name)) << name;
    if (!shape.removedItem.empty()) {
        bool reported = false;
        for (const auto& item : result.removedItems) reported = reported || item.displayName == shape.removedItem;
        EXPECT_TRUE(reported) << shape.removedItem;
    }
    OfficeMetadataWriter().cleanMetadata(dir / "source.docx", dir / "twice.docx", shape.profile);
    EXPECT_EQ(fileBytes(dir / "twice.docx"), once);
}

INSTANTIATE_TEST_SUITE_P(Office, CleanShapes, ::testing::ValuesIn(cleanShapes()),
                         [](const auto& info) {
                             std::string name = info.param.name;
                             for (auto& c : name) c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
                             return name;
                         });

TEST(OfficePackageShapes, eachKindCleansToTheSameBytesTwice) {
    const Bytes jpeg = testing::images::dirtyJPEG();
    const std::vector<std::pair<std::string, OfficePackageBuilder>> kinds{
        {"docx", testing::dirtyDocument(jpeg)}, {"xlsx", testing::dirtyWorkbook(jpeg)}, {"pptx", testing::dirtyPresentation(jpeg)}};
    for (const auto& [extension, package] : kinds) {
        SCOPED_TRACE(extension);
        testing::TempDir dir;
        const auto named = [&](const char* stem) { return dir / (std::string(stem) + "." + extension); };
        testing::writeFile(named("source"), package.bytes());
        OfficeMetadataWriter().cleanMetadata(named("source"), named("a"), CleaningProfile::maximumPrivacy());
        OfficeMetadataWriter().cleanMetadata(named("source"), named("b"), CleaningProfile::maximumPrivacy());
        EXPECT_EQ(fileBytes(named("a")), fileBytes(named("b")));
    }
}

TEST(OfficePackageShapes, aBareImageKeyReachesEmbeddedPhotos) {
    testing::TempDir dir;
    testing::writeFile(dir / "source.docx", testing::dirtyDocument(testing::images::dirtyJPEG()).bytes());
    CleaningProfile profile;
    profile.name = "gps only";
    profile.specificKeysToRemove = {"GPS.Latitude"};
    const auto result = OfficeMetadataWriter().cleanMetadata(dir / "source.docx", dir / "out.docx", profile);
    EXPECT_TRUE(result.verifiedClean);
    const auto photo = part(fileBytes(dir / "out.docx"), "word/media/image1.jpeg");
    ASSERT_TRUE(photo);
    const auto items = ImageMetadataReader::removableItems(Bytes(photo->begin(), photo->end()));
    ASSERT_TRUE(items);
    for (const auto& item : *items) EXPECT_NE(item.key, "GPS.Latitude");
}

// MARK: Refusals

struct RefusedShape {
    std::string name;
    std::function<Bytes()> build;
    CleaningProfile profile;
    PipelineError::Case errorCase;
    std::string reason;
};

Bytes zipOf(std::vector<testing::RawZipEntry> entries) {
    const std::string raw = testing::buildRawZip(entries);
    return Bytes(raw.begin(), raw.end());
}

// The minimal document with parts whose declared sizes are given.
Bytes withDeclaredSizes(const std::vector<std::pair<std::string, std::uint64_t>>& sized) {
    std::vector<testing::RawZipEntry> entries;
    const auto minimal = testing::minimalPackage(testing::OfficeKind::docx);
    for (const auto& [name, data] : minimal.parts())
        entries.push_back({.name = name, .data = data});
    for (const auto& [name, size] : sized)
        entries.push_back({.name = name, .data = "<a/>", .deflate = true, .declaredSize = size});
    return zipOf(entries);
}

const std::vector<RefusedShape>& refusedShapes() {
    static const std::vector<RefusedShape> shapes{
        {"malformed-content-types",
         [] { return with(testing::dirtyDocument({}), "[Content_Types].xml", "<Types><Default").bytes(); },
         CleaningProfile::maximumPrivacy(), PipelineError::Case::outputVerificationFailed,
         "([Content_Types].xml: not well-formed XML)"},
        {"relationships-not-xml",
         [] { return with(testing::dirtyDocument({}), "word/_rels/document.xml.rels", "PK\x03\x04 binary").bytes(); },
         CleaningProfile::maximumPrivacy(), PipelineError::Case::outputVerificationFailed,
         "(word/_rels/document.xml.rels: not XML: its bytes are not text)"},
        {"worksheet-not-xml",
         [] { return with(testing::dirtyWorkbook({}), "xl/worksheets/sheet2.xml", "<worksheet><sheetData>").bytes(); },
         profileOf({MetadataCategory::location}), PipelineError::Case::outputVerificationFailed,
         "(xl/worksheets/sheet2.xml: not well-formed XML)"},
        {"nested-too-deep",
         [] {
             std::string deep;
             for (int i = 0; i < 6000; ++i) deep += "<w:p>";
             return with(testing::dirtyDocument({}), "word/styles.xml", deep).bytes();
         },
         CleaningProfile::maximumPrivacy(), PipelineError::Case::outputVerificationFailed,
         "(word/styles.xml: elements nested more than 5000 deep)"},
        {"slide-named-twice",
         [] {
             return edited(testing::dirtyPresentation({}), "ppt/presentation.xml",
                           inserting("<p:sldId id=\"258\" r:id=\"rId1\"/>", "</p:sldIdLst>"))
                 .bytes();
         },
         CleaningProfile::maximumPrivacy(), PipelineError::Case::outputVerificationFailed,
         "(ppt/presentation.xml: the slide list names relationship rId1 twice)"},
        {"only-sheet-hidden",
         [] {
             return edited(testing::dirtyWorkbook({}), "xl/workbook.xml", [](std::string xml) {
                        const std::string visible = "<sheet name=\"Budget\" sheetId=\"1\" r:id=\"rId1\"/>";
                        return xml.replace(xml.find(visible), visible.size(),
                                           "<sheet name=\"Budget\" sheetId=\"1\" state=\"veryHidden\" r:id=\"rId1\"/>");
                    })
                 .bytes();
         },
         CleaningProfile::maximumPrivacy(), PipelineError::Case::outputVerificationFailed,
         "(xl/workbook.xml: every sheet is hidden"},
        {"opendocument-renamed",
         [] {
             return zipOf({{.name = "mimetype", .data = "application/vnd.oasis.opendocument.text"},
                           {.name = "meta.xml", .data = "<office:document-meta/>"}});
         },
         CleaningProfile::maximumPrivacy(), PipelineError::Case::writeFailed,
         "not an Office Open XML package (it is an OpenDocument file"},
        {"part-over-the-size-limit", [] { return withDeclaredSizes({{"word/big.xml", 1ull << 30}}); },
         CleaningProfile::maximumPrivacy(), PipelineError::Case::outputVerificationFailed,
         "(word/big.xml: inflates to 1074 MB, over the 268 MB part-size limit)"},
        {"parts-over-the-package-budget",
         [] {
             std::vector<std::pair<std::string, std::uint64_t>> parts;
             for (int i = 1; i <= 8; ++i) parts.push_back({"word/part" + std::to_string(i) + ".xml", 250'000'000});
             return withDeclaredSizes(parts);
         },
         CleaningProfile::maximumPrivacy(), PipelineError::Case::outputVerificationFailed,
         "(the parts inflate to more than 1 GB together, over the package limit)"},
    };
    return shapes;
}

class RefusedShapes : public ::testing::TestWithParam<RefusedShape> {};

TEST_P(RefusedShapes, areRefusedWithTheirReasonAndNoOutput) {
    const auto& shape = GetParam();
    testing::TempDir dir;
    testing::writeFile(dir / "bad.docx", shape.build());
    try {
        OfficeMetadataWriter().cleanMetadata(dir / "bad.docx", dir / "out.docx", shape.profile);
        ADD_FAILURE() << "cleaned";
    } catch (const PipelineError& error) {
        EXPECT_EQ(error.errorCase(), shape.errorCase);
        EXPECT_THAT(error.description(), HasSubstr(shape.reason));
    }
    EXPECT_FALSE(std::filesystem::exists(dir / "out.docx"));
}

INSTANTIATE_TEST_SUITE_P(Office, RefusedShapes, ::testing::ValuesIn(refusedShapes()),
                         [](const auto& info) {
                             std::string name = info.param.name;
                             for (auto& c : name) c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
                             return name;
                         });

TEST(OfficePackageShapes, anOpenDocumentRenamedIsNoOfficePackageToTheReader) {
    testing::TempDir dir;
    testing::writeFile(dir / "memo.docx", zipOf({{.name = "mimetype", .data = "application/vnd.oasis.opendocument.text"},
                                                 {.name = "meta.xml", .data = "<office:document-meta/>"}}));
    try {
        OfficeMetadataReader().readMetadata(dir / "memo.docx");
        ADD_FAILURE() << "read";
    } catch (const std::exception& error) {
        EXPECT_THAT(error.what(), HasSubstr("not an Office Open XML package"));
    }
}

// MARK: Verification names what it found

TEST(OfficePackageShapes, verificationNamesThePartAndWhatRemains) {
    struct Row {
        std::string name;
        OfficePackageBuilder package;
        CleaningProfile profile;
        std::string reason;
    };
    const std::vector<Row> rows{
        {"revision ids",
         with(testing::minimalPackage(testing::OfficeKind::docx), "word/settings.xml",
              "<w:settings xmlns:w=\"" + wNS + "\"><w:rsids><w:rsidRoot w:val=\"00A1B2C3\"/></w:rsids></w:settings>"),
         profileOf({MetadataCategory::documentHistory}), "word/settings.xml: revision identifiers remain"},
        {"dangling target",
         edited(testing::minimalPackage(testing::OfficeKind::docx), "_rels/.rels",
                inserting(relationship("rId7", "fontTable", "word/fonts/font1.odttf"), "</Relationships>")),
         profileOf({}), "_rels/.rels: the target word/fonts/font1.odttf is not in the package"},
        {"dangling id",
         with(testing::minimalPackage(testing::OfficeKind::docx), "word/document.xml",
              "<w:document xmlns:w=\"" + wNS + "\" xmlns:r=\"" + rNS + "\"><w:body><w:p><w:hyperlink r:id=\"rId3\"/>"
              "</w:p></w:body></w:document>"),
         profileOf({}), "word/document.xml: r:id names relationship rId3, which word/_rels/document.xml.rels does not hold"},
        {"untyped part", with(testing::minimalPackage(testing::OfficeKind::docx), "word/media/a.qqq", "x"), profileOf({}),
         "word/media/a.qqq: the part has no content type"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        testing::TempDir dir;
        testing::writeFile(dir / "out.docx", row.package.bytes());
        EXPECT_EQ(OfficeMetadataWriter::verificationFailure(dir / "out.docx", row.profile), row.reason);
    }
}

}  // namespace
}  // namespace tavrin
