#include <gtest/gtest.h>

#include <unistd.h>

#include "model/data_size.h"
#include "model/file_hash.h"
#include "model/file_system.h"
#include "model/pipeline_error.h"
#include "model/temporary_file.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

TEST(FileHash, wholeAndStreamingAgreeForAnyBufferSize) {
    testing::TempDir dir;
    testing::writeFile(dir / "abc", "abc");
    EXPECT_EQ(FileHash::sha256(dir / "abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    std::string big(100000, '\0');
    for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>(i * 31);
    testing::writeFile(dir / "big", big);
    const auto whole = FileHash::sha256(dir / "big");
    for (std::size_t buffer : {1u, 7u, 4096u, 65536u, 1u << 20})
        EXPECT_EQ(FileHash::sha256Streaming(dir / "big", buffer), whole) << buffer;
    testing::writeFile(dir / "copy", big);
    EXPECT_TRUE(FileHash::filesMatch(dir / "big", dir / "copy"));
    EXPECT_FALSE(FileHash::filesMatch(dir / "big", dir / "abc"));
    EXPECT_THROW(FileHash::sha256Streaming(dir / "missing"), FileSystemError);
}

TEST(DataSize, texts) {
    EXPECT_EQ(DataSize{0}.formatted(), "Zero KB");
    EXPECT_EQ(DataSize{0}.compact(), "0 bytes");
    EXPECT_EQ(DataSize{532}.formatted(), "532 bytes");
    EXPECT_EQ(DataSize{1}.formatted(), "1 byte");
    EXPECT_EQ(DataSize{1500}.formatted(), "2 KB");
    EXPECT_EQ(DataSize{1200000}.formatted(), "1.2 MB");
    EXPECT_EQ(DataSize{3000000000}.formatted(), "3 GB");
    EXPECT_EQ(DataSize::difference(100, 100), "No change");
    EXPECT_EQ(DataSize::difference(1200000, 0), "-1.2 MB");
    EXPECT_EQ(DataSize::difference(0, 5000), "+5 KB");
}

TEST(TemporaryFile, namesCopiesAndRemoval) {
    std::filesystem::path kept;
    {
        TemporaryFile named("tavrin_probe", "bin", true);
        EXPECT_FALSE(std::filesystem::exists(named.url()));  // only a name
        EXPECT_EQ(named.url().extension(), ".bin");
        EXPECT_EQ(named.url().filename().string().rfind("tavrin_probe_", 0), 0u);
    }
    testing::TempDir dir;
    testing::writeFile(dir / "src.txt", "hello");
    {
        TemporaryFile copy(dir / "src.txt", true);
        kept = copy.url();
        EXPECT_EQ(testing::readFile(kept), "hello");
        EXPECT_EQ(kept.extension(), ".txt");
    }
    EXPECT_FALSE(std::filesystem::exists(kept));
    EXPECT_THROW(TemporaryFile(dir / "missing.txt", true), FileSystemError);

    const auto folder = TemporaryFile::makeTemporaryDirectory("tavrin_probe");
    EXPECT_TRUE(std::filesystem::is_directory(folder));
    { ScopedDirectory scoped(folder); }
    EXPECT_FALSE(std::filesystem::exists(folder));
}

TEST(FileSystem, moveNeverReplaces) {
    testing::TempDir dir;
    testing::writeFile(dir / "a", "new");
    testing::writeFile(dir / "b", "old");
    EXPECT_THROW(fs::moveItemNoReplace(dir / "a", dir / "b"), FileSystemError);
    EXPECT_EQ(testing::readFile(dir / "b"), "old");
    fs::moveItemNoReplace(dir / "a", dir / "c");
    EXPECT_EQ(testing::readFile(dir / "c"), "new");
    EXPECT_FALSE(std::filesystem::exists(dir / "a"));
}

// Within one file system and across two (the shared-memory file system stands for a temporary
// folder on another disk): the data arrives whole, the staged file goes, nothing hidden is left
// beside the destination, and an existing file is never replaced.
TEST(FileSystem, publishAcrossFileSystemsLeavesNoStagedCopy) {
    if (!std::filesystem::is_directory("/dev/shm")) GTEST_SKIP() << "no /dev/shm";
    testing::TempDir dir;
    const std::string data(300000, 'x');
    for (const bool acrossFileSystems : {false, true}) {
        SCOPED_TRACE(acrossFileSystems ? "across file systems" : "one file system");
        const auto from = acrossFileSystems ? std::filesystem::path("/dev/shm") / ("tavrin_publish_" + std::to_string(::getpid()))
                                            : dir / "staged.bin";
        const auto out = dir / (acrossFileSystems ? "across" : "within");
        std::filesystem::create_directories(out);
        testing::writeFile(from, data);
        testing::writeFile(out / "taken.bin", "old");
        EXPECT_THROW(fs::moveItemNoReplace(from, out / "taken.bin"), FileSystemError);
        EXPECT_EQ(testing::readFile(out / "taken.bin"), "old");
        fs::moveItemNoReplace(from, out / "photo_cleaned.bin");
        EXPECT_EQ(testing::readFile(out / "photo_cleaned.bin"), data);
        EXPECT_FALSE(std::filesystem::exists(from));
        std::size_t entries = 0;
        for ([[maybe_unused]] const auto& e : std::filesystem::directory_iterator(out)) ++entries;
        EXPECT_EQ(entries, 2u);
    }
}

}  // namespace
}  // namespace tavrin
