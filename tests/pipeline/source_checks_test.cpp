// What the pipeline refuses before any reader runs, and what it never repeats in a message.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fcntl.h>
#include <functional>
#include <future>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

#include "model/pipeline_error.h"
#include "pipeline/tavrin_engine.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

// Counts its calls; a refused source must leave it at zero.
class CountingReader : public MetadataReader {
public:
    explicit CountingReader(std::exception_ptr failure = nullptr) : failure_(failure) {}
    std::set<FileType> supportedTypes() const override { return {FileType::jpeg, FileType::pdf, FileType::docx}; }
    MetadataTree readMetadata(const std::filesystem::path& url) const override {
        ++calls;
        if (failure_) std::rethrow_exception(failure_);
        return MetadataTree::empty(url, FileType::jpeg);
    }
    mutable std::atomic<int> calls{0};

private:
    std::exception_ptr failure_;
};

class CountingWriter : public MetadataWriter {
public:
    std::set<FileType> supportedTypes() const override { return {FileType::jpeg, FileType::pdf}; }
    CleaningResult cleanMetadata(const std::filesystem::path& source, const std::filesystem::path& destination,
                                 const CleaningProfile&) const override {
        ++calls;
        std::filesystem::copy_file(source, destination);
        CleaningResult r;
        r.sourceURL = source;
        r.outputURL = destination;
        r.verifiedClean = true;
        return r;
    }
    mutable std::atomic<int> calls{0};
};

struct SpecialSource {
    const char* name;
    std::function<std::filesystem::path(const std::filesystem::path& dir)> make;
    std::string expectedText;
};

std::filesystem::path fifo(const std::filesystem::path& dir, const char* name) {
    const auto p = dir / name;
    EXPECT_EQ(::mkfifo(p.c_str(), 0600), 0);
    return p;
}

std::filesystem::path symlinkTo(const std::filesystem::path& dir, const char* name, const char* target) {
    const auto p = dir / name;
    std::filesystem::create_symlink(target, p);
    return p;
}

// A sparse file: as large as asked on paper, taking no disk space.
std::filesystem::path sparse(const std::filesystem::path& dir, const char* name, off_t size) {
    const auto p = dir / name;
    testing::writeFile(p, "\xFF\xD8\xFF");
    EXPECT_EQ(::truncate(p.c_str(), size), 0);
    return p;
}

// Runs `operation` on another thread; should it block, a writer opens the pipe to release it so
// that the test fails instead of hanging.
void withTimeOutGuard(const std::filesystem::path& source, const std::function<void()>& operation) {
    auto done = std::async(std::launch::async, operation);
    if (done.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
        ADD_FAILURE() << "blocked on " << source;
        const int fd = ::open(source.c_str(), O_RDWR | O_NONBLOCK);
        if (fd >= 0) ::close(fd);
    }
    done.get();
}

