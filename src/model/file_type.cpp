#include "model/file_type.h"

#include <algorithm>
#include <cctype>

#include "model/metadata_model.h"

namespace tavrin {

namespace {

struct TypeRow {
    FileType type;
    std::string_view raw;
    FileTypeCategory category;
    std::string_view displayName;
    std::vector<std::string_view> extensions;
    std::string_view utType;
};

const std::vector<TypeRow>& typeTable() {
    static const std::vector<TypeRow> rows = {
        {FileType::jpeg, "jpeg", FileTypeCategory::image, "JPEG Image", {"jpg", "jpeg"}, "public.jpeg"},
        {FileType::png, "png", FileTypeCategory::image, "PNG Image", {"png"}, "public.png"},
        {FileType::tiff, "tiff", FileTypeCategory::image, "TIFF Image", {"tif", "tiff"}, "public.tiff"},
        {FileType::heic, "heic", FileTypeCategory::image, "HEIC Image", {"heic", "heif"}, "public.heic"},
        {FileType::webp, "webp", FileTypeCategory::image, "WebP Image", {"webp"}, "org.webmproject.webp"},
        {FileType::gif, "gif", FileTypeCategory::image, "GIF Image", {"gif"}, "com.compuserve.gif"},
        {FileType::bmp, "bmp", FileTypeCategory::image, "BMP Image", {"bmp"}, "com.microsoft.bmp"},
        {FileType::raw, "raw", FileTypeCategory::image, "RAW Image", {"cr2", "cr3", "nef", "arw", "dng", "raf", "orf"},
         "public.camera-raw-image"},
        {FileType::pdf, "pdf", FileTypeCategory::document, "PDF Document", {"pdf"}, "com.adobe.pdf"},
        {FileType::docx, "docx", FileTypeCategory::officeDocument, "Word Document", {"docx"},
         "org.openxmlformats.wordprocessingml.document"},
        {FileType::xlsx, "xlsx", FileTypeCategory::officeDocument, "Excel Spreadsheet", {"xlsx"},
         "org.openxmlformats.spreadsheetml.sheet"},
        {FileType::pptx, "pptx", FileTypeCategory::officeDocument, "PowerPoint Presentation", {"pptx"},
         "org.openxmlformats.presentationml.presentation"},
        {FileType::doc, "doc", FileTypeCategory::legacyOfficeDocument, "Word Document (Legacy)", {"doc"},
         "com.microsoft.word.doc"},
        {FileType::xls, "xls", FileTypeCategory::legacyOfficeDocument, "Excel Spreadsheet (Legacy)", {"xls"},
         "com.microsoft.excel.xls"},
        {FileType::ppt, "ppt", FileTypeCategory::legacyOfficeDocument, "PowerPoint Presentation (Legacy)", {"ppt"},
         "com.microsoft.powerpoint.ppt"},
        {FileType::mov, "mov", FileTypeCategory::video, "QuickTime Movie", {"mov"}, "com.apple.quicktime-movie"},
        {FileType::mp4, "mp4", FileTypeCategory::video, "MP4 Video", {"mp4", "m4v"}, "public.mpeg-4"},
        {FileType::avi, "avi", FileTypeCategory::video, "AVI Video", {"avi"}, "public.avi"},
        {FileType::mp3, "mp3", FileTypeCategory::audio, "MP3 Audio", {"mp3"}, "public.mp3"},
        {FileType::m4a, "m4a", FileTypeCategory::audio, "M4A Audio", {"m4a"}, "com.apple.m4a-audio"},
        {FileType::wav, "wav", FileTypeCategory::audio, "WAV Audio", {"wav"}, "com.microsoft.waveform-audio"},
        {FileType::aiff, "aiff", FileTypeCategory::audio, "AIFF Audio", {"aiff", "aif"}, "public.aiff-audio"},
        {FileType::flac, "flac", FileTypeCategory::audio, "FLAC Audio", {"flac"}, "org.xiph.flac"},
    };
    return rows;
}

const TypeRow& row(FileType type) { return typeTable()[static_cast<std::size_t>(type)]; }

std::string lower(std::string_view s) {
    std::string out(s);
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return std::tolower(c); });
    return out;
}

