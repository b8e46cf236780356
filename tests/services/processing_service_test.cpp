// The processing service over an engine whose JPEG writer is a probe: it records how many files
// are in work at once and can hold a file until the test lets it go.

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>

#include "model/pipeline_error.h"
#include "services/processing_service.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

namespace stdfs = std::filesystem;
using testing::TempDir;

// Copies the source with a chosen number of bytes fewer, fails for names holding "bad", and
// keeps count of files in work.
class ProbeWriter : public MetadataWriter {
public:
    struct State {
        std::mutex mutex;
        std::condition_variable changed;
        int running = 0;
        int maxRunning = 0;
        int started = 0;
        bool held = false;  // while set, files wait inside the writer
    };
    explicit ProbeWriter(std::shared_ptr<State> state) : state_(std::move(state)) {}
    std::set<FileType> supportedTypes() const override { return {FileType::jpeg}; }
    CleaningResult cleanMetadata(const stdfs::path& source, const stdfs::path& destination,
                                 const CleaningProfile& profile) const override {
        {
            std::unique_lock lock(state_->mutex);
            ++state_->running;
            ++state_->started;
            state_->maxRunning = std::max(state_->maxRunning, state_->running);
            state_->changed.notify_all();
            state_->changed.wait(lock, [&] { return !state_->held; });
        }
        struct Leave {
            State& s;
            ~Leave() {
                std::lock_guard lock(s.mutex);
                --s.running;
                s.changed.notify_all();
            }
        } leave{*state_};
        if (source.filename().string().find("bad") != std::string::npos) throw std::runtime_error("probe refused");
        const auto bytes = testing::readFile(source);
        testing::writeFile(destination, bytes.substr(0, bytes.size() / 2));
        CleaningResult r;
        r.sourceURL = source;
        r.outputURL = destination;
        r.originalSize = static_cast<std::int64_t>(bytes.size());
        r.cleanedSize = static_cast<std::int64_t>(bytes.size() / 2);
        r.profileUsed = profile;
        r.verifiedClean = true;
        return r;
    }

private:
    std::shared_ptr<State> state_;
};

class ProcessingServiceTest : public ::testing::Test {
protected:
    TempDir dir;
    std::shared_ptr<ProbeWriter::State> probe = std::make_shared<ProbeWriter::State>();

    std::shared_ptr<const TavrinEngine> engine() {
        auto made = std::make_shared<TavrinEngine>();
        made->registerWriter(std::make_shared<ProbeWriter>(probe));
        return made;
    }
    std::vector<BatchRequest> requests(const std::vector<std::string>& names) {
        std::vector<BatchRequest> all;
        for (const auto& name : names) {
            testing::writeFile(dir / name, "0123456789");
            all.push_back(BatchRequest{dir / name, CleaningProfile::maximumPrivacy()});
        }
        return all;
    }
    static void removeOutputs(const std::vector<BatchResult>& results) {
        for (const auto& r : results)
            if (auto c = r.cleaningResult()) stdfs::remove_all(c->outputURL.parent_path());
    }
};

TEST_F(ProcessingServiceTest, concurrencyLimitIsClampedToOneThroughEight) {
    const std::vector<std::pair<int, int>> cases = {{-3, 1}, {0, 1}, {1, 1}, {4, 4}, {8, 8}, {9, 8}, {100, 8}};
    for (auto [given, expected] : cases) {
        SCOPED_TRACE(given);
        EXPECT_EQ(ProcessingService(given, engine()).concurrencyLimit(), expected);
    }
}

TEST_F(ProcessingServiceTest, emptyBatchReturnsNothingAndReportsThreeZeros) {
    ProcessingService service(4, engine());
    EXPECT_TRUE(service.processBatch(std::vector<BatchRequest>{}).empty());
    const auto events = service.progressStream().drain();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].eventCase(), ProgressEvent::Case::batchCompleted);
    EXPECT_EQ(events[0].totalCount(), 0);
    EXPECT_EQ(events[0].successCount(), 0);
    EXPECT_EQ(events[0].failureCount(), 0);
}

