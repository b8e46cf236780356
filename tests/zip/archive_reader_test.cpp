// The reader on archives built byte by byte: every form it must read, and hostile or damaged ones it
// must refuse.
#include <gtest/gtest.h>

#include "raw_zip_builder.h"
#include "zip_test_helpers.h"

namespace tavrin {
namespace {

using Case = ArchiveError::Case;
using testing::buildRawZip;
using testing::extractAll;
using testing::failureOf;
using testing::RawZipEntry;
using testing::RawZipOptions;

Archive openRaw(const std::string& bytes) { return Archive(testing::bytesOf(bytes), Archive::AccessMode::read); }

TEST(ZipReader, readsEveryStoredFormOfEntry) {
    const std::string text = testing::noise(40000);
    struct Row {
        const char* name;
        RawZipEntry entry;
        RawZipOptions options;
    };
    const std::vector<Row> rows = {
        {"stored", {}, {}},
        {"deflated", {.deflate = true}, {}},
        {"data descriptor with signature", {.deflate = true, .dataDescriptor = true}, {}},
        {"data descriptor without signature", {.deflate = true, .dataDescriptor = true, .descriptorSignature = false}, {}},
        {"zip64 extra fields", {.deflate = true, .zip64 = true}, {}},
        {"zip64 with descriptor", {.deflate = true, .dataDescriptor = true, .zip64 = true}, {}},
        {"zip64 end records", {}, {.zip64EndRecords = true}},
        {"trailing comment", {}, {.comment = "made by hand"}},
        {"comment holding a record signature", {}, {.comment = std::string("PK\x05\x06", 4)}},
        {"maximal comment", {}, {.comment = std::string(65535, 'c')}},
    };
    for (auto row : rows) {
        SCOPED_TRACE(row.name);
        row.entry.name = "a.xml";
        row.entry.data = text;
        const auto bytes = buildRawZip({{.name = "first.txt", .data = "one"}, row.entry}, row.options);
        const Archive archive = openRaw(bytes);
        ASSERT_EQ(archive.entries().size(), 2u);
        EXPECT_EQ(archive.entries()[0].path(), "first.txt");
        const auto entry = archive["a.xml"];
        ASSERT_TRUE(entry.has_value());
        EXPECT_EQ(entry->uncompressedSize(), text.size());
        EXPECT_EQ(extractAll(archive, *entry, 1000), text);
        EXPECT_EQ(extractAll(archive, archive.entries()[0]), "one");
        EXPECT_EQ(archive.endOfCentralDirectoryRecord().zipFileCommentData, row.options.comment);
        EXPECT_EQ(archive.zip64EndOfCentralDirectory().has_value(), row.options.zip64EndRecords);
        // The entry ends, data descriptor and all, where the directory begins.
        EXPECT_EQ(entry->endOffset(), bytes.find(std::string("PK\x01\x02", 4)));
    }
    // Data appended after the archive, however long, is passed over as a comment would be.
    const auto appended = buildRawZip({{.name = "a", .data = "1"}}) + std::string(3 << 20, 'j');
    EXPECT_EQ(openRaw(appended).entries().size(), 1u);
}

TEST(ZipReader, refusesHostileStructureWhenOpening) {
    const std::string data = "some data for the entry";
    const std::string valid = buildRawZip({{.name = "a", .data = data}});
    for (const auto& bytes : {std::string(), std::string(21, 'P'), std::string(5000, 'x'),
                              valid.substr(0, valid.size() / 2), valid.substr(0, valid.size() - 1)})
        EXPECT_EQ(failureOf([&] { openRaw(bytes); }), Case::missingEndOfCentralDirectoryRecord) << bytes.size();
    const std::string paths[] = {"../evil.txt", "word/../../evil", "word\\..\\evil", "/etc/passwd", "C:/evil", "",
                                 std::string("a\0b", 3)};
    for (const auto& path : paths)
        EXPECT_EQ(failureOf([&] { openRaw(buildRawZip({{.name = path, .data = data}})); }), Case::invalidEntryPath) << path;

    const RawZipEntry one{.name = "a", .data = data};
    struct Row {
        const char* name;
        std::vector<RawZipEntry> entries;
        RawZipOptions options;
        Case expected;
    };
    const std::vector<Row> rows = {
        {"duplicate path", {{.name = "a.xml", .data = data}, {.name = "A.XML", .data = data}}, {}, Case::invalidEntryPath},
        {"overlapping entries", {one, {.name = "b", .data = data, .pointAtEntry = 0}}, {},
         Case::invalidLocalHeaderDataOffset},
        {"directory offset past the end", {one}, {.directoryOffset = 1u << 30}, Case::invalidCentralDirectoryOffset},
        {"directory size past the end", {one}, {.directorySize = 1u << 30}, Case::invalidCentralDirectorySize},
        {"zip64 directory offset past the end", {one}, {.zip64EndRecords = true, .directoryOffset = 1ull << 40},
         Case::invalidCentralDirectoryOffset},
        {"entry count beyond the directory", {one}, {.entryCount = 60000}, Case::invalidCentralDirectoryEntryCount},
        {"data past the directory", {{.name = "a", .data = data, .declaredCompressedSize = 1u << 20}}, {},
         Case::invalidEntrySize},
        {"zip64 data past the directory",
         {{.name = "a", .data = data, .zip64 = true, .declaredCompressedSize = 1ull << 62}}, {}, Case::invalidEntrySize},
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
        {"altered stored data", {.crc = 1234}, Case::invalidCRC32},
        {"altered deflated data", {.deflate = true, .crc = 1234}, Case::invalidCRC32},
        {"inflates past its declared size", {.deflate = true, .declaredSize = 100}, Case::invalidEntrySize},
        {"inflates short of its declared size", {.deflate = true, .declaredSize = 60000}, Case::invalidEntrySize},
        {"stored sizes disagree", {.declaredSize = 10}, Case::invalidEntrySize},
        {"unknown method", {.method = 12}, Case::invalidCompressionMethod},
        {"encrypted", {.flags = 1}, Case::invalidCompressionMethod},
        {"not deflate data", {.data = std::string(100, '\xff'), .method = 8}, Case::invalidCRC32},
    };
    for (auto row : rows) {
        SCOPED_TRACE(row.name);
        row.entry.name = "a";
        if (row.entry.data.empty()) row.entry.data = text;
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

TEST(ZipReader, acceptsOrdinaryPathsThatOnlyLookUnusual) {
    for (const char* path : {"a..b.xml", "word/..hidden", "customXml/item1.xml", "x/./y", "..."})
        EXPECT_TRUE(Archive::isSafeEntryPath(path)) << path;
}

}  // namespace
}  // namespace tavrin
