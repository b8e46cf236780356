#include "pdf_fixtures.h"

#include <cstdio>
#include <functional>
#include <stdexcept>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFWriter.hh>

namespace tavrin::testing {

RawPDFBuilder& RawPDFBuilder::object(int number, std::string body) {
    pending_[number] = out_.size();
    out_ += std::to_string(number) + " 0 obj\n" + body + "\nendobj\n";
    if (number >= size_) size_ = number + 1;
    return *this;
}

RawPDFBuilder& RawPDFBuilder::stream(int number, const std::string& entries, const std::string& data) {
    return object(number, "<< " + entries + " /Length " + std::to_string(data.size()) + " >>\nstream\n" + data +
                              "\nendstream");
}

RawPDFBuilder& RawPDFBuilder::endRevision(const std::string& trailerEntries) {
    const std::size_t xref = out_.size();
    out_ += "xref\n";
    if (!hasXref_) out_ += "0 1\n0000000000 65535 f \n";
    for (const auto& [number, offset] : pending_) {
        char entry[32];
        std::snprintf(entry, sizeof entry, "%010zu 00000 n \n", offset);
        out_ += std::to_string(number) + " 1\n" + entry;
    }
    out_ += "trailer\n<< /Size " + std::to_string(size_) + " " + trailerEntries;
    if (hasXref_) out_ += " /Prev " + std::to_string(lastXref_);
    out_ += " >>\nstartxref\n" + std::to_string(xref) + "\n%%EOF\n";
    pending_.clear();
    lastXref_ = xref;
    hasXref_ = true;
    return *this;
}

namespace {

std::string xmpPacket() {
    return std::string("<?xpacket begin=\"\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>"
                       "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"><rdf:RDF "
                       "xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">"
                       "<rdf:Description xmlns:dc=\"http://purl.org/dc/elements/1.1/\" "
                       "xmlns:xmp=\"http://ns.adobe.com/xap/1.0/\"><dc:creator><rdf:Seq><rdf:li>") +
           DirtyValues::xmpCreator + "</rdf:li></rdf:Seq></dc:creator><xmp:CreatorTool>" + DirtyValues::xmpTool +
           "</xmp:CreatorTool></rdf:Description></rdf:RDF></x:xmpmeta><?xpacket end=\"w\"?>";
}

std::string pageContent(const std::string& text) { return "BT /F1 18 Tf 72 700 Td (" + text + ") Tj ET"; }

}  // namespace

std::string dirtyPDF(const DirtyOptions& o) {
    RawPDFBuilder b;
    std::string catalog = "<< /Type /Catalog /Pages 2 0 R /Metadata 9 0 R /Outlines 10 0 R";
    if (o.script) catalog += " /OpenAction << /S /JavaScript /JS (app.alert\\('hi'\\);) >>";
    if (o.attachment) catalog += " /Names << /EmbeddedFiles << /Names [(notes.txt) 20 0 R] >> >>";
    if (o.acroForm) catalog += " /AcroForm << /Fields [] >>";
    catalog += " >>";
    b.object(1, catalog);
    b.object(2, "<< /Type /Pages /Kids [3 0 R 14 0 R] /Count 2 >>");
    b.object(3,
             "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] /Resources << /Font << /F1 4 0 R >> >> "
             "/Contents 5 0 R /Annots [6 0 R 7 0 R 8 0 R] /PieceInfo << /App << /Private (PieceInfo private "
             "data) >> >> >>");
    b.object(4, "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>");
    b.stream(5, "", pageContent(DirtyValues::pageText));
    b.object(6, std::string("<< /Type /Annot /Subtype /Text /Rect [100 100 120 120] /T (") +
                    DirtyValues::annotationAuthor + ") /Contents (" + DirtyValues::annotationText +
                    ") /M (D:20230405060708Z) >>");
    b.object(7, std::string("<< /Type /Annot /Subtype /Link /Rect [72 600 300 620] /Border [0 0 0] "
                            "/A << /S /URI /URI (") +
                    DirtyValues::externalURL + ") >> >>");
    b.object(8, "<< /Type /Annot /Subtype /Link /Rect [72 560 300 580] /Border [0 0 0] /Dest [14 0 R /Fit] >>");
    b.stream(9, "/Type /Metadata /Subtype /XML", xmpPacket());
    b.object(10, "<< /Type /Outlines /First 11 0 R /Last 12 0 R /Count 3 >>");
    b.object(11, "<< /Title (Chapter One) /Parent 10 0 R /Next 12 0 R /First 13 0 R /Last 13 0 R /Count 1 "
                 "/Dest [3 0 R /Fit] >>");
    b.object(12, std::string("<< /Title (Chapter Two) /Parent 10 0 R /Prev 11 0 R ") +
                     (o.outlineCycle ? "/Next 11 0 R " : "") + "/Dest [14 0 R /Fit] >>");
    b.object(13, "<< /Title (Section) /Parent 11 0 R /Dest [3 0 R /Fit] >>");
    b.object(14, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] /Resources << /Font << /F1 4 0 R >> >> "
                 "/Contents 15 0 R >>");
    b.stream(15, "", pageContent("Second page text"));
    if (o.attachment) {
        b.object(20, "<< /Type /Filespec /F (notes.txt) /EF << /F 21 0 R >> >>");
        b.stream(21, "/Type /EmbeddedFile", "attached notes");
    }
    b.object(16, std::string("<< /Title (") + DirtyValues::firstTitle + ") /Author (" + DirtyValues::firstAuthor +
                     ") /Producer (" + DirtyValues::firstProducer + ") /CreationDate (D:20200101120000Z) >>");
    b.endRevision("/Root 1 0 R /Info 16 0 R /ID [<0102030405060708> <0102030405060708>]");
    // The update an editor appends: a new Info, the old one left behind in the file.
    b.object(16, std::string("<< /Title <FEFF") + [] {
                     std::string hex;
                     char buffer[16];
                     for (const char* p = DirtyValues::title; *p; ++p) {
                         std::snprintf(buffer, sizeof buffer, "%04X", static_cast<unsigned>(static_cast<unsigned char>(*p)));
                         hex += buffer;
                     }
                     return hex;
                 }() + "> /Author (" + DirtyValues::author + ") /Creator (" + DirtyValues::creator + ") /Producer (" +
                     DirtyValues::producer + ") /Keywords (" + DirtyValues::keyword +
                     ", budget) /CreationDate (D:20200101120000Z) /ModDate (D:20240305140209+01'00') >>");
    b.endRevision("/Root 1 0 R /Info 16 0 R /ID [<0102030405060708> <0A0B0C0D0E0F1011>]");
    return b.bytes();
}

