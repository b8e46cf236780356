// The tavrin: URL scheme: builders keep every file in order under the length limit, and parsers
// never fail on anything a hostile link can hold.
#include <gtest/gtest.h>

#include "handoff/file_handoff_buffer.h"
#include "handoff/tavrin_url.h"

namespace tavrin {
namespace {

using Paths = std::vector<std::filesystem::path>;

Paths numberedPaths(int count, std::size_t nameLength) {
    Paths paths;
    for (int i = 0; i < count; ++i) paths.push_back("/files/" + std::to_string(i) + std::string(nameLength, 'x') + ".jpg");
    return paths;
}

Paths filesOf(const std::vector<std::string>& urls) {
    Paths all;
    for (const auto& url : urls)
        for (auto& file : TavrinURL::enqueueFileURLs(url)) all.push_back(file);
    return all;
}

TEST(TavrinURLBuilders, tenShortPathsFitOneURL) {
    const auto urls = TavrinURL::enqueueURLs(numberedPaths(10, 5), 4096);
    ASSERT_EQ(urls.size(), 1u);
    EXPECT_EQ(filesOf(urls), numberedPaths(10, 5));
}

TEST(TavrinURLBuilders, packingKeepsOrderAndLosesNothing) {
    // Each item is about 1500 characters: two fit in one URL, so five files need three.
    const auto files = numberedPaths(5, 1480);
    const auto urls = TavrinURL::enqueueURLs(files, 4096);
    ASSERT_EQ(urls.size(), 3u);
    for (const auto& url : urls) EXPECT_LE(url.size(), 4096u);
    EXPECT_EQ(filesOf(urls), files);
}

TEST(TavrinURLBuilders, aPathLongerThanTheLimitTravelsAlone) {
    const Paths files{"/a.jpg", "/" + std::string(5000, 'l') + ".jpg", "/b.jpg"};
    const auto urls = TavrinURL::enqueueURLs(files, 4096);
    ASSERT_EQ(urls.size(), 3u);
    EXPECT_GT(urls[1].size(), 4096u);
    EXPECT_EQ(filesOf(urls), files);
}

TEST(TavrinURLBuilders, cleanURLsCarryPresetAndShareOnEveryPiece) {
    const auto files = numberedPaths(5, 1480);
    const auto urls = TavrinURL::cleanURLs(files, std::string("location-only"), true, 4096);
    ASSERT_EQ(urls.size(), 3u);
    Paths all;
    for (const auto& url : urls) {
        EXPECT_LE(url.size(), 4096u);
        const auto request = TavrinURL::cleanRequest(url);
        ASSERT_TRUE(request);
        EXPECT_EQ(request->presetName, "location-only");
        EXPECT_TRUE(request->shareOnly);
        all.insert(all.end(), request->fileURLs.begin(), request->fileURLs.end());
    }
    EXPECT_EQ(all, files);
}

TEST(TavrinURLBuilders, shapesOfEachForm) {
    EXPECT_EQ(TavrinURL::appURL(false), "tavrin://app");
    EXPECT_EQ(TavrinURL::appURL(true), "tavrin://app?handoff=1");
    EXPECT_EQ(TavrinURL::enqueueURL({}), "tavrin://app");
    EXPECT_FALSE(TavrinURL::enqueueURLIfNeeded({}));
    EXPECT_TRUE(TavrinURL::enqueueURLs({}).empty());
    EXPECT_FALSE(TavrinURL::cleanURL({}, std::nullopt, false));
    EXPECT_EQ(TavrinURL::openURL("/a/./b/../c d.pdf"), "tavrin://open?file=/a/c%20d.pdf");
    EXPECT_EQ(*TavrinURL::cleanURL({"/x&y=z.jpg"}, std::string("maximum-privacy"), false),
              "tavrin://clean?file=/x%26y%3Dz.jpg&preset=maximum-privacy");
}

TEST(TavrinURLBuilders, everyByteOfANameSurvivesTheRoundTrip) {
    const std::filesystem::path hostile = "/home/u/a'b\"c;rm -rf ~ $(x) %41 +&=#?.pdf";
    const auto url = TavrinURL::enqueueURL({hostile, "/é/漢字.png"});
    EXPECT_EQ(url.find_first_of(" '\"#;$()"), std::string::npos) << url;
    EXPECT_EQ(TavrinURL::enqueueFileURLs(url), (Paths{hostile, "/é/漢字.png"}));
}

struct ParserCase {
    const char* name;
    std::string url;
    std::optional<CleanRequest> expected;
};

TEST(TavrinURLParsers, cleanRequestTable) {
    const std::vector<ParserCase> cases{
        {"plain", "tavrin://clean?file=/a.jpg&file=/b.pdf", CleanRequest{{"/a.jpg", "/b.pdf"}, std::nullopt, false}},
        {"empty file values skipped", "tavrin://clean?file=&file=/a.jpg", CleanRequest{{"/a.jpg"}, std::nullopt, false}},
        {"only empty values", "tavrin://clean?file=&file=", std::nullopt},
        {"no query", "tavrin://clean", std::nullopt},
        {"empty query", "tavrin://clean?", std::nullopt},
        {"other host", "tavrin://enqueue?file=/a.jpg", std::nullopt},
        {"encoded host differs", "tavrin://cl%65an?file=/a.jpg", std::nullopt},
        {"scheme in upper case", "TAVRIN://clean?file=/a.jpg", std::nullopt},
        {"other scheme", "file:///clean?file=/a.jpg", std::nullopt},
        {"no scheme", "clean?file=/a.jpg", std::nullopt},
        {"empty preset is absent", "tavrin://clean?file=/a.jpg&preset=", CleanRequest{{"/a.jpg"}, std::nullopt, false}},
        {"first preset wins", "tavrin://clean?file=/a&preset=location-only&preset=x",
         CleanRequest{{"/a"}, std::string("location-only"), false}},
        {"share YES", "tavrin://clean?file=/a&share=YES", CleanRequest{{"/a"}, std::nullopt, true}},
        {"share True", "tavrin://clean?file=/a&share=True", CleanRequest{{"/a"}, std::nullopt, true}},
        {"share 2", "tavrin://clean?file=/a&share=2", CleanRequest{{"/a"}, std::nullopt, false}},
        {"share without value", "tavrin://clean?file=/a&share", CleanRequest{{"/a"}, std::nullopt, false}},
        {"percent-encoded NUL skipped", "tavrin://clean?file=/etc/passwd%00.jpg", std::nullopt},
        {"non-UTF-8 escape skipped", "tavrin://clean?file=/a%FF%FE.jpg&file=/b.jpg", CleanRequest{{"/b.jpg"}, std::nullopt, false}},
        {"raw non-UTF-8 byte skipped", "tavrin://clean?file=/a\xC3(.jpg", std::nullopt},
        {"broken escape skipped", "tavrin://clean?file=/a%G1&file=/b%2", std::nullopt},
        {"fragment ignored", "tavrin://clean?file=/a.jpg#file=/b.jpg", CleanRequest{{"/a.jpg"}, std::nullopt, false}},
        {"dot-dot kept for the checks", "tavrin://clean?file=/a/../../etc/x", CleanRequest{{"/a/../../etc/x"}, std::nullopt, false}},
    };
    for (const auto& c : cases) EXPECT_EQ(TavrinURL::cleanRequest(c.url), c.expected) << c.name;
}

TEST(TavrinURLParsers, handoffTable) {
    const std::vector<std::pair<std::string, bool>> cases{
        {"tavrin://app?handoff=1", true},   {"tavrin://app?handoff=yes", true}, {"tavrin://app?handoff=TRUE", true},
        {"tavrin://app?handoff=0", false},  {"tavrin://app", false},           {"tavrin://app?handoff", false},
        {"tavrin://open?handoff=1", false}, {"TAVRIN://app?handoff=1", false}, {"tavrin://app?handoff=no&handoff=1", false},
    };
    for (const auto& [url, expected] : cases) EXPECT_EQ(TavrinURL::requestsExternalHandoff(url), expected) << url;
}

TEST(TavrinURLParsers, enqueueNeedsItsSchemeAndHost) {
    EXPECT_TRUE(TavrinURL::enqueueFileURLs("tavrin://clean?file=/a").empty());
    EXPECT_TRUE(TavrinURL::enqueueFileURLs("Tavrin://enqueue?file=/a").empty());
    EXPECT_TRUE(TavrinURL::enqueueFileURLs("").empty());
    EXPECT_TRUE(TavrinURL::enqueueFileURLs("tavrin:").empty());
    EXPECT_TRUE(TavrinURL::enqueueFileURLs("://?&&==%%").empty());
    EXPECT_EQ(TavrinURL::enqueueFileURLs("tavrin://enqueue?x=1&file=/a&file="), Paths{"/a"});
}

TEST(TavrinURLParsers, hugeInputsParseWhole) {
    std::string url = "tavrin://enqueue?";
    for (int i = 0; i < 10000; ++i) url += "file=/f" + std::to_string(i) + "&";
    EXPECT_EQ(TavrinURL::enqueueFileURLs(url).size(), 10000u);
    std::string big = "tavrin://clean?file=/" + std::string(10 << 20, 'a');
    const auto request = TavrinURL::cleanRequest(big);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->fileURLs.front().string().size(), (10u << 20) + 1);
}

TEST(URIList, takesLocalFileURIsOnly) {
    const std::string list =
        "# a comment\r\nfile:///home/u/a%20b.jpg\r\nfile://localhost/tmp/c.pdf\nhttp://example.com/x.jpg\n"
        "file://otherhost/d.jpg\nfile:///e%00.jpg\n\nfile:///f%ZZ\n/plain/path\nfile:///g.png";
    EXPECT_EQ(fileURLsFromURIList(list), (Paths{"/home/u/a b.jpg", "/tmp/c.pdf", "/g.png"}));
    std::string many;
    for (int i = 0; i < 20; ++i) many += "file:///f" + std::to_string(i) + "\n";
    EXPECT_EQ(fileURLsFromURIList(many, 5).size(), 5u);
}

TEST(FileHandoffBuffer, batchesAreTakenOnceAndDrainedInOrder) {
    FileHandoffBuffer buffer;
    const auto first = buffer.enqueue({"/a", "/b"});
    const auto second = buffer.enqueue({"/c"});
    const auto third = buffer.enqueue({"/d"});
    EXPECT_EQ(buffer.takeBatch(second), Paths{"/c"});
    EXPECT_TRUE(buffer.takeBatch(second).empty());
    EXPECT_TRUE(buffer.takeBatch(Uuid::random()).empty());
    (void)first;
    (void)third;
    EXPECT_EQ(buffer.drain(), (Paths{"/a", "/b", "/d"}));
    EXPECT_TRUE(buffer.pendingBatches().empty());
}

TEST(FileHandoffBuffer, refusesUseFromAnotherThread) {
    FileHandoffBuffer buffer;
    bool threw = false;
    std::thread([&] {
        try {
            buffer.enqueue({"/a"});
        } catch (const std::logic_error&) {
            threw = true;
        }
    }).join();
    EXPECT_TRUE(threw);
}

}  // namespace
}  // namespace tavrin
