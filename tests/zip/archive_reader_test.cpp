#include <gtest/gtest.h>

#include <functional>

#include "raw_zip_builder.h"
#include "support/test_support.h"
#include "zip/archive.h"
#include "zip_test_helpers.h"

namespace tavrin {
namespace {

using Case = ArchiveError::Case;
using testing::buildRawZip;
using testing::bytesOf;
using testing::extractAll;
using testing::RawZipEntry;
using testing::RawZipOptions;

Archive openRaw(const std::string& bytes) { return Archive(bytesOf(bytes), Archive::AccessMode::read); }

// Runs `body` and returns the case of the ArchiveError it throws, or nothing.
std::optional<Case> failureOf(const std::function<void()>& body) {
    try {
        body();
    } catch (const ArchiveError& e) {
        return e.errorCase();
    }
    return std::nullopt;
}

TEST(ZipReader, readsEveryStoredFormOfEntry) {
    const std::string text = "<w:document>" + std::string(40000, 'x') + "</w:document>";
    struct Row {
        const char* name;
        RawZipEntry entry;
        RawZipOptions options;
    };
    const std::vector<Row> rows = {
        {"stored", {.name = "a.xml", .data = text}, {}},
        {"deflated", {.name = "a.xml", .data = text, .deflate = true}, {}},
        {"data descriptor with signature", {.name = "a.xml", .data = text, .deflate = true, .dataDescriptor = true}, {}},
        {"data descriptor without signature",
         {.name = "a.xml", .data = text, .deflate = true, .dataDescriptor = true, .descriptorSignature = false}, {}},
        {"zip64 extra fields", {.name = "a.xml", .data = text, .deflate = true, .zip64 = true}, {}},
        {"zip64 with descriptor", {.name = "a.xml", .data = text, .deflate = true, .dataDescriptor = true, .zip64 = true}, {}},
        {"zip64 end records", {.name = "a.xml", .data = text}, {.zip64EndRecords = true}},
        {"trailing comment", {.name = "a.xml", .data = text}, {.comment = "made by hand"}},
        {"comment holding a record signature", {.name = "a.xml", .data = text}, {.comment = std::string("PK\x05\x06", 4)}},
        {"maximal comment", {.name = "a.xml", .data = text}, {.comment = std::string(65535, 'c')}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const auto bytes = buildRawZip({{.name = "first.txt", .data = "one"}, row.entry}, row.options);
        const Archive archive = openRaw(bytes);
        ASSERT_EQ(archive.entries().size(), 2u);
        EXPECT_EQ(archive.entries()[0].path(), "first.txt");
        const auto entry = archive["a.xml"];
        ASSERT_TRUE(entry.has_value());
        EXPECT_EQ(entry->uncompressedSize(), text.size());
        EXPECT_EQ(extractAll(archive, *entry), text);
        EXPECT_EQ(extractAll(archive, archive.entries()[0]), "one");
        EXPECT_EQ(archive.endOfCentralDirectoryRecord().zipFileCommentData, row.options.comment);
    }
}

TEST(ZipReader, honoursZip64RecordsAndDescriptors) {
    const auto bytes = buildRawZip({{.name = "a", .data = "abc", .dataDescriptor = true, .zip64 = true}},
                                   {.zip64EndRecords = true});
    const Archive archive = openRaw(bytes);
    ASSERT_TRUE(archive.zip64EndOfCentralDirectory().has_value());
    const Entry& entry = archive.entries().at(0);
    ASSERT_TRUE(entry.zip64DataDescriptor.has_value());
    EXPECT_EQ(entry.zip64DataDescriptor->uncompressedSize, 3u);
    EXPECT_EQ(entry.endOffset(), entry.dataOffset() + 3 + 24);
}

TEST(ZipReader, passesChunksNoLargerThanTheBuffer) {
    const std::string text = testing::noise(100000);
    for (bool deflate : {false, true}) {
        const Archive archive = openRaw(buildRawZip({{.name = "n", .data = text, .deflate = deflate}}));
        std::size_t largest = 0;
        std::string joined;
        const auto crc = archive.extract(archive.entries()[0], 1000, false, nullptr, [&](std::span<const std::uint8_t> c) {
            largest = std::max(largest, c.size());
            joined.append(c.begin(), c.end());
        });
        EXPECT_LE(largest, 1000u);
        EXPECT_EQ(joined, text);
        EXPECT_EQ(crc, archive.entries()[0].checksum());
    }
}

TEST(ZipReader, refusesFilesWithoutAnEndRecord) {
    const std::string valid = buildRawZip({{.name = "a", .data = "hello"}});
    const std::vector<std::pair<const char*, std::string>> rows = {
        {"empty", ""},
        {"21 bytes", std::string(21, 'P')},
        {"not a zip", std::string(5000, 'x')},
        {"truncated package", valid.substr(0, valid.size() / 2)},
        {"record cut short", valid.substr(0, valid.size() - 1)},
    };
    for (const auto& [name, bytes] : rows) {
        SCOPED_TRACE(name);
        EXPECT_EQ(failureOf([&] { openRaw(bytes); }), Case::missingEndOfCentralDirectoryRecord);
    }
}

TEST(ZipReader, refusesHostileStructureWhenOpening) {
    const std::string data = "some data for the entry";
    struct Row {
        const char* name;
        std::vector<RawZipEntry> entries;
        RawZipOptions options;
        Case expected;
    };
    const std::vector<Row> rows = {
        {"parent path", {{.name = "../evil.txt", .data = data}}, {}, Case::invalidEntryPath},
        {"inner parent path", {{.name = "word/../../evil", .data = data}}, {}, Case::invalidEntryPath},
        {"backslash parent path", {{.name = "word\\..\\evil", .data = data}}, {}, Case::invalidEntryPath},
        {"absolute path", {{.name = "/etc/passwd", .data = data}}, {}, Case::invalidEntryPath},
        {"drive path", {{.name = "C:/evil", .data = data}}, {}, Case::invalidEntryPath},
        {"NUL in path", {{.name = std::string("a\0b", 3), .data = data}}, {}, Case::invalidEntryPath},
        {"empty path", {{.name = "", .data = data}}, {}, Case::invalidEntryPath},
        {"duplicate path", {{.name = "a.xml", .data = data}, {.name = "A.XML", .data = data}}, {}, Case::invalidEntryPath},
        {"overlapping entries", {{.name = "a", .data = data}, {.name = "b", .data = data, .pointAtEntry = 0}}, {},
         Case::invalidLocalHeaderDataOffset},
        {"directory offset past the end", {{.name = "a", .data = data}}, {.directoryOffset = 1u << 30},
         Case::invalidCentralDirectoryOffset},
        {"directory size past the end", {{.name = "a", .data = data}}, {.directorySize = 1u << 30},
         Case::invalidCentralDirectorySize},
        {"zip64 directory offset past the end", {{.name = "a", .data = data}},
         {.zip64EndRecords = true, .directoryOffset = 1ull << 40}, Case::invalidCentralDirectoryOffset},
        {"entry count beyond the directory", {{.name = "a", .data = data}}, {.entryCount = 60000},
         Case::invalidCentralDirectoryEntryCount},
        {"data past the directory", {{.name = "a", .data = data, .declaredCompressedSize = 1u << 20}}, {},
         Case::invalidEntrySize},
        {"zip64 data past the directory", {{.name = "a", .data = data, .zip64 = true, .declaredCompressedSize = 1ull << 62}},
         {}, Case::invalidEntrySize},
        {"local header past the directory", {{.name = "a", .data = data, .headerOffset = 1u << 20}}, {},
         Case::invalidLocalHeaderDataOffset},
        {"zip64 local header far away", {{.name = "a", .data = data, .zip64 = true, .headerOffset = 1ull << 63}}, {},
         Case::invalidLocalHeaderDataOffset},
        {"no local header there", {{.name = "a", .data = data, .headerOffset = 3}}, {}, Case::invalidLocalHeaderSize},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(failureOf([&] { openRaw(buildRawZip(row.entries, row.options)); }), row.expected);
    }
}

TEST(ZipReader, refusesDamagedDataWhenExtracting) {
    const std::string text = testing::noise(50000);
    struct Row {
        const char* name;
        RawZipEntry entry;
        Case expected;
    };
    const std::vector<Row> rows = {
        {"altered stored data", {.name = "a", .data = text, .crc = 1234}, Case::invalidCRC32},
        {"altered deflated data", {.name = "a", .data = text, .deflate = true, .crc = 1234}, Case::invalidCRC32},
        {"inflates past its declared size", {.name = "a", .data = text, .deflate = true, .declaredSize = 100},
         Case::invalidEntrySize},
        {"inflates short of its declared size", {.name = "a", .data = text, .deflate = true, .declaredSize = 60000},
         Case::invalidEntrySize},
        {"stored sizes disagree", {.name = "a", .data = text, .declaredSize = 10}, Case::invalidEntrySize},
        {"unknown method", {.name = "a", .data = text, .method = 12}, Case::invalidCompressionMethod},
        {"encrypted", {.name = "a", .data = text, .flags = 1}, Case::invalidCompressionMethod},
        {"not deflate data", {.name = "a", .data = std::string(100, '\xff'), .method = 8}, Case::invalidCRC32},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const Archive archive = openRaw(buildRawZip({row.entry}));
        EXPECT_EQ(failureOf([&] { extractAll(archive, archive.entries()[0]); }), row.expected);
    }
}

TEST(ZipReader, stopsAZipBombAtItsDeclaredSize) {
    // 64 MB of zeros deflate to about 64 KB; declared as 1 MB, extraction stops there.
    const Archive archive = openRaw(buildRawZip(
        {{.name = "bomb", .data = std::string(64u << 20, '\0'), .deflate = true, .declaredSize = 1u << 20}}));
    std::size_t delivered = 0;
    EXPECT_EQ(failureOf([&] {
                  archive.extract(archive.entries()[0], Archive::defaultReadChunkSize, true, nullptr,
                                  [&](std::span<const std::uint8_t> c) { delivered += c.size(); });
              }),
              Case::invalidEntrySize);
    EXPECT_LE(delivered, 1u << 20);
}

TEST(ZipReader, endsTheListAtAnUnreadableDirectoryStructure) {
    std::string bytes = buildRawZip({{.name = "a", .data = "1"}, {.name = "b", .data = "2"}, {.name = "c", .data = "3"}});
    // Break the signature of the third central structure; the first two stay visible.
    const auto third = bytes.rfind(std::string("PK\x01\x02", 4));
    bytes[third] = 'X';
    const Archive archive = openRaw(bytes);
    ASSERT_EQ(archive.entries().size(), 2u);
    EXPECT_EQ(archive.entries()[1].path(), "b");
}

TEST(ZipReader, handsTheConsumersErrorBackAndHonoursCancellation) {
    const Archive archive = openRaw(buildRawZip({{.name = "a", .data = testing::noise(70000), .deflate = true}}));
    struct Enough {};
    std::size_t seen = 0;
    EXPECT_THROW(archive.extract(archive.entries()[0], 8, true, nullptr,
                                 [&](std::span<const std::uint8_t> c) {
                                     seen += c.size();
                                     throw Enough{};
                                 }),
                 Enough);
    EXPECT_GT(seen, 0u);
    EXPECT_LE(seen, 8u);

    Progress progress;
    progress.cancel();
    EXPECT_EQ(failureOf([&] {
                  archive.extract(archive.entries()[0], 1024, false, &progress, [](std::span<const std::uint8_t>) {});
              }),
              Case::cancelledOperation);
    EXPECT_EQ(failureOf([&] { archive.extract(archive.entries()[0], 0, false, nullptr, [](auto) {}); }),
              Case::invalidBufferSize);
}

TEST(ZipReader, derivesTypeAndAttributes) {
    Archive archive(std::vector<std::uint8_t>{}, Archive::AccessMode::create);
    testing::addFile(archive, "docProps/app.xml", "<a/>");
    archive.addEntry("word/", EntryType::directory, 0, std::chrono::system_clock::now(), std::nullopt,
                     CompressionMethod::deflate, 16384, nullptr, [](std::int64_t, std::size_t) { return std::vector<std::uint8_t>{}; });
    const Archive reopened(*archive.data(), Archive::AccessMode::read);
    EXPECT_EQ(reopened["docProps/app.xml"]->type(), EntryType::file);
    EXPECT_EQ(reopened["docProps/app.xml"]->fileAttributes() & 0777, Archive::defaultFilePermissions);
    EXPECT_TRUE(reopened["docProps/app.xml"]->isCompressed());
    EXPECT_EQ(reopened["word/"]->type(), EntryType::directory);
    EXPECT_EQ(reopened["word/"]->fileAttributes() & 0777, Archive::defaultDirectoryPermissions);
    EXPECT_FALSE(reopened["missing"].has_value());
}

TEST(ZipReader, acceptsOrdinaryPathsThatOnlyLookUnusual) {
    for (const char* path : {"a..b.xml", "word/..hidden", "customXml/item1.xml", "x/./y", "..."})
        EXPECT_TRUE(Archive::isSafeEntryPath(path)) << path;
}

}  // namespace
}  // namespace tavrin