// The identifiers each type conforms to beyond its own: its family, then the most general ones.
std::vector<std::string_view> conformances(FileType type) {
    std::vector<std::string_view> out{row(type).utType, "public.data", "public.item"};
    switch (category(type)) {
        case FileTypeCategory::image: out.push_back("public.image"); break;
        case FileTypeCategory::document: out.push_back("public.composite-content"); break;
        case FileTypeCategory::officeDocument:
            out.push_back("org.openxmlformats.openxml");
            out.push_back("public.zip-archive");
            break;
        case FileTypeCategory::legacyOfficeDocument: out.push_back("com.microsoft.office.legacy"); break;
        case FileTypeCategory::video:
            out.push_back("public.movie");
            out.push_back("public.audiovisual-content");
            break;
        case FileTypeCategory::audio:
            out.push_back("public.audio");
            out.push_back("public.audiovisual-content");
            break;
    }
    if (type == FileType::mov || type == FileType::mp4 || type == FileType::m4a) out.push_back("public.mpeg-4");
    return out;
}

}  // namespace

const std::array<FileType, 23>& fileTypes::allCases() {
    static const std::array<FileType, 23> all = [] {
        std::array<FileType, 23> a{};
        for (std::size_t i = 0; i < a.size(); ++i) a[i] = static_cast<FileType>(i);
        return a;
    }();
    return all;
}

std::string_view rawValue(FileType type) { return row(type).raw; }
FileTypeCategory category(FileType type) { return row(type).category; }
std::string_view displayName(FileType type) { return row(type).displayName; }
const std::vector<std::string_view>& fileExtensions(FileType type) { return row(type).extensions; }
std::string_view utType(FileType type) { return row(type).utType; }

std::optional<FileType> fileTypeFromRawValue(std::string_view raw) {
    for (const auto& r : typeTable())
        if (r.raw == raw) return r.type;
    return std::nullopt;
}

std::optional<FileType> fileTypeFromExtension(std::string_view extension) {
    const std::string ext = lower(extension);
    for (const auto& r : typeTable())
        for (auto e : r.extensions)
            if (e == ext) return r.type;
    return std::nullopt;
}

std::optional<FileType> fileTypeFromUTType(std::string_view identifier) {
    for (FileType t : fileTypes::allCases()) {
        for (auto c : conformances(t))
            if (c == identifier) return t;
    }
    return std::nullopt;
}

std::optional<FileType> relatedFileTypeForExtension(std::string_view extension) {
    static const std::vector<std::pair<std::string_view, std::string_view>> related = {
        {"jpe", "public.jpeg"}, {"jfif", "public.jpeg"}, {"pjpeg", "public.jpeg"},
        {"hif", "public.heic"}, {"avci", "public.heic"},
        {"qt", "com.apple.quicktime-movie"},
        {"mpga", "public.mp3"}, {"wave", "com.microsoft.waveform-audio"},
        {"aifc", "public.aiff-audio"},
        {"dot", "com.microsoft.word.doc"}, {"xlt", "com.microsoft.excel.xls"}, {"pot", "com.microsoft.powerpoint.ppt"},
        {"rw2", "public.camera-raw-image"}, {"pef", "public.camera-raw-image"}, {"srw", "public.camera-raw-image"},
        {"nrw", "public.camera-raw-image"},
    };
    const std::string ext = lower(extension);
    for (const auto& [e, id] : related)
        if (e == ext) return fileTypeFromUTType(id);
    return std::nullopt;
}

std::string_view rawValue(FileTypeCategory c) {
    switch (c) {
        case FileTypeCategory::image: return "image";
        case FileTypeCategory::document: return "document";
        case FileTypeCategory::officeDocument: return "officeDocument";
        case FileTypeCategory::legacyOfficeDocument: return "legacyOfficeDocument";
        case FileTypeCategory::video: return "video";
        case FileTypeCategory::audio: return "audio";
    }
    return {};
}

std::string_view displayName(FileTypeCategory c) {
    switch (c) {
        case FileTypeCategory::image: return "Image";
        case FileTypeCategory::document: return "Document";
        case FileTypeCategory::officeDocument: return "Office Document";
        case FileTypeCategory::legacyOfficeDocument: return "Legacy Office Document";
        case FileTypeCategory::video: return "Video";
        case FileTypeCategory::audio: return "Audio";
    }
    return {};
}

std::string_view rawValue(FormatSupportLevel level) {
    switch (level) {
        case FormatSupportLevel::verifiedCleanable: return "verifiedCleanable";
        case FormatSupportLevel::cleanable: return "cleanable";
        case FormatSupportLevel::inspectOnly: return "inspectOnly";
        case FormatSupportLevel::unsupported: return "unsupported";
    }
    return {};
}

