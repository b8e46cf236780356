#pragma once
// Bounded reads of untrusted image bytes and the small writers the containers share. Every
// offset and length taken from a file goes through `enforce` or `slice` before it is used.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "image/image_errors.h"
#include "model/byte_order.h"
#include "model/enforce.h"

namespace tavrin::image {

using Bytes = std::vector<std::uint8_t>;
using ByteSpan = std::span<const std::uint8_t>;

// `length` bytes at `offset`; throws `truncated` when they are not all inside `data`.
inline ByteSpan slice(ByteSpan data, std::size_t offset, std::size_t length) {
    enforce(offset <= data.size() && length <= data.size() - offset, ImageFormatError::Case::truncated,
            "a length or offset points past the end of the data");
    return data.subspan(offset, length);
}

inline bool fits(ByteSpan data, std::size_t offset, std::size_t length) {
    return offset <= data.size() && length <= data.size() - offset;
}

// Integers at `at`; throw `truncated` when their bytes are not all inside `d`.
inline std::uint16_t be16(ByteSpan d, std::size_t at) { return bytes::be16(slice(d, at, 2).data()); }
inline std::uint32_t be32(ByteSpan d, std::size_t at) { return bytes::be32(slice(d, at, 4).data()); }
inline std::uint64_t be64(ByteSpan d, std::size_t at) { return bytes::be64(slice(d, at, 8).data()); }
inline std::uint16_t le16(ByteSpan d, std::size_t at) { return bytes::le16(slice(d, at, 2).data()); }
inline std::uint32_t le32(ByteSpan d, std::size_t at) { return bytes::le32(slice(d, at, 4).data()); }

// Byte order of a TIFF structure.
struct Endian {
    bool little = false;
    std::uint16_t u16(ByteSpan d, std::size_t at) const { return little ? le16(d, at) : be16(d, at); }
    std::uint32_t u32(ByteSpan d, std::size_t at) const { return little ? le32(d, at) : be32(d, at); }
    void put16(Bytes& out, std::uint16_t v) const;
    void put32(Bytes& out, std::uint32_t v) const;
    void set32(Bytes& out, std::size_t at, std::uint32_t v) const;
};

inline void putBE16(Bytes& out, std::uint16_t v) {
    out.push_back(static_cast<std::uint8_t>(v >> 8));
    out.push_back(static_cast<std::uint8_t>(v));
}
inline void putBE32(Bytes& out, std::uint32_t v) {
    for (int s = 24; s >= 0; s -= 8) out.push_back(static_cast<std::uint8_t>(v >> s));
}
inline void putLE16(Bytes& out, std::uint16_t v) {
    out.push_back(static_cast<std::uint8_t>(v));
    out.push_back(static_cast<std::uint8_t>(v >> 8));
}
inline void putLE32(Bytes& out, std::uint32_t v) {
    for (int s = 0; s <= 24; s += 8) out.push_back(static_cast<std::uint8_t>(v >> s));
}
inline void append(Bytes& out, ByteSpan bytes) { out.insert(out.end(), bytes.begin(), bytes.end()); }
inline void append(Bytes& out, std::string_view text) { out.insert(out.end(), text.begin(), text.end()); }

inline void Endian::put16(Bytes& out, std::uint16_t v) const { little ? putLE16(out, v) : putBE16(out, v); }
inline void Endian::put32(Bytes& out, std::uint32_t v) const { little ? putLE32(out, v) : putBE32(out, v); }
inline void Endian::set32(Bytes& out, std::size_t at, std::uint32_t v) const {
    for (int i = 0; i < 4; ++i)
        out[at + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(little ? v >> (8 * i) : v >> (24 - 8 * i));
}

inline bool startsWith(ByteSpan data, std::string_view prefix) {
    return data.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), data.begin(),
                                                      [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; });
}
inline std::string text(ByteSpan bytes) { return std::string(bytes.begin(), bytes.end()); }

// Latin-1 bytes (PNG tEXt, IPTC without a declared character set) as UTF-8.
std::string latin1ToUTF8(ByteSpan bytes);
// UTF-16 code units as UTF-8; unpaired surrogates become U+FFFD.
std::string utf16ToUTF8(ByteSpan bytes, bool littleEndian);
// Inflates a zlib stream, refusing output larger than `maxOutput`. Throws `ImageFormatError`.
Bytes inflateZlib(ByteSpan compressed, std::size_t maxOutput);
Bytes deflateZlib(ByteSpan data);

}  // namespace tavrin::image
