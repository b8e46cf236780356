// The passthrough writer on playable files made by the media library: every stream survives and no
// identifying value does.
#include <gtest/gtest.h>

#include "av/av_errors.h"
#include "av/av_metadata_reader.h"
#include "av/av_metadata_writer.h"
#include "av_fixtures.h"
#include "model/pipeline_error.h"
#include "pipeline/tavrin_engine.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

using namespace testing::av;
using W = AVMetadataWriter;

// Values that every dirty fixture carries and no cleaned copy may.
const std::vector<std::string> kDirtyValues = {"+48.8584+002.2945", "Ana Singer", "Test Phone 15", "CamApp 2.1", "Lavf"};

// The QuickTime atoms a phone writes, added to a playable movie.
std::string phoneAtoms() {
    return box("udta", userDataText(cr("xyz"), "+48.8584+002.2945/") + userDataText(cr("swr"), "CamApp 2.1")) +
           quickTimeMeta({{"com.apple.quicktime.location.ISO6709", "+48.8584+002.2945+035.000/"},
                          {"com.apple.quicktime.make", "Tavrin"},
                          {"com.apple.quicktime.model", "Test Phone 15"},
                          {"com.apple.quicktime.creationdate", "2024-03-05T14:02:11+0100"}});
}

TEST(AVMetadataWriter, copiesEveryStreamAndDropsEveryTagOnAFullStrip) {
    const Fields tags = {{"artist", "Ana Singer"}, {"title", "Holiday"}, {"date", "2024-03-05"}, {"comment", "Test Phone 15"}};
    const std::pair<const char*, MediaRecipe> cases[] = {
        {"clip.mov", {"mov", true, Audio::pcm, tags}},   {"clip.mp4", {"mp4", true, Audio::mp3, tags}},
        {"clip.m4v", {"mp4", true, Audio::aac, tags}},   {"song.m4a", {"ipod", false, Audio::aac, tags}},
        {"song.mp3", {"mp3", false, Audio::mp3, tags}},  {"take.wav", {"wav", false, Audio::pcm, tags}},
        {"take.aiff", {"aiff", false, Audio::pcm, tags}},
    };
    for (const auto& [name, recipe] : cases) {
        SCOPED_TRACE(name);
        testing::TempDir dir;
        const auto source = dir / name;
        makeMedia(source, recipe);
        if (recipe.muxer == "mov" || recipe.muxer == "mp4" || recipe.muxer == "ipod") appendToMoov(source, phoneAtoms());
        const std::string sourceBytes = testing::readFile(source);
        const auto before = probe(source);
        ASSERT_FALSE(AVMetadataReader::loadMetadataSync(source).empty());

        const auto out = dir / ("clean-" + std::string(name));
        const CleaningResult result = W().cleanMetadata(source, out, CleaningProfile::maximumPrivacy());
        EXPECT_FALSE(result.verifiedClean);
        EXPECT_FALSE(result.removedItems.empty());
        EXPECT_TRUE(result.retainedItems.empty());
        EXPECT_TRUE(result.remainingMetadataClasses.empty());
        EXPECT_EQ(result.originalSize, static_cast<std::int64_t>(sourceBytes.size()));
        EXPECT_GT(result.cleanedSize, 0);
        EXPECT_EQ(testing::readFile(source), sourceBytes) << "the source was written";

        const auto after = probe(out);
        EXPECT_EQ(after.streams, before.streams);
        EXPECT_EQ(after.packets, before.packets);
        // The media library itself finds none of the dirty values among the copy's tags.
        bool sourceTagged = false;
        for (const auto& tag : before.tags)
            for (const auto& dirty : kDirtyValues) sourceTagged |= tag.find(dirty) != std::string::npos;
        EXPECT_TRUE(sourceTagged) << "the fixture carries no tag the media library reads";
        for (const auto& tag : after.tags)
            for (const auto& dirty : kDirtyValues) EXPECT_EQ(tag.find(dirty), std::string::npos) << tag;
        const std::string bytes = testing::readFile(out);
        for (const auto& dirty : kDirtyValues) EXPECT_EQ(bytes.find(dirty), std::string::npos) << dirty;
        for (const auto& item : AVMetadataReader::loadMetadataSync(out))
            ADD_FAILURE() << "left in the copy: " << item.id << " = " << item.value.description();
    }
}

