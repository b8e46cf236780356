#include "image/frame_decoder.h"

#include <gif_lib.h>
#include <png.h>
#include <turbojpeg.h>
#include <webp/decode.h>
#include <webp/demux.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "image/bmp_container.h"
#include "image/decoder_libraries.h"
#include "image/heif_container.h"

namespace tavrin::image {

namespace {

using Case = ImageFormatError::Case;

// A canvas or frame size that may be decoded at all.
void checkArea(std::uint64_t width, std::uint64_t height) {
    enforce(width >= 1 && height >= 1, Case::decodeFailed, "a frame has no pixels");
    enforce(width * height <= maxDecodedPixels, Case::limitExceeded, "a frame is too large to decode");
}

// The pixels one file may still decode; every frame takes its share before it is decoded.
struct PixelBudget {
    std::uint64_t used = 0;
    void take(std::uint64_t width, std::uint64_t height) {
        checkArea(width, height);
        enforce(width * height <= maxTotalDecodedPixels - used, Case::limitExceeded,
                "the frames hold more than 1,000 megapixels together");
        used += width * height;
    }
};

std::vector<FrameSize> decodeJPEG(ByteSpan d, PixelBudget& budget) {
    struct Free {
        void operator()(void* h) const { tjDestroy(h); }
    };
    std::unique_ptr<void, Free> handle(tjInitDecompress());
    enforce(handle != nullptr, Case::decodeFailed, "libjpeg-turbo cannot start");
    int width = 0, height = 0, subsampling = 0, colorspace = 0;
    enforce(tjDecompressHeader3(handle.get(), d.data(), static_cast<unsigned long>(d.size()), &width, &height,
                                &subsampling, &colorspace) == 0,
            Case::decodeFailed, "the JPEG header does not decode");
    budget.take(static_cast<std::uint64_t>(width), static_cast<std::uint64_t>(height));
    // A warning (premature end of data, corrupt entropy data) counts as a failed decode. The
    // proof needs every coefficient decoded, not display-quality pixels: YCbCr and grey images
    // are decoded to their planes, without colour conversion or upsampling, and with the fast
    // inverse DCT.
    const int flags = TJFLAG_STOPONWARNING | TJFLAG_FASTDCT;
    if (colorspace == TJCS_YCbCr || colorspace == TJCS_GRAY) {
        const unsigned long size = tjBufSizeYUV2(width, 1, height, subsampling);
        enforce(size != static_cast<unsigned long>(-1), Case::decodeFailed, "the JPEG subsampling is unknown");
        std::vector<unsigned char> planes(size);
        enforce(tjDecompressToYUV2(handle.get(), d.data(), static_cast<unsigned long>(d.size()),
                                                      planes.data(), width, 1, height, flags) == 0,
                Case::decodeFailed, "the JPEG scan does not decode");
    } else {
        const int format = colorspace == TJCS_CMYK || colorspace == TJCS_YCCK ? TJPF_CMYK : TJPF_RGB;
        std::vector<unsigned char> pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) *
                                          static_cast<std::size_t>(tjPixelSize[format]));
        enforce(tjDecompress2(handle.get(), d.data(), static_cast<unsigned long>(d.size()), pixels.data(), width, 0,
                              height, format, flags) == 0,
                Case::decodeFailed, "the JPEG scan does not decode");
    }
    return {{static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height)}};
}

std::vector<FrameSize> decodePNG(ByteSpan d, PixelBudget& budget) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    enforce(png_image_begin_read_from_memory(&image, d.data(), d.size()) != 0, Case::decodeFailed,
            "the PNG header does not decode");
    struct Guard {
        png_image* image;
        ~Guard() { png_image_free(image); }
    } guard{&image};
    budget.take(image.width, image.height);
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

std::vector<FrameSize> decodeTIFF(ByteSpan d, PixelBudget& budget) {
    const TIFFFunctions* tiff = tiffLibrary();
    enforce(tiff != nullptr, Case::decodeFailed, "libtiff cannot be loaded");
    MemoryFile file{d, 0};
    TIFFOpenOptions* options = tiff->TIFFOpenOptionsAlloc();
    tiff->TIFFOpenOptionsSetErrorHandlerExtR(options, tiffQuiet, nullptr);
    tiff->TIFFOpenOptionsSetWarningHandlerExtR(options, tiffQuiet, nullptr);
    TIFF* tif = tiff->TIFFClientOpenExt("memory", "rm", &file, tiffRead, tiffWrite, tiffSeek, tiffClose, tiffSize, nullptr,
                                  nullptr, options);
    tiff->TIFFOpenOptionsFree(options);
    enforce(tif != nullptr, Case::decodeFailed, "libtiff cannot open the data");
    struct Close {
        const TIFFFunctions* tiff;
        TIFF* t;
        ~Close() { tiff->TIFFClose(t); }
    } close{tiff, tif};
    std::vector<FrameSize> out;
    do {
        std::uint32_t width = 0, height = 0;
        tiff->TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &width);
        tiff->TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &height);
        budget.take(width, height);
        std::vector<std::uint32_t> pixels(static_cast<std::size_t>(width) * height);
        enforce(tiff->TIFFReadRGBAImageOriented(tif, width, height, pixels.data(), ORIENTATION_TOPLEFT, 1) == 1,
                Case::decodeFailed, "a TIFF page does not decode");
        out.push_back({width, height});
        enforce(out.size() <= 65536, Case::limitExceeded, "too many TIFF pages");
    } while (tiff->TIFFReadDirectory(tif) == 1);
    return out;
}

