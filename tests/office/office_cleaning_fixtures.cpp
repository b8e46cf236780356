#include "office_cleaning_fixtures.h"

namespace tavrin::testing {

namespace {

const std::string declaration = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n";
const std::string officeRels = "http://schemas.openxmlformats.org/officeDocument/2006/relationships";
const std::string packageRels = "http://schemas.openxmlformats.org/package/2006/relationships";
const std::string wordNS = "http://schemas.openxmlformats.org/wordprocessingml/2006/main";
const std::string sheetNS = "http://schemas.openxmlformats.org/spreadsheetml/2006/main";
const std::string presentationNS = "http://schemas.openxmlformats.org/presentationml/2006/main";
const std::string drawingNS = "http://schemas.openxmlformats.org/drawingml/2006/main";

std::string text(const std::vector<std::uint8_t>& bytes) { return std::string(bytes.begin(), bytes.end()); }

struct Rel {
    std::string id, type, target;
};

std::string rels(const std::vector<Rel>& rows) {
    std::string out = declaration + "<Relationships xmlns=\"" + packageRels + "\">";
    for (const auto& r : rows) {
        const bool package = r.type == "metadata/core-properties" || r.type == "metadata/thumbnail";
        out += "<Relationship Id=\"" + r.id + "\" Type=\"" +
               (package ? "http://schemas.openxmlformats.org/package/2006/relationships/" : officeRels + "/") + r.type +
               "\" Target=\"" + r.target + "\"/>";
    }
    return out + "</Relationships>";
}

std::string contentTypes(const std::vector<std::pair<std::string, std::string>>& overrides) {
    std::string out = declaration + "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">"
                      "<Default Extension=\"rels\" ContentType=\"application/vnd.openxmlformats-package.relationships+xml\"/>"
                      "<Default Extension=\"xml\" ContentType=\"application/xml\"/>"
                      "<Default Extension=\"jpeg\" ContentType=\"image/jpeg\"/>"
                      "<Default Extension=\"png\" ContentType=\"image/png\"/>"
                      "<Default Extension=\"vml\" ContentType=\"application/vnd.openxmlformats-officedocument.vmlDrawing\"/>"
                      "<Default Extension=\"bin\" ContentType=\"application/vnd.openxmlformats-officedocument.spreadsheetml.printerSettings\"/>";
    for (const auto& [part, type] : overrides)
        out += "<Override PartName=\"/" + part + "\" ContentType=\"application/vnd.openxmlformats-officedocument." + type + "\"/>";
    return out + "</Types>";
}

// The property parts and the package relationships every kind shares.
// The photo doubles as the thumbnail; without one the package has no thumbnail.
void addProperties(OfficePackageBuilder& b, OfficeKind kind, const std::string& mainPart,
                   const std::vector<std::uint8_t>& thumbnail) {
    std::vector<Rel> packageRels{{"rId1", "officeDocument", mainPart},
                                 {"rId2", "metadata/core-properties", "docProps/core.xml"},
                                 {"rId3", "extended-properties", "docProps/app.xml"},
                                 {"rId4", "custom-properties", "docProps/custom.xml"}};
    if (!thumbnail.empty()) packageRels.push_back({"rId5", "metadata/thumbnail", "docProps/thumbnail.jpeg"});
    b.add("_rels/.rels", rels(packageRels));
    b.add("docProps/core.xml", coreProperties());
    b.add("docProps/app.xml", appProperties(kind));
    b.add("docProps/custom.xml", customProperties());
    if (!thumbnail.empty()) b.add("docProps/thumbnail.jpeg", text(thumbnail));
}

std::string picture(const std::string& rId, int index) {
    return "<w:p><w:r><w:drawing><wp:inline xmlns:wp=\"http://schemas.openxmlformats.org/drawingml/2006/wordprocessingDrawing\">"
           "<wp:extent cx=\"952500\" cy=\"952500\"/><wp:docPr id=\"" + std::to_string(index) + "\" name=\"Picture " +
           std::to_string(index) + "\"/><a:graphic xmlns:a=\"" + drawingNS + "\"><a:graphicData "
           "uri=\"http://schemas.openxmlformats.org/drawingml/2006/picture\"><pic:pic "
           "xmlns:pic=\"http://schemas.openxmlformats.org/drawingml/2006/picture\"><pic:blipFill><a:blip r:embed=\"" + rId +
           "\"/></pic:blipFill></pic:pic></a:graphicData></a:graphic></wp:inline></w:drawing></w:r></w:p>";
}

std::string documentXML(const std::string& pictures) {
    return declaration + "<w:document xmlns:w=\"" + wordNS + "\" xmlns:r=\"" + officeRels + "\"><w:body>"
           "<w:p w:rsidR=\"00A1B2C3\" w:rsidRDefault=\"00A1B2C3\"><w:r w:rsidR=\"00A1B2C3\"><w:t>Quarterly plan</w:t></w:r></w:p>"
           "<w:p><w:commentRangeStart w:id=\"0\"/><w:r><w:t xml:space=\"preserve\">Revenue grows </w:t></w:r>"
           "<w:commentRangeEnd w:id=\"0\"/><w:r><w:commentReference w:id=\"0\"/></w:r>"
           "<w:ins w:id=\"1\" w:author=\"Jane Roe\" w:date=\"2024-03-05T14:02:00Z\"><w:r><w:t>by ten percent</w:t></w:r></w:ins>"
           "<w:del w:id=\"2\" w:author=\"John Doe\" w:date=\"2024-03-06T09:00:00Z\"><w:r><w:delText>by half</w:delText></w:r></w:del>"
           "</w:p>"
           "<w:p><w:r><w:rPr><w:vanish/></w:rPr><w:t>Do not share the layoffs list</w:t></w:r><w:r><w:t>Next steps</w:t></w:r></w:p>" +
           pictures + "<w:sectPr/></w:body></w:document>";
}

void addDocumentParts(OfficePackageBuilder& b, const std::string& pictures, const std::vector<Rel>& pictureRels,
                      const std::vector<std::uint8_t>& thumbnail) {
    b.add("[Content_Types].xml",
          contentTypes({{"word/document.xml", "wordprocessingml.document.main+xml"},
                        {"word/styles.xml", "wordprocessingml.styles+xml"},
                        {"word/settings.xml", "wordprocessingml.settings+xml"},
                        {"word/comments.xml", "wordprocessingml.comments+xml"},
                        {"word/people.xml", "wordprocessingml.people+xml"},
                        {"docProps/core.xml", "core-properties+xml"},
                        {"docProps/app.xml", "extended-properties+xml"},
                        {"docProps/custom.xml", "custom-properties+xml"}}));
    addProperties(b, OfficeKind::docx, "word/document.xml", thumbnail);
    b.add("word/document.xml", documentXML(pictures));
    std::vector<Rel> documentRels{{"rId1", "styles", "styles.xml"},
                                  {"rId2", "settings", "settings.xml"},
                                  {"rId3", "comments", "comments.xml"},
                                  {"rId4", "people", "people.xml"}};
    documentRels.insert(documentRels.end(), pictureRels.begin(), pictureRels.end());
    b.add("word/_rels/document.xml.rels", rels(documentRels));
    b.add("word/styles.xml", declaration + "<w:styles xmlns:w=\"" + wordNS + "\"><w:style w:type=\"paragraph\" "
                             "w:styleId=\"Normal\"><w:name w:val=\"Normal\"/></w:style></w:styles>");
    b.add("word/settings.xml", declaration + "<w:settings xmlns:w=\"" + wordNS + "\"><w:trackRevisions/>"
                               "<w:rsids><w:rsidRoot w:val=\"00A1B2C3\"/><w:rsid w:val=\"00A1B2C3\"/></w:rsids></w:settings>");
    b.add("word/comments.xml", declaration + "<w:comments xmlns:w=\"" + wordNS + "\"><w:comment w:id=\"0\" "
                               "w:author=\"Jane Roe\" w:initials=\"JR\" w:date=\"2024-03-05T14:03:00Z\"><w:p><w:r>"
                               "<w:t>Check this with legal first</w:t></w:r></w:p></w:comment></w:comments>");
    b.add("word/people.xml", declaration + "<w15:people xmlns:w15=\"http://schemas.microsoft.com/office/word/2012/wordml\">"
                             "<w15:person w15:author=\"Jane Roe\"><w15:presenceInfo w15:providerId=\"AD\" "
                             "w15:userId=\"S::jane.roe@acme.example::1234\"/></w15:person></w15:people>");
}

}  // namespace

OfficePackageBuilder dirtyDocument(const std::vector<std::uint8_t>& photo) {
    OfficePackageBuilder b;
    if (photo.empty()) {
        addDocumentParts(b, "", {}, {});
    } else {
        addDocumentParts(b, picture("rId10", 1), {{"rId10", "image", "media/image1.jpeg"}}, photo);
        b.add("word/media/image1.jpeg", text(photo));
    }
    return b;
}

OfficePackageBuilder documentWithPhotos(const std::vector<std::vector<std::uint8_t>>& photos) {
    OfficePackageBuilder b;
    std::string pictures;
    std::vector<Rel> pictureRels;
    for (std::size_t i = 0; i < photos.size(); ++i) {
        const std::string id = "rId" + std::to_string(10 + i);
        pictures += picture(id, static_cast<int>(i + 1));
        pictureRels.push_back({id, "image", "media/image" + std::to_string(i + 1) + ".jpeg"});
    }
    addDocumentParts(b, pictures, pictureRels, photos.empty() ? std::vector<std::uint8_t>{} : photos.front());
    for (std::size_t i = 0; i < photos.size(); ++i) b.add("word/media/image" + std::to_string(i + 1) + ".jpeg", text(photos[i]));
    return b;
}

OfficePackageBuilder dirtyWorkbook(const std::vector<std::uint8_t>& photo) {
    OfficePackageBuilder b;
    b.add("[Content_Types].xml",
          contentTypes({{"xl/workbook.xml", "spreadsheetml.sheet.main+xml"},
                        {"xl/worksheets/sheet1.xml", "spreadsheetml.worksheet+xml"},
                        {"xl/worksheets/sheet2.xml", "spreadsheetml.worksheet+xml"},
                        {"xl/sharedStrings.xml", "spreadsheetml.sharedStrings+xml"},
                        {"xl/comments1.xml", "spreadsheetml.comments+xml"},
                        {"xl/drawings/drawing1.xml", "drawing+xml"},
                        {"docProps/core.xml", "core-properties+xml"},
                        {"docProps/app.xml", "extended-properties+xml"},
                        {"docProps/custom.xml", "custom-properties+xml"}}));
    addProperties(b, OfficeKind::xlsx, "xl/workbook.xml", photo);
    b.add("xl/workbook.xml", declaration + "<workbook xmlns=\"" + sheetNS + "\" xmlns:r=\"" + officeRels + "\"><sheets>"
                             "<sheet name=\"Budget\" sheetId=\"1\" r:id=\"rId1\"/>"
                             "<sheet name=\"Salaries\" sheetId=\"2\" state=\"hidden\" r:id=\"rId2\"/></sheets></workbook>");
    b.add("xl/_rels/workbook.xml.rels", rels({{"rId1", "worksheet", "worksheets/sheet1.xml"},
                                              {"rId2", "worksheet", "worksheets/sheet2.xml"},
                                              {"rId3", "sharedStrings", "sharedStrings.xml"}}));
    b.add("xl/sharedStrings.xml", declaration + "<sst xmlns=\"" + sheetNS + "\" count=\"3\" uniqueCount=\"3\">"
                                  "<si><t>Quarterly plan</t></si><si><t>Total</t></si><si><t>Jane Roe 98000</t></si></sst>");
    b.add("xl/worksheets/sheet1.xml",
          declaration + "<worksheet xmlns=\"" + sheetNS + "\" xmlns:r=\"" + officeRels + "\"><sheetData>"
                        "<row r=\"1\"><c r=\"A1\" t=\"s\"><v>0</v></c></row>"
                        "<row r=\"2\" hidden=\"1\"><c r=\"A2\" t=\"s\"><v>1</v></c><c r=\"B2\"><v>42</v></c></row>"
                        "</sheetData><pageSetup orientation=\"portrait\" r:id=\"rId2\"/>"
                        "<drawing r:id=\"rId3\"/><legacyDrawing r:id=\"rId4\"/></worksheet>");
    std::vector<Rel> sheetRels{{"rId1", "comments", "../comments1.xml"},
                               {"rId2", "printerSettings", "../printerSettings/printerSettings1.bin"},
                               {"rId3", "drawing", "../drawings/drawing1.xml"},
                               {"rId4", "vmlDrawing", "../drawings/vmlDrawing1.vml"}};
    b.add("xl/worksheets/_rels/sheet1.xml.rels", rels(sheetRels));
    b.add("xl/drawings/vmlDrawing1.vml", "<xml xmlns:v=\"urn:schemas-microsoft-com:vml\"><v:shape id=\"_x0000_s1025\"/></xml>");
    b.add("xl/worksheets/sheet2.xml", declaration + "<worksheet xmlns=\"" + sheetNS + "\"><sheetData><row r=\"1\">"
                                      "<c r=\"A1\" t=\"s\"><v>2</v></c></row></sheetData></worksheet>");
    b.add("xl/comments1.xml", declaration + "<comments xmlns=\"" + sheetNS + "\"><authors><author>Jane Roe</author></authors>"
                              "<commentList><comment ref=\"A1\" authorId=\"0\"><text><r><t>Numbers are made up</t></r>"
                              "</text></comment></commentList></comments>");
    b.add("xl/printerSettings/printerSettings1.bin", std::string("\x01\x04PRINTER ON JANE-LAPTOP", 24));
    std::string drawing = declaration + "<xdr:wsDr xmlns:xdr=\"http://schemas.openxmlformats.org/drawingml/2006/spreadsheetDrawing\" "
                          "xmlns:a=\"" + drawingNS + "\" xmlns:r=\"" + officeRels + "\">";
    if (!photo.empty())
        drawing += "<xdr:oneCellAnchor><xdr:from><xdr:col>2</xdr:col><xdr:colOff>0</xdr:colOff><xdr:row>2</xdr:row>"
                   "<xdr:rowOff>0</xdr:rowOff></xdr:from><xdr:ext cx=\"952500\" cy=\"952500\"/><xdr:pic><xdr:blipFill>"
                   "<a:blip r:embed=\"rId1\"/></xdr:blipFill></xdr:pic><xdr:clientData/></xdr:oneCellAnchor>";
    b.add("xl/drawings/drawing1.xml", drawing + "</xdr:wsDr>");
    if (!photo.empty()) {
        b.add("xl/drawings/_rels/drawing1.xml.rels", rels({{"rId1", "image", "../media/image1.jpeg"}}));
        b.add("xl/media/image1.jpeg", text(photo));
    }
    return b;
}

OfficePackageBuilder dirtyPresentation(const std::vector<std::uint8_t>& photo) {
    OfficePackageBuilder b;
    b.add("[Content_Types].xml",
          contentTypes({{"ppt/presentation.xml", "presentationml.presentation.main+xml"},
                        {"ppt/slides/slide1.xml", "presentationml.slide+xml"},
                        {"ppt/slides/slide2.xml", "presentationml.slide+xml"},
                        {"ppt/notesSlides/notesSlide2.xml", "presentationml.notesSlide+xml"},
                        {"ppt/comments/comment1.xml", "presentationml.comments+xml"},
                        {"ppt/commentAuthors.xml", "presentationml.commentAuthors+xml"},
                        {"docProps/core.xml", "core-properties+xml"},
                        {"docProps/app.xml", "extended-properties+xml"},
                        {"docProps/custom.xml", "custom-properties+xml"}}));
    addProperties(b, OfficeKind::pptx, "ppt/presentation.xml", photo);
    b.add("ppt/presentation.xml",
          declaration + "<p:presentation xmlns:p=\"" + presentationNS + "\" xmlns:r=\"" + officeRels + "\">"
                        "<p:sldIdLst><p:sldId id=\"256\" r:id=\"rId1\"/><p:sldId id=\"257\" r:id=\"rId2\" show=\"0\"/></p:sldIdLst>"
                        "<p:sldSz cx=\"9144000\" cy=\"6858000\"/></p:presentation>");
    b.add("ppt/_rels/presentation.xml.rels", rels({{"rId1", "slide", "slides/slide1.xml"},
                                                   {"rId2", "slide", "slides/slide2.xml"},
                                                   {"rId3", "commentAuthors", "commentAuthors.xml"}}));
    auto slide = [&](const std::string& words, bool hidden, const std::string& extra) {
        return declaration + "<p:sld xmlns:p=\"" + presentationNS + "\" xmlns:a=\"" + drawingNS + "\" xmlns:r=\"" +
               officeRels + "\"" + (hidden ? " show=\"0\"" : "") + "><p:cSld><p:spTree><p:sp><p:spPr><a:xfrm><a:off x=\"457200\" "
               "y=\"457200\"/><a:ext cx=\"8229600\" cy=\"1143000\"/></a:xfrm></p:spPr><p:txBody><a:p><a:r><a:t>" +
               words + "</a:t></a:r></a:p></p:txBody></p:sp>" + extra + "</p:spTree></p:cSld></p:sld>";
    };
    const std::string pic = photo.empty() ? "" : "<p:pic><p:blipFill><a:blip r:embed=\"rId2\"/></p:blipFill>"
                                                 "<p:spPr><a:xfrm><a:off x=\"100\" y=\"100\"/><a:ext cx=\"9000\" cy=\"9000\"/>"
                                                 "</a:xfrm></p:spPr></p:pic>";
    b.add("ppt/slides/slide1.xml", slide("Quarterly plan", false, pic));
    std::vector<Rel> slide1Rels{{"rId1", "comments", "../comments/comment1.xml"}};
    if (!photo.empty()) {
        slide1Rels.push_back({"rId2", "image", "../media/image1.jpeg"});
        b.add("ppt/media/image1.jpeg", text(photo));
    }
    b.add("ppt/slides/_rels/slide1.xml.rels", rels(slide1Rels));
    b.add("ppt/slides/slide2.xml", slide("Reorganisation candidates", true, ""));
    b.add("ppt/slides/_rels/slide2.xml.rels", rels({{"rId1", "notesSlide", "../notesSlides/notesSlide2.xml"}}));
    b.add("ppt/notesSlides/notesSlide2.xml",
          declaration + "<p:notes xmlns:p=\"" + presentationNS + "\" xmlns:a=\"" + drawingNS + "\"><p:cSld><p:spTree><p:sp>"
                        "<p:txBody><a:p><a:r><a:t>Tell nobody before Friday</a:t></a:r></a:p></p:txBody></p:sp></p:spTree>"
                        "</p:cSld></p:notes>");
    b.add("ppt/notesSlides/_rels/notesSlide2.xml.rels", rels({{"rId1", "slide", "../slides/slide2.xml"}}));
    b.add("ppt/comments/comment1.xml",
          declaration + "<p:cmLst xmlns:p=\"" + presentationNS + "\"><p:cm authorId=\"0\" dt=\"2024-03-05T14:02:00.000\" idx=\"1\">"
                        "<p:pos x=\"10\" y=\"10\"/><p:text>Is this number final?</p:text></p:cm></p:cmLst>");
    b.add("ppt/commentAuthors.xml",
          declaration + "<p:cmAuthorLst xmlns:p=\"" + presentationNS + "\"><p:cmAuthor id=\"0\" name=\"Jane Roe\" "
                        "initials=\"JR\" lastIdx=\"1\" clrIdx=\"0\"/></p:cmAuthorLst>");
    return b;
}

}  // namespace tavrin::testing
