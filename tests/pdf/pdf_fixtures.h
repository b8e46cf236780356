#pragma once
// PDFs written in raw syntax for the tests: a builder that keeps cross-reference offsets right
// across incremental updates, and a dirty document that carries every kind of metadata the
// cleaner must find.

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <map>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace tavrin::testing {

// Writes `bytes` to `name` in `dir` and returns its path.
inline std::filesystem::path write(const TempDir& dir, const std::string& name, const std::string& bytes) {
    writeFile(dir / name, bytes);
    return dir / name;
}

// The case of the `Error` that `body` throws, or nothing.
template <class Error>
std::optional<typename Error::Case> failureOf(const std::function<void()>& body) {
    try {
        body();
    } catch (const Error& e) {
        return e.errorCase();
    }
    return std::nullopt;
}

// The text of every page, as poppler's pdftotext extracts it.
inline std::string pageText(const std::filesystem::path& pdf, const std::string& password = "") {
    std::string text;
    const std::string option = password.empty() ? "" : " -upw " + shellQuote(password);
    EXPECT_EQ(runCommand("pdftotext -q" + option + " " + shellQuote(pdf.string()) + " -", &text), 0);
    return text;
}

// Every object of the file decrypted and uncompressed, as qpdf's QDF form shows it, old revisions included.
inline std::string decompressed(const std::filesystem::path& pdf, const std::string& password = "") {
    const auto qdf = pdf.parent_path() / (pdf.stem().string() + ".qdf");
    EXPECT_EQ(runCommand("qpdf --password=" + shellQuote(password) + " --decrypt --qdf --object-streams=disable " +
                         shellQuote(pdf.string()) + " " + shellQuote(qdf.string())),
              0);
    return readFile(qdf);
}

class RawPDFBuilder {
public:
    // Sets object `number` in the current revision; `body` is what stands between "obj" and
    // "endobj".
    RawPDFBuilder& object(int number, std::string body);
    // A stream object with the given extra dictionary entries and data.
    RawPDFBuilder& stream(int number, const std::string& dictionaryEntries, const std::string& data);
    // Closes the current revision with a trailer holding `trailerEntries` ("/Root 1 0 R …").
    RawPDFBuilder& endRevision(const std::string& trailerEntries);
    std::string bytes() const { return out_; }
    // Where object `number` of the open revision starts.
    std::size_t offset(int number) const { return pending_.at(number); }

private:
    std::string out_ = "%PDF-1.7\n%\xE2\xE3\xCF\xD3\n";
    std::map<int, std::size_t> pending_;  // object number → offset, in the open revision
    int size_ = 1;
    std::size_t lastXref_ = 0;
    bool hasXref_ = false;
};

// Values planted in the dirty document, so tests can look for them after a clean.
struct DirtyValues {
    static constexpr const char* firstTitle = "Quarterly Secrets Draft";
    static constexpr const char* firstAuthor = "Original Author Name";
    static constexpr const char* firstProducer = "OldProducer 1.0";
    static constexpr const char* title = "Quarterly Report";
    static constexpr const char* author = "Jane Updated Doe";
    static constexpr const char* creator = "WriterApp Deluxe";
    static constexpr const char* producer = "NewProducer 2.0";
    static constexpr const char* keyword = "confidential";
    static constexpr const char* xmpCreator = "Xmp Creator Person";
    static constexpr const char* xmpTool = "XmpToolkit Secret";
    static constexpr const char* annotationAuthor = "Reviewer Alice";
    static constexpr const char* annotationText = "Please fix this paragraph";
    static constexpr const char* pageText = "Hello from the fixture";
    static constexpr const char* externalURL = "https://example.com/report";
};

struct DirtyOptions {
    bool script = false;        // a JavaScript open action
    bool attachment = false;    // an embedded file in the name tree
    bool acroForm = false;
    bool outlineCycle = false;  // the outline's last item links back to the first
};

// A two-page document: Info in two revisions (the first with other values), an XMP stream, an
// outline of three items, one external and one internal link, and a text note with an author,
// contents and a date.
std::string dirtyPDF(const DirtyOptions& options = {});

// The same document re-saved by qpdf with object streams (and a cross-reference stream).
std::string withObjectStreams(const std::string& pdf);
// The same document encrypted with AES-256.
std::string encryptedAES256(const std::string& pdf, const std::string& userPassword, const std::string& ownerPassword);
// A one-page document whose catalog and page carry the given extra entries, with extra objects.
std::string onePage(const std::string& catalogEntries, const std::string& pageEntries = "",
                    const std::vector<std::pair<int, std::string>>& extra = {});
// The same document with only an owner password: it opens without one, but printing is limited to
// low resolution and copying and changing are off.
std::string ownerRestricted(const std::string& pdf, const std::string& ownerPassword);
// A one-page form: a text field whose widget carries a name, a value, a default appearance and
// an appearance stream.
std::string formPDF();
// The whole file, qpdf --check's verdict: empty when it finds no error or warning, else its output.
std::string qpdfCheckProblems(const std::filesystem::path& pdf);
// A one-page document whose page shows a JPEG carrying an APP1 segment and a comment.
std::string pdfWithJPEG();
// A tiny baseline JPEG with APP0, APP1 ("Exif … GPS secret"), COM and trailing bytes.
std::string jpegWithMetadata();

}  // namespace tavrin::testing
