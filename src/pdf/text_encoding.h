#pragma once
// The text encodings PDF strings use (ISO 32000-1, 7.9.2): UTF-16BE behind a byte order mark,
// and PDFDocEncoding for everything else.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "model/unicode_text.h"

namespace tavrin::pdfBytes {

// The UTF-16 code units of UTF-8 text; empty when the text is not valid UTF-8.
std::optional<std::vector<std::uint16_t>> utf16Units(std::string_view utf8);
// UTF-8 of big-endian UTF-16 code units; empty for an odd byte count or a lone surrogate.
std::optional<std::string> utf8FromUTF16BE(std::span<const std::uint8_t> bytes);
// UTF-8 of PDFDocEncoding bytes; bytes the encoding leaves undefined keep their Latin-1 meaning.
std::string utf8FromPDFDocEncoding(std::span<const std::uint8_t> bytes);

}  // namespace tavrin::pdfBytes