TEST(SourceChecks, refusesWhatIsNotARegularFileOrTooLargeBeforeAnyReaderRuns) {
    const std::vector<SpecialSource> cases = {
        {"named pipe named like a photo", [](const auto& d) { return fifo(d, "pipe.jpg"); },
         "Cannot access file: pipe.jpg (not a regular file: a named pipe)"},
        {"named pipe named like a PDF", [](const auto& d) { return fifo(d, "pipe.pdf"); },
         "Cannot access file: pipe.pdf (not a regular file: a named pipe)"},
        {"named pipe with no extension", [](const auto& d) { return fifo(d, "pipe"); },
         "Cannot access file: pipe (not a regular file: a named pipe)"},
        {"endless device behind a photo's name", [](const auto& d) { return symlinkTo(d, "zero.jpg", "/dev/zero"); },
         "Cannot access file: zero.jpg (not a regular file: a character device)"},
        {"endless device behind a PDF's name", [](const auto& d) { return symlinkTo(d, "zero.pdf", "/dev/zero"); },
         "Cannot access file: zero.pdf (not a regular file: a character device)"},
        {"sparse photo over the image limit", [](const auto& d) { return sparse(d, "huge.jpg", 600'000'000); },
         "Cannot access file: huge.jpg (600 MB is over the 512 MB limit for JPEG Image files, because an image "
         "is read whole into memory and every frame is decoded to verify it)"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        testing::TempDir dir;
        const auto source = c.make(dir.path());
        auto pipeline = std::make_unique<CleaningPipeline>();
        auto reader = std::make_shared<CountingReader>();
        auto writer = std::make_shared<CountingWriter>();
        pipeline->registerReader(reader);
        pipeline->registerWriter(writer);
        TavrinEngine engine(EngineConfiguration::standard(), std::move(pipeline));
        std::filesystem::create_directories(dir / "out");
        for (int operation = 0; operation < 3; ++operation) {
            withTimeOutGuard(source, [&] {
                try {
                    if (operation == 0) engine.inspect(source);
                    else if (operation == 1) engine.clean(source, {}, dir / "out");
                    else engine.cleanToFile(source, {}, dir / "out" / "cleaned.jpg");
                    ADD_FAILURE() << "accepted";
                } catch (const PipelineError& e) {
                    EXPECT_EQ(e.errorCase(), PipelineError::Case::sourceFileNotAccessible);
                    EXPECT_EQ(e.description(), c.expectedText);
                    EXPECT_FALSE(e.reason().empty());
                }
            });
        }
        EXPECT_EQ(reader->calls.load(), 0);
        EXPECT_EQ(writer->calls.load(), 0);
        EXPECT_FALSE(TavrinEngine::isPDFEncrypted(source));
        EXPECT_TRUE(std::filesystem::is_empty(dir / "out"));
    }
}

TEST(SourceChecks, aFileAtItsTypesLimitIsStillRead) {
    testing::TempDir dir;
    const auto source = sparse(dir.path(), "big.jpg", 512'000'000);
    auto pipeline = std::make_unique<CleaningPipeline>();
    auto reader = std::make_shared<CountingReader>();
    pipeline->registerReader(reader);
    TavrinEngine engine(EngineConfiguration::standard(), std::move(pipeline));
    engine.inspect(source);
    EXPECT_EQ(reader->calls.load(), 1);
}

TEST(SourceChecks, everyTypeHasASizeLimitWithItsReason) {
    for (FileType type : fileTypes::allCases()) {
        const auto limit = sourceSizeLimit(type);
        EXPECT_GE(limit.bytes, 100'000'000u) << rawValue(type);
        EXPECT_FALSE(limit.reason.empty()) << rawValue(type);
    }
}

// A reader that already failed with "Failed to read metadata from X" is not wrapped again; any
// other failure is wrapped once.
TEST(SourceChecks, aReadFailureCarriesItsPrefixOnce) {
    struct Case {
        const char* name;
        std::exception_ptr failure;
        std::string expected;
    };
    testing::TempDir dir;
    const auto source = dir / "memo.docx";
    testing::writeFile(source, "PK\3\4 not really a package");
    const std::vector<Case> cases = {
        {"reader's own readFailed",
         std::make_exception_ptr(
             PipelineError::readFailed(source, std::make_exception_ptr(std::runtime_error("no content types")))),
         "Failed to read metadata from memo.docx: no content types"},
        {"plain error", std::make_exception_ptr(std::runtime_error("truncated")),
         "Failed to read metadata from memo.docx: truncated"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto pipeline = std::make_unique<CleaningPipeline>();
        pipeline->registerReader(std::make_shared<CountingReader>(c.failure));
        TavrinEngine engine(EngineConfiguration::standard(), std::move(pipeline));
        try {
            engine.inspect(source);
            ADD_FAILURE() << "accepted";
        } catch (const PipelineError& e) {
            EXPECT_EQ(e.errorCase(), PipelineError::Case::readFailed);
            EXPECT_EQ(e.description(), c.expected);
        }
    }
}

}  // namespace
}  // namespace tavrin
