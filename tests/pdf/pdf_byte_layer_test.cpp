#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "pdf/pdf_byte_layer.h"
#include "support/test_support.h"

namespace tavrin::pdfBytes {
namespace {

using tavrin::testing::TempDir;

ByteView view(const std::string& s) { return {reinterpret_cast<const std::uint8_t*>(s.data()), s.size()}; }

std::optional<ParsedTrailer> trailerOf(const std::string& file) { return parseTrailer(view(file), file.size()); }

const std::string simpleTrailer =
    "xref\n0 1\n0000000000 65535 f \ntrailer\n<< /Size 12 /Root 1 0 R /Info 7 0 R >>\nstartxref\n987\n%%EOF\n";

TEST(PDFTrailer, readsRootInfoSizeAndPreviousOffsetAndRefusesMalformedTrailers) {
    auto t = trailerOf(simpleTrailer);
    ASSERT_TRUE(t);
    EXPECT_EQ(t->prevStartxref, "987");
    EXPECT_EQ(t->rootRef, "1 0 R");
    EXPECT_EQ(t->size, 12);
    EXPECT_EQ(t->infoRef, (ObjectReference{7, 0}));
    EXPECT_TRUE(t->endsWithNewline);

    struct Case {
        const char* name;
        std::string file;
        bool parses;
        bool hasInfo;
    };
    const std::vector<Case> cases = {
        {"no startxref", "trailer << /Size 3 /Root 1 0 R >>\n%%EOF", false, false},
        {"startxref but no trailer", "xref\nstartxref\n10\n%%EOF", false, false},
        {"no digits behind startxref", "trailer << /Size 3 /Root 1 0 R >>\nstartxref\n%%EOF", false, false},
        {"trailer after startxref", "startxref\n10\ntrailer << /Size 3 /Root 1 0 R >>", false, false},
        {"size zero", "trailer << /Size 0 /Root 1 0 R >>\nstartxref\n10\n", false, false},
        {"no size", "trailer << /Root 1 0 R >>\nstartxref\n10\n", false, false},
        {"no root", "trailer << /Size 4 >>\nstartxref\n10\n", false, false},
        {"root not a reference", "trailer << /Size 4 /Root 1 >>\nstartxref\n10\n", false, false},
        {"direct info", "trailer << /Size 4 /Root 1 0 R /Info << /Author (x) >> >>\nstartxref\n10\n", true, false},
        {"info ok, carriage return ending", "trailer << /Size 4 /Root 1 0 R /Info 3 0 R >>\nstartxref\n10\r", true,
         true},
    };
    for (const auto& c : cases) {
        auto t = trailerOf(c.file);
        EXPECT_EQ(t.has_value(), c.parses) << c.name;
        if (t) {
            EXPECT_EQ(t->infoRef.has_value(), c.hasInfo) << c.name;
            EXPECT_FALSE(t->endsWithNewline && c.file.back() != '\n') << c.name;
        }
    }
}

TEST(PDFTrailer, usesOnlyTheLast64KiB) {
    TempDir dir;
    std::string file = "%PDF-1.4\n" + simpleTrailer + std::string(70000, ' ');
    tavrin::testing::writeFile(dir / "far.pdf", file);
    EXPECT_FALSE(parseTrailer(dir / "far.pdf"));
    tavrin::testing::writeFile(dir / "near.pdf", "%PDF-1.4\n" + std::string(70000, ' ') + simpleTrailer);
    EXPECT_TRUE(parseTrailer(dir / "near.pdf"));
}

TEST(PDFInfoUpdate, buildsAnObjectAndATrailerChainedToThePreviousSection) {
    ParsedTrailer t{"987", "1 0 R", ObjectReference{7, 0}, 12, 1000, true};
    auto update = makeInfoOverrideUpdate(t, {});
    ASSERT_TRUE(update);
    const std::string text(update->begin(), update->end());
    const std::string object = "12 0 obj\n<< >>\nendobj\n";
    EXPECT_EQ(text.rfind(object, 0), 0u);
    EXPECT_NE(text.find("xref\n0 1\n0000000000 65535 f \n12 1\n0000001000 00000 n \n"), std::string::npos);
    EXPECT_NE(text.find("trailer\n<< /Size 13 /Root 1 0 R /Info 12 0 R /Prev 987 >>\n"), std::string::npos);
    EXPECT_NE(text.find("startxref\n" + std::to_string(1000 + object.size()) + "\n%%EOF\n"), std::string::npos);
}

TEST(PDFInfoUpdate, countsTheAddedNewlineInEveryOffset) {
    ParsedTrailer t{"5", "1 0 R", std::nullopt, 3, 200, false};
    auto update = makeInfoOverrideUpdate(t, {{"Author", "<FEFF0041>"}});
    ASSERT_TRUE(update);
    const std::string text(update->begin(), update->end());
    EXPECT_EQ(text.rfind("\n3 0 obj\n<< /Author <FEFF0041> >>\nendobj\n", 0), 0u);
    EXPECT_NE(text.find("0000000201 00000 n \n"), std::string::npos);
}

TEST(PDFInfoUpdate, encodesValuesAsTheUpdateWritesThem) {
    using namespace std::chrono;
    const Date date = sys_days{year{2024} / 3 / 5} + hours{14} + minutes{2} + seconds{9};
    const std::vector<std::pair<MetadataValue, std::optional<std::string>>> cases = {
        {MetadataValue::string("Ab"), "<FEFF00410062>"},
        {MetadataValue::string("\xC3\xA9"), "<FEFF00E9>"},
        {MetadataValue::string("\xF0\x9F\x98\x80"), "<FEFFD83DDE00>"},
        {MetadataValue::string(""), "<FEFF>"},
        {MetadataValue::date(date), "(D:20240305140209+00'00')"},
        {MetadataValue::array({MetadataValue::string("a"), MetadataValue::string("b")}), "<FEFF0061002C00200062>"},
        {MetadataValue::integer(3), std::nullopt},
        // A value's text is made valid UTF-8 when the value is made.
        {MetadataValue::string("\xFF"), "<FEFFFFFD>"},
    };
    for (const auto& [value, encoded] : cases) EXPECT_EQ(encodePDFInfoValue(value), encoded) << value.description();
}

TEST(PDFInfoBlanking, findsOnlyBoundedObjectHeaders) {
    const std::vector<std::pair<std::string, std::optional<std::size_t>>> cases = {
        {"7 0 obj << >>", 0},         {"x 7 0 obj <<>> 7 0 obj<<>>", 15}, {"17 0 obj << >>", std::nullopt},
        {"/7 0 obj << >>", std::nullopt}, {"7 0 objx", std::nullopt},     {"7  0 obj", std::nullopt},
        {"7 1 obj", std::nullopt},
    };
    for (const auto& [data, offset] : cases) EXPECT_EQ(lastObjectHeaderOffset(7, 0, view(data)), offset) << data;
}

TEST(PDFInfoBlanking, closesDictionariesPastStringsAndNestedDictionaries) {
    // The index of the closing ">>", counted from the data start.
    const std::vector<std::pair<std::string, std::optional<std::size_t>>> cases = {
        {"<< /A (x>>y) >>", 13}, {"<< /A << /B 1 >> /C <41> >>", 25}, {"<< /A (a\\)b) >>", 13}, {"<< >>", 3},
        {"<< /A 1 > >>", std::nullopt}, {"<< /A (unterminated >>", std::nullopt}, {"<< /A <4142 >>", std::nullopt},
    };
    for (const auto& [data, expected] : cases) {
        const std::string object = "1 0 obj " + data;
        const auto bytes = view(object);
        auto open = indexOfDictionaryOpen(bytes, 0);
        ASSERT_TRUE(open) << data;
        auto close = indexOfMatchingDictionaryClose(bytes, *open + 2);
        EXPECT_EQ(close ? std::optional(*close - 8) : std::nullopt, expected) << data;
    }
    EXPECT_FALSE(indexOfDictionaryOpen(view("1 0 obj [1 2]"), 0));
    EXPECT_FALSE(indexOfDictionaryOpen(view("1 0 " + std::string(80, ' ') + "obj <<"), 0));
}

TEST(PDFInfoBlanking, blanksTheLastRevisionOfTheInfoObjectInPlace) {
    TempDir dir;
    const std::string body = "%PDF-1.4\n7 0 obj\n<< /Author (Old) >>\nendobj\n7 0 obj\n<< /Author (New (x)) >>\nendobj\n";
    const std::string file = body + "trailer\n<< /Size 8 /Root 1 0 R /Info 7 0 R >>\nstartxref\n9\n%%EOF\n";
    tavrin::testing::writeFile(dir / "a.pdf", file);
    ASSERT_TRUE(neutralizeSupersededInfoObject(dir / "a.pdf"));
    const std::string after = tavrin::testing::readFile(dir / "a.pdf");
    EXPECT_EQ(after.size(), file.size());
    EXPECT_NE(after.find("(Old)"), std::string::npos);  // an older revision is the forensic scan's job
    EXPECT_EQ(after.find("New"), std::string::npos);
    EXPECT_NE(after.find("7 0 obj\n<<" + std::string(19, ' ') + ">>"), std::string::npos);
}

TEST(PDFInfoBlanking, failsWhenTheInfoObjectCannotBeFound) {
    TempDir dir;
    tavrin::testing::writeFile(dir / "a.pdf", "%PDF-1.4\ntrailer\n<< /Size 8 /Root 1 0 R /Info 7 0 R >>\nstartxref\n9\n");
    EXPECT_FALSE(neutralizeSupersededInfoObject(dir / "a.pdf"));
    tavrin::testing::writeFile(dir / "b.pdf", "%PDF-1.4\ntrailer\n<< /Size 8 /Root 1 0 R >>\nstartxref\n9\n");
    EXPECT_TRUE(neutralizeSupersededInfoObject(dir / "b.pdf"));
}

TEST(PDFStringDecoding, decodesLiteralEscapes) {
    using namespace std::string_literals;
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"(a\\)b)", "a)b"},
        {"(a(b)c)", "a(b)c"},
        {"(line\\\ncontinued)", "linecontinued"},
        {"(cr\\\r\nlf)", "crlf"},
        {"(\\053)", "+"},
        {"(\\53x)", "+x"},
        {"(\\777)", "\xC3\xBF"},
        {"(\\n\\t\\q)", "\n\tq"},
        {"(\x95)", "\xC5\x81"},  // PDFDocEncoding: Ł
        {"(\xFE\xFF\x00\x41)"s, "A"},
        {"(\xFE\xFF\x41)", "\xC3\xBE\xC3\xBF" "A"},  // odd UTF-16 falls back to one scalar per byte
    };
    for (const auto& [literal, decoded] : cases) {
        auto s = decodeLiteralString(view(literal), 0);
        ASSERT_TRUE(s) << literal;
        EXPECT_EQ(s->value, decoded) << literal;
        EXPECT_EQ(s->after, literal.size()) << literal;
    }
    EXPECT_FALSE(decodeLiteralString(view("(open"), 0));
    EXPECT_FALSE(decodeLiteralString(view("(ends\\"), 0));
}

