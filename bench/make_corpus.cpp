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

    // Two or three of each type, of different sizes (5 to 50 KB), so that a replicated folder
    // looks like a real one rather than ten files over and over.
    writeFile(small / "photo.jpg", dirtyJPEG(192, 144, 1));
    writeFile(small / "portrait.jpg", dirtyJPEG(240, 320, 15));
    writeFile(small / "snapshot.jpg", dirtyJPEG(400, 300, 16));
    writeFile(small / "screenshot.png", dirtyPNG(96, 72, 2));
    writeFile(small / "chart.png", dirtyPNG(64, 160, 17));
    writeFile(small / "logo.png", dirtyPNG(48, 48, 18));
    writeDirtyTIFF(small / "scan.tiff", 48, 40, 3);
    writeDirtyTIFF(small / "receipt.tiff", 64, 72, 19);
    writeFile(small / "sticker.webp", dirtyWebP(320, 240, 4));
    writeFile(small / "banner.webp", dirtyWebP(480, 160, 20));
    writeFile(small / "icon.webp", dirtyWebP(176, 176, 21));
    writeFile(small / "animation.gif", dirtyGIF(128, 96, 5));
    writeFile(small / "reaction.gif", dirtyGIF(96, 96, 22));
    if (auto heic = dirtyHEIC(256, 192, 6); !heic.empty()) writeFile(small / "phone.heic", heic);
    if (auto heic = dirtyHEIC(192, 256, 23); !heic.empty()) writeFile(small / "selfie.heic", heic);
    writeFile(small / "memo.pdf", dirtyPDF(3, 7));
    writeFile(small / "invoice.pdf", dirtyPDF(1, 24));
    writeFile(small / "brief.pdf", dirtyPDF(5, 25));
    writeFile(small / "minutes.docx", dirtyDocx(40, 1, 160, 120, 8));
    writeFile(small / "letter.docx", dirtyDocx(12, 0, 0, 0, 26));
    writeFile(small / "contract.docx", dirtyDocx(90, 1, 200, 150, 27));
    writeFile(small / "budget.xlsx", dirtyXlsx(3, 40, 9));
    writeFile(small / "timesheet.xlsx", dirtyXlsx(1, 120, 28));
    writeFile(small / "pitch.pptx", dirtyPptx(4, 10));
    writeFile(small / "update.pptx", dirtyPptx(2, 29));

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
