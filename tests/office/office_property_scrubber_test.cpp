#include <gtest/gtest.h>

#include "office/office_property_scrubber.h"
#include "xml_canonical_form.h"

namespace tavrin {
namespace {

using P = OfficePropertyScrubber;
using C = MetadataCategory;
using testing::canonicalXML;

const std::string coreOpen =
    "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?><cp:coreProperties "
    "xmlns:cp=\"http://schemas.openxmlformats.org/package/2006/metadata/core-properties\" "
    "xmlns:dc=\"http://purl.org/dc/elements/1.1/\" xmlns:dcterms=\"http://purl.org/dc/terms/\" "
    "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">";
const std::string coreClose = "</cp:coreProperties>";

const std::string core =
    coreOpen + "<dc:title>Plan</dc:title><dc:creator>Jane Roe</dc:creator><cp:lastModifiedBy></cp:lastModifiedBy>"
               "<cp:keywords>k</cp:keywords><dc:subject>s</dc:subject><cp:category>c</cp:category>"
               "<dc:description>d</dc:description><cp:revision>7</cp:revision>"
               "<dcterms:created xsi:type=\"dcterms:W3CDTF\">2024-01-02T03:04:05Z</dcterms:created>"
               "<cp:unknownThing>stays</cp:unknownThing>" + coreClose;

const std::string appOpen =
    "<Properties xmlns=\"http://schemas.openxmlformats.org/officeDocument/2006/extended-properties\" "
    "xmlns:vt=\"http://schemas.openxmlformats.org/officeDocument/2006/docPropsVTypes\">";
const std::string app = appOpen + "<Template>Normal.dotm</Template><TotalTime>42</TotalTime><Pages>3</Pages>"
                                  "<Company>Acme</Company><DocSecurity>0</DocSecurity></Properties>";

CleaningProfile profileOf(std::set<MetadataCategory> categories) {
    CleaningProfile profile;
    profile.categoriesToRemove = std::move(categories);
    return profile;
}

std::vector<std::string> keys(const std::vector<MetadataItem>& items) {
    std::vector<std::string> out;
    for (const auto& item : items) out.push_back(item.key);
    return out;
}

struct Case {
    const char* name;
    CleaningProfile profile;
    std::string xml;
    const std::vector<P::Mapping>& mappings;
    std::string expected;
    std::vector<std::string> removed;
    std::vector<std::string> retained;
};

TEST(OfficePropertyScrubber, removesWholeElementsAsTheProfileSays) {
    CleaningProfile keepCreator = profileOf({C::authorIdentity});
    keepCreator.specificKeysToKeep = {"Core.Creator"};
    CleaningProfile removeByKey = profileOf({});
    removeByKey.specificKeysToRemove = {"Core.Revision", "App.Pages"};
    const std::vector<Case> cases = {
        {"author identity takes every text of that class, the title included", profileOf({C::authorIdentity}), core,
         P::coreMappings(),
         coreOpen + "<cp:lastModifiedBy></cp:lastModifiedBy><cp:revision>7</cp:revision><dcterms:created "
                    "xsi:type=\"dcterms:W3CDTF\">2024-01-02T03:04:05Z</dcterms:created><cp:unknownThing>stays"
                    "</cp:unknownThing>" + coreClose,
         {"Core.Title", "Core.Creator", "Core.Keywords", "Core.Subject", "Core.Category", "Core.Description"},
         {"Core.Revision", "Core.Created"}},
        {"a key to keep beats the category", keepCreator, core, P::coreMappings(),
         coreOpen + "<dc:creator>Jane Roe</dc:creator><cp:lastModifiedBy></cp:lastModifiedBy><cp:revision>7"
                    "</cp:revision><dcterms:created xsi:type=\"dcterms:W3CDTF\">2024-01-02T03:04:05Z</dcterms:created>"
                    "<cp:unknownThing>stays</cp:unknownThing>" + coreClose,
         {"Core.Title", "Core.Keywords", "Core.Subject", "Core.Category", "Core.Description"},
         {"Core.Creator", "Core.Revision", "Core.Created"}},
        {"a key to remove works without its category; counters never go", removeByKey, core, P::coreMappings(),
         coreOpen + "<dc:title>Plan</dc:title><dc:creator>Jane Roe</dc:creator><cp:lastModifiedBy></cp:lastModifiedBy>"
                    "<cp:keywords>k</cp:keywords><dc:subject>s</dc:subject><cp:category>c</cp:category>"
                    "<dc:description>d</dc:description><dcterms:created xsi:type=\"dcterms:W3CDTF\">"
                    "2024-01-02T03:04:05Z</dcterms:created><cp:unknownThing>stays</cp:unknownThing>" + coreClose,
         {"Core.Revision"},
         {"Core.Title", "Core.Creator", "Core.Keywords", "Core.Subject", "Core.Category", "Core.Description",
          "Core.Created"}},
        {"document history takes the editing time and keeps the page count", profileOf({C::documentHistory}), app,
         P::appMappings(),
         appOpen + "<Template>Normal.dotm</Template><Pages>3</Pages><Company>Acme</Company><DocSecurity>0</DocSecurity>"
                   "</Properties>",
         {"App.TotalTime"},
         {"App.Template", "App.Pages", "App.Company", "App.DocSecurity"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto result = P::scrubProperties(c.xml, c.profile, c.mappings);
        ASSERT_TRUE(result);
        EXPECT_EQ(canonicalXML(result->xml), canonicalXML(c.expected));
        EXPECT_EQ(keys(result->removed), c.removed);
        EXPECT_EQ(keys(result->retained), c.retained);
    }
}

TEST(OfficePropertyScrubber, reportsItemsInTheSharedVocabulary) {
    const auto result = P::scrubProperties(app, profileOf({C::companyInfo}), P::appMappings());
    ASSERT_TRUE(result);
    ASSERT_EQ(result->removed.size(), 1u);
    EXPECT_EQ(result->removed[0], (MetadataItem{"App.Company", "App.Company", "Company", MetadataValue::string("Acme"),
                                                C::companyInfo, MetadataSource::zipXML, true}));
    // Values are always text here, even where the reader would see a number.
    const auto pages = std::find_if(result->retained.begin(), result->retained.end(),
                                    [](const auto& item) { return item.key == "App.Pages"; });
    ASSERT_NE(pages, result->retained.end());
    EXPECT_EQ(pages->value, MetadataValue::string("3"));
    EXPECT_FALSE(pages->isRemovable);
    EXPECT_EQ(pages->displayName, "Pages");
}

TEST(OfficePropertyScrubber, scrubsCustomPropertiesByName) {
    const std::string custom =
        "<Properties xmlns=\"http://schemas.openxmlformats.org/officeDocument/2006/custom-properties\" "
        "xmlns:vt=\"http://schemas.openxmlformats.org/officeDocument/2006/docPropsVTypes\">"
        "<property fmtid=\"{D5CDD505-2E9C-101B-9397-08002B2CF9AE}\" pid=\"2\" name=\"Client\"><vt:lpwstr>Globex"
        "</vt:lpwstr></property><property pid=\"3\" name=\"\"><vt:lpwstr>nameless</vt:lpwstr></property>"
        "<property pid=\"4\"><vt:i4>5</vt:i4></property><property pid=\"5\" name=\"Keep\"><vt:bool>true</vt:bool>"
        "</property></Properties>";
    CleaningProfile profile = profileOf({C::companyInfo});
    profile.specificKeysToKeep = {"Custom.Keep"};
    const auto result = P::scrubCustom(custom, profile);
    ASSERT_TRUE(result);
    EXPECT_EQ(keys(result->removed), std::vector<std::string>{"Custom.Client"});
    EXPECT_EQ(result->removed[0].displayName, "Client");
    EXPECT_EQ(result->removed[0].value, MetadataValue::string("Globex"));
    EXPECT_EQ(keys(result->retained), std::vector<std::string>{"Custom.Keep"});
    // Properties without a name stay whatever the profile; pids are not renumbered.
    EXPECT_EQ(canonicalXML(result->xml),
              canonicalXML("<Properties xmlns=\"http://schemas.openxmlformats.org/officeDocument/2006/custom-properties\" "
                           "xmlns:vt=\"http://schemas.openxmlformats.org/officeDocument/2006/docPropsVTypes\">"
                           "<property pid=\"3\" name=\"\"><vt:lpwstr>nameless</vt:lpwstr></property>"
                           "<property pid=\"4\"><vt:i4>5</vt:i4></property><property pid=\"5\" name=\"Keep\">"
                           "<vt:bool>true</vt:bool></property></Properties>"));
}

TEST(OfficePropertyScrubber, refusesWhatDoesNotParse) {
    const auto all = profileOf({C::authorIdentity});
    for (const std::string xml : {"", "<a><b></a>", "<?xml version=\"1.0\"?>", "<cp:core><x/></cp:core>",
                                  "<!DOCTYPE a [<!ENTITY e \"x\">]><a>&e;</a>"}) {
        SCOPED_TRACE(xml);
        EXPECT_FALSE(P::scrubProperties(xml, all, P::coreMappings()));
        EXPECT_FALSE(P::scrubCustom(xml, all));
    }
}

TEST(OfficePropertyScrubber, makesLabelsFromKeys) {
    EXPECT_EQ(P::displayName("Core.LastModifiedBy"), "Last Modified By");
    EXPECT_EQ(P::displayName("App.CharactersWithSpaces"), "Characters With Spaces");
    EXPECT_EQ(P::displayName("App.AppVersion"), "App Version");
    EXPECT_EQ(P::displayName("title"), "Title");
    EXPECT_EQ(P::displayName("X.HTMLVersion"), "HTML Version");
    EXPECT_EQ(P::displayName(""), "");
}

}  // namespace
}  // namespace tavrin
