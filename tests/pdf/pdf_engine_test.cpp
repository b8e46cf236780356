#include <gtest/gtest.h>

#include <cstdlib>

#include "model/pipeline_error.h"
#include "pipeline/tavrin_engine.h"
#include "pdf/pdf_errors.h"
#include "pdf_fixtures.h"

namespace tavrin {
namespace {

using testing::DirtyValues;
using testing::TempDir;
using testing::write;

// A hybrid-reference file: the classic table and the cross-reference stream it points to (via
// /XRefStm) name different Info objects, so old and new readers would see different authors.
std::string hybridPDF() {
    testing::RawPDFBuilder b;
    b.object(1, "<< /Type /Catalog /Pages 2 0 R >>")
        .object(2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>")
        .object(3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 200] /Contents 4 0 R "
                   "/Resources << /Font << /F1 5 0 R >> >> >>")
        .stream(4, "", "BT /F1 12 Tf 20 100 Td (Hybrid page) Tj ET")
        .object(5, "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>")
        .object(6, "<< /Author (Classic Author Value) >>")
        .object(7, "<< /Author (Stream Author Value) >>");
    // The stream's single entry: object 6 lives where object 7's bytes are.
    std::string entry = {'\x01'};
    for (int shift = 24; shift >= 0; shift -= 8) entry += static_cast<char>((b.offset(7) >> shift) & 0xFF);
    b.stream(8, "/Type /XRef /Size 9 /W [1 4 2] /Index [6 1]", entry + std::string(2, '\0'));
    return b.endRevision("/Root 1 0 R /Info 6 0 R /XRefStm " + std::to_string(b.offset(8))).bytes();
}

TEST(PDFThroughTheEngine, inspectsCleansAndVerifiesAHybridReferenceFile) {
    TempDir dir;
    TavrinEngine engine;
    const auto in = write(dir, "hybrid.pdf", hybridPDF());
    bool sawAuthor = false;
    for (const auto& item : engine.inspect(in).allItems()) sawAuthor |= item.id == "PDF.Author";
    EXPECT_TRUE(sawAuthor);
    const auto result = engine.cleanToFile(in, CleaningProfile::maximumPrivacy(), dir / "out.pdf");
    EXPECT_TRUE(result.verifiedClean);
    const std::string out = testing::readFile(dir / "out.pdf");
    EXPECT_EQ(out.find("Classic Author"), std::string::npos);
    EXPECT_EQ(out.find("Stream Author"), std::string::npos);
    EXPECT_EQ(out.find("XRefStm"), std::string::npos);
}

TEST(PDFThroughTheEngine, passwordOperationsPublishOnlyVerifiedFiles) {
    TempDir dir;
    TavrinEngine engine;
    const auto locked = write(dir, "locked.pdf", testing::encryptedAES256(testing::dirtyPDF(), "pw", "owner"));
    EXPECT_TRUE(TavrinEngine::isPDFEncrypted(locked));
    EXPECT_FALSE(TavrinEngine::isPDFEncrypted(write(dir, "zip.pdf", "PK\x03\x04")));
    // Only an owner password: it opens without one, so no password is asked for.
    const auto ownerOnly = write(dir, "owner.pdf", testing::ownerRestricted(testing::dirtyPDF(), "owner"));
    EXPECT_FALSE(TavrinEngine::isPDFEncrypted(ownerOnly));
    EXPECT_TRUE(engine.cleanToFile(ownerOnly, CleaningProfile::maximumPrivacy(), dir / "owner-clean.pdf").verifiedClean);

    EXPECT_THROW(engine.cleanEncryptedPDF(locked, "wrong", CleaningProfile::maximumPrivacy(), {}, dir / "out.pdf"),
                 PDFPasswordError);
    EXPECT_FALSE(std::filesystem::exists(dir / "out.pdf"));

    // A plain clean refuses the encrypted file and says why.
    try {
        engine.cleanToFile(locked, CleaningProfile::maximumPrivacy(), dir / "out.pdf");
        ADD_FAILURE() << "an encrypted file was cleaned without its password";
    } catch (const PipelineError& e) {
        EXPECT_NE(std::string(e.what()).find("password"), std::string::npos) << e.what();
    }
    EXPECT_FALSE(std::filesystem::exists(dir / "out.pdf"));

    const auto result = engine.removePasswordFromPDF(locked, "pw", CleaningProfile::maximumPrivacy(), dir / "out.pdf");
    EXPECT_EQ(result.outputURL, dir / "out.pdf");
    EXPECT_FALSE(TavrinEngine::isPDFEncrypted(dir / "out.pdf"));

    // An existing file at the destination is never replaced.
    const std::string before = testing::readFile(dir / "out.pdf");
    EXPECT_THROW(engine.addPasswordToPDF(dir / "out.pdf", CleaningProfile::maximumPrivacy(), {"x", std::nullopt},
                                         dir / "out.pdf"),
                 FileSystemError);
    EXPECT_EQ(testing::readFile(dir / "out.pdf"), before);
}

// A refusal through the engine leaves nothing at the destination and carries its reason, both
// when it is refused before writing and when the written copy fails verification.
TEST(PDFThroughTheEngine, refusalsLeaveNoOutputAndNameTheirReason) {
    const std::tuple<const char*, std::string, const char*> cases[] = {
        {"launch", testing::onePage("/OpenAction << /S /Launch /F (calc.exe) >>"),
         "object 1 0: program launch action (Document open action)"},
        {"attachment annotation",
         testing::onePage("", "/Annots [4 0 R]",
                          {{4, "<< /Type /Annot /Subtype /FileAttachment /Rect [0 0 10 10] /FS (a.txt) >>"}}),
         "FileAttachment annotation carries a file or media"},
        {"embedded file", testing::dirtyPDF({.attachment = true}), "embedded files"},
    };
    for (const auto& [name, bytes, reason] : cases) {
        TempDir dir;
        TavrinEngine engine;
        try {
            engine.cleanToFile(write(dir, "in.pdf", bytes), CleaningProfile::maximumPrivacy(), dir / "out.pdf");
            ADD_FAILURE() << name << " was cleaned";
        } catch (const PipelineError& e) {
            EXPECT_EQ(e.errorCase(), PipelineError::Case::outputVerificationFailed) << name;
            EXPECT_NE(e.reason().find(reason), std::string::npos) << name << ": " << e.reason();
        }
        EXPECT_FALSE(std::filesystem::exists(dir / "out.pdf")) << name;
    }
}

// The command line, when the test run has built it.
TEST(PDFThroughTheCommandLine, takesPasswordsFromStandardInputAndTheEnvironment) {
    const char* bin = std::getenv("TAVRIN_BIN");
    if (!bin || !std::filesystem::exists(bin)) GTEST_SKIP() << "tavrin is not built";
    TempDir dir;
    const std::string tavrin = testing::shellQuote(bin);
    const auto in = write(dir, "report.pdf", testing::dirtyPDF());
    const auto q = [](const std::filesystem::path& p) { return testing::shellQuote(p.string()); };

    ASSERT_EQ(testing::runCommand("printf 'se cret\\n' | " + tavrin + " pdf add-password --user - " + q(in) + " " +
                                  q(dir / "locked.pdf") + " >/dev/null"),
              0);
    std::string output;
    EXPECT_NE(testing::runCommand(tavrin + " clean --output-dir " + q(dir.path()) + " " + q(dir / "locked.pdf") + " 2>&1",
                                  &output),
              0);
    EXPECT_NE(output.find("password protected"), std::string::npos) << output;
    EXPECT_NE(testing::runCommand("TAVRIN_PDF_PASSWORD=wrong " + tavrin + " pdf remove-password " +
                                  q(dir / "locked.pdf") + " " + q(dir / "open.pdf") + " 2>/dev/null"),
              0);
    EXPECT_FALSE(std::filesystem::exists(dir / "open.pdf"));
    EXPECT_EQ(testing::runCommand("TAVRIN_PDF_PASSWORD='se cret' " + tavrin + " pdf remove-password " +
                                  q(dir / "locked.pdf") + " " + q(dir / "open.pdf") + " >/dev/null"),
              0);
    EXPECT_EQ(testing::runCommand(tavrin + " inspect " + q(dir / "open.pdf") + " 2>&1", &output), 0);
    EXPECT_EQ(output.find(DirtyValues::author), std::string::npos) << output;
}

}  // namespace
}  // namespace tavrin
