#pragma once
// An image opened from bytes: its format, its frames and the property tree of each frame. It
// reads containers, never pixels.

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "image/image_properties.h"

namespace tavrin::image {

enum class ImageFormat { jpeg, png, tiff, heic, webp, gif, bmp, raw };

// The format the leading bytes announce; absent when they announce none we know. TIFF-based
// raw files look like TIFF; only `preferRaw` (the file was named as a raw file) tells them apart.
std::optional<ImageFormat> sniffImageFormat(ByteSpan data, bool preferRaw = false);

// "public.jpeg", "public.png", …
std::string_view typeIdentifier(ImageFormat format);

class ImageSource {
public:
    // Parses the container and every frame's properties. Throws `ImageFormatError`.
    static ImageSource create(Bytes data, bool preferRaw = false);

    ImageFormat format() const { return format_; }
    std::string_view typeIdentifier() const { return image::typeIdentifier(format_); }
    std::size_t count() const { return frames_.size(); }
    const Properties& propertiesAt(std::size_t index) const { return frames_.at(index); }
    ByteSpan bytes() const { return *data_; }

private:
    ImageSource(std::shared_ptr<const Bytes> data, ImageFormat format, std::vector<Properties> frames)
        : data_(std::move(data)), format_(format), frames_(std::move(frames)) {}
    std::shared_ptr<const Bytes> data_;
    ImageFormat format_;
    std::vector<Properties> frames_;
};

// The first frame's properties of a raw file: TIFF-based raws through the IFD reader, CR3
// through its boxes, RAF through its header and embedded JPEG.
Properties readRawProperties(ByteSpan data);

// The container of `source` rebuilt with frame i's metadata from `filteredFrames[i]` (the last
// entry serves any further frames); no pixels are re-encoded. Throws `ImageFormatError`.
Bytes writeImage(const ImageSource& source, const std::vector<Properties>& filteredFrames);

// A JPEG with only its structural facts; throws `ImageFormatError` for anything but a JPEG.
Bytes writeLosslessJPEG(const ImageSource& source);

}  // namespace tavrin::image