// Still and animated WebP: the demuxer validates the chunk structure, then every frame's own
// bitstream (alpha included) is decoded at its own size. Composing frames on the canvas proves
// nothing more and would cost two canvases, however small the frames.
std::vector<FrameSize> decodeWebP(ByteSpan d, PixelBudget& budget) {
    WebPData data{d.data(), d.size()};
    struct FreeDemuxer {
        void operator()(WebPDemuxer* p) const { WebPDemuxDelete(p); }
    };
    std::unique_ptr<WebPDemuxer, FreeDemuxer> demuxer(WebPDemux(&data));
    enforce(demuxer != nullptr, Case::decodeFailed, "the WebP structure does not decode");
    const std::uint32_t width = WebPDemuxGetI(demuxer.get(), WEBP_FF_CANVAS_WIDTH);
    const std::uint32_t height = WebPDemuxGetI(demuxer.get(), WEBP_FF_CANVAS_HEIGHT);
    const std::uint32_t count = WebPDemuxGetI(demuxer.get(), WEBP_FF_FRAME_COUNT);
    checkArea(width, height);
    WebPIterator frame;
    enforce(count >= 1 && WebPDemuxGetFrame(demuxer.get(), 1, &frame) != 0, Case::decodeFailed, "a WebP has no frame");
    struct ReleaseIterator {
        WebPIterator* i;
        ~ReleaseIterator() { WebPDemuxReleaseIterator(i); }
    } release{&frame};
    std::vector<FrameSize> out;
    do {
        enforce(frame.width >= 1 && frame.height >= 1 && static_cast<std::uint64_t>(frame.x_offset) + frame.width <= width &&
                    static_cast<std::uint64_t>(frame.y_offset) + frame.height <= height,
                Case::decodeFailed, "a WebP frame lies outside its canvas");
        budget.take(frame.width, frame.height);
        WebPDecoderConfig config;
        enforce(WebPInitDecoderConfig(&config) != 0, Case::decodeFailed, "libwebp cannot start");
        config.output.colorspace = MODE_RGBA;
        const VP8StatusCode status = WebPDecode(frame.fragment.bytes, frame.fragment.size, &config);
        const bool sizeMatches = config.output.width == frame.width && config.output.height == frame.height;
        WebPFreeDecBuffer(&config.output);
        enforce(status == VP8_STATUS_OK && sizeMatches, Case::decodeFailed, "a WebP frame does not decode");
        out.push_back({width, height});
    } while (WebPDemuxNextFrame(&frame) != 0);
    enforce(out.size() == count, Case::decodeFailed, "a WebP frame does not decode");
    return out;
}

