// Hidden sheets, rows, columns and slides, off-slide shapes and Word latent content: each
// built as a real package, read through the detectors and through `tavrin inspect --json`.
#include <gtest/gtest.h>

#include <cstdlib>
#include <nlohmann/json.hpp>

#include "model/snapshot.h"
#include "office/office_hidden_content_detector.h"
#include "office_fixtures.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

namespace D = OfficeHiddenContentDetector;
using testing::OfficePackageBuilder;

const std::string W = "xmlns:w=\"http://schemas.openxmlformats.org/wordprocessingml/2006/main\" "
                      "xmlns:r=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships\"";
const std::string S = "xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\" "
                      "xmlns:r=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships\"";
const std::string P = "xmlns:p=\"http://schemas.openxmlformats.org/presentationml/2006/main\" "
                      "xmlns:a=\"http://schemas.openxmlformats.org/drawingml/2006/main\" "
                      "xmlns:r=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships\"";
const std::string relsNS = "http://schemas.openxmlformats.org/officeDocument/2006/relationships";

struct Rel {
    std::string id, type, target;
    bool external = false;
};

std::string rels(const std::vector<Rel>& list) {
    std::string text = "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">";
    for (const auto& r : list)
        text += "<Relationship Id=\"" + r.id + "\" Type=\"" + relsNS + "/" + r.type + "\" Target=\"" + r.target + "\"" +
                (r.external ? " TargetMode=\"External\"" : "") + "/>";
    return text + "</Relationships>";
}

// A package of the given main part with content types and package relationships.
OfficePackageBuilder package(const std::string& mainPath, const std::string& mainPart) {
    OfficePackageBuilder b;
    b.add("[Content_Types].xml",
          "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\"><Default Extension=\"rels\" "
          "ContentType=\"application/vnd.openxmlformats-package.relationships+xml\"/><Default Extension=\"xml\" "
          "ContentType=\"application/xml\"/></Types>");
    b.add("_rels/.rels", rels({{"rId1", "officeDocument", mainPath}}));
    b.add(mainPath, mainPart);
    return b;
}

Archive archiveOf(const OfficePackageBuilder& b) { return Archive(b.bytes(), Archive::AccessMode::read); }

std::string section(const std::string& references, bool titlePage = false) {
    return "<w:sectPr>" + references + (titlePage ? "<w:titlePg/>" : "") + "</w:sectPr>";
}
std::string reference(const std::string& kind, const std::string& type, const std::string& rId) {
    return "<w:" + kind + " w:type=\"" + type + "\" r:id=\"" + rId + "\"/>";
}

std::vector<MetadataItem> inspect(const OfficePackageBuilder& b, const std::string& extension) {
    testing::TempDir dir;
    const auto path = dir / ("sample." + extension);
    b.write(path);
    const char* bin = std::getenv("TAVRIN_BIN");
    std::string out;
    const int status = testing::runCommand(std::string(bin ? bin : "build/bin/tavrin") + " inspect --json " +
                                               testing::shellQuote(path.string()) + " 2>/dev/null",
                                           &out);
    EXPECT_EQ(status, 0) << out;
    const auto trees = nlohmann::json::parse(out);
    EXPECT_EQ(trees.size(), 1u);
    return trees.at(0).get<MetadataTree>().allItems();
}

const MetadataItem* find(const std::vector<MetadataItem>& items, const std::string& id) {
    for (const auto& item : items)
        if (item.id == id) return &item;
    return nullptr;
}

void expectFinding(const std::vector<MetadataItem>& items, const std::string& id, const std::string& key,
                   const std::string& displayName, const std::string& value, bool removable) {
    SCOPED_TRACE(id);
    const auto* item = find(items, id);
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->key, key);
    EXPECT_EQ(item->displayName, displayName);
    EXPECT_EQ(item->value, MetadataValue::string(value));
    EXPECT_EQ(item->category, MetadataCategory::hiddenContent);
    EXPECT_EQ(item->source, MetadataSource::zipXML);
    EXPECT_EQ(item->isRemovable, removable);
}

std::vector<std::string> ids(const std::vector<MetadataItem>& items) {
    std::vector<std::string> out;
    for (const auto& item : items) out.push_back(item.id);
    return out;
}

// MARK: Workbooks

