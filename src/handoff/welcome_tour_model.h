#pragma once
// The steps and cards of the first-run tour.

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tavrin {

enum class WelcomeTourStep { welcome = 0, cleanAFile = 1, foldersAndPresets = 2, finderSetup = 3, ready = 4 };

namespace WelcomeTourSteps {
inline constexpr std::array<WelcomeTourStep, 5> ordered{WelcomeTourStep::welcome, WelcomeTourStep::cleanAFile,
                                                       WelcomeTourStep::foldersAndPresets,
                                                       WelcomeTourStep::finderSetup, WelcomeTourStep::ready};
inline constexpr int count = static_cast<int>(ordered.size());
int displayIndex(WelcomeTourStep step);
bool isFirst(WelcomeTourStep step);
bool isLast(WelcomeTourStep step);
std::optional<WelcomeTourStep> next(WelcomeTourStep step);
std::optional<WelcomeTourStep> previous(WelcomeTourStep step);
std::string_view eyebrow(WelcomeTourStep step);
std::string_view title(WelcomeTourStep step);
std::string_view subtitle(WelcomeTourStep step);
}  // namespace WelcomeTourSteps

struct WelcomeTourCard {
    std::string id;
    std::string systemImage;
    std::string title;
    std::string body;

    // The title doubles as the id.
    WelcomeTourCard(std::string systemImage, std::string title, std::string body)
        : id(title), systemImage(std::move(systemImage)), title(std::move(title)), body(std::move(body)) {}
    bool operator==(const WelcomeTourCard&) const = default;
};

namespace WelcomeTourModel {

inline constexpr int currentVersion = 1;
inline constexpr std::string_view versionDefaultsKey = "tvLastCompletedTourVersion";
inline constexpr std::string_view legacyOnboardedDefaultsKey = "tvOnboardedV1";
inline constexpr std::string_view inspectNote =
    "Tip: select any file to inspect exactly what's found before you remove it.";

const std::vector<WelcomeTourCard>& welcomeCards();
const std::vector<WelcomeTourCard>& foldersCards();
const std::vector<WelcomeTourCard>& readyCards();
// The three ways to clean; only the bodies depend on whether cleaning in place is the default.
std::vector<WelcomeTourCard> cleanCards(bool inPlaceIsDefault);

bool shouldShow(int persistedVersion);
// A user of the earlier onboarding counts as having seen this tour.
int migratedVersion(bool legacyOnboarded, int persistedVersion);

}  // namespace WelcomeTourModel

}  // namespace tavrin
