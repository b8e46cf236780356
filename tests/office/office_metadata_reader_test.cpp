// The Office reader: the three property parts as items of the right kind, order and flags,
// followed by the detectors' findings; the property rules on odd parts; the refusals.
#include <gtest/gtest.h>

#include <ctime>
#include <map>

#include "../zip/raw_zip_builder.h"
#include "model/pipeline_error.h"
#include "office/office_metadata_reader.h"
#include "office_fixtures.h"
#include "support/test_support.h"
#include "zip/archive_error.h"

namespace tavrin {
namespace {

using testing::OfficeKind;
using C = MetadataCategory;
using R = OfficeMetadataReader;

std::span<const std::uint8_t> bytesOf(const std::string& text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

MetadataValue date(int y, int mo, int d, int h, int mi, int s, int ms = 0) {
    std::tm tm{};
    tm.tm_year = y - 1900;
    tm.tm_mon = mo - 1;
    tm.tm_mday = d;
    tm.tm_hour = h;
    tm.tm_min = mi;
    tm.tm_sec = s;
    return MetadataValue::date(std::chrono::system_clock::from_time_t(timegm(&tm)) + std::chrono::milliseconds(ms));
}

TEST(OfficeMetadataReader, readsThePropertyPartsThenTheFindings) {
    testing::TempDir dir;
    const auto path = dir / "dirty.docx";
    testing::dirtyPackage(OfficeKind::docx).write(path);
    const auto items = R().readMetadata(path).allItems();

    struct Expected {
        const char* id;
        MetadataValue value;
        C category;
        bool removable = true;
    };
    const std::vector<Expected> expected = {
        {"Core.Creator", MetadataValue::string("Jane Roe"), C::authorIdentity},
        {"Core.Title", MetadataValue::string("Merger plan"), C::authorIdentity},
        {"Core.Revision", MetadataValue::integer(7), C::documentHistory},
        {"Core.Language", MetadataValue::string("en-GB"), C::softwareInfo},
        {"Core.Created", date(2024, 1, 2, 3, 4, 5), C::timestamps},
        {"Core.Modified", date(2024, 3, 5, 14, 2, 9, 250), C::timestamps},
        {"Core.LastPrinted", date(2024, 2, 1, 10, 0, 0), C::timestamps},
        {"App.Pages", MetadataValue::integer(12), C::documentHistory, false},
        {"Custom.ClientName", MetadataValue::string("Globex Corporation"), C::companyInfo},
        {"Custom.Approved", MetadataValue::boolean(true), C::companyInfo},
        {"Custom.Budget", MetadataValue::number(1250000.5), C::companyInfo},
        {"Custom.DocumentNumber", MetadataValue::string("x"), C::companyInfo},
        {"Custom.ReviewDate", date(2024, 4, 1, 9, 0, 0), C::companyInfo},
    };
    std::map<std::string, std::size_t> position;
    for (std::size_t i = 0; i < items.size(); ++i) position.emplace(items[i].id, i);
    for (const auto& e : expected) {
        SCOPED_TRACE(e.id);
        ASSERT_TRUE(position.count(e.id));
        const MetadataItem& item = items[position[e.id]];
        EXPECT_EQ(item.key, item.id);
        EXPECT_EQ(item.value, e.value) << item.value.description();
        EXPECT_EQ(item.category, e.category);
        EXPECT_EQ(item.isRemovable, e.removable);
        EXPECT_EQ(item.source, MetadataSource::zipXML);
    }
    EXPECT_FALSE(position.count("Custom.")) << "a nameless custom property is skipped";
    // Core, then app, then custom properties, then what the detectors found.
    EXPECT_LT(position["Core.Language"], position["App.Pages"]);
    EXPECT_LT(position["App.Pages"], position["Custom.ClientName"]);
    std::size_t firstFinding = items.size();
    for (std::size_t i = 0; i < items.size(); ++i)
        if (items[i].category == C::hiddenContent) firstFinding = std::min(firstFinding, i);
    ASSERT_LT(firstFinding, items.size()) << "the macro, object and custom XML findings are listed";
    EXPECT_GT(firstFinding, position["Custom.ReviewDate"]);
}

TEST(OfficeMetadataReader, appliesThePropertyRulesToOddParts) {
    const std::string core = "<cp:coreProperties xmlns:cp=\"urn:c\" xmlns:dc=\"urn:d\">";
    struct Case {
        const char* name;
        std::string xml;
        std::vector<std::pair<std::string, MetadataValue>> items;
    };
    const std::vector<Case> cases = {
        {"an empty creator gives no item; the first of two titles counts; a numeric title is an integer",
         core + "<dc:creator></dc:creator><dc:title>2024</dc:title><dc:title>second</dc:title></cp:coreProperties>",
         {{"Core.Title", MetadataValue::integer(2024)}}},
        {"elements are found by local name at any depth and under any prefix",
         core + "<x:wrap xmlns:x=\"urn:x\"><q:creator xmlns:q=\"urn:q\">Deep <b>Name</b></q:creator></x:wrap>"
                "</cp:coreProperties>",
         {{"Core.Creator", MetadataValue::string("Deep Name")}}},
        {"a year the clock cannot hold stays text",
         core + "<dcterms:created xmlns:dcterms=\"urn:t\">3020-01-01T00:00:00Z</dcterms:created></cp:coreProperties>",
         {{"Core.Created", MetadataValue::string("3020-01-01T00:00:00Z")}}},
        {"a date that is no date stays text, untrimmed",
         core + "<dcterms:created xmlns:dcterms=\"urn:t\">yesterday </dcterms:created></cp:coreProperties>",
         {{"Core.Created", MetadataValue::string("yesterday ")}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto items = R::parseCoreXML(bytesOf(c.xml));
        ASSERT_EQ(items.size(), c.items.size());
        for (std::size_t i = 0; i < items.size(); ++i) {
            EXPECT_EQ(items[i].id, c.items[i].first);
            EXPECT_EQ(items[i].value, c.items[i].second) << items[i].value.description();
        }
    }
    const auto custom = R::parseCustomXML(bytesOf(
        "<Properties xmlns:vt=\"urn:v\"><property name=\"Plain\">text</property>"
        "<property><vt:lpwstr>no name</vt:lpwstr></property>"
        "<property name=\"Flag\"><vt:bool>1</vt:bool></property>"
        "<property name=\"Big\"><vt:ui8>+18446744073709551615</vt:ui8></property></Properties>"));
    ASSERT_EQ(custom.size(), 3u);
    EXPECT_EQ(custom[0].value, MetadataValue::string("text"));
    EXPECT_EQ(custom[1].value, MetadataValue::boolean(true));
    EXPECT_EQ(custom[2].value, MetadataValue::string("+18446744073709551615")) << "beyond a 64-bit integer";
}

TEST(OfficeMetadataReader, refusesPackagesItCannotRead) {
    testing::TempDir dir;
    const auto withCore = [&](const char* name, std::string core) {
        auto package = testing::minimalPackage(OfficeKind::docx);
        package.add("docProps/core.xml", std::move(core));
        package.write(dir / name);
        return dir / name;
    };
    const auto message = [](const std::filesystem::path& path) -> std::string {
        try {
            R().readMetadata(path);
        } catch (const std::exception& e) {
            return e.what();
        }
        return "read";
    };
    testing::writeFile(dir / "text.docx", "plain text, no archive");
    EXPECT_NE(message(dir / "text.docx").find("Unable to open Office document as ZIP archive"), std::string::npos);
    EXPECT_EQ(message(withCore("broken.docx", "<cp:coreProperties>")).rfind("Failed to parse core.xml: ", 0), 0u);

    // A small entry that inflates to a million empty elements is refused before a tree is built.
    std::string bomb = "<cp:coreProperties xmlns:cp=\"urn:c\">";
    for (int i = 0; i < 1'000'000; ++i) bomb += "<a/>";
    EXPECT_EQ(message(withCore("bomb.docx", bomb + "</cp:coreProperties>")),
              "Failed to parse core.xml: The part holds more than 100000 elements");

    // A property part whose data fails its checksum ends the read with the archive's error.
    testing::writeFile(dir / "crc.docx",
                       testing::buildRawZip({{.name = "[Content_Types].xml", .data = "<Types/>"},
                                             {.name = "docProps/core.xml", .data = "<c/>", .deflate = true, .crc = 0x12345678u}}));
    EXPECT_NE(message(dir / "crc.docx").find("checksum"), std::string::npos) << message(dir / "crc.docx");

    // Without property parts the tree holds only what the detectors find: here nothing.
    testing::minimalPackage(OfficeKind::xlsx).write(dir / "bare.xlsx");
    EXPECT_EQ(R().readMetadata(dir / "bare.xlsx").totalItemCount(), 0u);
}

}  // namespace
}  // namespace tavrin
