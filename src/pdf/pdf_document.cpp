#include "pdf/pdf_document.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <set>

#include <qpdf/QPDFExc.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>

#include "pdf/pdf_date.h"
#include "pdf/pdf_raw_info.h"

namespace tavrin {

namespace {

constexpr PDFInfoAttribute allAttributes[] = {
    PDFInfoAttribute::title,    PDFInfoAttribute::author,   PDFInfoAttribute::subject,
    PDFInfoAttribute::keywords, PDFInfoAttribute::creator,  PDFInfoAttribute::producer,
    PDFInfoAttribute::creationDate, PDFInfoAttribute::modificationDate,
};

bool isDateAttribute(PDFInfoAttribute a) {
    return a == PDFInfoAttribute::creationDate || a == PDFInfoAttribute::modificationDate;
}

std::string pdfDateText(Date date) {
    const std::time_t t = std::chrono::system_clock::to_time_t(date);
    std::tm tm{};
    ::gmtime_r(&t, &tm);
    char buffer[40];
    std::snprintf(buffer, sizeof buffer, "D:%04d%02d%02d%02d%02d%02d+00'00'", tm.tm_year + 1900, tm.tm_mon + 1,
                  tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec);
    return buffer;
}

}  // namespace

std::string_view pdfAttributeName(PDFInfoAttribute attribute) {
    switch (attribute) {
        case PDFInfoAttribute::title: return "Title";
        case PDFInfoAttribute::author: return "Author";
        case PDFInfoAttribute::subject: return "Subject";
        case PDFInfoAttribute::keywords: return "Keywords";
        case PDFInfoAttribute::creator: return "Creator";
        case PDFInfoAttribute::producer: return "Producer";
        case PDFInfoAttribute::creationDate: return "CreationDate";
        case PDFInfoAttribute::modificationDate: return "ModDate";
    }
    return "Unknown";
}

std::unique_ptr<PDFDocument> PDFDocument::openWith(const std::function<void(QPDF&)>& process, OpenStatus* status,
                                                   Recovery recovery) {
    OpenStatus ignored;
    OpenStatus& outcome = status ? *status : ignored;
    outcome = OpenStatus::cannotOpen;
    std::unique_ptr<PDFDocument> document(new PDFDocument);
    document->qpdf_ = std::make_unique<QPDF>();
    QPDF& q = *document->qpdf_;
    q.setSuppressWarnings(true);
    // A rebuilt cross-reference table may drop pages or resurrect objects the author deleted;
    // the writer says so in a warning, and verification holds the result to the usual checks.
    q.setAttemptRecovery(recovery == Recovery::attempt);
    try {
        process(q);
        if (!q.getRoot().isDictionary()) return nullptr;
        document->repaired_ = q.anyWarnings();
    } catch (const QPDFExc& e) {
        if (e.getErrorCode() == qpdf_e_password) outcome = OpenStatus::passwordRequired;
        return nullptr;
    } catch (const std::exception&) {
        return nullptr;
    }
    outcome = OpenStatus::opened;
    return document;
}

std::unique_ptr<PDFDocument> PDFDocument::open(const std::filesystem::path& path, const std::string& password,
                                               OpenStatus* status, Recovery recovery) {
    OpenStatus ignored;
    OpenStatus& outcome = status ? *status : ignored;
    outcome = OpenStatus::cannotOpen;
    // O_NONBLOCK: opening a FIFO must not wait for a writer; the type check below refuses it.
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return nullptr;
    struct stat st {};
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        outcome = OpenStatus::notRegularFile;
        return nullptr;
    }
    if (static_cast<std::uint64_t>(st.st_size) > maximumFileSize) {
        ::close(fd);
        outcome = OpenStatus::tooLarge;
        return nullptr;
    }
    std::FILE* file = ::fdopen(fd, "rb");
    if (!file) {
        ::close(fd);
        return nullptr;
    }
    // qpdf owns the stream from here and closes it with the document, or on failure.
    const int raw = ::fcntl(fd, F_DUPFD_CLOEXEC, 0);
    auto document = openWith([&](QPDF& q) { q.processFile(path.c_str(), file, true, password.c_str()); }, status,
                             recovery);
    if (!document) {
        if (raw >= 0) ::close(raw);
        return nullptr;
    }
    document->path_ = path;
    document->rawDescriptor_ = raw;
    return document;
}

