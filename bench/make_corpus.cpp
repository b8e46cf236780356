// Writes the benchmark corpus: small dirty files of every cleanable type, and the realistic
// large files, into OUTDIR/small and OUTDIR/realistic.
//   tavrin-make-corpus OUTDIR [--small-only]
#include <cstring>
#include <filesystem>
#include <fmt/core.h>

#include "corpus_builders.h"
#include "office_builders.h"

using namespace tavrin::corpus;

int main(int argc, char** argv) {
    if (argc < 2) {
        fmt::print(stderr, "usage: tavrin-make-corpus OUTDIR [--small-only]\n");
        return 2;
    }
    const std::filesystem::path root = argv[1];
    const bool smallOnly = argc > 2 && std::strcmp(argv[2], "--small-only") == 0;
    const auto small = root / "small";
    std::filesystem::create_directories(small);

    writeFile(small / "photo.jpg", dirtyJPEG(192, 144, 1));
    writeFile(small / "screenshot.png", dirtyPNG(96, 72, 2));
    writeDirtyTIFF(small / "scan.tiff", 48, 40, 3);
    writeFile(small / "sticker.webp", dirtyWebP(320, 240, 4));
    writeFile(small / "animation.gif", dirtyGIF(128, 96, 5));
    if (auto heic = dirtyHEIC(256, 192, 6); !heic.empty()) writeFile(small / "phone.heic", heic);
    writeFile(small / "memo.pdf", dirtyPDF(3, 7));
    writeFile(small / "minutes.docx", dirtyDocx(40, 1, 160, 120, 8));
    writeFile(small / "budget.xlsx", dirtyXlsx(3, 40, 9));
    writeFile(small / "pitch.pptx", dirtyPptx(4, 10));

    if (!smallOnly) {
        const auto realistic = root / "realistic";
        std::filesystem::create_directories(realistic);
        writeFile(realistic / "camera-12mp.jpg", dirtyJPEG(4000, 3000, 11));
        writeFile(realistic / "report-200-pages.pdf", dirtyPDF(200, 12));
        writeFile(realistic / "report-40-photos.docx", dirtyDocx(2000, 40, 1600, 1200, 13));
        writeFile(realistic / "ledger-50-sheets.xlsx", dirtyXlsx(50, 200, 14));
    }
    return 0;
}
