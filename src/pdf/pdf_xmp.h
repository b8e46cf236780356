#pragma once
// The catalog's XMP packet (/Metadata), read for inspection: every property with a text value,
// such as dc:creator or xmp:CreatorTool. Cleaning drops the packet whole; this only shows what
// it held. The read is bounded: packet size, element count, nesting depth and value length.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "model/metadata_model.h"
#include "pdf/pdf_document.h"

namespace tavrin {

struct PDFXMP {
    static constexpr std::size_t maximumPacketSize = 4 << 20;  // decoded bytes
    static constexpr std::size_t maximumProperties = 200;
    static constexpr std::size_t maximumValueLength = 1000;   // bytes, cut at a character boundary
    static constexpr std::size_t maximumDepth = 64;

    struct Property {
        std::string name;   // "dc:creator", with the conventional prefix of its namespace
        std::string value;  // list items joined with ", "
        bool operator==(const Property&) const = default;
    };

    // The properties of an XMP packet, in document order; nothing when it is no XML.
    static std::optional<std::vector<Property>> properties(std::span<const std::uint8_t> packet);
    // The decoded catalog packet, or nothing when there is none or it cannot be decoded within
    // the bounds.
    static std::optional<std::vector<std::uint8_t>> catalogPacket(PDFDocument& document);
    // Items "PDF.XMP.dc:creator" …, removable, with a category from the property's name.
    static std::vector<MetadataItem> items(const std::vector<Property>& properties);
};

}  // namespace tavrin