TEST(AVMetadataWriter, keepsWhatASelectiveProfileKeeps) {
    testing::TempDir dir;
    const auto source = dir / "clip.mov";
    makeMedia(source, {"mov", true, Audio::pcm, {}});
    appendToMoov(source, phoneAtoms());
    CleaningProfile profile = CleaningProfile::locationOnly();
    ASSERT_FALSE(W::isFullStrip(profile));
    const auto result = W().cleanMetadata(source, dir / "out.mov", profile);

    std::set<std::string> removed, retained;
    for (const auto& item : result.removedItems) removed.insert(item.id);
    for (const auto& item : result.retainedItems) retained.insert(item.id);
    EXPECT_TRUE(removed.count("QuickTimeMetadata.com.apple.quicktime.location.ISO6709"));
    EXPECT_TRUE(retained.count("QuickTimeMetadata.com.apple.quicktime.make"));

    std::map<std::string, MetadataValue> after;
    for (const auto& item : AVMetadataReader::loadMetadataSync(dir / "out.mov")) after[item.id] = item.value;
    EXPECT_EQ(after["QuickTimeMetadata.com.apple.quicktime.model"], MetadataValue::string("Test Phone 15"));
    EXPECT_FALSE(after.count("QuickTimeMetadata.com.apple.quicktime.location.ISO6709"));
    EXPECT_EQ(testing::readFile(dir / "out.mov").find("+48.8584"), std::string::npos);
    // What is reported as kept is in the copy; what the container cannot carry is reported as
    // removed, with a warning.
    for (const auto& id : retained) EXPECT_TRUE(after.count(id)) << "reported as kept, missing from the copy: " << id;
}

TEST(AVMetadataWriter, choosesTheModeFromTheProfile) {
    CleaningProfile all;
    for (MetadataCategory c : metadataCategories::allCases()) all.categoriesToRemove.insert(c);
    EXPECT_TRUE(W::isFullStrip(all));
    CleaningProfile keepsOne = all;
    keepsOne.specificKeysToKeep.insert("QuickTimeMetadata.com.apple.quicktime.make");
    EXPECT_FALSE(W::isFullStrip(keepsOne));
    CleaningProfile fourOfFive = all;
    fourOfFive.categoriesToRemove.erase(MetadataCategory::softwareInfo);
    EXPECT_FALSE(W::isFullStrip(fourOfFive));

    const std::vector<AVMetadataEntry> entries = {
        {"mdta/com.apple.quicktime.make", "make", std::string("Tavrin")},
        {"mdta/com.apple.quicktime.location.ISO6709", "location", std::string("+1+2/")},
        {"itsk/\u00a9too", "software", std::string("Lavf")},
    };
    const auto [kept, removed] = W::filterMetadata(entries, keepsOne);
    ASSERT_EQ(kept.size(), 1u);
    EXPECT_EQ(kept[0].identifier, "mdta/com.apple.quicktime.make");
    EXPECT_EQ(removed.size(), 2u);
}

// The engine has the writer for six types and still cleans none of them: the strict gate refuses
// each with its text, and nothing is written.
TEST(AVMetadataWriter, isRegisteredButEveryTypeIsRefusedByTheStrictGate) {
    const TavrinEngine engine;
    const auto cleanable = engine.supportedCleaningTypes();
    for (FileType type : {FileType::mov, FileType::mp4, FileType::mp3, FileType::m4a, FileType::wav, FileType::aiff})
        EXPECT_TRUE(cleanable.count(type)) << displayName(type);
    for (FileType type : {FileType::avi, FileType::flac}) EXPECT_FALSE(cleanable.count(type)) << displayName(type);

    const std::tuple<const char*, MediaRecipe, FileType> cases[] = {
        {"clip.mov", {"mov", true, Audio::pcm, {}}, FileType::mov},
        {"clip.mp4", {"mp4", true, Audio::mp3, {}}, FileType::mp4},
        {"song.m4a", {"ipod", false, Audio::aac, {}}, FileType::m4a},
        {"song.mp3", {"mp3", false, Audio::mp3, {}}, FileType::mp3},
        {"take.wav", {"wav", false, Audio::pcm, {}}, FileType::wav},
        {"take.aiff", {"aiff", false, Audio::pcm, {}}, FileType::aiff},
    };
    testing::TempDir dir;
    const auto out = dir / "out";
    std::filesystem::create_directories(out);
    for (const auto& [name, recipe, type] : cases) {
        SCOPED_TRACE(name);
        const auto source = dir / name;
        makeMedia(source, recipe);
        try {
            engine.clean(source, CleaningProfile::maximumPrivacy(), out);
            ADD_FAILURE() << "cleaned";
        } catch (const PipelineError& e) {
            EXPECT_EQ(e.errorCase(), PipelineError::Case::formatNotVerifiedForCleaning);
            EXPECT_EQ(std::string(e.what()), std::string(displayName(type)) +
                                                 " cleaning is blocked in strict mode because metadata removal has "
                                                 "not been fully verified for release.");
        }
    }
    EXPECT_TRUE(std::filesystem::is_empty(out));
}

