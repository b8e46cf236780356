#include <gtest/gtest.h>

#include "../image/image_fixtures.h"
#include "office/office_dropped_parts.h"
#include "office/office_hidden_content_scrubber.h"
#include "office/office_media_scrubber.h"
#include "office/office_residue_verifier.h"
#include "office/office_part_text.h"

namespace tavrin {
namespace {

using V = OfficeResidueVerifier;

const std::string w = "xmlns:w=\"http://schemas.openxmlformats.org/wordprocessingml/2006/main\"";
const std::string a = "xmlns:a=\"http://schemas.openxmlformats.org/drawingml/2006/main\"";

struct ResidueCase {
    std::string name;
    std::string xml;
    bool (*predicate)(const XMLElement&);
    bool residue;
};

class OfficeResidueVerifierCases : public ::testing::TestWithParam<ResidueCase> {};

TEST_P(OfficeResidueVerifierCases, findsResidueExactlyWhereItIs) {
    auto document = parsePartText(GetParam().xml);
    ASSERT_TRUE(document);
    EXPECT_EQ(GetParam().predicate(*document->rootElement()), GetParam().residue);
}

INSTANTIATE_TEST_SUITE_P(
    Table, OfficeResidueVerifierCases,
    ::testing::Values(
        ResidueCase{"drawingMoveToIsNoHistory", "<r " + a + "><a:moveTo x=\"1\"/></r>", V::documentHistoryResidue, false},
        ResidueCase{"wordMoveToIsHistory", "<r " + w + "><w:moveTo/></r>", V::documentHistoryResidue, true},
        ResidueCase{"commentRangeStartIsNoHistory", "<r " + w + "><w:commentRangeStart w:id=\"1\"/></r>", V::documentHistoryResidue, false},
        ResidueCase{"commentRangeStartIsComment", "<r " + w + "><w:commentRangeStart w:id=\"1\"/></r>", V::commentResidue, true},
        ResidueCase{"bookmarkIsNoHistory", "<r " + w + "><w:bookmarkStart w:id=\"1\"/></r>", V::documentHistoryResidue, false},
        ResidueCase{"bookmarkIsNoComment", "<r " + w + "><w:bookmarkStart w:id=\"1\"/></r>", V::commentResidue, false},
        ResidueCase{"customXmlMoveRangeEnd", "<r " + w + "><w:customXmlMoveFromRangeEnd/></r>", V::documentHistoryResidue, true},
        ResidueCase{"numberingChange", "<r " + w + "><w:numberingChange/></r>", V::documentHistoryResidue, true},
        ResidueCase{"tblGridChange", "<r " + w + "><w:tblGridChange/></r>", V::documentHistoryResidue, true},
        ResidueCase{"revisionRecordWithAuthor", "<revisions><rcc author=\"x\"/><userRevision author=\"Jane\"/></revisions>",
                    V::documentHistoryResidue, true},
        ResidueCase{"revisionRecordWithoutAuthor", "<revisions><userRevision author=\"\"/></revisions>", V::documentHistoryResidue, false},
        ResidueCase{"emptyDateIsNoTimestamp", "<r " + w + "><w:ins w:date=\"\"/></r>", V::timestampResidue, false},
        ResidueCase{"dateIsTimestamp", "<r " + w + "><w:ins w:date=\"2024\"/></r>", V::timestampResidue, true},
        ResidueCase{"emptyRsidIsRsid", "<r " + w + "><w:p w:rsidR=\"\"/></r>", V::rsidResidue, true},
        ResidueCase{"rsidsElement", "<r " + w + "><w:rsids/></r>", V::rsidResidue, true},
        ResidueCase{"vanishOffIsNoComment", "<r " + w + "><w:vanish w:val=\"OFF\"/></r>", V::commentResidue, false},
        ResidueCase{"vanishOnIsComment", "<r " + w + "><w:vanish/></r>", V::commentResidue, true},
        ResidueCase{"blankLastModifiedByIsNoIdentity", "<r><lastModifiedBy> \n </lastModifiedBy></r>", V::identityResidue, false},
        ResidueCase{"blankLastModifiedByIsAuthorship", "<r><lastModifiedBy> \n </lastModifiedBy></r>", V::revisionAuthorshipResidue, true},
        ResidueCase{"nbspOnlyIsNoIdentity", "<r><author>\xC2\xA0</author></r>", V::identityResidue, false},
        ResidueCase{"rosterNameAttribute", "<people><person name=\"Jane\"/></people>", V::identityResidue, true},
        ResidueCase{"nameOutsideARosterIsNoIdentity", "<styles><style name=\"Heading\"/></styles>", V::identityResidue, false},
        ResidueCase{"emailAnywhere", "<r><x email=\"j@acme.example\"/></r>", V::identityResidue, true},
        ResidueCase{"emailIsNoAuthorship", "<r><x email=\"j@acme.example\"/></r>", V::revisionAuthorshipResidue, false}),
    [](const auto& info) { return info.param.name; });

TEST(OfficeResidueVerifier, namesRosterElementsByTheirEnding) {
    auto document = parsePartText("<r><commentAuthor/><authorList/><w15:person xmlns:w15=\"urn:x\"/></r>");
    ASSERT_TRUE(document);
    std::vector<bool> roster;
    for (const auto& child : document->rootElement()->children())
        if (auto element = child.asElement()) roster.push_back(V::isRosterAuthorElement(*element));
    EXPECT_EQ(roster, (std::vector<bool>{true, false, true}));
}

// MARK: Dangling references

const std::string relsHead = "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">";

TEST(OfficeDroppedParts, removesRelationshipsResolvedAgainstTheirPartsFolder) {
    const std::string rels = relsHead +
                             "<Relationship Id=\"rId1\" Type=\"t\" Target=\"../customXml/item1.xml\"/>"
                             "<Relationship Id=\"rId2\" Type=\"t\" Target=\"header3.xml\"/>"
                             "<Relationship Id=\"rId3\" Type=\"t\" Target=\"styles.xml\"/>"
                             "<Relationship Id=\"rId4\" Type=\"t\" Target=\"header3.xml\" TargetMode=\"External\"/>"
                             "</Relationships>";
    const auto out = scrubDanglingRelationships(rels, "word/_rels/document.xml.rels", {"customXml/item1.xml", "WORD/Header3.xml"});
    ASSERT_TRUE(out);
    EXPECT_EQ(out->find("rId1"), std::string::npos);
    EXPECT_EQ(out->find("\"rId2\""), std::string::npos);
    EXPECT_NE(out->find("rId3"), std::string::npos);
    EXPECT_NE(out->find("rId4"), std::string::npos);
}

TEST(OfficeDroppedParts, leavesPartsWithNothingToRemoveByteForByte) {
    const std::string rels = relsHead + "<Relationship Id=\"rId1\" Type=\"t\" Target=\"word/document.xml\"/></Relationships>";
    EXPECT_EQ(scrubDanglingRelationships(rels, "_rels/.rels", {"docProps/thumbnail.jpeg"}), rels);
    EXPECT_EQ(scrubDanglingRelationships("<Relationships", "_rels/.rels", {}), std::nullopt);
}

TEST(OfficeDroppedParts, removesOverridesInAnyLetterCaseAndKeepsDefaults) {
    const std::string types = "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">"
                              "<Default Extension=\"xml\" ContentType=\"application/xml\"/>"
                              "<Override PartName=\"/word/header3.xml\" ContentType=\"h\"/>"
                              "<Override PartName=\"/word/document.xml\" ContentType=\"d\"/></Types>";
    const auto out = scrubDanglingContentTypeOverrides(types, {"WORD/HEADER3.XML"});
    ASSERT_TRUE(out);
    EXPECT_EQ(out->find("header3"), std::string::npos);
    EXPECT_NE(out->find("document.xml"), std::string::npos);
    EXPECT_NE(out->find("Default"), std::string::npos);
}

TEST(OfficeDroppedParts, resolvesTargetsLikeAFileSystemPath) {
    EXPECT_EQ(resolvedPartPath("word/", "../customXml/item1.xml"), "customXml/item1.xml");
    EXPECT_EQ(resolvedPartPath("word/", "./media/../media/a.png"), "word/media/a.png");
    EXPECT_EQ(resolvedPartPath("", "../../x.xml"), "x.xml");
}

// MARK: Media

CleaningProfile removing(std::set<MetadataCategory> categories) {
    CleaningProfile profile;
    profile.categoriesToRemove = std::move(categories);
    return profile;
}

TEST(OfficeMediaScrubber, findsAnImageOutsideTheMediaFoldersByItsContent) {
    const auto png = testing::images::dirtyPNG();
    EXPECT_TRUE(OfficeMediaScrubber::isEmbeddedMedia("word/embeddings/image.png", png));
    EXPECT_TRUE(OfficeMediaScrubber::isEmbeddedMedia("word/embeddings/blob", png));
    EXPECT_FALSE(OfficeMediaScrubber::isEmbeddedMedia("word/embeddings/oleObject1.bin", std::vector<std::uint8_t>{1, 2, 3}));
    EXPECT_TRUE(OfficeMediaScrubber::isEmbeddedMedia("ppt/media/anything", std::vector<std::uint8_t>{1, 2, 3}));
    const auto outcome = OfficeMediaScrubber::scrub(png, "word/embeddings/image.png", removing({MetadataCategory::location,
                                                                                                MetadataCategory::authorIdentity}));
    EXPECT_EQ(outcome.kind, OfficeMediaScrubber::Outcome::Kind::cleaned);
}

TEST(OfficeMediaScrubber, refusesMediaItCannotOpenOnlyWhenImageMetadataIsRemoved) {
    const std::vector<std::uint8_t> emf{1, 0, 0, 0, 'E', 'x', 'i', 'f', 0, 0};
    EXPECT_TRUE(OfficeMediaScrubber::hasKnownMediaExtension("ppt/media/image9.EMF"));
    EXPECT_EQ(OfficeMediaScrubber::scrub(emf, "ppt/media/image9.emf", removing({MetadataCategory::location})).kind,
              OfficeMediaScrubber::Outcome::Kind::unverifiable);
    EXPECT_EQ(OfficeMediaScrubber::scrub(emf, "ppt/media/image9.emf", removing({MetadataCategory::commentsAnnotations})).kind,
              OfficeMediaScrubber::Outcome::Kind::unchanged);
    CleaningProfile byKey;
    byKey.specificKeysToRemove = {"imageio.GPS.Latitude"};
    EXPECT_TRUE(OfficeMediaScrubber::profileTargetsImageMetadata(byKey));
    EXPECT_EQ(OfficeMediaScrubber::scrub(emf, "ppt/media/image9.emf", byKey).kind, OfficeMediaScrubber::Outcome::Kind::unverifiable);
}

// MARK: Hidden content

using S = OfficeHiddenContentScrubber;
const std::string sheetNS = "xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\"";

TEST(OfficeHiddenContentScrubber, removesEveryHiddenSheetAndNothingElse) {
    const std::string workbook = "<workbook " + sheetNS + "><sheets><sheet name=\"A\" state=\"hidden\"/>"
                                 "<sheet name=\"B\"/><sheet name=\"C\" state=\"veryHidden\"/></sheets>"
                                 "<definedNames><definedName name=\"x\">A!A1</definedName></definedNames></workbook>";
    const auto out = S::scrubHiddenSheets(workbook);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->find("name=\"A\""), std::string::npos);
    EXPECT_EQ(out->find("name=\"C\""), std::string::npos);
    EXPECT_NE(out->find("name=\"B\""), std::string::npos);
    EXPECT_NE(out->find("definedName"), std::string::npos);
    // No guard keeps a last sheet.
    const auto allHidden = S::scrubHiddenSheets("<workbook " + sheetNS + "><sheets><sheet state=\"hidden\"/></sheets></workbook>");
    ASSERT_TRUE(allHidden);
    EXPECT_EQ(allHidden->find("<sheet "), std::string::npos);
}

TEST(OfficeHiddenContentScrubber, givesBackPartsWithoutHiddenContentByteForByte) {
    const std::string workbook = "<workbook  " + sheetNS + "><sheets><sheet name='B'/></sheets></workbook>";
    EXPECT_EQ(S::scrubHiddenSheets(workbook), workbook);
    const std::string presentation = "<p:presentation xmlns:p=\"urn:p\"><p:sldIdLst><p:sldId show=\"1\"/></p:sldIdLst></p:presentation>";
    EXPECT_EQ(S::scrubHiddenSlides(presentation), presentation);
    EXPECT_EQ(S::scrubHiddenSheets("<workbook>"), std::nullopt);
}

TEST(OfficeHiddenContentScrubber, reportsLatentSettingsInWalkOrder) {
    const auto out = S::scrubLatentSettings("<w:settings " + w + "><w:docVars><w:mailMerge><w:odso/></w:mailMerge></w:docVars>"
                                            "<w:attachedTemplate/><w:zoom/></w:settings>");
    ASSERT_TRUE(out);
    EXPECT_EQ(out->removedLabels, (std::vector<std::string>{"Document Variables", "Mail Merge Settings",
                                                            "Mail Merge Data Source (ODSO)", "Attached Template"}));
    EXPECT_NE(out->xml.find("w:zoom"), std::string::npos);
    EXPECT_EQ(out->xml.find("docVars"), std::string::npos);
}

TEST(OfficeHiddenContentScrubber, removesLatentRelationshipsExternalOnesIncluded) {
    const std::string rels = relsHead +
                             "<Relationship Id=\"rId1\" Type=\"http://x/relationships/attachedTemplate\" "
                             "Target=\"file:///C:/Templates/Secret.dotm\" TargetMode=\"External\"/>"
                             "<Relationship Id=\"rId2\" Type=\"http://x/relationships/styles\" Target=\"styles.xml\"/>"
                             "</Relationships>";
    const auto out = S::scrubLatentRelationships(rels);
    ASSERT_TRUE(out);
    EXPECT_TRUE(out->removedAny);
    EXPECT_EQ(out->xml.find("Secret"), std::string::npos);
    EXPECT_NE(out->xml.find("styles.xml"), std::string::npos);
}

TEST(OfficeHiddenContentScrubber, dropsOnlyThePrinterSettingsReferenceOfAPageSetup) {
    const std::string sheet = "<worksheet " + sheetNS + " xmlns:r=\"http://schemas.openxmlformats.org/officeDocument/2006/"
                              "relationships\"><pageSetup orientation=\"landscape\" r:id=\"rId2\"/></worksheet>";
    const auto kept = S::scrubPrinterSettingsReferences(sheet, {"rId9"});
    ASSERT_TRUE(kept);
    EXPECT_FALSE(kept->removedAny);
    EXPECT_EQ(kept->xml, sheet);
    const auto dropped = S::scrubPrinterSettingsReferences(sheet, {"rId2"});
    ASSERT_TRUE(dropped);
    EXPECT_TRUE(dropped->removedAny);
    EXPECT_EQ(dropped->xml.find("rId2"), std::string::npos);
    EXPECT_NE(dropped->xml.find("landscape"), std::string::npos);
}

TEST(OfficeHiddenContentScrubber, removesInactiveFirstPageReferencesWithoutATitlePage) {
    const std::string document = "<w:document " + w + " xmlns:r=\"http://schemas.openxmlformats.org/officeDocument/2006/"
                                 "relationships\"><w:body><w:sectPr><w:headerReference w:type=\"first\" r:id=\"rId7\"/>"
                                 "<w:headerReference w:type=\"default\" r:id=\"rId8\"/></w:sectPr></w:body></w:document>";
    const auto out = S::scrubInactiveHeaderFooterReferences(document, false);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->removedCount, 1);
    EXPECT_EQ(out->xml.find("rId7"), std::string::npos);
    EXPECT_NE(out->xml.find("rId8"), std::string::npos);
}

}  // namespace
}  // namespace tavrin