OfficePackageBuilder workbook() {
    auto b = package("xl/workbook.xml",
                     "<workbook " + S + "><sheets><sheet name=\"Budget\" sheetId=\"1\" r:id=\"rId1\"/>"
                     "<sheet name=\"Salaries\" sheetId=\"2\" state=\"hidden\" r:id=\"rId2\"/>"
                     "<sheet name=\"Keys\" sheetId=\"3\" state=\"veryHidden\" r:id=\"rId3\"/>"
                     "<sheet name=\"Lost\" sheetId=\"4\" state=\"hidden\" r:id=\"rId9\"/>"
                     "<sheet name=\"Odd\" sheetId=\"5\" state=\"HIDDEN\" r:id=\"rId4\"/>"
                     "<sheet name=\"Shown\" sheetId=\"6\" state=\"visible\" r:id=\"rId5\"/></sheets></workbook>");
    b.add("xl/_rels/workbook.xml.rels",
          rels({{"rId1", "worksheet", "worksheets/sheet1.xml"}, {"rId2", "worksheet", "worksheets/sheet2.xml"},
                {"rId3", "worksheet", "worksheets/sheet3.xml"}, {"rId4", "worksheet", "worksheets/sheet4.xml"},
                {"rId5", "worksheet", "worksheets/Sheet5.xml"}}));
    b.add("xl/worksheets/sheet1.xml",
          "<worksheet " + S + "><cols><col min=\"2\" max=\"4\" hidden=\"1\"/><col min=\"5\" hidden=\"true\"/>"
          "<col min=\"9\" max=\"9\" hidden=\"0\"/></cols><sheetData><row r=\"7\" hidden=\"1\"/><row r=\"3\" hidden=\"1\"/>"
          "<row r=\"4\" hidden=\"true\"/><row r=\"5\" hidden=\"on\"/><row r=\"6\" hidden=\"no\"/><row r=\"8\" hidden=\"false\"/>"
          "<row hidden=\"1\"/></sheetData></worksheet>");
    for (const char* path : {"xl/worksheets/sheet2.xml", "xl/worksheets/sheet3.xml", "xl/worksheets/sheet4.xml"})
        b.add(path, "<worksheet " + S + "><sheetData><row r=\"1\" hidden=\"1\"/></sheetData></worksheet>");
    b.add("xl/worksheets/sheet5.xml", "<worksheet " + S + "><cols><col min=\"1\" hidden=\"1\"/></cols></worksheet>");
    b.add("xl/printerSettings/printerSettings1.bin", "DEVMODE\\\\PRINTSRV\\Floor3");
    b.add("xl/worksheets/_rels/sheet1.xml.rels",
          rels({{"rId1", "printerSettings", "../printerSettings/printerSettings1.bin"},
                {"rId2", "printerSettings", "/xl/printerSettings/printerSettings1.bin"},
                {"rId3", "hyperlink", "../printerSettings/printerSettings1.bin", true},
                {"rId4", "drawing", "../drawings/drawing1.xml"}}));
    return b;
}

TEST(OfficeHiddenStructure, reportsHiddenSheetsRowsAndColumnsThroughInspect) {
    const auto items = inspect(workbook(), "xlsx");
    expectFinding(items, "office.hidden.sheet.Salaries", "xl/worksheets/sheet2.xml", "Hidden Sheet: Salaries", "Salaries",
                  true);
    expectFinding(items, "office.hidden.sheet.Keys", "xl/worksheets/sheet3.xml", "Very-Hidden Sheet: Keys", "Keys", true);
    // An unresolvable relationship still reports, under the workbook.
    expectFinding(items, "office.hidden.sheet.Lost", "xl/workbook.xml#Lost", "Hidden Sheet: Lost", "Lost", true);
    EXPECT_EQ(find(items, "office.hidden.sheet.Odd"), nullptr);
    expectFinding(items, "office.hidden.rows.Budget", "xl/worksheets/sheet1.xml#hiddenRows", "Hidden Rows: Budget",
                  "Rows 3\u20135, 7", false);
    expectFinding(items, "office.hidden.columns.Budget", "xl/worksheets/sheet1.xml#hiddenColumns",
                  "Hidden Columns: Budget", "Columns 2\u20135", false);
    // A visible sheet is found through a lower-case look-up of its path.
    expectFinding(items, "office.hidden.columns.Shown", "xl/worksheets/Sheet5.xml#hiddenColumns", "Hidden Columns: Shown",
                  "Columns 1", false);
    // Rows of hidden sheets, and of sheets in an unknown state, are not examined.
    EXPECT_EQ(find(items, "office.hidden.rows.Salaries"), nullptr);
    EXPECT_EQ(find(items, "office.hidden.rows.Odd"), nullptr);
    expectFinding(items, "office.hidden.printerSettings.xl/printerSettings/printerSettings1.bin",
                  "xl/printerSettings/printerSettings1.bin", "Printer Settings", "xl/printerSettings/printerSettings1.bin",
                  true);
}