std::string describeOpenFailure(PDFDocument::OpenStatus status) {
    switch (status) {
        case PDFDocument::OpenStatus::opened: return "";
        case PDFDocument::OpenStatus::cannotOpen: return "the file cannot be read as a PDF";
        case PDFDocument::OpenStatus::passwordRequired: return "a password is needed";
        case PDFDocument::OpenStatus::notRegularFile: return "not a regular file";
        case PDFDocument::OpenStatus::tooLarge: return "larger than the 1 GiB a PDF may have here";
    }
    return "";
}

std::string objectLabel(QPDFObjectHandle object) {
    if (!object.isIndirect()) return "a direct object";
    return "object " + std::to_string(object.getObjectID()) + " " + std::to_string(object.getGeneration());
}

bool PDFDocument::wasRepaired() {
    if (qpdf_->anyWarnings()) repaired_ = true;
    return repaired_;
}

void PDFDocument::resolveAll() {
    try {
        (void)qpdf_->getAllObjects();
    } catch (const std::exception&) {
        repaired_ = true;
    }
}

std::unique_ptr<PDFDocument> PDFDocument::openMemory(const std::uint8_t* data, std::size_t size,
                                                     const std::string& password, OpenStatus* status) {
    auto document = openWith(
        [&](QPDF& q) {
            q.processMemoryFile("memory", reinterpret_cast<const char*>(data), size, password.c_str());
        },
        status, Recovery::attempt);
    if (document) {
        document->memory_ = data;
        document->memorySize_ = size;
    }
    return document;
}

PDFDocument::~PDFDocument() {
    if (rawDescriptor_ >= 0) ::close(rawDescriptor_);
}

std::vector<std::uint8_t> PDFDocument::rawBytes(std::uint64_t offset, std::size_t length) const {
    std::vector<std::uint8_t> bytes;
    if (memory_) {
        if (offset >= memorySize_) return bytes;
        const std::size_t n = std::min<std::size_t>(length, memorySize_ - offset);
        bytes.assign(memory_ + offset, memory_ + offset + n);
        return bytes;
    }
    if (rawDescriptor_ < 0) return bytes;
    bytes.resize(length);
    std::size_t filled = 0;
    while (filled < length) {
        const ssize_t n = ::pread(rawDescriptor_, bytes.data() + filled, length - filled,
                                  static_cast<off_t>(offset + filled));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        filled += static_cast<std::size_t>(n);
    }
    bytes.resize(filled);
    return bytes;
}

bool PDFDocument::isEncrypted() const { return qpdf_->isEncrypted(); }

std::optional<std::string> stringValue(QPDFObjectHandle object) {
    try {
        if (object.isString()) return object.getUTF8Value();
    } catch (const std::exception&) {
    }
    return std::nullopt;
}

std::vector<std::string> splitKeywords(std::string_view keywords) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    while (start <= keywords.size()) {
        std::size_t end = keywords.find_first_of(",;", start);
        if (end == std::string_view::npos) end = keywords.size();
        std::string_view part = keywords.substr(start, end - start);
        while (!part.empty() && (part.front() == ' ' || part.front() == '\t')) part.remove_prefix(1);
        while (!part.empty() && (part.back() == ' ' || part.back() == '\t')) part.remove_suffix(1);
        if (!part.empty()) parts.emplace_back(part);
        start = end + 1;
    }
    return parts;
}

namespace {

void addAttribute(PDFDocumentAttributes& attributes, PDFInfoAttribute a, const std::string& text) {
    if (text.empty()) return;
    if (isDateAttribute(a)) {
        if (auto date = parsePDFDate(text)) attributes[a] = MetadataValue::date(*date);
    } else if (a == PDFInfoAttribute::keywords) {
        MetadataValue::Array list;
        for (auto& k : splitKeywords(text)) list.push_back(MetadataValue::string(std::move(k)));
        if (!list.empty()) attributes[a] = MetadataValue::array(std::move(list));
    } else {
        attributes[a] = MetadataValue::string(text);
    }
}

}  // namespace

PDFDocumentAttributes PDFDocument::documentAttributes() {
    PDFDocumentAttributes attributes;
    QPDFObjectHandle info;
    try {
        info = qpdf_->getTrailer().getKey("/Info");
    } catch (const std::exception&) {
        return attributes;
    }
    bool dictionary = false;
    try {
        dictionary = info.isDictionary();
    } catch (const std::exception&) {
    }
    if (!dictionary) return info.isIndirect() ? attributesFromRawInfo(info) : attributes;
    // Each entry on its own: one that does not read costs only itself.
    for (PDFInfoAttribute a : allAttributes) {
        try {
            auto text = stringValue(info.getKey("/" + std::string(pdfAttributeName(a))));
            if (text) addAttribute(attributes, a, *text);
        } catch (const std::exception&) {
        }
    }
    return attributes;
}

