#include <gtest/gtest.h>

#include "pdf/pdf_date.h"
#include "pdf/pdf_latent_content_inspector.h"
#include "pdf/pdf_metadata_reader.h"
#include "pdf/pdf_navigation_inspector.h"
#include "pdf_fixtures.h"

namespace tavrin {
namespace {

using testing::DirtyValues;
using testing::onePage;
using testing::TempDir;
using testing::write;

std::optional<MetadataItem> find(const MetadataTree& tree, const std::string& id) {
    for (const auto& item : tree.allItems())
        if (item.id == id) return item;
    return std::nullopt;
}

// Dates a 64-bit nanosecond clock cannot hold stay text instead of overflowing (found by fuzzing).
TEST(PDFDate, parsesOnlyYearsTheClockCanHold) {
    using namespace std::chrono;
    EXPECT_EQ(parsePDFDate("D:20240305140209+01'00'"), sys_days{year{2024} / 3 / 5} + hours{13} + minutes{2} + seconds{9});
    EXPECT_TRUE(parsePDFDate("D:22611231235959-23'59'"));
    EXPECT_TRUE(parsePDFDate("D:16780101000000+23'59'"));
    for (const char* text : {"D:30200101120000Z", "D:99991231235959Z", "D:22620101000000Z", "D:16771231235959Z", "D:0000"})
        EXPECT_FALSE(parsePDFDate(text)) << text;
}

TEST(PDFMetadataReader, readsTheLastRevisionsInfoWithParsedDatesAlsoFromObjectStreams) {
    TempDir dir;
    const auto tree = PDFMetadataReader().readMetadata(write(dir, "a.pdf", testing::dirtyPDF()));
    using namespace std::chrono;
    struct Row {
        const char* id;
        MetadataValue value;
        MetadataCategory category;
    };
    const std::vector<Row> rows = {
        {"PDF.Title", MetadataValue::string(DirtyValues::title), MetadataCategory::authorIdentity},
        {"PDF.Author", MetadataValue::string(DirtyValues::author), MetadataCategory::authorIdentity},
        {"PDF.Creator", MetadataValue::string(DirtyValues::creator), MetadataCategory::softwareInfo},
        {"PDF.Producer", MetadataValue::string(DirtyValues::producer), MetadataCategory::softwareInfo},
        {"PDF.CreationDate", MetadataValue::date(sys_days{year{2020} / 1 / 1} + hours{12}), MetadataCategory::timestamps},
        {"PDF.ModDate", MetadataValue::date(sys_days{year{2024} / 3 / 5} + hours{13} + minutes{2} + seconds{9}),
         MetadataCategory::timestamps},
        {"PDF.Keywords", MetadataValue::array({MetadataValue::string("confidential"), MetadataValue::string("budget")}),
         MetadataCategory::authorIdentity},
        {"PDF.Outline", MetadataValue::string("3 bookmark(s)"), MetadataCategory::documentHistory},
        {"PDF.InternalLinks", MetadataValue::string("1 link(s)"), MetadataCategory::documentHistory},
        {"PDF.ExternalHyperlinks", MetadataValue::string(std::string("1 link(s): ") + DirtyValues::externalURL),
         MetadataCategory::documentHistory},
    };
    for (const auto& row : rows) {
        auto item = find(tree, row.id);
        ASSERT_TRUE(item) << row.id;
        EXPECT_EQ(item->value, row.value) << row.id;
        EXPECT_EQ(item->category, row.category) << row.id;
        EXPECT_EQ(item->key, item->id);
        EXPECT_EQ(item->source, MetadataSource::pdfKit);
    }
    EXPECT_FALSE(find(tree, "PDF.Subject"));
    EXPECT_FALSE(find(tree, "PDF.JavaScript"));
    // The same from object streams.
    const auto packed =
        PDFMetadataReader().readMetadata(write(dir, "b.pdf", testing::withObjectStreams(testing::dirtyPDF())));
    EXPECT_EQ(tree.allItems(), packed.allItems());
}

TEST(PDFMetadataReader, reportsScriptsFormsAndAnUninspectableCatalog) {
    TempDir dir;
    const auto tree =
        PDFMetadataReader().readMetadata(write(dir, "a.pdf", testing::dirtyPDF({.script = true, .acroForm = true})));
    auto script = find(tree, "PDF.JavaScript");
    ASSERT_TRUE(script);
    EXPECT_EQ(script->value,
              MetadataValue::string("Document open action; cleaning refuses a document that carries scripts"));
    EXPECT_EQ(script->category, MetadataCategory::hiddenContent);
    EXPECT_TRUE(find(tree, "PDF.AcroForm"));
}

TEST(PDFLatentContentInspector, findsScriptsOnlyWhereTheCatalogPutsThem) {
    TempDir dir;
    struct Case {
        const char* name;
        std::string catalog;
        std::vector<std::string> locations;
    };
    const std::vector<Case> cases = {
        {"plain", "", {}},
        {"name tree", "/Names << /JavaScript << /Names [] >> >>", {"JavaScript name tree"}},
        {"GoTo open action", "/OpenAction << /S /GoTo /D [3 0 R /Fit] >>", {}},
        {"JS under another type", "/OpenAction << /S /Named /JS (x) >>", {"Document open action"}},
        {"destination array", "/OpenAction [3 0 R /Fit]", {}},
        {"all three", "/Names << /JavaScript << >> >> /OpenAction << /S /JavaScript /JS (x) >> /AA << /WC 1 >>",
         {"JavaScript name tree", "Document open action", "Additional actions (/AA)"}},
    };
    for (const auto& c : cases) {
        auto findings = PDFLatentContentInspector::inspect(write(dir, std::string(c.name) + ".pdf", onePage(c.catalog)));
        ASSERT_TRUE(findings) << c.name;
        EXPECT_EQ(findings->javaScriptLocations, c.locations) << c.name;
    }
    EXPECT_FALSE(PDFLatentContentInspector::inspect(write(dir, "zip.pdf", "PK\x03\x04 not a pdf")));
    EXPECT_FALSE(PDFLatentContentInspector::confirmsNoJavaScript(dir / "zip.pdf"));
}

TEST(PDFNavigationInspector, classifiesLinksByTheirActions) {
    using Kind = PDFNavigationInspector::LinkKind::Kind;
    struct Case {
        std::string annotation;
        PDFNavigationInspector::LinkKind kind;
    };
    const std::vector<Case> cases = {
        {"<< /Subtype /Link /A << /S /URI /URI (https://a.example) >> >>", {Kind::externalURL, "https://a.example"}},
        {"<< /Subtype /Link /A << /S /Launch /URI (file:x) >> >>", {Kind::externalURL, "file:x"}},
        {"<< /Subtype /Link /A << /S /GoTo /D (chapter) >> >>", {Kind::internalDestination, ""}},
        {"<< /Subtype /Link /Dest (chapter) >>", {Kind::internalDestination, ""}},
        {"<< /Subtype /Link /A << /S /Launch /F (x.exe) >> >>", {Kind::unknown, ""}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(PDFNavigationInspector::classify(QPDFObjectHandle::parse(c.annotation)), c.kind) << c.annotation;
}

TEST(PDFNavigationInspector, countsLinksAndSamplesFiveDistinctURLs) {
    TempDir dir;
    std::string annots = "/Annots [";
    std::vector<std::pair<int, std::string>> extra;
    const char* urls[] = {"https://1.example", "https://2.example", "https://2.example", "https://3.example",
                          "https://4.example", "https://5.example", "https://6.example", "https://7.example"};
    int n = 10;
    for (const char* url : urls) {
        extra.emplace_back(n, std::string("<< /Type /Annot /Subtype /Link /Rect [0 0 1 1] /A << /S /URI /URI (") + url +
                                  ") >> >>");
        annots += std::to_string(n++) + " 0 R ";
    }
    extra.emplace_back(n, "<< /Type /Annot /Subtype /Link /Rect [0 0 1 1] /A << /S /Named /N /NextPage >> >>");
    annots += std::to_string(n) + " 0 R]";
    const auto summary = PDFNavigationInspector::summarize(write(dir, "a.pdf", onePage("", annots, extra)));
    EXPECT_EQ(summary.externalLinkCount, 8);
    EXPECT_EQ(summary.internalLinkCount, 1);  // a link that cannot be classified counts as internal
    EXPECT_EQ(summary.sampleExternalURLs,
              (std::vector<std::string>{"https://1.example", "https://2.example", "https://3.example",
                                        "https://4.example", "https://5.example"}));
    EXPECT_FALSE(summary.hasOutline);
    EXPECT_TRUE(summary.hasAnyNavigation());
}

TEST(PDFNavigationInspector, countsNestedOutlinesAndSurvivesCycles) {
    TempDir dir;
    const std::string outline = "/Outlines 10 0 R";
    const std::vector<std::pair<int, std::string>> nested = {
        {10, "<< /First 11 0 R /Last 12 0 R >>"},
        {11, "<< /Title (A) /Next 12 0 R /First 13 0 R >>"},
        {12, "<< /Title (B) >>"},
        {13, "<< /Title (A1) /Next 14 0 R >>"},
        {14, "<< /Title (A2) /Next 15 0 R >>"},
        {15, "<< /Title (A3) >>"},
    };
    EXPECT_EQ(PDFNavigationInspector::summarize(write(dir, "a.pdf", onePage(outline, "", nested))).outlineItemCount, 5);
    const std::vector<std::pair<int, std::string>> looping = {
        {10, "<< /First 11 0 R >>"},
        {11, "<< /Title (A) /Next 12 0 R /First 11 0 R >>"},
        {12, "<< /Title (B) /Next 11 0 R /First 10 0 R >>"},
    };
    EXPECT_EQ(PDFNavigationInspector::summarize(write(dir, "b.pdf", onePage(outline, "", looping))).outlineItemCount, 2);
    EXPECT_EQ(PDFNavigationInspector::summarize(write(dir, "c.pdf", testing::dirtyPDF({.outlineCycle = true})))
                  .outlineItemCount,
              3);
}

// Damaged, hostile and locked files are refused with the reader's error; none crashes or hangs. A
// cross-reference table qpdf can rebuild is repaired, and the document read.
TEST(PDFMetadataReader, refusesDamagedHostileAndLockedFiles) {
    TempDir dir;
    const std::string good = testing::dirtyPDF();
    std::string deep = "[";
    for (int i = 0; i < 10000; ++i) deep += "[";
    std::string lyingLength = good;
    const std::size_t lengthAt = lyingLength.find("/Length ") + 8;
    lyingLength.replace(lengthAt, lyingLength.find(' ', lengthAt) - lengthAt, "9999");
    std::string xrefNowhere = good;
    xrefNowhere.replace(xrefNowhere.rfind("startxref\n") + 10, 3, "999999");
    using E = PDFMetadataReaderError::Case;
    const std::vector<std::tuple<const char*, std::string, E>> refused = {
        {"really a zip", std::string("PK\x03\x04\x14\x00\x00\x00", 8) + std::string(200, 'z'), E::cannotOpenPDF},
        {"deep array", onePage("/Deep " + deep), E::cannotOpenPDF},
        {"self reference", onePage("", "", {{1, "1 0 R"}}), E::cannotOpenPDF},
        {"truncated before its trailer", good.substr(0, good.size() / 2), E::cannotOpenPDF},
        {"empty", "", E::cannotOpenPDF},
        {"locked", testing::encryptedAES256(good, "user-pw", "owner-pw"), E::passwordRequired},
    };
    for (const auto& [name, bytes] : {std::pair{"lying stream length", lyingLength},
                                      std::pair{"xref points nowhere", xrefNowhere}}) {
        try {
            const auto tree = PDFMetadataReader().readMetadata(write(dir, std::string(name) + ".pdf", bytes));
            EXPECT_TRUE(find(tree, "PDF.Author")) << name;
        } catch (const std::exception& e) {
            ADD_FAILURE() << name << ": " << e.what();
        }
    }
    for (const auto& [name, bytes, expected] : refused) {
        try {
            PDFMetadataReader().readMetadata(write(dir, std::string(name) + ".pdf", bytes));
            ADD_FAILURE() << name << " was read";
        } catch (const PDFMetadataReaderError& e) {
            EXPECT_EQ(e.errorCase(), expected) << name;
            EXPECT_EQ(std::string(e.what()).find("password") != std::string::npos, expected == E::passwordRequired);
        }
    }
}

}  // namespace
}  // namespace tavrin