std::string_view displayName(FormatSupportLevel level) {
    switch (level) {
        case FormatSupportLevel::verifiedCleanable: return "Verified Clean";
        case FormatSupportLevel::cleanable: return "Cleanable";
        case FormatSupportLevel::inspectOnly: return "Inspect Only";
        case FormatSupportLevel::unsupported: return "Unsupported";
    }
    return {};
}

SourceSizeLimit sourceSizeLimit(FileType type) {
    constexpr std::uint64_t MB = 1000 * 1000;
    constexpr std::uint64_t GB = 1000 * MB;
    switch (type) {
        case FileType::jpeg:
        case FileType::png:
        case FileType::tiff:
        case FileType::heic:
        case FileType::webp:
        case FileType::gif:
        case FileType::bmp:
        case FileType::raw:
            return {512 * MB, "an image is read whole into memory and every frame is decoded to verify it"};
        case FileType::pdf: return {1 * GB, "a PDF is loaded whole into memory to rewrite and verify it"};
        case FileType::docx:
        case FileType::xlsx:
        case FileType::pptx:
            return {1 * GB, "an Office document's parts are read into memory to rewrite and verify them"};
        case FileType::doc:
        case FileType::xls:
        case FileType::ppt: return {1 * GB, "a legacy Office document is read whole by ExifTool"};
        case FileType::mov:
        case FileType::mp4:
        case FileType::avi:
        case FileType::mp3:
        case FileType::m4a:
        case FileType::wav:
        case FileType::aiff:
        case FileType::flac:
            return {64 * GB, "media is streamed, and a cleaned copy of this size needs as much free space again"};
    }
    return {0, "the type is unknown"};
}

FormatCapabilities FormatCapabilities::capabilities(FileType type) {
    using C = MetadataCategory;
    const std::set<C> groupA{C::location, C::deviceInfo, C::authorIdentity, C::timestamps,
                             C::softwareInfo, C::thumbnails, C::colorTechnical};
    const std::set<C> groupB{C::location, C::deviceInfo, C::timestamps, C::softwareInfo, C::colorTechnical};
    const std::set<C> groupC{C::authorIdentity, C::timestamps, C::softwareInfo};
    const std::set<C> groupD{C::authorIdentity, C::timestamps, C::softwareInfo, C::documentHistory,
                             C::commentsAnnotations, C::companyInfo, C::thumbnails};
    const std::set<C> groupE{C::authorIdentity, C::timestamps, C::softwareInfo, C::documentHistory, C::companyInfo};
    const std::set<C> groupF{C::location, C::deviceInfo, C::authorIdentity, C::timestamps, C::softwareInfo};

    auto make = [&](FormatSupportLevel level, MetadataSource source, bool read, bool write,
                    const std::set<C>& typical, bool unverified) {
        return FormatCapabilities{type, read, write, true, source, typical, level,
                                  unverified ? typical : std::set<C>{}};
    };
    using L = FormatSupportLevel;
    using S = MetadataSource;
    switch (type) {
        case FileType::jpeg:
        case FileType::png:
        case FileType::tiff:
        case FileType::heic:
        case FileType::gif:
        case FileType::bmp: return make(L::verifiedCleanable, S::imageIO, true, true, groupA, false);
        case FileType::webp: return make(L::verifiedCleanable, S::imageIO, true, true, groupB, false);
        case FileType::raw: return make(L::inspectOnly, S::exifTool, true, false, groupA, true);
        case FileType::pdf: return make(L::verifiedCleanable, S::pdfKit, true, true, groupC, false);
        case FileType::docx:
        case FileType::xlsx:
        case FileType::pptx: return make(L::verifiedCleanable, S::zipXML, true, true, groupD, false);
        case FileType::doc:
        case FileType::xls:
        case FileType::ppt: return make(L::unsupported, S::exifTool, false, false, groupE, true);
        case FileType::mov:
        case FileType::mp4: return make(L::cleanable, S::avFoundation, true, true, groupF, true);
        case FileType::avi: return make(L::inspectOnly, S::avFoundation, true, false, groupF, true);
        case FileType::mp3:
        case FileType::m4a:
        case FileType::wav:
        case FileType::aiff: return make(L::cleanable, S::avFoundation, true, true, groupC, true);
        case FileType::flac: return make(L::inspectOnly, S::avFoundation, true, false, groupC, true);
    }
    return make(L::unsupported, S::unknown, false, false, {}, false);
}

}  // namespace tavrin
