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

std::string ownerRestricted(const std::string& pdf, const std::string& owner) {
    return rewrite(pdf, [&](QPDFWriter& w) {
        w.setR6EncryptionParameters("", owner.c_str(), true, false, false, false, true, false, qpdf_r3p_low, true);
    });
}

std::string formPDF() {
    RawPDFBuilder b;
    b.object(1, "<< /Type /Catalog /Pages 2 0 R /AcroForm << /Fields [4 0 R] /DA (/Helv 0 Tf 0 g) "
                "/DR << /Font << /Helv 6 0 R >> >> >> >>");
    b.object(2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>");
    b.object(3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 300 300] /Annots [4 0 R] >>");
    b.object(4, "<< /Type /Annot /Subtype /Widget /FT /Tx /T (ApplicantName) /TU (Your full name) "
                "/V (Jane Filled Value) /DA (/Helv 12 Tf 0 g) /F 4 /Rect [20 200 280 230] /P 3 0 R "
                "/AP << /N 5 0 R >> /MK << /BG [1 1 1] >> /M (D:20230405060708Z) >>");
    b.stream(5, "/Type /XObject /Subtype /Form /BBox [0 0 260 30] /Resources << /Font << /Helv 6 0 R >> >>",
             "/Tx BMC BT /Helv 12 Tf 0 g 2 10 Td (Jane Filled Value) Tj ET EMC");
    b.object(6, "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding /WinAnsiEncoding >>");
    b.object(7, "<< /Author (Form Author Person) >>");
    return b.endRevision("/Root 1 0 R /Info 7 0 R").bytes();
}

std::string qpdfCheckProblems(const std::filesystem::path& pdf) {
    std::string output;
    const int status = runCommand("qpdf --check " + shellQuote(pdf.string()) + " 2>&1", &output);
    if (status == 0 && output.find("WARNING") == std::string::npos && output.find("ERROR") == std::string::npos)
        return "";
    return output.empty() ? "qpdf --check failed" : output;
}

std::string jpegWithMetadata() {
    auto segment = [](char marker, const std::string& body) {
        return std::string{'\xFF', marker, char((body.size() + 2) >> 8), char(body.size() + 2)} + body;
    };
    // An 8×8 grey baseline frame: a flat quantisation table, one-code Huffman tables and a short
    // scan. Nothing here decodes it; the segment walk only has to follow it.
    const std::string huffman = std::string(1, '\x01') + std::string(15, '\0') + std::string(1, '\0');
    return "\xFF\xD8" + segment('\xE0', std::string("JFIF\0\x01\x01\0\0\x01\0\x01\0\0", 14)) +
           segment('\xE1', "Exif GPS secret 51.5N") + segment('\xFE', "Camera owner comment") +
           segment('\xDB', std::string(1, '\0') + std::string(64, '\x08')) +
           segment('\xC0', std::string("\x08\0\x08\0\x08\x01\x01\x11\0", 9)) + segment('\xC4', '\0' + huffman) +
           segment('\xC4', '\x10' + huffman) + segment('\xDA', std::string("\x01\x01\0\0\x3F\0", 6)) +
           std::string("\xFB\xD3\xFF\x00\x28\xA0\xFF\xD9", 8) + "trailing thumbnail bytes";
}

std::string onePage(const std::string& catalogEntries, const std::string& pageEntries,
                    const std::vector<std::pair<int, std::string>>& extra) {
    RawPDFBuilder b;
    b.object(1, "<< /Type /Catalog /Pages 2 0 R " + catalogEntries + " >>");
    b.object(2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>");
    b.object(3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 100 100] " + pageEntries + " >>");
    for (const auto& [n, body] : extra) b.object(n, body);
    return b.endRevision("/Root 1 0 R").bytes();
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
