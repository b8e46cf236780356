#include <gtest/gtest.h>

#include "model/metadata_model.h"

namespace tavrin {
namespace {

MetadataItem item(std::string id, MetadataCategory category, bool removable = true) {
    return MetadataItem{id, id.substr(id.find('.') + 1), id, MetadataValue::string("v"), category,
                        MetadataSource::imageIO, removable};
}

TEST(MetadataTree, groupsCategoriesInDeclaredOrderAndKeepsItemOrderInside) {
    using C = MetadataCategory;
    const std::vector<MetadataItem> items = {item("Exif.B", C::colorTechnical), item("GPS.Lat", C::location),
                                             item("Exif.A", C::colorTechnical), item("TIFF.Make", C::deviceInfo)};
    const auto tree = MetadataTree::build(items, "/x/a.jpg", FileType::jpeg);
    ASSERT_EQ(tree.rootNodes.size(), 3u);
    EXPECT_EQ(tree.rootNodes[0].id, "category.location");
    EXPECT_EQ(tree.rootNodes[1].id, "category.deviceInfo");
    EXPECT_EQ(tree.rootNodes[2].id, "category.colorTechnical");
    EXPECT_EQ(tree.rootNodes[2].label, "Color & Technical");
    ASSERT_EQ(tree.rootNodes[2].children.size(), 2u);
    EXPECT_EQ(tree.rootNodes[2].children[0].id, "Exif.B");
    EXPECT_EQ(tree.rootNodes[2].children[0].label, "Exif.B: v");
    EXPECT_TRUE(tree.rootNodes[2].children[0].isLeaf());
    EXPECT_TRUE(tree.rootNodes[2].isGroup());
    EXPECT_EQ(tree.totalItemCount(), 4u);
    EXPECT_EQ(tree.items(C::colorTechnical).size(), 2u);
    EXPECT_EQ(tree.presentCategories(), (std::vector<C>{C::location, C::deviceInfo, C::colorTechnical}));
}

TEST(MetadataTree, emptyItemListGivesEmptyTreeAndSummary) {
    const auto tree = MetadataTree::build({}, "/x/a.png", FileType::png);
    EXPECT_TRUE(tree.rootNodes.empty());
    EXPECT_EQ(MetadataSummary::from(tree), MetadataSummary::from(MetadataTree::empty("/x/a.png", FileType::png)));
}

TEST(MetadataSummary, ordersByPrivacyLevelThenDeclaredOrder) {
    using C = MetadataCategory;
    const auto tree = MetadataTree::build(
        {item("a.t", C::timestamps), item("a.l", C::location), item("a.c", C::colorTechnical),
         item("a.t2", C::timestamps), item("a.k", C::location, false)},
        "/x", FileType::jpeg);
    const auto summary = MetadataSummary::from(tree);
    EXPECT_EQ(summary.count(C::timestamps), 2);
    EXPECT_EQ(summary.count(C::location), 1);  // the structural item is not counted
    EXPECT_EQ(summary.totalRemovable(), 4);
    EXPECT_EQ(summary.presentCategories(), (std::vector<C>{C::location, C::timestamps, C::colorTechnical}));
    EXPECT_EQ(summary.topPrivacyLevel(), PrivacyLevel::critical);
}

TEST(MetadataSummary, onlyStructuralItemsMeansNothingRemovable) {
    const auto tree = MetadataTree::build({item("TIFF.Orientation", MetadataCategory::colorTechnical, false)}, "/x",
                                          FileType::jpeg);
    const auto summary = MetadataSummary::from(tree);
    EXPECT_TRUE(summary.removableCounts.empty());
    EXPECT_EQ(summary.totalRemovable(), 0);
    EXPECT_TRUE(summary.presentCategories().empty());
    EXPECT_FALSE(summary.topPrivacyLevel().has_value());
}

TEST(MetadataValue, casesStayDistinctAndDescribeThemselves) {
    EXPECT_NE(MetadataValue::integer(3), MetadataValue::number(3.0));
    EXPECT_EQ(MetadataValue::integer(3).doubleValue(), 3.0);
    EXPECT_EQ(MetadataValue::number(3.0).doubleValue(), 3.0);
    EXPECT_FALSE(MetadataValue::string("3").doubleValue());
    EXPECT_EQ(MetadataValue::string("x").stringValue(), "x");
    EXPECT_FALSE(MetadataValue::integer(1).stringValue());

    const std::vector<std::pair<MetadataValue, std::string>> cases = {
        {MetadataValue::string("text"), "text"},
        {MetadataValue::number(2.5), "2.5"},
        {MetadataValue::number(1e20), "1e+20"},
        {MetadataValue::integer(-42), "-42"},
        {MetadataValue::boolean(true), "Yes"},
        {MetadataValue::boolean(false), "No"},
        {MetadataValue::data({}), "0 bytes"},
        {MetadataValue::data({1, 2, 3}), "3 bytes"},
        {MetadataValue::array({MetadataValue::null()}), "[1 items]"},
        {MetadataValue::dictionary({{"a", MetadataValue::integer(1)}, {"b", MetadataValue::null()}}), "{2 entries}"},
        {MetadataValue::null(), "\u2014"},
    };
    for (const auto& [value, text] : cases) EXPECT_EQ(value.description(), text);
}

TEST(MetadataItem, equalityAndHashTakeEveryField) {
    const MetadataItem a = item("GPS.Latitude", MetadataCategory::location);
    MetadataItem b = a;
    EXPECT_EQ(a, b);
    EXPECT_EQ(std::hash<MetadataItem>{}(a), std::hash<MetadataItem>{}(b));
    b.isRemovable = false;
    EXPECT_NE(a, b);
    b = a;
    b.value = MetadataValue::string("w");
    EXPECT_NE(a, b);
}

TEST(MetadataCategory, tableValuesAndRawRoundTrip) {
    EXPECT_EQ(displayName(MetadataCategory::hiddenContent), "Hidden & Orphaned Content");
    EXPECT_EQ(privacyLevel(MetadataCategory::colorTechnical), PrivacyLevel::low);
    for (auto c : metadataCategories::allCases()) EXPECT_EQ(metadataCategoryFromRawValue(rawValue(c)), c);
    EXPECT_FALSE(metadataCategoryFromRawValue("Location"));
}

}  // namespace
}  // namespace tavrin
