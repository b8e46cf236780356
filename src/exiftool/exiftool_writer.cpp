#include "exiftool/exiftool_writer.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fmt/core.h>
#include <initializer_list>
#include <system_error>

#include "model/cleaning_result_builder.h"
#include "model/file_system.h"
#include "model/pipeline_error.h"
#include "exiftool/exiftool_process.h"
#include "exiftool/exiftool_reader.h"

namespace tavrin {

namespace {

// The tags exiftool deletes for each category, in the order they are passed.
std::vector<std::string_view> deletionsFor(MetadataCategory category) {
    using C = MetadataCategory;
    switch (category) {
        case C::location:
            return {"-gps:all=", "-XMP:GPSLatitude=", "-XMP:GPSLongitude=", "-XMP:GPSAltitude=",
                    "-Composite:GPSPosition="};
        case C::deviceInfo:
            return {"-EXIF:Make=",
                    "-EXIF:Model=",
                    "-EXIF:SerialNumber=",
                    "-EXIF:LensModel=",
                    "-EXIF:LensMake=",
                    "-EXIF:LensSerialNumber=",
                    "-EXIF:BodySerialNumber=",
                    "-EXIF:CameraSerialNumber=",
                    "-EXIF:InternalSerialNumber=",
                    "-XMP:SerialNumber=",
                    "-MakerNotes:all="};
        case C::authorIdentity:
            return {"-EXIF:Artist=",  "-EXIF:Copyright=", "-IPTC:By-line=",
                    "-IPTC:CopyrightNotice=", "-IPTC:Credit=", "-IPTC:Contact=",
                    "-XMP:Creator=",  "-XMP:Rights=",     "-XMP:CreatorContactInfo=",
                    "-PDF:Author=",   "-XMP:Author="};
        case C::timestamps:
            return {"-EXIF:DateTimeOriginal=", "-EXIF:CreateDate=", "-EXIF:ModifyDate=", "-IPTC:DateCreated=",
                    "-IPTC:TimeCreated=",      "-XMP:CreateDate=",  "-XMP:ModifyDate=",  "-XMP:DateCreated=",
                    "-PDF:CreateDate=",        "-PDF:ModifyDate="};
        case C::softwareInfo:
            return {"-EXIF:Software=", "-XMP:CreatorTool=", "-XMP:HistorySoftwareAgent=", "-PDF:Creator=",
                    "-PDF:Producer="};
        case C::documentHistory: return {"-XMP:History=", "-XMP:DerivedFrom=", "-XMP:Versions=", "-PDF:PageCount="};
        case C::commentsAnnotations:
            return {"-EXIF:UserComment=", "-EXIF:ImageDescription=", "-IPTC:Caption-Abstract=", "-XMP:Description="};
        case C::companyInfo: return {"-XMP:Company=", "-XMP:Organization=", "-IPTC:Source="};
        case C::thumbnails: return {"-ThumbnailImage=", "-PreviewImage=", "-PhotoshopThumbnail="};
        case C::colorTechnical: return {"-ICC_Profile:all="};
        case C::hiddenContent: return {};
    }
    return {};
}

bool isWhitespace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; }

std::string trimmed(std::string_view text) {
    while (!text.empty() && isWhitespace(text.front())) text.remove_prefix(1);
    while (!text.empty() && isWhitespace(text.back())) text.remove_suffix(1);
    return std::string(text);
}

// Removes what this writer made at the destination unless the clean got through.
class OutputGuard {
public:
    explicit OutputGuard(std::filesystem::path destination) : destination_(std::move(destination)) {}
    OutputGuard(const OutputGuard&) = delete;
    OutputGuard& operator=(const OutputGuard&) = delete;
    ~OutputGuard() {
        if (committed_) return;
        fs::removeItemQuietly(destination_);
        // exiftool writes beside the file under this name and renames; a killed run leaves it.
        fs::removeItemQuietly(destination_.string() + "_exiftool_tmp");
    }
    void commit() { committed_ = true; }

private:
    std::filesystem::path destination_;
    bool committed_ = false;
};

void copyToDestination(const std::filesystem::path& source, const std::filesystem::path& destination) {
    std::error_code ec;
    // The destination is removed before the copy, so it must never be the source itself.
    if (std::filesystem::equivalent(source, destination, ec))
        throw FileSystemError(fmt::format("Cannot copy {} onto itself", source.filename().string()), EINVAL);
    if (fs::exists(destination) && !std::filesystem::remove(destination, ec))
        throw FileSystemError(fmt::format("Cannot replace {}: {}", destination.filename().string(), ec.message()),
                              ec.value());
    if (!std::filesystem::copy_file(source, destination, std::filesystem::copy_options::none, ec))
        throw FileSystemError(fmt::format("Cannot copy {}: {}", source.filename().string(), ec.message()),
                              ec.value());
}

}  // namespace

