#pragma once
// Files for the exiftool tests, made here byte by byte, and stand-ins for the tool itself.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tavrin::testing {

// A 1×1 grey baseline JPEG carrying Exif (Make "Canon", Model "EOS Test", Artist "Jane Roe",
// GPS latitude 12° 30' N), an XMP packet (dc:creator "Jane Roe", xmp:CreatorTool
// "Tavrin Test Suite") and a comment segment "shot on the roof".
std::vector<std::uint8_t> jpegWithMetadata();

// A legacy Word file: a compound file whose summary information names the title
// "Quarterly plan", the author "Jane Roe", the last author "John Doe" and the application
// "Microsoft Office Word".
std::vector<std::uint8_t> legacyWordDocument();

// The installed exiftool, or absent.
std::optional<std::filesystem::path> installedExifTool();

// Writes an executable /bin/sh script with `body` after the "#!/bin/sh" line.
std::filesystem::path writeStubTool(const std::filesystem::path& path, std::string_view body);

}  // namespace tavrin::testing

// In a test: skips it, saying why, when exiftool is not installed.
#define TAVRIN_REQUIRE_EXIFTOOL(variable)                                                              \
    const auto variable##Found = ::tavrin::testing::installedExifTool();                               \
    if (!variable##Found) GTEST_SKIP() << "exiftool is not installed (Debian: libimage-exiftool-perl)"; \
    const std::string variable = variable##Found->string()
