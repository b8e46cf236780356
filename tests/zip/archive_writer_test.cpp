// The writer: what it writes reads back the same (also to the system's unzip), failed edits leave
// the archive as it was, and offsets past 4 GiB take ZIP64 records.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include "raw_zip_builder.h"
#include "support/test_support.h"
#include "zip_test_helpers.h"

namespace tavrin {
namespace {

using Case = ArchiveError::Case;
using testing::addFile;
using testing::extractAll;
using testing::failureOf;
using testing::providerOf;
using testing::TempDir;

TEST(ZipWriter, writesEntriesThatReadBackUnchanged) {
    TempDir dir;
    const std::vector<std::pair<std::string, std::string>> files = {
        {"[Content_Types].xml", "<Types/>"},
        {"word/document.xml", "<w:document>" + std::string(100000, 'a') + "</w:document>"},
        {"word/media/image1.png", testing::noise(70000)},
        {"docProps/empty.xml", ""},
        {"word/m\xc3\xa9lange.xml", "<x/>"},
    };
    {
        Archive archive(dir / "a.zip", Archive::AccessMode::create);
        for (const auto& [path, data] : files) addFile(archive, path, data);
        addFile(archive, "stored.bin", "kept as is", CompressionMethod::none);
        addFile(archive, "word/", "", CompressionMethod::deflate, EntryType::directory);
    }
    const Archive archive(dir / "a.zip", Archive::AccessMode::read);
    ASSERT_EQ(archive.entries().size(), files.size() + 2);
    for (std::size_t i = 0; i < files.size(); ++i) {
        EXPECT_EQ(archive.entries()[i].path(), files[i].first);
        EXPECT_EQ(extractAll(archive, archive.entries()[i]), files[i].second);
        EXPECT_EQ(archive.entries()[i].type(), EntryType::file);
        EXPECT_EQ(archive.entries()[i].fileAttributes() & 0777, Archive::defaultFilePermissions);
    }
    EXPECT_EQ(archive["docProps/empty.xml"]->checksum(), 0u);
    EXPECT_EQ(archive["word/"]->type(), EntryType::directory);
    EXPECT_EQ(archive["word/"]->fileAttributes() & 0777, Archive::defaultDirectoryPermissions);
    EXPECT_FALSE(archive.zip64EndOfCentralDirectory().has_value());
    // Stored data keeps its bytes in the file.
    EXPECT_NE(testing::readFile(dir / "a.zip").find("kept as is"), std::string::npos);
    EXPECT_FALSE(archive["stored.bin"]->isCompressed());
    EXPECT_TRUE(archive["word/document.xml"]->isCompressed());
    // Our own output is readable by the system's unzip.
    std::string listing;
    EXPECT_EQ(testing::runCommand("unzip -tq " + testing::shellQuote((dir / "a.zip").string()) + " 2>&1", &listing), 0)
        << listing;
}

TEST(ZipWriter, refusesInvalidRequestsThenUpdatesKeepingTheComment) {
    TempDir dir;
    testing::writeFile(dir / "a.zip", testing::buildRawZip({{.name = "a", .data = "1"}}, {.comment = "hello"}));
    EXPECT_EQ(failureOf([&] { Archive(dir / "a.zip", Archive::AccessMode::create); }), Case::unwritableArchive);
    EXPECT_EQ(failureOf([&] { Archive(dir / "missing.zip", Archive::AccessMode::read); }), Case::unreadableArchive);

    Archive readOnly(dir / "a.zip", Archive::AccessMode::read);
    EXPECT_EQ(failureOf([&] { addFile(readOnly, "b", "2"); }), Case::unwritableArchive);
    EXPECT_EQ(failureOf([&] { readOnly.remove(readOnly.entries()[0]); }), Case::unwritableArchive);
    {
        Archive archive(dir / "a.zip", Archive::AccessMode::update);
        for (const char* path : {"", "../x", "/x", "a", "A"})
            EXPECT_EQ(failureOf([&] { addFile(archive, path, "2"); }), Case::invalidEntryPath) << path;
        EXPECT_EQ(failureOf([&] {
                      archive.addEntry("b", EntryType::file, 1, {}, std::nullopt, CompressionMethod::none, 0, nullptr,
                                       providerOf("x"));
                  }),
                  Case::invalidBufferSize);
        EXPECT_EQ(archive.entries().size(), 1u);
        addFile(archive, "b", "2");
    }
    const Archive archive(dir / "a.zip", Archive::AccessMode::read);
    EXPECT_EQ(archive.endOfCentralDirectoryRecord().zipFileCommentData, "hello");
    EXPECT_EQ(extractAll(archive, *archive["a"]), "1");
    EXPECT_EQ(extractAll(archive, *archive["b"]), "2");
}

TEST(ZipWriter, rollsBackAFailedAddition) {
    TempDir dir;
    {
        Archive archive(dir / "a.zip", Archive::AccessMode::create);
        addFile(archive, "first.xml", testing::noise(20000));
    }
    const std::string before = testing::readFile(dir / "a.zip");
    struct ProviderFailed {};
    const std::string data = testing::noise(100000);
    const std::vector<std::pair<const char*, Archive::Provider>> failures = {
        {"provider throws", [&](std::int64_t position, std::size_t size) -> std::vector<std::uint8_t> {
             if (position > 50000) throw ProviderFailed{};
             return providerOf(data)(position, size);
         }},
        {"provider comes up short", [&](std::int64_t position, std::size_t size) {
             return providerOf(data)(position, size / 2);
         }},
    };
    for (const auto& [name, provider] : failures) {
        SCOPED_TRACE(name);
        for (auto method : {CompressionMethod::deflate, CompressionMethod::none}) {
            Archive archive(dir / "a.zip", Archive::AccessMode::update);
            EXPECT_ANY_THROW(archive.addEntry("second.bin", EntryType::file, static_cast<std::int64_t>(data.size()),
                                              std::chrono::system_clock::now(), std::nullopt, method, 16384, nullptr,
                                              provider));
            EXPECT_EQ(archive.entries().size(), 1u);
            EXPECT_EQ(testing::readFile(dir / "a.zip"), before);
            // The archive is still usable for the next addition.
            addFile(archive, "third.xml", "<x/>");
            EXPECT_EQ(extractAll(archive, *archive["third.xml"]), "<x/>");
            testing::writeFile(dir / "a.zip", before);
        }
    }
}

TEST(ZipWriter, removesEntriesAndRewritesOffsets) {
    TempDir dir;
    for (bool inMemory : {false, true}) {
        SCOPED_TRACE(inMemory ? "memory" : "file");
        std::filesystem::remove(dir / "r.zip");
        Archive archive = inMemory ? Archive(std::vector<std::uint8_t>{}, Archive::AccessMode::create)
                                   : Archive(dir / "r.zip", Archive::AccessMode::create);
        addFile(archive, "a", testing::noise(30000, 1));
        addFile(archive, "b", testing::noise(30000, 2));
        addFile(archive, "c", testing::noise(30000, 3));
        archive.remove(*archive["b"]);
        ASSERT_EQ(archive.entries().size(), 2u);
        EXPECT_EQ(extractAll(archive, *archive["a"]), testing::noise(30000, 1));
        EXPECT_EQ(extractAll(archive, *archive["c"]), testing::noise(30000, 3));
        archive.remove(*archive["a"]);
        archive.remove(*archive["c"]);
        EXPECT_TRUE(archive.entries().empty());
        const std::uint64_t size = inMemory ? archive.data()->size() : std::filesystem::file_size(dir / "r.zip");
        EXPECT_EQ(size, EndOfCentralDirectoryRecord::fixedSize);
        // A valid empty archive: it opens again and takes new entries.
        addFile(archive, "d", "4");
        EXPECT_EQ(extractAll(archive, *archive["d"]), "4");
        // Nothing but the archive is left in its folder.
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), inMemory ? 0 : 1);
    }
}

