#pragma once
// The decoding libraries that are loaded on first use rather than at start-up. libheif brings in
// every HEVC and AV1 codec it can decode with (x265, libde265, dav1d, aom) and libtiff its six
// compression libraries; loading them would cost every run of the program, while only the
// verification of HEIF and TIFF files needs them.

#include <libheif/heif.h>
#include <tiffio.h>

namespace tavrin::image {

#define TAVRIN_HEIF_FUNCTIONS(X)                    \
    X(heif_context_alloc)                           \
    X(heif_context_free)                            \
    X(heif_context_set_max_decoding_threads)        \
    X(heif_context_read_from_memory_without_copy)   \
    X(heif_context_get_number_of_top_level_images)  \
    X(heif_context_get_image_handle)                \
    X(heif_image_handle_release)                    \
    X(heif_image_handle_get_width)                  \
    X(heif_image_handle_get_height)                 \
    X(heif_decode_image)                            \
    X(heif_image_get_primary_width)                 \
    X(heif_image_get_primary_height)                \
    X(heif_image_release)

#define TAVRIN_TIFF_FUNCTIONS(X)             \
    X(TIFFOpenOptionsAlloc)                  \
    X(TIFFOpenOptionsFree)                   \
    X(TIFFOpenOptionsSetErrorHandlerExtR)    \
    X(TIFFOpenOptionsSetWarningHandlerExtR)  \
    X(TIFFClientOpenExt)                     \
    X(TIFFClose)                             \
    X(TIFFGetField)                          \
    X(TIFFReadRGBAImageOriented)             \
    X(TIFFReadDirectory)

#define TAVRIN_DECLARE_FUNCTION(name) decltype(&::name) name = nullptr;
struct HEIFFunctions {
    TAVRIN_HEIF_FUNCTIONS(TAVRIN_DECLARE_FUNCTION)
};
struct TIFFFunctions {
    TAVRIN_TIFF_FUNCTIONS(TAVRIN_DECLARE_FUNCTION)
};
#undef TAVRIN_DECLARE_FUNCTION

// Each library's functions, or null when this system cannot load it. Loaded once, then only read.
const HEIFFunctions* heifLibrary();
const TIFFFunctions* tiffLibrary();

}  // namespace tavrin::image
