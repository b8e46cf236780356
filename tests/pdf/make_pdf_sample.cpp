// Writes the dirty sample PDF of samples/files, and the fuzz corpus variants, from the test
// fixtures: Info in two revisions, an XMP packet, an outline, links, and a note with an author.
#include <cstdio>
#include <fstream>
#include <string>

#include "pdf_fixtures.h"

int main(int argc, char** argv) {
    if (argc < 2 || argc > 3) {
        std::fprintf(stderr, "usage: make_pdf_sample OUT.pdf [dirty|object-streams|encrypted|jpeg|outline-cycle]\n");
        return 2;
    }
    using namespace tavrin::testing;
    const std::string variant = argc == 3 ? argv[2] : "dirty";
    std::string pdf;
    if (variant == "dirty") {
        pdf = dirtyPDF();
    } else if (variant == "object-streams") {
        pdf = withObjectStreams(dirtyPDF());
    } else if (variant == "encrypted") {
        pdf = encryptedAES256(dirtyPDF(), "", "owner");
    } else if (variant == "jpeg") {
        pdf = pdfWithJPEG();
    } else if (variant == "outline-cycle") {
        DirtyOptions options;
        options.outlineCycle = true;
        options.script = true;
        options.attachment = true;
        pdf = dirtyPDF(options);
    } else {
        std::fprintf(stderr, "unknown variant %s\n", variant.c_str());
        return 2;
    }
    std::ofstream out(argv[1], std::ios::binary | std::ios::trunc);
    out.write(pdf.data(), static_cast<std::streamsize>(pdf.size()));
    return out ? 0 : 1;
}
