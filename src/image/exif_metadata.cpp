#include "image/exif_metadata.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <optional>

#include "image/icc_profile.h"
#include "image/iptc_metadata.h"
#include "image/xmp_metadata.h"

namespace tavrin::image {

namespace {

enum class Kind { primary, exif, gps, interop };

// How a tag is treated: reported as a property; needed by a decoder of a TIFF file (never
// reported); both (the structural keys); a pointer to another directory; a metadata blob parsed
// into its own dictionary; the ICC profile; the Exif thumbnail.
enum class Role { meta, decoder, decoderReported, pointer, xmp, iptc, photoshop, icc, thumbnail };

struct TagInfo {
    Kind kind;
    std::uint16_t tag;
    const char* name;
    Role role;
};

constexpr TagInfo tagTable[] = {
    {Kind::primary, 11, "ProcessingSoftware", Role::meta},
    {Kind::primary, 254, "NewSubfileType", Role::decoder},
    {Kind::primary, 255, "SubfileType", Role::decoder},
    {Kind::primary, 256, "ImageWidth", Role::decoder},
    {Kind::primary, 257, "ImageLength", Role::decoder},
    {Kind::primary, 258, "BitsPerSample", Role::decoder},
    {Kind::primary, 259, "Compression", Role::decoderReported},
    {Kind::primary, 262, "PhotometricInterpretation", Role::decoderReported},
    {Kind::primary, 263, "Threshholding", Role::decoder},
    {Kind::primary, 266, "FillOrder", Role::decoder},
    {Kind::primary, 269, "DocumentName", Role::meta},
    {Kind::primary, 270, "ImageDescription", Role::meta},
    {Kind::primary, 271, "Make", Role::meta},
    {Kind::primary, 272, "Model", Role::meta},
    {Kind::primary, 273, "StripOffsets", Role::decoder},
    {Kind::primary, 274, "Orientation", Role::decoderReported},
    {Kind::primary, 277, "SamplesPerPixel", Role::decoder},
    {Kind::primary, 278, "RowsPerStrip", Role::decoder},
    {Kind::primary, 279, "StripByteCounts", Role::decoder},
    {Kind::primary, 282, "XResolution", Role::decoderReported},
    {Kind::primary, 283, "YResolution", Role::decoderReported},
    {Kind::primary, 284, "PlanarConfiguration", Role::decoder},
    {Kind::primary, 285, "PageName", Role::meta},
    {Kind::primary, 286, "XPosition", Role::meta},
    {Kind::primary, 287, "YPosition", Role::meta},
    {Kind::primary, 292, "T4Options", Role::decoder},
    {Kind::primary, 293, "T6Options", Role::decoder},
    {Kind::primary, 296, "ResolutionUnit", Role::decoderReported},
    {Kind::primary, 297, "PageNumber", Role::meta},
    {Kind::primary, 301, "TransferFunction", Role::decoder},
    {Kind::primary, 305, "Software", Role::meta},
    {Kind::primary, 306, "DateTime", Role::meta},
    {Kind::primary, 315, "Artist", Role::meta},
    {Kind::primary, 316, "HostComputer", Role::meta},
    {Kind::primary, 317, "Predictor", Role::decoder},
    {Kind::primary, 318, "WhitePoint", Role::decoder},
    {Kind::primary, 319, "PrimaryChromaticities", Role::decoder},
    {Kind::primary, 320, "ColorMap", Role::decoder},
    {Kind::primary, 322, "TileWidth", Role::decoder},
    {Kind::primary, 323, "TileLength", Role::decoder},
    {Kind::primary, 324, "TileOffsets", Role::decoder},
    {Kind::primary, 325, "TileByteCounts", Role::decoder},
    {Kind::primary, 332, "InkSet", Role::decoder},
    {Kind::primary, 338, "ExtraSamples", Role::decoder},
    {Kind::primary, 339, "SampleFormat", Role::decoder},
    {Kind::primary, 340, "SMinSampleValue", Role::decoder},
    {Kind::primary, 341, "SMaxSampleValue", Role::decoder},
    {Kind::primary, 347, "JPEGTables", Role::decoder},
    {Kind::primary, 513, "JPEGInterchangeFormat", Role::thumbnail},
    {Kind::primary, 514, "JPEGInterchangeFormatLength", Role::thumbnail},
    {Kind::primary, 529, "YCbCrCoefficients", Role::decoder},
    {Kind::primary, 530, "YCbCrSubSampling", Role::decoder},
    {Kind::primary, 531, "YCbCrPositioning", Role::decoder},
    {Kind::primary, 532, "ReferenceBlackWhite", Role::decoder},
    {Kind::primary, 700, "XMP", Role::xmp},
    {Kind::primary, 18246, "Rating", Role::meta},
    {Kind::primary, 18249, "RatingPercent", Role::meta},
    {Kind::primary, 33432, "Copyright", Role::meta},
    {Kind::primary, 33723, "IPTC", Role::iptc},
    {Kind::primary, 34377, "Photoshop", Role::photoshop},
    {Kind::primary, 34665, "ExifIFD", Role::pointer},
    {Kind::primary, 34675, "ICCProfile", Role::icc},
    {Kind::primary, 34853, "GPSIFD", Role::pointer},
    {Kind::primary, 330, "SubIFDs", Role::pointer},
    {Kind::primary, 40091, "XPTitle", Role::meta},
    {Kind::primary, 40092, "XPComment", Role::meta},
    {Kind::primary, 40093, "XPAuthor", Role::meta},
    {Kind::primary, 40094, "XPKeywords", Role::meta},
    {Kind::primary, 40095, "XPSubject", Role::meta},
    {Kind::primary, 50708, "UniqueCameraModel", Role::meta},
    {Kind::primary, 50709, "LocalizedCameraModel", Role::meta},
    {Kind::primary, 50735, "CameraSerialNumber", Role::meta},

    {Kind::exif, 33434, "ExposureTime", Role::meta},
    {Kind::exif, 33437, "FNumber", Role::meta},
    {Kind::exif, 34850, "ExposureProgram", Role::meta},
    {Kind::exif, 34852, "SpectralSensitivity", Role::meta},
    {Kind::exif, 34855, "ISOSpeedRatings", Role::meta},
    {Kind::exif, 34856, "OECF", Role::meta},
    {Kind::exif, 34864, "SensitivityType", Role::meta},
    {Kind::exif, 34865, "StandardOutputSensitivity", Role::meta},
    {Kind::exif, 34866, "RecommendedExposureIndex", Role::meta},
    {Kind::exif, 34867, "ISOSpeed", Role::meta},
    {Kind::exif, 36864, "ExifVersion", Role::meta},
    {Kind::exif, 36867, "DateTimeOriginal", Role::meta},
    {Kind::exif, 36868, "DateTimeDigitized", Role::meta},
    {Kind::exif, 36880, "OffsetTime", Role::meta},
    {Kind::exif, 36881, "OffsetTimeOriginal", Role::meta},
    {Kind::exif, 36882, "OffsetTimeDigitized", Role::meta},
    {Kind::exif, 37121, "ComponentsConfiguration", Role::meta},
    {Kind::exif, 37122, "CompressedBitsPerPixel", Role::meta},
    {Kind::exif, 37377, "ShutterSpeedValue", Role::meta},
    {Kind::exif, 37378, "ApertureValue", Role::meta},
    {Kind::exif, 37379, "BrightnessValue", Role::meta},
    {Kind::exif, 37380, "ExposureBiasValue", Role::meta},
    {Kind::exif, 37381, "MaxApertureValue", Role::meta},
    {Kind::exif, 37382, "SubjectDistance", Role::meta},
    {Kind::exif, 37383, "MeteringMode", Role::meta},
    {Kind::exif, 37384, "LightSource", Role::meta},
    {Kind::exif, 37385, "Flash", Role::meta},
    {Kind::exif, 37386, "FocalLength", Role::meta},
    {Kind::exif, 37396, "SubjectArea", Role::meta},
    {Kind::exif, 37500, "MakerNote", Role::meta},
    {Kind::exif, 37510, "UserComment", Role::meta},
    {Kind::exif, 37520, "SubSecTime", Role::meta},
    {Kind::exif, 37521, "SubSecTimeOriginal", Role::meta},
    {Kind::exif, 37522, "SubSecTimeDigitized", Role::meta},
    {Kind::exif, 40960, "FlashPixVersion", Role::meta},
    {Kind::exif, 40961, "ColorSpace", Role::meta},
    {Kind::exif, 40962, "PixelXDimension", Role::meta},
    {Kind::exif, 40963, "PixelYDimension", Role::meta},
    {Kind::exif, 40964, "RelatedSoundFile", Role::meta},
    {Kind::exif, 40965, "InteroperabilityIFD", Role::pointer},
    {Kind::exif, 41483, "FlashEnergy", Role::meta},
    {Kind::exif, 41486, "FocalPlaneXResolution", Role::meta},
    {Kind::exif, 41487, "FocalPlaneYResolution", Role::meta},
    {Kind::exif, 41488, "FocalPlaneResolutionUnit", Role::meta},
    {Kind::exif, 41492, "SubjectLocation", Role::meta},
    {Kind::exif, 41493, "ExposureIndex", Role::meta},
    {Kind::exif, 41495, "SensingMethod", Role::meta},
    {Kind::exif, 41728, "FileSource", Role::meta},
    {Kind::exif, 41729, "SceneType", Role::meta},
    {Kind::exif, 41730, "CFAPattern", Role::meta},
    {Kind::exif, 41985, "CustomRendered", Role::meta},
    {Kind::exif, 41986, "ExposureMode", Role::meta},
    {Kind::exif, 41987, "WhiteBalance", Role::meta},
    {Kind::exif, 41988, "DigitalZoomRatio", Role::meta},
    {Kind::exif, 41989, "FocalLengthIn35mmFilm", Role::meta},
    {Kind::exif, 41990, "SceneCaptureType", Role::meta},
    {Kind::exif, 41991, "GainControl", Role::meta},
    {Kind::exif, 41992, "Contrast", Role::meta},
    {Kind::exif, 41993, "Saturation", Role::meta},
    {Kind::exif, 41994, "Sharpness", Role::meta},
    {Kind::exif, 41996, "SubjectDistanceRange", Role::meta},
    {Kind::exif, 42016, "ImageUniqueID", Role::meta},
    {Kind::exif, 42032, "CameraOwnerName", Role::meta},
    {Kind::exif, 42033, "BodySerialNumber", Role::meta},
    {Kind::exif, 42034, "LensSpecification", Role::meta},
    {Kind::exif, 42035, "LensMake", Role::meta},
    {Kind::exif, 42036, "LensModel", Role::meta},
    {Kind::exif, 42037, "LensSerialNumber", Role::meta},
    {Kind::exif, 42080, "CompositeImage", Role::meta},
    {Kind::exif, 42240, "Gamma", Role::meta},

    {Kind::gps, 0, "GPSVersion", Role::meta},
    {Kind::gps, 1, "LatitudeRef", Role::meta},
    {Kind::gps, 2, "Latitude", Role::meta},
    {Kind::gps, 3, "LongitudeRef", Role::meta},
    {Kind::gps, 4, "Longitude", Role::meta},
    {Kind::gps, 5, "AltitudeRef", Role::meta},
    {Kind::gps, 6, "Altitude", Role::meta},
    {Kind::gps, 7, "TimeStamp", Role::meta},
    {Kind::gps, 8, "Satellites", Role::meta},
    {Kind::gps, 9, "Status", Role::meta},
    {Kind::gps, 10, "MeasureMode", Role::meta},
    {Kind::gps, 11, "DOP", Role::meta},
    {Kind::gps, 12, "SpeedRef", Role::meta},
    {Kind::gps, 13, "Speed", Role::meta},
    {Kind::gps, 14, "TrackRef", Role::meta},
    {Kind::gps, 15, "Track", Role::meta},
    {Kind::gps, 16, "ImgDirectionRef", Role::meta},
    {Kind::gps, 17, "ImgDirection", Role::meta},
    {Kind::gps, 18, "MapDatum", Role::meta},
    {Kind::gps, 19, "DestLatitudeRef", Role::meta},
    {Kind::gps, 20, "DestLatitude", Role::meta},
    {Kind::gps, 21, "DestLongitudeRef", Role::meta},
    {Kind::gps, 22, "DestLongitude", Role::meta},
    {Kind::gps, 23, "DestBearingRef", Role::meta},
    {Kind::gps, 24, "DestBearing", Role::meta},
    {Kind::gps, 25, "DestDistanceRef", Role::meta},
    {Kind::gps, 26, "DestDistance", Role::meta},
    {Kind::gps, 27, "ProcessingMethod", Role::meta},
    {Kind::gps, 28, "AreaInformation", Role::meta},
    {Kind::gps, 29, "DateStamp", Role::meta},
    {Kind::gps, 30, "Differental", Role::meta},
    {Kind::gps, 31, "HPositioningError", Role::meta},

    {Kind::interop, 1, "InteroperabilityIndex", Role::meta},
    {Kind::interop, 2, "InteroperabilityVersion", Role::meta},
    {Kind::interop, 4096, "RelatedImageFileFormat", Role::meta},
    {Kind::interop, 4097, "RelatedImageWidth", Role::meta},
    {Kind::interop, 4098, "RelatedImageLength", Role::meta},
};

const TagInfo* lookup(Kind kind, std::uint16_t tag) {
    for (const auto& t : tagTable)
        if (t.kind == kind && t.tag == tag) return &t;
    return nullptr;
}

constexpr std::string_view interopKey = "Interoperability";
constexpr std::size_t maxArrayElements = 256;  // longer numeric arrays are shown as bytes

std::string asciiValue(ByteSpan v) {
    std::size_t end = 0;
    while (end < v.size() && v[end] != 0) ++end;
    return text(v.first(end));
}

// An Exif text with its 8-byte character code (UserComment, GPSProcessingMethod).
std::string codedText(ByteSpan v, bool little) {
    if (v.size() < 8) return asciiValue(v);
    auto body = v.subspan(8);
    if (startsWith(v, std::string_view("UNICODE\0", 8))) {
        std::string s = utf16ToUTF8(body, little);
        while (!s.empty() && s.back() == '\0') s.pop_back();
        return s;
    }
    std::string s = asciiValue(body);
    while (!s.empty() && s.back() == ' ') s.pop_back();
    return s;
}

MetadataValue numberValue(double d) {
    if (std::isfinite(d) && std::floor(d) == d && std::fabs(d) < 9.2e18) return MetadataValue::integer(static_cast<std::int64_t>(d));
    if (!std::isfinite(d)) return MetadataValue::number(0);
    return MetadataValue::number(d);
}

MetadataValue genericValue(const TiffStructure& s, const TiffEntry& e) {
    switch (e.type) {
        case 2: return MetadataValue::string(asciiValue(e.value));
        case 7: return MetadataValue::data(Bytes(e.value.begin(), e.value.end()));
        default: break;
    }
    if (e.count == 1) return numberValue(*s.doubleValue(e, 0));
    if (e.count > maxArrayElements) return MetadataValue::data(Bytes(e.value.begin(), e.value.end()));
    MetadataValue::Array a;
    for (std::size_t i = 0; i < e.count; ++i) a.push_back(numberValue(*s.doubleValue(e, i)));
    return MetadataValue::array(std::move(a));
}

MetadataValue digits(ByteSpan v) {
    MetadataValue::Array a;
    for (std::uint8_t b : v) a.push_back(MetadataValue::integer(b >= '0' && b <= '9' ? b - '0' : b));
    return MetadataValue::array(std::move(a));
}

MetadataValue entryValue(const TiffStructure& s, const TiffEntry& e, Kind kind) {
    if (kind == Kind::gps) {
        if ((e.tag == 2 || e.tag == 4 || e.tag == 20 || e.tag == 22) && e.type == 5 && e.count == 3)
            return MetadataValue::number(*s.doubleValue(e, 0) + *s.doubleValue(e, 1) / 60 + *s.doubleValue(e, 2) / 3600);
        if (e.tag == 7 && e.type == 5 && e.count == 3) {
            char buf[48];
            // Rationals may hold anything up to 2^32 (or infinity): reduced before any conversion.
            const auto twoDigits = [](double v) { return std::isfinite(v) ? static_cast<int>(std::fmod(v, 100.0)) : 0; };
            const double seconds = *s.doubleValue(e, 2);
            std::snprintf(buf, sizeof buf, "%02d:%02d:%05.2f", twoDigits(*s.doubleValue(e, 0)),
                          twoDigits(*s.doubleValue(e, 1)), std::isfinite(seconds) ? std::fmod(seconds, 100.0) : 0.0);
            return MetadataValue::string(buf);
        }
        if ((e.tag == 27 || e.tag == 28) && e.type == 7) return MetadataValue::string(codedText(e.value, s.endian.little));
    }
    if (kind == Kind::exif) {
        if ((e.tag == 36864 || e.tag == 40960) && e.type == 7) return digits(e.value);
        if (e.tag == 37510 && e.type == 7) return MetadataValue::string(codedText(e.value, s.endian.little));
        if (e.tag == 37121 && e.type == 7) {
            MetadataValue::Array a;
            for (std::uint8_t b : e.value) a.push_back(MetadataValue::integer(b));
            return MetadataValue::array(std::move(a));
        }
        if ((e.tag == 41728 || e.tag == 41729) && e.type == 7 && e.count == 1) return MetadataValue::integer(e.value[0]);
    }
    if (kind == Kind::primary && e.tag >= 40091 && e.tag <= 40095 && e.type == 1) {
        std::string s16 = utf16ToUTF8(e.value, true);
        while (!s16.empty() && s16.back() == '\0') s16.pop_back();
        return MetadataValue::string(s16);
    }
    return genericValue(s, e);
}

std::string entryName(const TagInfo* info, const TiffEntry& e) { return info ? info->name : std::to_string(e.tag); }

std::string makeOf(const TiffPage& page) {
    const TiffEntry* make = page.main.find(271);
    if (!make || make->type != 2) return {};
    return asciiValue(make->value);
}

struct Collector {
    const TiffStructure& s;
    ExifContext context;
    std::string makerDict;
    Properties tiff, exif, gps, interop, maker;

