#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>

#include "model/pipeline_error.h"
#include "pipeline/tavrin_engine.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

// A reader that fails with a chosen error, or returns one item.
class FakeReader : public MetadataReader {
public:
    FakeReader(std::set<FileType> types, std::exception_ptr failure = nullptr)
        : types_(std::move(types)), failure_(failure) {}
    std::set<FileType> supportedTypes() const override { return types_; }
    MetadataTree readMetadata(const std::filesystem::path& url) const override {
        if (failure_) std::rethrow_exception(failure_);
        return buildTree({MetadataItem{"Fake.Key", "Key", "Key", MetadataValue::string("v"),
                                       MetadataCategory::authorIdentity, MetadataSource::unknown, true}},
                         url, FileType::jpeg);
    }

private:
    std::set<FileType> types_;
    std::exception_ptr failure_;
};

// A writer that copies the source, or fails with a chosen error after writing.
class FakeWriter : public MetadataWriter {
public:
    FakeWriter(std::set<FileType> types, std::exception_ptr failure = nullptr, bool verified = true)
        : types_(std::move(types)), failure_(failure), verified_(verified) {}
    std::set<FileType> supportedTypes() const override { return types_; }
    CleaningResult cleanMetadata(const std::filesystem::path& source, const std::filesystem::path& destination,
                                 const CleaningProfile& profile) const override {
        std::filesystem::copy_file(source, destination);
        if (failure_) std::rethrow_exception(failure_);
        CleaningResult r;
        r.sourceURL = source;
        r.outputURL = destination;
        r.profileUsed = profile;
        r.verifiedClean = verified_;
        return r;
    }

private:
    std::set<FileType> types_;
    std::exception_ptr failure_;
    bool verified_;
};

template <typename F>
PipelineError::Case caseOf(F&& f) {
    try {
        f();
    } catch (const PipelineError& e) {
        return e.errorCase();
    }
    ADD_FAILURE() << "no PipelineError";
    return PipelineError::Case::cancelled;
}

// An engine with no format of its own: each test registers the fakes it needs.
class PipelineTest : public ::testing::Test {
protected:
    testing::TempDir dir;
    TavrinEngine engine{EngineConfiguration::standard(), std::make_unique<CleaningPipeline>()};
    std::filesystem::path file(const char* name, std::string_view bytes = "data") {
        auto p = dir / name;
        testing::writeFile(p, bytes);
        return p;
    }
    std::filesystem::path outDir() {
        auto p = dir / "out";
        std::filesystem::create_directories(p);
        return p;
    }
};

TEST_F(PipelineTest, strictGateRefusesMovEvenWithAWriter) {
    engine.registerReader(std::make_shared<FakeReader>(std::set{FileType::mov}));
    engine.registerWriter(std::make_shared<FakeWriter>(std::set{FileType::mov}));
    EXPECT_TRUE(engine.supportedCleaningTypes().count(FileType::mov));
    try {
        engine.clean(file("clip.mov"), CleaningProfile::maximumPrivacy(), outDir());
        FAIL();
    } catch (const PipelineError& e) {
        EXPECT_EQ(e.errorCase(), PipelineError::Case::formatNotVerifiedForCleaning);
        EXPECT_STREQ(e.what(),
                     "QuickTime Movie cleaning is blocked in strict mode because metadata removal has not been fully "
                     "verified for release.");
    }
    EXPECT_TRUE(std::filesystem::is_empty(outDir()));
}