TEST(ZipWriter, storesModificationDatesInTwoSecondSteps) {
    using namespace std::chrono;
    const system_clock::time_point date = sys_days{year{2023} / 7 / 14} + hours{9} + minutes{30} + seconds{41};
    const system_clock::time_point ancient = sys_days{year{1970} / 1 / 2};
    Archive archive(std::vector<std::uint8_t>{}, Archive::AccessMode::create);
    for (const auto& [path, when] : {std::pair{"new", date}, std::pair{"old", ancient}})
        addFile(archive, path, "x", CompressionMethod::none, EntryType::file, when);
    EXPECT_EQ(archive["new"]->modificationDate(), date - seconds{1});
    const Archive reopened(*archive.data(), Archive::AccessMode::read);
    EXPECT_EQ(reopened["new"]->modificationDate(), archive["new"]->modificationDate());
    // Dates before 1980 cannot be written and become its first day.
    const std::time_t t = system_clock::to_time_t(reopened["old"]->modificationDate());
    std::tm local{};
    localtime_r(&t, &local);
    EXPECT_EQ(local.tm_year, 80);
}

// An archive whose first entry spans more than 4 GiB of a sparse file, so that what follows needs
// ZIP64 offsets: extended with our writer and read back.
TEST(ZipWriter, writesZip64OffsetsPastFourGibibytes) {
    TempDir dir;
    const std::uint64_t bigSize = (1ull << 32) + 16;
    // The data is a hole that is never read: the reader trusts sizes, not data.
    const std::string bytes = testing::buildRawZip(
        {{.name = "big.bin", .data = "", .zip64 = true, .declaredSize = bigSize, .declaredCompressedSize = bigSize}},
        {.zip64EndRecords = true, .gap = bigSize});
    const std::size_t headerSize = 30 + 7 + 20;
    const std::uint64_t centralOffset = headerSize + bigSize;
    const auto path = dir / "big.zip";
    const int fd = ::open(path.c_str(), O_CREAT | O_WRONLY, 0644);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::pwrite(fd, bytes.data(), headerSize, 0), static_cast<ssize_t>(headerSize));
    ASSERT_EQ(::pwrite(fd, bytes.data() + headerSize, bytes.size() - headerSize, static_cast<off_t>(centralOffset)),
              static_cast<ssize_t>(bytes.size() - headerSize));
    ::close(fd);

    {
        Archive archive(path, Archive::AccessMode::update);
        ASSERT_EQ(archive.entries().size(), 1u);
        EXPECT_EQ(archive.entries()[0].uncompressedSize(), bigSize);
        addFile(archive, "small.xml", "<small/>");
    }
    const Archive archive(path, Archive::AccessMode::read);
    ASSERT_TRUE(archive.zip64EndOfCentralDirectory().has_value());
    const auto small = archive["small.xml"];
    ASSERT_TRUE(small.has_value());
    EXPECT_EQ(small->localHeaderOffset(), centralOffset);
    EXPECT_EQ(small->centralDirectoryStructure.relativeOffsetOfLocalHeader, zipLimits::escape32);
    EXPECT_EQ(small->centralDirectoryStructure.versionNeededToExtract, 45);
    EXPECT_EQ(extractAll(archive, *small), "<small/>");
}

}  // namespace
}  // namespace tavrin
