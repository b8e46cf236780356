#include "image/decoder_libraries.h"

#include <dlfcn.h>

#include <optional>
#include <string>

namespace tavrin::image {

namespace {

#define TAVRIN_RESOLVE_FUNCTION(name)                                              \
    functions.name = reinterpret_cast<decltype(functions.name)>(::dlsym(library, #name)); \
    if (!functions.name) return std::nullopt;

std::optional<HEIFFunctions> loadHEIF() {
    // The soname carries the major version: libheif.so.1 for every 1.x release.
    const std::string soname = "libheif.so." + std::to_string(LIBHEIF_NUMERIC_VERSION >> 24);
    void* library = ::dlopen(soname.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) return std::nullopt;
    HEIFFunctions functions;
    TAVRIN_HEIF_FUNCTIONS(TAVRIN_RESOLVE_FUNCTION)
    return functions;
}

std::optional<TIFFFunctions> loadTIFF() {
    // libtiff 4.5 moved to soname 6.
    void* library = ::dlopen(TIFFLIB_AT_LEAST(4, 5, 0) ? "libtiff.so.6" : "libtiff.so.5", RTLD_NOW | RTLD_LOCAL);
    if (!library) return std::nullopt;
    TIFFFunctions functions;
    TAVRIN_TIFF_FUNCTIONS(TAVRIN_RESOLVE_FUNCTION)
    return functions;
}

#undef TAVRIN_RESOLVE_FUNCTION

}  // namespace

const HEIFFunctions* heifLibrary() {
    static const std::optional<HEIFFunctions> loaded = loadHEIF();
    return loaded ? &*loaded : nullptr;
}

const TIFFFunctions* tiffLibrary() {
    static const std::optional<TIFFFunctions> loaded = loadTIFF();
    return loaded ? &*loaded : nullptr;
}

}  // namespace tavrin::image
