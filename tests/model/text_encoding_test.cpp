#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "model/metadata_value.h"
#include "model/snapshot.h"
#include "model/text_encoding.h"

namespace tavrin {
namespace {

TEST(TextEncoding, illFormedUTF8BecomesReplacementCharacters) {
    struct Case {
        const char* name;
        std::string in;
        std::string out;
    };
    const std::string R = "\xEF\xBF\xBD";
    const std::vector<Case> cases = {
        {"plain ASCII", "Jane Example", "Jane Example"},
        {"valid accents and emoji", "Zo\xC3\xAB \xF0\x9F\x93\xB7", "Zo\xC3\xAB \xF0\x9F\x93\xB7"},
        {"UTF-16 byte order mark bytes", "\xFF\xFE", R + R},
        {"Latin-1 text", "Caf\xE9", "Caf" + R},
        {"truncated three-byte sequence", "a\xE2\x82", "a" + R},
        {"overlong slash", "\xC0\xAF", R + R},
        {"encoded surrogate", "\xED\xA0\x80", R + R + R},
        {"past U+10FFFF", "\xF4\x90\x80\x80", R + R + R + R},
        {"lone continuation", "\x80x", R + "x"},
        {"embedded NUL kept", std::string("a\0b", 3), std::string("a\0b", 3)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(validUTF8(c.in), c.out);
        EXPECT_TRUE(isValidUTF8(validUTF8(c.in)));
        EXPECT_EQ(isValidUTF8(c.in), c.in == c.out);
    }
}

TEST(TextEncoding, metadataTextIsValidUTF8AndSerialises) {
    const auto value = MetadataValue::string("\xFF\xFE");
    EXPECT_EQ(value.asString(), "\xEF\xBF\xBD\xEF\xBF\xBD");
    MetadataItem item{"Exif.\xFF", "Artist\xFF", "Artist\xFE", value, MetadataCategory::authorIdentity,
                      MetadataSource::imageIO, true};
    const auto text = nlohmann::json(item).dump();  // throws type_error 316 on invalid UTF-8
    EXPECT_TRUE(isValidUTF8(text));
}

TEST(TextEncoding, printableTextDisarmsTerminalControls) {
    struct Case {
        const char* name;
        std::string in;
        std::string out;
    };
    const std::vector<Case> cases = {
        {"window title and screen clear",
         "\x1b]2;owned\x07\x1b[2J  No metadata found.",
         "\\x1b]2;owned\\x07\\x1b[2J  No metadata found."},
        {"fake new line", "Jane\n  No metadata found.", "Jane\\x0a  No metadata found."},
        {"carriage return and tab", "a\rb\tc", "a\\x0db\\x09c"},
        {"delete", "a\x7f", "a\\x7f"},
        {"C1 control sequence introducer", "a\xC2\x9B" "2J", "a\\u009b2J"},
        {"right-to-left override", "photo\xE2\x80\xAEgpj.exe", "photo\\u202egpj.exe"},
        {"byte that is not UTF-8", "\xFFname.jpg", "\\xffname.jpg"},
        {"ordinary text untouched", "Zo\xC3\xAB \xE2\x80\x94 ok", "Zo\xC3\xAB \xE2\x80\x94 ok"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(printableText(c.in), c.out);
    }
}

TEST(TextEncoding, aFileNameThatIsNotUTF8RoundTripsThroughItsBase64Bytes) {
    for (const std::string name : {"/tmp/\xFFname.jpg", "/tmp/Caf\xE9.pdf", "/tmp/x\xC3.png", "/tmp/a\x80\x80\x80"}) {
        const std::filesystem::path path(name);
        const auto bytes = pathBytesBase64(path);
        ASSERT_TRUE(bytes) << name;
        EXPECT_EQ(base64Decode(*bytes), name);
        EXPECT_TRUE(isValidUTF8(pathText(path)));
    }
    EXPECT_FALSE(pathBytesBase64("/tmp/Zo\xC3\xAB.jpg"));
    EXPECT_EQ(pathText("/tmp/Zo\xC3\xAB.jpg"), "/tmp/Zo\xC3\xAB.jpg");
    EXPECT_THROW(base64Decode("abc"), std::invalid_argument);
    EXPECT_THROW(base64Decode("a*==" ), std::invalid_argument);
}

}  // namespace
}  // namespace tavrin
