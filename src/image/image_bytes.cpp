#include "image/image_bytes.h"

#include <zlib.h>

namespace tavrin::image {

namespace {
void appendCodePoint(std::string& out, std::uint32_t cp) {
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | cp >> 6));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | cp >> 12));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | cp >> 18));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}
}  // namespace

std::string latin1ToUTF8(ByteSpan bytes) {
    std::string out;
    out.reserve(bytes.size());
    for (std::uint8_t b : bytes) appendCodePoint(out, b);
    return out;
}

std::string utf16ToUTF8(ByteSpan bytes, bool littleEndian) {
    std::string out;
    const std::size_t units = bytes.size() / 2;
    auto unit = [&](std::size_t i) -> std::uint32_t {
        return littleEndian ? (bytes[2 * i] | bytes[2 * i + 1] << 8) : (bytes[2 * i] << 8 | bytes[2 * i + 1]);
    };
    for (std::size_t i = 0; i < units; ++i) {
        std::uint32_t u = unit(i);
        if (u >= 0xD800 && u < 0xDC00 && i + 1 < units) {
            const std::uint32_t low = unit(i + 1);
            if (low >= 0xDC00 && low < 0xE000) {
                appendCodePoint(out, 0x10000 + ((u - 0xD800) << 10) + (low - 0xDC00));
                ++i;
                continue;
            }
        }
        if (u >= 0xD800 && u < 0xE000) u = 0xFFFD;
        appendCodePoint(out, u);
    }
    return out;
}

Bytes inflateZlib(ByteSpan compressed, std::size_t maxOutput) {
    z_stream z{};
    enforce(inflateInit(&z) == Z_OK, ImageFormatError::Case::decodeFailed, "zlib cannot start");
    Bytes out;
    std::uint8_t buffer[16384];
    z.next_in = const_cast<Bytef*>(compressed.data());
    z.avail_in = static_cast<uInt>(compressed.size());
    int status = Z_OK;
    while (status == Z_OK) {
        z.next_out = buffer;
        z.avail_out = sizeof buffer;
        status = inflate(&z, Z_NO_FLUSH);
        const std::size_t produced = sizeof buffer - z.avail_out;
        if (out.size() + produced > maxOutput) {
            inflateEnd(&z);
            throw ImageFormatError(ImageFormatError::Case::limitExceeded, "compressed metadata expands too far");
        }
        out.insert(out.end(), buffer, buffer + produced);
        if (status == Z_BUF_ERROR && z.avail_in == 0) break;
    }
    inflateEnd(&z);
    enforce(status == Z_STREAM_END, ImageFormatError::Case::invalidStructure, "compressed metadata is damaged");
    return out;
}

Bytes deflateZlib(ByteSpan data) {
    uLongf size = compressBound(static_cast<uLong>(data.size()));
    Bytes out(size);
    enforce(compress2(out.data(), &size, data.data(), static_cast<uLong>(data.size()), 9) == Z_OK,
            ImageFormatError::Case::invalidStructure, "zlib cannot compress");
    out.resize(size);
    return out;
}

}  // namespace tavrin::image
