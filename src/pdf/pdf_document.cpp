#include "pdf/pdf_document.h"

#include <qpdf/QPDFExc.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>

#include "pdf/pdf_date.h"

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

std::unique_ptr<PDFDocument> PDFDocument::openWith(const std::function<void(QPDF&)>& process, OpenStatus* status) {
    OpenStatus ignored;
    OpenStatus& outcome = status ? *status : ignored;
    outcome = OpenStatus::cannotOpen;
    std::unique_ptr<PDFDocument> document(new PDFDocument);
    document->qpdf_ = std::make_unique<QPDF>();
    QPDF& q = *document->qpdf_;
    q.setSuppressWarnings(true);
    // A damaged file is refused: a rebuilt cross-reference table may silently drop pages or
    // resurrect objects the author deleted.
    q.setAttemptRecovery(false);
    try {
        process(q);
        if (!q.getRoot().isDictionary()) return nullptr;
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
                                               OpenStatus* status) {
    auto document = openWith([&](QPDF& q) { q.processFile(path.c_str(), password.c_str()); }, status);
    if (document) document->path_ = path;
    return document;
}

std::unique_ptr<PDFDocument> PDFDocument::openMemory(const std::uint8_t* data, std::size_t size,
                                                     const std::string& password, OpenStatus* status) {
    return openWith(
        [&](QPDF& q) {
            q.processMemoryFile("memory", reinterpret_cast<const char*>(data), size, password.c_str());
        },
        status);
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

PDFDocumentAttributes PDFDocument::documentAttributes() {
    PDFDocumentAttributes attributes;
    try {
        QPDFObjectHandle info = qpdf_->getTrailer().getKey("/Info");
        if (!info.isDictionary()) return attributes;
        for (PDFInfoAttribute a : allAttributes) {
            auto text = stringValue(info.getKey("/" + std::string(pdfAttributeName(a))));
            if (!text || text->empty()) continue;
            if (isDateAttribute(a)) {
                if (auto date = parsePDFDate(*text)) attributes[a] = MetadataValue::date(*date);
            } else if (a == PDFInfoAttribute::keywords) {
                MetadataValue::Array list;
                for (auto& k : splitKeywords(*text)) list.push_back(MetadataValue::string(std::move(k)));
                if (!list.empty()) attributes[a] = MetadataValue::array(std::move(list));
            } else {
                attributes[a] = MetadataValue::string(*text);
            }
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
    for (std::size_t index = 0; index < all.size(); ++index) {
        QPDFObjectHandle page = all[index];
        QPDFObjectHandle annots = page.getKey("/Annots");
        if (!annots.isArray()) continue;
        const int count = annots.getArrayNItems();
        for (int i = 0; i < count; ++i) {
            QPDFObjectHandle annotation = annots.getArrayItem(i);
            if (annotation.isDictionary()) visit(index, page, annotation);
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