    void add(const TiffDirectory& dir, Kind kind) {
        for (const auto& e : dir.entries) {
            const TagInfo* info = lookup(kind, e.tag);
            const Role role = info ? info->role : Role::meta;
            if (role == Role::decoder || role == Role::pointer || role == Role::icc || role == Role::thumbnail ||
                role == Role::xmp || role == Role::iptc || role == Role::photoshop)
                continue;
            MetadataValue v = entryValue(s, e, kind);
            const std::string name = entryName(info, e);
            if (kind == Kind::exif && e.tag == 37500 && makerDict != key::exif) {
                maker.insert_or_assign(name, std::move(v));
                continue;
            }
            switch (kind) {
                case Kind::primary: tiff.insert_or_assign(name, std::move(v)); break;
                case Kind::exif: exif.insert_or_assign(name, std::move(v)); break;
                case Kind::gps: gps.insert_or_assign(name, std::move(v)); break;
                case Kind::interop: interop.insert_or_assign(name, std::move(v)); break;
            }
        }
    }
};

void addTopLevelFromTiff(const TiffStructure& s, const TiffPage& page, ExifContext context, Properties& frame) {
    const TiffDirectory& d = page.main;
    auto number = [&](std::uint16_t tag) -> std::optional<double> {
        const TiffEntry* e = d.find(tag);
        return e ? s.doubleValue(*e, 0) : std::nullopt;
    };
    if (auto o = number(274); o && *o >= 1 && *o <= 8)
        set(frame, key::orientation, MetadataValue::integer(static_cast<std::int64_t>(*o)));
    const double unit = number(296).value_or(2);
    if (!frame.count(std::string(key::dpiWidth)) && (unit == 2 || unit == 3)) {
        const double scale = unit == 3 ? 2.54 : 1.0;
        if (auto x = number(282); x && *x > 0) set(frame, key::dpiWidth, numberValue(std::round(*x * scale * 100) / 100));
        if (auto y = number(283); y && *y > 0) set(frame, key::dpiHeight, numberValue(std::round(*y * scale * 100) / 100));
    }
    if (context != ExifContext::tiffFile) return;
    if (auto w = number(256)) set(frame, key::pixelWidth, numberValue(*w));
    if (auto h = number(257)) set(frame, key::pixelHeight, numberValue(*h));
    set(frame, key::depth, numberValue(number(258).value_or(1)));
    const double photometric = number(262).value_or(-1);
    switch (photometric >= 0 && photometric <= 65535 ? static_cast<int>(photometric) : -1) {
        case 0: case 1: set(frame, key::colorModel, MetadataValue::string("Gray")); break;
        case 2: case 3: case 6: set(frame, key::colorModel, MetadataValue::string("RGB")); break;
        case 5: set(frame, key::colorModel, MetadataValue::string("CMYK")); break;
        case 8: case 9: case 10: set(frame, key::colorModel, MetadataValue::string("Lab")); break;
        default: break;
    }
    set(frame, key::hasAlpha, MetadataValue::boolean(d.find(338) != nullptr));
    if (const TiffEntry* icc = d.find(34675))
        if (auto name = iccProfileDescription(icc->value)) set(frame, key::profileName, MetadataValue::string(*name));
}

}  // namespace

std::string_view makerNoteDictionary(std::string_view make) {
    std::string m(make);
    std::transform(m.begin(), m.end(), m.begin(), [](unsigned char c) { return std::tolower(c); });
    if (m.find("apple") != std::string::npos) return key::makerApple;
    if (m.find("canon") != std::string::npos) return key::makerCanon;
    if (m.find("nikon") != std::string::npos) return key::makerNikon;
    if (m.find("minolta") != std::string::npos || m.find("konica") != std::string::npos) return key::makerMinolta;
    if (m.find("fuji") != std::string::npos) return key::makerFuji;
    if (m.find("olympus") != std::string::npos || m.find("om digital") != std::string::npos) return key::makerOlympus;
    if (m.find("pentax") != std::string::npos || m.find("ricoh") != std::string::npos) return key::makerPentax;
    return key::exif;
}

void addExifProperties(const TiffStructure& s, std::size_t pageIndex, ExifContext context, Properties& frame) {
    if (pageIndex >= s.pages.size()) return;
    const TiffPage& page = s.pages[pageIndex];
    Collector c{s, context, std::string(makerNoteDictionary(makeOf(page))), {}, {}, {}, {}, {}};
    c.add(page.main, Kind::primary);
    if (page.exif) c.add(*page.exif, Kind::exif);
    if (page.gps) c.add(*page.gps, Kind::gps);
    if (page.interop) c.add(*page.interop, Kind::interop);
    if (!c.interop.empty()) c.exif.insert_or_assign(std::string(interopKey), MetadataValue::dictionary(std::move(c.interop)));
    // The thumbnail of an Exif block lives in its second directory.
    if (context == ExifContext::embedded && s.pages.size() > 1) {
        const TiffDirectory& thumb = s.pages[1].main;
        const TiffEntry* at = thumb.find(513);
        const TiffEntry* length = thumb.find(514);
        if (at && length) {
            auto offset = s.unsignedValue(*at), size = s.unsignedValue(*length);
            if (offset && size && fits(s.data, *offset, *size))
                c.exif.insert_or_assign("ThumbnailImage",
                                        MetadataValue::data(Bytes(s.data.begin() + static_cast<std::ptrdiff_t>(*offset),
                                                                  s.data.begin() + static_cast<std::ptrdiff_t>(*offset + *size))));
        }
    }
    mergeSubDictionary(frame, key::tiff, std::move(c.tiff));
    mergeSubDictionary(frame, key::exif, std::move(c.exif));
    mergeSubDictionary(frame, key::gps, std::move(c.gps));
    if (c.makerDict != key::exif) mergeSubDictionary(frame, c.makerDict, std::move(c.maker));
    for (const auto* blobTag : {&page.main}) {
        if (const TiffEntry* x = blobTag->find(700)) mergeSubDictionary(frame, key::xmp, parseXMP(x->value).properties);
        if (const TiffEntry* i = blobTag->find(33723)) mergeSubDictionary(frame, key::iptc, parseIPTC(i->value).properties);
        if (const TiffEntry* p = blobTag->find(34377)) addPhotoshopProperties(p->value, frame);
    }
    addTopLevelFromTiff(s, page, context, frame);
}

namespace {

TiffOutDirectory filterDirectory(const TiffStructure& s, const TiffDirectory& dir, Kind kind, ExifContext context,
                                 const Properties* dict, const Properties* makerDict) {
    TiffOutDirectory out;
    for (const auto& e : dir.entries) {
        const TagInfo* info = lookup(kind, e.tag);
        const Role role = info ? info->role : Role::meta;
        bool keep = false;
        switch (role) {
            case Role::decoder: keep = context == ExifContext::tiffFile; break;
            case Role::icc: keep = context == ExifContext::tiffFile; break;
            case Role::pointer: case Role::thumbnail: case Role::xmp: case Role::iptc: case Role::photoshop: break;
            case Role::meta: case Role::decoderReported: {
                const Properties* from = (kind == Kind::exif && e.tag == 37500 && makerDict) ? makerDict : dict;
                keep = from && from->count(entryName(info, e)) > 0;
                if (role == Role::decoderReported && context == ExifContext::tiffFile) keep = true;
                break;
            }
        }
        if (keep) out.entries.push_back(copyEntry(e));
    }
    (void)s;
    return out;
}

}  // namespace

TiffOutPage filteredExifPage(const TiffStructure& s, std::size_t pageIndex, ExifContext context, const Properties& filtered) {
    TiffOutPage out;
    if (pageIndex >= s.pages.size()) return out;
    const TiffPage& page = s.pages[pageIndex];
    const std::string_view makerName = makerNoteDictionary(makeOf(page));
    const Properties* maker = makerName == key::exif ? nullptr : subDictionary(filtered, makerName);
    const Properties* exif = subDictionary(filtered, key::exif);
    out.main = filterDirectory(s, page.main, Kind::primary, context, subDictionary(filtered, key::tiff), nullptr);
    if (page.exif) out.exif = filterDirectory(s, *page.exif, Kind::exif, context, exif, maker);
    if (page.gps) out.gps = filterDirectory(s, *page.gps, Kind::gps, context, subDictionary(filtered, key::gps), nullptr);
    if (page.interop && exif)
        out.interop = filterDirectory(s, *page.interop, Kind::interop, context, subDictionary(*exif, interopKey), nullptr);
    return out;
}

Bytes filteredExifBlock(const TiffStructure& s, const Properties& filtered) {
    TiffOutPage page = filteredExifPage(s, 0, ExifContext::embedded, filtered);
    if (page.main.empty() && page.exif.empty() && page.gps.empty() && page.interop.empty()) return {};
    return writeTiff(s.endian, {page});
}

Bytes orientationOnlyExif(std::uint16_t orientation) {
    Endian big{false};
    TiffOutPage page;
    Bytes value;
    big.put16(value, orientation);
    page.main.entries.push_back({274, 3, 1, value});
    return writeTiff(big, {page});
}

}  // namespace tavrin::image