TEST_F(PipelineTest, checksRunInOrder) {
    using K = PipelineError::Case;
    const auto jpg = file("a.jpg");
    // The source is tested before the output folder.
    EXPECT_EQ(caseOf([&] { engine.clean(dir / "missing.jpg", {}, dir / "nope"); }), K::sourceFileNotAccessible);
    EXPECT_EQ(caseOf([&] { engine.clean(jpg, {}, dir / "nope"); }), K::outputDirectoryNotAccessible);
    EXPECT_EQ(caseOf([&] { engine.clean(jpg, {}, jpg); }), K::outputDirectoryNotAccessible);
    EXPECT_EQ(caseOf([&] { engine.clean(dir.path(), {}, outDir()); }), K::sourceFileNotAccessible);
    EXPECT_EQ(caseOf([&] { engine.clean(file("empty.xyz", ""), {}, outDir()); }), K::fileTypeUnknown);
    EXPECT_EQ(caseOf([&] { engine.clean(file("e.docx", "\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1"), {}, outDir()); }),
              K::encryptedOfficeDocument);
    EXPECT_EQ(caseOf([&] { engine.inspect(file("f.docx", "\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1")); }),
              K::encryptedOfficeDocument);
    EXPECT_EQ(caseOf([&] { engine.clean(file("a.doc"), {}, outDir()); }), K::formatNotVerifiedForCleaning);
    // Nothing registered reads a legacy document.
    EXPECT_EQ(caseOf([&] { engine.inspect(file("b.doc")); }), K::noReaderAvailable);
}

TEST_F(PipelineTest, readerErrorsAreAlwaysWrappedWriterPipelineErrorsPassThrough) {
    const auto jpg = file("a.jpg");
    engine.registerReader(std::make_shared<FakeReader>(
        std::set{FileType::jpeg}, std::make_exception_ptr(PipelineError::noReaderAvailable(FileType::png))));
    try {
        engine.inspect(jpg);
        FAIL();
    } catch (const PipelineError& e) {
        EXPECT_EQ(e.errorCase(), PipelineError::Case::readFailed);
        EXPECT_EQ(e.description(), "Failed to read metadata from a.jpg: No metadata reader available for PNG Image files");
        EXPECT_TRUE(e.underlying());
    }

    engine.registerWriter(std::make_shared<FakeWriter>(
        std::set{FileType::jpeg}, std::make_exception_ptr(PipelineError::outputVerificationFailed(jpg))));
    EXPECT_EQ(caseOf([&] { engine.clean(jpg, {}, outDir()); }), PipelineError::Case::outputVerificationFailed);

    std::filesystem::remove_all(outDir());
    engine.registerWriter(
        std::make_shared<FakeWriter>(std::set{FileType::jpeg}, std::make_exception_ptr(std::runtime_error("disk full"))));
    try {
        engine.clean(jpg, {}, outDir());
        FAIL();
    } catch (const PipelineError& e) {
        EXPECT_EQ(e.description(), "Failed to clean a.jpg: disk full");
    }
}

TEST_F(PipelineTest, cleanToFileNeverTouchesAnExistingTargetAndLeavesNothingOnFailure) {
    const auto jpg = file("a.jpg", "source bytes");
    const auto target = file("taken.jpg", "precious");
    engine.registerWriter(std::make_shared<FakeWriter>(std::set{FileType::jpeg}));
    EXPECT_THROW(engine.cleanToFile(jpg, {}, target), FileSystemError);
    EXPECT_EQ(testing::readFile(target), "precious");

    // A writer that fails after writing leaves nothing at the requested path.
    engine.registerWriter(std::make_shared<FakeWriter>(
        std::set{FileType::jpeg}, std::make_exception_ptr(PipelineError::outputVerificationFailed(jpg))));
    EXPECT_THROW(engine.cleanToFile(jpg, {}, dir / "new.jpg"), PipelineError);
    EXPECT_FALSE(std::filesystem::exists(dir / "new.jpg"));

    // An unverified result is never published either.
    engine.registerWriter(std::make_shared<FakeWriter>(std::set{FileType::jpeg}, nullptr, false));
    EXPECT_THROW(engine.cleanToFile(jpg, {}, dir / "new.jpg"), PipelineError);
    EXPECT_FALSE(std::filesystem::exists(dir / "new.jpg"));

    engine.registerWriter(std::make_shared<FakeWriter>(std::set{FileType::jpeg}));
    const auto result = engine.cleanToFile(jpg, {}, dir / "new.jpg");
    EXPECT_EQ(result.outputURL, dir / "new.jpg");
    EXPECT_EQ(testing::readFile(dir / "new.jpg"), "source bytes");
    EXPECT_EQ(testing::readFile(jpg), "source bytes");
}