TEST_F(ProcessingServiceTest, atMostTheLimitRunAtOnceAndResultsComeInRequestOrder) {
    ProcessingService service(2, engine());
    const auto results = service.processBatch(requests({"a.jpg", "b.jpg", "c.jpg", "d.jpg", "e.jpg"}));
    ASSERT_EQ(results.size(), 5u);
    for (std::size_t i = 0; i < results.size(); ++i) {
        EXPECT_EQ(results[i].index, static_cast<std::int64_t>(i));
        EXPECT_TRUE(results[i].isSuccess());
    }
    EXPECT_LE(probe->maxRunning, 2);
    removeOutputs(results);
}

TEST_F(ProcessingServiceTest, eachFileGetsItsOwnOutputDirectorySoEqualNamesDoNotCollide) {
    stdfs::create_directories(dir / "one");
    stdfs::create_directories(dir / "two");
    testing::writeFile(dir / "one/same.jpg", "first file");
    testing::writeFile(dir / "two/same.jpg", "second file!");
    ProcessingService service(2, engine());
    const auto results = service.processBatch({dir / "one/same.jpg", dir / "two/same.jpg"}, CleaningProfile::maximumPrivacy());
    ASSERT_EQ(results.size(), 2u);
    const auto first = results[0].cleaningResult().value().outputURL;
    const auto second = results[1].cleaningResult().value().outputURL;
    EXPECT_NE(first.parent_path(), second.parent_path());
    EXPECT_EQ(first.filename(), "same.jpg");
    EXPECT_EQ(first.parent_path().filename().string().rfind("tavrin_output_", 0), 0u);
    EXPECT_EQ(testing::readFile(first), "first");
    EXPECT_EQ(testing::readFile(second), "second");
    removeOutputs(results);
}

TEST_F(ProcessingServiceTest, failuresStayInTheirResultsAndTheBatchGoesOn) {
    ProcessingService service(3, engine());
    auto batch = requests({"good.jpg", "bad.jpg", "unknown.xyz"});
    batch.push_back(BatchRequest{dir / "missing.jpg", CleaningProfile::maximumPrivacy()});
    const auto results = service.processBatch(batch);
    ASSERT_EQ(results.size(), 4u);
    EXPECT_TRUE(results[0].isSuccess());
    for (std::size_t i = 1; i < 4; ++i) {
        SCOPED_TRACE(i);
        EXPECT_FALSE(results[i].isSuccess());
        EXPECT_TRUE(results[i].error());
        EXPECT_FALSE(results[i].cleaningResult());
    }
    const auto events = service.progressStream().drain();
    const auto& last = events.back();
    EXPECT_EQ(last.eventCase(), ProgressEvent::Case::batchCompleted);
    EXPECT_EQ(last.successCount(), 1);
    EXPECT_EQ(last.failureCount(), 3);
    removeOutputs(results);
}

