#include <gtest/gtest.h>

#include "av/av_errors.h"
#include "av/av_metadata_reader.h"
#include "av_fixtures.h"
#include "model/pipeline_error.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

using namespace testing::av;
using R = AVMetadataReader;

// The key spaces of the walkers' own entries show in their tests; these are the corners.
TEST(AVMetadataReader, resolvesKeySpacesAndKeysFromIdentifiers) {
    EXPECT_EQ(R::resolveKeySpaceName("itlk/com.apple.iTunes.tool", std::nullopt), "iTunes");
    EXPECT_EQ(R::resolveKeySpaceName("comn/artist", "common"), "Common");
    EXPECT_EQ(R::resolveKeySpaceName("riff/IENG", "common"), "common");
    EXPECT_EQ(R::resolveKeySpaceName("noslash", std::nullopt), "AV");
    EXPECT_EQ(R::keyName("mdta/com.apple/x"), "com.apple/x");
    EXPECT_EQ(R::keyName("noslash"), "noslash");
}

TEST(AVMetadataReader, namesKeysForPeople) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"\u00a9nam", "Title"},          {"\u00a9xyz", "Xyz"},      {"\u00a9too", "Encoding Tool"},
        {"ART", "Artist"},               {"com.apple.quicktime.make", "Make"},
        {"com.apple.quicktime.location.ISO6709", "ISO6709"},       {"movieCreationDate", "Movie Creation Date"},
        {"streamTitle2", "Stream Title2"}, {"TPE1", "TPE1"},        {"", ""},
    };
    for (const auto& [key, name] : cases) EXPECT_EQ(R::humanReadableName(key, "iTunes"), name) << key;
}

TEST(AVMetadataReader, categorisesBySubstringsInTheDesignedOrder) {
    using C = MetadataCategory;
    // The walkers' tests show the usual keys; these are the corners of the substring rules.
    const std::vector<std::tuple<std::string, std::string, C>> cases = {
        {"GPSCoordinates", "AV", C::location},   {"modeling", "AV", C::deviceInfo},
        {"AlbumArtist", "AV", C::authorIdentity}, {"copyrights", "Common", C::authorIdentity},
        {"timecode", "AV", C::timestamps},       {"encoder", "AV", C::softwareInfo},
        {"\u00a9xyz", "QuickTimeUserData", C::softwareInfo},
    };
    for (const auto& [key, space, category] : cases)
        EXPECT_EQ(R::categorizeAVMetadata(key, space), category) << key;
}

TEST(AVMetadataReader, extractsNumbersAsIntegersOnlyWhenIntegral) {
    EXPECT_EQ(R::extractValue(-7.0), MetadataValue::integer(-7));
    EXPECT_EQ(R::extractValue(2.5), MetadataValue::number(2.5));
    EXPECT_EQ(R::extractValue(1e300), MetadataValue::number(1e300));
    EXPECT_EQ(R::extractValue(std::monostate{}), MetadataValue::null());
}

TEST(AVMetadataReader, listsCommonItemsFirstOnceAndAddsTheCreationDate) {
    AVAssetMetadata asset;
    asset.metadata = {
        {"id3/TXXX:mood", "", std::string("calm")},
        {"id3/TIT2", "title", std::string("Song")},
        {"riff/IART", "artist", std::string("Ana")},  // unknown prefix: "common" in the common walk
        {"id3/TIT2", "title", std::string("Second copy")},
    };
    asset.creationDate = Date(std::chrono::hours(24));
    const auto items = R::items(asset);
    std::vector<std::string> ids;
    for (const auto& item : items) ids.push_back(item.id);
    EXPECT_EQ(ids, (std::vector<std::string>{"ID3.TIT2", "common.IART", "ID3.TXXX:mood", "AV.IART",
                                             "AVAsset.creationDate"}));
    EXPECT_EQ(items[0].value, MetadataValue::string("Song"));
    EXPECT_EQ(items[0].key, items[0].id);
    EXPECT_EQ(items[0].source, MetadataSource::avFoundation);
    EXPECT_EQ(items.back().displayName, "Creation Date");
    EXPECT_EQ(items.back().category, MetadataCategory::timestamps);
    EXPECT_EQ(items.back().value, MetadataValue::date(Date(std::chrono::hours(24))));
}

TEST(AVMetadataReader, readsFilesOfEverySupportedTypeAndGivesAnEmptyTreeForNone) {
    testing::TempDir dir;
    struct Case {
        std::string name;
        std::string bytes;
        FileType type;
        std::size_t items;
    };
    const std::vector<Case> cases = {
        {"clip.mov", quickTimeFile(box("udta", userDataText(cr("nam"), "Clip"))), FileType::mov, 1},
        {"clip.mp4", quickTimeFile(box("udta", userDataText(cr("nam"), "Clip")), "isom"), FileType::mp4, 1},
        {"song.m4a", quickTimeFile(box("udta", iTunesMeta({{cr("nam"), "Song"}})), "M4A "), FileType::m4a, 1},
        {"song.mp3", id3Tag(3, id3TextFrame(3, "TIT2", "Song")) + mp3Frame(), FileType::mp3, 1},
        {"bare.mp3", mp3Frame() + mp3Frame(), FileType::mp3, 0},
        {"take.wav", riffFile("WAVE", infoList({{"INAM", "Take"}})), FileType::wav, 1},
        {"silent.wav", riffFile("WAVE", riffChunk("data", "")), FileType::wav, 0},
        {"take.aiff", aiffFile(aiffChunk("NAME", "Take")), FileType::aiff, 1},
        {"take.flac", flacFile(flacBlock(4, true, vorbisComment("", {"TITLE=Take"}))), FileType::flac, 1},
    };
    const AVMetadataReader reader;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        testing::writeFile(dir / c.name, c.bytes);
        EXPECT_TRUE(reader.canRead(dir / c.name));
        const MetadataTree tree = reader.readMetadata(dir / c.name);
        EXPECT_EQ(tree.fileType, c.type);
        EXPECT_EQ(tree.totalItemCount(), c.items);
        if (c.items == 0) {
            EXPECT_TRUE(tree.rootNodes.empty());
        }
    }
    EXPECT_FALSE(reader.canRead(dir / "missing.mov"));
    testing::writeFile(dir / "notes.txt", "x");
    EXPECT_FALSE(reader.canRead(dir / "notes.txt"));
    // Another format under an audio name.
    testing::writeFile(dir / "song.mp3", std::string("\x89PNG\r\n\x1a\n", 8) + std::string(64, '\0'));
    try {
        reader.readMetadata(dir / "song.mp3");
        ADD_FAILURE() << "no error";
    } catch (const AVContainerError& e) {
        EXPECT_STREQ(e.what(), "The file is not an audio or video container Tavrin can read");
    }
}

TEST(AVMetadataReader, readsStreamTagsOfAnAVIThroughTheMediaLibrary) {
    testing::TempDir dir;
    makeMedia(dir / "clip.avi", {"avi", true, Audio::pcm, {{"title", "Holiday"}, {"artist", "Ana Singer"}}});
    const auto items = AVMetadataReader::loadMetadataSync(dir / "clip.avi");
    std::map<std::string, MetadataValue> byId;
    for (const auto& item : items) byId[item.id] = item.value;
    EXPECT_EQ(byId["Common.title"], MetadataValue::string("Holiday"));
    EXPECT_EQ(byId["Common.artist"], MetadataValue::string("Ana Singer"));
    EXPECT_EQ(byId["AV.streamTitle2"], MetadataValue::string("Interview Mic"));
}

}  // namespace
}  // namespace tavrin
