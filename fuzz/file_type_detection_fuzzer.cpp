// File-type detection from the first bytes of a file, under several names.
#include <cstdint>
#include <cstddef>

#include "model/file_type_detector.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const char* names[] = {"a.bin", "a.docx", "a.doc", "a"};
    for (const char* name : names) {
        try {
            tavrin::FileTypeDetector::detectFromMagicBytes(data, size < 16 ? size : 16, name);
        } catch (const tavrin::FileTypeDetectionError&) {
        }
    }
    return 0;
}