// The round trip above covers the usual extensions; these are the others.
TEST(AVMetadataWriter, mapsExtensionsToOutputTypes) {
    const std::vector<std::pair<std::string, std::optional<std::string>>> cases = {
        {"a.MP4", "mp4"}, {"a.aif", "aiff"}, {"a.flac", std::nullopt}, {"noext", std::nullopt}};
    for (const auto& [name, muxer] : cases) EXPECT_EQ(W::avFileType(name), muxer) << name;
}

TEST(AVMetadataWriter, categorisesAndNamesEntriesByIdentifierAndKey) {
    using C = MetadataCategory;
    const std::vector<std::tuple<std::string, C, std::string>> cases = {
        {"mdta/com.apple.quicktime.location.ISO6709", C::location, "QuickTimeMetadata.com.apple.quicktime.location.ISO6709"},
        {"qtud/\u00a9cmt", C::softwareInfo, "QuickTimeUserData.\u00a9cmt"},
        {"mdta/com.apple.quicktime.model", C::deviceInfo, "QuickTimeMetadata.com.apple.quicktime.model"},
        {"riff/SerialNumber", C::deviceInfo, "AV.SerialNumber"},
        {"itsk/aART", C::softwareInfo, "iTunes.aART"},
        {"comn/albumArtist", C::authorIdentity, "Common.albumArtist"},
        {"mvhd/movieCreationDate", C::timestamps, "AV.movieCreationDate"},
        {"id3/TYER", C::softwareInfo, "ID3.TYER"},
        {"", C::softwareInfo, "AV.unknown"},
    };
    // The common key of a place or a device decides before the identifier.
    EXPECT_EQ(W::categorize({"qtud/\u00a9xyz", "location", std::string("+1+2/")}), C::location);
    EXPECT_EQ(W::categorize({"qtud/\u00a9mod", "model", std::string("X")}), C::deviceInfo);
    for (const auto& [identifier, category, key] : cases) {
        const AVMetadataEntry entry{identifier, "", std::string("v")};
        EXPECT_EQ(W::categorize(entry), category) << identifier;
        EXPECT_EQ(W::metadataKey(entry), key) << identifier;
    }
    // Numbers report as numbers; an unreadable value cannot be reported.
    EXPECT_EQ(W::convertAVMetadataItem({"itsk/tmpo", "", 2.0}, C::softwareInfo).value, MetadataValue::number(2.0));
    EXPECT_THROW(W::convertAVMetadataItem({"itsk/covr", "", {}}, C::softwareInfo), AVMetadataReaderError);
}

TEST(AVMetadataWriter, failsWithoutLeavingAFile) {
    testing::TempDir dir;
    makeMedia(dir / "clip.avi", {"avi", true, Audio::pcm, {}});  // reaches this writer only when called directly
    testing::writeFile(dir / "broken.mov", box("ftyp", "qt  ") + be32(1u << 30) + "moov");
    // Atoms the walkers accept but that hold no media: the remux fails.
    testing::writeFile(dir / "empty.mov", quickTimeFile(box("udta", userDataText(cr("nam"), "x"))));
    const struct {
        const char* name;
        PipelineError::Case error;
        const char* underlying;  // nullptr: not compared
    } cases[] = {
        {"clip.avi", PipelineError::Case::writeFailed, "Unsupported AV format: avi"},
        {"broken.mov", PipelineError::Case::readFailed, nullptr},
        {"empty.mov", PipelineError::Case::writeFailed,
         "AV metadata export failed (the source has no audio or video stream)"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        try {
            W().cleanMetadata(dir / c.name, dir / ("out-" + std::string(c.name)), CleaningProfile::maximumPrivacy());
            ADD_FAILURE() << "no error";
        } catch (const PipelineError& e) {
            EXPECT_EQ(e.errorCase(), c.error);
            if (c.underlying) {
                EXPECT_EQ(describeError(e.underlying()), c.underlying);
            }
        }
        EXPECT_FALSE(std::filesystem::exists(dir / ("out-" + std::string(c.name))));
    }
}

}  // namespace
}  // namespace tavrin
