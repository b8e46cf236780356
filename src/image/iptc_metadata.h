#pragma once
// IPTC-IIM records and the Photoshop image resources (8BIM) that usually carry them.

#include <cstdint>
#include <string>
#include <vector>

#include "image/image_properties.h"

namespace tavrin::image {

struct IPTCParse {
    Properties properties;  // the {IPTC} dictionary; repeatable datasets as arrays
};

// Reads IIM datasets; a dataset that runs past the end throws `ImageFormatError`.
IPTCParse parseIPTC(ByteSpan iim);

// The datasets of `source` whose names survive in the filtered {IPTC} dictionary; empty when
// none does.
Bytes filteredIPTC(ByteSpan source, const Properties* filteredIPTC);

struct PhotoshopResource {
    std::uint16_t id = 0;
    ByteSpan name;  // the Pascal string, length byte and padding included
    ByteSpan data;
};

std::vector<PhotoshopResource> parsePhotoshopResources(ByteSpan resources);

// Adds {8BIM} entries, the {IPTC} dictionary of resource 1028 and the XMP of resource 1060.
void addPhotoshopProperties(ByteSpan resources, Properties& frame);

// The resources of `source` whose keys survive in `filtered`, with IPTC and XMP rebuilt from
// their filtered dictionaries; empty when nothing survives.
Bytes filteredPhotoshop(ByteSpan source, const Properties& filtered);

}  // namespace tavrin::image