TEST(PDFStringDecoding, decodesHexStrings) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"<414>", "A@"}, {"<41 4 2zz>", "AB"}, {"<FEFF00e9>", "\xC3\xA9"}, {"<>", ""}};
    for (const auto& [hex, decoded] : cases) {
        auto s = decodeHexString(view(hex), 0);
        ASSERT_TRUE(s) << hex;
        EXPECT_EQ(s->value, decoded) << hex;
    }
    EXPECT_FALSE(decodeHexString(view("<4142"), 0));
}

TEST(PDFStringDecoding, scansStringsOutsideStreamBodiesOnly) {
    const std::string file =
        "1 0 obj << /A (one) /B <74776F> >> endobj\n"
        "2 0 obj << /Length 9 >> stream\n(hidden)\nendstream endobj\n"
        "3 0 obj << /Filter /downstream (three) >> endobj\n";
    auto strings = decodedObjectStrings(view(file));
    ASSERT_TRUE(strings);
    EXPECT_EQ(*strings, (std::vector<std::string>{"one", "two", "three"}));
}

TEST(PDFStringDecoding, staysLinearOnUnclosedOpenings) {
    const std::string parens(200000, '(');
    EXPECT_FALSE(decodedObjectStrings(view(parens)));  // refuses rather than running for minutes
    std::string angles;
    for (int i = 0; i < 100000; ++i) angles += "<a";
    EXPECT_TRUE(decodedObjectStrings(view(angles)));
}

}  // namespace
}  // namespace tavrin::pdfBytes