namespace {

std::string rewrite(const std::string& pdf, const std::function<void(QPDFWriter&)>& configure) {
    QPDF q;
    q.processMemoryFile("fixture", pdf.data(), pdf.size());
    QPDFWriter w(q);
    w.setOutputMemory();
    configure(w);
    w.write();
    auto buffer = w.getBufferSharedPointer();
    return std::string(reinterpret_cast<const char*>(buffer->getBuffer()), buffer->getSize());
}

}  // namespace

std::string withObjectStreams(const std::string& pdf) {
    return rewrite(pdf, [](QPDFWriter& w) { w.setObjectStreamMode(qpdf_o_generate); });
}

std::string encryptedAES256(const std::string& pdf, const std::string& user, const std::string& owner) {
    return rewrite(pdf, [&](QPDFWriter& w) {
        w.setR6EncryptionParameters(user.c_str(), owner.c_str(), true, true, true, true, true, true, qpdf_r3p_full, true);
    });
}

std::string jpegWithMetadata() {
    // An 8×8 grey baseline JPEG, with metadata segments around its tables.
    static const unsigned char core[] = {
        0xFF, 0xDB, 0x00, 0x43, 0x00, 0x08, 0x06, 0x06, 0x07, 0x06, 0x05, 0x08, 0x07, 0x07, 0x07, 0x09, 0x09, 0x08,
        0x0A, 0x0C, 0x14, 0x0D, 0x0C, 0x0B, 0x0B, 0x0C, 0x19, 0x12, 0x13, 0x0F, 0x14, 0x1D, 0x1A, 0x1F, 0x1E, 0x1D,
        0x1A, 0x1C, 0x1C, 0x20, 0x24, 0x2E, 0x27, 0x20, 0x22, 0x2C, 0x23, 0x1C, 0x1C, 0x28, 0x37, 0x29, 0x2C, 0x30,
        0x31, 0x34, 0x34, 0x34, 0x1F, 0x27, 0x39, 0x3D, 0x38, 0x32, 0x3C, 0x2E, 0x33, 0x34, 0x32, 0xFF, 0xC0, 0x00,
        0x0B, 0x08, 0x00, 0x08, 0x00, 0x08, 0x01, 0x01, 0x11, 0x00, 0xFF, 0xC4, 0x00, 0x1F, 0x00, 0x00, 0x01, 0x05,
        0x01, 0x01, 0x01, 0x01, 0x01, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0x02, 0x03, 0x04,
        0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B, 0xFF, 0xC4, 0x00, 0xB5, 0x10, 0x00, 0x02, 0x01, 0x03, 0x03, 0x02,
        0x04, 0x03, 0x05, 0x05, 0x04, 0x04, 0x00, 0x00, 0x01, 0x7D, 0x01, 0x02, 0x03, 0x00, 0x04, 0x11, 0x05, 0x12,
        0x21, 0x31, 0x41, 0x06, 0x13, 0x51, 0x61, 0x07, 0x22, 0x71, 0x14, 0x32, 0x81, 0x91, 0xA1, 0x08, 0x23, 0x42,
        0xB1, 0xC1, 0x15, 0x52, 0xD1, 0xF0, 0x24, 0x33, 0x62, 0x72, 0x82, 0x09, 0x0A, 0x16, 0x17, 0x18, 0x19, 0x1A,
        0x25, 0x26, 0x27, 0x28, 0x29, 0x2A, 0x34, 0x35, 0x36, 0x37, 0x38, 0x39, 0x3A, 0x43, 0x44, 0x45, 0x46, 0x47,
        0x48, 0x49, 0x4A, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59, 0x5A, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x69,
        0x6A, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7A, 0x83, 0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8A, 0x92,
        0x93, 0x94, 0x95, 0x96, 0x97, 0x98, 0x99, 0x9A, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8, 0xA9, 0xAA, 0xB2,
        0xB3, 0xB4, 0xB5, 0xB6, 0xB7, 0xB8, 0xB9, 0xBA, 0xC2, 0xC3, 0xC4, 0xC5, 0xC6, 0xC7, 0xC8, 0xC9, 0xCA, 0xD2,
        0xD3, 0xD4, 0xD5, 0xD6, 0xD7, 0xD8, 0xD9, 0xDA, 0xE1, 0xE2, 0xE3, 0xE4, 0xE5, 0xE6, 0xE7, 0xE8, 0xE9, 0xEA,
        0xF1, 0xF2, 0xF3, 0xF4, 0xF5, 0xF6, 0xF7, 0xF8, 0xF9, 0xFA, 0xFF, 0xDA, 0x00, 0x08, 0x01, 0x01, 0x00, 0x00,
        0x3F, 0x00, 0xFB, 0xD3, 0xFF, 0x00, 0x28, 0xA0, 0x02, 0x8A, 0x00, 0xFF, 0xD9,
    };
    std::string jpeg = "\xFF\xD8";
    jpeg += std::string("\xFF\xE0\x00\x10JFIF\x00\x01\x01\x00\x00\x01\x00\x01\x00\x00", 18);
    const std::string exif = "Exif GPS secret 51.5N";
    jpeg += "\xFF\xE1";
    jpeg += static_cast<char>(0);
    jpeg += static_cast<char>(exif.size() + 2);
    jpeg += exif;
    const std::string comment = "Camera owner comment";
    jpeg += "\xFF\xFE";
    jpeg += static_cast<char>(0);
    jpeg += static_cast<char>(comment.size() + 2);
    jpeg += comment;
    jpeg += std::string(reinterpret_cast<const char*>(core), sizeof core);
    jpeg += "trailing thumbnail bytes";
    return jpeg;
}

std::string pdfWithJPEG() {
    const std::string jpeg = jpegWithMetadata();
    RawPDFBuilder b;
    b.object(1, "<< /Type /Catalog /Pages 2 0 R >>");
    b.object(2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>");
    b.object(3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 200] /Resources << /XObject << /Im1 4 0 R >> >> "
                "/Contents 5 0 R >>");
    b.stream(4, "/Type /XObject /Subtype /Image /Width 8 /Height 8 /ColorSpace /DeviceGray /BitsPerComponent 8 "
                "/Filter /DCTDecode",
             jpeg);
    b.stream(5, "", "q 100 0 0 100 50 50 cm /Im1 Do Q");
    b.endRevision("/Root 1 0 R");
    return b.bytes();
}

}  // namespace tavrin::testing
