#pragma once
// Fixed-width integers stored in a byte order. REQUIRES: the bytes read are there; callers
// check the range first (see model/enforce.h).

#include <cstdint>

namespace tavrin::bytes {

inline std::uint16_t be16(const std::uint8_t* p) { return static_cast<std::uint16_t>(p[0] << 8 | p[1]); }
inline std::uint32_t be24(const std::uint8_t* p) {
    return static_cast<std::uint32_t>(p[0]) << 16 | static_cast<std::uint32_t>(p[1]) << 8 | p[2];
}
inline std::uint32_t be32(const std::uint8_t* p) {
    return static_cast<std::uint32_t>(p[0]) << 24 | static_cast<std::uint32_t>(p[1]) << 16 |
           static_cast<std::uint32_t>(p[2]) << 8 | p[3];
}
inline std::uint64_t be64(const std::uint8_t* p) { return static_cast<std::uint64_t>(be32(p)) << 32 | be32(p + 4); }
inline std::uint16_t le16(const std::uint8_t* p) { return static_cast<std::uint16_t>(p[1] << 8 | p[0]); }
inline std::uint32_t le32(const std::uint8_t* p) {
    return static_cast<std::uint32_t>(p[3]) << 24 | static_cast<std::uint32_t>(p[2]) << 16 |
           static_cast<std::uint32_t>(p[1]) << 8 | p[0];
}

}  // namespace tavrin::bytes