// GIF frame by frame, one row at a time, so that a long animation never sits in memory whole.
std::vector<FrameSize> decodeGIF(ByteSpan d, PixelBudget& budget) {
    struct Input {
        ByteSpan data;
        std::size_t at = 0;
    } input{d, 0};
    auto readFn = [](GifFileType* g, GifByteType* buffer, int size) -> int {
        auto* in = static_cast<Input*>(g->UserData);
        const std::size_t n = std::min<std::size_t>(static_cast<std::size_t>(std::max(size, 0)), in->data.size() - in->at);
        std::memcpy(buffer, in->data.data() + in->at, n);
        in->at += n;
        return static_cast<int>(n);
    };
    int error = 0;
    GifFileType* gif = DGifOpen(&input, readFn, &error);
    enforce(gif != nullptr, Case::decodeFailed, "the GIF header does not decode");
    struct Close {
        GifFileType* g;
        ~Close() {
            int e = 0;
            DGifCloseFile(g, &e);
        }
    } close{gif};
    const std::uint32_t width = static_cast<std::uint32_t>(std::max(gif->SWidth, 0));
    const std::uint32_t height = static_cast<std::uint32_t>(std::max(gif->SHeight, 0));
    checkArea(width, height);
    std::vector<FrameSize> out;
    std::vector<GifPixelType> row;
    GifRecordType record = UNDEFINED_RECORD_TYPE;
    do {
        enforce(DGifGetRecordType(gif, &record) == GIF_OK, Case::decodeFailed, "a GIF block does not decode");
        if (record == IMAGE_DESC_RECORD_TYPE) {
            enforce(DGifGetImageDesc(gif) == GIF_OK, Case::decodeFailed, "a GIF image descriptor does not decode");
            const int w = gif->Image.Width, h = gif->Image.Height;
            budget.take(static_cast<std::uint64_t>(std::max(w, 0)), static_cast<std::uint64_t>(std::max(h, 0)));
            enforce(gif->Image.ColorMap || gif->SColorMap, Case::decodeFailed, "a GIF frame has no colour table");
            row.resize(static_cast<std::size_t>(w));
            for (int y = 0; y < h; ++y)
                enforce(DGifGetLine(gif, row.data(), w) == GIF_OK, Case::decodeFailed, "a GIF frame does not decode");
            out.push_back({width, height});
            enforce(out.size() <= 65536, Case::limitExceeded, "a GIF has more than 65,536 frames");
            // The frame records are not needed; dropping them keeps memory flat over many frames.
            if (gif->ImageCount > 0) {
                GifFreeSavedImages(gif);
                gif->SavedImages = nullptr;
                gif->ImageCount = 0;
            }
        } else if (record == EXTENSION_RECORD_TYPE) {
            int code = 0;
            GifByteType* block = nullptr;
            enforce(DGifGetExtension(gif, &code, &block) == GIF_OK, Case::decodeFailed, "a GIF extension does not decode");
            while (block)
                enforce(DGifGetExtensionNext(gif, &block) == GIF_OK, Case::decodeFailed, "a GIF extension does not decode");
        }
    } while (record != TERMINATE_RECORD_TYPE);
    enforce(!out.empty(), Case::decodeFailed, "a GIF has no frame");
    return out;
}

// Every top-level image of a HEIF file, decoded with its transformations applied.
std::vector<FrameSize> decodeHEIF(ByteSpan d, PixelBudget& budget) {
    const HEIFFunctions* heif = heifLibrary();
    enforce(heif != nullptr, Case::decodeFailed, "libheif cannot be loaded");
    struct FreeContext {
        decltype(&::heif_context_free) free;
        void operator()(heif_context* c) const { free(c); }
    };
    std::unique_ptr<heif_context, FreeContext> context(heif->heif_context_alloc(), FreeContext{heif->heif_context_free});
    enforce(context != nullptr, Case::decodeFailed, "libheif cannot start");
    // The tiles of a grid are decoded one after the other on this thread: decoded in parallel,
    // libheif 1.15 with libde265 puts other tiles' or auxiliary images' pixels into a grid now
    // and then, so the result would prove nothing.
    heif->heif_context_set_max_decoding_threads(context.get(), 0);
    enforce(heif->heif_context_read_from_memory_without_copy(context.get(), d.data(), d.size(), nullptr).code == heif_error_Ok,
            Case::decodeFailed, "the HEIF structure does not decode");
    const int count = heif->heif_context_get_number_of_top_level_images(context.get());
    enforce(count >= 1 && count <= 65536, Case::decodeFailed, "a HEIF file has no image");
    // The images the container reports as frames; libheif also lists the tiles of a grid when
    // they are not marked hidden, and decodes those at the grid's size.
    const std::vector<std::uint32_t> ids = heifContainer::frameItemIDs(d);
    std::vector<FrameSize> out;
    for (std::uint32_t id : ids) {
        heif_image_handle* handle = nullptr;
        enforce(heif->heif_context_get_image_handle(context.get(), id, &handle).code == heif_error_Ok, Case::decodeFailed,
                "a HEIF image does not open");
        struct ReleaseHandle {
            const HEIFFunctions* heif;
            heif_image_handle* h;
            ~ReleaseHandle() { heif->heif_image_handle_release(h); }
        } releaseHandle{heif, handle};
        const int w = heif->heif_image_handle_get_width(handle), h = heif->heif_image_handle_get_height(handle);
        budget.take(static_cast<std::uint64_t>(std::max(w, 0)), static_cast<std::uint64_t>(std::max(h, 0)));
        heif_image* image = nullptr;
        enforce(heif->heif_decode_image(handle, &image, heif_colorspace_undefined, heif_chroma_undefined, nullptr).code ==
                    heif_error_Ok,
                Case::decodeFailed, "a HEIF image does not decode");
        const int dw = heif->heif_image_get_primary_width(image), dh = heif->heif_image_get_primary_height(image);
        heif->heif_image_release(image);
        enforce(dw == w && dh == h, Case::decodeFailed, "a HEIF image decodes to another size");
        out.push_back({static_cast<std::uint32_t>(w), static_cast<std::uint32_t>(h)});
    }
    return out;
}

