#include "image/icc_profile.h"

#include "image/image_structural_keys.h"

namespace tavrin::image {

std::optional<std::string> iccProfileDescription(ByteSpan p) {
    if (p.size() < 132 || !fits(p, 36, 4) || !startsWith(p.subspan(36), "acsp")) return std::nullopt;
    const std::uint32_t tagCount = be32(p, 128);
    if (tagCount > (p.size() - 132) / 12) return std::nullopt;
    for (std::uint32_t i = 0; i < tagCount; ++i) {
        const std::size_t at = 132 + 12 * static_cast<std::size_t>(i);
        if (!startsWith(p.subspan(at), "desc")) continue;
        const std::uint32_t offset = be32(p, at + 4), size = be32(p, at + 8);
        if (!fits(p, offset, size) || size < 12) return std::nullopt;
        const ByteSpan tag = p.subspan(offset, size);
        if (startsWith(tag, "desc")) {
            const std::uint32_t length = be32(tag, 8);
            if (length == 0 || !fits(tag, 12, length)) return std::nullopt;
            std::string s = text(tag.subspan(12, length));
            while (!s.empty() && s.back() == '\0') s.pop_back();
            return s;
        }
        if (startsWith(tag, "mluc") && size >= 28) {
            const std::uint32_t records = be32(tag, 8), recordSize = be32(tag, 12);
            if (records == 0 || recordSize < 12 || !fits(tag, 16, recordSize)) return std::nullopt;
            const std::uint32_t length = be32(tag, 20), textOffset = be32(tag, 24);
            if (!fits(tag, textOffset, length)) return std::nullopt;
            std::string s = utf16ToUTF8(tag.subspan(textOffset, length), false);
            while (!s.empty() && s.back() == '\0') s.pop_back();
            return s;
        }
        return std::nullopt;
    }
    return std::nullopt;
}

bool keepsICCProfile(ByteSpan profile, const Properties& filtered) {
    const auto name = iccProfileDescription(profile);
    if (!name) return true;
    const MetadataValue value = MetadataValue::string(*name);
    return isGenericICCProfileName(&value) || filtered.count(std::string(key::profileName)) > 0;
}

}  // namespace tavrin::image
