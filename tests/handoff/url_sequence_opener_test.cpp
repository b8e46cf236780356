// Opening several links: strictly one at a time, each after the answer to the one before, with
// one completion at the end, whether answers come at once, later, or never (with a time-out).
#include <gtest/gtest.h>

#include <deque>
#include <map>

#include "handoff/url_sequence_opener.h"

namespace tavrin {
namespace {

// A fake clock: posted work runs when the test advances time.
class ManualScheduler {
public:
    PostDelayed poster() {
        return [this](std::chrono::milliseconds delay, std::function<void()> work) {
            queue_.emplace(now_ + delay, std::move(work));
        };
    }
    void advance(std::chrono::milliseconds by) {
        const auto until = now_ + by;
        while (!queue_.empty() && queue_.begin()->first <= until) {
            auto node = queue_.extract(queue_.begin());
            now_ = node.key();
            node.mapped()();
        }
        now_ = until;
    }
    void runReady() { advance(std::chrono::milliseconds(0)); }

private:
    std::chrono::milliseconds now_{0};
    std::multimap<std::chrono::milliseconds, std::function<void()>> queue_;
};

TEST(URLSequenceOpener, emptyListCompletesAtOnce) {
    int completions = 0;
    auto opener = URLSequenceOpener::make({}, [](const std::string&, auto) { FAIL(); }, [&] { ++completions; });
    opener->open();
    EXPECT_EQ(completions, 1);
}

TEST(URLSequenceOpener, opensOneAtATimeWaitingForEachAnswer) {
    std::vector<std::string> opened;
    std::deque<std::function<void(bool)>> pending;
    int completions = 0;
    auto opener = URLSequenceOpener::make(
        {"tavrin://a", "tavrin://b", "tavrin://c"},
        [&](const std::string& url, std::function<void(bool)> done) {
            opened.push_back(url);
            pending.push_back(std::move(done));
        },
        [&] { ++completions; });
    opener->open();
    opener.reset();  // the sequence keeps itself alive
    ASSERT_EQ(opened, std::vector<std::string>{"tavrin://a"});
    pending.front()(false);  // a failure still moves on
    pending.front()(true);   // a second answer for the same link changes nothing
    pending.pop_front();
    EXPECT_EQ(opened.size(), 2u);
    pending.front()(true);
    pending.pop_front();
    EXPECT_EQ(opened.size(), 3u);
    EXPECT_EQ(completions, 0);
    pending.front()(true);
    EXPECT_EQ(opened, (std::vector<std::string>{"tavrin://a", "tavrin://b", "tavrin://c"}));
    EXPECT_EQ(completions, 1);
}

TEST(URLSequenceOpener, immediateAnswersForManyLinksDoNotDeepenTheStack) {
    std::vector<std::string> urls;
    for (int i = 0; i < 200000; ++i) urls.push_back("tavrin://app#" + std::to_string(i));
    std::size_t opened = 0;
    int completions = 0;
    auto opener = URLSequenceOpener::make(
        urls, [&](const std::string&, std::function<void(bool)> done) { ++opened, done(true); },
        [&] { ++completions; });
    opener->open();
    EXPECT_EQ(opened, urls.size());
    EXPECT_EQ(completions, 1);
}

TEST(URLSequenceOpener, withASchedulerALinkWithoutAnswerIsPassedOverAfterTheTimeout) {
    ManualScheduler scheduler;
    std::vector<std::string> opened;
    std::vector<std::function<void(bool)>> answers;
    int completions = 0;
    auto opener = URLSequenceOpener::make(
        {"tavrin://a", "tavrin://b"},
        [&](const std::string& url, std::function<void(bool)> done) {
            opened.push_back(url);
            answers.push_back(std::move(done));
        },
        [&] { ++completions; }, scheduler.poster(), std::chrono::milliseconds(5000));
    opener->open();
    opener.reset();
    EXPECT_EQ(opened.size(), 1u);
    scheduler.advance(std::chrono::milliseconds(4999));
    EXPECT_EQ(opened.size(), 1u);
    scheduler.advance(std::chrono::milliseconds(1));
    ASSERT_EQ(opened.size(), 2u);
    answers[0](true);  // late: dropped
    scheduler.runReady();
    EXPECT_EQ(completions, 0);
    answers[1](true);
    scheduler.runReady();
    EXPECT_EQ(completions, 1);
    scheduler.advance(std::chrono::milliseconds(10000));  // the second time-out finds it answered
    EXPECT_EQ(completions, 1);
    EXPECT_EQ(opened.size(), 2u);
}

}  // namespace
}  // namespace tavrin
