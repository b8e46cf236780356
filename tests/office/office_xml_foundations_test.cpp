#include <gtest/gtest.h>

#include <stdexcept>

#include "office/office_part_classifier.h"
#include "office/office_text_encoding.h"
#include "office/office_xml_document.h"

namespace tavrin {
namespace {

std::vector<std::uint8_t> bytes(std::string_view text) { return {text.begin(), text.end()}; }

std::vector<std::uint8_t> utf16(std::string_view ascii, bool bigEndian, bool mark) {
    std::vector<std::uint8_t> out;
    if (mark) out = bigEndian ? std::vector<std::uint8_t>{0xFE, 0xFF} : std::vector<std::uint8_t>{0xFF, 0xFE};
    for (char c : ascii) {
        if (bigEndian) out.push_back(0);
        out.push_back(static_cast<std::uint8_t>(c));
        if (!bigEndian) out.push_back(0);
    }
    return out;
}

std::string nested(std::size_t depth) {
    std::string text;
    for (std::size_t i = 0; i < depth; ++i) text += "<a>";
    for (std::size_t i = 0; i < depth; ++i) text += "</a>";
    return text;
}

std::string dataText(const XMLDocument& document) {
    const auto data = document.xmlData();
    return std::string(data.begin(), data.end());
}

const std::string utf16Declared = "<?xml version=\"1.0\" encoding=\"UTF-16\"?><r>text</r>";

TEST(OfficeTextEncoding, decodesThePartsFoundInTheWild) {
    struct Row {
        const char* name;
        std::vector<std::uint8_t> data;
        std::optional<std::string> expected;
    };
    const std::string plain = "<?xml version=\"1.0\"?><r>\xC3\xA9t\xC3\xA9</r>";
    auto withNUL = bytes("<r>a</r>");
    withNUL.insert(withNUL.begin() + 3, 0);
    const std::vector<Row> rows = {
        {"UTF-8", bytes(plain), plain},
        {"UTF-8 with a byte order mark", bytes("\xEF\xBB\xBF" + plain), plain},
        {"UTF-16 little-endian with a mark", utf16(utf16Declared, false, true), utf16Declared},
        {"UTF-16 big-endian with a mark", utf16(utf16Declared, true, true), utf16Declared},
        {"UTF-16 little-endian without a mark", utf16(utf16Declared, false, false), utf16Declared},
        {"UTF-16 big-endian without a mark", utf16(utf16Declared, true, false), utf16Declared},
        {"UTF-8 falsely declared UTF-16", bytes(utf16Declared), utf16Declared},
        {"no markup", bytes("abc"), std::nullopt},
        {"a NUL", withNUL, std::nullopt},
        {"Latin-1 bytes", bytes("<r>caf\xE9</r>"), std::nullopt},
        {"empty", {}, std::nullopt},
        {"a broken byte order mark", bytes("\xEF\xBB<r/>"), std::nullopt},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(OfficeTextEncoding::decodeXML(row.data), row.expected);
        // Bytes held in a string decode alike, in place.
        EXPECT_EQ(OfficeTextEncoding::decodeXML(std::string(row.data.begin(), row.data.end())), row.expected);
    }
}

TEST(OfficeTextEncoding, findsUTF16ThatAUTF8ParserAloneWouldRefuse) {
    const auto data = utf16(utf16Declared, false, false);
    // Read as UTF-8 the bytes are text full of NULs, which no XML may hold.
    EXPECT_NE(OfficeTextEncoding::decodeUTF8(data)->find('\0'), std::string::npos);
    const auto document = OfficeXMLDocument::parse(data);
    ASSERT_TRUE(document.has_value());
    EXPECT_EQ(document->rootElement()->stringValue(), "text");
}

TEST(OfficeXMLDocument, rewritesOnlyTheDeclarationsEncoding) {
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"<?xml version=\"1.0\" encoding=\"UTF-16\"?><a/>", "<?xml version=\"1.0\" encoding=\"UTF-8\"?><a/>"},
        {"<?xml version='1.0' ENCODING = 'utf-16' standalone='yes'?><a/>",
         "<?xml version='1.0' encoding=\"UTF-8\" standalone='yes'?><a/>"},
        {"<?xml version=\"1.0\"?><a encoding=\"x\"/>", "<?xml version=\"1.0\"?><a encoding=\"x\"/>"},
        {"<a encoding=\"UTF-16\"/>", "<a encoding=\"UTF-16\"/>"},
        {"<?xml version=\"1.0\" encoding=\"UTF-16\"", "<?xml version=\"1.0\" encoding=\"UTF-16\""},
        {"<?xml version=\"1.0\" encoding=UTF-16?><a/>", "<?xml version=\"1.0\" encoding=UTF-16?><a/>"},
    };
    for (const auto& [input, expected] : rows) EXPECT_EQ(OfficeXMLDocument::rewriteEncodingDeclarationToUTF8(input), expected) << input;
}

