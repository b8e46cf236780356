#include <gtest/gtest.h>

#include "model/cleaning_profile.h"
#include "model/snapshot.h"

namespace tavrin {
namespace {

using nlohmann::json;

TEST(Snapshot, valueFormsHaveOneCaseKeyAroundUnderscoreZero) {
    const std::vector<std::pair<MetadataValue, json>> cases = {
        {MetadataValue::string("text"), json::parse(R"({"string":{"_0":"text"}})")},
        {MetadataValue::number(1.5), json::parse(R"({"number":{"_0":1.5}})")},
        {MetadataValue::integer(7), json::parse(R"({"integer":{"_0":7}})")},
        {MetadataValue::boolean(true), json::parse(R"({"bool":{"_0":true}})")},
        {MetadataValue::data({'M', 'a', 'n'}), json::parse(R"({"data":{"_0":"TWFu"}})")},
        {MetadataValue::data({'M', 'a'}), json::parse(R"({"data":{"_0":"TWE="}})")},
        {MetadataValue::null(), json::parse(R"({"null":{}})")},
        {MetadataValue::array({MetadataValue::integer(1)}), json::parse(R"({"array":{"_0":[{"integer":{"_0":1}}]}})")},
        {MetadataValue::dictionary({{"k", MetadataValue::string("v")}}),
         json::parse(R"({"dictionary":{"_0":{"k":{"string":{"_0":"v"}}}}})")},
        // Dates count seconds from 2001-01-01 UTC.
        {MetadataValue::date(Date(std::chrono::seconds(978307200 + 60))), json::parse(R"({"date":{"_0":60.0}})")},
    };
    for (const auto& [value, expected] : cases) {
        EXPECT_EQ(json(value), expected) << expected.dump();
        EXPECT_EQ(expected.get<MetadataValue>(), value) << expected.dump();
    }
}

TEST(Snapshot, malformedValuesAreRejected) {
    for (const char* text : {R"({})", R"({"string":{"_0":"a"},"integer":{"_0":1}})", R"({"string":{}})",
                             R"({"nonsense":{"_0":1}})", R"({"data":{"_0":"@@@@"}})", R"("plain")",
                             R"({"date":{"_0":1e10}})", R"({"date":{"_0":-1e10}})"}) {
        EXPECT_THROW(json::parse(text).get<MetadataValue>(), json::exception) << text;
    }
}

TEST(Snapshot, treeRoundTripsWithExactKeys) {
    const MetadataItem gps{"GPS.Latitude", "Latitude", "Latitude", MetadataValue::number(48.8),
                           MetadataCategory::location, MetadataSource::imageIO, true};
    const auto tree = MetadataTree::build({gps}, "/tmp/a b.jpg", FileType::jpeg);
    const json j = tree;
    EXPECT_EQ(j["fileType"], "jpeg");
    EXPECT_EQ(j["sourceURL"], "file:///tmp/a%20b.jpg");
    const json& group = j["rootNodes"][0];
    EXPECT_FALSE(group.contains("item"));  // absent optionals are left out
    EXPECT_EQ(group["category"], "location");
    const json& leaf = group["children"][0];
    EXPECT_EQ(leaf["item"]["category"], "location");
    EXPECT_EQ(leaf["item"]["source"], "imageIO");
    EXPECT_EQ(leaf["item"]["isRemovable"], true);
    for (const char* key : {"id", "key", "displayName", "value", "category", "source", "isRemovable"})
        EXPECT_TRUE(leaf["item"].contains(key)) << key;
    EXPECT_EQ(j.get<MetadataTree>(), tree);

    const MetadataSummary summary = MetadataSummary::from(tree);
    EXPECT_EQ(json(summary), json::parse(R"({"removableCounts":{"location":1}})"));
    EXPECT_EQ(json(summary).get<MetadataSummary>(), summary);
}

TEST(Snapshot, profileWithoutLinkOptionsKeepsEveryLink) {
    const auto profile = json::parse(R"({"name":"Old","categoriesToRemove":["location"],
        "specificKeysToRemove":["GPS.Altitude"],"specificKeysToKeep":[]})").get<CleaningProfile>();
    EXPECT_EQ(profile.pdfLinkPreservation, PDFLinkPreservationOptions::preserveAll());
    EXPECT_EQ(profile.categoriesToRemove, std::set<MetadataCategory>{MetadataCategory::location});

    const auto partial = json::parse(R"({"name":"P","categoriesToRemove":[],"specificKeysToRemove":[],
        "specificKeysToKeep":[],"pdfLinkPreservation":{"preserveNavigation":false}})").get<CleaningProfile>();
    EXPECT_FALSE(partial.pdfLinkPreservation.preserveNavigation);
    EXPECT_TRUE(partial.pdfLinkPreservation.preserveExternalHyperlinks);

    EXPECT_EQ(json(CleaningProfile::clientDeliverable()).get<CleaningProfile>(), CleaningProfile::clientDeliverable());
    EXPECT_THROW(json::parse(R"({"name":"N","categoriesToRemove":[]})").get<CleaningProfile>(), json::exception);
    EXPECT_THROW(json::parse(R"({"name":"N","categoriesToRemove":["gps"],"specificKeysToRemove":[],
        "specificKeysToKeep":[]})").get<CleaningProfile>(), json::exception);
}

}  // namespace
}  // namespace tavrin
