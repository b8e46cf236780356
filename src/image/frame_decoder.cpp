#include "image/frame_decoder.h"

#include <memory>
#include <png.h>
#include <tiffio.h>
#include <turbojpeg.h>
#include <cstring>

namespace tavrin::image {

namespace {

using Case = ImageFormatError::Case;

void checkArea(std::uint64_t width, std::uint64_t height) {
    enforce(width >= 1 && height >= 1, Case::decodeFailed, "a frame has no pixels");
    enforce(width * height <= maxDecodedPixels, Case::limitExceeded, "a frame is too large to decode");
}

std::vector<FrameSize> decodeJPEG(ByteSpan d) {
    struct Free {
        void operator()(void* h) const { tjDestroy(h); }
    };
    std::unique_ptr<void, Free> handle(tjInitDecompress());
    enforce(handle != nullptr, Case::decodeFailed, "libjpeg-turbo cannot start");
    int width = 0, height = 0, subsampling = 0, colorspace = 0;
    enforce(tjDecompressHeader3(handle.get(), d.data(), static_cast<unsigned long>(d.size()), &width, &height,
                                &subsampling, &colorspace) == 0,
            Case::decodeFailed, "the JPEG header does not decode");
    checkArea(static_cast<std::uint64_t>(width), static_cast<std::uint64_t>(height));
    const int format = colorspace == TJCS_CMYK || colorspace == TJCS_YCCK ? TJPF_CMYK
                       : colorspace == TJCS_GRAY                         ? TJPF_GRAY
                                                                         : TJPF_RGB;
    std::vector<unsigned char> pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) *
                                      static_cast<std::size_t>(tjPixelSize[format]));
    // A warning (premature end of data, corrupt entropy data) counts as a failed decode.
    enforce(tjDecompress2(handle.get(), d.data(), static_cast<unsigned long>(d.size()), pixels.data(), width, 0, height,
                          format, TJFLAG_STOPONWARNING) == 0,
            Case::decodeFailed, "the JPEG scan does not decode");
    return {{static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height)}};
}

std::vector<FrameSize> decodePNG(ByteSpan d) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    enforce(png_image_begin_read_from_memory(&image, d.data(), d.size()) != 0, Case::decodeFailed,
            "the PNG header does not decode");
    struct Guard {
        png_image* image;
        ~Guard() { png_image_free(image); }
    } guard{&image};
    checkArea(image.width, image.height);
    image.format = PNG_FORMAT_RGBA;
    std::vector<png_byte> pixels(PNG_IMAGE_SIZE(image));
    enforce(png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr) != 0, Case::decodeFailed,
            "the PNG image data does not decode");
    return {{image.width, image.height}};
}

// libtiff reads from memory through these procedures.
struct MemoryFile {
    ByteSpan data;
    toff_t position = 0;
};

tmsize_t tiffRead(thandle_t h, void* buffer, tmsize_t size) {
    auto* f = static_cast<MemoryFile*>(h);
    if (size < 0 || f->position >= f->data.size()) return 0;
    const std::size_t n = std::min<std::size_t>(static_cast<std::size_t>(size), f->data.size() - f->position);
    std::memcpy(buffer, f->data.data() + f->position, n);
    f->position += n;
    return static_cast<tmsize_t>(n);
}
tmsize_t tiffWrite(thandle_t, void*, tmsize_t) { return -1; }
toff_t tiffSeek(thandle_t h, toff_t offset, int whence) {
    auto* f = static_cast<MemoryFile*>(h);
    const toff_t base = whence == SEEK_CUR ? f->position : whence == SEEK_END ? f->data.size() : 0;
    f->position = base + offset;
    return f->position;
}
int tiffClose(thandle_t) { return 0; }
toff_t tiffSize(thandle_t h) { return static_cast<MemoryFile*>(h)->data.size(); }
int tiffQuiet(TIFF*, void*, const char*, const char*, va_list) { return 1; }

std::vector<FrameSize> decodeTIFF(ByteSpan d) {
    MemoryFile file{d, 0};
    TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
    TIFFOpenOptionsSetErrorHandlerExtR(options, tiffQuiet, nullptr);
    TIFFOpenOptionsSetWarningHandlerExtR(options, tiffQuiet, nullptr);
    TIFF* tif = TIFFClientOpenExt("memory", "rm", &file, tiffRead, tiffWrite, tiffSeek, tiffClose, tiffSize, nullptr,
                                  nullptr, options);
    TIFFOpenOptionsFree(options);
    enforce(tif != nullptr, Case::decodeFailed, "libtiff cannot open the data");
    struct Close {
        TIFF* t;
        ~Close() { TIFFClose(t); }
    } close{tif};
    std::vector<FrameSize> out;
    do {
        std::uint32_t width = 0, height = 0;
        TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &width);
        TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &height);
        checkArea(width, height);
        std::vector<std::uint32_t> pixels(static_cast<std::size_t>(width) * height);
        enforce(TIFFReadRGBAImageOriented(tif, width, height, pixels.data(), ORIENTATION_TOPLEFT, 1) == 1,
                Case::decodeFailed, "a TIFF page does not decode");
        out.push_back({width, height});
        enforce(out.size() <= 65536, Case::limitExceeded, "too many TIFF pages");
    } while (TIFFReadDirectory(tif) == 1);
    return out;
}

}  // namespace

std::vector<FrameSize> decodeAllFrames(ImageFormat format, ByteSpan data) {
    switch (format) {
        case ImageFormat::jpeg: return decodeJPEG(data);
        case ImageFormat::png: return decodePNG(data);
        case ImageFormat::tiff: return decodeTIFF(data);
        default: break;
    }
    throw ImageFormatError(Case::decodeFailed, "no decoder for this format");
}

}  // namespace tavrin::image