TEST(OfficeXMLDocument, gatesNestingAtFiveThousand) {
    struct Row {
        const char* name;
        std::string text;
        bool withinLimit;
    };
    std::string siblings;
    for (int i = 0; i < 10000; ++i) siblings += "<b/>";
    std::string quoted;
    for (int i = 0; i < 5000; ++i) quoted += "<a x=\"1>2\" y='/>'>";
    std::string commented = "<!-- <a><a> -->" + nested(5000);
    const std::vector<Row> rows = {
        {"empty", "", true},
        {"5000 deep", nested(5000), true},
        {"5001 deep", nested(5001), false},
        {"5001 open, the last cut off", nested(5000).substr(0, 5000 * 3) + "<a", false},
        {"10000 empty siblings", "<r>" + siblings + "</r>", true},
        {"quoted > in attributes", quoted, true},
        {"quoted > then one more", quoted + "<a>", false},
        {"markup in a comment is not counted", commented, true},
        {"declarations are not counted", "<?xml version=\"1.0\"?><!DOCTYPE r>" + nested(5000), true},
        {"ends inside a quote", "<a x=\"", true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(OfficeXMLDocument::nestingDepthWithinLimit(row.text), row.withinLimit);
    }
}

TEST(OfficeXMLDocument, parsesFiveThousandDeepAndRefusesOneMore) {
    const auto deep = bytes(nested(5000));
    auto document = OfficeXMLDocument::parse(deep);
    ASSERT_TRUE(document.has_value());
    std::size_t visited = 0;
    forEachElement(*document->rootElement(), [&](XMLElement&) { ++visited; });
    EXPECT_EQ(visited, 5000u);
    EXPECT_FALSE(OfficeXMLDocument::serialize(*document).empty());
    EXPECT_FALSE(OfficeXMLDocument::parse(bytes(nested(5001))).has_value());
}

TEST(OfficeXMLDocument, refusesEntityBombsExternalEntitiesAndMalformedText) {
    const std::string laughs =
        "<?xml version=\"1.0\"?><!DOCTYPE lolz [<!ENTITY lol \"lol\">"
        "<!ENTITY lol2 \"&lol;&lol;&lol;&lol;&lol;&lol;&lol;&lol;&lol;&lol;\">"
        "<!ENTITY lol3 \"&lol2;&lol2;&lol2;&lol2;&lol2;&lol2;&lol2;&lol2;&lol2;&lol2;\">"
        "<!ENTITY lol4 \"&lol3;&lol3;&lol3;&lol3;&lol3;&lol3;&lol3;&lol3;&lol3;&lol3;\">"
        "<!ENTITY lol5 \"&lol4;&lol4;&lol4;&lol4;&lol4;&lol4;&lol4;&lol4;&lol4;&lol4;\">"
        "<!ENTITY lol6 \"&lol5;&lol5;&lol5;&lol5;&lol5;&lol5;&lol5;&lol5;&lol5;&lol5;\">"
        "<!ENTITY lol7 \"&lol6;&lol6;&lol6;&lol6;&lol6;&lol6;&lol6;&lol6;&lol6;&lol6;\">"
        "<!ENTITY lol8 \"&lol7;&lol7;&lol7;&lol7;&lol7;&lol7;&lol7;&lol7;&lol7;&lol7;\">"
        "<!ENTITY lol9 \"&lol8;&lol8;&lol8;&lol8;&lol8;&lol8;&lol8;&lol8;&lol8;&lol8;\">]>"
        "<lolz>&lol9;</lolz>";
    const std::string external =
        "<?xml version=\"1.0\"?><!DOCTYPE r [<!ENTITY x SYSTEM \"file:///etc/passwd\">]><r>&x;</r>";
    for (const auto& text : {laughs, external}) {
        try {
            XMLDocument document(bytes(text));
            ADD_FAILURE() << "parsed a document type";
        } catch (const XMLDocumentError& e) {
            EXPECT_EQ(e.errorCase(), XMLDocumentError::Case::documentTypeNotAllowed);
        }
        EXPECT_FALSE(OfficeXMLDocument::parse(bytes(text)).has_value());
    }
    for (const char* malformed : {"<a><b></a>", "<a>&undefined;</a>", "<a", "<a/><b/>", "<a x='1' x='2'/>"}) {
        try {
            XMLDocument document(bytes(malformed));
            ADD_FAILURE() << malformed;
        } catch (const XMLDocumentError& e) {
            EXPECT_EQ(e.errorCase(), XMLDocumentError::Case::malformedDocument) << malformed;
            EXPECT_GT(std::string(e.what()).size(), std::string("The XML is malformed: ").size());
        }
    }
}

TEST(XMLDocument, serialisesWithPrefixesDeclarationsAndOrderIntact) {
    const std::string part =
        "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n"
        "<w:document xmlns:wpc=\"http://schemas.microsoft.com/office/word/2010/wordprocessingCanvas\" "
        "xmlns:mc=\"http://schemas.openxmlformats.org/markup-compatibility/2006\" "
        "xmlns:w=\"http://schemas.openxmlformats.org/wordprocessingml/2006/main\" mc:Ignorable=\"wpc\">"
        "<w:body><w:p w:rsidR=\"00A1\" w:rsidRDefault=\"00B2\"><w:r><w:t xml:space=\"preserve\">Hi &amp; bye </w:t></w:r>"
        "<!-- note --><w:r><w:t>x</w:t></w:r></w:p><w:sectPr/></w:body></w:document>\n";
    XMLDocument document(bytes(part));
    EXPECT_EQ(dataText(document), part);
    EXPECT_EQ(OfficeXMLDocument::serialize(document), bytes(part));
}

TEST(XMLDocument, answersNamesTextAndXPathByLocalName) {
    XMLDocument document(bytes(
        "<cp:coreProperties xmlns:cp=\"urn:cp\" xmlns:dc=\"urn:dc\"><dc:creator>Ann</dc:creator>"
        "<x:creator xmlns:x=\"urn:x\">Bob</x:creator><dc:title a=\"1\" dc:b=\"2\">T<i>itle</i></dc:title></cp:coreProperties>"));
    const auto root = *document.rootElement();
    EXPECT_EQ(root.name(), "cp:coreProperties");
    EXPECT_EQ(root.localName(), "coreProperties");
    EXPECT_EQ(root.prefix(), "cp");
    EXPECT_EQ(root.uri(), "urn:cp");
    const auto creators = root.nodesForXPath("//*[local-name()='creator']");
    ASSERT_EQ(creators.size(), 2u);
    EXPECT_EQ(creators[0].stringValue(), "Ann");
    EXPECT_EQ(creators[1].prefix(), "x");
    const auto title = *root.nodesForXPath("//*[local-name()='title']").at(0).asElement();
    EXPECT_EQ(title.stringValue(), "Title");
    const auto attributes = title.attributes();
    ASSERT_EQ(attributes.size(), 2u);
    EXPECT_EQ(attributes[1].name(), "dc:b");
    EXPECT_EQ(attributes[1].localName(), "b");
    EXPECT_EQ(title.attributeForName("dc:b")->stringValue(), "2");
    EXPECT_FALSE(title.attributeForName("b").has_value());
    EXPECT_THROW(root.nodesForXPath("//*[local-name()="), XMLDocumentError);
}

TEST(XMLDocument, editsTextAttributesAndChildren) {
    XMLDocument document(bytes("<w:r xmlns:w=\"urn:w\" w:a=\"1\" b=\"2\"><w:t>old</w:t><w:x/><w:y/></w:r>"));
    auto root = *document.rootElement();
    auto t = *root.children()[0].asElement();
    t.setStringValue("<new & \"quoted\">");
    EXPECT_EQ(t.stringValue(), "<new & \"quoted\">");
    root.addAttribute("w:a", "changed");
    root.addAttribute("w:c", "3");
    root.removeAttributeForName("b");
    EXPECT_THROW(root.addAttribute("undeclared:x", "1"), XMLDocumentError);

    auto x = root.children()[1];
    x.detach();
    root.insertChild(x, 0);
    root.removeChild(2);  // w:y
    auto added = document.createElement("w:z");
    added.addChild(document.createText("z"));
    root.addChild(added);
    EXPECT_EQ(added.localName(), "z");
    EXPECT_EQ(added.uri(), "urn:w");
    EXPECT_THROW(root.removeChild(10), XMLDocumentError);
    EXPECT_THROW(t.addChild(root), XMLDocumentError);

    EXPECT_EQ(dataText(document),
              "<?xml version=\"1.0\"?>\n<w:r xmlns:w=\"urn:w\" w:a=\"changed\" w:c=\"3\"><w:x/>"
              "<w:t>&lt;new &amp; \"quoted\"&gt;</w:t><w:z>z</w:z></w:r>\n");
}

// A part read in pieces, as the gates hand it over after rewriting its declaration, gives the
// tree of the whole text; the attribute filter gives that tree with the attributes removed.
TEST(XMLDocument, readsTextInPiecesAndLeavesOutFilteredAttributes) {
    const std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<w:p xmlns:w=\"urn:w\" w:rsidR=\"1\" "
                             "w:rsidP=\"2\"><w:r w:date=\"D\" w:val=\"a&amp;b \xC3\xA9\"><w:t>caf\xC3\xA9 &lt;&#x41;&gt;"
                             "</w:t><!-- c --><![CDATA[<x>]]></w:r></w:p>\n";
    const XMLDocument whole(bytes(text));
    for (std::size_t cut = 0; cut <= text.size(); cut += 7) {
        const std::string_view pieces[] = {std::string_view(text).substr(0, cut), std::string_view(text).substr(cut)};
        const XMLDocument document(pieces, {});
        EXPECT_EQ(document.xmlText(), dataText(whole)) << cut;
    }

    XMLDocument::ParseOptions options;
    options.dropAttribute = [](std::string_view name) { return name.substr(0, 4) == "rsid" || name == "date"; };
    const std::string_view one[] = {text};
    const XMLDocument filtered(one, options);
    XMLDocument edited(bytes(text));
    auto root = *edited.rootElement();
    root.removeAttributeForName("w:rsidR");
    root.removeAttributeForName("w:rsidP");
    root.firstChild()->asElement()->removeAttributeForName("w:date");
    EXPECT_EQ(filtered.xmlText(), dataText(edited));
    EXPECT_FALSE(filtered.hasUnboundPrefix());

    // Names whose prefix no declaration binds are noted, and such attributes are never dropped.
    const std::string unbound = "<a xmlns:w=\"urn:w\"><b x:rsidR=\"1\" w:rsidR=\"2\"/></a>";
    const std::string_view unboundPieces[] = {unbound};
    const XMLDocument kept(unboundPieces, options);
    EXPECT_TRUE(kept.hasUnboundPrefix());
    EXPECT_EQ(kept.xmlText(), "<?xml version=\"1.0\"?>\n<a xmlns:w=\"urn:w\"><b x:rsidR=\"1\"/></a>\n");
    EXPECT_TRUE(XMLDocument(bytes("<a><x:b/></a>")).hasUnboundPrefix());
    EXPECT_FALSE(XMLDocument(bytes("<a xml:space=\"preserve\"><b/></a>")).hasUnboundPrefix());

    // A filter's error stops the parse and reaches the caller.
    XMLDocument::ParseOptions failing;
    failing.dropAttribute = [](std::string_view) -> bool { throw std::runtime_error("stop"); };
    EXPECT_THROW(XMLDocument(one, failing), std::runtime_error);

    // The same refusals as a whole parse.
    const std::string_view doctype[] = {"<!DOCTYPE a [<!ENTITY e \"x\">]>", "<a>&e;</a>"};
    EXPECT_THROW(XMLDocument(doctype, {}), XMLDocumentError);
    const std::string_view malformed[] = {"<a><b>", "</a>"};
    EXPECT_THROW(XMLDocument(malformed, {}), XMLDocumentError);
}

// A scan without a tree names elements and attributes, and gives values, as the tree does.
TEST(XMLDocument, scansStartTagsAsTheTreeNamesThem) {
    const std::string text =
        "<w:document xmlns:w=\"urn:w\" xmlns:r=\"urn:r\" xmlns=\"urn:d\"><w:body a=\"1\"><w:sectPr r:id=\"rId&amp;1\" "
        "w:type=\"&lt;&#38;&#x26;&gt;\" plain=\"caf\xC3\xA9\t\"><w:titlePg/><q:x q:y=\"2\"/></w:sectPr><d/></w:body>"
        "</w:document>";
    const XMLDocument tree(bytes(text));
    struct Seen {
        std::string localName;
        std::size_t depth;
        std::vector<std::string> attributes;  // name, local name, URI and value of each
        bool operator==(const Seen&) const = default;
    };
    std::vector<Seen> expected;
    forEachElement(*tree.rootElement(), [&](XMLElement& element) {
        Seen seen{element.localName(), 0, {}};
        for (auto p = element.parent(); p && p->kind() == XMLNode::Kind::element; p = p->parent()) ++seen.depth;
        for (const auto& a : element.attributes())
            seen.attributes.push_back(a.name() + "|" + a.localName() + "|" + a.uri() + "|" + a.stringValue());
        expected.push_back(seen);
    });
    std::vector<Seen> scanned;
    const std::string_view pieces[] = {text};
    ASSERT_TRUE(XMLDocument::scanStartTags(pieces, [&](const XMLStartTag& tag) {
        Seen seen{std::string(tag.localName()), tag.depth(), {}};
        for (std::size_t i = 0; i < tag.attributeCount(); ++i)
            seen.attributes.push_back(tag.attributeName(i) + "|" + tag.attributeLocalName(i) + "|" +
                                      std::string(tag.attributeURI(i)) + "|" + tag.attributeValue(i));
        if (tag.localName() == "sectPr") {
            EXPECT_EQ(tag.attributeValue("id"), "rId&1");
            EXPECT_EQ(tag.attributeValue("missing"), std::nullopt);
        }
        scanned.push_back(seen);
    }));
    EXPECT_EQ(scanned, expected);
    EXPECT_EQ(expected[4].localName, "q:x");  // an undeclared prefix stays in the name

    const auto scan = [](std::string_view text) {
        const std::string_view pieces[] = {text};
        return XMLDocument::scanStartTags(pieces, [](const XMLStartTag&) {});
    };
    EXPECT_FALSE(scan("<a><b></a>"));
    EXPECT_FALSE(scan("<!DOCTYPE a><a/>"));
    EXPECT_FALSE(scan(""));
    EXPECT_TRUE(scan("<?xml version=\"1.0\"?><a/>"));
    // A visitor's error stops the scan and reaches the caller.
    EXPECT_THROW(XMLDocument::scanStartTags(pieces, [](const XMLStartTag&) { throw std::runtime_error("stop"); }),
                 std::runtime_error);
}

TEST(ForEachElement, visitsInDocumentOrderAndHonoursEditsBelowTheCurrentElement) {
    XMLDocument document(bytes("<a><b><c/></b>text<d><e/></d></a>"));
    std::vector<std::string> visited;
    forEachElement(*document.rootElement(), [&](XMLElement& element) {
        visited.push_back(element.localName());
        if (element.localName() == "d") element.removeChild(0);
    });
    EXPECT_EQ(visited, (std::vector<std::string>{"a", "b", "c", "d"}));
}

TEST(OfficePartClassifier, classifiesPartPaths) {
    struct Row {
        const char* path;
        bool comment;
        bool roster;
        bool wordMarkup;
    };
    const std::vector<Row> rows = {
        {"XL/Comments1.XML", true, false, false},
        {"word/comments.xml", true, false, true},
        {"word/commentsExtended.xml", true, false, true},
        {"word/threadedComments/x.xml", true, false, true},
        {"xl/threadedComments/threadedComment1.xml", true, false, false},
        {"ppt/comments/comment1.xml", true, false, false},
        {"ppt/comments/comment1.rels", false, false, false},
        {"word/people.xml", false, true, false},
        {"ppt/commentAuthors.xml", false, true, false},
        {"xl/persons/person.xml", false, true, false},
        {"word/fonts/font1.xml", false, false, false},
        {"word/document.xml", false, false, true},
        {"xl/worksheets/sheet1.xml", false, false, false},
        {"docProps/core.xml", false, false, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.path);
        EXPECT_EQ(OfficePartClassifier::isCommentContentPart(row.path), row.comment);
        EXPECT_EQ(OfficePartClassifier::isCommentRosterPart(row.path), row.roster);
        EXPECT_EQ(OfficePartClassifier::isWordMarkupPart(row.path), row.wordMarkup);
    }
}

}  // namespace
}  // namespace tavrin
