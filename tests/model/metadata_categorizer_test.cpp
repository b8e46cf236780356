#include <gtest/gtest.h>

#include "model/metadata_categorizer.h"

namespace tavrin {
namespace {

using C = MetadataCategory;

TEST(KeyMaps, lookups) {
    EXPECT_EQ(ExifKeyMap::lookup("GPSHPositioningError"), C::location);
    EXPECT_EQ(ExifKeyMap::lookup("ProfileName"), C::colorTechnical);
    EXPECT_FALSE(ExifKeyMap::lookup("make"));  // case-sensitive
    EXPECT_EQ(IPTCKeyMap::lookup("By-line"), C::authorIdentity);
    EXPECT_EQ(IPTCKeyMap::lookup("ReferenceNumber"), C::documentHistory);
    EXPECT_EQ(XMPKeyMap::lookup("CreatorContactInfo"), C::authorIdentity);  // through "Iptc4xmpCore:"
    EXPECT_EQ(XMPKeyMap::lookup("Nickname"), C::authorIdentity);            // through "xmp:"
    EXPECT_EQ(XMPKeyMap::lookup("creator"), C::authorIdentity);             // unqualified row
    EXPECT_EQ(XMPKeyMap::lookup("ToneCurve"), C::colorTechnical);           // through "crs:"
    EXPECT_FALSE(XMPKeyMap::lookup("NoSuchKey"));
}

TEST(MetadataCategorizer, ruleOrder) {
    struct Row {
        const char* key;
        const char* source;
        C expected;
    };
    const std::vector<Row> rows = {
        {"GPSAltitude", "GPS", C::location},
        {"Anything", "gps", C::location},
        {"XYZ", "Exif", C::colorTechnical},
        {"XYZ", "TIFF", C::colorTechnical},
        {"XYZ", "PDF", C::softwareInfo},
        {"XYZ", "MakerApple", C::deviceInfo},
        {"AccelerationVector", "MakerApple", C::deviceInfo},
        {"RunDate", "makerapple", C::timestamps},
        {"SceneTimestamp", "MakerApple", C::deviceInfo},  // "scene" is tested before "timestamp"
        {"Make", "Exif", C::deviceInfo},
        {"City", "IPTC", C::location},
        {"CreateDate", "XMP", C::timestamps},
        {"Creator", "IPTC", C::authorIdentity},
        {"Creator", "PDF", C::authorIdentity},  // any table: Exif has Creator
        {"DateCreated", "QuickTime", C::timestamps},  // IPTC table, before the patterns
        {"datecreated", "QuickTime", C::timestamps},  // through the name patterns
        {"LensModelName", "Other", C::deviceInfo},
        {"CameraDateTime", "Other", C::deviceInfo},  // "camera" comes before "date"
        {"AuthorEmail", "Other", C::authorIdentity},
        {"EncoderSettings", "Other", C::softwareInfo},
        {"ThumbnailOffset", "Other", C::thumbnails},
        {"UserComment", "Other", C::commentsAnnotations},
        {"CompanyName", "Other", C::companyInfo},
        {"RevisionNumber", "Other", C::documentHistory},
        {"RevisionDate", "Other", C::timestamps},  // "date" beats "revision"
    };
    for (const auto& r : rows)
        EXPECT_EQ(MetadataCategorizer::categorize(r.key, r.source), r.expected) << r.key << " / " << r.source;
}

}  // namespace
}  // namespace tavrin
