#include <gtest/gtest.h>

#include "model/cleaning_profile.h"

namespace tavrin {
namespace {

using C = MetadataCategory;

MetadataItem item(std::string prefix, std::string key, C category, bool removable = true) {
    return MetadataItem{prefix + "." + key, key, key, MetadataValue::null(), category, MetadataSource::imageIO, removable};
}

TEST(CleaningProfile, decisionTableInOrder) {
    struct Row {
        const char* what;
        std::set<C> categories;
        std::set<std::string> remove, keep;
        MetadataItem item;
        bool removed;
    };
    const auto gps = item("GPS", "Latitude", C::location);
    const std::vector<Row> rows = {
        {"category listed", {C::location}, {}, {}, gps, true},
        {"category not listed", {C::timestamps}, {}, {}, gps, false},
        {"non-removable never goes", {C::location}, {"GPS.Latitude"}, {}, item("GPS", "Latitude", C::location, false), false},
        {"keep by id beats category", {C::location}, {}, {"GPS.Latitude"}, gps, false},
        {"keep by bare key beats category", {C::location}, {}, {"Latitude"}, gps, false},
        {"keep beats remove", {}, {"GPS.Latitude"}, {"Latitude"}, gps, false},
        {"remove by id beats category", {}, {"GPS.Latitude"}, {}, gps, true},
        {"remove by bare key", {}, {"Latitude"}, {}, gps, true},
        {"keys are case-sensitive", {}, {"gps.latitude"}, {}, gps, false},
    };
    for (const auto& r : rows) {
        CleaningProfile p{"t", r.categories, r.remove, r.keep, {}};
        EXPECT_EQ(p.shouldRemove(r.item), r.removed) << r.what;
    }
}

TEST(CleaningProfile, mergingUnitesSetsAndKeepsOnlyCommonLinks) {
    CleaningProfile a{"A", {C::location}, {"x"}, {"k1"}, PDFLinkPreservationOptions::preserveAll()};
    CleaningProfile b{"B", {C::timestamps}, {"y"}, {"k2"}, {false, false}};
    const auto m = a.merging(b);
    EXPECT_EQ(m.name, "A + B");
    EXPECT_EQ(m.categoriesToRemove, (std::set<C>{C::location, C::timestamps}));
    EXPECT_EQ(m.specificKeysToRemove, (std::set<std::string>{"x", "y"}));
    EXPECT_EQ(m.specificKeysToKeep, (std::set<std::string>{"k1", "k2"}));
    EXPECT_FALSE(m.pdfLinkPreservation.preserveNavigation);
    EXPECT_FALSE(m.pdfLinkPreservation.preserveExternalHyperlinks);
    CleaningProfile c{"C", {}, {}, {}, {true, false}};
    EXPECT_EQ(a.merging(c).pdfLinkPreservation, (PDFLinkPreservationOptions{true, false}));
}

TEST(CleaningProfile, presetNames) {
    EXPECT_EQ(CleaningProfile::from("STANDARD-SHARING").name, "Standard Sharing");
    EXPECT_EQ(CleaningProfile::from("client-deliverable"), CleaningProfile::clientDeliverable());
    EXPECT_EQ(CleaningProfile::from("location-only"), CleaningProfile::locationOnly());
    EXPECT_EQ(CleaningProfile::from(""), CleaningProfile::maximumPrivacy());
    EXPECT_EQ(CleaningProfile::from("nonsense"), CleaningProfile::maximumPrivacy());
    for (auto category : metadataCategories::allCases())
        EXPECT_TRUE(CleaningProfile::maximumPrivacy().categoriesToRemove.count(category)) << rawValue(category);
    EXPECT_FALSE(CleaningProfile::clientDeliverable().categoriesToRemove.count(C::location));
    EXPECT_FALSE(CleaningProfile::clientDeliverable().categoriesToRemove.count(C::timestamps));
    EXPECT_TRUE(CleaningProfile::isPresetName("Location-Only"));
    EXPECT_FALSE(CleaningProfile::isPresetName("location_only"));
}

TEST(CleaningProfile, retainingDocumentHistory) {
    CleaningProfile plain{"P", {C::location}, {"GPS.Altitude"}, {}, {}};
    const auto [same, retained] = plain.retainingDocumentHistory();
    EXPECT_FALSE(retained);
    EXPECT_EQ(same, plain);

    CleaningProfile history{"H", {C::documentHistory, C::authorIdentity},
                            {"App.TotalTime", "Core.revision", "XMP.xmpMM:History", "GPS.Altitude", "Revision"},
                            {"keep"}, {false, true}};
    const auto [variant, changed] = history.retainingDocumentHistory();
    EXPECT_TRUE(changed);
    EXPECT_EQ(variant.categoriesToRemove, std::set<C>{C::authorIdentity});
    // "App.TotalTime" is a listed id; "Revision" and the XMP history key classify as history;
    // "Core.revision" is not a listed id and its lower-case key still matches the history pattern.
    EXPECT_EQ(variant.specificKeysToRemove, std::set<std::string>{"GPS.Altitude"});
    EXPECT_EQ(variant.specificKeysToKeep, history.specificKeysToKeep);
    EXPECT_EQ(variant.pdfLinkPreservation, history.pdfLinkPreservation);
    EXPECT_EQ(variant.name, "H");
}

}  // namespace
}  // namespace tavrin