std::set<FileType> ExifToolWriter::supportedTypes() const {
    const auto& all = fileTypes::allCases();
    return {all.begin(), all.end()};
}

bool ExifToolWriter::isExifToolTagName(std::string_view key) {
    if (key.empty() || key.front() == '-') return false;
    return std::all_of(key.begin(), key.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-' ||
               c == '.' || c == ':';
    });
}

long ExifToolWriter::updatedFileCount(std::string_view out) {
    constexpr std::string_view words = "image files updated";
    for (auto at = out.find(words); at != std::string_view::npos; at = out.find(words, at + 1)) {
        std::size_t end = at;
        while (end > 0 && out[end - 1] == ' ') --end;
        std::size_t begin = end;
        while (begin > 0 && out[begin - 1] >= '0' && out[begin - 1] <= '9' && end - begin < 9) --begin;
        if (begin == end) continue;
        const long count = std::stol(std::string(out.substr(begin, end - begin)));
        if (count > 0) return count;
    }
    return 0;
}

std::vector<std::string> ExifToolWriter::buildArguments(const CleaningProfile& profile, const std::string& outputPath) {
    std::vector<std::string> args{"-overwrite_original"};
    for (MetadataCategory category : metadataCategories::allCases()) {
        if (!profile.categoriesToRemove.count(category)) continue;
        for (std::string_view deletion : deletionsFor(category)) args.emplace_back(deletion);
    }
    for (const auto& key : profile.specificKeysToRemove)
        if (isExifToolTagName(key)) args.push_back("-" + key + "=");
    args.push_back(outputPath);
    return args;
}

std::vector<MetadataItem> ExifToolWriter::readMetadataWithExifTool(const std::filesystem::path& url) const {
    return ExifToolReader(exifToolPath_, limits_).readItems(url);
}

CleaningResult ExifToolWriter::cleanMetadata(const std::filesystem::path& source,
                                             const std::filesystem::path& destination,
                                             const CleaningProfile& profile) const {
    const auto start = std::chrono::steady_clock::now();
    requireExifToolAvailable(exifToolPath_);

    try {
        copyToDestination(source, destination);
    } catch (...) {
        // Nothing of ours is at the destination yet (it may even be the source): no clean-up.
        throw PipelineError::writeFailed(source, std::current_exception());
    }
    OutputGuard guard(destination);

    const auto arguments = buildArguments(profile, exifToolFileArgument(destination));
    const std::vector<MetadataItem> before = readMetadataWithExifTool(source);

    std::vector<CleaningWarning> warnings;
    for (const auto& key : profile.specificKeysToRemove)
        if (!isExifToolTagName(key))
            warnings.push_back({"ExifTool", fmt::format("\"{}\" is not a tag name and was not passed to ExifTool", key)});

    const ProcessOutput run = runExifToolProcess(exifToolPath_, arguments, limits_);
    if (run.exitCode != 0) {
        std::string message = trimmed(run.standardError);
        if (message.empty()) message = fmt::format("ExifTool exited with code {}", run.exitCode);
        // Status 1 also reports tags it could not write while the file itself was rewritten;
        // "0 image files updated" means the copy is untouched, which is a failure.
        if (run.exitCode == 1 && updatedFileCount(run.standardOutput) > 0)
            warnings.push_back({"ExifTool", message});
        else
            throw PipelineError::exifToolFailed(message);
    }

    std::vector<MetadataItem> after = readMetadataWithExifTool(destination);

    std::set<std::string> keysAfter;
    for (const auto& item : after) keysAfter.insert(item.key);
    std::vector<MetadataItem> removed;
    for (const auto& item : before)
        if (!keysAfter.count(item.key)) removed.push_back(item);
    std::set<MetadataCategory> remaining;
    for (const auto& item : after) remaining.insert(item.category);
    // What exiftool leaves is not verified by this program, so the result says so.
    CleaningResult result = buildCleaningResult(source, destination, profile, std::move(removed), std::move(after), false);
    // Listed in the order the categories are declared.
    result.remainingMetadataClasses.assign(remaining.begin(), remaining.end());
    result.warnings = std::move(warnings);
    result.duration = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    guard.commit();
    return result;
}

}  // namespace tavrin
