#pragma once
// The PDF document as the reader, the writer and the password processor see it: a thin adapter
// over qpdf that opens a file without ever changing it, and offers the Info attributes with
// dates parsed, the pages and their annotations, and the raw catalog. qpdf's exceptions stay
// behind this edge: every operation here either succeeds or reports failure in its result.

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
    enum class OpenStatus { opened, cannotOpen, passwordRequired };

    // Opens `path` read-only with qpdf; damaged files are refused, not repaired. Returns null on
    // failure and says why in `status` (a wrong password is `passwordRequired`).
    static std::unique_ptr<PDFDocument> open(const std::filesystem::path& path, const std::string& password = "",
                                             OpenStatus* status = nullptr);

    // The same for bytes in memory, which must outlive the document (for fuzzing and tests).
    static std::unique_ptr<PDFDocument> openMemory(const std::uint8_t* data, std::size_t size,
                                                   const std::string& password = "", OpenStatus* status = nullptr);

    QPDF& qpdf() { return *qpdf_; }
    const std::filesystem::path& path() const { return path_; }
    bool isEncrypted() const;

    // The Info attributes of the last trailer. Empty strings, unparsable dates and values of
    // other types are left out.
    PDFDocumentAttributes documentAttributes();
    // Replaces the Info dictionary with exactly these attributes, as a new indirect object.
    void setDocumentAttributes(const PDFDocumentAttributes& attributes);

    // Every page object, in order; empty when the page tree cannot be read.
    std::vector<QPDFObjectHandle> pages();
    // Calls `visit` for every annotation dictionary of every page, in page order.
    void forEachAnnotation(const std::function<void(std::size_t pageIndex, QPDFObjectHandle page,
                                                    QPDFObjectHandle annotation)>& visit);
    // The document catalog, or empty when it is no dictionary.
    std::optional<QPDFObjectHandle> catalog();

private:
    PDFDocument() = default;
    static std::unique_ptr<PDFDocument> openWith(const std::function<void(QPDF&)>& process, OpenStatus* status);
    std::filesystem::path path_;
    std::unique_ptr<QPDF> qpdf_;
};

// The subtype name of an annotation without its solidus ("Link", "Highlight", …), or "".
std::string annotationSubtype(QPDFObjectHandle annotation);
// The text of a string object, or empty for anything else.
std::optional<std::string> stringValue(QPDFObjectHandle object);
// Keywords as a list: split at commas and semicolons, trimmed, empties dropped.
std::vector<std::string> splitKeywords(std::string_view keywords);

}  // namespace tavrin
