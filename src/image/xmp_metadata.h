#pragma once
// XMP packets (ISO 16684-1) as the {XMP} dictionary, keyed "prefix:Name", and back. Parsed with
// libxml2 without network access or entity substitution; a packet with a document type, one
// nested deeper than `maxXMPDepth` or one libxml2 refuses throws `ImageFormatError`.

#include <map>
#include <string>

#include "image/image_properties.h"

namespace tavrin::image {

inline constexpr int maxXMPDepth = 32;

struct XMPParse {
    Properties properties;
    std::map<std::string, std::string> namespaces;  // prefix → URI, for writing back
};

XMPParse parseXMP(ByteSpan packet);

// A packet holding the entries of `filtered`, with the namespaces they use; empty text when the
// dictionary is empty or no entry can be written.
std::string serializeXMP(const Properties& filtered, const std::map<std::string, std::string>& namespaces);

// Parses `source` for its namespaces and writes the filtered dictionary; empty when it is empty.
std::string filteredXMPPacket(ByteSpan source, const Properties* filtered);

}  // namespace tavrin::image
