#include "office_builders.h"

#include <chrono>
#include <fmt/core.h>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "zip/archive.h"

namespace tavrin::corpus {

namespace {

constexpr const char* kRelationships = "http://schemas.openxmlformats.org/package/2006/relationships";
constexpr const char* kOfficeRel = "http://schemas.openxmlformats.org/officeDocument/2006/relationships";
constexpr const char* kXMLDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n";

// Parts in the order they are written; media is stored, XML deflated, as Office does.
class Package {
public:
    void add(std::string path, std::string xml) {
        parts_.push_back({std::move(path), Bytes(xml.begin(), xml.end()), CompressionMethod::deflate});
    }
    void addMedia(std::string path, Bytes bytes) {
        parts_.push_back({std::move(path), std::move(bytes), CompressionMethod::none});
    }
    Bytes bytes() const {
        Archive archive(std::vector<std::uint8_t>{}, Archive::AccessMode::create);
        const auto date = std::chrono::system_clock::from_time_t(1700000000);
        for (const auto& part : parts_) {
            const Bytes& content = part.bytes;
            archive.addEntry(part.path, EntryType::file, static_cast<std::int64_t>(content.size()), date,
                             std::nullopt, part.method, Archive::defaultWriteChunkSize, nullptr,
                             [&content](std::int64_t position, std::size_t size) {
                                 const auto begin = content.begin() + position;
                                 return Bytes(begin, begin + static_cast<std::ptrdiff_t>(size));
                             });
        }
        return *archive.data();
    }

private:
    struct Part {
        std::string path;
        Bytes bytes;
        CompressionMethod method;
    };
    std::vector<Part> parts_;
};

struct Relationship {
    std::string id, type, target;
    bool external = false;
};

std::string relationshipsXML(const std::vector<Relationship>& relationships) {
    std::string xml = fmt::format("{}<Relationships xmlns=\"{}\">", kXMLDeclaration, kRelationships);
    for (const auto& r : relationships)
        xml += fmt::format("<Relationship Id=\"{}\" Type=\"{}\" Target=\"{}\"{}/>", r.id, r.type, r.target,
                           r.external ? " TargetMode=\"External\"" : "");
    return xml + "</Relationships>";
}

std::string contentTypesXML(const std::vector<std::pair<std::string, std::string>>& overrides) {
    std::string xml = fmt::format(
        "{}<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">"
        "<Default Extension=\"rels\" ContentType=\"application/vnd.openxmlformats-package.relationships+xml\"/>"
        "<Default Extension=\"xml\" ContentType=\"application/xml\"/>"
        "<Default Extension=\"jpeg\" ContentType=\"image/jpeg\"/>"
        "<Default Extension=\"bin\" ContentType=\"application/vnd.openxmlformats-officedocument.spreadsheetml.printerSettings\"/>",
        kXMLDeclaration);
    for (const auto& [part, type] : overrides)
        xml += fmt::format("<Override PartName=\"{}\" ContentType=\"{}\"/>", part, type);
    return xml + "</Types>";
}

// The three property parts and the package relationships every format shares.
void addProperties(Package& package, const std::string& application, const std::string& mainPart,
                   std::uint32_t variant, bool thumbnail) {
    package.add("docProps/core.xml",
                fmt::format("{0}<cp:coreProperties "
                            "xmlns:cp=\"http://schemas.openxmlformats.org/package/2006/metadata/core-properties\" "
                            "xmlns:dc=\"http://purl.org/dc/elements/1.1/\" xmlns:dcterms=\"http://purl.org/dc/terms/\" "
                            "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">"
                            "<dc:title>Quarterly plan {1}</dc:title><dc:subject>Merger</dc:subject>"
                            "<dc:creator>Alice Example</dc:creator><cp:keywords>confidential</cp:keywords>"
                            "<dc:description>Draft for the board</dc:description>"
                            "<cp:lastModifiedBy>Bob Example</cp:lastModifiedBy><cp:revision>{2}</cp:revision>"
                            "<cp:lastPrinted>2024-02-01T09:00:00Z</cp:lastPrinted>"
                            "<dcterms:created xsi:type=\"dcterms:W3CDTF\">2024-01-0{3}T08:30:00Z</dcterms:created>"
                            "<dcterms:modified xsi:type=\"dcterms:W3CDTF\">2024-03-0{3}T17:45:00Z</dcterms:modified>"
                            "<cp:category>Internal</cp:category><cp:contentStatus>Draft</cp:contentStatus>"
                            "</cp:coreProperties>",
                            kXMLDeclaration, variant, variant + 7, variant % 9 + 1));
    package.add("docProps/app.xml",
                fmt::format("{}<Properties "
                            "xmlns=\"http://schemas.openxmlformats.org/officeDocument/2006/extended-properties\" "
                            "xmlns:vt=\"http://schemas.openxmlformats.org/officeDocument/2006/docPropsVTypes\">"
                            "<Template>C:\\Users\\alice\\AppData\\Roaming\\Microsoft\\Templates\\Board.dotm</Template>"
                            "<TotalTime>{}</TotalTime><Application>{}</Application>"
                            "<Company>Example Holdings Ltd</Company><Manager>Carol Example</Manager>"
                            "<HyperlinkBase>https://intranet.example.com/board/</HyperlinkBase>"
                            "<AppVersion>16.0000</AppVersion></Properties>",
                            kXMLDeclaration, 120 + variant, application));
    package.add("docProps/custom.xml",
                fmt::format("{}<Properties "
                            "xmlns=\"http://schemas.openxmlformats.org/officeDocument/2006/custom-properties\" "
                            "xmlns:vt=\"http://schemas.openxmlformats.org/officeDocument/2006/docPropsVTypes\">"
                            "<property fmtid=\"{{D5CDD505-2E9C-101B-9397-08002B2CF9AE}}\" pid=\"2\" name=\"Client\">"
                            "<vt:lpwstr>Northwind {}</vt:lpwstr></property>"
                            "<property fmtid=\"{{D5CDD505-2E9C-101B-9397-08002B2CF9AE}}\" pid=\"3\" name=\"Reviewer\">"
                            "<vt:lpwstr>dave@example.com</vt:lpwstr></property></Properties>",
                            kXMLDeclaration, variant));
    std::vector<Relationship> relationships = {
        {"rId1", std::string(kOfficeRel) + "/officeDocument", mainPart},
        {"rId2", "http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties",
         "docProps/core.xml"},
        {"rId3", std::string(kOfficeRel) + "/extended-properties", "docProps/app.xml"},
        {"rId4", std::string(kOfficeRel) + "/custom-properties", "docProps/custom.xml"},
    };
    if (thumbnail) {
        package.addMedia("docProps/thumbnail.jpeg", dirtyJPEG(128, 96, variant + 100));
        relationships.push_back({"rId5", "http://schemas.openxmlformats.org/package/2006/relationships/metadata/thumbnail",
                                 "docProps/thumbnail.jpeg"});
    }
    package.add("_rels/.rels", relationshipsXML(relationships));
}

const std::vector<std::pair<std::string, std::string>> kPropertyOverrides = {
    {"/docProps/core.xml", "application/vnd.openxmlformats-package.core-properties+xml"},
    {"/docProps/app.xml", "application/vnd.openxmlformats-officedocument.extended-properties+xml"},
    {"/docProps/custom.xml", "application/vnd.openxmlformats-officedocument.custom-properties+xml"},
};

constexpr const char* kWordNamespaces =
    "xmlns:w=\"http://schemas.openxmlformats.org/wordprocessingml/2006/main\" "
    "xmlns:r=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships\" "
    "xmlns:wp=\"http://schemas.openxmlformats.org/drawingml/2006/wordprocessingDrawing\" "
    "xmlns:a=\"http://schemas.openxmlformats.org/drawingml/2006/main\" "
    "xmlns:pic=\"http://schemas.openxmlformats.org/drawingml/2006/picture\" "
    "xmlns:w15=\"http://schemas.microsoft.com/office/word/2012/wordml\"";

std::string inlinePicture(int index, const std::string& rId, long cx, long cy) {
    return fmt::format(
        "<w:r><w:drawing><wp:inline><wp:extent cx=\"{2}\" cy=\"{3}\"/>"
        "<wp:docPr id=\"{0}\" name=\"Picture {0}\" descr=\"IMG_{0:04}.jpg taken at home\"/>"
        "<a:graphic><a:graphicData uri=\"http://schemas.openxmlformats.org/drawingml/2006/picture\"><pic:pic>"
        "<pic:nvPicPr><pic:cNvPr id=\"{0}\" name=\"IMG_{0:04}.jpg\"/><pic:cNvPicPr/></pic:nvPicPr>"
        "<pic:blipFill><a:blip r:embed=\"{1}\"/><a:stretch><a:fillRect/></a:stretch></pic:blipFill>"
        "<pic:spPr><a:xfrm><a:off x=\"0\" y=\"0\"/><a:ext cx=\"{2}\" cy=\"{3}\"/></a:xfrm>"
        "<a:prstGeom prst=\"rect\"><a:avLst/></a:prstGeom></pic:spPr></pic:pic></a:graphicData></a:graphic>"
        "</wp:inline></w:drawing></w:r>",
        index, rId, cx, cy);
}

}  // namespace

Bytes dirtyDocx(int paragraphs, int photos, int photoWidth, int photoHeight, std::uint32_t variant) {
    Package package;
    addProperties(package, "Microsoft Office Word", "word/document.xml", variant, true);

    std::vector<Relationship> relationships = {
        {"rId1", std::string(kOfficeRel) + "/settings", "settings.xml"},
        {"rId2", std::string(kOfficeRel) + "/comments", "comments.xml"},
        {"rId3", "http://schemas.microsoft.com/office/2011/relationships/people", "people.xml"},
        {"rId4", std::string(kOfficeRel) + "/header", "header1.xml"},
    };
    std::string body;
    std::string comments;
    int commentCount = 0;
    const long cx = 5486400;
    const long cy = photoWidth > 0 ? cx * photoHeight / photoWidth : cx;
    for (int p = 0; p < paragraphs; ++p) {
        const std::string text = fmt::format(
            "Paragraph {} of the report discusses the figures of the quarter and what follows from them.", p + 1);
        body += fmt::format("<w:p w:rsidR=\"00A1{0:04X}\" w:rsidRDefault=\"00B2{0:04X}\"><w:r w:rsidRPr=\"00C3{0:04X}\">"
                            "<w:t xml:space=\"preserve\">{1} </w:t></w:r>",
                            (p + variant) & 0xFFFF, text);
        if (p % 5 == 0)
            body += fmt::format("<w:ins w:id=\"{0}\" w:author=\"Bob Example\" w:date=\"2024-02-0{1}T10:00:00Z\">"
                                "<w:r><w:t xml:space=\"preserve\">Added by Bob. </w:t></w:r></w:ins>"
                                "<w:del w:id=\"{2}\" w:author=\"Bob Example\" w:date=\"2024-02-0{1}T10:01:00Z\">"
                                "<w:r><w:delText>The earlier, franker estimate.</w:delText></w:r></w:del>",
                                1000 + 2 * p, p % 9 + 1, 1001 + 2 * p);
        if (p % 7 == 3) {
            body += fmt::format("<w:commentRangeStart w:id=\"{0}\"/><w:r><w:t>Check this.</w:t></w:r>"
                                "<w:commentRangeEnd w:id=\"{0}\"/><w:r><w:commentReference w:id=\"{0}\"/></w:r>",
                                commentCount);
            comments += fmt::format("<w:comment w:id=\"{}\" w:author=\"Carol Example\" w:initials=\"CE\" "
                                    "w:date=\"2024-02-03T11:00:00Z\"><w:p><w:r><w:t>Is this number right? "
                                    "Call me on 555-0100.</w:t></w:r></w:p></w:comment>",
                                    commentCount);
            ++commentCount;
        }
        if (p % 11 == 5)
            body += "<w:r><w:rPr><w:vanish/></w:rPr><w:t>Hidden note: source is the CFO.</w:t></w:r>";
        body += "</w:p>";
        if (photos > 0 && paragraphs > 0 && p % std::max(1, paragraphs / photos) == 0) {
            const int index = static_cast<int>(relationships.size()) - 3;
            if (index <= photos) {
                const std::string rId = fmt::format("rIdImg{}", index);
                const std::string name = fmt::format("media/image{}.jpeg", index);
                package.addMedia("word/" + name, dirtyJPEG(photoWidth, photoHeight, variant * 131 + index));
                relationships.push_back({rId, std::string(kOfficeRel) + "/image", name});
                body += "<w:p>" + inlinePicture(index, rId, cx, cy) + "</w:p>";
            }
        }
    }
    package.add("word/document.xml",
                fmt::format("{}<w:document {}><w:body>{}<w:sectPr><w:headerReference w:type=\"default\" "
                            "r:id=\"rId4\"/><w:pgSz w:w=\"11906\" w:h=\"16838\"/></w:sectPr></w:body></w:document>",
                            kXMLDeclaration, kWordNamespaces, body));
    package.add("word/comments.xml",
                fmt::format("{}<w:comments {}>{}</w:comments>", kXMLDeclaration, kWordNamespaces, comments));
    package.add("word/people.xml",
                fmt::format("{}<w15:people {}><w15:person w15:author=\"Carol Example\"><w15:presenceInfo "
                            "w15:providerId=\"AD\" w15:userId=\"S::carol@example.com::1234\"/></w15:person>"
                            "</w15:people>",
                            kXMLDeclaration, kWordNamespaces));
    package.add("word/header1.xml",
                fmt::format("{}<w:hdr {}><w:p><w:r><w:t>Prepared by Alice Example</w:t></w:r></w:p></w:hdr>",
                            kXMLDeclaration, kWordNamespaces));
    package.add("word/settings.xml",
                fmt::format("{}<w:settings {}><w:attachedTemplate r:id=\"rId1\"/><w:trackRevisions/>"
                            "<w:docVars><w:docVar w:name=\"ClientMatter\" w:val=\"Northwind-{}\"/></w:docVars>"
                            "<w:rsids><w:rsidRoot w:val=\"00A10000\"/><w:rsid w:val=\"00B20000\"/>"
                            "<w:rsid w:val=\"00C30000\"/></w:rsids></w:settings>",
                            kXMLDeclaration, kWordNamespaces, variant));
    package.add("word/_rels/settings.xml.rels",
                relationshipsXML({{"rId1", std::string(kOfficeRel) + "/attachedTemplate",
                                   "file:///C:\\Users\\alice\\Documents\\Templates\\Board.dotm", true}}));
    package.add("word/_rels/document.xml.rels", relationshipsXML(relationships));

    auto overrides = kPropertyOverrides;
    const std::string word = "application/vnd.openxmlformats-officedocument.wordprocessingml.";
    overrides.insert(overrides.end(), {
                                          {"/word/document.xml", word + "document.main+xml"},
                                          {"/word/settings.xml", word + "settings+xml"},
                                          {"/word/comments.xml", word + "comments+xml"},
                                          {"/word/people.xml", word + "people+xml"},
                                          {"/word/header1.xml", word + "header+xml"},
                                      });
    package.add("[Content_Types].xml", contentTypesXML(overrides));
    return package.bytes();
}

Bytes dirtyXlsx(int sheets, int rows, std::uint32_t variant) {
    Package package;
    addProperties(package, "Microsoft Excel", "xl/workbook.xml", variant, false);
    constexpr const char* kSheetNamespaces =
        "xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\" "
        "xmlns:r=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships\"";
    const std::string sheet = "application/vnd.openxmlformats-officedocument.spreadsheetml.";
    auto overrides = kPropertyOverrides;
    overrides.push_back({"/xl/workbook.xml", sheet + "sheet.main+xml"});

    std::string sheetList;
    std::vector<Relationship> relationships;
    for (int s = 1; s <= sheets; ++s) {
        const char* state = s == 2 ? " state=\"hidden\"" : s == 3 ? " state=\"veryHidden\"" : "";
        sheetList += fmt::format("<sheet name=\"{}\" sheetId=\"{}\"{} r:id=\"rId{}\"/>",
                                 s == 2 ? std::string("Salaries") : fmt::format("Sheet{}", s), s, state, s);
        relationships.push_back({fmt::format("rId{}", s), std::string(kOfficeRel) + "/worksheet",
                                 fmt::format("worksheets/sheet{}.xml", s)});
        std::string data;
        for (int r = 1; r <= rows; ++r) {
            data += fmt::format("<row r=\"{}\"{}><c r=\"A{}\" t=\"inlineStr\"><is><t>Item {}</t></is></c>"
                                "<c r=\"B{}\"><v>{}</v></c></row>",
                                r, r == 3 ? " hidden=\"1\"" : "", r, r, r, (r * 37 + s * 11 + variant) % 1000);
        }
        std::string extra;
        std::vector<Relationship> sheetRelationships;
        if (s == 1) {
            extra = "<pageSetup paperSize=\"9\" orientation=\"portrait\" r:id=\"rId2\"/>";
            sheetRelationships.push_back({"rId1", std::string(kOfficeRel) + "/comments", "../comments1.xml"});
            sheetRelationships.push_back(
                {"rId2", std::string(kOfficeRel) + "/printerSettings", "../printerSettings/printerSettings1.bin"});
            const std::string device = "\\\\PRINT-SRV\\Finance-3rd-floor";
            Bytes settings(device.begin(), device.end());
            settings.resize(220, 0);
            package.addMedia("xl/printerSettings/printerSettings1.bin", settings);
            package.add("xl/comments1.xml",
                        fmt::format("{}<comments {}><authors><author>Dave Example</author></authors><commentList>"
                                    "<comment ref=\"B2\" authorId=\"0\"><text><r><t>Dave: inflated, fix before "
                                    "audit</t></r></text></comment></commentList></comments>",
                                    kXMLDeclaration, kSheetNamespaces));
            overrides.push_back({"/xl/comments1.xml", sheet + "comments+xml"});
            package.add("xl/worksheets/_rels/sheet1.xml.rels", relationshipsXML(sheetRelationships));
        }
        package.add(fmt::format("xl/worksheets/sheet{}.xml", s),
                    fmt::format("{}<worksheet {}><cols><col min=\"3\" max=\"3\" width=\"9\" hidden=\"1\"/></cols>"
                                "<sheetData>{}</sheetData>{}</worksheet>",
                                kXMLDeclaration, kSheetNamespaces, data, extra));
        overrides.push_back({fmt::format("/xl/worksheets/sheet{}.xml", s), sheet + "worksheet+xml"});
    }
    package.add("xl/workbook.xml",
                fmt::format("{}<workbook {}><fileVersion appName=\"xl\" lastEdited=\"7\"/>"
                            "<sheets>{}</sheets></workbook>",
                            kXMLDeclaration, kSheetNamespaces, sheetList));
    package.add("xl/_rels/workbook.xml.rels", relationshipsXML(relationships));
    package.add("[Content_Types].xml", contentTypesXML(overrides));
    return package.bytes();
}

Bytes dirtyPptx(int slides, std::uint32_t variant) {
    Package package;
    addProperties(package, "Microsoft Office PowerPoint", "ppt/presentation.xml", variant, true);
    constexpr const char* kSlideNamespaces =
        "xmlns:a=\"http://schemas.openxmlformats.org/drawingml/2006/main\" "
        "xmlns:r=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships\" "
        "xmlns:p=\"http://schemas.openxmlformats.org/presentationml/2006/main\"";
    const std::string pml = "application/vnd.openxmlformats-officedocument.presentationml.";
    auto overrides = kPropertyOverrides;
    overrides.push_back({"/ppt/presentation.xml", pml + "presentation.main+xml"});

    const std::string emptyTree =
        "<p:cSld><p:spTree><p:nvGrpSpPr><p:cNvPr id=\"1\" name=\"\"/><p:cNvGrpSpPr/><p:nvPr/></p:nvGrpSpPr>"
        "<p:grpSpPr/></p:spTree></p:cSld>";
    package.add("ppt/slideMasters/slideMaster1.xml",
                fmt::format("{}<p:sldMaster {}>{}<p:clrMap bg1=\"lt1\" tx1=\"dk1\" bg2=\"lt2\" tx2=\"dk2\" "
                            "accent1=\"accent1\" accent2=\"accent2\" accent3=\"accent3\" accent4=\"accent4\" "
                            "accent5=\"accent5\" accent6=\"accent6\" hlink=\"hlink\" folHlink=\"folHlink\"/>"
                            "<p:sldLayoutIdLst><p:sldLayoutId id=\"2147483649\" r:id=\"rId1\"/></p:sldLayoutIdLst>"
                            "</p:sldMaster>",
                            kXMLDeclaration, kSlideNamespaces, emptyTree));
    package.add("ppt/slideMasters/_rels/slideMaster1.xml.rels",
                relationshipsXML({{"rId1", std::string(kOfficeRel) + "/slideLayout", "../slideLayouts/slideLayout1.xml"}}));
    package.add("ppt/slideLayouts/slideLayout1.xml",
                fmt::format("{}<p:sldLayout {}>{}</p:sldLayout>", kXMLDeclaration, kSlideNamespaces, emptyTree));
    package.add("ppt/slideLayouts/_rels/slideLayout1.xml.rels",
                relationshipsXML({{"rId1", std::string(kOfficeRel) + "/slideMaster", "../slideMasters/slideMaster1.xml"}}));
    overrides.push_back({"/ppt/slideMasters/slideMaster1.xml", pml + "slideMaster+xml"});
    overrides.push_back({"/ppt/slideLayouts/slideLayout1.xml", pml + "slideLayout+xml"});

    std::vector<Relationship> relationships = {
        {"rIdM", std::string(kOfficeRel) + "/slideMaster", "slideMasters/slideMaster1.xml"},
        {"rIdA", std::string(kOfficeRel) + "/commentAuthors", "commentAuthors.xml"},
    };
    std::string slideList;
    for (int s = 1; s <= slides; ++s) {
        const bool offSlideShape = s == 1;
        std::string shapes = fmt::format(
            "<p:sp><p:nvSpPr><p:cNvPr id=\"2\" name=\"Title {0}\"/><p:cNvSpPr/><p:nvPr/></p:nvSpPr>"
            "<p:spPr><a:xfrm><a:off x=\"457200\" y=\"274638\"/><a:ext cx=\"8229600\" cy=\"1143000\"/></a:xfrm></p:spPr>"
            "<p:txBody><a:bodyPr/><a:p><a:r><a:rPr lang=\"en-GB\"/><a:t>Slide {0}: results</a:t></a:r></a:p>"
            "</p:txBody></p:sp>",
            s);
        if (offSlideShape)
            shapes += "<p:sp><p:nvSpPr><p:cNvPr id=\"3\" name=\"Parked note\"/><p:cNvSpPr/><p:nvPr/></p:nvSpPr>"
                      "<p:spPr><a:xfrm><a:off x=\"12000000\" y=\"100000\"/><a:ext cx=\"2000000\" cy=\"500000\"/>"
                      "</a:xfrm></p:spPr><p:txBody><a:bodyPr/><a:p><a:r><a:t>Do not show: layoffs in Q3</a:t>"
                      "</a:r></a:p></p:txBody></p:sp>";
        package.add(fmt::format("ppt/slides/slide{}.xml", s),
                    fmt::format("{}<p:sld {}{}><p:cSld><p:spTree><p:nvGrpSpPr><p:cNvPr id=\"1\" name=\"\"/>"
                                "<p:cNvGrpSpPr/><p:nvPr/></p:nvGrpSpPr><p:grpSpPr/>{}</p:spTree></p:cSld></p:sld>",
                                kXMLDeclaration, kSlideNamespaces, s == slides && slides > 1 ? " show=\"0\"" : "",
                                shapes));
        std::vector<Relationship> slideRelationships = {
            {"rId1", std::string(kOfficeRel) + "/slideLayout", "../slideLayouts/slideLayout1.xml"}};
        if (s == 1) {
            slideRelationships.push_back({"rId2", std::string(kOfficeRel) + "/comments", "../comments/comment1.xml"});
            package.add("ppt/comments/comment1.xml",
                        fmt::format("{}<p:cmLst {}><p:cm authorId=\"0\" dt=\"2024-02-05T12:00:00.000\" idx=\"1\">"
                                    "<p:pos x=\"10\" y=\"10\"/><p:text>Erin: drop this slide before the client "
                                    "sees it</p:text></p:cm></p:cmLst>",
                                    kXMLDeclaration, kSlideNamespaces));
            overrides.push_back({"/ppt/comments/comment1.xml", pml + "comments+xml"});
        }
        package.add(fmt::format("ppt/slides/_rels/slide{}.xml.rels", s), relationshipsXML(slideRelationships));
        overrides.push_back({fmt::format("/ppt/slides/slide{}.xml", s), pml + "slide+xml"});
        relationships.push_back({fmt::format("rId{}", s), std::string(kOfficeRel) + "/slide",
                                 fmt::format("slides/slide{}.xml", s)});
        slideList += fmt::format("<p:sldId id=\"{}\" r:id=\"rId{}\"/>", 255 + s, s);
    }
    package.add("ppt/commentAuthors.xml",
                fmt::format("{}<p:cmAuthorLst {}><p:cmAuthor id=\"0\" name=\"Erin Example\" initials=\"EE\" "
                            "lastIdx=\"1\" clrIdx=\"0\"/></p:cmAuthorLst>",
                            kXMLDeclaration, kSlideNamespaces));
    overrides.push_back({"/ppt/commentAuthors.xml", pml + "commentAuthors+xml"});
    package.add("ppt/presentation.xml",
                fmt::format("{}<p:presentation {}><p:sldMasterIdLst><p:sldMasterId id=\"2147483648\" r:id=\"rIdM\"/>"
                            "</p:sldMasterIdLst><p:sldIdLst>{}</p:sldIdLst><p:sldSz cx=\"9144000\" cy=\"6858000\"/>"
                            "<p:notesSz cx=\"6858000\" cy=\"9144000\"/></p:presentation>",
                            kXMLDeclaration, kSlideNamespaces, slideList));
    package.add("ppt/_rels/presentation.xml.rels", relationshipsXML(relationships));
    package.add("[Content_Types].xml", contentTypesXML(overrides));
    return package.bytes();
}

}  // namespace tavrin::corpus
