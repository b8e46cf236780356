// `tavrin settings` and `tavrin presets list` against real stores: a fresh home, a file given
// with --store, the in-memory store, and stores that cannot be used.

#include <gtest/gtest.h>

#include <cstdlib>
#include <nlohmann/json.hpp>

#include "support/test_support.h"

namespace tavrin {
namespace {

struct Run {
    int status;
    std::string out;
};

// Runs tavrin with HOME set to `home` and no XDG_DATA_HOME; `environment` goes first.
Run tavrinAt(const std::filesystem::path& home, const std::string& args, const std::string& environment = {},
             bool withErrors = false) {
    const char* bin = std::getenv("TAVRIN_BIN");
    Run r;
    const std::string command = "env -u XDG_DATA_HOME HOME=" + testing::shellQuote(home.string()) + " " + environment +
                                " " + std::string(bin ? bin : "build/bin/tavrin") + " " + args +
                                (withErrors ? " 2>&1" : " 2>/dev/null");
    r.status = testing::runCommand(command, &r.out);
    return r;
}

TEST(StoreCommands, aFreshHomeGetsTheStoreWithSettingsAndStarters) {
    testing::TempDir home;
    const auto store = home / ".local/share/Tavrin/Tavrin.store";
    auto settings = tavrinAt(home.path(), "settings --json");
    ASSERT_EQ(settings.status, 0);
    EXPECT_TRUE(std::filesystem::exists(store));
    const auto j = nlohmann::json::parse(settings.out);
    EXPECT_EQ(j["id"], "AAAAAAAA-AAAA-AAAA-AAAA-AAAAAAAAAAAA");
    EXPECT_EQ(j["maxConcurrentProcessing"], 4);
    EXPECT_EQ(j["cleanOutputMode"], "copy");

    auto presets = tavrinAt(home.path(), "presets list --json");
    ASSERT_EQ(presets.status, 0);
    const auto list = nlohmann::json::parse(presets.out);
    ASSERT_EQ(list.size(), 3u);
    EXPECT_EQ(list[0]["name"], "Location Only");
    EXPECT_EQ(list[2]["name"], "Standard Sharing");
    EXPECT_EQ(tavrinAt(home.path(), "presets list").out.find("Maximum Privacy") != std::string::npos, true);
}

TEST(StoreCommands, settingsSetWritesThroughTheViewAndPersists) {
    testing::TempDir home;
    const std::string store = "--store " + testing::shellQuote((home / "s.store").string());
    struct Case {
        const char* key;
        const char* value;
        int status;
        const char* reads;  // the JSON text afterwards, or null when unchanged
    };
    const std::vector<Case> cases{
        {"maxConcurrentProcessing", "0", 0, "1"},
        {"maxConcurrentProcessing", "20", 0, "8"},
        {"cleanOutputMode", "inPlace", 0, "\"inPlace\""},
        {"cleanOutputMode", "sideways", 0, "\"copy\""},
        {"watchedFoldersEnabled", "true", 0, "true"},
        {"launchAtLogin", "perhaps", 2, nullptr},
        {"noSuchSetting", "1", 2, nullptr},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(tavrinAt(home.path(), std::string("settings set ") + store + " " + c.key + " " + c.value).status, c.status)
            << c.key << " " << c.value;
        if (!c.reads) continue;
        const auto j = nlohmann::json::parse(tavrinAt(home.path(), "settings --json " + store).out);
        EXPECT_EQ(j[c.key].dump(), c.reads) << c.key << " " << c.value;
    }
    EXPECT_FALSE(std::filesystem::exists(home / ".local")) << "--store leaves the user's store alone";
}

TEST(StoreCommands, theInMemoryStoreLeavesNoFile) {
    testing::TempDir home;
    auto run = tavrinAt(home.path(), "settings set launchAtLogin true", "TAVRIN_USE_IN_MEMORY_STORE=1", true);
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.out.find("(in memory)"), std::string::npos) << run.out;
    EXPECT_FALSE(std::filesystem::exists(home / ".local/share/Tavrin/Tavrin.store"));
}

TEST(StoreCommands, anUnusableStoreIsNamedWithAFailureAndLeftAsItIs) {
    testing::TempDir home;
    const auto notes = home / "notes.store";
    const std::string text(3000, 'n');
    testing::writeFile(notes, text);
    for (const char* command : {"settings", "presets list", "settings set launchAtLogin true"}) {
        auto run = tavrinAt(home.path(), std::string(command) + " --store " + testing::shellQuote(notes.string()), {}, true);
        EXPECT_EQ(run.status, 1) << command;
        EXPECT_NE(run.out.find(notes.string()), std::string::npos) << run.out;
        EXPECT_NE(run.out.find("is not a database"), std::string::npos) << run.out;
    }
    EXPECT_EQ(testing::readFile(notes), text);
}

}  // namespace
}  // namespace tavrin
