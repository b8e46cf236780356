#pragma once
// The formats Tavrin knows, and the one table of what it may do with each.

#include <array>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "model/metadata_category.h"

namespace tavrin {


enum class FileType {
    jpeg, png, tiff, heic, webp, gif, bmp, raw,
    pdf,
    docx, xlsx, pptx,
    doc, xls, ppt,
    mov, mp4, avi,
    mp3, m4a, wav, aiff, flac,
};

enum class FileTypeCategory { image, document, officeDocument, legacyOfficeDocument, video, audio };

enum class FormatSupportLevel { verifiedCleanable, cleanable, inspectOnly, unsupported };

namespace fileTypes {
// Every type in declared order.
const std::array<FileType, 23>& allCases();
}  // namespace fileTypes

std::string_view rawValue(FileType type);
std::optional<FileType> fileTypeFromRawValue(std::string_view raw);
FileTypeCategory category(FileType type);
std::string_view displayName(FileType type);
const std::vector<std::string_view>& fileExtensions(FileType type);
// The type identifier of the type ("public.jpeg", …).
std::string_view utType(FileType type);

// First type, in declared order, that lists the lower-cased extension.
std::optional<FileType> fileTypeFromExtension(std::string_view extension);
// First type whose identifier conforms to the given one; a general identifier such as
// "public.image" answers the first type of that family.
std::optional<FileType> fileTypeFromUTType(std::string_view identifier);
// Extensions beyond the table that name a known type ("jpe", "jfif", …).
std::optional<FileType> relatedFileTypeForExtension(std::string_view extension);

std::string_view rawValue(FileTypeCategory category);
std::string_view displayName(FileTypeCategory category);
std::string_view rawValue(FormatSupportLevel level);
std::string_view displayName(FormatSupportLevel level);

// The largest source opened for a type, and why in words. Readers that hold a file whole in
// memory get a ceiling no photo or document nears, so a sparse giant or an endless device is
// refused before a byte of it is read.
struct SourceSizeLimit {
    std::uint64_t bytes;
    std::string_view reason;
};
SourceSizeLimit sourceSizeLimit(FileType type);

struct FormatCapabilities {
    FileType fileType;
    bool canReadNatively;
    bool canWriteNatively;
    bool exifToolSupported;
    MetadataSource preferredSource;
    std::set<MetadataCategory> typicalCategories;
    FormatSupportLevel supportLevel;
    std::set<MetadataCategory> unverifiedCategories;

    bool allowsStrictVerifiedCleaning() const { return supportLevel == FormatSupportLevel::verifiedCleanable; }

    static FormatCapabilities capabilities(FileType type);
};

}  // namespace tavrin
