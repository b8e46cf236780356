// Writes the demo's dirty photo and diagram into the folder given, from the test fixture code.
#include <cstdio>
#include <filesystem>

#include "image_fixtures.h"
#include "support/test_support.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_image_samples <folder>\n");
        return 2;
    }
    using namespace tavrin::testing::images;
    const std::filesystem::path folder = argv[1];
    JPEGMetadata m;
    m.exif = exifBlock();
    m.xmp = xmpPacket();
    m.iptc = iptcRecords();
    m.icc = iccProfile("sRGB IEC61966-2.1");
    m.comment = "Holiday at Jane's";
    tavrin::testing::writeFile(folder / "beach-photo.jpg", withJPEGMetadata(encodeJPEG(160, 120), m));
    tavrin::testing::writeFile(folder / "diagram.png", dirtyPNG());
    return 0;
}