TEST_F(PipelineTest, batchCleanKeepsInputOrderAndReportsEachFile) {
    EXPECT_TRUE(engine.batchClean({}, {}, outDir()).empty());
    EXPECT_THROW(engine.batchClean({}, {}, dir / "nope"), PipelineError);

    engine.registerWriter(std::make_shared<FakeWriter>(std::set{FileType::jpeg}));
    std::vector<std::filesystem::path> files;
    for (int i = 0; i < 12; ++i) files.push_back(file(("f" + std::to_string(i) + ".jpg").c_str()));
    files.push_back(file("bad.mov"));
    files.push_back(dir / "missing.jpg");
    std::vector<std::size_t> finished;
    BatchRunOptions options;
    options.maxParallel = 3;
    options.onFinished = [&](std::size_t index, std::size_t completed) {
        finished.push_back(index);
        EXPECT_EQ(completed, finished.size());
    };
    const auto results = engine.batchClean(files, {}, outDir(), options);
    ASSERT_EQ(results.size(), files.size());
    for (std::size_t i = 0; i < files.size(); ++i) {
        EXPECT_EQ(results[i].sourceURL, files[i]);
        EXPECT_EQ(results[i].isSuccess(), i < 12) << i;
    }
    EXPECT_EQ(finished.size(), files.size());
}

TEST(BatchRunner, stopRequestEndsNewStartsAndUnstartedFilesReadAsCancelled) {
    testing::TempDir dir;
    TavrinEngine engine(EngineConfiguration::standard(), std::make_unique<CleaningPipeline>());
    engine.registerWriter(std::make_shared<FakeWriter>(std::set{FileType::jpeg}));
    std::vector<std::filesystem::path> files;
    for (int i = 0; i < 10; ++i) {
        files.push_back(dir / ("f" + std::to_string(i) + ".jpg"));
        testing::writeFile(files.back(), "x");
    }
    std::filesystem::create_directories(dir / "out");
    std::atomic<std::size_t> ended{0};
    BatchRunOptions options;
    options.maxParallel = 1;
    options.onFinished = [&](std::size_t, std::size_t completed) { ended = completed; };
    options.shouldStop = [&] { return ended >= 4; };
    const auto results = engine.batchClean(files, {}, dir / "out", options);
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (i < 4) {
            EXPECT_TRUE(results[i].isSuccess()) << i;
        } else {
            ASSERT_FALSE(results[i].isSuccess()) << i;
            EXPECT_EQ(caseOf([&] { std::rethrow_exception(std::get<std::exception_ptr>(results[i].result)); }),
                      PipelineError::Case::cancelled);
        }
    }
    EXPECT_EQ(runBatch(0, [](std::size_t) {}), 0u);
}

TEST_F(PipelineTest, registrationReplacesAndListsTypes) {
    engine.registerReader(std::make_shared<FakeReader>(
        std::set{FileType::doc}, std::make_exception_ptr(PipelineError::noReaderAvailable(FileType::doc))));
    engine.registerReader(std::make_shared<FakeReader>(std::set{FileType::doc, FileType::gif}));
    engine.registerWriter(std::make_shared<FakeWriter>(std::set{FileType::gif, FileType::xls}));
    EXPECT_TRUE(engine.supportedInspectionTypes().count(FileType::doc));
    // Of these three only gif has both a reader and a writer.
    const auto cleanable = engine.supportedCleaningTypes();
    EXPECT_TRUE(cleanable.count(FileType::gif));
    EXPECT_FALSE(cleanable.count(FileType::doc));
    EXPECT_FALSE(cleanable.count(FileType::xls));
    const auto tree = engine.inspect(file("x.doc"));
    EXPECT_EQ(tree.totalItemCount(), 1u);
}

TEST(CleanedFileURL, namesBesideTheSourceOrInAFolder) {
    EXPECT_EQ(TavrinEngine::cleanedFileURL("/a/Photo.JPG"), "/a/Photo_cleaned.JPG");
    EXPECT_EQ(TavrinEngine::cleanedFileURL("/a/README"), "/a/README_cleaned");
    EXPECT_EQ(TavrinEngine::cleanedFileURL("/a/r.tar.gz", std::filesystem::path("/out")), "/out/r.tar_cleaned.gz");
}

}  // namespace
}  // namespace tavrin