TEST(OfficeHiddenStructure, namesThePartsToRemoveForSheetsAndPrinterSettings) {
    const auto archive = archiveOf(workbook());
    EXPECT_EQ(D::hiddenWorksheetPaths(archive),
              (std::set<std::string>{"xl/worksheets/sheet2.xml", "xl/worksheets/sheet3.xml"}));
    std::vector<std::string> visible;
    for (const auto& sheet : D::visibleSheets(archive)) visible.push_back(sheet.name + "=" + sheet.path);
    EXPECT_EQ(visible, (std::vector<std::string>{"Budget=xl/worksheets/sheet1.xml", "Shown=xl/worksheets/Sheet5.xml"}));
    const auto printers = D::printerSettingsPaths(archive);
    EXPECT_EQ(printers, std::set<std::string>{"xl/printerSettings/printerSettings1.bin"});
    // Relative and absolute targets resolve; external ones are never followed.
    EXPECT_EQ(D::printerSettingsRIds("xl/worksheets/sheet1.xml", {"XL/PrinterSettings/printerSettings1.bin"}, archive),
              (std::set<std::string>{"rId1", "rId2"}));
    EXPECT_TRUE(D::printerSettingsRIds("xl/worksheets/sheet1.xml", {}, archive).empty());
}

TEST(OfficeHiddenStructure, describesRanges) {
    EXPECT_EQ(D::rangesDescription(std::vector<std::int64_t>{7, 3, 4, 5}), "3\u20135, 7");
    EXPECT_EQ(D::rangesDescription(std::vector<std::int64_t>{}), "");
    EXPECT_EQ(D::rangesDescription({{2, 4}, {5, 5}, {9, 8}, {INT64_MAX, INT64_MAX}, {INT64_MAX - 1, INT64_MAX}}),
              "2\u20135, 9\u20138, " + std::to_string(INT64_MAX - 1) + "\u2013" + std::to_string(INT64_MAX));
    EXPECT_EQ(D::rangesDescription({{-3, -1}, {0, 0}}), "-3\u20130");
}

// MARK: Presentations

std::string slide(const std::string& shapes, const std::string& show = "") {
    return "<p:sld " + P + (show.empty() ? "" : " show=\"" + show + "\"") + "><p:cSld><p:spTree>" + shapes +
           "</p:spTree></p:cSld></p:sld>";
}
std::string shape(long long x, long long y, long long cx, long long cy, const std::string& xfrmAttributes = "") {
    return "<p:sp><p:spPr><a:xfrm" + xfrmAttributes + "><a:off x=\"" + std::to_string(x) + "\" y=\"" + std::to_string(y) +
           "\"/><a:ext cx=\"" + std::to_string(cx) + "\" cy=\"" + std::to_string(cy) + "\"/></a:xfrm></p:spPr></p:sp>";
}

