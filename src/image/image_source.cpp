#include "image/image_source.h"

#include <algorithm>

#include "image/bmp_container.h"
#include "image/exif_metadata.h"
#include "image/gif_container.h"
#include "image/heif_container.h"
#include "image/iso_boxes.h"
#include "image/jpeg_container.h"
#include "image/png_container.h"
#include "image/tiff_container.h"
#include "image/webp_container.h"

namespace tavrin::image {

using Case = ImageFormatError::Case;

std::optional<ImageFormat> sniffImageFormat(ByteSpan d, bool preferRaw) {
    if (d.size() < 12) return std::nullopt;
    if (d[0] == 0xFF && d[1] == 0xD8 && d[2] == 0xFF) return ImageFormat::jpeg;
    if (d[0] == 0x89 && startsWith(d.subspan(1), "PNG\r\n\x1A\n")) return ImageFormat::png;
    if (startsWith(d, "GIF87a") || startsWith(d, "GIF89a")) return ImageFormat::gif;
    if (startsWith(d, "RIFF") && startsWith(d.subspan(8), "WEBP")) return ImageFormat::webp;
    if (startsWith(d, "BM")) return ImageFormat::bmp;
    if (startsWith(d, "FUJIFILMCCD-RAW")) return ImageFormat::raw;
    if (startsWith(d.subspan(4), "ftyp")) {
        const std::string brand = text(d.subspan(8, 4));
        if (brand == "crx ") return ImageFormat::raw;
        if (brand == "heic" || brand == "heix" || brand == "mif1" || brand == "msf1" || brand == "heim" ||
            brand == "heis" || brand == "hevc" || brand == "hevx" || brand == "avif")
            return ImageFormat::heic;
        return std::nullopt;
    }
    if (startsWith(d, std::string_view("II*\0", 4)) || startsWith(d, std::string_view("MM\0*", 4)))
        return preferRaw ? ImageFormat::raw : ImageFormat::tiff;
    if (startsWith(d, "IIRO") || startsWith(d, "IIRS") || startsWith(d, std::string_view("IIU\0", 4)) ||
        startsWith(d, "MMOR"))
        return ImageFormat::raw;
    return std::nullopt;
}

std::string_view typeIdentifier(ImageFormat format) {
    switch (format) {
        case ImageFormat::jpeg: return "public.jpeg";
        case ImageFormat::png: return "public.png";
        case ImageFormat::tiff: return "public.tiff";
        case ImageFormat::heic: return "public.heic";
        case ImageFormat::webp: return "org.webmproject.webp";
        case ImageFormat::gif: return "com.compuserve.gif";
        case ImageFormat::bmp: return "com.microsoft.bmp";
        case ImageFormat::raw: return "public.camera-raw-image";
    }
    return "";
}

namespace {

// Canon CR3 keeps its TIFF structures in boxes CMT1 (IFD0), CMT2 (Exif) and CMT4 (GPS) inside
// a uuid box of the movie box; they are found with a bounded walk over the ISO boxes.
Properties readCR3Properties(ByteSpan d) {
    Properties frame;
    std::vector<ByteSpan> stack = {d};  // bodies whose boxes are still to be read
    std::size_t budget = 100000;
    while (!stack.empty()) {
        const ByteSpan level = stack.back();
        stack.pop_back();
        for (const auto& box : isoBoxes::boxesIn(level, budget)) {
            if (box.type == "moov" || (box.type == "uuid" && !box.body.empty())) stack.push_back(box.body);
            if (box.type == "CMT1" || box.type == "CMT2" || box.type == "CMT4") {
                // CMT2 and CMT4 hold a bare Exif or GPS directory as their first IFD; it is read
                // under its own tag names.
                TiffStructure tiff = parseTiff(box.body, 1);
                if (box.type != "CMT1") {
                    TiffPage page;
                    (box.type == "CMT2" ? page.exif : page.gps) = std::move(tiff.pages[0].main);
                    tiff.pages[0] = std::move(page);
                }
                Properties part;
                addExifProperties(tiff, 0, ExifContext::embedded, part);
                for (auto& [k, v] : part) {
                    if (v.kind() == MetadataValue::Kind::dictionary) mergeSubDictionary(frame, k, v.asDictionary());
                    else frame.insert_or_assign(k, v);
                }
            }
        }
    }
    return frame;
}

}  // namespace

Properties readRawProperties(ByteSpan d) {
    if (startsWith(d, "FUJIFILMCCD-RAW")) {
        // The header names the camera and points at an embedded JPEG, whose Exif describes the
        // shot, and at the sensor data, which newer bodies wrap in a TIFF structure of its own.
        Properties frame = jpegContainer::readProperties(slice(d, be32(d, 84), be32(d, 88)));
        const ByteSpan sensor = slice(d, be32(d, 100), be32(d, 104));
        if (startsWith(sensor, std::string_view("II*\0", 4)) || startsWith(sensor, std::string_view("MM\0*", 4))) {
            Properties fromTIFF;
            addExifProperties(parseTiff(sensor, 1), 0, ExifContext::embedded, fromTIFF);
            for (auto& [name, value] : fromTIFF) {
                if (value.kind() != MetadataValue::Kind::dictionary) continue;
                // What the JPEG's Exif says wins; the TIFF only adds what it lacks.
                Properties merged = value.asDictionary();
                if (const Properties* existing = subDictionary(frame, name))
                    for (const auto& [k, v] : *existing) merged.insert_or_assign(k, v);
                set(frame, name, MetadataValue::dictionary(std::move(merged)));
            }
        }
        std::string model = text(slice(d, 28, 32));
        model.erase(std::find(model.begin(), model.end(), '\0'), model.end());
        if (!model.empty()) {
            Properties raw;
            raw.emplace("CameraModel", MetadataValue::string(model));
            mergeSubDictionary(frame, key::raw, std::move(raw));
        }
        return frame;
    }
    if (startsWith(d.subspan(4), "ftyp")) return readCR3Properties(d);
    return tiffContainer::readRawProperties(d);
}

ImageSource ImageSource::create(Bytes data, bool preferRaw) {
    auto shared = std::make_shared<const Bytes>(std::move(data));
    const ByteSpan d = *shared;
    const auto format = sniffImageFormat(d, preferRaw);
    enforce(format.has_value(), Case::unknownFormat, "the leading bytes name no image format");
    std::vector<Properties> frames;
    switch (*format) {
        case ImageFormat::jpeg: frames.push_back(jpegContainer::readProperties(d)); break;
        case ImageFormat::png: frames.push_back(pngContainer::readProperties(d)); break;
        case ImageFormat::tiff: frames = tiffContainer::readFrames(d); break;
        case ImageFormat::webp: frames = webpContainer::readFrames(d); break;
        case ImageFormat::gif: frames = gifContainer::readFrames(d); break;
        case ImageFormat::heic: frames = heifContainer::readFrames(d); break;
        case ImageFormat::bmp: frames.push_back(bmpContainer::readProperties(d)); break;
        case ImageFormat::raw: frames.push_back(readRawProperties(d)); break;
    }
    return ImageSource(std::move(shared), *format, std::move(frames));
}

Bytes writeImage(const ImageSource& source, const std::vector<Properties>& filteredFrames) {
    enforce(!filteredFrames.empty(), Case::invalidStructure, "no frame properties to write");
    switch (source.format()) {
        case ImageFormat::jpeg: return jpegContainer::rebuild(source.bytes(), filteredFrames.front());
        case ImageFormat::png: return pngContainer::rebuild(source.bytes(), filteredFrames.front());
        case ImageFormat::tiff: return tiffContainer::rebuild(source.bytes(), filteredFrames);
        case ImageFormat::webp: return webpContainer::rebuild(source.bytes(), filteredFrames);
        case ImageFormat::gif: return gifContainer::rebuild(source.bytes(), filteredFrames);
        case ImageFormat::heic: return heifContainer::rebuild(source.bytes(), filteredFrames);
        case ImageFormat::bmp: return bmpContainer::rebuild(source.bytes());
        case ImageFormat::raw: break;
    }
    throw ImageFormatError(Case::unknownFormat, "this image format cannot be written");
}

Bytes writeLosslessJPEG(const ImageSource& source) {
    enforce(source.format() == ImageFormat::jpeg, Case::unknownFormat, "only a JPEG has a lossless path");
    return jpegContainer::losslessStrip(source.bytes());
}

}  // namespace tavrin::image
