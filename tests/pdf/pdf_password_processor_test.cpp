#include <gtest/gtest.h>

#include "pdf/pdf_metadata_reader.h"
#include "pdf/pdf_password_processor.h"
#include "pdf_fixtures.h"

namespace tavrin {
namespace {

using testing::DirtyValues;
using testing::TempDir;
using testing::pageText;
using testing::write;

PDFPasswordError::Case failureOf(const std::function<void()>& body) {
    return testing::failureOf<PDFPasswordError>(body).value_or(PDFPasswordError::Case::cannotOpenDocument);
}

PDFPasswordPolicy userPolicy(const std::string& user) { return {user, std::nullopt}; }

TEST(PDFPasswordProcessor, cleansAnEncryptedFileAndProtectsItWithTheNewPassword) {
    TempDir dir;
    const auto in = write(dir, "in.pdf", testing::encryptedAES256(testing::dirtyPDF(), "old-pw", "old-owner"));
    const auto out = dir / "out.pdf";
    const auto result = PDFPasswordProcessor().cleanEncrypted(in, out, "old-pw", CleaningProfile::maximumPrivacy(),
                                                              userPolicy("new-pw"));
    EXPECT_TRUE(result.verifiedClean);
    EXPECT_FALSE(PDFDocument::open(out, ""));
    EXPECT_FALSE(PDFDocument::open(out, "old-pw"));
    auto reopened = PDFDocument::open(out, "new-pw");
    ASSERT_TRUE(reopened);
    EXPECT_TRUE(reopened->isEncrypted());
    EXPECT_TRUE(reopened->documentAttributes().empty());
    EXPECT_EQ(pageText(out, "new-pw"), pageText(in, "old-pw"));

    // Decrypted and uncompressed, no removed value is left.
    const std::string qdf = testing::decompressed(out, "new-pw");
    for (const char* value : {DirtyValues::author, DirtyValues::firstAuthor, DirtyValues::xmpCreator,
                              DirtyValues::annotationAuthor, DirtyValues::annotationText})
        EXPECT_EQ(qdf.find(value), std::string::npos) << value;
}

TEST(PDFPasswordProcessor, removesThePasswordWithAnEmptyPolicy) {
    TempDir dir;
    const auto in = write(dir, "in.pdf", testing::encryptedAES256(testing::dirtyPDF(), "pw", "owner"));
    for (const bool viaRemove : {true, false}) {
        const auto out = dir / (viaRemove ? "removed.pdf" : "cleaned.pdf");
        if (viaRemove) {
            PDFPasswordProcessor().removePassword(in, out, "owner", CleaningProfile::maximumPrivacy());
        } else {
            PDFPasswordProcessor().cleanEncrypted(in, out, "pw", CleaningProfile::maximumPrivacy(), {});
        }
        auto reopened = PDFDocument::open(out);
        ASSERT_TRUE(reopened);
        EXPECT_FALSE(reopened->isEncrypted());
        EXPECT_EQ(pageText(out), pageText(in, "pw"));
        EXPECT_EQ(testing::readFile(out).find(DirtyValues::author), std::string::npos);
    }
}

TEST(PDFPasswordProcessor, addsAnOwnerPasswordWithRestrictedPermissions) {
    TempDir dir;
    const auto in = write(dir, "in.pdf", testing::dirtyPDF());
    const auto out = dir / "out.pdf";
    PDFPasswordProcessor().addPassword(in, out, CleaningProfile::maximumPrivacy(), {std::nullopt, "owner-secret"});
    auto reopened = PDFDocument::open(out);  // no user password: it opens, with restrictions
    ASSERT_TRUE(reopened);
    QPDF& q = reopened->qpdf();
    EXPECT_TRUE(q.isEncrypted());
    EXPECT_TRUE(q.allowPrintHighRes());
    EXPECT_TRUE(q.allowAccessibility());
    EXPECT_FALSE(q.allowExtractAll());
    EXPECT_FALSE(q.allowModifyOther());
    EXPECT_FALSE(q.allowModifyAnnotation());
    EXPECT_TRUE(PDFPasswordProcessor::isEncrypted(out));
    EXPECT_FALSE(PDFPasswordProcessor::isEncrypted(in));
}

TEST(PDFPasswordProcessor, refusesBeforeWritingAnything) {
    TempDir dir;
    const auto plain = write(dir, "plain.pdf", testing::dirtyPDF());
    const auto locked = write(dir, "locked.pdf", testing::encryptedAES256(testing::dirtyPDF(), "pw", "owner"));
    const auto zip = write(dir, "zip.pdf", std::string("PK\x03\x04", 4) + std::string(100, 'x'));
    const auto script = write(dir, "script.pdf", testing::dirtyPDF({.script = true}));
    const auto out = dir / "out.pdf";
    const PDFPasswordProcessor processor;
    const auto& profile = CleaningProfile::maximumPrivacy();
    using E = PDFPasswordError::Case;
    const std::vector<std::tuple<const char*, std::function<void()>, E>> cases = {
        {"wrong password", [&] { processor.cleanEncrypted(locked, out, "nope", profile, {}); }, E::incorrectPassword},
        {"remove from plain", [&] { processor.removePassword(plain, out, "pw", profile); }, E::documentNotEncrypted},
        {"add to encrypted", [&] { processor.addPassword(locked, out, profile, userPolicy("x")); },
         E::documentAlreadyEncrypted},
        {"add nothing", [&] { processor.addPassword(plain, out, profile, {"", ""}); }, E::noPasswordProvided},
        {"not a pdf", [&] { processor.addPassword(zip, out, profile, userPolicy("x")); }, E::cannotOpenDocument},
    };
    for (const auto& [name, run, expected] : cases) {
        EXPECT_EQ(failureOf(run), expected) << name;
        EXPECT_FALSE(std::filesystem::exists(out)) << name;
    }
    // A script cannot be proven gone; what the output folder holds then is its caller's to remove.
    EXPECT_EQ(failureOf([&] { processor.addPassword(script, out, profile, userPolicy("pw")); }), E::verificationFailed);
}

}  // namespace
}  // namespace tavrin