// Our own bitmap decoder: every row of the pixel array, or every RLE command, is read.
std::vector<FrameSize> decodeBMP(ByteSpan d, PixelBudget& budget) {
    const auto l = bmpContainer::parse(d);
    const auto width = static_cast<std::uint32_t>(l.width);
    const auto height = static_cast<std::uint32_t>(std::llabs(l.height));
    budget.take(width, height);
    const std::size_t paletteEntries = l.palette.size() / (l.headerSize == 12 ? 3 : 4);
    if (l.compression == 1 || l.compression == 2) {
        // RLE8 and RLE4: commands of (count, value) pairs with escapes for end of line, end of
        // bitmap, a jump and an absolute run.
        const bool rle4 = l.compression == 2;
        const ByteSpan p = l.pixels;
        std::size_t at = 0;
        std::uint64_t x = 0, y = 0;
        while (true) {
            enforce(at + 2 <= p.size(), Case::decodeFailed, "a compressed bitmap ends early");
            const std::uint8_t count = p[at], value = p[at + 1];
            at += 2;
            if (count > 0) {
                x += count;
            } else if (value == 0) {
                x = 0;
                ++y;
            } else if (value == 1) {
                break;
            } else if (value == 2) {
                enforce(at + 2 <= p.size(), Case::decodeFailed, "a compressed bitmap ends early");
                x += p[at];
                y += p[at + 1];
                at += 2;
            } else {
                const std::size_t bytes = rle4 ? (value + 1u) / 2 : value;
                enforce(at + bytes <= p.size(), Case::decodeFailed, "a compressed bitmap ends early");
                for (std::size_t i = 0; i < bytes; ++i)
                    enforce(rle4 ? ((p[at + i] >> 4) < std::max<std::size_t>(paletteEntries, 1))
                                 : p[at + i] < std::max<std::size_t>(paletteEntries, 1),
                            Case::decodeFailed, "a bitmap pixel has no palette entry");
                x += value;
                at += (bytes + 1) & ~std::size_t{1};
            }
            enforce(x <= width && y <= height, Case::decodeFailed, "a compressed bitmap draws outside the image");
        }
        return {{width, height}};
    }
    if (l.bitCount <= 8) enforce(paletteEntries > 0, Case::decodeFailed, "a bitmap has no palette");
    const std::size_t stride = (static_cast<std::size_t>(width) * l.bitCount + 31) / 32 * 4;
    std::vector<std::uint8_t> rgba(static_cast<std::size_t>(width) * 4);
    for (std::uint32_t y = 0; y < height; ++y) {
        const ByteSpan row = l.pixels.subspan(static_cast<std::size_t>(y) * stride, stride);
        for (std::uint32_t x = 0; x < width; ++x) {
            std::uint32_t index = 0;
            switch (l.bitCount) {
                case 1: index = (row[x / 8] >> (7 - x % 8)) & 1; break;
                case 4: index = (row[x / 2] >> (x % 2 ? 0 : 4)) & 15; break;
                case 8: index = row[x]; break;
                default: break;
            }
            if (l.bitCount <= 8) {
                // An index past the palette shows as black, as common viewers do.
                const std::size_t entry = std::min<std::size_t>(index, paletteEntries - 1) * (l.headerSize == 12 ? 3 : 4);
                std::memcpy(&rgba[4 * x], l.palette.data() + entry, 3);
            } else {
                const std::size_t bytes = l.bitCount / 8u;
                std::memcpy(&rgba[4 * x], row.data() + x * bytes, std::min<std::size_t>(bytes, 4));
            }
        }
    }
    return {{width, height}};
}

}  // namespace

std::vector<FrameSize> decodeAllFrames(ImageFormat format, ByteSpan data) {
    PixelBudget budget;
    switch (format) {
        case ImageFormat::jpeg: return decodeJPEG(data, budget);
        case ImageFormat::png: return decodePNG(data, budget);
        case ImageFormat::tiff: return decodeTIFF(data, budget);
        case ImageFormat::webp: return decodeWebP(data, budget);
        case ImageFormat::gif: return decodeGIF(data, budget);
        case ImageFormat::heic: return decodeHEIF(data, budget);
        case ImageFormat::bmp: return decodeBMP(data, budget);
        case ImageFormat::raw: break;
    }
    throw ImageFormatError(Case::decodeFailed, "no decoder for this format");
}

}  // namespace tavrin::image
