#pragma once
// Package shapes met in real files, built in code: Word as 2010 to 2021 save it, a missing font,
// a hidden slide named elsewhere, a workbook with hidden-sheet remnants. The writer tests clean
// them, and the LibreOffice check opens their cleaned copies.

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "../image/image_fixtures.h"
#include "model/cleaning_profile.h"
#include "office_cleaning_fixtures.h"
#include "office_fixtures.h"
#include "support/test_support.h"
#include "zip/archive.h"

namespace tavrin::officeShapes {

using Bytes = std::vector<std::uint8_t>;
using testing::OfficePackageBuilder;

inline const std::string rNS = "http://schemas.openxmlformats.org/officeDocument/2006/relationships";
inline const std::string wNS = "http://schemas.openxmlformats.org/wordprocessingml/2006/main";

// The builder with `path` changed by `edit` (added when missing and `edit` is given "").
inline OfficePackageBuilder edited(const OfficePackageBuilder& source, const std::string& path,
                            const std::function<std::string(std::string)>& edit) {
    OfficePackageBuilder out;
    bool found = false;
    for (const auto& [name, data] : source.parts()) {
        found = found || name == path;
        out.add(name, name == path ? edit(data) : data);
    }
    if (!found) out.add(path, edit(""));
    return out;
}

inline OfficePackageBuilder with(const OfficePackageBuilder& source, const std::string& path, const std::string& content) {
    return edited(source, path, [&](std::string) { return content; });
}

// `text` inserted before the first occurrence of `before`.
inline std::function<std::string(std::string)> inserting(const std::string& text, const std::string& before) {
    return [=](std::string data) {
        const auto at = data.find(before);
        EXPECT_NE(at, std::string::npos) << before;
        return at == std::string::npos ? data : data.insert(at, text);
    };
}

inline std::string relationship(const std::string& id, const std::string& type, const std::string& target) {
    return "<Relationship Id=\"" + id + "\" Type=\"" + rNS + "/" + type + "\" Target=\"" + target + "\"/>";
}

inline std::string relsOf(const std::string& rows) {
    return "<?xml version=\"1.0\"?><Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">" +
           rows + "</Relationships>";
}

inline std::string override(const std::string& part, const std::string& type) {
    return "<Override PartName=\"/" + part + "\" ContentType=\"application/vnd.openxmlformats-officedocument." + type + "\"/>";
}

inline Bytes fileBytes(const std::filesystem::path& path) {
    const std::string text = testing::readFile(path);
    return Bytes(text.begin(), text.end());
}

inline CleaningProfile profileOf(std::set<MetadataCategory> categories) {
    CleaningProfile profile;
    profile.name = "test";
    profile.categoriesToRemove = std::move(categories);
    return profile;
}

inline std::optional<std::string> part(const Bytes& package, const std::string& name) {
    const Archive archive(package, Archive::AccessMode::read);
    const auto entry = archive[name];
    if (!entry) return std::nullopt;
    const auto bytes = extractEntry(archive, *entry);
    return std::string(bytes.begin(), bytes.end());
}

// MARK: Word as 2010 to 2021 save it

// Revision ids in the body and settings, the effects styles, web settings, a theme, a custom XML
// item, footnotes and endnotes, and numbering whose bullet is a picture.
inline OfficePackageBuilder wordOfTheseYears() {
    auto b = testing::dirtyDocument({});
    const std::string png(reinterpret_cast<const char*>(testing::images::encodePNG(2, 2).data()),
                          testing::images::encodePNG(2, 2).size());
    const std::string ns = "xmlns:w=\"" + wNS + "\" xmlns:r=\"" + rNS + "\"";
    b = edited(b, "[Content_Types].xml",
               inserting(override("word/stylesWithEffects.xml", "wordprocessingml.stylesWithEffects+xml") +
                             override("word/webSettings.xml", "wordprocessingml.webSettings+xml") +
                             override("word/theme/theme1.xml", "theme+xml") +
                             override("word/footnotes.xml", "wordprocessingml.footnotes+xml") +
                             override("word/endnotes.xml", "wordprocessingml.endnotes+xml") +
                             override("word/numbering.xml", "wordprocessingml.numbering+xml") +
                             override("word/fontTable.xml", "wordprocessingml.fontTable+xml"),
                         "</Types>"));
    b = edited(b, "word/_rels/document.xml.rels",
               inserting(relationship("rId20", "stylesWithEffects", "stylesWithEffects.xml") +
                             relationship("rId21", "webSettings", "webSettings.xml") +
                             relationship("rId22", "theme", "theme/theme1.xml") +
                             relationship("rId23", "footnotes", "footnotes.xml") +
                             relationship("rId24", "endnotes", "endnotes.xml") +
                             relationship("rId25", "numbering", "numbering.xml") +
                             relationship("rId26", "fontTable", "fontTable.xml") +
                             relationship("rId27", "customXml", "../customXml/item1.xml"),
                         "</Relationships>"));
    b.add("word/stylesWithEffects.xml", "<w:styles " + ns + "><w:style w:type=\"paragraph\" w:styleId=\"Normal\" "
                                        "w:rsid=\"00C1D2E3\"><w:name w:val=\"Normal\"/></w:style></w:styles>");
    b.add("word/webSettings.xml", "<w:webSettings " + ns + "><w:optimizeForBrowser/><w:allowPNG/></w:webSettings>");
    b.add("word/theme/theme1.xml", "<a:theme xmlns:a=\"http://schemas.openxmlformats.org/drawingml/2006/main\" "
                                   "name=\"Office Theme\"><a:themeElements/></a:theme>");
    for (const char* kind : {"footnote", "endnote"})
        b.add(std::string("word/") + kind + "s.xml",
              "<w:" + std::string(kind) + "s " + ns + "><w:" + kind + " w:id=\"1\"><w:p w:rsidR=\"00C1D2E3\"><w:r>"
              "<w:t>See the annex</w:t></w:r></w:p></w:" + kind + "></w:" + kind + "s>");
    b.add("word/numbering.xml",
          "<w:numbering " + ns + " xmlns:v=\"urn:schemas-microsoft-com:vml\"><w:numPicBullet w:numPicBulletId=\"0\"><w:pict>"
          "<v:shape style=\"width:9pt;height:9pt\"><v:imagedata r:id=\"rId1\" o:title=\"\" "
          "xmlns:o=\"urn:schemas-microsoft-com:office:office\"/></v:shape></w:pict></w:numPicBullet>"
          "<w:abstractNum w:abstractNumId=\"0\"><w:lvl w:ilvl=\"0\"><w:lvlPicBulletId w:val=\"0\"/></w:lvl></w:abstractNum>"
          "<w:num w:numId=\"1\"><w:abstractNumId w:val=\"0\"/></w:num></w:numbering>");
    b.add("word/_rels/numbering.xml.rels", relsOf(relationship("rId1", "image", "media/image9.png")));
    b.add("word/media/image9.png", png);
    b.add("word/fontTable.xml", "<w:fonts " + ns + "><w:font w:name=\"Calibri\"/></w:fonts>");
    b.add("customXml/item1.xml", "<b:Sources xmlns:b=\"http://schemas.openxmlformats.org/officeDocument/2006/bibliography\"/>");
    b.add("customXml/itemProps1.xml", "<ds:datastoreItem ds:itemID=\"{6E4D1D5B-0000-0000-0000-000000000001}\" "
                                      "xmlns:ds=\"http://schemas.openxmlformats.org/officeDocument/2006/customXml\"/>");
    b.add("customXml/_rels/item1.xml.rels", relsOf(relationship("rId1", "customXmlProps", "itemProps1.xml")));
    return b;
}

// A font table that names an embedded font the package does not hold, as tools that strip
// fonts leave it.
inline OfficePackageBuilder wordWithAMissingFont() {
    auto b = wordOfTheseYears();
    b = with(b, "word/fontTable.xml",
             "<w:fonts xmlns:w=\"" + wNS + "\" xmlns:r=\"" + rNS + "\"><w:font w:name=\"Corporate Sans\">"
             "<w:embedRegular r:id=\"rId1\" w:fontKey=\"{00000000-0000-0000-0000-000000000001}\"/></w:font></w:fonts>");
    b.add("word/_rels/fontTable.xml.rels", relsOf(relationship("rId1", "font", "fonts/font1.odttf")));
    return edited(b, "[Content_Types].xml", inserting(override("word/fonts/font1.odttf", "obfuscatedFont"), "</Types>"));
}

// A presentation whose second slide is hidden on its own root, named again by a custom show
// and a section list.
inline OfficePackageBuilder presentationWithAHiddenSlideNamedElsewhere() {
    auto b = testing::dirtyPresentation({});
    b = edited(b, "ppt/presentation.xml", [](std::string xml) {
        const std::string plain = "<p:sldId id=\"257\" r:id=\"rId2\" show=\"0\"/>";
        xml.replace(xml.find(plain), plain.size(), "<p:sldId id=\"257\" r:id=\"rId2\"/>");
        return inserting("<p:custShowLst><p:custShow name=\"Board\" id=\"0\"><p:sldLst><p:sld r:id=\"rId1\"/>"
                         "<p:sld r:id=\"rId2\"/></p:sldLst></p:custShow></p:custShowLst><p:extLst><p:ext "
                         "uri=\"{521415D9-36F7-43E2-AB2F-B90AF26B5E84}\"><p14:sectionLst "
                         "xmlns:p14=\"http://schemas.microsoft.com/office/powerpoint/2010/main\"><p14:section name=\"All\" "
                         "id=\"{1}\"><p14:sldIdLst><p14:sldId id=\"256\"/><p14:sldId id=\"257\"/></p14:sldIdLst>"
                         "</p14:section></p14:sectionLst></p:ext></p:extLst>",
                         "</p:presentation>")(xml);
    });
    return b;
}

// A hidden sheet whose text, names and formula cells reach into the rest of the workbook, and a
// workbook that records where it was saved.
inline OfficePackageBuilder workbookWithHiddenSheetRemnants() {
    auto b = testing::dirtyWorkbook({});
    b = edited(b, "xl/workbook.xml", [](std::string xml) {
        xml = inserting("<mc:AlternateContent xmlns:mc=\"http://schemas.openxmlformats.org/markup-compatibility/2006\">"
                        "<mc:Choice Requires=\"x15\"><x15ac:absPath url=\"C:\\Users\\jane.roe\\Documents\\\" "
                        "xmlns:x15ac=\"http://schemas.microsoft.com/office/spreadsheetml/2010/11/ac\"/></mc:Choice>"
                        "</mc:AlternateContent><bookViews><workbookView activeTab=\"1\"/></bookViews>",
                        "<sheets>")(xml);
        return inserting("<definedNames><definedName name=\"Pay\">Salaries!$A$1</definedName>"
                         "<definedName name=\"_xlnm.Print_Area\" localSheetId=\"1\">Salaries!$A$1:$B$2</definedName>"
                         "<definedName name=\"Plan\" localSheetId=\"0\">Budget!$A$1</definedName></definedNames>",
                         "</workbook>")(xml);
    });
    b = edited(b, "xl/_rels/workbook.xml.rels", inserting(relationship("rId9", "calcChain", "calcChain.xml"), "</Relationships>"));
    b = edited(b, "[Content_Types].xml", inserting(override("xl/calcChain.xml", "spreadsheetml.calcChain+xml"), "</Types>"));
    b.add("xl/calcChain.xml", "<calcChain xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\">"
                              "<c r=\"B2\" i=\"2\"/></calcChain>");
    b = edited(b, "docProps/app.xml", inserting("<HyperlinkBase>C:\\Users\\jane.roe\\Shares\\</HyperlinkBase>", "</Properties>"));
    // A link the user made, to "Book2.xlsx", with the other addresses Excel adds to it.
    b = edited(b, "xl/_rels/workbook.xml.rels", inserting(relationship("rId8", "externalLink", "externalLinks/externalLink1.xml"),
                                                         "</Relationships>"));
    b = edited(b, "[Content_Types].xml", inserting(override("xl/externalLinks/externalLink1.xml", "spreadsheetml.externalLink+xml"),
                                                  "</Types>"));
    b.add("xl/externalLinks/externalLink1.xml",
          "<externalLink xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\" xmlns:r=\"" + rNS + "\">"
          "<externalBook r:id=\"rId1\"><xxl21:alternateUrls driveId=\"b!Jane0\" itemId=\"01JANE\" "
          "xmlns:xxl21=\"http://schemas.microsoft.com/office/spreadsheetml/2021/extlinks2021\"><xxl21:absoluteUrl r:id=\"rId2\"/>"
          "</xxl21:alternateUrls><sheetNames><sheetName val=\"Data\"/></sheetNames></externalBook></externalLink>");
    b.add("xl/externalLinks/_rels/externalLink1.xml.rels",
          relsOf("<Relationship Id=\"rId1\" Type=\"" + rNS + "/externalLinkPath\" Target=\"Book2.xlsx\" TargetMode=\"External\"/>"
                 "<Relationship Id=\"rId2\" Type=\"" + rNS + "/externalLinkLong\" "
                 "Target=\"file:///C:\\Users\\jane.roe\\OneDrive\\Book2.xlsx\" TargetMode=\"External\"/>"));
    return b;
}

}  // namespace tavrin::officeShapes
