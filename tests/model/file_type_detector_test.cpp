#include <gtest/gtest.h>

#include <optional>
#include <variant>

#include "model/file_type_detector.h"
#include "model/pipeline_error.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

using namespace std::string_literals;

using E = FileTypeDetectionError::Case;
using Expected = std::variant<FileType, E>;

struct Case {
    const char* name;
    std::string bytes;
    Expected expected;
};

std::string b(std::initializer_list<int> bytes) {
    std::string s;
    for (int c : bytes) s += static_cast<char>(c);
    return s;
}

const std::string kOLE = b({0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1});

TEST(FileTypeDetector, decidesByExtensionThenMagicBytes) {
    const std::vector<Case> cases = {
        // The extension decides without reading content.
        {"a.jpg", "plain text", FileType::jpeg},
        {"a.PDF", "", FileType::pdf},
        {"a.docx", "PK\3\4 not really office", FileType::docx},
        {"a.xlsx", "short", FileType::xlsx},
        {"a.m4v", "x", FileType::mp4},
        {"a.jfif", "x", FileType::jpeg},  // related extension, no content test
        // Encrypted OOXML is an OLE container under an OOXML name.
        {"a.docx", kOLE, E::encryptedOfficeDocument},
        {"a.doc", kOLE, FileType::doc},
        // Magic bytes when the extension tells nothing.
        {"a.bin", b({0x89}) + "PNG\r\n\x1a\n", FileType::png},
        {"a.bin", b({0x89}) + "PN", E::fileTooSmall},
        {"a.bin", "", E::emptyFile},
        {"noext", "%PDF-1.7", FileType::pdf},
        {"a.bin", "BMxx", FileType::bmp},
        {"a.bin", b({'I', 'I', 0x2A, 0}), FileType::tiff},
        {"a.bin", b({'M', 'M', 0, 0x2A}), FileType::tiff},
        {"a.bin", b({0xFF, 0xD8, 0xFF, 0xE1}), FileType::jpeg},
        {"a.bin", b({0xFF, 0xD8, 0, 0}), E::unknownFormat},
        {"noext", b({0xFF, 0xFB}), E::fileTooSmall},
        {"noext", b({0xFF, 0xFB, 0x90, 0}), FileType::mp3},
        {"a.bin", "ID3\4", FileType::mp3},
        {"a.bin", "RIFF\0\0\0\0WEBPVP8 "s, FileType::webp},
        {"a.bin", "RIFF\0\0\0\0WAVEfmt "s, FileType::wav},
        {"a.bin", "RIFF\0\0\0\0AVI LIST"s, FileType::avi},
        {"a.bin", "RIFF\0\0\0\0WA"s, E::unknownFormat},
        {"a.bin", b({0, 0, 0, 0x18}) + "ftypheic", FileType::heic},
        {"a.bin", b({0, 0, 0, 0x18}) + "ftypmif1", FileType::heic},
        {"a.bin", b({0, 0, 0, 0x18}) + "ftypM4A ", FileType::mp4},
        {"a.bin", b({0, 0, 0, 0x18}) + "ftypqt  ", FileType::mov},
        {"a.bin", b({0, 0, 0, 0x18}) + "ftypzzzz", E::unknownFormat},
        {"a.bin", "FORM\0\0\0\0AIFF"s, FileType::aiff},
        {"a.bin", "FORM\0\0\0\0AIFC"s, E::unknownFormat},
        {"a.bin", "fLaC", FileType::flac},
        {"a.bin", "PK\3\4", E::unknownFormat},  // a plain ZIP is no Office package
        {"a.bin", kOLE, FileType::doc},
        {"a.bin", "GIF89a", FileType::gif},
        {"a.bin", "hello world", E::unknownFormat},
    };
    testing::TempDir dir;
    int index = 0;
    for (const auto& c : cases) {
        const auto sub = dir.path() / std::to_string(index++);
        std::filesystem::create_directory(sub);
        const auto path = sub / c.name;
        testing::writeFile(path, c.bytes);
        SCOPED_TRACE(std::string(c.name) + " #" + std::to_string(index - 1));
        if (auto* type = std::get_if<FileType>(&c.expected)) {
            EXPECT_EQ(FileTypeDetector::detect(path), *type);
        } else {
            try {
                FileTypeDetector::detect(path);
                ADD_FAILURE() << "expected a detection failure";
            } catch (const FileTypeDetectionError& e) {
                EXPECT_EQ(e.errorCase(), std::get<E>(c.expected));
            }
        }
    }
}

TEST(FileTypeDetector, errorTextsNameTheFile) {
    EXPECT_EQ(FileTypeDetectionError(E::unknownFormat, "/x/y/a.bin").description(), "Unknown file format: a.bin");
    EXPECT_EQ(FileTypeDetectionError(E::fileTooSmall, "/x/a").description(),
              "File is too small to determine type: a");
}

TEST(FileTypeDetector, unopenableFileIsAFileSystemError) {
    testing::TempDir dir;
    EXPECT_THROW(FileTypeDetector::detect(dir / "missing.bin"), FileSystemError);
    EXPECT_FALSE(FileTypeDetector::isOLECompoundDocument(dir / "missing.docx"));
}

TEST(FileType, extensionAndIdentifierLookups) {
    EXPECT_EQ(fileTypeFromExtension("TIF"), FileType::tiff);
    EXPECT_EQ(fileTypeFromExtension("aif"), FileType::aiff);
    EXPECT_FALSE(fileTypeFromExtension("txt"));
    EXPECT_EQ(fileTypeFromUTType("public.image"), FileType::jpeg);  // a general identifier gives the first image
    EXPECT_EQ(fileTypeFromUTType("public.audio"), FileType::mp3);
    EXPECT_EQ(fileTypeFromUTType("org.xiph.flac"), FileType::flac);
    for (auto t : fileTypes::allCases()) EXPECT_EQ(fileTypeFromRawValue(rawValue(t)), t);
}

TEST(FormatCapabilities, strictGateFollowsSupportLevel) {
    const auto mov = FormatCapabilities::capabilities(FileType::mov);
    EXPECT_TRUE(mov.canWriteNatively);
    EXPECT_FALSE(mov.allowsStrictVerifiedCleaning());
    EXPECT_EQ(mov.unverifiedCategories, mov.typicalCategories);
    const auto webp = FormatCapabilities::capabilities(FileType::webp);
    EXPECT_TRUE(webp.allowsStrictVerifiedCleaning());
    EXPECT_FALSE(webp.typicalCategories.count(MetadataCategory::authorIdentity));
    EXPECT_TRUE(webp.unverifiedCategories.empty());
    EXPECT_EQ(FormatCapabilities::capabilities(FileType::doc).supportLevel, FormatSupportLevel::unsupported);
    EXPECT_EQ(FormatCapabilities::capabilities(FileType::raw).preferredSource, MetadataSource::exifTool);
    int verified = 0;
    for (auto t : fileTypes::allCases()) {
        EXPECT_TRUE(FormatCapabilities::capabilities(t).exifToolSupported);
        verified += FormatCapabilities::capabilities(t).allowsStrictVerifiedCleaning();
    }
    EXPECT_EQ(verified, 11);
}

}  // namespace
}  // namespace tavrin
