// Writes the demo's dirty photo and diagram into the folder given, from the test fixture code;
// with --fuzz-corpus, small dirty files of every container for the image fuzz corpus instead.
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "heif_fixtures.h"
#include "image_fixtures.h"
#include "support/test_support.h"

int main(int argc, char** argv) {
    const bool fuzzCorpus = argc == 3 && std::strcmp(argv[1], "--fuzz-corpus") == 0;
    if (argc != 2 && !fuzzCorpus) {
        std::fprintf(stderr, "usage: make_image_samples [--fuzz-corpus] <folder>\n");
        return 2;
    }
    using namespace tavrin::testing::images;
    using tavrin::testing::writeFile;
    const std::filesystem::path folder = argv[argc - 1];
    if (fuzzCorpus) {
        const std::string xmp = xmpPacket();
        writeFile(folder / "still.webp", withWebPMetadata(encodeWebP(8, 8), exifBlock(), xmp, iccProfile("sRGB")));
        writeFile(folder / "anim.webp", withWebPMetadata(encodeAnimatedWebP(8, 8, {50, 70}, 2), exifBlock(), "", {}));
        writeFile(folder / "anim.gif", withGIFMetadata(encodeGIF(4, 4, {5, 9}, 1), "a comment", xmp));
        writeFile(folder / "scan.bmp", encodeBMP(3, 2));
        Bytes exif = toBytes(std::string_view("Exif\0\0", 6));
        tavrin::image::append(exif, exifBlock());
        const Bytes heic = encodeHEIC(16, 16, exif, xmp);
        if (!heic.empty()) writeFile(folder / "photo.heic", heic);
        const Bytes phone = phoneHEIC({16, 0, true, "Jane's Studio Monitor", true});
        if (!phone.empty()) writeFile(folder / "phone-grid.heic", phone);
        return 0;
    }
    JPEGMetadata m;
    m.exif = exifBlock();
    m.xmp = xmpPacket();
    m.iptc = iptcRecords();
    m.icc = iccProfile("sRGB IEC61966-2.1");
    m.comment = "Holiday at Jane's";
    writeFile(folder / "beach-photo.jpg", withJPEGMetadata(encodeJPEG(160, 120), m));
    writeFile(folder / "diagram.png", dirtyPNG());
    return 0;
}
