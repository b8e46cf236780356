#include <gtest/gtest.h>

#include "av/av_errors.h"
#include "av/av_metadata_reader.h"
#include "av_fixtures.h"

namespace tavrin {
namespace {

using namespace testing::av;

std::vector<MetadataItem> itemsOf(const std::string& bytes) {
    const MemoryByteSource source(std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
    return AVMetadataReader::items(avAssetLoader::load(source));
}

const MetadataItem* find(const std::vector<MetadataItem>& items, const std::string& id) {
    for (const auto& item : items)
        if (item.id == id) return &item;
    return nullptr;
}

Date utc(int y, unsigned m, unsigned d, int hh = 0, int mm = 0, int ss = 0) {
    return std::chrono::sys_days(std::chrono::year(y) / std::chrono::month(m) / std::chrono::day(d)) +
           std::chrono::hours(hh) + std::chrono::minutes(mm) + std::chrono::seconds(ss);
}

// Seconds since 1904 of a UTC date.
std::uint32_t qtTime(Date d) {
    return static_cast<std::uint32_t>(std::chrono::duration_cast<std::chrono::seconds>(d.time_since_epoch()).count() +
                                      2082844800);
}

struct Expected {
    std::string id;
    MetadataValue value;
    std::optional<MetadataCategory> category = std::nullopt;
};

struct WalkCase {
    const char* name;
    std::string bytes;
    std::vector<Expected> expected;
    std::vector<std::string> absent = {};
};

std::string deviceMovie() {
    return quickTimeFile(
        headerBox("mvhd", qtTime(utc(2024, 3, 5, 13, 2, 11)), qtTime(utc(2024, 3, 5, 13, 2, 11))) +
        box("udta", userDataText(cr("xyz"), "+48.8584+002.2945/") + userDataText(cr("mak"), "Tavrin") +
                        userDataText(cr("swr"), "CamApp 2.1") + std::string(4, '\0')) +
        quickTimeMeta({{"com.apple.quicktime.location.ISO6709", "+48.8584+002.2945+035.000/"},
                       {"com.apple.quicktime.make", "Tavrin"},
                       {"com.apple.quicktime.model", "Test Phone 15"},
                       {"com.apple.quicktime.software", "17.4.1"},
                       {"com.apple.quicktime.creationdate", "2024-03-05T14:02:11+0100"}}) +
        box("trak", headerBox("tkhd", qtTime(utc(2024, 3, 5, 13, 2, 11)), qtTime(utc(2024, 3, 5, 13, 2, 11))) +
                        box("mdia", headerBox("mdhd", qtTime(utc(2023, 1, 2)), qtTime(utc(2024, 3, 5, 13, 2, 11))))));
}

std::vector<WalkCase> walkCases() {
    using C = MetadataCategory;
    const auto s = [](const char* t) { return MetadataValue::string(t); };
    std::vector<WalkCase> cases;
    cases.push_back({"QuickTime metadata keys, user data and header times",
                     deviceMovie(),
                     {{"QuickTimeMetadata.com.apple.quicktime.location.ISO6709", s("+48.8584+002.2945+035.000/"), C::location},
                      {"QuickTimeMetadata.com.apple.quicktime.make", s("Tavrin"), C::deviceInfo},
                      {"QuickTimeMetadata.com.apple.quicktime.model", s("Test Phone 15"), C::deviceInfo},
                      // "quicktime" contains "time": the substring rule puts the software under dates.
                      {"QuickTimeMetadata.com.apple.quicktime.software", s("17.4.1"), C::timestamps},
                      {"QuickTimeMetadata.com.apple.quicktime.creationdate", s("2024-03-05T14:02:11+0100"), C::timestamps},
                      {"QuickTimeUserData.\u00a9xyz", s("+48.8584+002.2945/")},
                      {"QuickTimeUserData.\u00a9mak", s("Tavrin")},
                      {"QuickTimeUserData.\u00a9swr", s("CamApp 2.1")},
                      {"AV.movieCreationDate", MetadataValue::date(utc(2024, 3, 5, 13, 2, 11)), C::timestamps},
                      {"AV.track1MediaCreationDate", MetadataValue::date(utc(2023, 1, 2)), C::timestamps},
                      {"AVAsset.creationDate", MetadataValue::date(utc(2024, 3, 5, 13, 2, 11)), C::timestamps}},
                     // Track times equal to the movie's say nothing new.
                     {"AV.track1CreationDate", "AV.track1MediaModificationDate"}});
    cases.push_back({"iTunes list with a freeform item, and ISO user data",
                     quickTimeFile(box("udta", iTunesMeta({{cr("nam"), "Morning Song"}, {cr("ART"), "Ana Singer"},
                                                           {cr("too"), "Lavf59.27.100"}}) +
                                                   fullBox("auth", 0, be16(0x15C7) + "Ana Singer" + '\0') +
                                                   fullBox("loci", 0, be16(0x15C7) + "Home" + '\0' + '\0' +
                                                                          be32(0x00024000) + be32(0x00308000) + be32(0)) +
                                                   fullBox("yrrc", 0, be16(2021))),
                                   "M4A "),
                     {{"iTunes.\u00a9nam", s("Morning Song"), C::authorIdentity},
                      {"iTunes.\u00a9ART", s("Ana Singer"), C::authorIdentity},
                      {"iTunes.\u00a9too", s("Lavf59.27.100")},
                      {"QuickTimeUserData.auth", s("Ana Singer")},
                      {"QuickTimeUserData.loci", s("+48.5000+002.2500+0.000/ Home")},
                      {"QuickTimeUserData.yrrc", MetadataValue::integer(2021)}}});
    cases.push_back({"ID3v2.3 text, comment, user text and picture frames, and ID3v1",
                     id3Tag(3, id3TextFrame(3, "TIT2", "Field Notes") + id3TextFrame(3, "TPE1", "Ana Singer") +
                                   id3Frame(3, "COMM", std::string("\x00" "eng", 4) + '\0' + "recorded at home") +
                                   id3Frame(3, "TXXX", std::string("\x00", 1) + "studio" + '\0' + "Back Room") +
                                   id3Frame(3, "APIC", std::string("\x00", 1) + "image/jpeg" + '\0' + '\3' + '\0' +
                                                           "\xFF\xD8\xFF\xD9") +
                                   std::string(32, '\0')) +
                         mp3Frame() + id3v1("Old Title", "Old Artist", "1999", 12),
                     {{"ID3.TIT2", s("Field Notes"), C::authorIdentity},
                      {"ID3.TPE1", s("Ana Singer"), C::authorIdentity},
                      {"ID3.COMM", s("recorded at home")},
                      {"ID3.TXXX:studio", s("Back Room")},
                      {"ID3.APIC", MetadataValue::data({0xFF, 0xD8, 0xFF, 0xD9})},
                      {"ID3.ID3v1Title", s("Old Title")},
                      {"ID3.ID3v1Year", s("1999"), C::timestamps},
                      {"ID3.ID3v1Genre", MetadataValue::integer(12)}}});
    cases.push_back({"ID3v2.4 with an extended header and an unsynchronised frame",
                     id3Tag(4,
                            syncsafe(6) + std::string("\x01\x00", 2) +
                                id3Frame(4, "TPE1", std::string("\x03" "A\xFF\x00\xE0Z", 6), 0x0002) +
                                id3TextFrame(4, "TSSE", std::string("LAME\0" "3.100", 10)),
                            0x40) +
                         mp3Frame(),
                     // Bytes that are not UTF-8 after all read as Latin-1.
                     {{"ID3.TPE1", s("A\u00ff\u00e0Z")}, {"ID3.TSSE", s("LAME; 3.100"), C::authorIdentity}}});
    cases.push_back({"ID3v2.3 unsynchronised as a whole",
                     // The frame holds 00 FF E0; the tag stores FF E0 as FF 00 E0, and the frame size
                     // counts the bytes before that.
                     id3Tag(3, "TIT2" + be32(3) + be16(0) + std::string("\x00\xFF\x00\xE0", 4), 0x80) + mp3Frame(),
                     {{"ID3.TIT2", s("\u00ff\u00e0")}}});
    cases.push_back({"ID3v2.2 three-letter frames",
                     id3Tag(2, id3Frame(2, "TT2", std::string("\x00", 1) + "Short") +
                                   id3Frame(2, "TP1", std::string("\x01\xFF\xFE" "A\0B\0", 7))) +
                         mp3Frame(),
                     {{"ID3.TT2", s("Short")}, {"ID3.TP1", s("AB")}}});
    cases.push_back({"WAV INFO, broadcast extension and an ID3 chunk",
                     riffFile("WAVE", riffChunk("fmt ", std::string(16, '\0')) +
                                          infoList({{"INAM", "Take 4"}, {"IART", "Ana Singer"},
                                                    {"ISFT", "Recorder 3"}, {"ICRD", "2024-03-05"},
                                                    {"IENG", "Bo Engineer"}}) +
                                          riffChunk("bext", std::string(256, '\0') + "Field Recorder" +
                                                                std::string(18, '\0') + std::string(32, '\0') +
                                                                "2024-03-05" + "14:02:11") +
                                          riffChunk("data", std::string(100, '\0')) +
                                          riffChunk("id3 ", id3Tag(3, id3TextFrame(3, "TCOP", "Ana 2024")))),
                     {{"Common.title", s("Take 4")},
                      {"Common.artist", s("Ana Singer"), C::authorIdentity},
                      {"Common.software", s("Recorder 3"), C::softwareInfo},
                      {"Common.creationDate", s("2024-03-05"), C::timestamps},
                      {"AV.IENG", s("Bo Engineer")},
                      {"AV.Originator", s("Field Recorder")},
                      {"AV.OriginationDate", s("2024-03-05"), C::timestamps},
                      {"ID3.TCOP", s("Ana 2024")},
                      {"AVAsset.creationDate", MetadataValue::date(utc(2024, 3, 5))}}});
    cases.push_back({"AIFF text chunks, comments and an ID3 chunk",
                     aiffFile(aiffChunk("NAME", "Take 5") + aiffChunk("AUTH", "Ana Singer") +
                              aiffChunk("(c) ", "2024 Ana") + aiffChunk("ANNO", "first pass") +
                              aiffChunk("ANNO", "keep") +
                              aiffChunk("COMT", be16(1) + be32(qtTime(utc(2024, 3, 5))) + be16(0) + be16(5) + "hello") +
                              aiffChunk("SSND", std::string(64, '\0')) +
                              aiffChunk("ID3 ", id3Tag(4, id3TextFrame(4, "TENC", "Ana's Mac")))),
                     {{"Common.title", s("Take 5")},
                      {"Common.author", s("Ana Singer"), C::authorIdentity},
                      {"Common.copyrights", s("2024 Ana"), C::authorIdentity},
                      {"AV.ANNO", s("first pass\nkeep")},
                      {"AV.COMT", s("hello")},
                      {"AV.commentDate", MetadataValue::date(utc(2024, 3, 5)), C::timestamps},
                      {"ID3.TENC", s("Ana's Mac")}}});
    cases.push_back({"FLAC Vorbis comments and picture, behind an ID3 tag",
                     id3Tag(3, id3TextFrame(3, "TIT2", "Tagged")) +
                         flacFile(flacBlock(4, false,
                                            vorbisComment("reference libFLAC 1.4.2",
                                                          {"ARTIST=Ana Singer", "title=Take 6", "RECORDIST=Bo"})) +
                                  flacBlock(6, true, flacPicture("image/png", "PNGDATA"))),
                     {{"ID3.TIT2", s("Tagged")},
                      {"AV.vendor", s("reference libFLAC 1.4.2"), C::softwareInfo},
                      {"Common.artist", s("Ana Singer"), C::authorIdentity},
                      {"Common.title", s("Take 6")},
                      {"AV.RECORDIST", s("Bo")},
                      {"Common.artwork", MetadataValue::data({'P', 'N', 'G', 'D', 'A', 'T', 'A'})}},
                     // The picture is listed once, under its common key only.
                     {"AV.PICTURE", "common.PICTURE"}});
    return cases;
}

TEST(AVWalkers, readEveryKeySpaceWithItsIdentifiersValuesAndCategories) {
    for (const auto& c : walkCases()) {
        SCOPED_TRACE(c.name);
        std::vector<MetadataItem> items;
        ASSERT_NO_THROW(items = itemsOf(c.bytes));
        for (const auto& e : c.expected) {
            const MetadataItem* item = find(items, e.id);
            ASSERT_NE(item, nullptr) << e.id;
            EXPECT_EQ(item->value, e.value) << e.id << ": " << item->value.description();
            EXPECT_EQ(item->category, e.category.value_or(item->category)) << e.id;
            EXPECT_TRUE(item->isRemovable);
        }
        for (const auto& id : c.absent) EXPECT_EQ(find(items, id), nullptr) << id;
    }
}

TEST(AVWalkers, refuseDamagedStructures) {
    using E = AVContainerError::Case;
    const std::string ftyp = box("ftyp", "qt  " + be32(0) + "qt  ");
    // Nested atoms built without copying the inner ones for each level.
    std::string deeplyNested;
    for (std::uint32_t i = 0; i < 10000; ++i) deeplyNested += be32(8 * (10000 - i)) + "moov";
    struct BadCase {
        const char* name;
        std::string bytes;
        E expected;
    };
    const std::vector<BadCase> cases = {
        {"atom of size 0 inside moov", ftyp + box("moov", be32(0) + "udta" + std::string(16, 'x')), E::invalidAtomSize},
        {"64-bit atom size beyond its parent", ftyp + box("moov", be32(1) + "udta" + be64(1u << 30)), E::invalidAtomSize},
        {"64-bit atom size smaller than its header", ftyp + box("moov", be32(1) + "udta" + be64(9)), E::invalidAtomSize},
        {"atom larger than its parent", ftyp + box("moov", be32(4000) + "udta" + std::string(8, '\0')), E::invalidAtomSize},
        {"top-level atom larger than the file", ftyp + be32(1u << 31) + "mdat", E::invalidAtomSize},
        {"atoms nested 10,000 deep", ftyp + deeplyNested, E::nestingTooDeep},
        {"keys count beyond its atom", ftyp + box("moov", box("meta", fullBox("hdlr", 0, be32(0) + "mdta" +
                                                                                           std::string(12, '\0')) +
                                                                          fullBox("keys", 0, be32(1000000)))),
         E::truncated},
        {"ID3 tag running past the file", "ID3\x03\x00\x00" + syncsafe(5000) + std::string(40, '\0'), E::tagSizePastEnd},
        {"ID3 size with its high bits set", std::string("ID3\x03\x00\x00\x80\x00\x00\x10", 10) + std::string(40, '\0'),
         E::invalidSyncsafeInteger},
        {"ID3v2.4 frame size with its high bits set",
         id3Tag(4, "TIT2" + std::string("\x00\x00\x00\x81", 4) + std::string(2, '\0') + std::string(20, 'a')),
         E::invalidSyncsafeInteger},
        {"ID3 frame longer than its tag", id3Tag(3, "TIT2" + be32(400) + std::string(2, '\0') + "abc"), E::truncated},
        {"FLAC blocks running into the end of the file", "fLaC" + flacBlock(0, false, std::string(34, '\0')),
         E::unterminatedBlockChain},
        {"FLAC blocks running into audio", flacFile(flacBlock(4, false, vorbisComment("v", {}))), E::unterminatedBlockChain},
        {"FLAC block longer than the file", "fLaC" + flacBlock(4, true, "") .substr(0, 1) + "\x7F\xFF\xFF", E::chunkSizePastEnd},
        {"WAV with a RIFF size of 4 GB on a 1 KB file",
         "RIFF" + le32(0xFFFFFFF0u) + "WAVE" + riffChunk("data", std::string(1000, '\0')), E::chunkSizePastEnd},
        {"WAV chunk past its RIFF", riffFile("WAVE", "LIST" + le32(5000) + "INFO"), E::chunkSizePastEnd},
        {"INFO field past its list", riffFile("WAVE", riffChunk("LIST", "INFO" + std::string("INAM") + le32(90) + "x")),
         E::chunkSizePastEnd},
        {"AIFF chunk past its FORM", aiffFile("NAME" + be32(7000) + "x"), E::chunkSizePastEnd},
        {"Vorbis comment count beyond its block",
         flacFile(flacBlock(4, true, le32(1) + "v" + le32(0x7FFFFFFF))), E::truncated},
        {"a PNG under an audio name", "\x89PNG\r\n\x1a\n" + std::string(32, '\0'), E::unrecognisedContainer},
        {"an empty file", "", E::unrecognisedContainer},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        try {
            itemsOf(c.bytes);
            ADD_FAILURE() << "no error";
        } catch (const AVContainerError& e) {
            EXPECT_EQ(e.errorCase(), c.expected) << e.what();
        }
    }
}

TEST(AVWalkers, toleratePaddingAndUnreadableValues) {
    // A QuickTime user data list may end in a 32-bit zero; ID3 tags end in padding; an
    // unknown data type stays raw bytes.
    const auto items = itemsOf(quickTimeFile(
        box("udta", userDataText(cr("nam"), "Clip") + std::string(4, '\0')) +
        box("meta", fullBox("hdlr", 0, be32(0) + "mdta" + std::string(12, '\0')) +
                        fullBox("keys", 0, be32(1) + be32(13) + "mdta" + "count") +
                        box("ilst", box(be32(1), dataAtom(21, be16(0xFFFE))) + box(be32(7), dataAtom(1, "orphan"))))));
    ASSERT_NE(find(items, "QuickTimeUserData.\u00a9nam"), nullptr);
    const MetadataItem* count = find(items, "QuickTimeMetadata.count");
    ASSERT_NE(count, nullptr);
    EXPECT_EQ(count->value, MetadataValue::integer(-2));
    EXPECT_EQ(items.size(), 2u);  // the item with a key index past the table is left out
}

TEST(AVWalkers, parseISO8601DatesTheWayQuickTimeWritesThem) {
    EXPECT_EQ(parseISO8601Date("2024-03-05T14:02:11+0100"), utc(2024, 3, 5, 13, 2, 11));
    EXPECT_EQ(parseISO8601Date("2024-03-05T14:02:11-05:30"), utc(2024, 3, 5, 19, 32, 11));
    EXPECT_EQ(parseISO8601Date("2024-03-05T14:02:11.250Z"), utc(2024, 3, 5, 14, 2, 11));
    EXPECT_EQ(parseISO8601Date("2024-03-05 14:02"), utc(2024, 3, 5, 14, 2));
    EXPECT_EQ(parseISO8601Date("2024-03-05"), utc(2024, 3, 5));
    for (const char* bad : {"2024", "2024-13-01", "2024-02-30", "2024-03-05T25:00", "2024-03-05Tnoon", "99999-01-01"})
        EXPECT_FALSE(parseISO8601Date(bad)) << bad;
    EXPECT_FALSE(dateFrom1904Seconds(0));
    EXPECT_FALSE(dateFrom1904Seconds(~0ull));
}

}  // namespace
}  // namespace tavrin