OfficePackageBuilder presentation() {
    auto b = package("ppt/presentation.xml",
                     "<p:presentation " + P + "><p:sldIdLst><p:sldId id=\"256\" r:id=\"rId2\"/><p:sldId id=\"257\" "
                     "r:id=\"rId3\" show=\"0\"/><p:sldId id=\"258\" r:id=\"rId4\" show=\"0\"/><p:sldId id=\"259\" "
                     "r:id=\"rId9\" show=\"0\"/></p:sldIdLst><p:sldSz cx=\"100\" cy=\"100\"/></p:presentation>");
    b.add("ppt/_rels/presentation.xml.rels",
          rels({{"rId2", "slide", "slides/slide1.xml"}, {"rId3", "slide", "slides/slide2.xml"},
                {"rId4", "slide", "slides/slide3.xml"}, {"rId5", "slide", "slides/slide4.xml"}}));
    // Slide 1: shown, with shapes on every side of the canvas and some that cannot be judged.
    b.add("ppt/slides/slide1.xml",
          slide(shape(-50, 0, 50, 10) + shape(-50, 0, 51, 10) + shape(100, 0, 10, 10) + shape(99, 0, 10, 10) +
                shape(0, -20, 5, 20) + shape(5000, 0, 10, 10, " rot=\"5400000\"") +
                shape(5000, 0, 10, 10, " flipH=\"1\"") + shape(5000, 0, 10, 10, " rot=\"0\" flipV=\"0\"") +
                shape(5000, 0, 0, 10) + "<p:grpSp>" + shape(9000, 9000, 10, 10) + "</p:grpSp>"));
    // Slide 2: hidden in the slide and in the list (one finding), with notes and off-slide shapes.
    b.add("ppt/slides/slide2.xml", slide(shape(500, 500, 10, 10), "0"));
    b.add("ppt/notesSlides/NotesSlide2.xml", "<p:notes " + P + "/>");
    // Slide 3: hidden in the list only. Slide 4: show="false", which hides no slide here.
    b.add("ppt/slides/slide3.xml", slide(""));
    b.add("ppt/slides/slide4.xml", slide(shape(500, 500, 10, 10), "false"));
    b.add("ppt/slides/_rels/slide2.xml.rels", rels({{"rId1", "notesSlide", "../notesSlides/notesSlide2.xml"}}));
    return b;
}

TEST(OfficeHiddenStructure, reportsHiddenSlidesAndOffSlideShapesThroughInspect) {
    const auto items = inspect(presentation(), "pptx");
    expectFinding(items, "office.hidden.slide.rId3", "ppt/slides/slide2.xml", "Hidden Slide", "slides/slide2.xml", true);
    expectFinding(items, "office.hidden.slide.258", "ppt/slides/slide3.xml", "Hidden Slide", "slides/slide3.xml", true);
    expectFinding(items, "office.hidden.slide.259", "ppt/presentation.xml#259", "Hidden Slide", "slide", true);
    EXPECT_EQ(find(items, "office.hidden.slide.257"), nullptr);
    expectFinding(items, "office.hidden.offSlide.ppt/slides/slide1.xml", "ppt/slides/slide1.xml#offSlide",
                  "Off-Slide Content: slide1.xml", "4 shapes positioned entirely off the slide canvas", false);
    // Hidden slides carry no off-slide finding, whichever off value hides them there.
    EXPECT_EQ(find(items, "office.hidden.offSlide.ppt/slides/slide2.xml"), nullptr);
    EXPECT_EQ(find(items, "office.hidden.offSlide.ppt/slides/slide4.xml"), nullptr);
    EXPECT_EQ(find(items, "office.hidden.slide.ppt/slides/slide4.xml"), nullptr);
}

TEST(OfficeHiddenStructure, removesHiddenSlidesWithTheirNotes) {
    const auto archive = archiveOf(presentation());
    // The notes part keeps its computed name, found in another letter case.
    EXPECT_EQ(D::hiddenSlidePaths(archive),
              (std::set<std::string>{"ppt/slides/slide2.xml", "ppt/notesSlides/notesslide2.xml", "ppt/slides/slide3.xml"}));
    EXPECT_EQ(D::slideCanvasSize(archive), (std::pair<std::int64_t, std::int64_t>{100, 100}));

    auto noSize = package("ppt/presentation.xml", "<p:presentation " + P + "><p:sldSz cx=\"0\" cy=\"5\"/></p:presentation>");
    noSize.add("ppt/slides/slide1.xml", slide(shape(900, 900, 1, 1)));
    EXPECT_FALSE(D::slideCanvasSize(archiveOf(noSize)));
    EXPECT_TRUE(D::detectOffSlideShapes(archiveOf(noSize)).empty());
}

