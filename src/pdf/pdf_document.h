#pragma once
// The PDF document as the reader, the writer and the password processor see it: a thin adapter
// over qpdf that opens a file without ever changing it, and offers the Info attributes with
// dates parsed, the pages and their annotations, and the raw catalog. qpdf's exceptions stay
// behind this edge: every operation here either succeeds or reports failure in its result.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>

#include "model/metadata_value.h"

namespace tavrin {

// The document information attributes a reader reports (ISO 32000-1, 14.3.3).
enum class PDFInfoAttribute { title, author, subject, keywords, creator, producer, creationDate, modificationDate };

// "Title", "Author", … : the key in the Info dictionary, without its solidus.
std::string_view pdfAttributeName(PDFInfoAttribute attribute);

// Attribute values: text as `.string`, dates as `.date`, keywords as `.array` of `.string`.
using PDFDocumentAttributes = std::map<PDFInfoAttribute, MetadataValue>;

class PDFDocument {
public:
    enum class OpenStatus { opened, cannotOpen, passwordRequired, notRegularFile, tooLarge };
    // Whether qpdf may rebuild a damaged cross-reference table. Sources may be repaired; a file
    // we wrote ourselves must read without repair.
    enum class Recovery { attempt, refuse };

    // Larger files are refused before qpdf sees them.
    static constexpr std::uint64_t maximumFileSize = std::uint64_t{1} << 30;

    // Opens `path` read-only: the file is opened once, must be a regular file of at most
    // `maximumFileSize` bytes, and qpdf reads that descriptor, never the path. Returns null on
    // failure and says why in `status` (a wrong password is `passwordRequired`).
    static std::unique_ptr<PDFDocument> open(const std::filesystem::path& path, const std::string& password = "",
                                             OpenStatus* status = nullptr, Recovery recovery = Recovery::attempt);

    // The same for bytes in memory, which must outlive the document (for fuzzing and tests).
    static std::unique_ptr<PDFDocument> openMemory(const std::uint8_t* data, std::size_t size,
                                                   const std::string& password = "", OpenStatus* status = nullptr);

    ~PDFDocument();
    PDFDocument(const PDFDocument&) = delete;
    PDFDocument& operator=(const PDFDocument&) = delete;

    QPDF& qpdf() { return *qpdf_; }
    const std::filesystem::path& path() const { return path_; }
    bool isEncrypted() const;
    // Whether qpdf had to repair the file (rebuild its cross-reference table, skip damaged
    // objects) while reading it so far. `resolveAll` reads every object first.
    bool wasRepaired();
    void resolveAll();

    // The Info attributes of the last trailer. Empty strings, unparsable dates and values of
    // other types are left out.
    PDFDocumentAttributes documentAttributes();
    // Replaces the Info dictionary with exactly these attributes, as a new indirect object.
    void setDocumentAttributes(const PDFDocumentAttributes& attributes);

    // Every page object, in order; empty when the page tree cannot be read.
    std::vector<QPDFObjectHandle> pages();
    // Calls `visit` for every annotation dictionary of every page, in page order, each once; an
    // annotation's pop-up is visited too, even when the page does not list it.
    void forEachAnnotation(const std::function<void(std::size_t pageIndex, QPDFObjectHandle page,
                                                    QPDFObjectHandle annotation)>& visit);
    // The document catalog, or empty when it is no dictionary.
    std::optional<QPDFObjectHandle> catalog();

private:
    PDFDocument() = default;
    static std::unique_ptr<PDFDocument> openWith(const std::function<void(QPDF&)>& process, OpenStatus* status,
                                                 Recovery recovery);
    std::filesystem::path path_;
    std::unique_ptr<QPDF> qpdf_;
    bool repaired_ = false;
    // The source bytes, for the rare reading qpdf cannot do: a duplicate of the descriptor qpdf
    // reads, or the memory it was given.
    int rawDescriptor_ = -1;
    const std::uint8_t* memory_ = nullptr;
    std::size_t memorySize_ = 0;
    std::vector<std::uint8_t> rawBytes(std::uint64_t offset, std::size_t length) const;
    PDFDocumentAttributes attributesFromRawInfo(QPDFObjectHandle info);
};

// Why a file did not open, in words ("not a regular file", …).
std::string describeOpenFailure(PDFDocument::OpenStatus status);
// "object 12 0", or "a direct object" for one that has no number.
std::string objectLabel(QPDFObjectHandle object);

// The subtype name of an annotation without its solidus ("Link", "Highlight", …), or "".
std::string annotationSubtype(QPDFObjectHandle annotation);
// The text of a string object, or empty for anything else.
std::optional<std::string> stringValue(QPDFObjectHandle object);
// Keywords as a list: split at commas and semicolons, trimmed, empties dropped.
std::vector<std::string> splitKeywords(std::string_view keywords);

}  // namespace tavrin
