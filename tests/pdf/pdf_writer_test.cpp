#include <gtest/gtest.h>

#include "model/pipeline_error.h"
#include "pdf/jpeg_metadata_segments.h"
#include "pdf/pdf_metadata_reader.h"
#include "pdf/pdf_metadata_writer.h"
#include "pdf_fixtures.h"

namespace tavrin {
namespace {

using testing::DirtyValues;
using testing::TempDir;
using testing::decompressed;
using testing::pageText;
using testing::write;

PipelineError::Case failureOf(const std::function<void()>& body) {
    return testing::failureOf<PipelineError>(body).value_or(PipelineError::Case::cancelled);
}

TEST(PDFMetadataWriter, roundTripLeavesNoRemovedValueAnywhereAndKeepsTheText) {
    for (const bool objectStreams : {false, true}) {
        TempDir dir;
        std::string source = testing::dirtyPDF();
        if (objectStreams) source = testing::withObjectStreams(source);
        const auto in = write(dir, "in.pdf", source);
        const auto out = dir / "out.pdf";
        const auto before = PDFMetadataReader().readMetadata(in);
        ASSERT_TRUE(before.totalItemCount() >= 10);

        const CleaningResult result = PDFMetadataWriter().cleanMetadata(in, out, CleaningProfile::maximumPrivacy());
        EXPECT_TRUE(result.verifiedClean);
        std::set<std::string> removed;
        for (const auto& item : result.removedItems) removed.insert(item.id);
        for (const char* id : {"PDF.Title", "PDF.Author", "PDF.Creator", "PDF.Producer", "PDF.CreationDate",
                               "PDF.ModDate", "PDF.Keywords", "PDF.Annotation.Author",
                               "PDF.Annotation.ModificationDate", "PDF.Annotation.Contents", "PDF.XMP.dc:creator",
                               "PDF.XMP.xmp:CreatorTool"})
            EXPECT_EQ(removed.count(id), 1u) << id;
        EXPECT_EQ(result.remainingMetadataClasses, std::vector<MetadataCategory>{MetadataCategory::documentHistory});

        // Inspect again: only navigation remains.
        for (const auto& item : PDFMetadataReader().readMetadata(out).allItems())
            EXPECT_EQ(item.category, MetadataCategory::documentHistory) << item.id;

        // The forensic scan from outside, on every object uncompressed, old revisions included.
        const std::string qdf = decompressed(out);
        for (const char* value :
             {DirtyValues::firstTitle, DirtyValues::firstAuthor, DirtyValues::firstProducer, DirtyValues::title,
              DirtyValues::author, DirtyValues::creator, DirtyValues::producer, DirtyValues::keyword,
              DirtyValues::xmpCreator, DirtyValues::xmpTool, DirtyValues::annotationAuthor,
              DirtyValues::annotationText, "PieceInfo private", "0A0B0C0D0E0F1011", "20230405"})
            EXPECT_EQ(qdf.find(value), std::string::npos) << value;
        EXPECT_NE(qdf.find(DirtyValues::pageText), std::string::npos);

        EXPECT_EQ(pageText(in), pageText(out));
        std::string check;
        EXPECT_EQ(testing::runCommand("qpdf --check " + testing::shellQuote(out.string()) + " 2>&1", &check), 0) << check;
        EXPECT_EQ(check.find("WARNING"), std::string::npos) << check;

        // Clean again: nothing left to remove, and the same text.
        const auto again = dir / "again.pdf";
        const CleaningResult second = PDFMetadataWriter().cleanMetadata(out, again, CleaningProfile::maximumPrivacy());
        EXPECT_TRUE(second.removedItems.empty());
        ASSERT_EQ(second.warnings.size(), 1u);
        EXPECT_EQ(second.warnings[0].message, "No matching metadata attributes found to remove");
        EXPECT_EQ(pageText(again), pageText(in));
    }
}

TEST(PDFMetadataWriter, keepsWhatTheProfileKeepsAsTheDocumentsOwnValue) {
    TempDir dir;
    const auto in = write(dir, "in.pdf", testing::dirtyPDF());
    CleaningProfile profile = CleaningProfile::maximumPrivacy();
    profile.specificKeysToKeep = {"PDF.Author"};
    PDFMetadataWriter().cleanMetadata(in, dir / "out.pdf", profile);
    const auto tree = PDFMetadataReader().readMetadata(dir / "out.pdf");
    std::vector<std::string> infoIds;
    for (const auto& item : tree.allItems())
        if (item.category != MetadataCategory::documentHistory) infoIds.push_back(item.id);
    EXPECT_EQ(infoIds, std::vector<std::string>{"PDF.Author"});
    const std::string bytes = testing::readFile(dir / "out.pdf");
    // The last Info object holds the author as UTF-16BE hex, and the first revision's author is gone.
    EXPECT_NE(bytes.find("<< /Author <FEFF004A0061006E0065"), std::string::npos);
    EXPECT_EQ(decompressed(dir / "out.pdf").find(DirtyValues::firstAuthor), std::string::npos);
}

TEST(PDFMetadataWriter, followsLinkPreservation) {
    for (const bool navigation : {true, false}) {
        for (const bool external : {true, false}) {
            SCOPED_TRACE("navigation " + std::to_string(navigation) + ", external " + std::to_string(external));
            TempDir dir;
            CleaningProfile profile = CleaningProfile::locationOnly();
            profile.pdfLinkPreservation = {navigation, external};
            PDFMetadataWriter().cleanMetadata(write(dir, "in.pdf", testing::dirtyPDF()), dir / "out.pdf", profile);
            const auto summary = PDFNavigationInspector::summarize(dir / "out.pdf");
            EXPECT_EQ(summary.outlineItemCount, navigation ? 3 : 0);
            EXPECT_EQ(summary.internalLinkCount, navigation ? 1 : 0);
            EXPECT_EQ(summary.externalLinkCount, external ? 1 : 0);
        }
    }
}

TEST(PDFMetadataWriter, refusesWhatItCannotProveClean) {
    const std::pair<const char*, std::string> cases[] = {
        {"script", testing::dirtyPDF({.script = true})},
        {"attachment", testing::dirtyPDF({.attachment = true})},
        {"attachment annotation",
         testing::onePage("", "/Annots [4 0 R]",
                          {{4, "<< /Type /Annot /Subtype /FileAttachment /Rect [0 0 10 10] /FS (a.txt) >>"}})},
    };
    for (const auto& [name, bytes] : cases) {
        TempDir dir;
        const auto in = write(dir, "in.pdf", bytes);
        // Even a profile that removes nothing cannot pass such a file.
        const CleaningProfile nothing{"Nothing", {}, {}, {}, PDFLinkPreservationOptions::preserveAll()};
        EXPECT_EQ(failureOf([&] { PDFMetadataWriter().cleanMetadata(in, dir / "out.pdf", nothing); }),
                  PipelineError::Case::outputVerificationFailed)
            << name;
    }
}

TEST(PDFMetadataWriter, warnsAboutFormsAndLeavesThemAlone) {
    TempDir dir;
    const auto result = PDFMetadataWriter().cleanMetadata(write(dir, "in.pdf", testing::dirtyPDF({.acroForm = true})),
                                                          dir / "out.pdf", CleaningProfile::maximumPrivacy());
    ASSERT_EQ(result.warnings.size(), 1u);
    EXPECT_EQ(result.warnings[0].context, "PDF AcroForm");
}

TEST(PDFMetadataWriter, stripsPhotoMetadataWithoutTouchingThePixels) {
    TempDir dir;
    const auto in = write(dir, "in.pdf", testing::pdfWithJPEG());
    PDFMetadataWriter().cleanMetadata(in, dir / "out.pdf", CleaningProfile::locationOnly());
    const std::string out = testing::readFile(dir / "out.pdf");
    EXPECT_EQ(out.find("GPS secret"), std::string::npos);
    EXPECT_EQ(out.find("Camera owner"), std::string::npos);
    EXPECT_EQ(out.find("trailing thumbnail"), std::string::npos);
    // The coded image, from the tables to EOI, is carried byte for byte.
    const std::string jpeg = testing::jpegWithMetadata();
    const std::string coded = jpeg.substr(jpeg.find("\xFF\xDB"), jpeg.find("trailing") - jpeg.find("\xFF\xDB"));
    EXPECT_NE(out.find(coded), std::string::npos);
}

TEST(JPEGMetadataSegments, keepsCodedDataAndTheAdobeColourSegment) {
    const std::string jpeg = testing::jpegWithMetadata();
    const std::span<const std::uint8_t> bytes(reinterpret_cast<const std::uint8_t*>(jpeg.data()), jpeg.size());
    EXPECT_TRUE(jpegSegments::mayCarryMetadata(bytes));
    auto ranges = jpegSegments::rangesWithoutMetadata(bytes);
    ASSERT_TRUE(ranges);
    std::string kept;
    for (const auto& r : *ranges) kept += jpeg.substr(r.offset, r.length);
    EXPECT_EQ(kept.substr(0, 4), "\xFF\xD8\xFF\xDB");
    EXPECT_EQ(kept.substr(kept.size() - 2), "\xFF\xD9");
    const std::span<const std::uint8_t> keptBytes(reinterpret_cast<const std::uint8_t*>(kept.data()), kept.size());
    EXPECT_FALSE(jpegSegments::mayCarryMetadata(keptBytes));

    std::string adobe = "\xFF\xD8\xFF\xEE";
    adobe += std::string("\x00\x0E" "Adobe\x00\x64\x00\x00\x00\x00\x02", 14);
    adobe += jpeg.substr(jpeg.find("\xFF\xDB"));
    const std::span<const std::uint8_t> adobeBytes(reinterpret_cast<const std::uint8_t*>(adobe.data()), adobe.size());
    auto adobeRanges = jpegSegments::rangesWithoutMetadata(adobeBytes);
    ASSERT_TRUE(adobeRanges);
    EXPECT_EQ((*adobeRanges)[0], (jpegSegments::ByteRange{0, 2 + 16 + (jpeg.find("trailing") - jpeg.find("\xFF\xDB"))}));

    for (const std::string& bad : {std::string("\xFF\xD8"), std::string("\xFF\xD8\xFF\xE1\x00\x40", 6),
                                  std::string("GIF89a")}) {
        const std::span<const std::uint8_t> b(reinterpret_cast<const std::uint8_t*>(bad.data()), bad.size());
        EXPECT_FALSE(jpegSegments::rangesWithoutMetadata(b));
        EXPECT_TRUE(jpegSegments::mayCarryMetadata(b));
    }
}

TEST(PDFMetadataWriter, refusesSourcesThatNeedAPasswordOrAreNoPDF) {
    TempDir dir;
    const std::string good = testing::dirtyPDF();
    const auto locked = write(dir, "locked.pdf", testing::encryptedAES256(good, "u", "o"));
    const auto notPDF = write(dir, "zip.pdf", std::string("PK\x03\x04", 4) + std::string(200, 'z'));
    for (const auto& path : {locked, notPDF}) {
        EXPECT_EQ(failureOf([&] {
                      PDFMetadataWriter().cleanMetadata(path, dir / "out.pdf", CleaningProfile::maximumPrivacy());
                  }),
                  PipelineError::Case::readFailed)
            << path;
        EXPECT_FALSE(std::filesystem::exists(dir / "out.pdf"));
    }
}

TEST(PDFForensicScan, findsRemovedValuesOfFiveCharactersOrMore) {
    TempDir dir;
    const auto path = write(dir, "a.pdf", "1 0 obj << /A (x Alice y) /B <FEFF0042006F0062> >> endobj");
    EXPECT_FALSE(PDFMetadataWriter::forensicScanConfirmsNoResidue(path, {"Alice"}));
    EXPECT_TRUE(PDFMetadataWriter::forensicScanConfirmsNoResidue(path, {"Bob"}));  // too short to count
    EXPECT_TRUE(PDFMetadataWriter::forensicScanConfirmsNoResidue(path, {"Carol"}));
    EXPECT_FALSE(PDFMetadataWriter::forensicScanConfirmsNoResidue(dir / "missing.pdf", {"Carol"}));
}

}  // namespace
}  // namespace tavrin