TEST(OfficeHiddenStructure, readsIntegersStrictly) {
    const std::string text = "<e " + P + " a=\"+5\" b=\"-9223372036854775808\" c=\"9223372036854775808\" d=\"1x\" e=\"\"/>";
    XMLDocument doc(std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
    const auto e = *doc.rootElement();
    EXPECT_EQ(D::intPair(e, "a", "b"), (std::pair<std::int64_t, std::int64_t>{5, INT64_MIN}));
    EXPECT_FALSE(D::intPair(e, "a", "c"));
    EXPECT_FALSE(D::intPair(e, "a", "d"));
    EXPECT_FALSE(D::intPair(e, "a", "e"));
    EXPECT_FALSE(D::intPair(e, "a", "missing"));
    // A huge shape at the extremes is judged without overflow.
    const std::string extreme = "<p:sp " + P + "><p:spPr><a:xfrm><a:off x=\"-9223372036854775808\" y=\"0\"/><a:ext "
                                "cx=\"9223372036854775807\" cy=\"1\"/></a:xfrm></p:spPr></p:sp>";
    XMLDocument shapeDoc(std::span(reinterpret_cast<const std::uint8_t*>(extreme.data()), extreme.size()));
    EXPECT_EQ(D::offSlideShapeCount(*shapeDoc.rootElement(), {100, 100}), 1u);
}

// MARK: Word latent content

OfficePackageBuilder wordDocument() {
    const std::string body =
        "<w:document " + W + "><w:body><w:p/>" +
        "<w:p><w:pPr>" + section(reference("headerReference", "first", "rId1") + reference("headerReference", "even", "rId2") +
                                 reference("footerReference", "default", "rId3")) + "</w:pPr></w:p>" +
        section(reference("headerReference", "first", "rId4") + reference("headerReference", "default", "rId1") +
                    reference("footerReference", "even", "rId99"),
                true) +
        "</w:body></w:document>";
    auto b = package("word/document.xml", body);
    b.add("word/_rels/document.xml.rels",
          rels({{"rId1", "header", "header1.xml"}, {"rId2", "header", "header2.xml"},
                {"rId3", "footer", "footer1.xml"}, {"rId4", "header", "/word/header4.xml"},
                {"rId7", "recipientData", "recipientData.xml"}, {"rId8", "header", "../../etc/passwd"}}));
    b.add("word/header1.xml", "<w:hdr " + W + "/>");
    b.add("word/header2.xml", "<w:hdr " + W + "/>");
    b.add("word/footer1.xml", "<w:ftr " + W + "/>");
    b.add("word/header4.xml", "<w:hdr " + W + "/>");
    b.add("word/Header3.xml", "<w:hdr " + W + "/>");
    b.add("word/recipientData.xml", "<w:recipients " + W + "/>");
    b.add("word/settings.xml",
          "<w:settings " + W + "><w:attachedTemplate r:id=\"rId1\"/><w:docVars><w:docVar w:name=\"ClientID\" "
          "w:val=\"ACME-7731\"/><w:docVar w:val=\"v\"/><w:docVar w:name=\"ClientID\" w:val=\"again\"/></w:docVars>"
          "<w:mailMerge><w:dataSource r:id=\"rId2\"/><w:connectString w:val=\"Provider=X;Data Source=C:\\Users\\jroe\\"
          "list.xlsx\"/><w:query w:val=\"SELECT * FROM `Sheet1$`\"/></w:mailMerge></w:settings>");
    b.add("word/_rels/settings.xml.rels",
          rels({{"rId1", "attachedTemplate", "file:///C:\\Users\\jroe\\AppData\\Roaming\\Microsoft\\Templates\\Acme.dotm",
                 true},
                {"rId2", "mailMergeSource", "file:///C:\\Users\\jroe\\list.xlsx", true},
                {"rId3", "mailMergeHeaderSource", "../../../etc/shadow"}}));
    b.add("word/printerSettings/printerSettings1.bin", "DEVMODE");
    return b;
}

TEST(OfficeWordLatentContent, reportsWhatNoPageShowsThroughInspect) {
    const auto items = inspect(wordDocument(), "docx");
    expectFinding(items, "office.hidden.word/Header3.xml", "word/Header3.xml", "Orphaned Header", "word/Header3.xml", true);
    // An absolute target is not resolved by the orphan test: that part counts as orphaned.
    expectFinding(items, "office.hidden.word/header4.xml", "word/header4.xml", "Orphaned Header", "word/header4.xml", true);
    expectFinding(items, "office.hidden.inactiveRef.0.first.headerReference", "word/header1.xml",
                  "Inactive First-Page Header", "word/header1.xml", true);
    expectFinding(items, "office.hidden.inactiveRef.1.even.headerReference", "word/header2.xml",
                  "Inactive Even-Page Header", "word/header2.xml", true);
    expectFinding(items, "office.hidden.inactiveRef.2.even.footerReference", "word/document.xml#even.footerReference.2",
                  "Inactive Even-Page Footer", "even footer reference", true);
    expectFinding(items, "office.hidden.docvar.0.ClientID", "word/settings.xml#docVar:ClientID",
                  "Document Variable: ClientID", "ACME-7731", true);
    expectFinding(items, "office.hidden.docvar.1.unnamed", "word/settings.xml#docVar:unnamed",
                  "Document Variable: unnamed", "v", true);
    expectFinding(items, "office.hidden.docvar.2.ClientID", "word/settings.xml#docVar:ClientID",
                  "Document Variable: ClientID", "again", true);
    expectFinding(items, "office.hidden.attachedTemplate", "word/settings.xml#attachedTemplate", "Attached Template",
                  "file:///C:\\Users\\jroe\\AppData\\Roaming\\Microsoft\\Templates\\Acme.dotm", true);
    expectFinding(items, "office.hidden.mailMerge", "word/settings.xml#mailMerge", "Mail Merge Data Source",
                  "file:///C:\\Users\\jroe\\list.xlsx; Provider=X;Data Source=C:\\Users\\jroe\\list.xlsx; "
                  "SELECT * FROM `Sheet1$`",
                  true);
    // Consumed settings relationships give no second item; the others do.
    EXPECT_EQ(find(items, "office.hidden.latentRel.word/_rels/settings.xml.rels.rId1"), nullptr);
    EXPECT_EQ(find(items, "office.hidden.latentRel.word/_rels/settings.xml.rels.rId2"), nullptr);
    expectFinding(items, "office.hidden.latentRel.word/_rels/settings.xml.rels.rId3",
                  "word/_rels/settings.xml.rels#rId3", "Mail Merge Data Source Reference", "../../../etc/shadow", true);
    expectFinding(items, "office.hidden.latentRel.word/_rels/document.xml.rels.rId7",
                  "word/_rels/document.xml.rels#rId7", "Mail Merge Data Source Reference", "recipientData.xml", true);
    expectFinding(items, "office.hidden.printerSettings.word/printerSettings/printerSettings1.bin",
                  "word/printerSettings/printerSettings1.bin", "Printer Settings",
                  "word/printerSettings/printerSettings1.bin", true);

    // The detector table's order: orphans, inactive references, settings, printer settings.
    const auto order = ids(items);
    const auto position = [&](const std::string& id) { return std::find(order.begin(), order.end(), id) - order.begin(); };
    EXPECT_LT(position("office.hidden.word/header4.xml"), position("office.hidden.inactiveRef.0.first.headerReference"));
    EXPECT_LT(position("office.hidden.inactiveRef.2.even.footerReference"), position("office.hidden.docvar.0.ClientID"));
    EXPECT_LT(position("office.hidden.latentRel.word/_rels/document.xml.rels.rId7"),
              position("office.hidden.printerSettings.word/printerSettings/printerSettings1.bin"));
}

TEST(OfficeWordLatentContent, removesTheAttachedTemplatePathWhenCleaning) {
    auto b = package("word/document.xml", "<w:document " + W + "><w:body><w:p><w:r><w:t>Visible</w:t></w:r></w:p>"
                                          "</w:body></w:document>");
    b.add("word/_rels/document.xml.rels", rels({{"rId1", "settings", "settings.xml"}}));
    b.add("word/settings.xml", "<w:settings " + W + "><w:attachedTemplate r:id=\"rId1\"/></w:settings>");
    const std::string path = "file:///C:\\Users\\jroe\\AppData\\Roaming\\Microsoft\\Templates\\Acme.dotm";
    b.add("word/_rels/settings.xml.rels", rels({{"rId1", "attachedTemplate", path, true}}));
    testing::TempDir dir;
    b.write(dir / "letter.docx");
    const char* bin = std::getenv("TAVRIN_BIN");
    const std::string tavrin = bin ? bin : "build/bin/tavrin";
    ASSERT_EQ(testing::runCommand(tavrin + " clean " + testing::shellQuote((dir / "letter.docx").string()) +
                                  " >/dev/null 2>&1"),
              0);
    const auto before = inspect(b, "docx");
    ASSERT_NE(find(before, "office.hidden.attachedTemplate"), nullptr);
    EXPECT_NE(find(before, "office.hidden.attachedTemplate")->value.asString().find("jroe"),
              std::string::npos);
    // The cleaned copy names no template, in no part.
    const Archive cleaned(dir / "letter_cleaned.docx", Archive::AccessMode::read);
    EXPECT_TRUE(D::detectSettingsLatentData(cleaned).empty());
    for (const auto& entry : cleaned) {
        const auto bytes = extractEntry(cleaned, entry);
        EXPECT_EQ(std::string(bytes.begin(), bytes.end()).find("jroe"), std::string::npos) << entry.path();
    }
}

// A header whose target climbs out of the package is resolved inside it and never followed:
// inspection names the reference, and cleaning refuses the package rather than write one whose
// structure it cannot account for.
TEST(OfficeWordLatentContent, dropsTargetsThatClimbOutOfThePackage) {
    auto b = package("word/document.xml", "<w:document " + W + "><w:body><w:p><w:r><w:t>Hi</w:t></w:r></w:p>" +
                                              section(reference("headerReference", "first", "rId5")) +
                                              "</w:body></w:document>");
    b.add("word/_rels/document.xml.rels", rels({{"rId5", "header", "../../etc/passwd"}}));
    const auto items = inspect(b, "docx");
    expectFinding(items, "office.hidden.inactiveRef.0.first.headerReference",
                  "word/document.xml#first.headerReference.0", "Inactive First-Page Header",
                  "first header reference", true);
    for (const auto& item : items) EXPECT_EQ(item.value.description().find("root:"), std::string::npos);

    testing::TempDir dir;
    b.write(dir / "escape.docx");
    std::filesystem::create_directories(dir / "out");
    const char* bin = std::getenv("TAVRIN_BIN");
    std::string text;
    EXPECT_EQ(testing::runCommand(std::string(bin ? bin : "build/bin/tavrin") + " clean --output-dir " +
                                      testing::shellQuote((dir / "out").string()) + " " +
                                      testing::shellQuote((dir / "escape.docx").string()) + " 2>&1",
                                  &text),
              0);
    // The target is no part of the package: the relationship and the reference that used it
    // leave the copy, which is then verified whole.
    const auto cleaned = partText(Archive(dir / "out" / "escape_cleaned.docx", Archive::AccessMode::read),
                                  "word/_rels/document.xml.rels");
    ASSERT_TRUE(cleaned) << text;
    EXPECT_EQ(cleaned->find("passwd"), std::string::npos);
}

TEST(OfficeWordLatentContent, dropsOnlyPartsThatNoActiveReferenceShows) {
    const auto archive = archiveOf(wordDocument());
    const auto analysis = D::inactiveHeaderFooterAnalysis(archive);
    ASSERT_EQ(analysis.inactiveReferences.size(), 3u);
    // header1 is also the default header of the second section, so it stays.
    EXPECT_EQ(analysis.pathsToDrop, std::set<std::string>{"word/header2.xml"});
    // Read once for both detectors, the document gives what each gives alone.
    const auto findings = D::headerFooterFindings(archive);
    EXPECT_EQ(findings.orphaned, D::detectOrphanedHeadersFooters(archive));
    EXPECT_EQ(findings.inactive.pathsToDrop, analysis.pathsToDrop);
    ASSERT_EQ(findings.inactive.inactiveReferences.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_EQ(D::inactiveReferenceItem(findings.inactive.inactiveReferences[i], i),
                  D::inactiveReferenceItem(analysis.inactiveReferences[i], i));
    // Targets that climb out of the package are contained, never followed.
    EXPECT_EQ(D::latentDataSourcePartsToDrop(archive), std::set<std::string>{"word/recipientData.xml"});
    EXPECT_EQ(D::standardizedPartPath("word/../../etc/passwd"), "etc/passwd");
    EXPECT_EQ(D::standardizedPartPath("/word/./sub/../header2.xml"), "word/header2.xml");
    EXPECT_EQ(D::standardizedPartPath(".."), "");
}

TEST(OfficeWordLatentContent, judgesTitlePagesAndEvenPagesPerSection) {
    struct Case {
        const char* name;
        std::string settings;  // empty: no settings part
        std::string sections;
        std::vector<std::string> inactive;
    };
    const std::string firstAndEven = reference("headerReference", "first", "rId1") + reference("footerReference", "even", "rId1");
    const std::vector<Case> cases = {
        {"no settings: even references are inactive", "", section(firstAndEven),
         {"first.headerReference", "even.footerReference"}},
        {"titlePg with no value makes first-page references active", "", section(firstAndEven, true), {"even.footerReference"}},
        {"titlePg off leaves them inactive", "", "<w:sectPr>" + firstAndEven + "<w:titlePg w:val=\"0\"/></w:sectPr>",
         {"first.headerReference", "even.footerReference"}},
        {"a later off value does not reset the title page", "",
         "<w:sectPr>" + firstAndEven + "<w:titlePg/><w:titlePg w:val=\"false\"/></w:sectPr>", {"even.footerReference"}},
        {"evenAndOddHeaders off", "<w:settings " + W + "><w:evenAndOddHeaders w:val=\"false\"/></w:settings>",
         section(firstAndEven, true), {"even.footerReference"}},
        {"evenAndOddHeaders on", "<w:settings " + W + "><w:evenAndOddHeaders/></w:settings>", section(firstAndEven, true),
         {}},
        {"damaged settings keep even pages", "<w:settings " + W + "><w:evenAndOddHeaders val=\"0\">", section(firstAndEven),
         {"first.headerReference"}},
        {"a title page in one section does not reach the next", "",
         section("", true) + section(reference("headerReference", "first", "rId1")), {"first.headerReference"}},
        {"a section inside a section comes after it", "",
         "<w:sectPr>" + reference("headerReference", "first", "rId1") + section(reference("footerReference", "even", "rId1")) +
             reference("headerReference", "even", "rId1") + "</w:sectPr>",
         {"first.headerReference", "even.headerReference", "even.footerReference"}},
        {"a reference below a child of the section is not the section's", "",
         "<w:sectPr><w:x>" + firstAndEven + "</w:x></w:sectPr>", {}},
        {"an undeclared prefix hides a section", "", "<q:sectPr>" + firstAndEven + "</q:sectPr>", {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto b = package("word/document.xml", "<w:document " + W + "><w:body>" + c.sections + "</w:body></w:document>");
        if (!c.settings.empty()) b.add("word/settings.xml", c.settings);
        const auto analysis = D::inactiveHeaderFooterAnalysis(archiveOf(b));
        std::vector<std::string> inactive;
        for (const auto& info : analysis.inactiveReferences) inactive.push_back(info.type + "." + info.kind);
        EXPECT_EQ(inactive, c.inactive);
    }
}

TEST(OfficeWordLatentContent, reportsNoOrphansWithoutAReliablePicture) {
    auto b = package("word/document.xml", "<w:document " + W + "><w:body/></w:document>");
    b.add("word/header1.xml", "<w:hdr " + W + "/>");
    b.add("word/_rels/document.xml.rels", "<Relationships><Relationship");
    EXPECT_TRUE(D::detectOrphanedHeadersFooters(archiveOf(b)).empty());
}

TEST(OfficeWordLatentContent, readsSettingsInUTF16) {
    auto b = package("word/document.xml", "<w:document " + W + "><w:body/></w:document>");
    const std::string settings = "<?xml version=\"1.0\" encoding=\"UTF-16\"?><w:settings " + W +
                                 "><w:docVars><w:docVar w:name=\"Owner\" w:val=\"jroe\"/></w:docVars></w:settings>";
    std::string utf16 = "\xFF\xFE";
    for (char c : settings) utf16 += std::string{c, '\0'};
    b.add("word/settings.xml", utf16);
    const auto items = D::detectSettingsLatentData(archiveOf(b));
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].id, "office.hidden.docvar.0.Owner");
    EXPECT_EQ(items[0].value, MetadataValue::string("jroe"));
}

}  // namespace
}  // namespace tavrin
