// Handing cleaned files to a mail program: the argument vectors carry every path whole, and the
// service picks the route, failing before anything starts when the client is missing.
#include <gtest/gtest.h>

#include "handoff/email_integration.h"
#include "handoff/tavrin_url.h"

namespace tavrin {
namespace {

const std::filesystem::path kHostile = "/home/u/a'b\"c;rm -rf ~ $(x).pdf";
const std::filesystem::path kComma = "/home/u/x,y z.jpg";

class RecordingLauncher : public ProgramLauncher {
public:
    std::set<std::string> installed;
    bool launchWorks = true;
    std::vector<std::vector<std::string>> launched;

    bool isInstalled(std::string_view program) const override { return installed.count(std::string(program)) > 0; }
    bool launch(const std::vector<std::string>& argv) override {
        launched.push_back(argv);
        return launchWorks && isInstalled(argv.front());
    }
    std::optional<int> run(const std::vector<std::string>& argv) override {
        launched.push_back(argv);
        return 0;
    }
};

TEST(EmailClient, rawValuesAndNames) {
    EXPECT_EQ(rawValue(EmailClient::thunderbird), "thunderbird");
    EXPECT_EQ(displayName(EmailClient::thunderbird), "Thunderbird");
    EXPECT_EQ(displayName(EmailClient::evolution), "Evolution");
    EXPECT_EQ(displayName(EmailClient::other), "Other (Default)");
    for (auto client : {EmailClient::thunderbird, EmailClient::evolution, EmailClient::other})
        EXPECT_EQ(emailClientFromRawValue(rawValue(client)), client);
    for (const char* unknown : {"appleMail", "outlook", "", "Thunderbird"})
        EXPECT_EQ(emailClientFromRawValue(unknown), EmailClient::other) << unknown;
}

TEST(EmailRoutes, thunderbirdFieldsHoldQuotesOnlyAsDelimiters) {
    const auto argv = EmailRoutes::thunderbird({kHostile, kComma}, "Bob's files", std::string("a,b"));
    ASSERT_EQ(argv.size(), 3u);
    EXPECT_EQ(argv[0], "thunderbird");
    EXPECT_EQ(argv[1], "-compose");
    EXPECT_EQ(argv[2],
              "subject='Bob\u2019s files',body='a,b',attachment='file:///home/u/a%27b%22c%3Brm%20-rf%20~%20%24%28x%29.pdf,"
              "file:///home/u/x%2Cy%20z.jpg'");
}

TEST(EmailRoutes, evolutionURLDecodesBackToTheFiles) {
    const auto argv = EmailRoutes::evolution({kHostile}, "Cleaned Files", std::nullopt);
    ASSERT_EQ(argv.size(), 2u);
    EXPECT_EQ(argv[0], "evolution");
    const std::string& url = argv[1];
    EXPECT_EQ(url.rfind("mailto:?subject=Cleaned%20Files&attach=", 0), 0u) << url;
    EXPECT_EQ(url.find_first_of(" '\";$()"), std::string::npos) << url;
    // Evolution decodes the query value, then reads the file URI.
    const auto value = percentDecode(url.substr(url.find("attach=") + 7));
    ASSERT_TRUE(value);
    EXPECT_EQ(*value, fileURI(kHostile));
    EXPECT_EQ(percentDecode(value->substr(7)), kHostile.string());
}

TEST(EmailRoutes, xdgEmailGivesEachPathItsOwnArgument) {
    EXPECT_EQ(EmailRoutes::xdgEmail({kHostile, kComma}, "S\nT", std::string("body")),
              (std::vector<std::string>{"xdg-email", "--subject", "S\nT", "--body", "body", "--attach", kHostile.string(),
                                        "--attach", kComma.string()}));
    EXPECT_EQ(EmailRoutes::mailtoURL("Cleaned Files", std::nullopt), "mailto:?subject=Cleaned%20Files");
    EXPECT_EQ(EmailRoutes::revealCommands({"/a/x.jpg", "/b/y.jpg", "/a/z.pdf"}),
              (std::vector<std::vector<std::string>>{{"xdg-open", "file:///a"}, {"xdg-open", "file:///b"}}));
}

TEST(ComposeService, refusesWhenNothingWasCleaned) {
    RecordingLauncher launcher;
    ComposeService service(launcher);
    try {
        service.compose(std::vector<std::optional<std::filesystem::path>>{std::nullopt, std::nullopt}, EmailClient::other);
        FAIL();
    } catch (const EmailIntegrationError& e) {
        EXPECT_EQ(e.description(), "No cleaned files are available to attach.");
    }
    EXPECT_TRUE(launcher.launched.empty());
}

TEST(ComposeService, routesTable) {
    struct Case {
        const char* name;
        EmailClient client;
        std::set<std::string> installed;
        std::optional<std::string> error;
        std::vector<std::string> firstProgramStarted;
    };
    const std::vector<Case> cases{
        {"thunderbird", EmailClient::thunderbird, {"thunderbird"}, std::nullopt, {"thunderbird"}},
        {"thunderbird missing", EmailClient::thunderbird, {}, "Thunderbird does not appear to be installed.", {}},
        {"evolution missing", EmailClient::evolution, {"thunderbird"}, "Evolution does not appear to be installed.", {}},
        {"xdg-email", EmailClient::other, {"xdg-email"}, std::nullopt, {"xdg-email"}},
        {"mailto fallback", EmailClient::other, {"xdg-open"}, std::nullopt, {"xdg-open"}},
        {"nothing at all", EmailClient::other, {}, "Could not open the default email client.", {"xdg-open"}},
    };
    for (const auto& c : cases) {
        RecordingLauncher launcher;
        launcher.installed = c.installed;
        ComposeService service(launcher);
        std::optional<std::string> error;
        try {
            service.compose(std::vector<std::optional<std::filesystem::path>>{kHostile, std::nullopt}, c.client);
        } catch (const EmailIntegrationError& e) {
            error = e.description();
        }
        EXPECT_EQ(error, c.error) << c.name;
        if (c.firstProgramStarted.empty()) {
            EXPECT_TRUE(launcher.launched.empty()) << c.name;
        } else {
            ASSERT_FALSE(launcher.launched.empty()) << c.name;
            EXPECT_EQ(launcher.launched[0][0], c.firstProgramStarted[0]) << c.name;
        }
    }
    // The fallback opens a mailto: URL, then shows the folder that holds the file.
    RecordingLauncher launcher;
    launcher.installed = {"xdg-open"};
    ComposeService(launcher).compose(std::vector<std::optional<std::filesystem::path>>{kHostile}, EmailClient::other);
    EXPECT_EQ(launcher.launched, (std::vector<std::vector<std::string>>{
                                     {"xdg-open", "mailto:?subject=Cleaned%20Files"}, {"xdg-open", "file:///home/u"}}));
}

}  // namespace
}  // namespace tavrin
