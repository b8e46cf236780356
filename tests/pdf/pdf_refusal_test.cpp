// What cleaning refuses, with which reason, and what it now cleans that it used to refuse: forms,
// files with only an owner password, files qpdf repairs. Every output passes qpdf --check.

#include <gtest/gtest.h>

#include <unistd.h>

#include "model/pipeline_error.h"
#include "pdf/pdf_metadata_reader.h"
#include "pdf/pdf_metadata_writer.h"
#include "pdf/pdf_password_processor.h"
#include "pdf/pdf_xmp.h"
#include "pdf_fixtures.h"

namespace tavrin {
namespace {

using testing::TempDir;
using testing::decompressed;
using testing::onePage;
using testing::write;

const MetadataItem* find(const MetadataTree& tree, const std::string& id) {
    static std::vector<MetadataItem> items;
    items = tree.allItems();
    for (const auto& item : items)
        if (item.id == id) return &item;
    return nullptr;
}

std::string deepInfoPDF() {
    std::string deep(600, '[');
    deep += std::string(600, ']');
    testing::RawPDFBuilder b;
    b.object(1, "<< /Type /Catalog /Pages 2 0 R >>")
        .object(2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>")
        .object(3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 100 100] >>")
        .object(4, "<< /Author (Deep Author Name) /Extra " + deep + " /Producer 5 0 R /Title <4465657020546974>"
                   " /Subject (after \\) paren) >>")
        .object(5, "(Referenced Producer)");
    return b.endRevision("/Root 1 0 R /Info 4 0 R").bytes();
}

std::string pageTreeLoopPDF() {
    testing::RawPDFBuilder b;
    b.object(1, "<< /Type /Catalog /Pages 2 0 R >>")
        .object(2, "<< /Type /Pages /Kids [3 0 R 4 0 R] /Count 2 >>")
        .object(3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 100 100] >>")
        .object(4, "<< /Type /Pages /Parent 2 0 R /Kids [2 0 R] /Count 1 >>");
    return b.endRevision("/Root 1 0 R").bytes();
}

std::string undecodableStreamPDF() {
    testing::RawPDFBuilder b;
    b.object(1, "<< /Type /Catalog /Pages 2 0 R >>")
        .object(2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>")
        .object(3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 100 100] /Contents 4 0 R >>")
        .stream(4, "/Filter /FlateDecode", "this is no deflate data at all, not even close");
    return b.endRevision("/Root 1 0 R").bytes();
}

std::string annotatedPDF() {
    return onePage("", "/Annots [4 0 R 5 0 R]",
                   {{4, "<< /Type /Annot /Subtype /Text /Rect [0 0 10 10] /T (Annotator Bob) /NM (uuid-note-7f3a91) "
                        "/M (D:20230405060708Z) /CreationDate (D:20220101000000Z) /Contents (Secret remark text) "
                        "/Popup 6 0 R >>"},
                    {5, "<< /Type /Annot /Subtype /Link /Rect [0 20 10 30] /T (Linker Carol) /NM (uuid-link-c0ffee) "
                        "/M (D:20230405060708Z) /A << /S /URI /URI (https://example.org/) >> >>"},
                    {6, "<< /Type /Annot /Subtype /Popup /Rect [0 0 50 50] /Parent 4 0 R "
                        "/Contents (Popup echo remark) /T (Annotator Bob) >>"}});
}

// The text a refusal shows: the pipeline error's, with its reason.
std::string refusalText(const std::function<void()>& body) {
    try {
        body();
    } catch (const std::exception& e) {
        return e.what();
    }
    return "";
}

TEST(PDFCleaning, refusesWithTheObjectAndWhatWasFoundAndWritesNothing) {
    const std::pair<const char*, std::string> launch = {
        "launch open action", onePage("/OpenAction << /S /Launch /F (calc.exe) >>")};
    const struct Case {
        const char* name;
        std::string bytes;
        const char* reason;
    } cases[] = {
        {launch.first, launch.second, "(object 1 0: program launch action (Document open action))"},
        {"launch link", onePage("", "/Annots [4 0 R]", {{4, "<< /Type /Annot /Subtype /Link /Rect [0 0 9 9] "
                                                             "/A << /S /Launch /F (run.sh) >> >>"}}),
         "(object 4 0: program launch action (Annotation action on page 1))"},
        {"script link", onePage("", "/Annots [4 0 R]", {{4, "<< /Type /Annot /Subtype /Link /Rect [0 0 9 9] "
                                                             "/A 5 0 R >>"}, {5, "<< /S /JavaScript /JS (x) >>"}}),
         "(object 5 0: JavaScript action (Annotation action on page 1))"},
        {"script chained after a link", onePage("", "/Annots [4 0 R]",
                                                {{4, "<< /Type /Annot /Subtype /Link /Rect [0 0 9 9] /A << /S /URI "
                                                     "/URI (https://a.example/) /Next << /S /JavaScript /JS (x) >> >> >>"}}),
         "(object 4 0: JavaScript action (Annotation action on page 1))"},
        {"form field keystroke script",
         onePage("/AcroForm << /Fields [4 0 R] >>", "/Annots [4 0 R]",
                 {{4, "<< /Type /Annot /Subtype /Widget /FT /Tx /T (f) /Rect [0 0 9 9] "
                      "/AA << /K << /S /JavaScript /JS (AFNumber_Keystroke\\(2\\)) >> >> >>"}}),
         "(object 4 0: JavaScript action (Annotation action on page 1))"},
        {"launch on a parent field", onePage("/AcroForm << /Fields [4 0 R] >>", "",
                                             {{4, "<< /T (parent) /Kids [] /AA << /C << /S /Launch /F (x) >> >> >>"}}),
         "(object 4 0: program launch action (Form field action))"},
        {"page open script", onePage("", "/AA << /O << /S /JavaScript /JS (x) >> >>"),
         "(object 3 0: JavaScript action (Page actions on page 1))"},
        {"page tree loop", pageTreeLoopPDF(), "(object 2 0: page tree loop)"},
        {"undecodable stream", undecodableStreamPDF(), "(object 4 0: stream data cannot be decoded)"},
    };
    for (const auto& c : cases) {
        TempDir dir;
        const auto in = write(dir, "in.pdf", c.bytes);
        const std::string text = refusalText(
            [&] { PDFMetadataWriter().cleanMetadata(in, dir / "out.pdf", CleaningProfile::maximumPrivacy()); });
        EXPECT_NE(text.find(c.reason), std::string::npos) << c.name << ": " << text;
        EXPECT_EQ(text.find("Cannot write cleaned PDF document"), std::string::npos) << c.name;
        EXPECT_FALSE(std::filesystem::exists(dir / "out.pdf")) << c.name;
    }
}

TEST(PDFCleaning, inspectionSaysWhatCleaningWillRefuse) {
    TempDir dir;
    const auto tree = PDFMetadataReader().readMetadata(
        write(dir, "a.pdf", onePage("/OpenAction << /S /Launch /F (calc.exe) >> /Names << /JavaScript << >> >>")));
    const auto* launch = find(tree, "PDF.LaunchAction");
    ASSERT_TRUE(launch);
    EXPECT_EQ(launch->value.asString(), "Document open action; cleaning refuses a document that starts programs");
    const auto* script = find(tree, "PDF.JavaScript");
    ASSERT_TRUE(script);
    EXPECT_EQ(script->value.asString(), "JavaScript name tree; cleaning refuses a document that carries scripts");
}

TEST(PDFCleaning, refusesWhatIsNoRegularFileOrTooLargeBeforeReadingIt) {
    TempDir dir;
    std::filesystem::create_symlink("/dev/zero", dir / "zero.pdf");
    const auto big = dir / "big.pdf";
    testing::writeFile(big, "%PDF-1.7\n");
    std::filesystem::resize_file(big, PDFDocument::maximumFileSize + 1);  // sparse: costs no disk
    for (const auto& [path, reason] : {std::pair{dir / "zero.pdf", "not a regular file"},
                                       std::pair{big, "larger than the 1 GiB"}}) {
        const std::string read = refusalText([&] { PDFMetadataReader().readMetadata(path); });
        EXPECT_NE(read.find(reason), std::string::npos) << read;
        const std::string clean = refusalText(
            [&] { PDFMetadataWriter().cleanMetadata(path, dir / "out.pdf", CleaningProfile::maximumPrivacy()); });
        EXPECT_NE(clean.find(reason), std::string::npos) << clean;
        const std::string password =
            refusalText([&] { PDFPasswordProcessor().addPassword(path, dir / "out.pdf", {}, {"x", std::nullopt}); });
        EXPECT_NE(password.find(reason), std::string::npos) << password;
        EXPECT_FALSE(std::filesystem::exists(dir / "out.pdf"));
    }
}

TEST(PDFCleaning, cleansWhatItUsedToRefuse) {
    const std::string good = testing::dirtyPDF();
    std::string xrefNowhere = good;
    xrefNowhere.replace(xrefNowhere.rfind("startxref\n") + 10, 3, "999999");
    const struct Case {
        const char* name;
        std::string bytes;
        const char* warningContext;  // the warning the result must carry
        std::vector<const char*> gone;
    } cases[] = {
        {"form", testing::formPDF(), "PDF AcroForm", {"Form Author Person"}},
        // A widget's /T names its field; taken for an author, it was removed, and the same name
        // in the tooltip, the options or the default value then failed the residue scan.
        {"form field named like its tooltip and options",
         onePage("/AcroForm << /Fields [4 0 R 5 0 R] >>", "/Annots [4 0 R 5 0 R]",
                 {{4, "<< /Type /Annot /Subtype /Widget /FT /Tx /T (Signature) /TU (Signature) /DV (Signature) "
                      "/Rect [0 0 9 9] >>"},
                  {5, "<< /Type /Annot /Subtype /Widget /FT /Ch /T (Country) /Opt [(Country) (Germany)] "
                      "/V (Germany) /Rect [0 10 9 19] >>"}}),
         "PDF AcroForm",
         {}},
        {"repaired", xrefNowhere, "PDF repair", {testing::DirtyValues::author, testing::DirtyValues::annotationText}},
        {"owner password only", testing::ownerRestricted(good, "owner-secret"), "PDF permissions",
         {testing::DirtyValues::author, testing::DirtyValues::xmpCreator, testing::DirtyValues::annotationAuthor}},
        {"annotations", annotatedPDF(), "PDF attributes" /* none: nothing in Info */, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TempDir dir;
        const auto in = write(dir, "in.pdf", c.bytes);
        const auto out = dir / "out.pdf";
        CleaningProfile profile = CleaningProfile::maximumPrivacy();
        profile.pdfLinkPreservation = PDFLinkPreservationOptions::preserveAll();
        const CleaningResult result = PDFMetadataWriter().cleanMetadata(in, out, profile);
        EXPECT_TRUE(result.verifiedClean);
        bool warned = false;
        for (const auto& w : result.warnings) warned |= w.context == c.warningContext;
        EXPECT_TRUE(warned || std::string(c.name) == "annotations");
        EXPECT_EQ(testing::qpdfCheckProblems(out), "");
        const std::string qdf = decompressed(out);
        for (const char* value : c.gone) EXPECT_EQ(qdf.find(value), std::string::npos) << value;
    }
}

TEST(PDFCleaning, keepsAFormWorkingAndItsValues) {
    TempDir dir;
    const auto out = dir / "out.pdf";
    PDFMetadataWriter().cleanMetadata(write(dir, "in.pdf", testing::formPDF()), out, CleaningProfile::maximumPrivacy());
    const std::string qdf = decompressed(out);
    for (const char* kept : {"/T (ApplicantName)", "/V (Jane Filled Value)", "/DA (/Helv 12 Tf 0 g)", "/FT /Tx"})
        EXPECT_NE(qdf.find(kept), std::string::npos) << kept;
    EXPECT_EQ(qdf.find("20230405"), std::string::npos);
}

TEST(PDFCleaning, leavesNoValueOfAnAnnotationBehind) {
    for (const bool keepLinks : {true, false}) {
        SCOPED_TRACE(keepLinks ? "links kept" : "links removed");
        TempDir dir;
        const auto out = dir / "out.pdf";
        CleaningProfile profile = CleaningProfile::maximumPrivacy();
        profile.pdfLinkPreservation = keepLinks ? PDFLinkPreservationOptions::preserveAll()
                                                : PDFLinkPreservationOptions{false, false};
        PDFMetadataWriter().cleanMetadata(write(dir, "in.pdf", annotatedPDF()), out, profile);
        const std::string qdf = decompressed(out);
        for (const char* value : {"Annotator Bob", "uuid-note-7f3a91", "Secret remark", "Popup echo", "Linker Carol",
                                  "uuid-link-c0ffee", "20230405", "20220101"})
            EXPECT_EQ(qdf.find(value), std::string::npos) << value;
        EXPECT_EQ(qdf.find("https://example.org/") != std::string::npos, keepLinks);
    }
}

TEST(PDFCleaning, keepsTheOwnersPermissionsUnderANewOwnerPassword) {
    TempDir dir;
    const auto in = write(dir, "in.pdf", testing::ownerRestricted(testing::dirtyPDF(), "owner-secret"));
    const auto out = dir / "out.pdf";
    PDFMetadataWriter().cleanMetadata(in, out, CleaningProfile::maximumPrivacy());
    auto source = PDFDocument::open(in);
    auto cleaned = PDFDocument::open(out);
    ASSERT_TRUE(source && cleaned);
    int revision = 0;
    int permissions = 0;
    EXPECT_TRUE(cleaned->qpdf().isEncrypted(revision, permissions));
    EXPECT_EQ(revision, 6);  // AES-256
    EXPECT_EQ(PDFPermissions::of(cleaned->qpdf()), PDFPermissions::of(source->qpdf()));
    EXPECT_FALSE(cleaned->qpdf().allowExtractAll());
    // The old owner password is no password of the copy.
    EXPECT_FALSE(PDFDocument::open(out, "owner-secret"));
}

TEST(PDFXMP, readsElementsAttributesAndListsWithinBounds) {
    const std::string packet =
        "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"><rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">"
        "<rdf:Description xmlns:d=\"http://purl.org/dc/elements/1.1/\" xmlns:xmp=\"http://ns.adobe.com/xap/1.0/\" "
        "xmp:CreatorTool=\"Attr Tool\"><d:creator><rdf:Seq><rdf:li>One</rdf:li><rdf:li>Two</rdf:li></rdf:Seq>"
        "</d:creator><xmp:ModifyDate>2020-01-01</xmp:ModifyDate></rdf:Description></rdf:RDF></x:xmpmeta>";
    const std::span<const std::uint8_t> bytes(reinterpret_cast<const std::uint8_t*>(packet.data()), packet.size());
    const auto properties = PDFXMP::properties(bytes);
    ASSERT_TRUE(properties);
    // The packet's own prefix "d" is shown as the conventional "dc".
    EXPECT_EQ(*properties, (std::vector<PDFXMP::Property>{
                               {"xmp:CreatorTool", "Attr Tool"}, {"dc:creator", "One, Two"}, {"xmp:ModifyDate", "2020-01-01"}}));
    const auto items = PDFXMP::items(*properties);
    EXPECT_EQ(items[2].category, MetadataCategory::timestamps);
    const std::string notXML = "<x:xmpmeta";
    EXPECT_FALSE(PDFXMP::properties({reinterpret_cast<const std::uint8_t*>(notXML.data()), notXML.size()}));
    const std::string entity = "<!DOCTYPE a [<!ENTITY e SYSTEM \"file:///etc/passwd\">]><a xmlns=\"urn:x\">&e;</a>";
    const auto external = PDFXMP::properties({reinterpret_cast<const std::uint8_t*>(entity.data()), entity.size()});
    ASSERT_TRUE(external);
    for (const auto& p : *external) EXPECT_EQ(p.value.find("root:"), std::string::npos);
    // Entities that multiply themselves are never expanded, in text or in attributes.
    std::string laughs = "<!DOCTYPE r [<!ENTITY a \"ha\">";
    for (char e = 'b'; e <= 'k'; ++e) {
        std::string refs;
        for (int i = 0; i < 10; ++i) refs += std::string("&") + char(e - 1) + ";";
        laughs += std::string("<!ENTITY ") + e + " \"" + refs + "\">";
    }
    laughs += "]><r xmlns=\"urn:x\" xmlns:p=\"urn:p\" p:v=\"&k;\"><p:t>&k;</p:t></r>";
    const auto bombed = PDFXMP::properties({reinterpret_cast<const std::uint8_t*>(laughs.data()), laughs.size()});
    for (const auto& p : bombed.value_or(std::vector<PDFXMP::Property>{}))
        EXPECT_LE(p.value.size(), PDFXMP::maximumValueLength);
}

TEST(PDFInspection, reportsTheInfoEntriesThatParseAndTheCatalogXMP) {
    TempDir dir;
    const auto deep = PDFMetadataReader().readMetadata(write(dir, "deep.pdf", deepInfoPDF()));
    ASSERT_TRUE(find(deep, "PDF.Author"));
    EXPECT_EQ(find(deep, "PDF.Author")->value.asString(), "Deep Author Name");
    ASSERT_TRUE(find(deep, "PDF.Title"));
    EXPECT_EQ(find(deep, "PDF.Title")->value.asString(), "Deep Tit");
    ASSERT_TRUE(find(deep, "PDF.Subject"));
    EXPECT_EQ(find(deep, "PDF.Subject")->value.asString(), "after ) paren");
    EXPECT_FALSE(find(deep, "PDF.Producer"));  // an indirect value is not followed in the bytes

    const auto dirty = PDFMetadataReader().readMetadata(write(dir, "dirty.pdf", testing::dirtyPDF()));
    const auto* creator = find(dirty, "PDF.XMP.dc:creator");
    ASSERT_TRUE(creator);
    EXPECT_EQ(creator->value.asString(), testing::DirtyValues::xmpCreator);
    EXPECT_EQ(creator->category, MetadataCategory::authorIdentity);
    const auto* tool = find(dirty, "PDF.XMP.xmp:CreatorTool");
    ASSERT_TRUE(tool);
    EXPECT_EQ(tool->category, MetadataCategory::softwareInfo);
}

}  // namespace
}  // namespace tavrin
