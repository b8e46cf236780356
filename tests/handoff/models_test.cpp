// The menu, setup and tour models: entries, texts, URLs and the small decisions they make.
#include <gtest/gtest.h>

#include "handoff/finder_context_menu_model.h"
#include "handoff/finder_setup_model.h"
#include "handoff/tavrin_url.h"
#include "handoff/welcome_tour_model.h"

namespace tavrin {
namespace {

TEST(FinderContextMenuModel, entriesTitlesAndSubmenu) {
    const auto one = FinderContextMenuModel::menuItems(1);
    ASSERT_EQ(one.size(), 3u);
    EXPECT_EQ(one[0].title, "Clean Everything");
    EXPECT_EQ(one[0].action, FinderMenuAction::clean(FinderMenuPreset::maximumPrivacy));
    EXPECT_EQ(one[1].title, "Clean with Preset");
    EXPECT_FALSE(one[1].action);
    ASSERT_EQ(one[1].submenu.size(), 3u);
    const std::vector<std::pair<std::string, FinderMenuPreset>> presets{
        {"Maximum Privacy", FinderMenuPreset::maximumPrivacy},
        {"Client Deliverable", FinderMenuPreset::clientDeliverable},
        {"Location Only", FinderMenuPreset::locationOnly}};
    for (std::size_t i = 0; i < presets.size(); ++i) {
        EXPECT_EQ(one[1].submenu[i].title, presets[i].first);
        EXPECT_EQ(one[1].submenu[i].action, FinderMenuAction::clean(presets[i].second));
    }
    EXPECT_EQ(one[2].title, "Open in Tavrin");
    EXPECT_EQ(one[2].action, FinderMenuAction::openInApp());
    for (const auto& item : one) EXPECT_TRUE(item.isEnabled);
    EXPECT_EQ(FinderContextMenuModel::menuItems(3)[0].title, "Clean Everything (3 Files)");
    EXPECT_EQ(FinderContextMenuModel::menuItems(0)[0].title, "Clean Everything");
}

TEST(FinderContextMenuModel, urlsOfEachAction) {
    EXPECT_TRUE(FinderContextMenuModel::urls(FinderMenuAction::clean(FinderMenuPreset::locationOnly), {}).empty());
    const std::vector<std::filesystem::path> files{"/a.jpg", "/b.pdf"};
    EXPECT_EQ(FinderContextMenuModel::urls(FinderMenuAction::openInApp(), files), TavrinURL::enqueueURLs(files));
    const auto clean = FinderContextMenuModel::urls(FinderMenuAction::clean(FinderMenuPreset::clientDeliverable), files);
    ASSERT_EQ(clean.size(), 1u);
    const auto request = TavrinURL::cleanRequest(clean[0]);
    ASSERT_TRUE(request);
    EXPECT_EQ(*request, (CleanRequest{files, std::string("client-deliverable"), false}));
}

TEST(FinderContextMenuModel, actionTokensRoundTrip) {
    for (auto preset : allFinderMenuPresets()) {
        const auto action = FinderMenuAction::clean(preset);
        EXPECT_EQ(FinderMenuAction::fromToken(action.token()), action);
    }
    EXPECT_EQ(FinderMenuAction::fromToken("open"), FinderMenuAction::openInApp());
    for (const char* bad : {"", "clean:", "clean:standard", "Open", "clean:maximum-privacy "})
        EXPECT_FALSE(FinderMenuAction::fromToken(bad)) << bad;
}

TEST(FinderSetupModel, routesAndStatus) {
    EXPECT_EQ(FinderSetupModel::title(FinderSetupRoute::fileManagerMenu), "Right-click menu");
    EXPECT_EQ(FinderSetupModel::title(FinderSetupRoute::openWith), "Open With menu");
    EXPECT_EQ(FinderSetupModel::title(FinderSetupRoute::urlScheme), "Links from other apps");
    for (auto route : FinderSetupModel::routes) {
        EXPECT_EQ(finderSetupRouteFromRawValue(rawValue(route)), route);
        bool namesInstall = false;
        for (auto step : FinderSetupModel::activationSteps(route))
            namesInstall = namesInstall || step.find("tavrin integrate install") != std::string_view::npos;
        EXPECT_TRUE(namesInstall) << rawValue(route);
    }
    const InstalledRoutes installed{true, false, std::nullopt};
    EXPECT_EQ(FinderSetupModel::status(FinderSetupRoute::fileManagerMenu, installed), FinderSetupStatus::enabled);
    EXPECT_EQ(FinderSetupModel::status(FinderSetupRoute::openWith, installed), FinderSetupStatus::disabled);
    EXPECT_EQ(FinderSetupModel::status(FinderSetupRoute::urlScheme, installed), FinderSetupStatus::unknown);
    EXPECT_EQ(label(FinderSetupStatus::enabled), "Enabled");
    EXPECT_EQ(label(FinderSetupStatus::disabled), "Not enabled");
    EXPECT_EQ(label(FinderSetupStatus::unknown), "Enable in Settings");
    EXPECT_TRUE(FinderSetupModel::shouldAutoPresent(false, false));
    EXPECT_FALSE(FinderSetupModel::shouldAutoPresent(false, true));
    EXPECT_FALSE(FinderSetupModel::shouldAutoPresent(true, false));
}

TEST(UserTexts, nameNoOtherPlatform) {
    std::vector<std::string_view> texts{FinderSetupModel::headline, FinderSetupModel::subtitle,
                                        FinderSetupModel::sectionIntro, FinderSetupModel::cloudFolderNote};
    texts.insert(texts.end(), FinderSetupModel::usageNotes.begin(), FinderSetupModel::usageNotes.end());
    for (auto route : FinderSetupModel::routes) {
        texts.push_back(FinderSetupModel::whereItAppears(route));
        texts.push_back(FinderSetupModel::purpose(route));
    }
    for (auto step : WelcomeTourSteps::ordered) {
        texts.push_back(WelcomeTourSteps::title(step));
        texts.push_back(WelcomeTourSteps::subtitle(step));
    }
    std::vector<WelcomeTourCard> cards = WelcomeTourModel::cleanCards(true);
    for (const auto* list : {&WelcomeTourModel::welcomeCards(), &WelcomeTourModel::foldersCards(),
                             &WelcomeTourModel::readyCards()})
        cards.insert(cards.end(), list->begin(), list->end());
    for (const auto& card : cards) {
        texts.push_back(card.title);
        texts.push_back(card.body);
    }
    for (auto text : texts)
        for (const char* word : {"Mac", "Finder", "System Settings", "iCloud", "macOS"})
            EXPECT_EQ(text.find(word), std::string_view::npos) << word << " in: " << text;
}

TEST(WelcomeTour, stepsNavigateAndVersionsMigrate) {
    EXPECT_EQ(WelcomeTourSteps::count, 5);
    EXPECT_FALSE(WelcomeTourSteps::next(WelcomeTourStep::ready));
    EXPECT_FALSE(WelcomeTourSteps::previous(WelcomeTourStep::welcome));
    EXPECT_EQ(WelcomeTourSteps::next(WelcomeTourStep::welcome), WelcomeTourStep::cleanAFile);
    EXPECT_EQ(WelcomeTourSteps::previous(WelcomeTourStep::ready), WelcomeTourStep::finderSetup);
    EXPECT_EQ(WelcomeTourSteps::displayIndex(WelcomeTourStep::finderSetup), 4);
    EXPECT_TRUE(WelcomeTourSteps::isFirst(WelcomeTourStep::welcome));
    EXPECT_TRUE(WelcomeTourSteps::isLast(WelcomeTourStep::ready));
    EXPECT_EQ(WelcomeTourModel::migratedVersion(true, 0), 1);
    EXPECT_EQ(WelcomeTourModel::migratedVersion(false, 0), 0);
    EXPECT_EQ(WelcomeTourModel::migratedVersion(true, 3), 3);
    EXPECT_FALSE(WelcomeTourModel::shouldShow(1));
    EXPECT_TRUE(WelcomeTourModel::shouldShow(0));
    EXPECT_EQ(WelcomeTourSteps::subtitle(WelcomeTourStep::welcome),
              "Photos, PDFs, and documents quietly carry GPS coordinates, names, device IDs, and edit history. "
              "Tavrin finds and removes them — entirely on this computer.");
}

TEST(WelcomeTour, cleanCardsChangeOnlyTheirBodiesWithTheMode) {
    const auto inPlace = WelcomeTourModel::cleanCards(true);
    const auto copy = WelcomeTourModel::cleanCards(false);
    ASSERT_EQ(inPlace.size(), 3u);
    ASSERT_EQ(copy.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(inPlace[i].title, copy[i].title);
        EXPECT_EQ(inPlace[i].id, inPlace[i].title);
        EXPECT_EQ(inPlace[i].systemImage, copy[i].systemImage);
    }
    EXPECT_EQ(inPlace[0].body, "Overwrites the file where it sits. This is your current default.");
    EXPECT_EQ(copy[1].body, "Writes a fresh clean copy and keeps your original. This is your current default.");
    EXPECT_EQ(inPlace[2].body, copy[2].body);
}

}  // namespace
}  // namespace tavrin