PDFDocumentAttributes PDFDocument::attributesFromRawInfo(QPDFObjectHandle info) {
    // qpdf gave up on the whole object (an entry nested too deep, say); its top-level strings
    // are read from the bytes, where the cross-reference table says the object is.
    PDFDocumentAttributes attributes;
    try {
        const auto xref = qpdf_->getXRefTable();
        auto found = xref.find(info.getObjGen());
        if (found == xref.end() || found->second.getType() != 1) return attributes;
        const auto bytes = rawBytes(static_cast<std::uint64_t>(found->second.getOffset()), pdfBytes::rawInfoWindow);
        const auto entries = pdfBytes::topLevelStringEntries(bytes, 0);
        for (PDFInfoAttribute a : allAttributes) {
            for (const auto& [key, value] : entries)
                if (key == pdfAttributeName(a)) addAttribute(attributes, a, value);
        }
    } catch (const std::exception&) {
        attributes.clear();
    }
    return attributes;
}

void PDFDocument::setDocumentAttributes(const PDFDocumentAttributes& attributes) {
    QPDFObjectHandle info = QPDFObjectHandle::newDictionary();
    for (PDFInfoAttribute a : allAttributes) {
        auto found = attributes.find(a);
        if (found == attributes.end()) continue;
        const MetadataValue& v = found->second;
        const std::string key = "/" + std::string(pdfAttributeName(a));
        if (v.kind() == MetadataValue::Kind::date) {
            info.replaceKey(key, QPDFObjectHandle::newString(pdfDateText(v.asDate())));
        } else if (v.kind() == MetadataValue::Kind::string) {
            info.replaceKey(key, QPDFObjectHandle::newUnicodeString(v.asString()));
        } else if (v.kind() == MetadataValue::Kind::array) {
            std::string joined;
            for (const auto& element : v.asArray()) {
                if (element.kind() != MetadataValue::Kind::string) continue;
                if (!joined.empty()) joined += ", ";
                joined += element.asString();
            }
            info.replaceKey(key, QPDFObjectHandle::newUnicodeString(joined));
        }
    }
    qpdf_->getTrailer().replaceKey("/Info", qpdf_->makeIndirectObject(info));
}

std::vector<QPDFObjectHandle> PDFDocument::pages() {
    try {
        return qpdf_->getAllPages();
    } catch (const std::exception&) {
        return {};
    }
}

void PDFDocument::forEachAnnotation(
    const std::function<void(std::size_t, QPDFObjectHandle, QPDFObjectHandle)>& visit) {
    const auto all = pages();
    std::set<QPDFObjGen> seen;
    const auto firstVisit = [&](QPDFObjectHandle annotation) {
        return !annotation.isIndirect() || seen.insert(annotation.getObjGen()).second;
    };
    for (std::size_t index = 0; index < all.size(); ++index) {
        QPDFObjectHandle page = all[index];
        QPDFObjectHandle annots = page.getKey("/Annots");
        if (!annots.isArray()) continue;
        const int count = annots.getArrayNItems();
        for (int i = 0; i < count; ++i) {
            QPDFObjectHandle annotation = annots.getArrayItem(i);
            if (!annotation.isDictionary() || !firstVisit(annotation)) continue;
            visit(index, page, annotation);
            QPDFObjectHandle popup = annotation.getKey("/Popup");
            if (popup.isDictionary() && firstVisit(popup)) visit(index, page, popup);
        }
    }
}

std::optional<QPDFObjectHandle> PDFDocument::catalog() {
    try {
        QPDFObjectHandle root = qpdf_->getRoot();
        if (root.isDictionary()) return root;
    } catch (const std::exception&) {
    }
    return std::nullopt;
}

std::string annotationSubtype(QPDFObjectHandle annotation) {
    try {
        QPDFObjectHandle subtype = annotation.getKey("/Subtype");
        if (subtype.isName()) return subtype.getName().substr(1);
    } catch (const std::exception&) {
    }
    return "";
}

}  // namespace tavrin