TEST_F(ProcessingServiceTest, eventsOfAFileStartBeforeTheyEndAndFractionsReachOne) {
    ProcessingService service(2, engine());
    const auto results = service.processBatch(requests({"a.jpg", "b.jpg", "bad.jpg", "c.jpg"}));
    const auto events = service.progressStream().drain();
    ASSERT_EQ(events.size(), 9u);  // a start and an end per file, then the batch
    std::map<std::int64_t, int> state;  // 1 started, 2 ended
    double lastEndFraction = 0;
    for (const auto& e : events) {
        switch (e.eventCase()) {
            case ProgressEvent::Case::fileStarted:
                EXPECT_EQ(state[e.index()], 0);
                EXPECT_DOUBLE_EQ(e.fractionComplete(), static_cast<double>(e.index()) / 4);
                state[e.index()] = 1;
                break;
            case ProgressEvent::Case::fileCompleted:
            case ProgressEvent::Case::fileFailed:
                EXPECT_EQ(state[e.index()], 1);
                EXPECT_DOUBLE_EQ(e.fractionComplete(), static_cast<double>(e.index() + 1) / 4);
                if (e.index() == 3) lastEndFraction = e.fractionComplete();
                state[e.index()] = 2;
                break;
            case ProgressEvent::Case::batchCompleted:
                EXPECT_DOUBLE_EQ(e.fractionComplete(), 1.0);
                break;
        }
        if (e.fileName() == "a.jpg" && e.eventCase() == ProgressEvent::Case::fileCompleted) {
            EXPECT_EQ(e.bytesSaved(), 5);
        }
        if (e.fileName() == "bad.jpg") {
            EXPECT_NE(e.eventCase(), ProgressEvent::Case::fileCompleted);
        }
    }
    EXPECT_DOUBLE_EQ(lastEndFraction, 1.0);
    removeOutputs(results);
}

TEST_F(ProcessingServiceTest, aStopRequestKeepsFurtherFilesFromStartingAndReturnsThoseThatRan) {
    ProcessingService service(2, engine());
    probe->held = true;
    std::stop_source stop;
    std::vector<BatchResult> results;
    std::thread batch([&] { results = service.processBatch(requests({"0.jpg", "1.jpg", "2.jpg", "3.jpg", "4.jpg"}), stop.get_token()); });
    {
        std::unique_lock lock(probe->mutex);
        probe->changed.wait(lock, [&] { return probe->running == 2; });
    }
    stop.request_stop();
    {
        std::lock_guard lock(probe->mutex);
        probe->held = false;
    }
    probe->changed.notify_all();
    batch.join();
    EXPECT_EQ(probe->started, 2);
    ASSERT_EQ(results.size(), 2u);
    EXPECT_EQ(results[0].index, 0);
    EXPECT_EQ(results[1].index, 1);
    EXPECT_TRUE(results[0].isSuccess() && results[1].isSuccess());
    const auto events = service.progressStream().drain();
    EXPECT_EQ(events.back().eventCase(), ProgressEvent::Case::batchCompleted);
    EXPECT_EQ(events.back().totalCount(), 2);
    removeOutputs(results);
}

TEST_F(ProcessingServiceTest, processFileSendsNoEventAndLeavesNothingBehindOnFailure) {
    // Temporary directories go to a folder of this test's own, so that they can be counted.
    const auto tmp = dir / "tmp";
    stdfs::create_directories(tmp);
    const char* previous = std::getenv("TMPDIR");
    const std::string saved = previous ? previous : "";
    ::setenv("TMPDIR", tmp.c_str(), 1);
    ProcessingService service(1, engine());
    auto batch = requests({"one.jpg", "bad.jpg"});
    const auto result = service.processFile(batch[0].url, batch[0].profile);
    EXPECT_EQ(result.outputURL.parent_path().parent_path(), tmp);
    EXPECT_TRUE(stdfs::exists(result.outputURL));
    stdfs::remove_all(result.outputURL.parent_path());
    EXPECT_THROW(service.processFile(batch[1].url, batch[1].profile), PipelineError);
    EXPECT_TRUE(stdfs::is_empty(tmp));
    EXPECT_FALSE(service.progressStream().tryNext());
    if (previous) ::setenv("TMPDIR", saved.c_str(), 1);
    else ::unsetenv("TMPDIR");
}

TEST_F(ProcessingServiceTest, aConsumerIsToldOfEachEventAsItIsQueued) {
    ProcessingService service(2, engine());
    std::atomic<int> told{0};
    service.progressStream().setOnEvent([&] { ++told; });
    const auto results = service.processBatch(requests({"a.jpg", "b.jpg"}));
    EXPECT_EQ(told, 5);
    EXPECT_EQ(service.progressStream().drain().size(), 5u);
    removeOutputs(results);
}

}  // namespace
}  // namespace tavrin
