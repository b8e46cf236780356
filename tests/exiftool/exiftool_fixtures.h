#pragma once
// Files for the exiftool tests, made here byte by byte, and stand-ins for the tool itself.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>

#include "support/test_support.h"

namespace tavrin::testing {

// A 1×1 grey JPEG: Exif (Make "HTC", Model "M8", Artist "Jo", GPS latitude reference "N"), XMP
// (dc:creator "Jo", xmp:CreatorTool "Tavrin") and the comment "shot on the roof". Every TIFF
// value fits in its entry, so the Exif block is written as it stands.
inline std::string jpegWithMetadata() {
    auto segment = [](char marker, std::string_view body) {
        const auto size = body.size() + 2;
        return std::string{'\xFF', marker, char(size >> 8), char(size & 0xFF)}.append(body);
    };
    auto entry = [](char tag1, char tag2, char type, char count, std::string_view value) {
        return std::string{tag1, tag2, 0, type, 0, 0, 0, count}.append(value).append(4 - value.size(), '\0');
    };
    using namespace std::literals;
    const std::string exif = "Exif\0\0MM\0*\0\0\0\x08\0\x04"s + entry(1, 0x0F, 2, 4, "HTC\0"sv) +
                             entry(1, 0x10, 2, 3, "M8\0"sv) + entry(1, 0x3B, 2, 3, "Jo\0"sv) +
                             entry('\x88', 0x25, 4, 1, "\0\0\0\x3E"sv) + "\0\0\0\0\0\x01"s +
                             entry(0, 1, 2, 2, "N\0"sv) + "\0\0\0\0"s;
    const std::string xmp =
        "http://ns.adobe.com/xap/1.0/\0<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"><rdf:RDF "
        "xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\"><rdf:Description "
        "xmlns:dc=\"http://purl.org/dc/elements/1.1/\" xmlns:xmp=\"http://ns.adobe.com/xap/1.0/\" "
        "xmp:CreatorTool=\"Tavrin\"><dc:creator><rdf:Seq><rdf:li>Jo</rdf:li></rdf:Seq></dc:creator>"
        "</rdf:Description></rdf:RDF></x:xmpmeta>"s;
    return "\xFF\xD8"s + segment('\xE1', exif) + segment('\xE1', xmp) + segment('\xFE', "shot on the roof") +
           segment('\xC0', "\x08\0\x01\0\x01\x01\x01\x11\0"sv) + segment('\xDA', "\x01\x01\0\0\x3F\0"sv) +
           "\x3F\xFF\xD9";
}

// The first bytes of a compound file, which is all that detection needs to call a .doc legacy Word.
inline const std::string kLegacyWordHeader("\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1", 8);

// What `body` throws as an `Error` of the `expected` case: its text, or a failed test.
template <class Error, class Body>
std::string failureText(Body&& body, typename Error::Case expected) {
    try {
        body();
    } catch (const Error& e) {
        EXPECT_EQ(e.errorCase(), expected) << e.what();
        return e.what();
    }
    ADD_FAILURE() << "no failure";
    return {};
}

// The installed exiftool, or absent.
inline std::optional<std::filesystem::path> installedExifTool() {
    std::string found;
    if (runCommand("command -v exiftool", &found) != 0 || found.empty()) return std::nullopt;
    return std::filesystem::path(found.substr(0, found.find('\n')));
}

// Writes an executable /bin/sh script with `body` after the "#!/bin/sh" line.
inline std::filesystem::path writeStubTool(const std::filesystem::path& path, std::string_view body) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << "#!/bin/sh\n" << body << "\n";
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    return path;
}

}  // namespace tavrin::testing

// In a test: skips it, saying why, when exiftool is not installed.
#define TAVRIN_REQUIRE_EXIFTOOL(variable)                                                              \
    const auto variable##Found = ::tavrin::testing::installedExifTool();                               \
    if (!variable##Found) GTEST_SKIP() << "exiftool is not installed (Debian: libimage-exiftool-perl)"; \
    const std::string variable = variable##Found->string()
