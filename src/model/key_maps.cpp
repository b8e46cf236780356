// The image vocabulary: which category each Exif, IPTC and XMP key belongs to.
#include <string>
#include <unordered_map>

#include "model/metadata_categorizer.h"

namespace tavrin {

namespace {

using Table = std::unordered_map<std::string_view, MetadataCategory>;
using C = MetadataCategory;

void add(Table& t, C category, std::initializer_list<std::string_view> keys) {
    for (auto k : keys) t.emplace(k, category);
}

const Table& exifTable() {
    static const Table table = [] {
        Table t;
        add(t, C::location,
            {"GPSLatitude", "GPSLatitudeRef", "GPSLongitude", "GPSLongitudeRef", "GPSAltitude", "GPSAltitudeRef",
             "GPSTimeStamp", "GPSDateStamp", "GPSSpeed", "GPSSpeedRef", "GPSImgDirection", "GPSImgDirectionRef",
             "GPSDestLatitude", "GPSDestLatitudeRef", "GPSDestLongitude", "GPSDestLongitudeRef", "GPSDestBearing",
             "GPSDestBearingRef", "GPSDestDistance", "GPSDestDistanceRef", "GPSProcessingMethod", "GPSAreaInformation",
             "GPSMapDatum", "GPSDOP", "GPSHPositioningError"});
        add(t, C::deviceInfo,
            {"Make", "Model", "LensMake", "LensModel", "LensSerialNumber", "LensSpecification", "BodySerialNumber",
             "CameraSerialNumber", "InternalSerialNumber", "CameraOwnerName", "UniqueCameraModel",
             "LocalizedCameraModel", "ImageUniqueID"});
        add(t, C::authorIdentity,
            {"Artist", "Copyright", "Creator", "ImageDescription", "XPAuthor", "XPComment", "XPKeywords", "XPSubject",
             "XPTitle", "OwnerName"});
        add(t, C::timestamps,
            {"DateTimeOriginal", "DateTimeDigitized", "DateTime", "CreateDate", "ModifyDate", "SubSecTime",
             "SubSecTimeOriginal", "SubSecTimeDigitized", "OffsetTime", "OffsetTimeOriginal", "OffsetTimeDigitized"});
        add(t, C::softwareInfo,
            {"Software", "ProcessingSoftware", "HostComputer", "ExifVersion", "FlashpixVersion", "FirmwareVersion"});
        add(t, C::thumbnails,
            {"JPEGInterchangeFormat", "JPEGInterchangeFormatLength", "ThumbnailImage", "PreviewImage", "JpgFromRaw"});
        add(t, C::colorTechnical,
            {"ExposureTime", "FNumber", "ExposureProgram", "ISOSpeedRatings", "ISO", "PhotographicSensitivity",
             "ShutterSpeedValue", "ApertureValue", "BrightnessValue", "ExposureBiasValue", "MaxApertureValue",
             "MeteringMode", "LightSource", "Flash", "FocalLength", "FocalLengthIn35mmFilm", "FocalPlaneXResolution",
             "FocalPlaneYResolution", "FocalPlaneResolutionUnit", "WhiteBalance", "DigitalZoomRatio",
             "SceneCaptureType", "GainControl", "Contrast", "Saturation", "Sharpness", "SubjectDistanceRange",
             "SensingMethod", "FileSource", "SceneType", "CFAPattern", "CustomRendered", "ExposureMode",
             "ComponentsConfiguration", "CompressedBitsPerPixel", "ColorSpace", "Gamma", "PixelXDimension",
             "PixelYDimension", "Compression", "PhotometricInterpretation", "Orientation", "SamplesPerPixel",
             "RowsPerStrip", "StripByteCounts", "XResolution", "YResolution", "ResolutionUnit", "BitsPerSample",
             "PlanarConfiguration", "TransferFunction", "WhitePoint", "PrimaryChromaticities", "YCbCrCoefficients",
             "YCbCrPositioning", "ReferenceBlackWhite", "ProfileName"});
        return t;
    }();
    return table;
}

const Table& iptcTable() {
    static const Table table = [] {
        Table t;
        add(t, C::authorIdentity,
            {"By-line", "Byline", "By-lineTitle", "Credit", "Source", "CopyrightNotice", "Contact", "Writer-Editor",
             "Creator", "CreatorContactInfo", "Rights", "RightsUsageTerms", "WebStatement"});
        add(t, C::location,
            {"City", "SubLocation", "ProvinceState", "CountryPrimaryLocationCode", "CountryPrimaryLocationName",
             "ContentLocationCode", "ContentLocationName", "CountryCode", "Country", "Province", "Location"});
        add(t, C::timestamps,
            {"DateCreated", "TimeCreated", "DigitalCreationDate", "DigitalCreationTime", "ExpirationDate",
             "ExpirationTime", "ReleaseDate", "ReleaseTime"});
        add(t, C::commentsAnnotations, {"Caption-Abstract", "Headline", "SpecialInstructions", "Description"});
        add(t, C::softwareInfo, {"OriginatingProgram", "ProgramVersion", "EditorialUpdate"});
        add(t, C::companyInfo,
            {"ObjectName", "Category", "SupplementalCategories", "Keywords", "FixtureIdentifier", "EditStatus",
             "Urgency", "SubjectReference"});
        add(t, C::documentHistory,
            {"ObjectAttributeReference", "ActionAdvised", "ReferenceService", "ReferenceDate", "ReferenceNumber"});
        add(t, C::thumbnails, {"PreviewData", "AudioContent"});
        add(t, C::colorTechnical, {"ImageType", "ImageOrientation"});
        return t;
    }();
    return table;
}

const Table& xmpTable() {
    static const Table table = [] {
        Table t;
        add(t, C::authorIdentity,
            {"dc:creator", "dc:rights", "dc:title", "dc:subject", "dc:publisher", "dc:contributor", "dc:source",
             "creator", "rights", "title", "subject", "publisher", "xmp:Nickname", "xmpRights:Marked",
             "xmpRights:Owner", "xmpRights:UsageTerms", "xmpRights:WebStatement", "xmpRights:Certificate",
             "photoshop:AuthorsPosition", "photoshop:CaptionWriter", "photoshop:Credit", "photoshop:Source",
             "tiff:Artist", "tiff:Copyright", "tiff:ImageDescription", "Iptc4xmpCore:CreatorContactInfo",
             "Iptc4xmpExt:PersonInImage", "plus:Licensor", "plus:LicensorURL", "plus:CopyrightOwner",
             "plus:ImageCreator"});
        add(t, C::commentsAnnotations,
            {"dc:description", "description", "xmp:Rating", "xmp:Label", "Rating", "Label", "photoshop:Headline",
             "photoshop:Instructions"});
        add(t, C::location,
            {"dc:coverage", "photoshop:City", "photoshop:State", "photoshop:Country", "exif:GPSLatitude",
             "exif:GPSLongitude", "exif:GPSAltitude", "exif:GPSTimeStamp", "exif:GPSVersionID",
             "Iptc4xmpCore:Location", "Iptc4xmpCore:CountryCode", "Iptc4xmpExt:LocationCreated",
             "Iptc4xmpExt:LocationShown"});
        add(t, C::timestamps,
            {"dc:date", "xmp:CreateDate", "xmp:ModifyDate", "xmp:MetadataDate", "CreateDate", "ModifyDate",
             "MetadataDate", "photoshop:DateCreated", "tiff:DateTime", "exif:DateTimeOriginal",
             "exif:DateTimeDigitized"});
        add(t, C::softwareInfo,
            {"dc:format", "dc:language", "dc:type", "xmp:CreatorTool", "xmp:BaseURL", "CreatorTool", "tiff:Software",
             "exif:ExifVersion", "Iptc4xmpExt:DigitalSourceType", "crs:RawFileName", "crs:Version",
             "crs:ProcessVersion", "crs:HasSettings", "crs:HasCrop"});
        add(t, C::documentHistory,
            {"dc:identifier", "dc:relation", "xmp:Identifier", "xmpMM:DocumentID", "xmpMM:OriginalDocumentID",
             "xmpMM:InstanceID", "xmpMM:DerivedFrom", "xmpMM:History", "xmpMM:Versions", "xmpMM:RenditionClass",
             "xmpMM:RenditionParams", "xmpMM:VersionID", "DocumentID", "OriginalDocumentID", "InstanceID", "History",
             "photoshop:History", "photoshop:DocumentAncestors"});
        add(t, C::companyInfo,
            {"xmpMM:Manager", "xmpMM:ManageTo", "xmpMM:ManageFrom", "xmpMM:ManageUI", "photoshop:Category",
             "photoshop:SupplementalCategories", "photoshop:Urgency", "photoshop:TransmissionReference",
             "Iptc4xmpCore:Scene", "Iptc4xmpCore:SubjectCode", "Iptc4xmpCore:IntellectualGenre",
             "Iptc4xmpExt:OrganisationInImageName", "Iptc4xmpExt:OrganisationInImageCode", "Iptc4xmpExt:Event",
             "plus:ImageSupplier"});
        add(t, C::colorTechnical,
            {"photoshop:ICCProfile", "photoshop:ColorMode", "tiff:Orientation", "tiff:XResolution",
             "tiff:YResolution", "tiff:ResolutionUnit", "tiff:ImageWidth", "tiff:ImageLength", "tiff:BitsPerSample",
             "tiff:Compression", "tiff:PhotometricInterpretation", "tiff:NativeDigest", "exif:ExposureTime",
             "exif:FNumber", "exif:ISOSpeedRatings", "exif:FocalLength", "exif:Flash", "exif:WhiteBalance",
             "exif:ColorSpace", "exif:PixelXDimension", "exif:PixelYDimension", "exif:NativeDigest",
             "exifEX:InteroperabilityIndex", "crs:WhiteBalance", "crs:Temperature", "crs:Tint", "crs:Exposure",
             "crs:Shadows", "crs:Brightness", "crs:Contrast", "crs:Saturation", "crs:Sharpness", "crs:ToneCurve"});
        add(t, C::deviceInfo,
            {"tiff:Make", "tiff:Model", "exifEX:LensMake", "exifEX:LensModel", "exifEX:LensSerialNumber",
             "exifEX:CameraOwnerName", "exifEX:BodySerialNumber"});
        return t;
    }();
    return table;
}

std::optional<MetadataCategory> find(const Table& t, std::string_view key) {
    auto it = t.find(key);
    if (it == t.end()) return std::nullopt;
    return it->second;
}

}  // namespace

std::optional<MetadataCategory> ExifKeyMap::lookup(std::string_view key) { return find(exifTable(), key); }
std::size_t ExifKeyMap::size() { return exifTable().size(); }
std::optional<MetadataCategory> IPTCKeyMap::lookup(std::string_view key) { return find(iptcTable(), key); }
std::size_t IPTCKeyMap::size() { return iptcTable().size(); }
std::size_t XMPKeyMap::size() { return xmpTable().size(); }

std::optional<MetadataCategory> XMPKeyMap::lookup(std::string_view key) {
    if (auto hit = find(xmpTable(), key)) return hit;
    static const std::string_view prefixes[] = {"dc:",    "xmp:",  "xmpMM:",       "xmpRights:",  "photoshop:", "tiff:",
                                                "exif:", "exifEX:", "Iptc4xmpCore:", "Iptc4xmpExt:", "crs:",       "plus:"};
    std::string qualified;
    for (auto prefix : prefixes) {
        qualified.assign(prefix);
        qualified.append(key);
        if (auto hit = find(xmpTable(), qualified)) return hit;
    }
    return std::nullopt;
}

}  // namespace tavrin
