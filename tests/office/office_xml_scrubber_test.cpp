#include <gtest/gtest.h>

#include "office/office_text_encoding.h"
#include "office/office_xml_scrubber.h"
#include "xml_canonical_form.h"

namespace tavrin {
namespace {

using S = OfficeXMLScrubber;
using C = MetadataCategory;
using testing::canonicalXML;

const std::string W = "http://schemas.openxmlformats.org/wordprocessingml/2006/main";

std::string document(const std::string& body, const std::string& prefix = "w") {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?><" + prefix + ":document xmlns:" + prefix +
           "=\"" + W + "\"><" + prefix + ":body>" + body + "</" + prefix + ":body></" + prefix + ":document>";
}

CleaningProfile profileOf(std::set<MetadataCategory> categories) {
    CleaningProfile profile;
    profile.categoriesToRemove = std::move(categories);
    return profile;
}

std::string run(const std::string& text) { return "<w:r><w:t>" + text + "</w:t></w:r>"; }

struct WordCase {
    const char* name;
    std::set<MetadataCategory> categories;
    std::string body;
    std::string expected;
    std::set<std::string> vanishStyles = {};
};

// Part text in, part text out, compared through the document model.
TEST(OfficeXMLScrubber, scrubsWordPartsAsTheProfileSays) {
    const std::vector<WordCase> cases = {
        {"insertions accepted, deletions dropped with their text",
         {C::documentHistory},
         "<w:p><w:ins w:id=\"1\" w:author=\"Ann\" w:date=\"2024-01-01T00:00:00Z\">" + run("new") +
             "</w:ins><w:del w:id=\"2\" w:author=\"Ann\"><w:r><w:delText>old</w:delText></w:r></w:del></w:p>",
         "<w:p>" + run("new") + "</w:p>"},
        {"history keeps an author that acceptance does not touch",
         {C::documentHistory, C::authorIdentity},
         "<w:p><w:r w:author=\"Ann\"><w:t>a</w:t></w:r></w:p>",
         "<w:p><w:r w:author=\"Ann\"><w:t>a</w:t></w:r></w:p>"},
        {"identity alone keeps the insertion and its date",
         {C::authorIdentity},
         "<w:p><w:ins w:id=\"1\" w:author=\"Ann\" w:date=\"D\">" + run("x") + "</w:ins></w:p>",
         "<w:p><w:ins w:id=\"1\" w:date=\"D\">" + run("x") + "</w:ins></w:p>"},
        {"identity and dates take both",
         {C::authorIdentity, C::timestamps},
         "<w:p><w:ins w:id=\"1\" w:author=\"Ann\" w:initials=\"A\" w:date=\"D\">" + run("x") + "</w:ins></w:p>",
         "<w:p><w:ins w:id=\"1\">" + run("x") + "</w:ins></w:p>"},
        {"rsid attributes and the rsids table go",
         {C::documentHistory},
         "<w:rsids><w:rsidRoot w:val=\"00A1\"/><w:rsid w:val=\"00A2\"/></w:rsids>"
         "<w:p w:rsidR=\"00A1\" w:rsidRDefault=\"00A2\" w:rsidP=\"1\"><w:r w:rsidRPr=\"3\"><w:t>x</w:t></w:r></w:p>",
         "<w:p>" + run("x") + "</w:p>"},
        {"a move-from range spanning paragraphs goes, the end paragraph stays after the marker",
         {C::documentHistory},
         "<w:p>" + run("before") + "<w:moveFromRangeStart w:id=\"5\" w:name=\"m\"/><w:moveFrom>" + run("moved") +
             "</w:moveFrom></w:p><w:p>" + run("middle") + "</w:p><w:p>" + run("tail") +
             "<w:moveFromRangeEnd w:id=\"5\"/>" + run("after") + "</w:p>",
         "<w:p>" + run("before") + "</w:p><w:p>" + run("after") + "</w:p>"},
        {"an unmatched range start loses only its marker",
         {C::documentHistory},
         "<w:p><w:moveFromRangeStart w:id=\"9\"/>" + run("stays") + "</w:p>",
         "<w:p>" + run("stays") + "</w:p>"},
        {"a range end without a start is removed with the markers",
         {C::documentHistory},
         "<w:p>" + run("a") + "<w:moveFromRangeEnd w:id=\"9\"/>" + run("b") + "</w:p>",
         "<w:p>" + run("a") + run("b") + "</w:p>"},
        {"a repeated start id: only the later start forms the range",
         {C::documentHistory},
         "<w:p><w:moveFromRangeStart w:id=\"1\"/>" + run("a") + "<w:moveFromRangeStart w:id=\"1\"/>" + run("b") +
             "<w:moveFromRangeEnd w:id=\"1\"/>" + run("c") + "</w:p>",
         "<w:p>" + run("a") + run("c") + "</w:p>"},
        {"nested insertions both unwrap in order",
         {C::documentHistory},
         "<w:p><w:ins w:id=\"1\">" + run("1") + "<w:ins w:id=\"2\">" + run("2") + run("3") + "</w:ins>" + run("4") +
             "</w:ins></w:p>",
         "<w:p>" + run("1") + run("2") + run("3") + run("4") + "</w:p>"},
        {"an insertion inside a deletion goes with it",
         {C::documentHistory},
         "<w:p>" + run("keep") + "<w:del w:id=\"1\"><w:ins w:id=\"2\">" + run("gone") + "</w:ins></w:del></w:p>",
         "<w:p>" + run("keep") + "</w:p>"},
        {"a deletion that holds a whole table",
         {C::documentHistory},
         "<w:del w:id=\"3\"><w:tbl><w:tr><w:tc><w:p>" + run("cell") + "</w:p></w:tc></w:tr></w:tbl></w:del><w:p>" +
             run("after") + "</w:p>",
         "<w:p>" + run("after") + "</w:p>"},
        {"a deletion inside an insertion goes, the insertion's other content stays",
         {C::documentHistory},
         "<w:p><w:ins w:id=\"1\">" + run("a") + "<w:del w:id=\"2\">" + run("b") + "</w:del>" + run("c") +
             "</w:ins></w:p>",
         "<w:p>" + run("a") + run("c") + "</w:p>"},
        {"a run whose former formatting hid it stays",
         {C::documentHistory, C::commentsAnnotations},
         "<w:p><w:r><w:rPr><w:rPrChange w:id=\"1\"><w:rPr><w:vanish/></w:rPr></w:rPrChange></w:rPr><w:t>shown</w:t>"
         "</w:r></w:p>",
         "<w:p><w:r><w:rPr/><w:t>shown</w:t></w:r></w:p>"},
        {"old formatting snapshots go, current formatting stays",
         {C::documentHistory},
         "<w:p><w:pPr><w:jc w:val=\"center\"/><w:pPrChange w:id=\"4\" w:author=\"Ann\"><w:pPr/></w:pPrChange>"
         "</w:pPr><w:r><w:rPr><w:b/><w:rPrChange w:id=\"5\"><w:rPr><w:i/></w:rPr></w:rPrChange></w:rPr><w:t>x</w:t>"
         "</w:r></w:p>",
         "<w:p><w:pPr><w:jc w:val=\"center\"/></w:pPr><w:r><w:rPr><w:b/></w:rPr><w:t>x</w:t></w:r></w:p>"},
        {"comment anchors go",
         {C::commentsAnnotations},
         "<w:p><w:commentRangeStart w:id=\"0\"/>" + run("x") +
             "<w:commentRangeEnd w:id=\"0\"/><w:r><w:commentReference w:id=\"0\"/></w:r></w:p>",
         "<w:p>" + run("x") + "<w:r/></w:p>"},
        {"hidden runs go; a switched-off marker and a paragraph-mark marker go alone",
         {C::commentsAnnotations},
         "<w:p><w:pPr><w:rPr><w:vanish/></w:rPr></w:pPr><w:r><w:rPr><w:vanish w:val=\"FALSE\"/></w:rPr><w:t>shown</w:t>"
         "</w:r><w:r><w:rPr><w:vanish/></w:rPr><w:t>hidden</w:t></w:r><w:r><w:rPr><w:specVanish w:val=\"on\"/></w:rPr>"
         "<w:t>hidden too</w:t></w:r></w:p>",
         "<w:p><w:pPr><w:rPr/></w:pPr><w:r><w:rPr/><w:t>shown</w:t></w:r></w:p>"},
        {"runs and paragraphs of hiding styles go",
         {C::commentsAnnotations},
         "<w:p><w:pPr><w:pStyle w:val=\"Secret\"/></w:pPr>" + run("all gone") + "</w:p><w:p><w:r><w:rPr>"
         "<w:rStyle w:val=\"Ghost\"/></w:rPr><w:t>gone</w:t></w:r>" + run("kept") + "</w:p>",
         "<w:p>" + run("kept") + "</w:p>",
         {"Secret", "Ghost"}},
        {"hidden text stays without the comments category",
         {C::documentHistory},
         "<w:p><w:r><w:rPr><w:vanish/></w:rPr><w:t>hidden</w:t></w:r></w:p>",
         "<w:p><w:r><w:rPr><w:vanish/></w:rPr><w:t>hidden</w:t></w:r></w:p>"},
        {"dates go with timestamps",
         {C::timestamps},
         "<w:p><w:ins w:id=\"1\" w:author=\"Ann\" w:date=\"D\">" + run("x") + "</w:ins></w:p>",
         "<w:p><w:ins w:id=\"1\" w:author=\"Ann\">" + run("x") + "</w:ins></w:p>"},
        {"attributes are judged by local name in any namespace",
         {C::authorIdentity},
         "<w:p xmlns:o=\"urn:other\"><w:r o:author=\"Ann\" o:keep=\"1\"><w:t>x</w:t></w:r></w:p>",
         "<w:p xmlns:o=\"urn:other\"><w:r o:keep=\"1\"><w:t>x</w:t></w:r></w:p>"},
        {"a namespace declared on an unwrapped insertion is declared again where its content lands",
         {C::documentHistory},
         "<w:p><w:ins w:id=\"1\" xmlns:v=\"urn:v\"><v:shape v:id=\"s\"/></w:ins></w:p>",
         "<w:p><v:shape xmlns:v=\"urn:v\" v:id=\"s\"/></w:p>"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto out = S::scrubWordPart(document(c.body), profileOf(c.categories), c.vanishStyles);
        ASSERT_TRUE(out.has_value());
        EXPECT_EQ(canonicalXML(*out), canonicalXML(document(c.expected)));
    }
}

// The Word path merges walks for speed; it must give what the public steps give one by one,
// in their required order, for every combination of categories.
TEST(OfficeXMLScrubber, wordPathEqualsItsStepsInOrder) {
    const std::string mixed =
        "<w:rsids><w:rsid w:val=\"1\"/></w:rsids><w:p w:rsidR=\"1\"><w:pPr><w:pStyle w:val=\"Ghost\"/></w:pPr>" +
        run("styled") + "</w:p><w:p w:rsidR=\"2\"><w:pPr><w:rPr><w:vanish/><w:ins w:id=\"7\" w:author=\"A\"/>"
        "</w:rPr></w:pPr><w:commentRangeStart w:id=\"0\"/><w:ins w:id=\"1\" w:author=\"Ann\" w:date=\"D\">"
        "<w:r w:author=\"x\"><w:rPr><w:vanish w:val=\"off\"/><w:rPrChange w:date=\"D\"><w:rPr><w:vanish/></w:rPr>"
        "</w:rPrChange></w:rPr><w:t>in</w:t></w:r><w:del w:id=\"2\"><w:r><w:delText>x</w:delText></w:r></w:del></w:ins>"
        "<w:moveFromRangeStart w:id=\"3\"/><w:moveFrom>" + run("moved") + "</w:moveFrom><w:moveFromRangeEnd w:id=\"3\"/>"
        "<w:r><w:rPr><w:rStyle w:val=\"Ghost\"/></w:rPr><w:t>ghost</w:t></w:r><w:r><w:rPr><w:vanish/></w:rPr><w:t>h</w:t>"
        "</w:r><w:commentRangeEnd w:id=\"0\"/><w:r><w:commentReference w:id=\"0\"/></w:r></w:p>"
        "<cp:lastModifiedBy xmlns:cp=\"urn:cp\" cp:date=\"D\">Ann</cp:lastModifiedBy>";
    // Steps that change what a later step sees: a marker inside a revision table, ranges that
    // overlap and cross paragraphs, an unwrapped insertion that puts a second rPr first in a run,
    // hidden text inside deleted content.
    const std::string reaching =
        "<w:rsids><w:moveFromRangeStart w:id=\"4\"/></w:rsids><w:p>" + run("a") + "<w:moveFromRangeEnd w:id=\"4\"/>"
        "<w:moveFromRangeStart w:id=\"1\"/>" + run("b") + "<w:moveFromRangeStart w:id=\"2\"/><w:moveFromRangeEnd w:id=\"1\"/>" +
        run("c") + "</w:p><w:p><w:r><w:t>d</w:t><w:moveFromRangeEnd w:id=\"2\"/><w:t>e</w:t></w:r>"
        "<w:customXmlMoveFromRangeStart/>" + run("f") + "<w:customXmlMoveFromRangeEnd/><w:moveFromRangeStart/></w:p>"
        "<w:p><w:r><w:ins><w:rPr><w:rStyle w:val=\"Plain\"/></w:rPr></w:ins><w:rPr><w:rStyle w:val=\"Ghost\"/></w:rPr>"
        "<w:t>g</w:t></w:r><w:del><w:r><w:rPr><w:vanish/></w:rPr><w:t>h</w:t></w:r></w:del><w:ins>"
        "<w:r><w:rPr><w:vanish/></w:rPr><w:t>i</w:t></w:r></w:ins></w:p>";
    const std::set<std::string> styles = {"Ghost"};
    const std::vector<MetadataCategory> all = {C::documentHistory, C::authorIdentity, C::commentsAnnotations, C::timestamps};
    for (unsigned mask = 0; mask < 32; ++mask) {
        const std::string& body = mask < 16 ? mixed : reaching;
        std::set<MetadataCategory> categories;
        for (unsigned bit = 0; bit < 4; ++bit)
            if (mask & (1u << bit)) categories.insert(all[bit]);
        const auto profile = profileOf(categories);
        SCOPED_TRACE(mask);
        const std::string xml = document(body);
        XMLDocument doc(std::span(reinterpret_cast<const std::uint8_t*>(xml.data()), xml.size()));
        const auto root = *doc.rootElement();
        if (categories.count(C::documentHistory)) {
            S::stripRSIDAttributes(root);
            S::removeElements(root, S::NameSet{"rsids", "rsid"});
            if (categories.count(C::authorIdentity)) S::blankLastModifiedBy(root);
            S::acceptTrackedChanges(root);
        } else if (categories.count(C::authorIdentity)) {
            S::blankLastModifiedBy(root);
            S::stripAuthorshipAttributes(root);
        }
        if (categories.count(C::commentsAnnotations)) {
            S::removeElements(root, S::commentReferenceElementNames());
            S::removeHiddenTextRuns(root);
            S::removeStyleVanishRuns(root, styles);
        }
        if (categories.count(C::timestamps)) S::stripTimestampAttributes(root);
        doc.setCharacterEncoding("UTF-8");
        const auto bytes = doc.xmlData();
        const auto scrubbed = S::scrubWordPart(xml, profile, styles);
        ASSERT_TRUE(scrubbed);
        // Byte for byte: the one walk and the filtered parse change nothing in the output.
        EXPECT_EQ(*scrubbed, std::string(bytes.begin(), bytes.end()));
    }
}

TEST(OfficeXMLScrubber, treatsOddPrefixesAndUTF16PartsLikeAnyOther) {
    // A document whose prefix is x, bound to the word-processing namespace.
    const std::string odd = document("<x:p><x:ins x:id=\"1\"><x:r><x:t>in</x:t></x:r></x:ins><x:del x:id=\"2\"><x:r>"
                                     "<x:delText>out</x:delText></x:r></x:del></x:p>",
                                     "x");
    const auto out = S::scrubWordPart(odd, profileOf({C::documentHistory}), {});
    ASSERT_TRUE(out);
    EXPECT_EQ(canonicalXML(*out), canonicalXML(document("<x:p><x:r><x:t>in</x:t></x:r></x:p>", "x")));

    // UTF-16 without a byte order mark decodes first; its declaration is made honest.
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-16\"?>" +
                       document("<w:p><w:del w:id=\"1\"><w:r><w:delText>out</w:delText></w:r></w:del>" + run("in") + "</w:p>")
                           .substr(std::string("<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>").size());
    std::vector<std::uint8_t> utf16;
    for (char c : text) {
        utf16.push_back(static_cast<std::uint8_t>(c));
        utf16.push_back(0);
    }
    const auto decoded = OfficeTextEncoding::decodeXML(utf16);
    ASSERT_TRUE(decoded);
    const auto scrubbed = S::scrubWordPart(*decoded, profileOf({C::documentHistory}), {});
    ASSERT_TRUE(scrubbed);
    EXPECT_NE(scrubbed->find("encoding=\"UTF-8\""), std::string::npos);
    EXPECT_EQ(canonicalXML(*scrubbed), canonicalXML(document("<w:p>" + run("in") + "</w:p>")));
}

TEST(OfficeXMLScrubber, refusesPartsItCannotJudge) {
    const auto all = profileOf({C::documentHistory, C::authorIdentity, C::commentsAnnotations, C::timestamps});
    std::string deep;
    for (int i = 0; i < 5001; ++i) deep += "<a>";
    for (int i = 0; i < 5001; ++i) deep += "</a>";
    const std::vector<std::pair<const char*, std::string>> refused = {
        {"malformed", "<w:document xmlns:w=\"" + W + "\"><w:body></w:document>"},
        {"unbound element prefix", "<w:document><w:body><w:del><w:r/></w:del></w:body></w:document>"},
        {"unbound attribute prefix", "<document><p q:author=\"Ann\"/></document>"},
        {"too deep", deep},
        {"no root", "<?xml version=\"1.0\"?>"},
        {"entity declarations", "<!DOCTYPE d [<!ENTITY e \"x\">]><d>&e;</d>"},
        {"empty", ""},
    };
    for (const auto& [name, xml] : refused) {
        SCOPED_TRACE(name);
        EXPECT_FALSE(S::scrubWordPart(xml, all, {"S"}));
        EXPECT_FALSE(S::scrubGenericOfficePart(xml, all, true));
        EXPECT_FALSE(S::scrubIdentityFields(xml, true, true));
        EXPECT_FALSE(S::emptiedRevisionPart(xml));
        EXPECT_TRUE(S::vanishStyleIDs(xml).empty());
    }
}

TEST(OfficeXMLScrubber, genericPartsReachFurtherAndInAnotherOrder) {
    const auto historyAndIdentity = profileOf({C::documentHistory, C::authorIdentity});
    const std::string authored = document("<w:p><w:r w:author=\"Ann\"><w:t>a</w:t></w:r></w:p>");
    EXPECT_EQ(canonicalXML(*S::scrubGenericOfficePart(authored, historyAndIdentity, true)),
              canonicalXML(document("<w:p>" + run("a") + "</w:p>")));

    // The unwrap comes first here, and the inserted text still goes with its deletion.
    const std::string nested = document("<w:p><w:del><w:ins>" + run("gone") + "</w:ins></w:del>" + run("kept") + "</w:p>");
    EXPECT_EQ(canonicalXML(*S::scrubGenericOfficePart(nested, profileOf({C::documentHistory}), false)),
              canonicalXML(document("<w:p>" + run("kept") + "</w:p>")));

    // No range content removal on this path: the moved text survives, its markers go.
    const std::string moved = document("<w:p><w:moveFromRangeStart w:id=\"1\"/>" + run("moved") +
                                       "<w:moveFromRangeEnd w:id=\"1\"/></w:p><w:rsids><w:rsid w:val=\"1\"/></w:rsids>");
    EXPECT_EQ(canonicalXML(*S::scrubGenericOfficePart(moved, profileOf({C::documentHistory}), false)),
              canonicalXML(document("<w:p>" + run("moved") + "</w:p><w:rsids><w:rsid w:val=\"1\"/></w:rsids>")));

    // All comment element names, and hidden text only in word-processing parts.
    const std::string comments =
        "<p:cmLst xmlns:p=\"urn:p\"><p:cm authorId=\"1\"/></p:cmLst>";
    EXPECT_EQ(canonicalXML(*S::scrubGenericOfficePart("<root xmlns:p=\"urn:p\">" + comments + "<keep/></root>",
                                                      profileOf({C::commentsAnnotations}), false)),
              canonicalXML("<root xmlns:p=\"urn:p\"><keep/></root>"));
    const std::string hidden = document("<w:p><w:r><w:rPr><w:vanish/></w:rPr><w:t>h</w:t></w:r></w:p>");
    EXPECT_EQ(canonicalXML(*S::scrubGenericOfficePart(hidden, profileOf({C::commentsAnnotations}), true)),
              canonicalXML(document("<w:p/>")));
    EXPECT_EQ(canonicalXML(*S::scrubGenericOfficePart(hidden, profileOf({C::commentsAnnotations}), false)),
              canonicalXML(hidden));
}

TEST(OfficeXMLScrubber, blanksRostersAndIdentityElements) {
    const std::string people =
        "<w15:people xmlns:w15=\"urn:w15\"><w15:person w15:author=\"Ann Smith\" name=\"Ann\" other=\"1\">"
        "Ann's text<![CDATA[Ann Smith]]><w15:presenceInfo w15:providerId=\"AD\" w15:userId=\"ann@acme\"/>"
        "<name>kept name</name>"
        "</w15:person><dc:creator xmlns:dc=\"urn:dc\" dc:lang=\"en\" email=\"a@b\">Ann</dc:creator>"
        "<author role=\"x\">Bob</author><coauthor>Eve</coauthor><authorship>stays</authorship>"
        "<cp:lastModifiedBy xmlns:cp=\"urn:cp\">Ann</cp:lastModifiedBy><e date=\"D\" dt=\"D\" when=\"D\"/></w15:people>";
    const std::string expected =
        "<w15:people xmlns:w15=\"urn:w15\"><w15:person other=\"1\"><w15:presenceInfo/><name>kept name</name>"
        "</w15:person><dc:creator xmlns:dc=\"urn:dc\" dc:lang=\"en\">Ann</dc:creator>"
        "<author role=\"x\"></author><coauthor></coauthor><authorship>stays</authorship>"
        "<cp:lastModifiedBy xmlns:cp=\"urn:cp\"></cp:lastModifiedBy><e when=\"D\"/></w15:people>";
    const auto out = S::scrubIdentityFields(people, true, true);
    ASSERT_TRUE(out);
    EXPECT_EQ(canonicalXML(*out), canonicalXML(expected));
    EXPECT_EQ(out->find("Ann Smith"), std::string::npos) << "a name in CDATA goes as text does";

    // Dates alone: names stay.
    const auto datesOnly = S::scrubIdentityFields("<r><author date=\"D\" name=\"Ann\">Ann</author></r>", false, true);
    EXPECT_EQ(canonicalXML(*datesOnly), canonicalXML("<r><author name=\"Ann\">Ann</author></r>"));
}

TEST(OfficeXMLScrubber, emptiesRevisionPartsToTheirRoot) {
    const std::string log = "<headers xmlns=\"urn:x\" xmlns:r=\"urn:r\" guid=\"{1}\"><header guid=\"{2}\" "
                            "userName=\"Ann\" dateTime=\"D\"/><!-- note -->text</headers>";
    const auto out = S::emptiedRevisionPart(log);
    ASSERT_TRUE(out);
    EXPECT_EQ(canonicalXML(*out), canonicalXML("<headers xmlns=\"urn:x\" guid=\"{1}\"/>"));
    EXPECT_NE(out->find("xmlns:r=\"urn:r\""), std::string::npos);
    EXPECT_EQ(out->find("Ann"), std::string::npos);
}

TEST(OfficeXMLScrubber, findsHidingStylesThroughBasedOnChains) {
    const std::string styles =
        "<w:styles xmlns:w=\"" + W + "\">"
        "<w:style w:styleId=\"Hidden\"><w:rPr><w:vanish w:val=\"0\"/></w:rPr></w:style>"
        "<w:style w:styleId=\"Child\"><w:basedOn w:val=\"Hidden\"/></w:style>"
        "<w:style w:styleId=\"Grandchild\"><w:basedOn w:val=\"Child\"/><w:rPr><w:b/></w:rPr></w:style>"
        "<w:style w:styleId=\"LoopA\"><w:basedOn w:val=\"LoopB\"/></w:style>"
        "<w:style w:styleId=\"LoopB\"><w:basedOn w:val=\"LoopA\"/></w:style>"
        "<w:style w:styleId=\"Plain\"/><w:style><w:rPr><w:vanish/></w:rPr></w:style></w:styles>";
    EXPECT_EQ(S::vanishStyleIDs(styles), (std::set<std::string>{"Hidden", "Child", "Grandchild"}));
    EXPECT_TRUE(S::vanishStyleIDs(std::nullopt).empty());

    auto parsed = S::scrubWordPart(document("<w:p><w:pPr><w:pStyle w:val=\"Grandchild\"/></w:pPr>" + run("x") + "</w:p>"),
                                   profileOf({C::commentsAnnotations}), S::vanishStyleIDs(styles));
    ASSERT_TRUE(parsed);
    EXPECT_EQ(canonicalXML(*parsed), canonicalXML(document("")));
}

TEST(OfficeXMLScrubber, decidesOnOffValuesAndRangeSpans) {
    for (const char* off : {"0", "false", "FALSE", "Off", "no", "N"}) EXPECT_TRUE(S::isSTOnOffFalse(off)) << off;
    for (const char* on : {"1", "true", "on", "", "yes", "nope", " 0"}) EXPECT_FALSE(S::isSTOnOffFalse(on)) << on;

    const std::string markers =
        "<r><aStart id=\"1\"/><aStart/><aEnd/><aEnd id=\"1\"/><aEnd/><aStart id=\"2\"/><aStart/></r>";
    XMLDocument doc(std::span(reinterpret_cast<const std::uint8_t*>(markers.data()), markers.size()));
    const auto nodes = S::documentOrderNodes(*doc.rootElement());
    ASSERT_EQ(nodes.size(), 7u);
    const auto ranges = S::rangeSpans(nodes, "a");
    EXPECT_EQ(ranges.spans, (std::vector<std::pair<std::size_t, std::size_t>>{{1, 2}, {0, 3}}));
    EXPECT_EQ(ranges.unmatched, (std::vector<std::size_t>{5, 6}));
}

}  // namespace
}  // namespace tavrin
